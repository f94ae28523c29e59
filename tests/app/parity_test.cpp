// The parity mode on the test voice, run in process: what it writes, what it logs, the exit
// codes, and every way a lines file, an id or the voice can be wrong; and the program itself,
// which must choose the batch run with no display. Ten thousand lines are a benchmark.

#include "app/parity.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <QSettings>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "build_info.h"
#include "frontend/unicode.h"
#include "logging/log.h"
#include "support/environment.h"
#include "support/neural_voices.h"
#include "support/temporary_directory.h"
#include "support/test_voice.h"

namespace murmela {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

std::vector<float> samplesIn(const fs::path& file) {
    const std::string bytes = testing::readText(file);
    EXPECT_EQ(bytes.size() % sizeof(float), 0u) << file;
    std::vector<float> samples(bytes.size() / sizeof(float));
    if (!samples.empty()) {
        std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
    }
    return samples;
}

// Every path under `root`, relative to it.
std::set<std::string> contentsOf(const fs::path& root) {
    std::set<std::string> found;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
        found.insert(fs::relative(entry.path(), root).string());
    }
    return found;
}

// `path` quoted for the shell (temporary paths hold no quote).
std::string quoted(const fs::path& path) {
    return "'" + path.string() + "'";
}

class ParityTest : public ::testing::Test {
protected:
    // One resources directory for the whole program, so espeak-ng is set up once.
    static void SetUpTestSuite() {
        resources = new testing::TemporaryDirectory("murmela-resources");
        fs::create_directory_symlink(testing::testVoiceDirectory(), *resources / "Voice");
        voice = new Voice(testing::testVoiceDirectory());
    }
    static void TearDownTestSuite() {
        delete voice;
        delete resources;
    }

    void SetUp() override {
        QSettings::setPath(QSettings::IniFormat, QSettings::UserScope,
                           QString::fromStdString((sandbox / "config").string()));
    }

    // Runs the parity mode with these command-line words, from a fresh log.
    int runWith(const std::vector<std::string>& words) {
        std::vector<const char*> argv = {"murmela"};
        for (const std::string& word : words) {
            argv.push_back(word.c_str());
        }
        logged.clear();
        return runParity(SettingsStore::standard(
            ArgumentDomain::fromCommandLine(static_cast<int>(argv.size()), argv.data())));
    }

    // Runs the parity mode on the lines file into `out`.
    int runLinesFile() {
        return runWith({"-murmela.parity", out.string(), "-murmela.lines", linesFile.string()});
    }
    // Runs the parity mode on `lines` (a JSON text) into a fresh `out`.
    int run(const std::string& lines) {
        testing::writeText(linesFile, lines);
        fs::remove_all(out);
        return runLinesFile();
    }

    // The run failed with `text` in "error.txt" and the log, and wrote nothing else.
    void expectFailure(const std::string& text) {
        EXPECT_EQ(testing::readText(out / "error.txt"), text);  // no line end
        EXPECT_EQ(logged, std::vector<std::string>{"parity failed: " + text});
        EXPECT_EQ(contentsOf(out), std::set<std::string>{"error.txt"});
    }

    // The program itself, as on a machine with no display, with only this test's resources and
    // settings and the `variables` given ("NAME=value ..."): its exit code and standard error.
    struct Outcome {
        int exitCode = -1;
        std::string log;
    };
    Outcome runProgram(const std::string& arguments, const std::string& variables = "") {
        const std::string command =
            "env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM -u MURMELA_DEFAULTS_SUITE "
            "MURMELA_RESOURCES=" +
            quoted(resources->path()) + " XDG_CONFIG_HOME=" + quoted(sandbox / "config") + " " +
            variables + " " + quoted(MURMELA_PROGRAM) + " " + arguments + " 2>" +
            quoted(sandbox / "stderr.txt");
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1,
                testing::readText(sandbox / "stderr.txt")};
    }

    json report() const { return json::parse(testing::readText(out / "parity.json")); }
    std::string errorText() const { return testing::readText(out / "error.txt"); }

    // The engine's own samples for `text`.
    static std::vector<float> samplesOf(const std::string& text, double speed) {
        return testing::speakAll(*voice, text, speed).joined();
    }

    static inline testing::TemporaryDirectory* resources = nullptr;
    static inline Voice* voice = nullptr;

    testing::ScopedVariable resourcesVariable{"MURMELA_RESOURCES", resources->path()};
    testing::TemporaryDirectory sandbox{"murmela-parity"};
    fs::path out = sandbox / "out";
    fs::path linesFile = sandbox / "lines.json";
    std::vector<std::string> logged;
    log::Capture capture{[this](log::Level, const std::string& line) { logged.push_back(line); }};
};

