#include "ui/widgets.h"

#include <QApplication>
#include <QEvent>
#include <QObject>
#include <QPainter>
#include <QPen>
#include <QVBoxLayout>
#include <QWidget>
#include <algorithm>

namespace murmela::ui {

bool paletteIsDark(const QPalette& palette) {
    return palette.color(QPalette::Active, QPalette::Window).lightness() < 128;
}

QColor AppearanceColor::resolve(const QPalette& palette) const {
    if (!pair_) {
        return palette.color(QPalette::WindowText);
    }
    return paletteIsDark(palette) ? pair_->dark : pair_->light;
}

QColor AppearanceColor::current() const {
    return resolve(QGuiApplication::palette());
}

namespace {

// Lives as a child of the widget it colours, so it goes with it.
class ColorFollower final : public QObject {
public:
    ColorFollower(QWidget* widget, QPalette::ColorRole role, const AppearanceColor& color)
        : QObject(widget), widget_(widget), role_(role), color_(color) {
        setObjectName(followerName(role));
        widget->installEventFilter(this);
    }

    void setColor(const AppearanceColor& color) {
        color_ = color;
        apply();
    }

    void apply() {
        // A pair follows the application's window colour; without one the widget shows the
        // application's label colour.
        QColor wanted = color_.resolve(inheritedPalette());
        QPalette palette = widget_->palette();
        if (palette.color(QPalette::Active, role_) == wanted &&
            palette.color(QPalette::Inactive, role_) == wanted) {
            return;
        }
        palette.setColor(role_, wanted);
        applying_ = true;
        widget_->setPalette(palette);
        applying_ = false;
    }

    static QString followerName(QPalette::ColorRole role) {
        return QStringLiteral("murmelaColorFollower%1").arg(int(role));
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (watched == widget_ && !applying_ &&
            (event->type() == QEvent::PaletteChange ||
             event->type() == QEvent::ApplicationPaletteChange)) {
            apply();
        }
        return false;
    }

private:
    QPalette inheritedPalette() const {
        // The application's palette, not the parent's: it is already up to date when the
        // application palette changes, whatever order the widgets hear of it.
        return QApplication::palette(widget_);
    }

    QWidget* widget_;
    QPalette::ColorRole role_;
    AppearanceColor color_;
    bool applying_ = false;
};

}  // namespace

void followForegroundColor(QWidget* widget, const AppearanceColor& color) {
    followColor(widget, widget->foregroundRole(), color);
}

void followColor(QWidget* widget, QPalette::ColorRole role, const AppearanceColor& color) {
    // Found by its name, which only a follower carries: the class has no meta-object of its
    // own for findChild to cast with (newer Qt refuses to try).
    auto* follower = static_cast<ColorFollower*>(
        widget->findChild<QObject*>(ColorFollower::followerName(role), Qt::FindDirectChildrenOnly));
    if (follower == nullptr) {
        follower = new ColorFollower(widget, role, color);
        follower->apply();
    } else {
        follower->setColor(color);
    }
}

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
