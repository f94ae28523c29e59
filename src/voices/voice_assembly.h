#pragma once
// Putting a voice's files together as one voice directory, before it is checked and installed.

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace murmela {

// One file of the voice to be, wherever it came from.
struct SourceFile {
    std::filesystem::path path;
    std::string name;         // the file name it is installed under
    bool downloaded = false;  // a partial download's file, moved rather than copied
};

// Puts the files together as one voice directory inside `staging` and gives that directory's
// name: `name` when given, otherwise the model's file name without ".onnx" ("kokoro" for a
// Kokoro model called model.onnx). Any ".bin" among the files makes the ".onnx" a Kokoro model:
// a pack of all styles (an .npz archive) stays beside it, a file of one style goes into
// voices/. Otherwise the ".onnx" is a Piper model, and its NAME.onnx.json comes from the files
// or, for a file on disk, from beside it. Throws VoicesFailure: notAVoice for files that make
// no voice (with a line saying what a voice is made of), cannotWrite when they can't be put
// in place.
std::string arrangeFiles(const std::vector<SourceFile>& files,
                         const std::optional<std::string>& name,
                         const std::filesystem::path& staging);

// Copies the voice directory `folder` into `staging`, as `name` or under its own name; gives
// the name. Throws VoicesFailure: notAVoice when the folder's files describe no voice (checked
// before anything is copied), cannotWrite when the copy fails.
std::string arrangeFolder(const std::filesystem::path& folder,
                          const std::optional<std::string>& name,
                          const std::filesystem::path& staging);

}  // namespace murmela