TEST_F(ParityTest, WithoutBothSettingsItIsAUsageErrorThatWritesNothing) {
    testing::writeText(linesFile, R"({"lines": []})");
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
             {"-murmela.parity", out.string()},
             {"-murmela.lines", linesFile.string()},
             {"-murmela.parity", "", "-murmela.lines", linesFile.string()},
             {}}) {
        EXPECT_EQ(runWith(words), 2);
        EXPECT_EQ(logged, std::vector<std::string>{
                              "parity: needs -murmela.parity OUTDIR and -murmela.lines FILE"});
    }
    EXPECT_EQ(contentsOf(sandbox.path()), std::set<std::string>{"lines.json"});
}

// Entries without a string id and text leave no trace; a speed that is not a number is absent.
TEST_F(ParityTest, EachLineIsReportedWithTheEnginesIdsDurationsAndSamples) {
    testing::writeText(linesFile, R"({"lines": [
        {"id": "plain", "text": "This is one. How are you?"},
        {"text": "No id."},
        {"id": 7, "text": "A number for an id."},
        {"id": "notext"},
        {"id": "nulltext", "text": null},
        {"id": "listtext", "text": ["Hi."]},
        {"id": null, "text": "Null id."},
        {},
        {"id": "fast", "text": "Hello there.", "speed": 1.5},
        {"id": "whole", "text": "Hello there.", "speed": 2},
        {"id": "blank", "text": " \n\t "},
        {"id": "text", "text": "Hello there.", "speed": "1.5", "extra": true},
        {"id": "bool", "text": "Hello there.", "speed": true},
        {"id": "null", "text": "Hello there.", "speed": null}
    ]})");
    // The logged path is absolute, without the trailing slashes it was given with.
    ASSERT_EQ(
        runWith({"-murmela.parity", out.string() + "//", "-murmela.lines", linesFile.string()}), 0);
    EXPECT_EQ(logged, std::vector<std::string>{"parity: 7 lines -> " + out.string()});
    // Pretty printed, keys in order: the text is the canonical indented form.
    const std::string text = testing::readText(out / "parity.json");
    const json written = json::parse(text);
    EXPECT_EQ(text, written.dump(2));
    EXPECT_EQ(written.size(), 5u);
    EXPECT_EQ(written["app"], "Murmela");
    EXPECT_EQ(written["version"], buildinfo::version);
    EXPECT_EQ(written["build"], buildinfo::build);
    EXPECT_TRUE(written["loadMs"].is_number_integer());
    EXPECT_GE(written["loadMs"].get<int64_t>(), 0);
    const struct {
        const char* id;
        const char* text;
        double speed;
        const char* reported;  // the speed as the file gave it; absent is 1
    } given[] = {{"plain", "This is one. How are you?", 1.0, "1"},
                 {"fast", "Hello there.", 1.5, "1.5"},
                 {"whole", "Hello there.", 2.0, "2"},
                 {"blank", " \n\t ", 1.0, "1"},
                 {"text", "Hello there.", 1.0, "1"},
                 {"bool", "Hello there.", 1.0, "1"},
                 {"null", "Hello there.", 1.0, "1"}};
    std::set<std::string> files = {"parity.json"};
    const json lines = written["lines"];
    ASSERT_EQ(lines.size(), std::size(given));
    for (size_t i = 0; i < lines.size(); ++i) {
        const json& line = lines[i];
        SCOPED_TRACE(given[i].id);
        files.insert(std::string(given[i].id) + ".f32");
        EXPECT_EQ(line["id"], given[i].id);
        EXPECT_EQ(line.size(), 7u);
        EXPECT_EQ(line["speed"].dump(), given[i].reported);
        json chunks = json::array();
        std::vector<float> samples;
        voice->speak(given[i].text, given[i].speed, [&](SpokenChunk&& chunk) {
            chunks.push_back({{"ids", chunk.ids}, {"durations", chunk.result.frameCounts}});
            samples.insert(samples.end(), chunk.result.samples.begin(), chunk.result.samples.end());
            return true;
        });
        EXPECT_EQ(line["chunks"], chunks);
        EXPECT_EQ(line["samples"], samples.size());
        EXPECT_EQ(line["audioMs"], samples.size() * 1000 / 24000);
        EXPECT_LE(line["firstAudioMs"].get<int64_t>(), line["renderMs"].get<int64_t>());
        EXPECT_EQ(samplesIn(out / (std::string(given[i].id) + ".f32")), samples);
    }
    EXPECT_EQ(contentsOf(out), files);
    EXPECT_EQ(lines[0]["chunks"].size(), 2u);  // two sentences, two chunks
    // A line with no chunk: an empty file, and its first audio is its end.
    EXPECT_EQ(lines[3]["chunks"], json::array());
    EXPECT_EQ(lines[3]["firstAudioMs"], lines[3]["renderMs"]);
}

