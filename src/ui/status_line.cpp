#include "ui/status_line.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

#include "ui/widgets.h"

namespace murmela::ui {

StatusContent statusContent(Phase phase, const std::optional<Notice>& notice) {
    const QString secondary = QStringLiteral("textSecondary");
    const QString danger = QStringLiteral("danger");
    switch (phase) {
        case Phase::loading:
            return {true, QStringLiteral("murmela.loading"), {}, secondary, false};
        case Phase::saving:
            return {true, QStringLiteral("murmela.saving"), {}, secondary, false};
        case Phase::failed:
            return {false, QStringLiteral("murmela.loadFailed"), {}, danger, true};
        case Phase::ready:
        case Phase::speaking:
            break;
    }
    if (!notice) {
        return {false, {}, {}, secondary, false};
    }
    switch (notice->kind) {
        case Notice::Kind::saved:
            return {false, QStringLiteral("murmela.saved"), notice->name, secondary, false};
        case Notice::Kind::empty:
            return {false, QStringLiteral("murmela.empty"), {}, secondary, false};
        case Notice::Kind::failed:
            return {false, QStringLiteral("murmela.failed"), {}, danger, false};
        case Notice::Kind::saveFailed:
            return {false, QStringLiteral("murmela.saveFailed"), {}, danger, false};
        case Notice::Kind::voiceGone:
            return {false, QStringLiteral("murmela.voiceGone"), notice->name, secondary, false};
        case Notice::Kind::voiceNotAdded:
            return {false, QStringLiteral("murmela.voiceNotAdded"), notice->name, danger, false};
    }
    return {};
}

StatusLine::StatusLine(const UiTables& tables, QWidget* parent) : QWidget(parent), tables_(tables) {
    setObjectName(QStringLiteral("status"));
    const QFont font = tables_.font(QStringLiteral("status"));
    // A fixed height, so the window's layout does not jump as the line changes.
    setFixedHeight(tables_.tokens.space(QStringLiteral("statusLine")));

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(tables_.tokens.space(QStringLiteral("sm")));

    spinner_ = new Spinner(this);
    spinner_->setObjectName(QStringLiteral("statusSpinner"));
    const int spinnerSize = QFontMetrics(font).height();
    spinner_->setFixedSize(spinnerSize, spinnerSize);
    layout->addWidget(spinner_, 0, Qt::AlignVCenter);

    label_ = new QLabel(this);
    label_->setObjectName(QStringLiteral("statusText"));
    label_->setTextFormat(Qt::PlainText);
    label_->setFont(font);
    label_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(label_, 0, Qt::AlignVCenter);

    retry_ = new QPushButton(tables_.text(QStringLiteral("murmela.retry")), this);
    retry_->setObjectName(QStringLiteral("retry"));
    retry_->setAccessibleName(retry_->text());
    retry_->setFont(font);
    connect(retry_, &QPushButton::clicked, this, &StatusLine::retryRequested);
    layout->addWidget(retry_, 0, Qt::AlignVCenter);
    layout->addStretch();

    showStatus(Phase::loading, std::nullopt);
}

void StatusLine::showStatus(Phase phase, const std::optional<Notice>& notice) {
    const StatusContent content = statusContent(phase, notice);
    spinner_->setRunning(content.spinner);
    const QString text =
        content.textKey.isEmpty()
            ? QString()
            : tables_.text(content.textKey, {{QStringLiteral("name"), content.savedName}});
    label_->setText(text);
    followForegroundColor(label_, tables_.tokens.color(content.colorName));
    retry_->setVisible(content.retry);
    // A screen reader hears the line as one status text; the spinner says what it waits for.
    setAccessibleName(text);
    label_->setAccessibleName(text);
    spinner_->setAccessibleName(text);
}

}  // namespace murmela::ui
