// The parity mode run in process on the test voice: what it writes, what it logs, the exit
// codes, and every way a lines file, an id or the voice can be wrong.

#include "app/parity.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <QSettings>
#include <cstring>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "build_info.h"
#include "common/voice_error.h"
#include "frontend/unicode.h"
#include "logging/log.h"
#include "support/temporary_directory.h"
#include "support/test_voice.h"

namespace murmela {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

ArgumentDomain arguments(std::vector<std::string> words) {
    std::vector<const char*> argv = {"murmela"};
    for (const std::string& word : words) {
        argv.push_back(word.c_str());
    }
    return ArgumentDomain::fromCommandLine(static_cast<int>(argv.size()), argv.data());
}

std::vector<float> samplesIn(const fs::path& file) {
    const std::string bytes = testing::readText(file);
    std::vector<float> samples(bytes.size() / sizeof(float));
    if (!samples.empty()) {
        std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
    }
    EXPECT_EQ(bytes.size() % sizeof(float), 0u) << file;
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

// The engine's own answer for one line, to hold the report against.
struct Expected {
    std::vector<std::vector<int64_t>> chunks;
    std::vector<std::vector<int64_t>> durations;
    std::vector<float> samples;
};

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
        ::setenv("MURMELA_RESOURCES", resources->path().c_str(), 1);
    }
    void TearDown() override { ::unsetenv("MURMELA_RESOURCES"); }

    // Runs the parity mode on `lines` (a JSON text) into `out`.
    int run(const std::string& lines) {
        testing::writeText(linesFile, lines);
        return runParity(SettingsStore::standard(
            arguments({"-murmela.parity", out.string(), "-murmela.lines", linesFile.string()})));
    }

    json report() const { return json::parse(testing::readText(out / "parity.json")); }
    std::string errorText() const { return testing::readText(out / "error.txt"); }

    static Expected expected(const std::string& text, double speed) {
        Expected result;
        result.chunks = voice->phonemizer().chunks(text);
        for (const std::vector<int64_t>& chunk : result.chunks) {
            SynthesisResult made = voice->synthesize(chunk, speed);
            result.durations.push_back(made.frameCounts);
            result.samples.insert(result.samples.end(), made.samples.begin(), made.samples.end());
        }
        return result;
    }

    static inline testing::TemporaryDirectory* resources = nullptr;
    static inline Voice* voice = nullptr;

    testing::TemporaryDirectory sandbox{"murmela-parity"};
    fs::path out = sandbox / "out";
    fs::path linesFile = sandbox / "lines.json";
    std::vector<std::string> logged;
    log::Capture capture{[this](log::Level, const std::string& line) { logged.push_back(line); }};
};

constexpr const char* usage = "parity: needs -murmela.parity OUTDIR and -murmela.lines FILE";

TEST_F(ParityTest, WithoutBothSettingsItIsAUsageErrorThatWritesNothing) {
    testing::writeText(linesFile, R"({"lines": []})");
    const std::vector<std::vector<std::string>> incomplete = {
        {"-murmela.parity", out.string()},
        {"-murmela.lines", linesFile.string()},
        {"-murmela.parity", "", "-murmela.lines", linesFile.string()},
        {},
    };
    for (const std::vector<std::string>& words : incomplete) {
        logged.clear();
        EXPECT_EQ(runParity(SettingsStore::standard(arguments(words))), 2);
        EXPECT_EQ(logged, std::vector<std::string>{usage});
        EXPECT_FALSE(fs::exists(out));
    }
    EXPECT_EQ(contentsOf(sandbox.path()), std::set<std::string>{"lines.json"});
}

TEST_F(ParityTest, TheSettingsFileCountsLikeTheCommandLine) {
    testing::writeText(linesFile, R"({"lines": []})");
    SettingsStore::standard({}).setValue("murmela.lines", QString::fromStdString(linesFile));
    EXPECT_EQ(runParity(SettingsStore::standard(arguments({"-murmela.parity", out.string()}))), 0);
    EXPECT_TRUE(fs::exists(out / "parity.json"));
}