TEST_F(ParityTest, ADuplicateIdOverwritesItsFileAndKeepsBothRecords) {
    ASSERT_EQ(run(R"({"lines": [{"id": "same", "text": "Hello there, friend."},
                                {"id": "same", "text": "Hi."}]})"),
              0);
    const json lines = report()["lines"];
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0]["samples"], samplesOf("Hello there, friend.", 1.0).size());
    EXPECT_EQ(lines[1]["samples"], samplesOf("Hi.", 1.0).size());
    EXPECT_EQ(samplesIn(out / "same.f32"), samplesOf("Hi.", 1.0));
}

TEST_F(ParityTest, ALinesFileItCannotReadFailsWithTheReadersOrTheDamagedError) {
    for (const char* lines : {
             R"([{"id": "a", "text": "Hi."}])",
             R"("lines")",
             R"({"other": []})",
             R"({"lines": {"id": "a", "text": "Hi."}})",
             R"({"lines": [{"id": "a", "text": "Hi."}, 5]})",
             R"({"lines": [{"id": "a", "text": "Hi."}, null]})",
         }) {
        SCOPED_TRACE(lines);
        EXPECT_EQ(run(lines), 1);
        expectFailure("voice: " + linesFile.string() + " unreadable");
    }

    EXPECT_EQ(run(R"({"lines": [{"id": "a", "text": "Hi.")"), 1);
    EXPECT_EQ(errorText().rfind("[json.exception.parse_error", 0), 0u) << errorText();
    expectFailure(errorText());

    EXPECT_EQ(run("{\"lines\": [{\"id\": \"a\", \"text\": \"Caf\xe9 \xff\"}]}"), 1);
    const std::string text = errorText();
    EXPECT_NE(text.find("UTF-8"), std::string::npos) << text;
    EXPECT_EQ(encodeUtf8(decodeUtf8(text)), text) << "error.txt is not UTF-8 itself";
    expectFailure(text);

    EXPECT_EQ(runWith({"-murmela.parity", out.string(), "-murmela.lines",
                       (sandbox / "absent.json").string()}),
              1);
    EXPECT_NE(errorText().find("absent.json"), std::string::npos) << errorText();
}

TEST_F(ParityTest, AnIdOrSpeedItRefusesFailsTheRunBeforeAnythingIsWrittenOrTouchedOutside) {
    const fs::path victim = sandbox / "victim";
    std::vector<json> refused;
    for (const std::string& id :
         {std::string(""), std::string("."), std::string(".."), std::string("../victim"),
          std::string("a/b"), victim.string(), std::string("nul\0x", 5), std::string("..//.."),
          std::string(252, 'x')}) {
        refused.push_back({{"id", id}, {"text", "Hi."}});
    }
    for (const json& speed : {json(0), json(-1), json(0.001), json(1000), json(1e300)}) {
        refused.push_back({{"id", "odd"}, {"text", "Hi."}, {"speed", speed}});
    }
    for (const json& entry : refused) {
        SCOPED_TRACE(entry.dump());
        fs::remove_all(out);
        testing::writeText(linesFile,
                           json{{"lines", {{{"id", "fine"}, {"text", "Hi."}}, entry}}}.dump());
        const std::set<std::string> before = contentsOf(sandbox.path());
        EXPECT_EQ(runLinesFile(), 1);
        std::set<std::string> after = contentsOf(sandbox.path());
        EXPECT_EQ(after.erase("out"), 1u);
        EXPECT_EQ(after.erase("out/error.txt"), 1u);
        EXPECT_EQ(after, before);
        // The message names the line by its id as JSON writes it.
        EXPECT_NE(errorText().find(entry["id"].dump()), std::string::npos) << errorText();
        expectFailure(errorText());
    }
}

TEST_F(ParityTest, ALinkInTheOutputDirectoryIsNotFollowedNorAFileInItsPlaceReplaced) {
    const fs::path victim = sandbox / "victim.txt";
    testing::writeText(victim, "keep");
    fs::create_directories(out);
    fs::create_symlink(victim, out / "line.f32");
    testing::writeText(linesFile, R"({"lines": [{"id": "line", "text": "Hi."}]})");
    EXPECT_EQ(runLinesFile(), 1);
    EXPECT_EQ(testing::readText(victim), "keep");
    EXPECT_NE(errorText().find("line.f32"), std::string::npos) << errorText();

    fs::remove_all(out);
    testing::writeText(out, "a file");
    EXPECT_EQ(runLinesFile(), 1);
    EXPECT_EQ(testing::readText(out), "a file");
    ASSERT_EQ(logged.size(), 1u);
    EXPECT_EQ(logged[0].rfind("parity failed: ", 0), 0u) << logged[0];
}

