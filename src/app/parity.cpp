#include "app/parity.h"

#include <bit>
#include <chrono>
#include <cmath>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "build_info.h"
#include "common/voice_error.h"
#include "common/voice_format.h"
#include "engine/voice_files.h"
#include "files/files.h"
#include "frontend/unicode.h"
#include "logging/log.h"

namespace murmela {
namespace {

using nlohmann::json;

// The longest file name Linux file systems take, in bytes, less the ".f32" that is added.
constexpr size_t longestId = 255 - 4;

bool isLinesObject(const json& document) {
    if (!document.is_object()) {
        return false;
    }
    auto lines = document.find("lines");
    if (lines == document.end() || !lines->is_array()) {
        return false;
    }
    for (const json& entry : *lines) {
        if (!entry.is_object()) {
            return false;
        }
    }
    return true;
}

// The id as JSON writes it, so that quotes, slashes and NUL show in a message.
std::string jsonQuoted(const std::string& id) {
    return json(id).dump();
}

}  // namespace

bool isPlainFileName(std::string_view id) {
    return !id.empty() && id != "." && id != ".." && id.find('/') == std::string_view::npos &&
           id.find('\0') == std::string_view::npos && id.size() <= longestId;
}

std::vector<ParityLine> readParityLines(const std::filesystem::path& linesFile) {
    const json document = json::parse(readFile(linesFile));
    if (!isLinesObject(document)) {
        throw VoiceError::damaged(linesFile.string());
    }
    std::vector<ParityLine> lines;
    for (const json& entry : document.at("lines")) {
        auto id = entry.find("id");
        auto text = entry.find("text");
        if (id == entry.end() || !id->is_string() || text == entry.end() || !text->is_string()) {
            continue;
        }
        ParityLine line{id->get<std::string>(), text->get<std::string>(), 1.0, 1};
        if (!isPlainFileName(line.id)) {
            throw ParityLineError("line id " + jsonQuoted(line.id) +
                                  " can't name a file inside the output directory");
        }
        auto speed = entry.find("speed");
        if (speed != entry.end() && speed->is_number()) {
            line.speed = speed->get<double>();
            line.reportedSpeed = *speed;
            if (!(line.speed >= minimumParitySpeed && line.speed <= maximumParitySpeed)) {
                throw ParityLineError("line " + jsonQuoted(line.id) + ": speed " + speed->dump() +
                                      " is outside " + paritySpeedRangeText);
            }
        }
        lines.push_back(std::move(line));
    }
    return lines;
}

namespace {

int64_t checked(double whole) {
    // -2^63 is a 64-bit integer, 2^63 is not.
    if (!std::isfinite(whole) || whole < -0x1p63 || whole >= 0x1p63) {
        programmingError("a time of " + std::to_string(whole) + " ms is out of range");
    }
    return static_cast<int64_t>(whole);
}

}  // namespace

double millisecondsBetween(std::chrono::steady_clock::time_point start,
                           std::chrono::steady_clock::time_point end) {
    return std::chrono::duration<double>(end - start).count() * 1000.0;
}

int64_t truncatedMilliseconds(double milliseconds) {
    return checked(std::trunc(milliseconds));
}

int64_t roundedMilliseconds(double milliseconds) {
    return checked(std::round(milliseconds));
}

namespace {

using nlohmann::json;
using Clock = std::chrono::steady_clock;

std::span<const uint8_t> bytesOf(std::string_view text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

void writeSamples(const std::filesystem::path& path, std::vector<float>& samples) {
    if constexpr (std::endian::native == std::endian::big) {
        for (float& sample : samples) {
            auto bits = std::bit_cast<uint32_t>(sample);
            sample = std::bit_cast<float>(__builtin_bswap32(bits));
        }
    }
    writeFile(path,
              {reinterpret_cast<const uint8_t*>(samples.data()), samples.size() * sizeof(float)});
}

// One line: its chunks synthesised in order, its samples written, its record returned. The
// samples live only while the line is worked on.
json renderLine(Voice& voice, const ParityLine& line, const std::filesystem::path& outDir) {
    const Clock::time_point start = Clock::now();
    std::vector<float> samples;
    json chunkRecords = json::array();
    std::optional<Clock::time_point> firstAudio;
    voice.speak(line.text, line.speed, [&](SpokenChunk&& chunk) {
        samples.insert(samples.end(), chunk.result.samples.begin(), chunk.result.samples.end());
        chunkRecords.push_back(
            {{"ids", std::move(chunk.ids)}, {"durations", std::move(chunk.result.frameCounts)}});
        if (!firstAudio) {
            firstAudio = Clock::now();
        }
        return true;
    });
    const Clock::time_point end = Clock::now();
    const auto sampleCount = static_cast<int64_t>(samples.size());
    writeSamples(outDir / (line.id + ".f32"), samples);

    const int64_t renderMs = roundedMilliseconds(millisecondsBetween(start, end));
    return {
        {"id", line.id},
        {"speed", line.reportedSpeed},
        {"chunks", std::move(chunkRecords)},
        {"samples", sampleCount},
        {"renderMs", renderMs},
        {"firstAudioMs",
         firstAudio ? roundedMilliseconds(millisecondsBetween(start, *firstAudio)) : renderMs},
        {"audioMs", sampleCount * 1000 / sampleRate},
    };
}

// A setting's text; an empty one counts as missing, since it names no file.
std::optional<std::string> pathSetting(const SettingsStore& settings, std::string_view key) {
    std::optional<QVariant> value = settings.value(key);
    if (!value) {
        return std::nullopt;
    }
    std::string text = value->toString().toStdString();
    if (text.empty()) {
        return std::nullopt;
    }
    return text;
}

// The path made absolute against the working directory and without a trailing separator, as
// the log line shows it.
std::filesystem::path fullPath(const std::string& given) {
    std::error_code error;
    std::filesystem::path path = std::filesystem::absolute(given, error);
    if (error) {
        path = given;
    }
    while (!path.has_filename() && path.has_relative_path()) {
        path = path.parent_path();
    }
    return path;
}

// An error's text as it goes to the log and "error.txt": valid UTF-8 even when the message
// quotes bytes of a file that is not.
std::string description(const char* what) {
    return encodeUtf8(decodeUtf8(what));
}

void recordFailure(const std::filesystem::path& outDir, const std::string& text) {
    log::info("parity failed: " + text);
    std::error_code ignored;
    std::filesystem::create_directories(outDir, ignored);
    try {
        writeFile(outDir / "error.txt", bytesOf(text));
    } catch (const std::filesystem::filesystem_error&) {
        // Nowhere left to say it; the log line and the exit code stand.
    }
}

}  // namespace

size_t writeParityReport(Voice& voice, const std::filesystem::path& linesFile,
                         const std::filesystem::path& outDir, int64_t loadMs, const json& info) {
    std::filesystem::create_directories(outDir);
    const std::vector<ParityLine> lines = readParityLines(linesFile);
    json records = json::array();
    for (const ParityLine& line : lines) {
        records.push_back(renderLine(voice, line, outDir));
    }
    json report = info;
    report["loadMs"] = loadMs;
    report["lines"] = std::move(records);
    writeFile(outDir / "parity.json", bytesOf(report.dump(2)));
    return lines.size();
}

int runParity(const SettingsStore& settings) {
    const std::optional<std::string> outValue = pathSetting(settings, "murmela.parity");
    const std::optional<std::string> linesValue = pathSetting(settings, "murmela.lines");
    if (!outValue || !linesValue) {
        log::info("parity: needs -murmela.parity OUTDIR and -murmela.lines FILE");
        return 2;
    }
    const std::filesystem::path outDir = fullPath(*outValue);
    const std::filesystem::path linesFile = fullPath(*linesValue);
    try {
        // A voice directory that is not there at all gets a plainer message than the first
        // file that opening it would miss.
        const VoiceChoice choice = defaultVoiceChoice();
        const Clock::time_point before = Clock::now();
        Voice voice(choice);
        const int64_t loadMs = truncatedMilliseconds(millisecondsBetween(before, Clock::now()));

        const json info = {
            {"app", buildinfo::appName},
            {"version", buildinfo::version},
            {"build", buildinfo::build},
        };
        const size_t count = writeParityReport(voice, linesFile, outDir, loadMs, info);
        log::info("parity: " + std::to_string(count) + " lines -> " + outDir.string());
        return 0;
    } catch (const std::exception& failure) {
        recordFailure(outDir, description(failure.what()));
    } catch (...) {
        recordFailure(outDir, "unknown error");
    }
    return 1;
}

}  // namespace murmela
