#pragma once
// The main window's status line: what the model is doing, or else what its last operation
// left to say, in a line that keeps its height whatever it shows.

#include <QString>
#include <QWidget>

#include <optional>

#include "app/phase.h"
#include "ui/ui_tables.h"

class QLabel;
class QPushButton;

namespace murmela::ui {

class Spinner;

// What the line shows for a phase and notice. The phase comes first: loading, saving and a
// failed load have lines of their own; while ready or speaking the notice is shown.
struct StatusContent {
    bool spinner = false;
    QString textKey;     // empty: an empty text that keeps the line's place
    QString savedName;   // the "{name}" of "murmela.saved" and "murmela.voiceGone"
    QString colorName;   // design token of the text's colour
    bool retry = false;  // the button that loads the voice again

    friend bool operator==(const StatusContent&, const StatusContent&) = default;
};

StatusContent statusContent(Phase phase, const std::optional<Notice>& notice);

class StatusLine final : public QWidget {
    Q_OBJECT

public:
    explicit StatusLine(const UiTables& tables, QWidget* parent = nullptr);

    void showStatus(Phase phase, const std::optional<Notice>& notice);

    const QLabel* label() const { return label_; }

signals:
    // The retry button was pressed.
    void retryRequested();

private:
    UiTables tables_;
    Spinner* spinner_;
    QLabel* label_;
    QPushButton* retry_;
};

}  // namespace murmela::ui
