#include "support/test_voice.h"

#include <cmath>
#include <cstdlib>

namespace murmela::testing {

std::filesystem::path testVoiceDirectory() {
    return MURMELA_TEST_VOICE_DIR;
}

void copyTestVoice(const std::filesystem::path& destination) {
    std::filesystem::create_directories(destination);
    std::filesystem::copy(testVoiceDirectory(), destination,
                          std::filesystem::copy_options::recursive |
                              std::filesystem::copy_options::overwrite_existing);
}

namespace test_voice {
float logDuration(int64_t id) {
    return static_cast<float>(std::log(1.0 + static_cast<double>(id % 4)));
}
}  // namespace test_voice

}  // namespace murmela::testing
