#pragma once
// The connect sheet and the client configuration text it shows.
//
// The client configuration with which an AI assistant starts Murmela's command-line helper
// ("murmela mcp") as a Model Context Protocol server.

#include <QDialog>
#include <QString>
#include <filesystem>
#include <string>

#include "ui/ui_tables.h"

class QPushButton;

namespace murmela::ui {

// Where the program is installed: the directory that holds bin/ and share/, i.e. the parent of
// the executable's directory.
std::filesystem::path installationRoot();

// The helper program inside an installation.
std::filesystem::path helperPath(const std::filesystem::path& root);

// The configuration text for the helper at `helper`: eight lines, no final line feed, the path
// as a JSON string with only what JSON requires escaped (slashes stay as they are). A path
// that is not UTF-8 cannot be written as JSON and gives the empty string "".
std::string connectConfiguration(const std::filesystem::path& helper);

// The connect sheet: the configuration text an AI assistant needs to start Murmela's helper,
// selectable and with a button that copies it.

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
