// Fuzzing the files that describe downloaded voices: a Piper NAME.onnx.json and a Kokoro .npz
// voice pack. The first byte picks the reader. Whatever the rest holds, the reader gives voices
// with a sample rate, or names no more than the archive could hold, or VoiceError; nothing
// else, and it never reads outside the file.

#include <unistd.h>

#include <string>
#include <string_view>

#include "common/voice_error.h"
#include "support/fuzzing.h"
#include "voices/voice_catalog.h"

namespace murmela::fuzzing {

void voiceFiles(const uint8_t* data, size_t size) {
    if (size == 0) {
        return;
    }
    const std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);
    try {
        if (data[0] % 2 == 0) {
            for (const VoiceDetails& voice : parsePiperDescription(rest, "x.onnx.json")) {
                if (voice.sampleRate <= 0 || voice.kind != VoiceKind::piper) {
                    broken("a Piper voice has a sample rate");
                }
            }
        } else {
            const int descriptor = memoryFile(rest);
            std::vector<std::string> names;
            try {
                names = npzArrayNames("/proc/self/fd/" + std::to_string(descriptor));
            } catch (const VoiceError&) {
                ::close(descriptor);
                throw;
            }
            ::close(descriptor);
            // Each entry of the central directory takes at least 46 bytes.
            if (names.size() * 46 > rest.size()) {
                broken("an archive names no more members than it can hold");
            }
        }
    } catch (const VoiceError&) {
    }
}

}  // namespace murmela::fuzzing

MURMELA_FUZZ_ENTRY(VoiceFilesGiveVoicesOrTheirError, murmela::fuzzing::voiceFiles, 2000)