TEST_F(ParityTest, AnEmptyLinesArrayGivesAnEmptyPrettySortedReport) {
    ASSERT_EQ(run(R"({"lines": []})"), 0);
    EXPECT_EQ(logged, std::vector<std::string>{"parity: 0 lines -> " + out.string()});
    EXPECT_EQ(contentsOf(out), std::set<std::string>{"parity.json"});

    const std::string text = testing::readText(out / "parity.json");
    const json written = json::parse(text);
    EXPECT_EQ(written["app"], "Murmela");
    EXPECT_EQ(written["version"], buildinfo::version);
    EXPECT_EQ(written["build"], buildinfo::build);
    EXPECT_TRUE(written["loadMs"].is_number_integer());
    EXPECT_GE(written["loadMs"].get<int64_t>(), 0);
    EXPECT_EQ(written["lines"], json::array());
    EXPECT_EQ(written.size(), 5u);
    // Pretty printed, keys in order: the text is the canonical indented form.
    EXPECT_EQ(text, written.dump(2));
    EXPECT_LT(text.find("\"app\""), text.find("\"build\""));
    EXPECT_LT(text.find("\"loadMs\""), text.find("\"version\""));
}

TEST_F(ParityTest, TheLoggedPathIsAbsoluteWithoutATrailingSlash) {
    testing::writeText(linesFile, R"({"lines": []})");
    EXPECT_EQ(runParity(SettingsStore::standard(arguments(
                  {"-murmela.parity", out.string() + "//", "-murmela.lines", linesFile.string()}))),
              0);
    EXPECT_EQ(logged, std::vector<std::string>{"parity: 0 lines -> " + out.string()});
}

TEST_F(ParityTest, EachLineIsReportedWithTheEnginesIdsDurationsAndSamples) {
    ASSERT_EQ(run(R"({"lines": [
        {"id": "plain", "text": "This is one. How are you?"},
        {"id": "fast", "text": "Hello there.", "speed": 1.5},
        {"id": "whole", "text": "Hello there.", "speed": 2}
    ]})"),
              0);
    EXPECT_EQ(logged, std::vector<std::string>{"parity: 3 lines -> " + out.string()});
    EXPECT_EQ(contentsOf(out),
              (std::set<std::string>{"parity.json", "plain.f32", "fast.f32", "whole.f32"}));

    const json lines = report()["lines"];
    ASSERT_EQ(lines.size(), 3u);
    const std::vector<std::pair<std::string, double>> given = {
        {"This is one. How are you?", 1.0}, {"Hello there.", 1.5}, {"Hello there.", 2.0}};
    for (size_t i = 0; i < given.size(); ++i) {
        const json& line = lines[i];
        SCOPED_TRACE(line["id"].get<std::string>());
        const Expected engine = expected(given[i].first, given[i].second);
        ASSERT_EQ(line["chunks"].size(), engine.chunks.size());
        for (size_t c = 0; c < engine.chunks.size(); ++c) {
            EXPECT_EQ(line["chunks"][c]["ids"], json(engine.chunks[c]));
            EXPECT_EQ(line["chunks"][c]["durations"], json(engine.durations[c]));
            EXPECT_EQ(line["chunks"][c]["durations"].size(), engine.chunks[c].size() + 2);
        }
        const auto samples = static_cast<int64_t>(engine.samples.size());
        EXPECT_GT(samples, 0);
        EXPECT_EQ(line["samples"], samples);
        EXPECT_EQ(line["audioMs"], samples * 1000 / 24000);
        EXPECT_TRUE(line["renderMs"].is_number_integer());
        EXPECT_GE(line["firstAudioMs"].get<int64_t>(), 0);
        EXPECT_LE(line["firstAudioMs"].get<int64_t>(), line["renderMs"].get<int64_t>());
        EXPECT_EQ(samplesIn(out / (line["id"].get<std::string>() + ".f32")), engine.samples);
    }
    EXPECT_GT(lines[0]["chunks"].size(), 1u);  // two sentences, two chunks
    // The speed as the file gave it; absent is 1.
    EXPECT_EQ(lines[0]["speed"].dump(), "1");
    EXPECT_EQ(lines[1]["speed"].dump(), "1.5");
    EXPECT_EQ(lines[2]["speed"].dump(), "2");
    EXPECT_EQ(lines[0]["id"], "plain");
    EXPECT_EQ(lines[0].size(), 7u);
}

