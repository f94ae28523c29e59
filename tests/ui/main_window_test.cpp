// The main window with the real model on the test voice and a simulated audio output: the
// editor and its placeholder, the speed slider, every shortcut and menu item reaching its
// operation, the save dialog, opening About and the connect sheet, and what closing does. The
// controls' accessible names are checked over the accessibility bus (accessibility/). And the
// status line: what it shows for every phase and notice, in which colour, in either appearance,
// and that its height never changes.

#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QFileDialog>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QSlider>
#include <QTest>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "app/speech.h"
#include "app/speech_harness.h"
#include "audio/player_harness.h"
#include "support/environment.h"
#include "support/gui_test.h"
#include "support/temporary_directory.h"
#include "support/test_voice.h"
#include "ui/main_view.h"
#include "ui/murmela_app.h"
#include "ui/status_line.h"
#include "ui/widgets.h"

namespace murmela::ui {
namespace {

using namespace std::chrono_literals;
using murmela::testing::findNamed;
using murmela::testing::runEventsUntil;

class MainWindow : public ::testing::Test {
protected:
    void SetUp() override {
        app_ = std::make_unique<MurmelaApp>(settings_.store(), voice_);
        app_->mainWindow().show();
        ASSERT_TRUE(QTest::qWaitForWindowActive(&app_->mainWindow()));
        editor_ = findNamed<QPlainTextEdit>(&app_->mainWindow(), "text");
        ASSERT_NE(editor_, nullptr);
    }

    void TearDown() override {
        app_.reset();
        // Dialogs and windows closed by a test go at the next turn of the loop.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    Speech& speech() { return app_->speech(); }
    bool waitForPhase(Phase phase) {
        return runEventsUntil([&] { return speech().phase() == phase; }, 20s);
    }
    QString status() const { return findNamed<QLabel>(&app_->mainWindow(), "statusText")->text(); }
    void press(QKeyCombination keys) {
        QTest::keyClick(QApplication::focusWidget(), keys.key(), keys.keyboardModifiers());
    }

    murmela::testing::PrivateSettings settings_;
    std::filesystem::path voice_ = murmela::testing::testVoiceDirectory();
    std::unique_ptr<MurmelaApp> app_;
    QPlainTextEdit* editor_ = nullptr;
};

// A voice directory that is not there, for a load that fails.
class MainWindowWithoutVoice : public MainWindow {
protected:
    void SetUp() override {
        voice_ = "/nonexistent/murmela/Voice";
        MainWindow::SetUp();
    }
};

TEST_F(MainWindow, EditorHasThePlaceholderInTheSecondaryColourAndSliderKeepsToItsSteps) {
    // Qt draws the placeholder while the text is empty; the view gives its text and colour.
    QJsonObject groups{{"color", QJsonObject{{"textSecondary", QJsonObject{{"light", "#ff0000"},
                                                                           {"dark", "#ff0000"}}}}}};
    MainView view(speech(), UiTables{TextTable({{"murmela.text.placeholder", "Type"}}),
                                     DesignTokens(groups)});
    auto* editor = findNamed<QPlainTextEdit>(&view, "text");
    EXPECT_EQ(editor->placeholderText(), "Type");
    EXPECT_EQ(editor->palette().color(QPalette::PlaceholderText), QColor(0xff, 0, 0));
    QTest::keyClick(editor, Qt::Key_A);
    EXPECT_EQ(speech().text(), "a");

    auto* slider = findNamed<QSlider>(&app_->mainWindow(), "speed");
    auto* value = findNamed<QLabel>(&app_->mainWindow(), "speedValue");
    ASSERT_TRUE(slider && value);
    auto valueText = [](const char* number) { return text("murmela.speedValue", {{"n", number}}); };
    EXPECT_EQ(value->text(), valueText("1.00"));
    slider->setFocus();
    // Keys move the speed to its ends and by its steps, never past an end.
    for (const auto& [key, shown] : {std::pair{Qt::Key_Home, "0.75"},
                                     {Qt::Key_Left, "0.75"},
                                     {Qt::Key_Right, "0.80"},
                                     {Qt::Key_End, "1.50"}}) {
        QTest::keyClick(slider, key);
        EXPECT_DOUBLE_EQ(speech().speed(), std::stod(shown)) << shown;
        EXPECT_EQ(value->text(), valueText(shown));
    }
    // A speed set elsewhere moves the slider to its step.
    speech().setSpeed(1.03);
    EXPECT_EQ(value->text(), valueText("1.05"));
    EXPECT_EQ(value->accessibleName(), value->text());
}

// The user has added a voice: the test voice again, under an id of its own.
class MainWindowWithTwoVoices : public MainWindow {
protected:
    void SetUp() override {
        const std::filesystem::path voices = data_ / "murmela" / "voices";
        std::filesystem::create_directories(voices);
        std::filesystem::create_directory_symlink(voice_, voices / "second");
        MainWindow::SetUp();
    }

