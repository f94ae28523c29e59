#pragma once
// WAV file images built in memory: a RIFF/WAVE header followed by the samples, mono, either
// 16-bit integer PCM or 32-bit IEEE float. The whole file is known before it is written, so a
// caller writes it in one atomic file write and nothing is patched afterwards.

#include <cstdint>
#include <filesystem>
#include <span>
#include <vector>

namespace murmela {

// The header alone, sized for `sampleCount` samples: 44 bytes for PCM, 58 for float (which
// carries a fact chunk). Sizes that do not fit the format's 32-bit fields stop the process.
std::vector<uint8_t> wavHeader(int64_t sampleCount, bool isFloat, int64_t sampleRate);

// The sample data alone. PCM clamps to [-1, 1] (NaN counts as 1.0) and scales by 32767 for both
// signs, rounding half to even; float copies each sample's bits unchanged.
std::vector<uint8_t> wavSampleBytes(std::span<const float> samples, bool isFloat);

// The whole file: the header for the samples' count followed by their data.
std::vector<uint8_t> encodeWav(std::span<const float> samples, bool isFloat, int64_t sampleRate);

// The record of an incremental writer into a scratch file. Only its teardown matters: dropping
// it while the scratch file is open closes the descriptor and deletes the scratch file, so an
// abandoned write leaves nothing behind.
struct WavFile {
    std::filesystem::path url;   // the destination
    bool isFloat = false;        // the encoding
    std::filesystem::path temp;  // the scratch file
    int32_t fd = -1;             // open descriptor of the scratch file, -1 when closed
    int64_t samples = 0;         // samples written so far

    WavFile() = default;
    WavFile(const WavFile&) = delete;
    WavFile& operator=(const WavFile&) = delete;
    ~WavFile();
};

}  // namespace murmela
