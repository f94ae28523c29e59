#pragma once
// What a voice directory says about the voices in it, read from its own small files (voice.json,
// a Piper model's NAME.onnx.json, the names in a Kokoro voice pack) without loading a model.
// One reader per kind of directory.

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace murmela {

enum class VoiceKind {
    threeStage,  // voice.json with encoder, decoder and vocoder
    kokoro,      // a Kokoro model with a voice pack: one voice per style
    piper,       // NAME.onnx with NAME.onnx.json: one voice per speaker
};

// "murmela", "kokoro", "piper": the word lists and scripts show.
std::string_view kindName(VoiceKind kind);

// One voice of a directory.
struct VoiceDetails {
    VoiceKind kind = VoiceKind::threeStage;
    std::string style;  // the Kokoro style or Piper speaker; empty when the directory is one voice
    std::string name;   // for people; the directory's name when its files give none
    std::string language;  // a BCP 47 tag ("en-US"), or empty when the files don't say
    std::string gender;    // "female" or "male" where the voice's naming says, else empty
    std::string quality;   // Piper's x_low, low, medium or high; empty for other kinds
    int64_t sampleRate = 0;
    std::string license;  // empty when the files name none
};

// The voices of `directory`, whichever kind it is, in a stable order (styles and speakers by
// name). Throws VoiceError naming the file and what is wrong with it when the directory is no
// kind of voice or its describing file is damaged.
std::vector<VoiceDetails> readVoiceDirectory(const std::filesystem::path& directory);

// Each kind's reader; each throws VoiceError as above.
std::vector<VoiceDetails> readThreeStageVoice(const std::filesystem::path& directory);
std::vector<VoiceDetails> readPiperVoices(const std::filesystem::path& directory);
std::vector<VoiceDetails> readKokoroVoices(const std::filesystem::path& directory);

// The voices a Piper NAME.onnx.json's text describes, `fileName` naming it in errors. Throws
// VoiceError as readVoiceDirectory() does.
std::vector<VoiceDetails> parsePiperDescription(std::string_view text, const std::string& fileName);

}  // namespace murmela
