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

namespace {

QPalette palette(QColor window, QColor text, QColor base, QColor button, QColor link) {
    // QPalette derives light, mid, dark and shadow from the button colour.
    QPalette palette(text, button, button.lighter(130), button.darker(130), button.darker(115),
                     text, text, base, window);
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::Link, link);
    palette.setColor(QPalette::PlaceholderText, text.darker(150));
    return palette;
}

}  // namespace

QPalette lightPalette() {
    return palette(QColor(0xf4, 0xf4, 0xf4), QColor(0x10, 0x10, 0x10), QColor(0xff, 0xff, 0xff),
                   QColor(0xe6, 0xe6, 0xe6), QColor(0x1a, 0x5f, 0xb4));
}

QPalette darkPalette() {
    return palette(QColor(0x24, 0x24, 0x26), QColor(0xee, 0xee, 0xee), QColor(0x1a, 0x1a, 0x1c),
                   QColor(0x3a, 0x3a, 0x3c), QColor(0x78, 0xae, 0xed));
}

ApplicationPalette::ApplicationPalette(const QPalette& palette)
    : previous_(QApplication::palette()) {
    QApplication::setPalette(palette);
}

ApplicationPalette::~ApplicationPalette() {
    QApplication::setPalette(previous_);
}

}  // namespace murmela::testing
