#include "speechd/protocol.h"

#include <algorithm>
#include <cmath>

#include "common/speech_rules.h"
#include "common/voice_format.h"
#include "frontend/unicode.h"

namespace murmela::speechd {
namespace {

constexpr char escapeByte = 0x7D;

}  // namespace

DataBlock readDataBlock(LineReader& reader, size_t limit) {
    DataBlock block;
    while (std::optional<LineReader::Line> line = reader.next()) {
        std::string& text = line->text;
        if (text == ".") {
            block.ended = true;
            return block;
        }
        // A line of the text that began with a dot was sent with one more.
        if (!text.empty() && text.front() == '.') {
            text.erase(0, 1);
        }
        const size_t added = text.size() + (block.lines.empty() ? 0 : 1);
        if (line->overlong || block.tooLarge || block.bytes + added > limit) {
            block.tooLarge = true;
            block.lines.clear();
            block.bytes = 0;
            continue;
        }
        block.bytes += added;
        block.lines.push_back(std::move(text));
    }
    return block;
}

bool isValidUtf8(std::string_view bytes) {
    return encodeUtf8(decodeUtf8(bytes)) == bytes;
}

std::string multiline(std::string_view code, const std::vector<std::string>& lines,
                      std::string_view last) {
    std::string text;
    for (std::string line : lines) {
        // A line feed inside would end the line early, and the rest would read as a reply.
        std::replace(line.begin(), line.end(), '\n', ' ');
        text.append(code).append("-").append(line).append("\n");
    }
    text.append(last);
    return text;
}

std::string indexMarkEvent(std::string_view name) {
    return multiline("700", {std::string(name)}, "700 INDEX MARK\n");
}

std::string audioEvent(std::span<const float> samples, float gain) {
    std::string event =
        "705-bits=16\n705-num_channels=1\n705-sample_rate=" + std::to_string(sampleRate) +
        "\n705-num_samples=" + std::to_string(samples.size()) + "\n705-big_endian=0\n705-AUDIO";
    event.push_back('\0');
    event.reserve(event.size() + samples.size() * 3 + 16);
    auto put = [&event](char byte) {
        if (byte == '\n' || byte == escapeByte) {
            event.push_back(escapeByte);
            byte = static_cast<char>(byte ^ 0x20);
        }
        event.push_back(byte);
    };
    for (float sample : samples) {
        const auto value = static_cast<uint16_t>(pcm16Sample(sample * gain));
        put(static_cast<char>(value & 0xFF));
        put(static_cast<char>(value >> 8));
    }
    event.append("\n705 AUDIO\n");
    return event;
}

std::vector<int16_t> audioSamples(std::string_view escaped) {
    std::vector<int16_t> samples;
    samples.reserve(escaped.size() / 2);
    int low = -1;
    for (size_t at = 0; at < escaped.size(); ++at) {
        uint8_t byte = static_cast<uint8_t>(escaped[at]);
        if (byte == escapeByte && at + 1 < escaped.size()) {
            byte = static_cast<uint8_t>(escaped[++at] ^ 0x20);
        }
        if (low < 0) {
            low = byte;
        } else {
            samples.push_back(static_cast<int16_t>(static_cast<uint16_t>(low | (byte << 8))));
            low = -1;
        }
    }
    return samples;
}

}  // namespace murmela::speechd
