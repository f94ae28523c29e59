#include "ui/outlined_frame.h"

#include <QPainter>
#include <QPen>
#include <QVBoxLayout>

namespace murmela::ui {

namespace {
constexpr qreal cornerRadius = 6;
constexpr qreal strokeWidth = 1;
}  // namespace

OutlinedFrame::OutlinedFrame(QWidget* content, int padding, QWidget* parent) : QWidget(parent) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(padding, padding, padding, padding);
    layout->addWidget(content);
}

void OutlinedFrame::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    // Qt's separator lines are drawn in the Mid role.
    painter.setPen(QPen(palette().color(QPalette::Mid), strokeWidth));
    painter.setBrush(Qt::NoBrush);
    qreal inset = strokeWidth / 2;
    painter.drawRoundedRect(QRectF(rect()).adjusted(inset, inset, -inset, -inset), cornerRadius,
                            cornerRadius);
}

}  // namespace murmela::ui
