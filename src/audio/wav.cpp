#include "audio/wav.h"

#include <unistd.h>

#include <bit>
#include <cmath>
#include <limits>
#include <system_error>

#include "common/speech_rules.h"
#include "logging/log.h"

namespace murmela {
namespace {

constexpr int64_t kPcmHeaderBytes = 44;
constexpr int64_t kFloatHeaderBytes = 58;
constexpr int64_t kUInt32Max = std::numeric_limits<uint32_t>::max();

void appendTag(std::vector<uint8_t>& out, const char (&tag)[5]) {
    out.insert(out.end(), tag, tag + 4);
}

void appendUInt16(std::vector<uint8_t>& out, uint16_t value) {
    out.push_back(static_cast<uint8_t>(value));
    out.push_back(static_cast<uint8_t>(value >> 8));
}

void appendUInt32(std::vector<uint8_t>& out, int64_t value, const char* field) {
    if (value < 0 || value > kUInt32Max) {
        programmingError(field);
    }
    for (int shift = 0; shift < 32; shift += 8) {
        out.push_back(static_cast<uint8_t>(value >> shift));
    }
}

void appendSampleBytes(std::vector<uint8_t>& out, std::span<const float> samples, bool isFloat) {
    out.reserve(out.size() + samples.size() * (isFloat ? 4 : 2));
    for (float sample : samples) {
        if (isFloat) {
            const auto bits = std::bit_cast<uint32_t>(sample);
            for (int shift = 0; shift < 32; shift += 8) {
                out.push_back(static_cast<uint8_t>(bits >> shift));
            }
        } else {
            appendUInt16(out, static_cast<uint16_t>(pcm16Sample(sample)));
        }
    }
}

}  // namespace

std::vector<uint8_t> wavHeader(int64_t sampleCount, bool isFloat, int64_t sampleRate) {
    if (sampleCount < 0) {
        programmingError("WAV sample count is negative");
    }
    if (sampleRate < 0) {
        programmingError("WAV sample rate is negative");
    }
    const int64_t bytesPerSample = isFloat ? 4 : 2;
    if (sampleCount > std::numeric_limits<int64_t>::max() / bytesPerSample) {
        programmingError("WAV data size overflows");
    }
    const int64_t dataBytes = sampleCount * bytesPerSample;
    const int64_t headerBytes = isFloat ? kFloatHeaderBytes : kPcmHeaderBytes;
    if (dataBytes > kUInt32Max) {
        programmingError("WAV data size does not fit 32 bits");
    }
    if (sampleRate > kUInt32Max) {
        programmingError("WAV sample rate does not fit 32 bits");
    }
    const int64_t byteRate = sampleRate << (isFloat ? 2 : 1);

    std::vector<uint8_t> out;
    out.reserve(static_cast<size_t>(headerBytes));
    appendTag(out, "RIFF");
    appendUInt32(out, headerBytes - 8 + dataBytes, "WAV RIFF size does not fit 32 bits");
    appendTag(out, "WAVE");
    appendTag(out, "fmt ");
    appendUInt32(out, isFloat ? 18 : 16, "WAV format chunk size");
    appendUInt16(out, isFloat ? 3 : 1);  // IEEE float or integer PCM
    appendUInt16(out, 1);                // channels
    appendUInt32(out, sampleRate, "WAV sample rate does not fit 32 bits");
    appendUInt32(out, byteRate, "WAV byte rate does not fit 32 bits");
    appendUInt16(out, static_cast<uint16_t>(bytesPerSample));  // block align
    appendUInt16(out, static_cast<uint16_t>(bytesPerSample * 8));
    if (isFloat) {
        appendUInt16(out, 0);  // no format extension
        appendTag(out, "fact");
        appendUInt32(out, 4, "WAV fact chunk size");
        appendUInt32(out, sampleCount, "WAV sample count does not fit the fact chunk");
    }
    appendTag(out, "data");
    appendUInt32(out, dataBytes, "WAV data size does not fit 32 bits");
    return out;
}

std::vector<uint8_t> wavSampleBytes(std::span<const float> samples, bool isFloat) {
    std::vector<uint8_t> out;
    appendSampleBytes(out, samples, isFloat);
    return out;
}

std::vector<uint8_t> encodeWav(std::span<const float> samples, bool isFloat, int64_t sampleRate) {
    std::vector<uint8_t> out = wavHeader(static_cast<int64_t>(samples.size()), isFloat, sampleRate);
    appendSampleBytes(out, samples, isFloat);
    return out;
}

WavFile::~WavFile() {
    if (fd >= 0) {
        ::close(fd);
        fd = -1;
        std::error_code ignored;
        std::filesystem::remove(temp, ignored);
    }
}

}  // namespace murmela
