#include "support/test_voice.h"

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

}  // namespace murmela::testing