    murmela::testing::TemporaryDirectory data_{"murmela-voices"};
    murmela::testing::ScopedVariable dataHome_{"XDG_DATA_HOME", data_.path()};
};

TEST_F(MainWindowWithTwoVoices, TheVoicePickerFollowsTheSpeedAndPicksWithTheKeyboard) {
    auto* picker = findNamed<QComboBox>(&app_->mainWindow(), "voice");
    ASSERT_NE(picker, nullptr);
    EXPECT_EQ(picker->accessibleName(), text("murmela.voice"));
    // The second bundled voice, where the build made one, is installed for all users: last.
    const bool secondBundled = std::filesystem::exists(murmela::testing::stagedResourceDirectory() /
                                                       "voices" / "murmela-slt" / "voice.json");
    const int listed = secondBundled ? 3 : 2;
    ASSERT_EQ(picker->count(), listed);
    EXPECT_EQ(picker->itemData(0).toString(), "murmela");
    EXPECT_EQ(picker->itemData(1).toString(), "second");
    EXPECT_EQ(picker->itemText(1), "second (en-US)");
    if (secondBundled) {
        EXPECT_EQ(picker->itemData(2).toString(), "murmela-slt");
    }
    EXPECT_EQ(picker->currentIndex(), 0);
    ASSERT_TRUE(waitForPhase(Phase::ready));

    // Tab from the speed reaches it, and an arrow key picks the next voice, which loads.
    findNamed<QSlider>(&app_->mainWindow(), "speed")->setFocus();
    press(Qt::Key_Tab);
    ASSERT_EQ(QApplication::focusWidget(), picker);
    press(Qt::Key_Down);
    EXPECT_EQ(speech().voiceId(), "second");
    EXPECT_EQ(speech().phase(), Phase::loading);
    EXPECT_EQ(status(), text("murmela.loading"));
    ASSERT_TRUE(waitForPhase(Phase::ready));
    // A choice made elsewhere shows here.
    speech().setVoiceId("murmela");
    EXPECT_EQ(picker->currentIndex(), 0);
    ASSERT_TRUE(waitForPhase(Phase::ready));

    // Add Voice asks for the files; what makes no voice is refused in the status line.
    const std::filesystem::path fake = data_ / "fake.onnx";
    std::ofstream(fake) << "not a model";
    findNamed<QPushButton>(&app_->mainWindow(), "addVoice")->click();
    auto* dialog = app_->mainWindow().findChild<QFileDialog*>("addVoicePanel");
    ASSERT_NE(dialog, nullptr);
    EXPECT_EQ(dialog->fileMode(), QFileDialog::ExistingFiles);
    emit dialog->filesSelected({QString::fromStdString(fake.string())});
    ASSERT_TRUE(runEventsUntil([&] { return speech().notice().has_value(); }, 20s));
    EXPECT_TRUE(status().startsWith(text("murmela.voiceNotAdded").section('{', 0, 0)));
    EXPECT_EQ(picker->count(), listed);
}

TEST_F(MainWindow, ShowsLoadingUntilReadyThenShortcutsAndMenuItemsReachTheModel) {
    EXPECT_EQ(speech().phase(), Phase::loading);
    EXPECT_EQ(status(), text("murmela.loading"));
    ASSERT_TRUE(waitForPhase(Phase::ready));
    EXPECT_EQ(status(), "");
    EXPECT_EQ(app_->mainWindow().windowTitle(), text("murmela.app.name"));
    editor_->setFocus();
    QTest::keyClicks(editor_, "Hello there. This sentence keeps the voice busy for a while.");
    // Ctrl+Return speaks from inside the editor without adding a line.
    press(Qt::CTRL | Qt::Key_Return);
    EXPECT_EQ(speech().phase(), Phase::speaking);
    EXPECT_FALSE(editor_->toPlainText().contains('\n'));
    press(Qt::Key_Escape);
    EXPECT_EQ(speech().phase(), Phase::ready);
    EXPECT_TRUE(speech().cancelled());

    press(Qt::CTRL | Qt::Key_Return);
    EXPECT_EQ(speech().phase(), Phase::speaking);
    press(Qt::CTRL | Qt::Key_Period);
    EXPECT_EQ(speech().phase(), Phase::ready);

    // The menu items do what the keys do.
    app_->action("menuSpeak")->trigger();
    EXPECT_EQ(speech().phase(), Phase::speaking);
    app_->action("menuStop")->trigger();
    EXPECT_EQ(speech().phase(), Phase::ready);
    findNamed<QPushButton>(&app_->mainWindow(), "speak")->click();
    EXPECT_EQ(speech().phase(), Phase::speaking);
}

TEST_F(MainWindow, SaveAsksWhereInTheSaveDirectoryAndWritesTheFile) {
    murmela::testing::TemporaryDirectory directory("murmela-save");
    const murmela::testing::ScopedVariable saveDirectory("MURMELA_SAVE_DIR", directory.path());
    ASSERT_TRUE(waitForPhase(Phase::ready));
    // Nothing to say: no dialog.
    press(Qt::CTRL | Qt::Key_S);
    EXPECT_EQ(app_->mainWindow().findChild<QFileDialog*>(), nullptr);

    editor_->setPlainText("Save me.");
    editor_->setFocus();
    press(Qt::CTRL | Qt::Key_S);
    auto* dialog = app_->mainWindow().findChild<QFileDialog*>("savePanel");
    ASSERT_NE(dialog, nullptr);
    EXPECT_EQ(dialog->acceptMode(), QFileDialog::AcceptSave);
    EXPECT_TRUE(dialog->isModal());
    EXPECT_EQ(dialog->directory().absolutePath(),
              QString::fromStdString(directory.path().string()));
    EXPECT_EQ(dialog->nameFilters(), QStringList{text("murmela.saveFilter")});
    EXPECT_FALSE(dialog->testOption(QFileDialog::ReadOnly));  // may make folders
    ASSERT_EQ(dialog->selectedFiles().size(), 1);
    EXPECT_EQ(QFileInfo(dialog->selectedFiles().front()).fileName(), text("murmela.saveName"));

    // A name of another kind is saved as WAV.
    emit dialog->fileSelected(QString::fromStdString((directory.path() / "talk.mp3").string()));
    ASSERT_TRUE(waitForPhase(Phase::ready));
    ASSERT_TRUE(runEventsUntil([&] { return speech().notice().has_value(); }, 20s));
    EXPECT_EQ(*speech().notice(), Notice::saved("talk.mp3.wav"));
    EXPECT_TRUE(std::filesystem::exists(directory.path() / "talk.mp3.wav"));
    EXPECT_EQ(status(), text("murmela.saved", {{"name", "talk.mp3.wav"}}));
    dialog->reject();
}

TEST_F(MainWindow, MenusHoldTheirItemsInOrderAndNoNewItem) {
    // Each menu by its title, then its items by name ("-" a separator).
    QStringList found;
    for (QAction* menu : app_->mainWindow().menuBar()->actions()) {
        found << menu->text().remove('&') + ":";
        for (QAction* action : menu->menu()->actions()) {
            found << (action->isSeparator() ? "-" : action->objectName());
        }
    }
    EXPECT_EQ(found, (QStringList{text("murmela.app.name") + ":", "menuAbout", "menuConnect",
                                  text("murmela.menu.file").remove('&') + ":", "menuSave",
                                  text("murmela.menu.edit").remove('&') + ":", "menuUndo",
                                  "menuRedo", "-", "menuCut", "menuCopy", "menuPaste",
                                  "menuSelectAll", "-", "menuSpeak", "-", "menuStop"}));
    for (QAction* action : app_->mainWindow().findChildren<QAction*>()) {
        EXPECT_TRUE(action->isEnabled()) << action->objectName().toStdString();
    }

    // The clipboard items work on the editor.
    editor_->setPlainText("copy this");
    editor_->setFocus();
    app_->action("menuSelectAll")->trigger();
    app_->action("menuCut")->trigger();
    EXPECT_EQ(editor_->toPlainText(), "");
    app_->action("menuPaste")->trigger();
    app_->action("menuPaste")->trigger();
    EXPECT_EQ(speech().text(), "copy thiscopy this");
}

TEST_F(MainWindow, AboutAndTheConnectSheetOpenOnceAndOnlyClosingTheMainWindowEndsTheApplication) {
    QSignalSpy quit(app_.get(), &MurmelaApp::quitRequested);
    app_->action("menuConnect")->trigger();
    ASSERT_TRUE(app_->connecting());
    ConnectView* sheet = app_->connectSheet();
    EXPECT_EQ(sheet->parentWidget(), &app_->mainWindow());
    app_->action("menuConnect")->trigger();
    EXPECT_EQ(app_->connectSheet(), sheet);
    QTest::keyClick(sheet, Qt::Key_Escape);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_FALSE(app_->connecting());

    app_->action("menuAbout")->trigger();
    QWidget* about = app_->about().window();
    ASSERT_NE(about, nullptr);
    ASSERT_TRUE(QTest::qWaitForWindowExposed(about));
    app_->mainWindow().activateWindow();
    app_->action("menuAbout")->trigger();
    EXPECT_EQ(app_->about().window(), about);
    EXPECT_TRUE(QTest::qWaitForWindowActive(about));
    about->close();
    EXPECT_EQ(quit.count(), 0);
    app_->action("menuAbout")->trigger();
    app_->mainWindow().close();
    EXPECT_EQ(quit.count(), 1);
}

TEST_F(MainWindowWithoutVoice, FailedLoadShowsRetryWhichLoadsAgain) {
    ASSERT_TRUE(waitForPhase(Phase::failed));
    EXPECT_EQ(status(), text("murmela.loadFailed"));
    auto* retry = findNamed<QPushButton>(&app_->mainWindow(), "retry");
    ASSERT_NE(retry, nullptr);
    EXPECT_TRUE(retry->isVisible());
    retry->click();
    EXPECT_EQ(speech().phase(), Phase::loading);
    EXPECT_FALSE(retry->isVisible());
    EXPECT_TRUE(waitForPhase(Phase::failed));
}

UiTables tables() {
    QJsonObject color;
    color["textSecondary"] = QJsonObject{{"light", "#111111"}, {"dark", "#eeeeee"}};
    color["danger"] = QJsonObject{{"light", "#aa0000"}, {"dark", "#ff5555"}};
    QJsonObject groups;
    groups["color"] = color;
    groups["space"] = QJsonObject{{"statusLine", 30}};
    return {TextTable({{"murmela.loading", "Loading"},
                       {"murmela.saving", "Saving"},
                       {"murmela.loadFailed", "No voice"},
                       {"murmela.saved", "Saved {name}"},
                       {"murmela.empty", "Nothing to read"},
                       {"murmela.failed", "Could not play"},
                       {"murmela.saveFailed", "Could not save"}}),
            DesignTokens(groups)};
}

struct Expected {
    Phase phase;
    std::optional<Notice> notice;
    QString text;
    bool spinner;
    bool danger;
    bool retry;
};

TEST(StatusLine, ShowsThePhaseFirstThenTheNoticeInItsColour) {
    const std::vector<Expected> cases = {
        // Loading, saving and a failed load hide whatever notice is left.
        {Phase::loading, Notice::failed(), "Loading", true, false, false},
        {Phase::saving, Notice::saved("a.wav"), "Saving", true, false, false},
        {Phase::failed, Notice::empty(), "No voice", false, true, true},
        {Phase::failed, std::nullopt, "No voice", false, true, true},
        {Phase::ready, Notice::saved("Talk.wav"), "Saved Talk.wav", false, false, false},
        {Phase::speaking, Notice::empty(), "Nothing to read", false, false, false},
        {Phase::ready, Notice::failed(), "Could not play", false, true, false},
        {Phase::ready, Notice::saveFailed(), "Could not save", false, true, false},
        {Phase::ready, std::nullopt, "", false, false, false},
        {Phase::speaking, std::nullopt, "", false, false, false},
    };
    for (const auto& [palette, secondary, danger] :
         {std::tuple{murmela::testing::lightPalette(), QColor("#111111"), QColor("#aa0000")},
          std::tuple{murmela::testing::darkPalette(), QColor("#eeeeee"), QColor("#ff5555")}}) {
        murmela::testing::ApplicationPalette appearance(palette);
        StatusLine line(tables());
        line.resize(400, 30);
        line.QWidget::show();
        const auto* label = findNamed<QLabel>(&line, "statusText");
        const auto* spinner = findNamed<Spinner>(&line, "statusSpinner");
        const auto* retry = findNamed<QPushButton>(&line, "retry");
        ASSERT_TRUE(label && spinner && retry);
        for (const Expected& expected : cases) {
            SCOPED_TRACE(std::string(name(expected.phase)) + " " +
                         describe(expected.notice).toStdString());
            line.showStatus(expected.phase, expected.notice);
            EXPECT_EQ(label->text(), expected.text);
            EXPECT_EQ(line.accessibleName(), expected.text);
            EXPECT_EQ(spinner->isVisible(), expected.spinner);
            EXPECT_EQ(spinner->isRunning(), expected.spinner);
            EXPECT_EQ(retry->isVisible(), expected.retry);
            EXPECT_EQ(label->palette().color(label->foregroundRole()),
                      expected.danger ? danger : secondary);
            EXPECT_EQ(line.height(), 30);
        }
    }
}

}  // namespace
}  // namespace murmela::ui
