#include "ui/appearance_color.h"

#include <QApplication>
#include <QEvent>
#include <QObject>
#include <QWidget>

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
    auto* follower = widget->findChild<ColorFollower*>(ColorFollower::followerName(role),
                                                       Qt::FindDirectChildrenOnly);
    if (follower == nullptr) {
        follower = new ColorFollower(widget, role, color);
        follower->apply();
    } else {
        follower->setColor(color);
    }
}

}  // namespace murmela::ui
