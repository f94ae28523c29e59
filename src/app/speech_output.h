#pragma once
// Speech written as it is made, for texts of any length: each chunk's samples leave memory as
// soon as they are written, so a book takes no more memory than a sentence.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "app/render_work.h"
#include "audio/wav.h"
#include "engine/voice.h"

namespace murmela {

// Speaks `text` at `speed` into `file`, a 16-bit PCM WAV file just opened (openWavFile, so a
// destination that cannot be written has failed before anything is synthesised), and puts it
// in place. Gives the number of samples written; when the text gives nothing to speak, or
// `abandon` is raised between chunks, nothing is put in place (the scratch file goes with
// `file`). `beforePlacing`, when given, runs just before the file is put in place and may
// throw to keep it from there. Throws the file system's error
// (std::filesystem::filesystem_error), the voice's or that of `beforePlacing`.
int64_t saveSpeech(Voice& voice, std::string_view text, double speed, WavFile& file,
                   const CancelFlag& abandon, const std::function<void()>& beforePlacing = {});

// Speaks `text` at `speed` onto the end of `file`, opened as for saveSpeech and not yet put in
// place, for a file made of many texts; finishWavFile puts it in place after the last. Gives the
// number of samples added (0 too when `abandon` is raised between chunks).
int64_t appendSpeech(Voice& voice, std::string_view text, double speed, WavFile& file,
                     const CancelFlag& abandon);

// Speaks `text` at `speed` to the descriptor `fd` as raw 16-bit little-endian mono samples, each
// chunk written as soon as it is made. Gives the number of samples written. Throws
// std::system_error when a write fails (EPIPE when the reader has gone), or the voice's error.
int64_t streamSpeech(Voice& voice, std::string_view text, double speed, int fd);

// What a listener is told when the WAV file at `destination` cannot be written.
std::string writeFailure(const std::filesystem::path& destination,
                         const std::filesystem::filesystem_error& error);

}  // namespace murmela
