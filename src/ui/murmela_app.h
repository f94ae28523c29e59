#pragma once
// The application: the one model, the main window with its menus, the About window and the
// connect sheet.
//
// The main window ("main") holds the MainView; its menus are the application's own (About,
// Connect), File (Save, Ctrl+S; no New) and Edit (the clipboard items, then Speak,
// Ctrl+Return, and Stop, Ctrl+Period). The voice starts loading when the main window first
// appears. Closing the main window ends the application, even with About open; closing About
// does not. Everything here lives on the main thread.

#include <QMainWindow>
#include <QObject>
#include <QPointer>

#include <filesystem>
#include <memory>
#include <optional>

#include "app/speech.h"
#include "ui/about_window.h"
#include "ui/connect_view.h"
#include "ui/ui_tables.h"

class QAction;
class QMenu;

namespace murmela::ui {

class MainView;

class MurmelaApp final : public QObject {
    Q_OBJECT

public:
    // `settings` is the model's store; `voiceDirectory` overrides the resources' voice.
    explicit MurmelaApp(SettingsStore settings,
                        std::optional<std::filesystem::path> voiceDirectory = std::nullopt,
                        UiTables tables = UiTables::application());
    ~MurmelaApp() override;

    Speech& speech() { return *speech_; }
    QMainWindow& mainWindow() { return *mainWindow_; }
    MainView& mainView() { return *mainView_; }
    AboutWindow& about() { return about_; }

    // True while the connect sheet is shown over the main window.
    bool connecting() const { return connectSheet_ != nullptr; }
    ConnectView* connectSheet() const { return connectSheet_; }

    // The menu commands, by what they do.
    void showAbout();
    void showConnectSheet();
    void saveText();

    // The menu item whose action has object name `name` (for example "menuSpeak").
    QAction* action(const QString& name) const;

signals:
    // The main window was closed: the application should end.
    void quitRequested();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void addMenus();
    QAction* addAction(QMenu* menu, const QString& name, const QString& textKey,
                       const QKeySequence& shortcut);

    UiTables tables_;
    std::unique_ptr<Speech> speech_;
    std::unique_ptr<QMainWindow> mainWindow_;
    MainView* mainView_;
    AboutWindow about_;
    QPointer<ConnectView> connectSheet_;
    bool started_ = false;
};

}  // namespace murmela::ui
