#pragma once
// What the windows ask of the desktop: the application's icon, the file manager, web and mail
// links, and the save dialog.
//
// The application's icon, drawn from the scalable icon built into the program (the same file
// that is installed for the desktop).

#include <QDBusConnection>
#include <QIcon>
#include <QPixmap>
#include <QString>
#include <QUrl>
#include <filesystem>
#include <optional>

#include "ui/ui_tables.h"

class QFileDialog;
class QWidget;

namespace murmela {
class Speech;
}

namespace murmela::ui {

// The icon at the usual window and launcher sizes, for QApplication::setWindowIcon.
QIcon applicationIcon();

// The icon drawn into a square of `size` device-independent pixels at `devicePixelRatio`.
QPixmap applicationIconPixmap(int size, qreal devicePixelRatio);

// Showing a folder in the desktop's file manager.

// Asks the file manager on `bus` (org.freedesktop.FileManager1.ShowItems) to show `folder`
// selected in its parent; when no file manager answers, opens the folder itself with the
// desktop's default handler. Returns at once and reports nothing back.
void revealInFileManager(const std::filesystem::path& folder,
                         const QDBusConnection& bus = QDBusConnection::sessionBus());

// Which texts the interface accepts as link targets.

// `text` as a link target when it is an absolute http, https or mailto address (with a host
// for the web ones, an address for mail); nothing otherwise.
std::optional<QUrl> linkAddress(const QString& text);

// Asking where to save the text as a sound file.

// Only while the model is ready with a text to speak: a save dialog for WAV files, named
// "murmela.saveName", opening in MURMELA_SAVE_DIR when that is set. With a window it is a
// sheet on it and this returns at once (the dialog, for whoever wants to watch it); without
// one it runs modally and returns null. A confirmed name becomes the model's save, ".wav"
// added when the name has another ending. The model is held weakly: if it is gone by then,
// nothing happens. Returns null when nothing was asked.
QFileDialog* presentSavePanel(Speech& speech, QWidget* window,
                              const UiTables& tables = UiTables::application());

// Asks for the downloaded files of a voice (a Piper model and its description, or a Kokoro
// model and its voice pack), as a sheet on `window`, and hands those chosen to the model's
// addVoice; held weakly, as the save panel holds it. Only while the model is `ready` or
// `failed`; returns null when nothing was asked.
QFileDialog* presentAddVoicePanel(Speech& speech, QWidget* window,
                                  const UiTables& tables = UiTables::application());

}  // namespace murmela::ui
