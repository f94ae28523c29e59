#include "support/test_voice.h"

#include "common/voice_error.h"

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

std::string voiceErrorText(const std::function<void()>& action) {
    try {
        action();
    } catch (const VoiceError& error) {
        return error.what();
    }
    return "(no VoiceError)";
}

}  // namespace murmela::testing
