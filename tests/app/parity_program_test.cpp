// The murmela program itself in parity mode: started with no display, it must choose the batch
// run from its command line (or its standard settings file, never the model's suite) and
// deliver the exit code after its log line. What the run writes is tested in process
// (parity_test.cpp); ten thousand lines are a benchmark (bench/parity_program_bench.cpp).

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/temporary_directory.h"
#include "support/test_voice.h"

extern char** environ;

namespace murmela {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

struct Outcome {
    int exitCode = -1;  // the signal's negative number when it was killed
    std::string log;    // standard error
};

// Variables the program must not see: it is started as if on a machine with no display and
// with only the resources and settings the test gives it.
bool isWithheld(const std::string& name) {
    for (const char* withheld :
         {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM", "MURMELA_RESOURCES",
          "MURMELA_DEFAULTS_SUITE", "XDG_CONFIG_HOME"}) {
        if (name == withheld) {
            return true;
        }
    }
    return false;
}

Outcome runProgram(const std::vector<std::string>& arguments,
                   std::map<std::string, std::string> environment, const fs::path& scratch) {
    std::vector<std::string> variables;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        std::string variable = *entry;
        std::string name = variable.substr(0, variable.find('='));
        if (isWithheld(name) || environment.count(name) != 0) {
            continue;
        }
        variables.push_back(variable);
    }
    for (const auto& [name, value] : environment) {
        variables.push_back(name + "=" + value);
    }
    std::vector<std::string> words = {MURMELA_PROGRAM};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv, envp;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    for (std::string& variable : variables) {
        envp.push_back(variable.data());
    }
    envp.push_back(nullptr);

    const fs::path errorFile = scratch / "stderr.txt";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 2, errorFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    pid_t child = 0;
    const int spawned =
        posix_spawn(&child, MURMELA_PROGRAM, &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    Outcome outcome;
    if (spawned != 0) {
        ADD_FAILURE() << "cannot start " << MURMELA_PROGRAM << ": " << std::strerror(spawned);
        return outcome;
    }
    int status = 0;
    if (::waitpid(child, &status, 0) != child) {
        ADD_FAILURE() << "lost the child";
        return outcome;
    }
    outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    outcome.log = testing::readText(errorFile);
    return outcome;
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', start)) {
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

class ParityProgramTest : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(sandbox / "resources");
        fs::create_directory_symlink(testing::testVoiceDirectory(),
                                     sandbox / "resources" / "Voice");
    }

    Outcome run(const std::vector<std::string>& arguments,
                std::map<std::string, std::string> environment = {}) {
        environment.emplace("MURMELA_RESOURCES", (sandbox / "resources").string());
        environment.emplace("XDG_CONFIG_HOME", (sandbox / "config").string());
        return runProgram(arguments, std::move(environment), sandbox.path());
    }

    Outcome runParity(const json& lines) {
        testing::writeText(linesFile, lines.dump());
        return run({"-murmela.parity", out.string(), "-murmela.lines", linesFile.string()});
    }

    testing::TemporaryDirectory sandbox{"murmela-program"};
    fs::path out = sandbox / "out";
    fs::path linesFile = sandbox / "lines.json";
};

TEST_F(ParityProgramTest, ExitCodesReachTheShellAfterTheLogLine) {
    Outcome usage = run({"-murmela.parity", out.string()});
    EXPECT_EQ(usage.exitCode, 2);
    EXPECT_EQ(linesOf(usage.log),
              std::vector<std::string>{
                  "murmela: parity: needs -murmela.parity OUTDIR and -murmela.lines FILE"});
    EXPECT_FALSE(fs::exists(out));

    Outcome failed = runParity(json::array());
    EXPECT_EQ(failed.exitCode, 1);
    const std::string damaged = "voice: " + linesFile.string() + " unreadable";
    EXPECT_EQ(linesOf(failed.log), std::vector<std::string>{"murmela: parity failed: " + damaged});
    EXPECT_EQ(testing::readText(out / "error.txt"), damaged);
}

TEST_F(ParityProgramTest, OnlyTheStandardSettingsFileSelectsTheParityMode) {
    testing::writeText(linesFile, R"({"lines": []})");
    const std::string settings = "[General]\nmurmela.parity=" + out.string() +
                                 "\nmurmela.lines=" + linesFile.string() + "\n";

    // In the model's suite the keys mean nothing: interactive use starts, and with no display
    // it says so instead of running the batch.
    testing::writeText(sandbox / "config" / "murmela" / "suite.ini", settings);
    Outcome interactive = run({}, {{"MURMELA_DEFAULTS_SUITE", "suite"}});
    EXPECT_EQ(interactive.exitCode, 1) << interactive.log;
    EXPECT_NE(interactive.log.find("no display"), std::string::npos) << interactive.log;
    EXPECT_FALSE(fs::exists(out));

    testing::writeText(sandbox / "config" / "murmela" / "murmela.ini", settings);
    Outcome batch = run({}, {{"MURMELA_DEFAULTS_SUITE", "suite"}});
    EXPECT_EQ(batch.exitCode, 0) << batch.log;
    EXPECT_EQ(linesOf(batch.log),
              std::vector<std::string>{"murmela: parity: 0 lines -> " + out.string()});
    EXPECT_TRUE(fs::exists(out / "parity.json"));
}

}  // namespace
}  // namespace murmela
