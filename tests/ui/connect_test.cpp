// The connect sheet: the configuration text for the assistant (exact layout, JSON escaping of
// the helper path, the helper it names), copying exactly that text and nothing else,
// the button's label, and the ways to close it.

#include <gtest/gtest.h>

#include <QApplication>
#include <QClipboard>
#include <QMainWindow>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>
#include <filesystem>

#include "support/gui_test.h"
#include "ui/connect_view.h"
#include "ui/ui_tables.h"

namespace murmela::ui {
namespace {

using murmela::testing::findNamed;

std::string expectedText(const std::string& encodedPath) {
    return "{\n"
           "  \"mcpServers\": {\n"
           "    \"murmela\": {\n"
           "      \"command\": " +
           encodedPath +
           ",\n"
           "      \"args\": [\"mcp\"]\n"
           "    }\n"
           "  }\n"
           "}";
}

TEST(ConnectConfiguration, EightLinesWithThePathEscapedOnlyAsJsonRequires) {
    EXPECT_EQ(connectConfiguration(helperPath("/opt/Murmela")),
              expectedText("\"/opt/Murmela/libexec/murmela/murmela\""));
    // Spaces and letters beyond ASCII stay as they are, quotes and backslashes are escaped,
    // slashes never.
    EXPECT_EQ(connectConfiguration(helperPath("/home/Zoë Ünal/My \"Apps\"\\x/音声")),
              expectedText(R"("/home/Zoë Ünal/My \"Apps\"\\x/音声/libexec/murmela/murmela")"));
    // A control character must not break the line structure.
    EXPECT_EQ(connectConfiguration("/a\nb\tc"), expectedText(R"("/a\nb\tc")"));
    // A path that is not UTF-8 gives an empty string.
    EXPECT_EQ(connectConfiguration("/opt/caf\xe9/murmela"), expectedText("\"\""));
}

// Something another program left on the clipboard, in several forms.
void fillClipboardWithRichContent() {
    auto* data = new QMimeData;
    data->setText("old text");
    data->setHtml("<b>old</b>");
    data->setData("application/x-other", "bytes");
    QApplication::clipboard()->setMimeData(data);
}

class ConnectSheet : public ::testing::Test {
protected:
    void SetUp() override {
        window_.resize(640, 420);
        window_.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window_));
    }

    QMainWindow window_;
};

TEST_F(ConnectSheet, CopyLeavesOnlyThePlainTextAndSaysCopied) {
    const QString config = QString::fromStdString(connectConfiguration("/opt/My Apps/murmela"));
    fillClipboardWithRichContent();
    ConnectView sheet(config, &window_);
    sheet.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&sheet));
    auto* copy = findNamed<QPushButton>(&sheet, "connectCopy");
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->text(), "Copy");
    EXPECT_TRUE(copy->isDefault());

    // Return is the sheet's default action, wherever the focus is; pressing it again copies
    // again and keeps the label.
    for (const char* focus : {"connectCopy", "connectDone"}) {
        findNamed<QPushButton>(&sheet, focus)->setFocus();
        QTest::keyClick(&sheet, Qt::Key_Return);
        const QMimeData* data = QApplication::clipboard()->mimeData();
        ASSERT_NE(data, nullptr);
        EXPECT_EQ(data->formats(), QStringList{"text/plain"});
        EXPECT_EQ(data->text(), config);
        EXPECT_EQ(copy->text(), "Copied");
        EXPECT_EQ(copy->accessibleName(), "Copied");
        EXPECT_TRUE(sheet.isVisible()) << "copying does not close the sheet";
        fillClipboardWithRichContent();
    }
}

TEST_F(ConnectSheet, DoneAndEscapeCloseTheSheetAndAReopenedOneSaysCopyAgain) {
    ConnectView* first = presentConnectSheet(&window_);
    QPointer<ConnectView> watched(first);
    EXPECT_EQ(first->parentWidget(), &window_);
    EXPECT_EQ(first->windowModality(), Qt::WindowModal);
    auto* config = findNamed<QPlainTextEdit>(first, "connectConfig");
    ASSERT_NE(config, nullptr);
    // The test programs run from build/<variant>/bin, laid out as an installation.
    EXPECT_EQ(config->toPlainText().toStdString(),
              connectConfiguration(helperPath(installationRoot())));
    EXPECT_TRUE(std::filesystem::is_regular_file(helperPath(installationRoot())))
        << "the sheet names no helper";
    EXPECT_FALSE(config->accessibleName().isEmpty());
    findNamed<QPushButton>(first, "connectCopy")->click();
    QSignalSpy finished(first, &QDialog::finished);
    findNamed<QPushButton>(first, "connectDone")->click();
    EXPECT_EQ(finished.count(), 1);
    QTest::qWait(0);
    QApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(watched.isNull()) << "a closed sheet goes away";

    ConnectView* second = presentConnectSheet(&window_);
    EXPECT_EQ(findNamed<QPushButton>(second, "connectCopy")->text(), "Copy");
    QSignalSpy escaped(second, &QDialog::finished);
    QTest::keyClick(second, Qt::Key_Escape);
    EXPECT_EQ(escaped.count(), 1);
    EXPECT_FALSE(second->isVisible());
}

TEST_F(ConnectSheet, LongPathScrollsSidewaysInsteadOfWrappingOrWidening) {
    std::string longRoot = "/opt/" + std::string(300, 'm');
    const QString config = QString::fromStdString(connectConfiguration(helperPath(longRoot)));
    ConnectView sheet(config, &window_);
    sheet.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&sheet));
    auto* text = findNamed<QPlainTextEdit>(&sheet, "connectConfig");
    ASSERT_NE(text, nullptr);
    EXPECT_TRUE(text->isReadOnly());
    EXPECT_EQ(text->document()->blockCount(), 8);
    EXPECT_GT(text->horizontalScrollBar()->maximum(), 0);
    EXPECT_EQ(sheet.width(), designTokens().layout("connectWidth"));
    // Every line is visible without scrolling up and down.
    EXPECT_EQ(text->verticalScrollBar()->maximum(), 0);
}

}  // namespace
}  // namespace murmela::ui
