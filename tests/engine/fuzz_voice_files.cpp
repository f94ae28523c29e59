// Fuzzing what a downloaded voice brings: a Kokoro pack (a zip archive of NumPy arrays) and a
// Piper voice's settings. Whatever the bytes, reading gives the members, a 510 x 256 table or
// the settings, or VoiceError (or the JSON parser's error for the settings); never more than
// the bytes hold.

#include <nlohmann/json.hpp>
#include <string>

#include "common/voice_error.h"
#include "engine/piper_voice.h"
#include "engine/voice_pack.h"
#include "support/fuzzing.h"

namespace murmela::fuzzing {

void voiceFiles(const uint8_t* data, size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    try {
        const ZipArchive archive(bytes, "pack");
        for (const std::string& member : archive.names()) {
            try {
                const StyleTable table = parseStyleArray(archive.read(member), member);
                if (table.size() != styleRows * styleWidth) {
                    broken("a style table is 510 x 256");
                }
            } catch (const VoiceError&) {
            }
        }
    } catch (const VoiceError&) {
    }
    try {
        const PiperSettings settings = parsePiperSettings(bytes, "voice.onnx.json");
        if (settings.sampleRate <= 0 || settings.speakers < 1 ||
            !settings.phonemeIds.contains(U'_')) {
            broken("settings have a rate, a speaker and a pad");
        }
    } catch (const nlohmann::json::exception&) {
    } catch (const VoiceError&) {
    }
}

}  // namespace murmela::fuzzing

MURMELA_FUZZ_ENTRY(VoiceFilesGiveTheirContentOrTheirError, murmela::fuzzing::voiceFiles, 2000)