TEST_F(ParityTest, AVoiceThatIsMissingEmptyOrFailingEndsTheRunWithoutAReport) {
    testing::TemporaryDirectory empty("murmela-resources");
    const testing::ScopedVariable emptyResources("MURMELA_RESOURCES", empty.path());
    EXPECT_EQ(run(R"({"lines": []})"), 1);
    expectFailure("voice: Voice/ missing");
    fs::create_directory(empty / "Voice");
    EXPECT_EQ(run(R"({"lines": []})"), 1);
    expectFailure("voice: espeak-ng data unreadable");

    // A decoder too small for any token: splitting ends at a single id that still can't fit.
    testing::copyTestVoice(empty / "Voice");
    json description = json::parse(testing::readText(empty / "Voice" / "voice.json"));
    description["interface"]["decoderBuckets"] = {1};
    testing::writeText(empty / "Voice" / "voice.json", description.dump());
    EXPECT_EQ(run(R"({"lines": [{"id": "a", "text": "Hi."}]})"), 1);
    const std::string text = errorText();
    EXPECT_EQ(text.rfind("voice: ", 0), 0u) << text;
    EXPECT_NE(text.find(" frames for one id"), std::string::npos) << text;
    EXPECT_EQ(logged.back(), "parity failed: " + text);  // after the splitting it tried
    EXPECT_EQ(contentsOf(out), std::set<std::string>{"error.txt"});
}

// MURMELA_VOICE picks a downloaded voice (here the Piper and Kokoro stand-ins), which is reported
// like the bundled one but without durations; one that fails while running fails the run.
TEST_F(ParityTest, TheEnvironmentsVoiceSpeaksInsteadOfTheBundledOne) {
    const VoiceChoice piper(testing::standIn("piper-multi"), "carol");
    std::optional<testing::ScopedVariable> chosen(std::in_place, "MURMELA_VOICE",
                                                  piper.directory.string() + ":carol");
    const std::string text = "Hello, world! Button. She measured.";
    ASSERT_EQ(run(R"({"lines": [{"id": "piper", "text": ")" + text + R"(", "speed": 1.25}]})"), 0);
    Voice expected(piper);
    const testing::SpokenChunks spoken = testing::speakAll(expected, text, 1.25);
    EXPECT_EQ(samplesIn(out / "piper.f32"), spoken.joined());
    const json line = report()["lines"][0];
    ASSERT_EQ(line["chunks"].size(), 2u);
    for (size_t index = 0; index < 2; ++index) {
        EXPECT_EQ(line["chunks"][index]["ids"], spoken.ids[index]);
        EXPECT_EQ(line["chunks"][index]["durations"], json::array());
    }

    chosen.emplace("MURMELA_VOICE", testing::standIn("bad/kokoro-failing"));
    EXPECT_EQ(run(R"({"lines": [{"id": "a", "text": "She measured it."}]})"), 1);
    EXPECT_NE(errorText().find("Gather"), std::string::npos) << errorText();
}

// In the model's suite the parity keys mean nothing: interactive use starts, and with no display
// it says so instead of running the batch.
TEST_F(ParityTest, TheProgramTakesTheBatchFromItsStandardSettingsOnlyAndEndsWithItsExitCode) {
    Outcome usage = runProgram("-murmela.parity " + quoted(out));
    EXPECT_EQ(usage.exitCode, 2);
    EXPECT_EQ(usage.log, "murmela: parity: needs -murmela.parity OUTDIR and -murmela.lines FILE\n");

    testing::writeText(linesFile, R"({"lines": []})");
    const std::string settings = "[General]\nmurmela.parity=" + out.string() +
                                 "\nmurmela.lines=" + linesFile.string() + "\n";

    testing::writeText(sandbox / "config" / "murmela" / "suite.ini", settings);
    Outcome interactive = runProgram("", "MURMELA_DEFAULTS_SUITE=suite");
    EXPECT_EQ(interactive.exitCode, 1) << interactive.log;
    EXPECT_NE(interactive.log.find("no display"), std::string::npos) << interactive.log;
    EXPECT_FALSE(fs::exists(out));

    testing::writeText(sandbox / "config" / "murmela" / "murmela.ini", settings);
    Outcome batch = runProgram("", "MURMELA_DEFAULTS_SUITE=suite");
    EXPECT_EQ(batch.exitCode, 0) << batch.log;
    EXPECT_EQ(batch.log, "murmela: parity: 0 lines -> " + out.string() + "\n");
    EXPECT_TRUE(fs::exists(out / "parity.json"));
}

}  // namespace
}  // namespace murmela
