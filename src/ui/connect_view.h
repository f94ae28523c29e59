#pragma once
// The connect sheet: the configuration text an AI assistant needs to start Murmela's helper,
// selectable and with a button that copies it.

#include <QDialog>
#include <QString>

#include "ui/ui_tables.h"

class QPushButton;

namespace murmela::ui {

class ConnectView final : public QDialog {
public:
    // A sheet over `window` (window-modal) showing `configuration`.
    ConnectView(const QString& configuration, QWidget* window,
                const UiTables& tables = UiTables::application());

    // Replaces the clipboard's whole content with the configuration as plain text; the button
    // then reads "Copied" for as long as the sheet is open.
    void copy();

private:
    UiTables tables_;
    QString configuration_;
    QPushButton* copyButton_;
};

// Opens a fresh connect sheet over `window` for this installation's helper. The sheet deletes
// itself when closed; its finished() signal tells the caller.
ConnectView* presentConnectSheet(QWidget* window);

}  // namespace murmela::ui
