#pragma once
// Small widgets and their colours: colours that follow the appearance, an outlined frame and a
// spinner.
//
// A colour given once for a light and once for a dark appearance, following whichever the
// application currently shows.

#include <QColor>
#include <QPalette>
#include <QTimer>
#include <QWidget>
#include <optional>

class QWidget;

namespace murmela::ui {

// Whether `palette` is a dark appearance: its window colour is darker than mid-grey.
// (Qt 6.4 has no colour-scheme hint; the palette is what every widget is drawn with.)
bool paletteIsDark(const QPalette& palette);

class AppearanceColor {
public:
    // No usable pair: the platform's label colour.
    AppearanceColor() = default;
    AppearanceColor(QColor light, QColor dark) : pair_(Pair{light, dark}) {}

    bool hasPair() const { return pair_.has_value(); }

    // The colour to draw with in `palette`: the dark value when the palette is dark, the light
    // value otherwise, and the palette's label colour (WindowText) without a pair.
    QColor resolve(const QPalette& palette) const;

    // resolve() against the application's current palette.
    QColor current() const;

    friend bool operator==(const AppearanceColor&, const AppearanceColor&) = default;

private:
    struct Pair {
        QColor light;
        QColor dark;
        friend bool operator==(const Pair&, const Pair&) = default;
    };
    std::optional<Pair> pair_;
};

// Draws `widget`'s text (its foreground role) in `color`, re-resolved whenever the widget's
// or the application's palette changes. Calling it again replaces the colour.
void followForegroundColor(QWidget* widget, const AppearanceColor& color);

// The same for any colour role of the widget's palette (for example the placeholder text).
void followColor(QWidget* widget, QPalette::ColorRole role, const AppearanceColor& color);

// A padded box outlined by a thin rounded rectangle in the separator colour, around one child.

class OutlinedFrame final : public QWidget {
public:
    // Takes ownership of `content`, padded by `padding` pixels on every side.
    OutlinedFrame(QWidget* content, int padding, QWidget* parent = nullptr);

protected:
    void paintEvent(QPaintEvent* event) override;
};

// A small indeterminate progress indicator: an arc that turns while running and is hidden
// otherwise.

class Spinner final : public QWidget {
public:
    explicit Spinner(QWidget* parent = nullptr);

    void setRunning(bool running);
    bool isRunning() const { return timer_.isActive(); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QTimer timer_;
    int angle_ = 0;
};

}  // namespace murmela::ui
