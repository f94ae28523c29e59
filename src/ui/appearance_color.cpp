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
class ForegroundFollower final : public QObject {
  public:
    ForegroundFollower(QWidget* widget, const AppearanceColor& color)
        : QObject(widget), widget_(widget), color_(color) {
        setObjectName(QStringLiteral("murmelaForegroundFollower"));
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
        if (palette.color(QPalette::Active, widget_->foregroundRole()) == wanted &&
            palette.color(QPalette::Inactive, widget_->foregroundRole()) == wanted) {
            return;
        }
        palette.setColor(widget_->foregroundRole(), wanted);
        applying_ = true;
        widget_->setPalette(palette);
        applying_ = false;
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
    AppearanceColor color_;
    bool applying_ = false;
};

}  // namespace

void followForegroundColor(QWidget* widget, const AppearanceColor& color) {
    auto* follower = widget->findChild<ForegroundFollower*>(
        QStringLiteral("murmelaForegroundFollower"), Qt::FindDirectChildrenOnly);
    if (follower == nullptr) {
        follower = new ForegroundFollower(widget, color);
        follower->apply();
    } else {
        follower->setColor(color);
    }
}

}  // namespace murmela::ui
