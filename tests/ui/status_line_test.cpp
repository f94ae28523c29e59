// The status line: what it shows for every phase and notice, in which colour, in either
// appearance, and that its height never changes.

#include "ui/status_line.h"

#include <gtest/gtest.h>

#include <QLabel>
#include <QPushButton>

#include "support/gui_test.h"
#include "ui/widgets.h"

namespace murmela::ui {
namespace {

using murmela::testing::findNamed;

UiTables tables() {
    QJsonObject color;
    color["textSecondary"] = QJsonObject{{"light", "#111111"}, {"dark", "#eeeeee"}};
    color["danger"] = QJsonObject{{"light", "#aa0000"}, {"dark", "#ff5555"}};
    QJsonObject groups;
    groups["color"] = color;
    groups["space"] = QJsonObject{{"statusLine", 30}};
    return {TextTable({{"murmela.loading", "Loading"},
                       {"murmela.saving", "Saving"},
                       {"murmela.loadFailed", "No voice"},
                       {"murmela.saved", "Saved {name}"},
                       {"murmela.empty", "Nothing to read"},
                       {"murmela.failed", "Could not play"},
                       {"murmela.saveFailed", "Could not save"}}),
            DesignTokens(groups)};
}

struct Expected {
    Phase phase;
    std::optional<Notice> notice;
    QString text;
    bool spinner;
    bool danger;
    bool retry;
};

TEST(StatusLine, ShowsThePhaseFirstThenTheNoticeInItsColour) {
    const std::vector<Expected> cases = {
        // Loading, saving and a failed load hide whatever notice is left.
        {Phase::loading, Notice::failed(), "Loading", true, false, false},
        {Phase::saving, Notice::saved("a.wav"), "Saving", true, false, false},
        {Phase::failed, Notice::empty(), "No voice", false, true, true},
        {Phase::failed, std::nullopt, "No voice", false, true, true},
        {Phase::ready, Notice::saved("Talk.wav"), "Saved Talk.wav", false, false, false},
        {Phase::speaking, Notice::empty(), "Nothing to read", false, false, false},
        {Phase::ready, Notice::failed(), "Could not play", false, true, false},
        {Phase::ready, Notice::saveFailed(), "Could not save", false, true, false},
        {Phase::ready, std::nullopt, "", false, false, false},
        {Phase::speaking, std::nullopt, "", false, false, false},
    };
    for (const auto& [palette, secondary, danger] :
         {std::tuple{murmela::testing::lightPalette(), QColor("#111111"), QColor("#aa0000")},
          std::tuple{murmela::testing::darkPalette(), QColor("#eeeeee"), QColor("#ff5555")}}) {
        murmela::testing::ApplicationPalette appearance(palette);
        StatusLine line(tables());
        line.resize(400, 30);
        line.QWidget::show();
        const auto* label = findNamed<QLabel>(&line, "statusText");
        const auto* spinner = findNamed<Spinner>(&line, "statusSpinner");
        const auto* retry = findNamed<QPushButton>(&line, "retry");
        ASSERT_TRUE(label && spinner && retry);
        for (const Expected& expected : cases) {
            SCOPED_TRACE(std::string(name(expected.phase)) + " " +
                         describe(expected.notice).toStdString());
            line.showStatus(expected.phase, expected.notice);
            EXPECT_EQ(label->text(), expected.text);
            EXPECT_EQ(line.accessibleName(), expected.text);
            EXPECT_EQ(spinner->isVisible(), expected.spinner);
            EXPECT_EQ(spinner->isRunning(), expected.spinner);
            EXPECT_EQ(retry->isVisible(), expected.retry);
            EXPECT_EQ(label->palette().color(label->foregroundRole()),
                      expected.danger ? danger : secondary);
            EXPECT_EQ(line.height(), 30);
        }
    }
}

}  // namespace
}  // namespace murmela::ui
