// Design tokens: number fallbacks, colour parsing, and colours following the appearance.

#include "ui/ui_tables.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QLabel>

#include "support/gui_test.h"
#include "support/temporary_directory.h"

namespace murmela::ui {
namespace {

using murmela::testing::ApplicationPalette;
using murmela::testing::darkPalette;
using murmela::testing::lightPalette;
using murmela::testing::TemporaryDirectory;
using murmela::testing::writeText;

DesignTokens tokensFrom(const std::string& json) {
    TemporaryDirectory directory;
    writeText(directory / "murmela-tokens.json", json);
    return DesignTokens::read(directory / "murmela-tokens.json");
}

TEST(DesignTokens, UnusableFileGivesEveryFallback) {
    TemporaryDirectory directory;
    for (const DesignTokens& tokens :
         {DesignTokens::read(directory / "absent.json"), tokensFrom("{\"layout\": "),
          tokensFrom("[{\"layout\": {\"windowWidth\": 640}}]")}) {
        EXPECT_EQ(tokens.layout("windowWidth"), 100);
        EXPECT_EQ(tokens.space("sm"), 8);
        EXPECT_EQ(tokens.type("body"), 13);
        EXPECT_EQ(tokens.number("layout", "windowWidth", 42.5), 42.5);
        EXPECT_FALSE(tokens.color("danger").hasPair());
    }
}

TEST(DesignTokens, OnlyNumbersInTheirOwnGroupAreRead) {
    DesignTokens tokens = tokensFrom(R"({
        "layout": {"windowWidth": 640.4, "windowHeight": "420", "sliderWidth": null,
                   "aboutWidth": -5},
        "space": [8, 12],
        "type": {"body": 14.6}
    })");
    EXPECT_EQ(tokens.number("layout", "windowWidth", 100), 640.4);
    EXPECT_EQ(tokens.layout("windowWidth"), 640);
    EXPECT_EQ(tokens.layout("windowHeight"), 100);  // a text, not a number
    EXPECT_EQ(tokens.layout("sliderWidth"), 100);
    EXPECT_EQ(tokens.layout("iconSize"), 100);  // missing key
    EXPECT_EQ(tokens.layout("aboutWidth"), 0);  // no widget is narrower than nothing
    EXPECT_EQ(tokens.space("sm"), 8);           // the group is not an object
    EXPECT_EQ(tokens.type("body"), 15);
    EXPECT_EQ(tokens.type("status"), 13);
    EXPECT_EQ(tokens.number("type", "windowWidth", 1), 1);  // keys do not leak across groups
}

TEST(DesignTokens, ColourPairsNeedSixHexDigitsEachWithOptionalHash) {
    DesignTokens tokens = tokensFrom(R"({"color": {
        "hashed":   {"light": "#1a2B3c", "dark": "#FFFFFF"},
        "bare":     {"light": "1A2b3C", "dark": "000000"},
        "short":    {"light": "#12345", "dark": "#000000"},
        "long":     {"light": "#000000", "dark": "#1234567"},
        "notHex":   {"light": "#12345g", "dark": "#000000"},
        "twoHashes":{"light": "##123456", "dark": "#000000"},
        "signed":   {"light": "+12345", "dark": "#000000"},
        "number":   {"light": 123456, "dark": "#000000"},
        "noDark":   {"light": "#123456"},
        "text":     "#123456"
    }})");
    QPalette light = lightPalette();
    QPalette dark = darkPalette();
    EXPECT_EQ(tokens.color("hashed").resolve(light), QColor(0x1a, 0x2b, 0x3c));
    EXPECT_EQ(tokens.color("hashed").resolve(dark), QColor(0xff, 0xff, 0xff));
    EXPECT_EQ(tokens.color("bare").resolve(light), QColor(0x1a, 0x2b, 0x3c));
    EXPECT_EQ(tokens.color("bare").resolve(dark), QColor(0, 0, 0));
    EXPECT_EQ(tokens.color("hashed").resolve(light).alpha(), 255);
    for (const char* unusable :
         {"short", "long", "notHex", "twoHashes", "signed", "number", "noDark", "text", "absent"}) {
        SCOPED_TRACE(unusable);
        AppearanceColor color = tokens.color(unusable);
        EXPECT_FALSE(color.hasPair());
        EXPECT_EQ(color.resolve(light), light.color(QPalette::WindowText));
        EXPECT_EQ(color.resolve(dark), dark.color(QPalette::WindowText));
    }
}

