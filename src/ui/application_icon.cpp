#include "ui/application_icon.h"

#include <QImage>
#include <QPainter>
#include <QSvgRenderer>
#include <algorithm>
#include <cmath>

namespace murmela::ui {
namespace {
const QString iconResource = QStringLiteral(":/murmela/icon.svg");
}  // namespace

QPixmap applicationIconPixmap(int size, qreal devicePixelRatio) {
    int pixels = std::max(1, static_cast<int>(std::lround(size * devicePixelRatio)));
    QImage image(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QSvgRenderer renderer(iconResource);
    if (renderer.isValid()) {
        QPainter painter(&image);
        renderer.render(&painter, QRectF(0, 0, pixels, pixels));
    }
    QPixmap pixmap = QPixmap::fromImage(image);
    pixmap.setDevicePixelRatio(devicePixelRatio);
    return pixmap;
}

QIcon applicationIcon() {
    QIcon icon;
    for (int size : {16, 24, 32, 48, 64, 128, 256}) {
        icon.addPixmap(applicationIconPixmap(size, 1));
    }
    return icon;
}

}  // namespace murmela::ui
