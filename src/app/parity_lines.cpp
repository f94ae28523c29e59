#include "app/parity_lines.h"

#include "common/voice_error.h"
#include "files/read_file.h"

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
                                      " is outside 0.01 to 100");
            }
        }
        lines.push_back(std::move(line));
    }
    return lines;
}

}  // namespace murmela
