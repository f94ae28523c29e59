// The murmela program itself in parity mode: started with no display, it must choose the batch
// run from its command line (or its standard settings file, never the model's suite), write
// exactly what the engine gives in process, deliver the exit code, and get through a very long
// lines file without keeping every line's samples.

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "build_info.h"
#include "engine/voice.h"
#include "support/temporary_directory.h"
#include "support/test_voice.h"

extern char** environ;

namespace murmela {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

struct Outcome {
    int exitCode = -1;   // the signal's negative number when it was killed
    std::string log;     // standard error
    std::string output;  // standard output
    long peakKilobytes = 0;
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

    const fs::path errorFile = scratch / "stderr.txt", outputFile = scratch / "stdout.txt";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, outputFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
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
    rusage usage{};
    if (::wait4(child, &status, 0, &usage) != child) {
        ADD_FAILURE() << "lost the child";
        return outcome;
    }
    outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    outcome.peakKilobytes = usage.ru_maxrss;
    outcome.log = testing::readText(errorFile);
    outcome.output = testing::readText(outputFile);
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

    json report() const { return json::parse(testing::readText(out / "parity.json")); }

    testing::TemporaryDirectory sandbox{"murmela-program"};
    fs::path out = sandbox / "out";
    fs::path linesFile = sandbox / "lines.json";
};

TEST_F(ParityProgramTest, HeadlessRunWritesExactlyWhatTheEngineGives) {
    const std::vector<std::pair<std::string, double>> given = {
        {"Hello there. This is the first line, with a comma.", 1.0},
        {"A second line, a little faster.", 1.25},
        {"", 1.0},
    };
    json lines = json::array();
    for (size_t i = 0; i < given.size(); ++i) {
        lines.push_back({{"id", "line" + std::to_string(i)}, {"text", given[i].first}});
        if (given[i].second != 1.0) {
            lines.back()["speed"] = given[i].second;
        }
    }
    const Outcome outcome = runParity({{"lines", lines}});
    ASSERT_EQ(outcome.exitCode, 0) << outcome.log;
    EXPECT_EQ(linesOf(outcome.log),
              std::vector<std::string>{"murmela: parity: 3 lines -> " + out.string()});

    const json written = report();
    EXPECT_EQ(written["app"], "Murmela");
    EXPECT_EQ(written["version"], buildinfo::version);
    EXPECT_EQ(written["build"], buildinfo::build);
    EXPECT_TRUE(written["loadMs"].is_number_integer());
    ASSERT_EQ(written["lines"].size(), given.size());

    Voice voice(testing::testVoiceDirectory());
    for (size_t i = 0; i < given.size(); ++i) {
        const json& line = written["lines"][i];
        SCOPED_TRACE(given[i].first);
        EXPECT_EQ(line["id"], "line" + std::to_string(i));
        std::vector<std::vector<int64_t>> chunks = voice.phonemizer().chunks(given[i].first);
        ASSERT_EQ(line["chunks"].size(), chunks.size());
        std::vector<float> samples;
        for (size_t c = 0; c < chunks.size(); ++c) {
            SynthesisResult made = voice.synthesize(chunks[c], given[i].second);
            EXPECT_EQ(line["chunks"][c]["ids"], json(chunks[c]));
            EXPECT_EQ(line["chunks"][c]["durations"], json(made.frameCounts));
            samples.insert(samples.end(), made.samples.begin(), made.samples.end());
        }
        EXPECT_EQ(line["samples"], samples.size());
        EXPECT_EQ(line["audioMs"], static_cast<int64_t>(samples.size()) * 1000 / 24000);
        const std::string bytes = testing::readText(out / (line["id"].get<std::string>() + ".f32"));
        ASSERT_EQ(bytes.size(), samples.size() * sizeof(float));
        EXPECT_TRUE(samples.empty() || std::memcmp(bytes.data(), samples.data(), bytes.size()) == 0)
            << "the samples differ from the engine's";
    }
    EXPECT_EQ(written["lines"][0]["speed"].dump(), "1");
    EXPECT_EQ(written["lines"][1]["speed"].dump(), "1.25");
}

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

// A run of many short lines: how it ended, its report's lines, the bytes of samples it wrote.
struct LongRun {
    Outcome outcome;
    json lines;
    double sampleBytes = 0;
};

TEST_F(ParityProgramTest, TenThousandLinesFinishWithoutHoldingAllTheirSamples) {
    const std::vector<std::string> texts = {"Hi.", "Yes, go on.", "Well done.", "See you."};
    // Freed memory that the address sanitizer holds back would look like memory kept.
    const char* asan = std::getenv("ASAN_OPTIONS");
    const std::string sanitizerOptions = std::string(asan ? asan : "") + ":quarantine_size_mb=1";
    auto longRun = [&](int count) {
        json lines = json::array();
        for (int i = 0; i < count; ++i) {
            lines.push_back(
                {{"id", "line" + std::to_string(i)}, {"text", texts[i % texts.size()]}});
        }
        fs::remove_all(out);
        testing::writeText(linesFile, json{{"lines", lines}}.dump());
        LongRun result;
        result.outcome =
            run({"-murmela.parity", out.string(), "-murmela.lines", linesFile.string()},
                {{"ASAN_OPTIONS", sanitizerOptions}});
        if (result.outcome.exitCode == 0) {
            result.lines = report()["lines"];
            for (const json& line : result.lines) {
                result.sampleBytes += line["samples"].get<double>() * sizeof(float);
            }
        }
        return result;
    };

    const LongRun small = longRun(100);
    ASSERT_EQ(small.outcome.exitCode, 0) << small.outcome.log;
    const LongRun huge = longRun(10000);
    ASSERT_EQ(huge.outcome.exitCode, 0) << huge.outcome.log;
    EXPECT_EQ(linesOf(huge.outcome.log),
              std::vector<std::string>{"murmela: parity: 10000 lines -> " + out.string()});
    ASSERT_EQ(huge.lines.size(), 10000u);
    EXPECT_EQ(huge.lines[9999]["id"], "line9999");
    EXPECT_TRUE(fs::exists(out / "line9999.f32"));

    // Keeping every line's samples would grow the peak by all of them; the report of ids and
    // durations that must stay is far smaller.
    std::cout << "peak memory: " << small.outcome.peakKilobytes << " KiB for 100 lines, "
              << huge.outcome.peakKilobytes << " KiB for 10000 lines with "
              << huge.sampleBytes / 1024 << " KiB of samples\n";
    const double growth =
        static_cast<double>(huge.outcome.peakKilobytes - small.outcome.peakKilobytes) * 1024;
    EXPECT_LT(growth, huge.sampleBytes / 2)
        << "peak " << huge.outcome.peakKilobytes << " KiB against " << small.outcome.peakKilobytes
        << " KiB for 100 lines; samples written: " << huge.sampleBytes / 1024 << " KiB";
}

}  // namespace
}  // namespace murmela
