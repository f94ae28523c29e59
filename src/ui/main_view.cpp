#include "ui/main_view.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QShortcut>
#include <QSignalBlocker>
#include <QSlider>
#include <QVBoxLayout>

#include <cmath>

#include "app/settings.h"
#include "app/speech.h"
#include "ui/status_line.h"
#include "ui/widgets.h"

namespace murmela::ui {
namespace {

// The slider counts speed steps from 0 (15 is 0.75, 30 is 1.5).
int sliderPosition(double speed) {
    return static_cast<int>(std::lround(speed / speedStep));
}

// The editor's text starts this far from its leading edge, and so does the placeholder.
constexpr int textInset = 5;

QPlainTextEdit* makeEditor(const UiTables& tables, QWidget* parent) {
    auto* editor = new QPlainTextEdit(parent);
    editor->setObjectName(QStringLiteral("text"));
    editor->setAccessibleName(tables.text(QStringLiteral("murmela.text.placeholder")));
    editor->setFont(tables.font(QStringLiteral("body")));
    editor->setFrameShape(QFrame::NoFrame);
    editor->setBackgroundVisible(false);
    editor->viewport()->setAutoFillBackground(false);
    editor->document()->setDocumentMargin(textInset);
    // Qt draws the placeholder itself, only while the text is empty, and it is no object of
    // its own for a screen reader.
    editor->setPlaceholderText(tables.text(QStringLiteral("murmela.text.placeholder")));
    followColor(editor, QPalette::PlaceholderText,
                tables.tokens.color(QStringLiteral("textSecondary")));
    editor->setTabChangesFocus(true);
    return editor;
}

}  // namespace

QString MainView::speedText(const UiTables& tables, double speed) {
    return tables.text(QStringLiteral("murmela.speedValue"),
                       {{QStringLiteral("n"), QString::asprintf("%.2f", speed)}});
}

MainView::MainView(Speech& speech, const UiTables& tables, QWidget* parent)
    : QWidget(parent), speech_(speech), tables_(tables) {
    setObjectName(QStringLiteral("mainView"));
    const DesignTokens& tokens = tables_.tokens;
    setMinimumSize(tokens.layout(QStringLiteral("windowMinWidth")),
                   tokens.layout(QStringLiteral("windowMinHeight")));

    auto* layout = new QVBoxLayout(this);
    const int large = tokens.space(QStringLiteral("lg"));
    layout->setContentsMargins(large, large, large, large);
    layout->setSpacing(tokens.space(QStringLiteral("md")));

    editor_ = makeEditor(tables_, this);
    layout->addWidget(new OutlinedFrame(editor_, tokens.space(QStringLiteral("sm")), this), 1);

    auto* controls = new QHBoxLayout;
    controls->setSpacing(tokens.space(QStringLiteral("sm")));

    auto* speak = new QPushButton(tables_.text(QStringLiteral("murmela.speak")), this);
    speak->setObjectName(QStringLiteral("speak"));
    speak->setAccessibleName(speak->text());
    // The prominent button; Return alone still types a line end in the editor.
    speak->setDefault(true);
    speak->setAutoDefault(false);
    speak->setToolTip(QKeySequence(Qt::CTRL | Qt::Key_Return).toString(QKeySequence::NativeText));
    connect(speak, &QPushButton::clicked, &speech_, &Speech::speak);
    controls->addWidget(speak, 0, Qt::AlignVCenter);

    auto* stop = new QPushButton(tables_.text(QStringLiteral("murmela.stop")), this);
    stop->setObjectName(QStringLiteral("stop"));
    stop->setAccessibleName(stop->text());
    stop->setAutoDefault(false);
    stop->setToolTip(QKeySequence(Qt::Key_Escape).toString(QKeySequence::NativeText));
    connect(stop, &QPushButton::clicked, &speech_, &Speech::stop);
    // Escape stops anywhere in the window (the menu's Stop has Ctrl+Period).
    auto* escape = new QShortcut(QKeySequence(Qt::Key_Escape), this);
    escape->setContext(Qt::WindowShortcut);
    connect(escape, &QShortcut::activated, &speech_, &Speech::stop);
    controls->addWidget(stop, 0, Qt::AlignVCenter);

    auto* speedLabel = new QLabel(tables_.text(QStringLiteral("murmela.speed")), this);
    speedLabel->setObjectName(QStringLiteral("speedLabel"));
    speedLabel->setTextFormat(Qt::PlainText);
    controls->addWidget(speedLabel, 0, Qt::AlignVCenter);

    slider_ = new QSlider(Qt::Horizontal, this);
    slider_->setObjectName(QStringLiteral("speed"));
    slider_->setAccessibleName(speedLabel->text());
    slider_->setRange(sliderPosition(minimumSpeed), sliderPosition(maximumSpeed));
    slider_->setSingleStep(1);
    slider_->setPageStep(1);
    slider_->setFixedWidth(tokens.layout(QStringLiteral("sliderWidth")));
    speedLabel->setBuddy(slider_);
    connect(slider_, &QSlider::valueChanged, this,
            [this](int position) { speech_.setSpeed(position * speedStep); });
    controls->addWidget(slider_, 0, Qt::AlignVCenter);

    speedValue_ = new QLabel(this);
    speedValue_->setObjectName(QStringLiteral("speedValue"));
    speedValue_->setTextFormat(Qt::PlainText);
    followForegroundColor(speedValue_, tokens.color(QStringLiteral("textSecondary")));
    // Wide enough for the widest value, so the row does not move as the value changes.
    speedValue_->setMinimumWidth(
        speedValue_->fontMetrics().horizontalAdvance(speedText(tables_, 0.88)));
    controls->addWidget(speedValue_, 0, Qt::AlignVCenter);

    auto* voiceLabel = new QLabel(tables_.text(QStringLiteral("murmela.voice")), this);
    voiceLabel->setObjectName(QStringLiteral("voiceLabel"));
    voiceLabel->setTextFormat(Qt::PlainText);
    controls->addWidget(voiceLabel, 0, Qt::AlignVCenter);
    voicePicker_ = new QComboBox(this);
    voicePicker_->setObjectName(QStringLiteral("voice"));
    // A screen reader names a combo box by the item it shows, so the label is its description.
    voicePicker_->setAccessibleName(voiceLabel->text());
    voicePicker_->setAccessibleDescription(voiceLabel->text());
    voicePicker_->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    listVoices();
    voiceLabel->setBuddy(voicePicker_);
    connect(voicePicker_, &QComboBox::activated, this, [this](int index) {
        speech_.setVoiceId(voicePicker_->itemData(index).toString());
        // A choice the model did not take (while it saves) is shown as it is.
        showVoice(speech_.voiceId());
    });
    controls->addWidget(voicePicker_, 0, Qt::AlignVCenter);
    auto* addVoice = new QPushButton(tables_.text(QStringLiteral("murmela.addVoice")), this);
    addVoice->setObjectName(QStringLiteral("addVoice"));
    addVoice->setAccessibleName(addVoice->text());
    addVoice->setAutoDefault(false);
    connect(addVoice, &QPushButton::clicked, this, &MainView::addVoiceRequested);
    controls->addWidget(addVoice, 0, Qt::AlignVCenter);

    controls->addStretch();
    auto* save = new QPushButton(tables_.text(QStringLiteral("murmela.save")), this);
    save->setObjectName(QStringLiteral("save"));
    save->setAccessibleName(save->text());
    save->setAutoDefault(false);
    connect(save, &QPushButton::clicked, this, &MainView::saveRequested);
    controls->addWidget(save, 0, Qt::AlignVCenter);
    layout->addLayout(controls);

    status_ = new StatusLine(tables_, this);
    connect(status_, &StatusLine::retryRequested, &speech_, &Speech::load);
    layout->addWidget(status_);

    connect(editor_, &QPlainTextEdit::textChanged, this,
            [this] { speech_.setText(editor_->toPlainText()); });
    connect(&speech_, &Speech::textChanged, this, &MainView::showText);
    connect(&speech_, &Speech::speedChanged, this, &MainView::showSpeed);
    connect(&speech_, &Speech::voiceIdChanged, this, &MainView::showVoice);
    connect(&speech_, &Speech::voicesChanged, this, [this] {
        listVoices();
        showVoice(speech_.voiceId());
    });
    auto showStatus = [this] { status_->showStatus(speech_.phase(), speech_.notice()); };
    connect(&speech_, &Speech::phaseChanged, this, showStatus);
    connect(&speech_, &Speech::noticeChanged, this, showStatus);

    showText(speech_.text());
    showSpeed(speech_.speed());
    showVoice(speech_.voiceId());
    showStatus();
    editor_->setFocus();
}

void MainView::showText(const QString& text) {
    // Only a change made elsewhere is written back; rewriting the editor's own text would
    // move its cursor.
    if (editor_->toPlainText() != text) {
        editor_->setPlainText(text);
    }
}

void MainView::listVoices() {
    const QSignalBlocker quiet(voicePicker_);
    voicePicker_->clear();
    for (const Speech::VoiceOption& voice : speech_.voices()) {
        voicePicker_->addItem(tables_.text(QStringLiteral("murmela.voiceOption"),
                                           {{QStringLiteral("name"), voice.name},
                                            {QStringLiteral("language"), voice.language}}),
                              voice.id);
    }
}

void MainView::showVoice(const QString& id) {
    const QSignalBlocker quiet(voicePicker_);
    voicePicker_->setCurrentIndex(voicePicker_->findData(id));
}

void MainView::showSpeed(double speed) {
    {
        const QSignalBlocker quiet(slider_);
        slider_->setValue(sliderPosition(speed));
    }
    speedValue_->setText(speedText(tables_, speed));
    speedValue_->setAccessibleName(speedValue_->text());
    slider_->setAccessibleDescription(speedValue_->text());
}

}  // namespace murmela::ui
