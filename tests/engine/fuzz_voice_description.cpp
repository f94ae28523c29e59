// Fuzzing voice.json. Whatever it holds, the reader gives an interface with encoder and decoder
// buckets, or the JSON parser's error or VoiceError; nothing else.

#include <nlohmann/json.hpp>
#include <string_view>

#include "common/voice_error.h"
#include "engine/voice_files.h"
#include "support/fuzzing.h"

namespace murmela::fuzzing {

void voiceDescription(const uint8_t* data, size_t size) {
    try {
        const VoiceInterface interface =
            VoiceFiles::parseInterface({reinterpret_cast<const char*>(data), size});
        if (interface.encoderBuckets.empty() || interface.decoderBuckets.empty()) {
            broken("a voice has encoder and decoder buckets");
        }
    } catch (const nlohmann::json::exception&) {
    } catch (const VoiceError&) {
    }
}

}  // namespace murmela::fuzzing

MURMELA_FUZZ_ENTRY(VoiceDescriptionsGiveAnInterfaceOrTheirError, murmela::fuzzing::voiceDescription,
                   2000)
