#include "app/speech_output.h"

#include <system_error>
#include <vector>

#include "audio/wav.h"
#include "audio/wav_stream.h"
#include "common/voice_format.h"
#include "files/files.h"

namespace murmela {

int64_t appendSpeech(Voice& voice, std::string_view text, double speed, WavFile& file,
                     const CancelFlag& abandon) {
    const int64_t before = file.samples;
    voice.speak(text, speed, [&](SpokenChunk&& chunk) {
        if (abandon.isCancelled()) {
            return false;
        }
        appendToWavFile(file, chunk.result.samples);
        return true;
    });
    return file.samples - before;
}

int64_t saveSpeech(Voice& voice, std::string_view text, double speed, WavFile& file,
                   const CancelFlag& abandon, const std::function<void()>& beforePlacing) {
    appendSpeech(voice, text, speed, file, abandon);
    if (abandon.isCancelled() || file.samples == 0) {
        return 0;
    }
    if (beforePlacing) {
        beforePlacing();
    }
    finishWavFile(file, sampleRate);
    return file.samples;
}

int64_t streamSpeech(Voice& voice, std::string_view text, double speed, int fd) {
    int64_t written = 0;
    voice.speak(text, speed, [&](SpokenChunk&& chunk) {
        const std::vector<uint8_t> bytes = wavSampleBytes(chunk.result.samples, false);
        if (int error = writeAll(fd, bytes); error != 0) {
            throw std::system_error(error, std::generic_category(), "cannot write the samples");
        }
        written += static_cast<int64_t>(chunk.result.samples.size());
        return true;
    });
    return written;
}

std::string writeFailure(const std::filesystem::path& destination,
                         const std::filesystem::filesystem_error& error) {
    return "cannot write " + destination.string() + ": " + error.code().message();
}

}  // namespace murmela
