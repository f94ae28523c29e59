#pragma once
// The content of the main window: the text to speak, a row of controls (Speak, Stop, the
// speed, the voice, Save) and the status line. It writes the model's text, speed and voice and
// calls its
// operations; nothing is ever disabled, since every operation checks the phase itself.

#include <QWidget>

#include "ui/ui_tables.h"

class QComboBox;
class QLabel;
class QPlainTextEdit;
class QPushButton;
class QSlider;

namespace murmela {
class Speech;
}

namespace murmela::ui {

class StatusLine;

class MainView final : public QWidget {
    Q_OBJECT

public:
    MainView(Speech& speech, const UiTables& tables = UiTables::application(),
             QWidget* parent = nullptr);

    // The speed shown as the value text does it, "%.2f" through "murmela.speedValue".
    static QString speedText(const UiTables& tables, double speed);

signals:
    // Save was pressed: the window asks where to and hands that to the model.
    void saveRequested();
    // Add Voice was pressed: the window asks for the voice's files.
    void addVoiceRequested();

private:
    void showSpeed(double speed);
    void showVoice(const QString& id);
    // Fills the picker with the model's voices.
    void listVoices();
    void showText(const QString& text);

    Speech& speech_;
    UiTables tables_;
    QPlainTextEdit* editor_;
    QSlider* slider_;
    QLabel* speedValue_;
    QComboBox* voicePicker_;
    StatusLine* status_;
};

}  // namespace murmela::ui
