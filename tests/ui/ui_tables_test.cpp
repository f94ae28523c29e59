// The interface's resource readers: what a damaged text table or token file gives, argument
// replacement, colour parsing, colours following the appearance, the voice's credit, and the
// shipped tables.

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

// The file `name` holding `json`, in a directory that lives as long as the process.
std::filesystem::path fileWith(const char* name, const std::string& json) {
    static TemporaryDirectory directory;
    writeText(directory / name, json);
    return directory / name;
}

TEST(TextTable, AnUnusableFileShowsEveryKeyInsteadOfText) {
    TemporaryDirectory directory;
    EXPECT_EQ(TextTable::read(directory / "absent.json").text("murmela.retry"), "murmela.retry");
    EXPECT_EQ(TextTable::read(directory.path()).text("murmela.retry"), "murmela.retry");
    for (const char* damaged : {"", "{\"murmela.retry\": ", "[\"murmela.retry\"]", "\"Retry\"",
                                R"({"murmela.retry": "Retry", "murmela.speed": 3})",
                                R"({"murmela.retry": "Retry", "murmela.stop": null})"}) {
        SCOPED_TRACE(damaged);
        TextTable table = TextTable::read(fileWith("copy.json", damaged));
        EXPECT_TRUE(table.isEmpty());
        EXPECT_EQ(table.text("murmela.retry"), "murmela.retry");
    }
}

TEST(TextTable, PlaceholdersAreReplacedLiterallyEveryTimeAndUnmatchedOnesStay) {
    TextTable table = TextTable::read(fileWith("copy.json", R"json({
        "murmela.speedValue": "{n}× ({n})",
        "murmela.speed": "Speed",
        "murmela.saved": "Saved “{name}” {other}",
        "murmela.about.version": "{version}%1 ({build})"
    })json"));
    EXPECT_EQ(table.text("murmela.speedValue", {{"n", "1.00"}}), "1.00× (1.00)");
    EXPECT_EQ(table.text("murmela.speed", {{"n", "1.00"}}), "Speed");
    EXPECT_EQ(table.text("murmela.saved"), "Saved “{name}” {other}");
    EXPECT_EQ(table.text("murmela.saved", {{"name", "a $1 \\n %2.wav"}}),
              "Saved “a $1 \\n %2.wav” {other}");
    EXPECT_EQ(table.text("murmela.about.version", {{"version", "0.1.0"}, {"build", "7"}}),
              "0.1.0%1 (7)");
    // Names are matched whole, braces included.
    EXPECT_EQ(table.text("murmela.speedValue", {{"{n}", "x"}, {"N", "x"}}), "{n}× ({n})");
    // A missing key, with arguments or without, is just the key.
    EXPECT_EQ(table.text("murmela.retry"), "murmela.retry");
    EXPECT_EQ(table.text("murmela.loading", {{"n", "1.00"}}), "murmela.loading");
}

TEST(DesignTokens, OnlyNumbersInTheirOwnGroupAreReadAndAnUnusableFileGivesEveryFallback) {
    DesignTokens tokens = DesignTokens::read(fileWith("tokens.json", R"({
        "layout": {"windowWidth": 640.4, "windowHeight": "420", "sliderWidth": null,
                   "aboutWidth": -5},
        "space": [8, 12],
        "type": {"body": 14.6}
    })"));
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

    for (const std::string& unusable :
         {std::string("{\"layout\": "), std::string("[{\"layout\": {\"windowWidth\": 640}}]")}) {
        DesignTokens fallback = DesignTokens::read(fileWith("tokens.json", unusable));
        EXPECT_EQ(fallback.layout("windowWidth"), 100) << unusable;
        EXPECT_FALSE(fallback.color("danger").hasPair()) << unusable;
    }
}

TEST(DesignTokens, ColourPairsNeedSixHexDigitsEachWithOptionalHash) {
    DesignTokens tokens = DesignTokens::read(fileWith("tokens.json", R"({"color": {
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
    }})"));
    QPalette light = lightPalette();
    QPalette dark = darkPalette();
    EXPECT_EQ(tokens.color("hashed").resolve(light), QColor(0x1a, 0x2b, 0x3c));
    EXPECT_EQ(tokens.color("hashed").resolve(dark), QColor(0xff, 0xff, 0xff));
    EXPECT_EQ(tokens.color("bare").resolve(light), QColor(0x1a, 0x2b, 0x3c));
    EXPECT_EQ(tokens.color("bare").resolve(dark), QColor(0, 0, 0));
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
    const QColor lightRed(0xc0, 0x26, 0x1b), darkRed(0xff, 0x6f, 0x61);
    AppearanceColor danger(lightRed, darkRed);
    ApplicationPalette start(lightPalette());
    QWidget window;
    auto* label = new QLabel("failed", &window);
    followForegroundColor(label, danger);
    EXPECT_EQ(label->palette().color(QPalette::WindowText), lightRed);
    {
        ApplicationPalette dark(darkPalette());
        QApplication::processEvents();
        EXPECT_EQ(label->palette().color(QPalette::WindowText), darkRed);
        EXPECT_EQ(danger.current(), darkRed);
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
    EXPECT_EQ(label->palette().color(QPalette::WindowText), lightRed);
    // Following again replaces the colour; it does not stack a second follower on the label.
    const QString follower =
        QStringLiteral("murmelaColorFollower%1").arg(int(label->foregroundRole()));
    EXPECT_EQ(label->findChildren<QObject*>(follower).size(), 1);
}

TEST(VoiceCredit, ReadsOnlyTextMembersOfTheVoiceDescription) {
    TemporaryDirectory voice;
    writeText(voice / "voice.json", R"({"interface": {}, "name": "  Rms  ",
        "description": "Built here.", "license": "BSD-style",
        "licenseLink": "https://example.org/"})");
    VoiceCredit full = VoiceCredit::read(voice.path());
    EXPECT_EQ(full.name, "Rms") << "surrounding blanks are dropped";
    EXPECT_EQ(full.description, "Built here.");
    EXPECT_EQ(full.license, "BSD-style");
    EXPECT_EQ(full.licenseLink, "https://example.org/");

    writeText(voice / "voice.json", R"({"name": 7, "description": "   ",
        "license": ["BSD"], "licenseLink": null})");
    VoiceCredit odd = VoiceCredit::read(voice.path());
    EXPECT_TRUE(odd.name.isEmpty() && odd.description.isEmpty() && odd.license.isEmpty() &&
                odd.licenseLink.isEmpty());
    for (const char* broken : {"{\"name\": \"cut", "[\"name\"]", ""}) {
        writeText(voice / "voice.json", broken);
        EXPECT_TRUE(VoiceCredit::read(voice.path()).name.isEmpty()) << broken;
    }
    EXPECT_TRUE(VoiceCredit::read(voice / "missing").license.isEmpty());
}

TEST(ShippedTables, TheProcessWideTokensAreTheStagedOnesAndColoursSuitTheirAppearance) {
    const std::filesystem::path resources = murmela::testing::stagedResourceDirectory();
    DesignTokens tokens = DesignTokens::read(resources / "murmela-tokens.json");
    EXPECT_EQ(designTokens().layout("windowWidth"), tokens.layout("windowWidth"));

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
}

}  // namespace
}  // namespace murmela::ui
