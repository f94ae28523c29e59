#include "speechd/protocol.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>

#include "frontend/unicode.h"

namespace murmela::speechd {
namespace {

constexpr size_t readSize = 64 * 1024;
constexpr char escapeByte = 0x7D;
constexpr int sampleRate = 24000;

}  // namespace

LineReader::LineReader(int descriptor, size_t longestLine)
    : descriptor_(descriptor), longestLine_(longestLine) {}

bool LineReader::fill() {
    if (ended_) {
        return false;
    }
    if (start_ > 0) {
        buffer_.erase(0, start_);
        start_ = 0;
    }
    const size_t had = buffer_.size();
    buffer_.resize(had + readSize);
    ssize_t got;
    do {
        got = ::read(descriptor_, buffer_.data() + had, readSize);
    } while (got < 0 && errno == EINTR);
    buffer_.resize(had + static_cast<size_t>(std::max<ssize_t>(got, 0)));
    if (got <= 0) {
        ended_ = true;
        return false;
    }
    return true;
}

std::optional<LineReader::Line> LineReader::next() {
    Line line;
    size_t scanned = 0;  // bytes after start_ known to hold no LF
    for (;;) {
        const size_t newline = buffer_.find('\n', start_ + scanned);
        if (newline != std::string::npos) {
            if (!line.overlong) {
                const size_t length = newline - start_;
                line.overlong = length > longestLine_;
                line.text.assign(buffer_, start_, std::min(length, longestLine_));
            }
            start_ = newline + 1;
            return line;
        }
        // No LF yet: once the line is past the limit keep only its head and drop the rest as
        // it comes, so a huge line costs no more memory than the limit.
        if (buffer_.size() - start_ > longestLine_) {
            if (!line.overlong) {
                line.overlong = true;
                line.text.assign(buffer_, start_, longestLine_);
            }
            start_ = buffer_.size();
        }
        scanned = buffer_.size() - start_;
        if (!fill()) {
            const bool rest = buffer_.size() > start_;
            if (rest && !line.overlong) {
                line.text.assign(buffer_, start_);
            }
            start_ = buffer_.size();
            if (rest || line.overlong) {
                return line;
            }
            return std::nullopt;
        }
    }
}

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
    for (const std::string& line : lines) {
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
        const float scaled = std::clamp(sample * gain, -1.0f, 1.0f) * 32767.0f;
        const auto value = static_cast<uint16_t>(static_cast<int16_t>(std::lround(scaled)));
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
