// The configuration text for the assistant: exact layout, JSON escaping of the helper path,
// and where the helper is expected.

#include "ui/connect_view.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "files/files.h"
#include "support/gui_test.h"

namespace murmela::ui {
namespace {

std::string expectedText(const std::string& encodedPath) {
    return "{\n"
           "  \"mcpServers\": {\n"
           "    \"murmela\": {\n"
           "      \"command\": " +
           encodedPath +
           ",\n"
           "      \"args\": [\"mcp\"]\n"
           "    }\n"
           "  }\n"
           "}";
}

TEST(ConnectConfiguration, PlainPathGivesTheEightLinesWithoutFinalLineFeed) {
    std::string text = connectConfiguration(helperPath("/opt/Murmela"));
    EXPECT_EQ(text, expectedText("\"/opt/Murmela/libexec/murmela/murmela\""));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 7);
    EXPECT_NE(text.back(), '\n');
}

TEST(ConnectConfiguration, PathIsEscapedOnlyAsJsonRequires) {
    // Spaces and letters beyond ASCII stay as they are, quotes and backslashes are escaped,
    // slashes never.
    std::filesystem::path root = "/home/Zoë Ünal/My \"Apps\"\\x/音声";
    EXPECT_EQ(connectConfiguration(helperPath(root)),
              expectedText(R"("/home/Zoë Ünal/My \"Apps\"\\x/音声/libexec/murmela/murmela")"));
    // A control character must not break the line structure.
    EXPECT_EQ(connectConfiguration("/a\nb\tc"), expectedText(R"("/a\nb\tc")"));
}

TEST(ConnectConfiguration, PathThatIsNotUtf8GivesAnEmptyString) {
    EXPECT_EQ(connectConfiguration("/opt/caf\xe9/murmela"), expectedText("\"\""));
}

TEST(ConnectConfiguration, InstallationRootHoldsTheProgramAndItsResources) {
    // The test programs run from build/<variant>/bin, laid out as an installation.
    std::filesystem::path root = installationRoot();
    ASSERT_TRUE(executableDirectory().has_value());
    EXPECT_EQ(root, executableDirectory()->parent_path());
    EXPECT_TRUE(std::filesystem::is_directory(root / "bin"));
    EXPECT_TRUE(std::filesystem::equivalent(root / "share" / "murmela",
                                            murmela::testing::stagedResourceDirectory()));
    EXPECT_EQ(helperPath(root), root / "libexec/murmela/murmela");
}

}  // namespace
}  // namespace murmela::ui
