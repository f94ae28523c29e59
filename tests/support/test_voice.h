#pragma once
// The generated test voice (tools/make_test_voice.py) and what its models compute, restated
// here so tests can predict every output.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace murmela::testing {

// The test voice as the build wrote it. Tests never modify it; copy it first.
std::filesystem::path testVoiceDirectory();

// Copies the test voice (models, vocabulary, espeak-ng data) into `destination`.
void copyTestVoice(const std::filesystem::path& destination);

// The text of the VoiceError that `action` throws, or "(no VoiceError)"; other exceptions pass.
std::string voiceErrorText(const std::function<void()>& action);

// Every id chunk that `source` (a phonemiser, a voice or a kind) makes of `text`, in order.
std::vector<std::vector<int64_t>> allChunks(const auto& source, std::string_view text) {
    std::vector<std::vector<int64_t>> chunks;
    source.chunks(text, [&chunks](std::vector<int64_t> chunk) {
        chunks.push_back(std::move(chunk));
        return true;
    });
    return chunks;
}

// The test encoder's outputs for one token id.
namespace test_voice {
constexpr float amplitude(int64_t id) {
    return id == 0 ? 0.0f : 64.0f + (id % 7) * 16.0f;
}
constexpr float toneBin(int64_t id) {
    return id == 0 ? 0.0f : 10.0f + (id * 5) % 90;
}
constexpr float phase(int64_t id) {
    return id == 0 ? 0.0f : ((id % 8) - 4) * 0.25f;
}
}  // namespace test_voice

}  // namespace murmela::testing
