#include "ui/about_window.h"

#include <QApplication>
#include <QKeySequence>
#include <QLayout>
#include <QMainWindow>
#include <QScreen>
#include <QShortcut>

#include "ui/about_view.h"

namespace murmela::ui {

AboutWindow::AboutWindow(UiTables tables) : tables_(std::move(tables)) {}

AboutWindow::~AboutWindow() {
    delete window_.data();
}

QWidget* AboutWindow::open() {
    if (window_ == nullptr) {
        window_ = make();
        QWidget* active = QApplication::activeWindow();
        QScreen* screen = active != nullptr ? active->screen() : QGuiApplication::primaryScreen();
        if (screen != nullptr) {
            QRect area = screen->availableGeometry();
            window_->move(area.center() - window_->rect().center());
        }
    }
    window_->show();
    window_->raise();
    window_->activateWindow();
    return window_;
}

QWidget* AboutWindow::make() {
    // No maximise button: the window is exactly as large as its content. A main window, not a
    // plain widget, so assistive technology announces it as a window.
    auto* window = new QMainWindow(nullptr, Qt::Window | Qt::CustomizeWindowHint |
                                                Qt::WindowTitleHint | Qt::WindowCloseButtonHint);
    window->setObjectName(QStringLiteral("about"));
    window->setAttribute(Qt::WA_DeleteOnClose);
    window->setWindowTitle(tables_.text(QStringLiteral("murmela.about.title")));
    window->setAccessibleName(window->windowTitle());
    window->setCentralWidget(new AboutView(tables_, AboutView::defaultLicensesFolder(),
                                           VoiceCredit::installed(), window));
    QLayout* layout = window->layout();
    layout->setSizeConstraint(QLayout::SetFixedSize);
    auto* close = new QShortcut(QKeySequence::Close, window);
    QObject::connect(close, &QShortcut::activated, window, &QWidget::close);
    // Settle the size now, so the window is centred with the size it will show.
    layout->activate();
    window->adjustSize();
    return window;
}

}  // namespace murmela::ui