TEST_F(ParityTest, EntriesWithoutAStringIdAndTextLeaveNoTrace) {
    ASSERT_EQ(run(R"({"lines": [
        {"text": "No id."},
        {"id": 7, "text": "A number for an id."},
        {"id": "notext"},
        {"id": "nulltext", "text": null},
        {"id": "listtext", "text": ["Hi."]},
        {"id": null, "text": "Null id."},
        {},
        {"id": "kept", "text": "Hi.", "extra": true}
    ]})"),
              0);
    EXPECT_EQ(logged, std::vector<std::string>{"parity: 1 lines -> " + out.string()});
    EXPECT_EQ(contentsOf(out), (std::set<std::string>{"parity.json", "kept.f32"}));
    ASSERT_EQ(report()["lines"].size(), 1u);
    EXPECT_EQ(report()["lines"][0]["id"], "kept");
}

TEST_F(ParityTest, ASpeedThatIsNotANumberCountsAsAbsent) {
    ASSERT_EQ(run(R"({"lines": [
        {"id": "text", "text": "Hello there.", "speed": "1.5"},
        {"id": "bool", "text": "Hello there.", "speed": true},
        {"id": "null", "text": "Hello there.", "speed": null}
    ]})"),
              0);
    const Expected normal = expected("Hello there.", 1.0);
    ASSERT_NE(normal.samples, expected("Hello there.", 1.5).samples);
    const json written = report();
    for (const json& line : written["lines"]) {
        EXPECT_EQ(line["speed"].dump(), "1");
        EXPECT_EQ(samplesIn(out / (line["id"].get<std::string>() + ".f32")), normal.samples);
    }
}

TEST_F(ParityTest, ASpeedOutOfRangeFailsTheRunBeforeAnythingIsSynthesised) {
    for (const char* speed : {"0", "-1", "0.001", "1000", "1e300"}) {
        SCOPED_TRACE(speed);
        fs::remove_all(out);
        EXPECT_EQ(run(std::string(R"({"lines": [{"id": "first", "text": "Hi."},
                                  {"id": "odd", "text": "Hi.", "speed": )") +
                      speed + "}]}"),
                  1);
        EXPECT_EQ(contentsOf(out), std::set<std::string>{"error.txt"});
        EXPECT_NE(errorText().find("\"odd\""), std::string::npos) << errorText();
        EXPECT_NE(errorText().find("speed"), std::string::npos) << errorText();
    }
}

TEST_F(ParityTest, ADuplicateIdOverwritesItsFileAndKeepsBothRecords) {
    ASSERT_EQ(run(R"({"lines": [
        {"id": "same", "text": "Hello there, friend."},
        {"id": "same", "text": "Hi."}
    ]})"),
              0);
    EXPECT_EQ(logged, std::vector<std::string>{"parity: 2 lines -> " + out.string()});
    const json lines = report()["lines"];
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0]["id"], "same");
    EXPECT_EQ(lines[1]["id"], "same");
    const Expected second = expected("Hi.", 1.0);
    EXPECT_EQ(lines[0]["samples"], expected("Hello there, friend.", 1.0).samples.size());
    EXPECT_EQ(lines[1]["samples"], second.samples.size());
    EXPECT_EQ(samplesIn(out / "same.f32"), second.samples);
}

TEST_F(ParityTest, ALineWithNoChunkGetsAnEmptyFileAndEmptyChunks) {
    ASSERT_EQ(run(R"({"lines": [{"id": "empty", "text": ""}, {"id": "blank", "text": " \n\t "}]})"),
              0);
    const json written = report();
    for (const json& line : written["lines"]) {
        SCOPED_TRACE(line["id"].get<std::string>());
        EXPECT_EQ(line["chunks"], json::array());
        EXPECT_EQ(line["samples"], 0);
        EXPECT_EQ(line["audioMs"], 0);
        EXPECT_EQ(line["firstAudioMs"], line["renderMs"]);
        const fs::path file = out / (line["id"].get<std::string>() + ".f32");
        EXPECT_TRUE(fs::is_regular_file(file));
        EXPECT_EQ(fs::file_size(file), 0u);
    }
}

