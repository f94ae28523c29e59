#include "ui/spinner.h"

#include <QPainter>
#include <QPen>

#include <algorithm>

namespace murmela::ui {
namespace {
constexpr int stepDegrees = 30;
constexpr int stepMilliseconds = 80;
}  // namespace

Spinner::Spinner(QWidget* parent) : QWidget(parent) {
    timer_.setInterval(stepMilliseconds);
    connect(&timer_, &QTimer::timeout, this, [this] {
        angle_ = (angle_ + stepDegrees) % 360;
        update();
    });
    // Keeps its place in the line when hidden, so the text beside it never shifts.
    QSizePolicy policy = sizePolicy();
    policy.setRetainSizeWhenHidden(true);
    setSizePolicy(policy);
    QWidget::setVisible(false);
}

void Spinner::setRunning(bool running) {
    if (running == isRunning()) {
        return;
    }
    if (running) {
        timer_.start();
    } else {
        timer_.stop();
    }
    setVisible(running);
}

void Spinner::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const int side = std::min(width(), height());
    const qreal penWidth = std::max(1.5, side / 8.0);
    QPen pen(palette().color(QPalette::WindowText), penWidth, Qt::SolidLine, Qt::RoundCap);
    painter.setPen(pen);
    const qreal inset = penWidth / 2 + 1;
    QRectF square((width() - side) / 2.0 + inset, (height() - side) / 2.0 + inset, side - 2 * inset,
                  side - 2 * inset);
    // Qt's angles are in sixteenths of a degree, counter-clockwise; turn clockwise.
    painter.drawArc(square, -angle_ * 16, 270 * 16);
}

}  // namespace murmela::ui
