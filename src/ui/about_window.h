#pragma once
// The application's one About window: made when it is first asked for, brought forward when it
// is asked for again while open, gone when the user closes it.

#include <QPointer>
#include <QWidget>

#include "ui/ui_tables.h"

namespace murmela::ui {

class AboutWindow final {
public:
    explicit AboutWindow(UiTables tables = UiTables::application());
    ~AboutWindow();
    AboutWindow(const AboutWindow&) = delete;
    AboutWindow& operator=(const AboutWindow&) = delete;

    // Shows the window centred on the screen, or raises and activates the one already open.
    QWidget* open();

    // The open window (object name "about"), or null.
    QWidget* window() const { return window_; }

private:
    QWidget* make();

    UiTables tables_;
    QPointer<QWidget> window_;
};

}  // namespace murmela::ui
