#include "ui/connect_view.h"

#include <QApplication>
#include <QClipboard>
#include <QFontDatabase>
#include <QFontMetrics>
#include <QHBoxLayout>
#include <QLabel>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QVBoxLayout>
#include <nlohmann/json.hpp>

#include "files/files.h"
#include "ui/widgets.h"

namespace murmela::ui {

std::filesystem::path installationRoot() {
    // /proc/self/exe is always readable for the running process; "/usr" is where a package
    // would put the program, should that ever fail.
    std::optional<std::filesystem::path> bin = executableDirectory();
    return bin ? bin->parent_path() : std::filesystem::path("/usr");
}

std::filesystem::path helperPath(const std::filesystem::path& root) {
    return root / "libexec" / "murmela" / "murmela";
}

std::string connectConfiguration(const std::filesystem::path& helper) {
    std::string encoded;
    try {
        encoded = nlohmann::json(helper.string()).dump();
    } catch (const nlohmann::json::type_error&) {
        encoded = "\"\"";
    }
    return "{\n  \"mcpServers\": {\n    \"murmela\": {\n      \"command\": " + encoded +
           ",\n      \"args\": [\"mcp\"]\n    }\n  }\n}";
}

namespace {

// A read-only text exactly as tall as its lines, scrolling sideways only.
QPlainTextEdit* configurationText(const QString& configuration, const QFont& font,
                                  QWidget* parent) {
    auto* text = new QPlainTextEdit(configuration, parent);
    text->setReadOnly(true);
    text->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    text->setLineWrapMode(QPlainTextEdit::NoWrap);
    text->setFont(font);
    text->setFrameShape(QFrame::NoFrame);
    text->setBackgroundVisible(false);
    text->viewport()->setAutoFillBackground(false);
    text->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    text->setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    text->document()->setDocumentMargin(0);
    // Tab moves on to the buttons instead of being refused by the read-only text.
    text->setTabChangesFocus(true);
    QFontMetrics metrics(font);
    int lines = text->document()->blockCount();
    int scrollBar = text->horizontalScrollBar()->sizeHint().height();
    text->setFixedHeight(lines * metrics.lineSpacing() + scrollBar + 2);
    return text;
}

}  // namespace

ConnectView::ConnectView(const QString& configuration, QWidget* window, const UiTables& tables)
    : QDialog(window, Qt::Sheet), tables_(tables), configuration_(configuration) {
    setObjectName(QStringLiteral("connect"));
    setWindowModality(Qt::WindowModal);
    setWindowTitle(tables_.text(QStringLiteral("murmela.connect.title")));
    setAccessibleName(windowTitle());

    const int large = tables_.tokens.space(QStringLiteral("lg"));
    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(tables_.tokens.space(QStringLiteral("md")));
    layout->setContentsMargins(large, large, large, large);

    auto* title = new QLabel(windowTitle(), this);
    title->setObjectName(QStringLiteral("connectTitle"));
    title->setTextFormat(Qt::PlainText);
    title->setFont(tables_.font(QStringLiteral("aboutTitle"), true));
    layout->addWidget(title);

    auto* hint = new QLabel(tables_.text(QStringLiteral("murmela.connect.hint")), this);
    hint->setObjectName(QStringLiteral("connectHint"));
    hint->setTextFormat(Qt::PlainText);
    hint->setWordWrap(true);
    followForegroundColor(hint, tables_.tokens.color(QStringLiteral("textSecondary")));
    layout->addWidget(hint);

    QFont code = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    code.setPixelSize(std::max(1, tables_.tokens.type(QStringLiteral("code"))));
    auto* config = configurationText(configuration_, code, this);
    config->setObjectName(QStringLiteral("connectConfig"));
    config->setAccessibleName(title->text());
    config->setAccessibleDescription(hint->text());
    layout->addWidget(new OutlinedFrame(config, tables_.tokens.space(QStringLiteral("sm")), this));

    auto* done = new QPushButton(tables_.text(QStringLiteral("murmela.connect.done")), this);
    done->setObjectName(QStringLiteral("connectDone"));
    done->setAccessibleName(done->text());
    // Return always copies, whichever button has the focus; Space presses the focused one.
    done->setAutoDefault(false);
    connect(done, &QPushButton::clicked, this, &QDialog::reject);

    copyButton_ = new QPushButton(tables_.text(QStringLiteral("murmela.connect.copy")), this);
    copyButton_->setObjectName(QStringLiteral("connectCopy"));
    copyButton_->setAccessibleName(copyButton_->text());
    copyButton_->setDefault(true);
    connect(copyButton_, &QPushButton::clicked, this, &ConnectView::copy);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(done, 0, Qt::AlignVCenter);
    buttons->addWidget(copyButton_, 0, Qt::AlignVCenter);
    layout->addLayout(buttons);

    // The sheet's width is the token's, so the text scrolls rather than widening it; the
    // height follows from the wrapped hint.
    const int width = tables_.tokens.layout(QStringLiteral("connectWidth"));
    setFixedSize(width, hasHeightForWidth() ? heightForWidth(width) : sizeHint().height());
    copyButton_->setFocus();
}

void ConnectView::copy() {
    // A fresh object with text only, so nothing another program put there survives.
    auto* content = new QMimeData;
    content->setText(configuration_);
    QApplication::clipboard()->setMimeData(content);
    copyButton_->setText(tables_.text(QStringLiteral("murmela.connect.copied")));
    copyButton_->setAccessibleName(copyButton_->text());
}

ConnectView* presentConnectSheet(QWidget* window) {
    auto* sheet = new ConnectView(
        QString::fromStdString(connectConfiguration(helperPath(installationRoot()))), window);
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    sheet->open();
    return sheet;
}

}  // namespace murmela::ui
