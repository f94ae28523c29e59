#pragma once
// The application's icon, drawn from the scalable icon built into the program (the same file
// that is installed for the desktop).

#include <QIcon>
#include <QPixmap>

namespace murmela::ui {

// The icon at the usual window and launcher sizes, for QApplication::setWindowIcon.
QIcon applicationIcon();

// The icon drawn into a square of `size` device-independent pixels at `devicePixelRatio`.
QPixmap applicationIconPixmap(int size, qreal devicePixelRatio);

}  // namespace murmela::ui
