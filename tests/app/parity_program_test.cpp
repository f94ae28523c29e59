// The murmela program itself in parity mode: started with no display, it must choose the batch
// run from its command line (or its standard settings file, never the model's suite) and
// deliver the exit code after its log line. What the run writes is tested in process
// (parity_test.cpp); ten thousand lines are a benchmark (bench/parity_program_bench.cpp).

#include <sys/wait.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "support/temporary_directory.h"
#include "support/test_voice.h"

namespace murmela {
namespace {

namespace fs = std::filesystem;

// `path` quoted for the shell (temporary paths hold no quote).
std::string quoted(const fs::path& path) {
    return "'" + path.string() + "'";
}

struct Outcome {
    int exitCode = -1;
    std::string log;  // standard error
};

class ParityProgramTest : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(sandbox / "resources");
        fs::create_directory_symlink(testing::testVoiceDirectory(),
                                     sandbox / "resources" / "Voice");
    }

    // Runs the program with `arguments` as if on a machine with no display, with only the
    // resources and settings of the sandbox and the `variables` given ("NAME=value ...").
    Outcome run(const std::string& arguments, const std::string& variables = "") {
        const std::string command =
            "env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM -u MURMELA_DEFAULTS_SUITE "
            "MURMELA_RESOURCES=" +
            quoted(sandbox / "resources") + " XDG_CONFIG_HOME=" + quoted(sandbox / "config") + " " +
            variables + " " + quoted(MURMELA_PROGRAM) + " " + arguments + " 2>" +
            quoted(sandbox / "stderr.txt");
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1,
                testing::readText(sandbox / "stderr.txt")};
    }

    testing::TemporaryDirectory sandbox{"murmela-program"};
    fs::path out = sandbox / "out";
    fs::path linesFile = sandbox / "lines.json";
};

TEST_F(ParityProgramTest, OnlyTheStandardSettingsFileSelectsTheParityModeAndItsExitCodeEndsIt) {
    Outcome usage = run("-murmela.parity " + quoted(out));
    EXPECT_EQ(usage.exitCode, 2);
    EXPECT_EQ(usage.log, "murmela: parity: needs -murmela.parity OUTDIR and -murmela.lines FILE\n");

    testing::writeText(linesFile, R"({"lines": []})");
    const std::string settings = "[General]\nmurmela.parity=" + out.string() +
                                 "\nmurmela.lines=" + linesFile.string() + "\n";

    // In the model's suite the keys mean nothing: interactive use starts, and with no display
    // it says so instead of running the batch.
    testing::writeText(sandbox / "config" / "murmela" / "suite.ini", settings);
    Outcome interactive = run("", "MURMELA_DEFAULTS_SUITE=suite");
    EXPECT_EQ(interactive.exitCode, 1) << interactive.log;
    EXPECT_NE(interactive.log.find("no display"), std::string::npos) << interactive.log;
    EXPECT_FALSE(fs::exists(out));

    testing::writeText(sandbox / "config" / "murmela" / "murmela.ini", settings);
    Outcome batch = run("", "MURMELA_DEFAULTS_SUITE=suite");
    EXPECT_EQ(batch.exitCode, 0) << batch.log;
    EXPECT_EQ(batch.log, "murmela: parity: 0 lines -> " + out.string() + "\n");
    EXPECT_TRUE(fs::exists(out / "parity.json"));
}

}  // namespace
}  // namespace murmela
