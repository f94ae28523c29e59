#pragma once
// Asking where to save the text as a sound file.

#include "ui/ui_tables.h"

class QFileDialog;
class QWidget;

namespace murmela {
class Speech;
}

namespace murmela::ui {

// Only while the model is ready with a text to speak: a save dialog for WAV files, named
// "murmela.saveName", opening in MURMELA_SAVE_DIR when that is set. With a window it is a
// sheet on it and this returns at once (the dialog, for whoever wants to watch it); without
// one it runs modally and returns null. A confirmed name becomes the model's save, ".wav"
// added when the name has another ending. The model is held weakly: if it is gone by then,
// nothing happens. Returns null when nothing was asked.
QFileDialog* presentSavePanel(Speech& speech, QWidget* window,
                              const UiTables& tables = UiTables::application());

}  // namespace murmela::ui
