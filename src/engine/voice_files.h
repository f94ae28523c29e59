#pragma once
// A voice directory on disk: voice.json (the models' interface and file names), vocab.json,
// the three ONNX models and espeak-ng's data.

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/model_session.h"
#include "engine/tensor_layout.h"

namespace murmela {

// Logical model name -> file stem; the model file is <directory>/<stem>.onnx.
using Programs = std::map<std::string, std::string>;

struct VoiceInterface {
    std::vector<int64_t> encoderBuckets;  // in file order
    std::vector<int64_t> decoderBuckets;  // in file order
    Programs programs;
};

// What a voice says of itself for people in its voice.json. A member the file lacks, or holds
// as anything but text, is empty.
struct VoiceDescription {
    std::string name;
    std::string description;
    std::string license;
    std::string licenseLink;
};

class VoiceFiles {
public:
    explicit VoiceFiles(std::filesystem::path directory) : directory_(std::move(directory)) {}

    // The "Voice" directory of the resources, or nothing when there are no resources.
    // Does not check that the directory exists.
    static std::optional<VoiceFiles> locate();

    // The voice among the resources, which every program speaks with unless told otherwise.
    // Throws VoiceError::missing("Voice/") when there is no such directory.
    static VoiceFiles bundled();

    // Reads and checks voice.json. Throws VoiceError, or the JSON parser's own error.
    VoiceInterface readInterface() const;
    // Checks the text of a voice.json; throws as readInterface() does.
    static VoiceInterface parseInterface(std::string_view text);

    // Reads voice.json's description. Throws the file system's error or the JSON parser's;
    // anything but an object describes nothing.
    VoiceDescription readDescription() const;

    // Loads the model that `programs` names for `name`. Throws VoiceError, or the runtime's own
    // error when the runtime refuses the file.
    ModelSession loadModel(const std::string& name, const Programs& programs) const;

    const std::filesystem::path& directory() const { return directory_; }

private:
    std::filesystem::path directory_;
};

}  // namespace murmela
