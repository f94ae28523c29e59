#include "support/gui_test.h"

#include <QApplication>
#include <QColor>
#include <cstdlib>
#include <string_view>

namespace murmela::testing {

std::filesystem::path stagedResourceDirectory() {
    return MURMELA_STAGED_RESOURCE_DIR;
}

bool hasPrivateSessionBus() {
    const char* set = std::getenv("MURMELA_TEST_BUS");
    return set != nullptr && std::string_view(set) == "1";
}

// Qt derives the texts' and the shades' colours from a button and a window colour.
QPalette lightPalette() {
    return QPalette(QColor(0xe6, 0xe6, 0xe6), QColor(0xf4, 0xf4, 0xf4));
}

QPalette darkPalette() {
    return QPalette(QColor(0x3a, 0x3a, 0x3c), QColor(0x24, 0x24, 0x26));
}

ApplicationPalette::ApplicationPalette(const QPalette& palette)
    : previous_(QApplication::palette()) {
    QApplication::setPalette(palette);
}

ApplicationPalette::~ApplicationPalette() {
    QApplication::setPalette(previous_);
}

}  // namespace murmela::testing