TEST(DesignTokens, WidgetColourFollowsTheApplicationAppearance) {
    AppearanceColor danger(QColor(0xc0, 0x26, 0x1b), QColor(0xff, 0x6f, 0x61));
    ApplicationPalette start(lightPalette());
    QWidget window;
    auto* label = new QLabel("failed", &window);
    followForegroundColor(label, danger);
    EXPECT_EQ(label->palette().color(QPalette::WindowText), QColor(0xc0, 0x26, 0x1b));
    EXPECT_EQ(danger.current(), QColor(0xc0, 0x26, 0x1b));
    {
        ApplicationPalette dark(darkPalette());
        QApplication::processEvents();
        EXPECT_EQ(label->palette().color(QPalette::WindowText), QColor(0xff, 0x6f, 0x61));
        EXPECT_EQ(danger.current(), QColor(0xff, 0x6f, 0x61));
        // The window follows the appearance too; only the label's text colour is its own.
        EXPECT_EQ(label->palette().color(QPalette::Window), darkPalette().color(QPalette::Window));

        // Without a pair the label shows the appearance's label colour, and keeps following it.
        followForegroundColor(label, AppearanceColor());
        EXPECT_EQ(label->palette().color(QPalette::WindowText),
                  darkPalette().color(QPalette::WindowText));
    }
    QApplication::processEvents();
    EXPECT_EQ(label->palette().color(QPalette::WindowText),
              lightPalette().color(QPalette::WindowText));

    followForegroundColor(label, danger);
    EXPECT_EQ(label->palette().color(QPalette::WindowText), QColor(0xc0, 0x26, 0x1b));
    // Following again replaces the colour; it does not stack a second follower on the label.
    const QString follower =
        QStringLiteral("murmelaColorFollower%1").arg(int(label->foregroundRole()));
    EXPECT_EQ(label->findChildren<QObject*>(follower).size(), 1);
}

TEST(DesignTokens, ShippedTokensDefineEverySizeAndColourPair) {
    DesignTokens tokens =
        DesignTokens::read(murmela::testing::stagedResourceDirectory() / "murmela-tokens.json");
    const struct {
        const char* group;
        const char* key;
    } numbers[] = {{"layout", "windowWidth"},
                   {"layout", "windowHeight"},
                   {"layout", "windowMinWidth"},
                   {"layout", "windowMinHeight"},
                   {"layout", "sliderWidth"},
                   {"layout", "aboutWidth"},
                   {"layout", "iconSize"},
                   {"layout", "connectWidth"},
                   {"space", "sm"},
                   {"space", "md"},
                   {"space", "lg"},
                   {"space", "statusLine"},
                   {"type", "body"},
                   {"type", "status"},
                   {"type", "aboutTitle"},
                   {"type", "code"}};
    for (const auto& number : numbers) {
        EXPECT_GT(tokens.number(number.group, number.key, -1), 0)
            << number.group << '.' << number.key;
    }
    EXPECT_LE(tokens.layout("windowMinWidth"), tokens.layout("windowWidth"));
    EXPECT_LE(tokens.layout("windowMinHeight"), tokens.layout("windowHeight"));
    ASSERT_TRUE(paletteIsDark(darkPalette()));
    ASSERT_FALSE(paletteIsDark(lightPalette()));
    for (const char* name : {"textSecondary", "danger"}) {
        AppearanceColor color = tokens.color(name);
        EXPECT_TRUE(color.hasPair()) << name;
        // Light text on the dark window, dark text on the light one.
        EXPECT_GT(color.resolve(darkPalette()).lightness(),
                  color.resolve(lightPalette()).lightness())
            << name;
    }
    EXPECT_EQ(designTokens().layout("windowWidth"), tokens.layout("windowWidth"));
}

}  // namespace
}  // namespace murmela::ui
