// Fuzzing what the voice list reads of a Piper voice's NAME.onnx.json (the voice packs are the
// engine's to fuzz): whatever it holds, the reader gives voices with a sample rate, or
// VoiceError; nothing else.

#include <string>
#include <string_view>

#include "common/voice_error.h"
#include "support/fuzzing.h"
#include "voices/voice_catalog.h"

namespace murmela::fuzzing {

void voiceFiles(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    try {
        for (const VoiceDetails& voice : parsePiperDescription(text, "x.onnx.json")) {
            if (voice.sampleRate <= 0 || voice.kind != VoiceKind::piper) {
                broken("a Piper voice has a sample rate");
            }
        }
    } catch (const VoiceError&) {
    }
}

}  // namespace murmela::fuzzing

MURMELA_FUZZ_ENTRY(VoiceFilesGiveVoicesOrTheirError, murmela::fuzzing::voiceFiles, 2000)
