// The connect sheet: the text as shown, copying exactly that text and nothing else, the
// button's label, and the ways to close it.

#include "ui/connect_view.h"

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

#include "support/gui_test.h"
#include "ui/ui_tables.h"

namespace murmela::ui {
namespace {

using murmela::testing::findNamed;

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

    // Return is the sheet's default action, wherever the focus is.
    QTest::keyClick(&sheet, Qt::Key_Return);
    const QMimeData* data = QApplication::clipboard()->mimeData();
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(data->formats(), QStringList{"text/plain"});
    EXPECT_EQ(data->text(), config);
    EXPECT_EQ(copy->text(), "Copied");
    EXPECT_EQ(copy->accessibleName(), "Copied");
    EXPECT_TRUE(sheet.isVisible()) << "copying does not close the sheet";

    // Pressing it again copies again and keeps the label.
    fillClipboardWithRichContent();
    auto* done = findNamed<QPushButton>(&sheet, "connectDone");
    ASSERT_NE(done, nullptr);
    done->setFocus();
    QTest::keyClick(&sheet, Qt::Key_Return);
    EXPECT_EQ(QApplication::clipboard()->mimeData()->formats(), QStringList{"text/plain"});
    EXPECT_EQ(QApplication::clipboard()->text(), config);
    EXPECT_EQ(copy->text(), "Copied");
}

TEST_F(ConnectSheet, ReopenedSheetSaysCopyAgain) {
    ConnectView* first = presentConnectSheet(&window_);
    QPointer<ConnectView> watched(first);
    findNamed<QPushButton>(first, "connectCopy")->click();
    EXPECT_EQ(findNamed<QPushButton>(first, "connectCopy")->text(), "Copied");
    findNamed<QPushButton>(first, "connectDone")->click();
    QTest::qWait(0);
    QApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(watched.isNull()) << "a closed sheet goes away";

    ConnectView* second = presentConnectSheet(&window_);
    EXPECT_EQ(findNamed<QPushButton>(second, "connectCopy")->text(), "Copy");
    second->close();
}

TEST_F(ConnectSheet, DoneAndEscapeCloseTheSheet) {
    for (bool escape : {false, true}) {
        ConnectView sheet("{}", &window_);
        QSignalSpy finished(&sheet, &QDialog::finished);
        sheet.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&sheet));
        if (escape) {
            QTest::keyClick(&sheet, Qt::Key_Escape);
        } else {
            findNamed<QPushButton>(&sheet, "connectDone")->click();
        }
        EXPECT_FALSE(sheet.isVisible());
        EXPECT_EQ(finished.count(), 1);
        EXPECT_FALSE(QApplication::clipboard()->text() == "{}") << "closing copies nothing";
    }
}

TEST_F(ConnectSheet, SheetIsModalToItsWindowAndShowsTheHelperOfThisInstallation) {
    ConnectView* sheet = presentConnectSheet(&window_);
    EXPECT_EQ(sheet->parentWidget(), &window_);
    EXPECT_EQ(sheet->windowModality(), Qt::WindowModal);
    auto* config = findNamed<QPlainTextEdit>(sheet, "connectConfig");
    ASSERT_NE(config, nullptr);
    EXPECT_EQ(config->toPlainText().toStdString(),
              connectConfiguration(helperPath(installationRoot())));
    EXPECT_FALSE(config->accessibleName().isEmpty());
    sheet->close();
}

TEST_F(ConnectSheet, LongPathScrollsSidewaysInsteadOfWrappingOrWidening) {
    std::string longRoot = "/opt/" + std::string(300, 'm');
    const QString config = QString::fromStdString(connectConfiguration(helperPath(longRoot)));
    ConnectView sheet(config, &window_);
    sheet.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&sheet));
    auto* text = findNamed<QPlainTextEdit>(&sheet, "connectConfig");
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(text->lineWrapMode(), QPlainTextEdit::NoWrap);
    EXPECT_TRUE(text->isReadOnly());
    EXPECT_TRUE(text->textInteractionFlags() & Qt::TextSelectableByMouse);
    EXPECT_TRUE(text->textInteractionFlags() & Qt::TextSelectableByKeyboard);
    EXPECT_EQ(text->document()->blockCount(), 8);
    EXPECT_GT(text->horizontalScrollBar()->maximum(), 0);
    EXPECT_EQ(sheet.width(), designTokens().layout("connectWidth"));
    // Every line is visible without scrolling up and down.
    EXPECT_EQ(text->verticalScrollBar()->maximum(), 0);
}

}  // namespace
}  // namespace murmela::ui
