// The "Licenses" folder the build puts into the resources.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "files/files.h"
#include "support/gui_test.h"
#include "ui/about_view.h"

namespace murmela::ui {
namespace {

TEST(Licenses, StagedFolderHoldsTheLicenceOfEverythingShipped) {
    std::filesystem::path folder = murmela::testing::stagedResourceDirectory() / "Licenses";
    EXPECT_TRUE(std::filesystem::equivalent(folder, AboutView::defaultLicensesFolder()))
        << "the About window shows this folder";
    // Each file, and a phrase that shows it is the right project's text.
    struct Licence {
        const char* file;
        const char* mentions;
    };
    std::vector<Licence> expected = {
        {"espeak-ng.txt", "espeak-ng"},
        {"espeak-ng-data.txt", "espeak-ng"},
        {"onnxruntime.txt", "ONNX Runtime"},
        {"qt6-base.txt", "Qt"},
        {"qt6-svg.txt", "Qt"},
        {"qt6-multimedia.txt", "Qt"},
        {"fftw3.txt", "FFTW"},
        {"icu.txt", "ICU"},
        {"nlohmann-json.txt", "nlohmann"},
        {"Kokoro-82M.txt", "Kokoro-82M"},
    };
    if (MURMELA_BUNDLED_VOICE) {
        expected.push_back({"flite-cmu_us_rms.txt", "Carnegie Mellon"});
    }
    for (const auto& licence : expected) {
        SCOPED_TRACE(licence.file);
        std::string content = readFile(folder / licence.file);
        EXPECT_NE(content.find(licence.mentions), std::string::npos);
    }
    std::string model = readFile(folder / "Kokoro-82M.txt");
    EXPECT_NE(model.find("https://creativecommons.org/licenses/by-nc/4.0/"), std::string::npos);
    EXPECT_NE(model.find("CC BY-NC 4.0"), std::string::npos);

    size_t files = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) {
        ++files;
    }
    EXPECT_EQ(files, expected.size()) << "nothing else ends up in the folder";
}

}  // namespace
}  // namespace murmela::ui
