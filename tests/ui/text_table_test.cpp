// Looking up interface texts: what a damaged table shows, argument replacement, and the
// shipped table itself.

#include "ui/text_table.h"

#include <gtest/gtest.h>

#include "support/gui_test.h"
#include "support/temporary_directory.h"
#include "ui/desktop_services.h"

namespace murmela::ui {
namespace {

using murmela::testing::TemporaryDirectory;
using murmela::testing::writeText;

TextTable tableFrom(const std::string& json) {
    TemporaryDirectory directory;
    writeText(directory / "murmela-copy.json", json);
    return TextTable::read(directory / "murmela-copy.json");
}

TEST(TextTable, UnusableFileShowsEveryKeyInsteadOfText) {
    TemporaryDirectory directory;
    EXPECT_EQ(TextTable::read(directory / "absent.json").text("murmela.retry"), "murmela.retry");
    EXPECT_EQ(TextTable::read(directory.path()).text("murmela.retry"), "murmela.retry");
    for (const char* damaged : {"", "{\"murmela.retry\": ", "[\"murmela.retry\"]", "\"Retry\"",
                                R"({"murmela.retry": "Retry", "murmela.speed": 3})",
                                R"({"murmela.retry": "Retry", "murmela.stop": null})"}) {
        SCOPED_TRACE(damaged);
        TextTable table = tableFrom(damaged);
        EXPECT_TRUE(table.isEmpty());
        EXPECT_EQ(table.text("murmela.retry"), "murmela.retry");
    }
}

TEST(TextTable, MissingKeyShowsTheKeyAndOthersStillResolve) {
    TextTable table = tableFrom(R"({"murmela.speak": "Speak", "murmela.saved": "Saved {name}"})");
    EXPECT_EQ(table.text("murmela.speak"), "Speak");
    EXPECT_EQ(table.text("murmela.retry"), "murmela.retry");
    // A missing key with arguments is still just the key.
    EXPECT_EQ(table.text("murmela.speedValue", {{"n", "1.00"}}), "murmela.speedValue");
}

TEST(TextTable, PlaceholdersAreReplacedLiterallyEveryTimeAndUnmatchedOnesStay) {
    TextTable table = tableFrom(R"json({
        "murmela.speedValue": "{n}× ({n})",
        "murmela.speed": "Speed",
        "murmela.saved": "Saved “{name}” {other}",
        "murmela.about.version": "{version}%1 ({build})"
    })json");
    EXPECT_EQ(table.text("murmela.speedValue", {{"n", "1.00"}}), "1.00× (1.00)");
    // A text without the placeholder shows no number.
    EXPECT_EQ(table.text("murmela.speed", {{"n", "1.00"}}), "Speed");
    EXPECT_EQ(table.text("murmela.saved"), "Saved “{name}” {other}");
    EXPECT_EQ(table.text("murmela.saved", {{"name", "a $1 \\n %2.wav"}}),
              "Saved “a $1 \\n %2.wav” {other}");
    EXPECT_EQ(table.text("murmela.about.version", {{"version", "0.1.0"}, {"build", "7"}}),
              "0.1.0%1 (7)");
    // Names are matched whole, braces included.
    EXPECT_EQ(table.text("murmela.speedValue", {{"{n}", "x"}, {"N", "x"}}), "{n}× ({n})");
}

TEST(TextTable, ShippedTableHasEveryKeyWithItsPlaceholders) {
    TextTable table =
        TextTable::read(murmela::testing::stagedResourceDirectory() / "murmela-copy.json");
    for (const char* key : {"murmela.app.name",
                            "murmela.about.title",
                            "murmela.menu.about",
                            "murmela.menu.connect",
                            "murmela.save",
                            "murmela.speak",
                            "murmela.stop",
                            "murmela.text.placeholder",
                            "murmela.speed",
                            "murmela.speedValue",
                            "murmela.loading",
                            "murmela.saving",
                            "murmela.loadFailed",
                            "murmela.retry",
                            "murmela.saved",
                            "murmela.empty",
                            "murmela.failed",
                            "murmela.saveFailed",
                            "murmela.saveName",
                            "murmela.saveFilter",
                            "murmela.menu.file",
                            "murmela.menu.edit",
                            "murmela.menu.undo",
                            "murmela.menu.redo",
                            "murmela.menu.cut",
                            "murmela.menu.copy",
                            "murmela.menu.paste",
                            "murmela.menu.selectAll",
                            "murmela.about.model",
                            "murmela.about.version",
                            "murmela.about.license",
                            "murmela.about.licenseLink",
                            "murmela.about.kokoro",
                            "murmela.about.kokoroLink",
                            "murmela.about.espeak",
                            "murmela.about.source",
                            "murmela.about.espeakLink",
                            "murmela.about.licenses",
                            "murmela.connect.title",
                            "murmela.connect.hint",
                            "murmela.connect.done",
                            "murmela.connect.copy",
                            "murmela.connect.copied"}) {
        SCOPED_TRACE(key);
        QString text = table.text(key);
        EXPECT_NE(text, key);
        EXPECT_FALSE(text.trimmed().isEmpty());
    }
    EXPECT_TRUE(table.text("murmela.speedValue").contains("{n}"));
    EXPECT_TRUE(table.text("murmela.saved").contains("{name}"));
    EXPECT_TRUE(table.text("murmela.about.version").contains("{version}"));
    EXPECT_TRUE(table.text("murmela.about.version").contains("{build}"));
    EXPECT_TRUE(table.text("murmela.saveName").endsWith(".wav"));
    EXPECT_TRUE(table.text("murmela.saveFilter").contains("*.wav"));
    for (const char* link :
         {"murmela.about.licenseLink", "murmela.about.kokoroLink", "murmela.about.espeakLink"}) {
        EXPECT_TRUE(linkAddress(table.text(link))) << link;
    }
    // The process-wide table is the staged one.
    EXPECT_EQ(text("murmela.speak"), table.text("murmela.speak"));
}

}  // namespace
}  // namespace murmela::ui
