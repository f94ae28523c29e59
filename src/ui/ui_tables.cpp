#include "ui/ui_tables.h"

#include <QApplication>

namespace murmela::ui {

QFont UiTables::font(const QString& key, bool semibold) const {
    QFont font = QApplication::font();
    font.setPixelSize(std::max(1, tokens.type(key)));
    if (semibold) {
        font.setWeight(QFont::DemiBold);
    }
    return font;
}

}  // namespace murmela::ui