TEST_F(ParityTest, ALinesFileOfTheWrongShapeIsDamagedAndNamesItsPath) {
    const std::string damaged = "voice: " + linesFile.string() + " unreadable";
    for (const char* lines : {
             R"([{"id": "a", "text": "Hi."}])",
             R"("lines")",
             R"({"other": []})",
             R"({"lines": {"id": "a", "text": "Hi."}})",
             R"({"lines": [{"id": "a", "text": "Hi."}, 5]})",
             R"({"lines": [{"id": "a", "text": "Hi."}, null]})",
         }) {
        SCOPED_TRACE(lines);
        fs::remove_all(out);
        logged.clear();
        EXPECT_EQ(run(lines), 1);
        EXPECT_EQ(errorText(), damaged);  // no line end
        EXPECT_EQ(logged, std::vector<std::string>{"parity failed: " + damaged});
        EXPECT_EQ(contentsOf(out), std::set<std::string>{"error.txt"});
    }
}

TEST_F(ParityTest, ALinesFileThatIsTruncatedMissingOrNotUtf8FailsWithTheReadersError) {
    EXPECT_EQ(run(R"({"lines": [{"id": "a", "text": "Hi.")"), 1);
    EXPECT_EQ(errorText().rfind("[json.exception.parse_error", 0), 0u) << errorText();
    EXPECT_EQ(contentsOf(out), std::set<std::string>{"error.txt"});

    fs::remove_all(out);
    EXPECT_EQ(run("{\"lines\": [{\"id\": \"a\", \"text\": \"Caf\xe9 \xff\"}]}"), 1);
    const std::string text = errorText();
    EXPECT_NE(text.find("UTF-8"), std::string::npos) << text;
    EXPECT_EQ(encodeUtf8(decodeUtf8(text)), text) << "error.txt is not UTF-8 itself";
    EXPECT_EQ(logged.back(), "parity failed: " + text);
    EXPECT_EQ(contentsOf(out), std::set<std::string>{"error.txt"});

    fs::remove_all(out);
    fs::remove(linesFile);
    EXPECT_EQ(runParity(SettingsStore::standard(
                  arguments({"-murmela.parity", out.string(), "-murmela.lines",
                             (sandbox / "absent.json").string()}))),
              1);
    EXPECT_NE(errorText().find("absent.json"), std::string::npos) << errorText();
}

TEST_F(ParityTest, IdsThatWouldLeaveTheOutputDirectoryFailTheRunAndTouchNothingOutside) {
    const fs::path victim = sandbox / "victim";
    const std::vector<std::string> ids = {"",
                                          ".",
                                          "..",
                                          "../victim",
                                          "a/b",
                                          victim.string(),
                                          std::string("nul\0x", 5),
                                          "..//..",
                                          std::string(252, 'x')};
    for (const std::string& id : ids) {
        SCOPED_TRACE(json(id).dump());
        fs::remove_all(out);
        logged.clear();
        testing::writeText(
            linesFile,
            json{{"lines", {{{"id", "fine"}, {"text", "Hi."}}, {{"id", id}, {"text", "Hi."}}}}}
                .dump());
        const std::set<std::string> before = contentsOf(sandbox.path());
        EXPECT_EQ(runParity(SettingsStore::standard(arguments(
                      {"-murmela.parity", out.string(), "-murmela.lines", linesFile.string()}))),
                  1);
        std::set<std::string> after = contentsOf(sandbox.path());
        EXPECT_EQ(after.erase("out"), 1u);
        EXPECT_EQ(after.erase("out/error.txt"), 1u);
        EXPECT_EQ(after, before);
        const std::string text = errorText();
        EXPECT_NE(text.find(json(id).dump()), std::string::npos) << text;
        EXPECT_EQ(logged, std::vector<std::string>{"parity failed: " + text});
    }
}

