#include "ui/murmela_app.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QKeySequence>
#include <QMenu>
#include <QMenuBar>
#include <QTimer>

#include "ui/connect_view.h"
#include "ui/desktop_services.h"
#include "ui/main_view.h"

namespace murmela::ui {
namespace {

// Hands a clipboard command to whatever text widget has the focus (an editor or a field);
// every Qt text widget has these as slots.
void forwardToFocus(const char* slot) {
    if (QWidget* focus = QApplication::focusWidget()) {
        if (focus->metaObject()->indexOfSlot(QByteArray(slot) + "()") >= 0) {
            QMetaObject::invokeMethod(focus, slot);
        }
    }
}

}  // namespace

MurmelaApp::MurmelaApp(SettingsStore settings, std::optional<std::filesystem::path> voiceDirectory,
                       UiTables tables)
    : tables_(std::move(tables)),
      speech_(std::make_unique<Speech>(std::move(settings), std::move(voiceDirectory))),
      mainWindow_(std::make_unique<QMainWindow>()),
      about_(tables_) {
    mainWindow_->setObjectName(QStringLiteral("main"));
    mainWindow_->setWindowTitle(tables_.text(QStringLiteral("murmela.app.name")));
    mainWindow_->setAccessibleName(mainWindow_->windowTitle());
    mainWindow_->setWindowIcon(applicationIcon());
    mainView_ = new MainView(*speech_, tables_, mainWindow_.get());
    mainWindow_->setCentralWidget(mainView_);
    mainWindow_->resize(tables_.tokens.layout(QStringLiteral("windowWidth")),
                        tables_.tokens.layout(QStringLiteral("windowHeight")));
    connect(mainView_, &MainView::saveRequested, this, &MurmelaApp::saveText);
    connect(mainView_, &MainView::addVoiceRequested, this,
            [this] { presentAddVoicePanel(*speech_, mainWindow_.get(), tables_); });
    addMenus();
    mainWindow_->installEventFilter(this);
}

MurmelaApp::~MurmelaApp() {
    mainWindow_->removeEventFilter(this);
    // The sheet and any dialog are the window's children; they go with it, before the model.
    mainWindow_.reset();
}

bool MurmelaApp::eventFilter(QObject* watched, QEvent* event) {
    if (watched == mainWindow_.get()) {
        if (event->type() == QEvent::Show && !started_) {
            // Once the window is on screen, so the first thing a person sees is the window
            // saying that the voice is loading.
            started_ = true;
            QTimer::singleShot(0, speech_.get(), &Speech::load);
        } else if (event->type() == QEvent::Close) {
            emit quitRequested();
        }
    }
    return QObject::eventFilter(watched, event);
}

QAction* MurmelaApp::addAction(QMenu* menu, const QString& name, const QString& textKey,
                               const QKeySequence& shortcut) {
    QAction* action = menu->addAction(tables_.text(textKey));
    action->setObjectName(name);
    action->setShortcut(shortcut);
    // Reachable from the main window whichever child has the focus.
    action->setShortcutContext(Qt::WindowShortcut);
    mainWindow_->addAction(action);
    return action;
}

void MurmelaApp::addMenus() {
    QMenuBar* bar = mainWindow_->menuBar();

    // Alt+M opens it from the keyboard, as Alt+F and Alt+E open the others.
    QMenu* application =
        bar->addMenu(QLatin1Char('&') + tables_.text(QStringLiteral("murmela.app.name")));
    application->setObjectName(QStringLiteral("applicationMenu"));
    connect(addAction(application, QStringLiteral("menuAbout"),
                      QStringLiteral("murmela.menu.about"), {}),
            &QAction::triggered, this, &MurmelaApp::showAbout);
    connect(addAction(application, QStringLiteral("menuConnect"),
                      QStringLiteral("murmela.menu.connect"), {}),
            &QAction::triggered, this, &MurmelaApp::showConnectSheet);

    QMenu* file = bar->addMenu(tables_.text(QStringLiteral("murmela.menu.file")));
    file->setObjectName(QStringLiteral("fileMenu"));
    connect(addAction(file, QStringLiteral("menuSave"), QStringLiteral("murmela.save"),
                      QKeySequence(Qt::CTRL | Qt::Key_S)),
            &QAction::triggered, this, &MurmelaApp::saveText);

    QMenu* edit = bar->addMenu(tables_.text(QStringLiteral("murmela.menu.edit")));
    edit->setObjectName(QStringLiteral("editMenu"));
    struct ClipboardItem {
        const char* name;
        const char* textKey;
        QKeySequence::StandardKey key;
        const char* slot;
    };
    const ClipboardItem clipboardItems[] = {
        {"menuUndo", "murmela.menu.undo", QKeySequence::Undo, "undo"},
        {"menuRedo", "murmela.menu.redo", QKeySequence::Redo, "redo"},
        {nullptr, nullptr, QKeySequence::UnknownKey, nullptr},
        {"menuCut", "murmela.menu.cut", QKeySequence::Cut, "cut"},
        {"menuCopy", "murmela.menu.copy", QKeySequence::Copy, "copy"},
        {"menuPaste", "murmela.menu.paste", QKeySequence::Paste, "paste"},
        {"menuSelectAll", "murmela.menu.selectAll", QKeySequence::SelectAll, "selectAll"},
    };
    for (const ClipboardItem& item : clipboardItems) {
        if (item.name == nullptr) {
            edit->addSeparator();
            continue;
        }
        // A text widget with the focus takes these keys itself; the items serve the mouse.
        QAction* action = addAction(edit, QString::fromLatin1(item.name),
                                    QString::fromLatin1(item.textKey), QKeySequence(item.key));
        const char* slot = item.slot;
        connect(action, &QAction::triggered, this, [slot] { forwardToFocus(slot); });
    }
    edit->addSeparator();
    connect(addAction(edit, QStringLiteral("menuSpeak"), QStringLiteral("murmela.speak"),
                      QKeySequence(Qt::CTRL | Qt::Key_Return)),
            &QAction::triggered, speech_.get(), &Speech::speak);
    edit->addSeparator();
    connect(addAction(edit, QStringLiteral("menuStop"), QStringLiteral("murmela.stop"),
                      QKeySequence(Qt::CTRL | Qt::Key_Period)),
            &QAction::triggered, speech_.get(), &Speech::stop);
}

QAction* MurmelaApp::action(const QString& name) const {
    return mainWindow_->findChild<QAction*>(name);
}

void MurmelaApp::showAbout() {
    about_.open();
}

void MurmelaApp::showConnectSheet() {
    if (connectSheet_ != nullptr) {
        connectSheet_->raise();
        return;
    }
    connectSheet_ = presentConnectSheet(mainWindow_.get());
}

void MurmelaApp::saveText() {
    // Attached to the window that has the keyboard, if any.
    presentSavePanel(*speech_, QApplication::activeWindow(), tables_);
}

}  // namespace murmela::ui
