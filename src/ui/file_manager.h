#pragma once
// Showing a folder in the desktop's file manager.

#include <QDBusConnection>
#include <filesystem>

namespace murmela::ui {

// Asks the file manager on `bus` (org.freedesktop.FileManager1.ShowItems) to show `folder`
// selected in its parent; when no file manager answers, opens the folder itself with the
// desktop's default handler. Returns at once and reports nothing back.
void revealInFileManager(const std::filesystem::path& folder,
                         const QDBusConnection& bus = QDBusConnection::sessionBus());

}  // namespace murmela::ui