TEST_F(ParityTest, ALinkInTheOutputDirectoryIsNotFollowed) {
    const fs::path victim = sandbox / "victim.txt";
    testing::writeText(victim, "keep");
    fs::create_directories(out);
    fs::create_symlink(victim, out / "line.f32");
    EXPECT_EQ(run(R"({"lines": [{"id": "line", "text": "Hi."}]})"), 1);
    EXPECT_EQ(testing::readText(victim), "keep");
    EXPECT_NE(errorText().find("line.f32"), std::string::npos) << errorText();
}

TEST_F(ParityTest, AnOutputDirectoryThatIsAFileFailsWithoutWritingAnything) {
    testing::writeText(out, "a file");
    EXPECT_EQ(run(R"({"lines": []})"), 1);
    EXPECT_EQ(testing::readText(out), "a file");
    ASSERT_EQ(logged.size(), 1u);
    EXPECT_EQ(logged[0].rfind("parity failed: ", 0), 0u) << logged[0];
}

TEST_F(ParityTest, AVoiceDirectoryThatIsNotThereIsMissingAndAnEmptyOneFailsToOpen) {
    testing::TemporaryDirectory empty("murmela-resources");
    ::setenv("MURMELA_RESOURCES", empty.path().c_str(), 1);
    EXPECT_EQ(run(R"({"lines": []})"), 1);
    EXPECT_EQ(errorText(), "voice: Voice/ missing");
    EXPECT_EQ(logged, std::vector<std::string>{"parity failed: voice: Voice/ missing"});
    EXPECT_EQ(contentsOf(out), std::set<std::string>{"error.txt"});

    fs::remove_all(out);
    fs::create_directory(empty / "Voice");
    EXPECT_EQ(run(R"({"lines": []})"), 1);
    EXPECT_EQ(errorText(), "voice: espeak-ng data unreadable");
}

TEST_F(ParityTest, ASynthesisErrorEndsTheRunWithoutAReport) {
    // A decoder too small for any token: splitting ends at a single id that still can't fit.
    testing::TemporaryDirectory broken("murmela-resources");
    testing::copyTestVoice(broken / "Voice");
    json description = json::parse(testing::readText(broken / "Voice" / "voice.json"));
    description["interface"]["decoderBuckets"] = {1};
    testing::writeText(broken / "Voice" / "voice.json", description.dump());
    ::setenv("MURMELA_RESOURCES", broken.path().c_str(), 1);

    EXPECT_EQ(run(R"({"lines": [{"id": "a", "text": "Hi."}]})"), 1);
    const std::string text = errorText();
    EXPECT_EQ(text.rfind("voice: ", 0), 0u) << text;
    EXPECT_NE(text.find(" frames for one id"), std::string::npos) << text;
    EXPECT_FALSE(fs::exists(out / "parity.json"));
    EXPECT_FALSE(fs::exists(out / "a.f32"));
    EXPECT_EQ(logged.back(), "parity failed: " + text);
}

TEST_F(ParityTest, TheReportCarriesTheGivenInformationAndLoadTime) {
    testing::writeText(linesFile, R"({"lines": [{"id": "a", "text": "Hi."}]})");
    const json info = {{"app", "Other"}, {"version", ""}, {"build", "7"}};
    EXPECT_EQ(writeParityReport(*voice, linesFile, out / "deeper" / "still", 1234, info), 1u);
    const json written = json::parse(testing::readText(out / "deeper" / "still" / "parity.json"));
    EXPECT_EQ(written["app"], "Other");
    EXPECT_EQ(written["version"], "");
    EXPECT_EQ(written["build"], "7");
    EXPECT_EQ(written["loadMs"], 1234);
    EXPECT_EQ(written["lines"].size(), 1u);

    testing::writeText(linesFile, R"([])");
    EXPECT_THROW(writeParityReport(*voice, linesFile, out, 0, info), VoiceError);
    testing::writeText(linesFile, R"({"lines": [{"id": "..", "text": "Hi."}]})");
    EXPECT_THROW(writeParityReport(*voice, linesFile, out, 0, info), ParityLineError);
    testing::writeText(linesFile, R"({"lines": )");
    EXPECT_THROW(writeParityReport(*voice, linesFile, out, 0, info), json::parse_error);
}

}  // namespace
}  // namespace murmela
