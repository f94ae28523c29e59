// Injected load failures. "once" fails only the first load of a process, so this program keeps
// its loads to the one test below, which checks its own process first and then a fresh one (the
// same program run again, limited to the first part); "always" fails every load.

#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "speech_harness.h"

namespace murmela {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

constexpr const char* freshProcessVariable = "MURMELA_TEST_FRESH_PROCESS";

// Loads and waits for the outcome.
Phase loadOnce(Speech& speech) {
    speech.load();
    EXPECT_EQ(speech.phase(), Phase::loading);
    EXPECT_TRUE(testing::runEventsUntil([&] { return speech.phase() != Phase::loading; }, 60s));
    return speech.phase();
}

std::vector<std::string> loadFailures(const testing::LogRecord& log) {
    std::vector<std::string> texts;
    for (const auto& line : log.startingWith("murmelaMain: load failed: ")) {
        EXPECT_EQ(line.level, log::Level::error);
        texts.push_back(line.text);
    }
    return texts;
}

// This program again, running only this test's first part; its exit status, or -1.
int runInFreshProcess() {
    std::vector<std::string> arguments = {
        "/proc/self/exe", "--gtest_filter=FailLoad.OnceFailsTheFirstLoadOfEachProcessAlwaysEvery"};
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    ::setenv(freshProcessVariable, "1", 1);
    pid_t pid = -1;
    const int spawned = ::posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ);
    ::unsetenv(freshProcessVariable);
    int status = 0;
    if (spawned != 0 || ::waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) {
        return -1;
    }
    return WEXITSTATUS(status);
}

TEST(FailLoad, OnceFailsTheFirstLoadOfEachProcessAlwaysEvery) {
    ASSERT_STREQ(std::getenv("MURMELA_AUDIO"), "none") << "run with MURMELA_AUDIO=none";
    testing::PrivateSettings settings;
    testing::LogRecord log;
    const std::string injected = "murmelaMain: load failed: voice: load failure injected ";

    ::setenv("MURMELA_FAIL_LOAD", "once", 1);
    {
        std::unique_ptr<Speech> speech = testing::makeSpeech(settings);
        testing::SignalRecord record(*speech);
        EXPECT_EQ(loadOnce(*speech), Phase::failed);
        EXPECT_FALSE(speech->hasVoice());
        EXPECT_EQ(loadOnce(*speech), Phase::ready);  // the retry
        EXPECT_TRUE(speech->hasVoice());
        EXPECT_THAT(record.phases, ElementsAre(Phase::failed, Phase::loading, Phase::ready));
    }
    {
        // Another model in the same process: the one failure has been spent.
        std::unique_ptr<Speech> speech = testing::makeSpeech(settings);
        EXPECT_EQ(loadOnce(*speech), Phase::ready);
    }
    EXPECT_THAT(loadFailures(log), ElementsAre(injected + "(MURMELA_FAIL_LOAD=once)"));
    if (std::getenv(freshProcessVariable) != nullptr) {
        ::unsetenv("MURMELA_FAIL_LOAD");
        return;
    }
    EXPECT_EQ(runInFreshProcess(), 0) << "a fresh process did not fail its first load once";

    // "always" fails every load, even after "once" has been spent.
    ::setenv("MURMELA_FAIL_LOAD", "always", 1);
    {
        std::unique_ptr<Speech> speech = testing::makeSpeech(settings);
        for (int attempt = 0; attempt < 3; ++attempt) {
            EXPECT_EQ(loadOnce(*speech), Phase::failed) << "attempt " << attempt;
        }
        EXPECT_FALSE(speech->hasVoice());
        // A failed model has nothing to speak with.
        speech->setText("Hello there.");
        speech->speak();
        EXPECT_EQ(speech->phase(), Phase::failed);
    }
    const std::string always = injected + "(MURMELA_FAIL_LOAD=always)";
    EXPECT_THAT(loadFailures(log),
                ElementsAre(injected + "(MURMELA_FAIL_LOAD=once)", always, always, always));

    // Any other value injects nothing.
    ::setenv("MURMELA_FAIL_LOAD", "twice", 1);
    {
        std::unique_ptr<Speech> speech = testing::makeSpeech(settings);
        EXPECT_EQ(loadOnce(*speech), Phase::ready);
    }
    ::unsetenv("MURMELA_FAIL_LOAD");
}

}  // namespace
}  // namespace murmela
