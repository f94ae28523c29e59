#include "voices/voice_assembly.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <string_view>
#include <system_error>

#include "common/voice_error.h"
#include "voices/voice_catalog.h"
#include "voices/voices_failure.h"

namespace murmela {
namespace {

namespace fs = std::filesystem;
using Kind = VoicesFailure::Kind;

VoicesFailure writeFailure(const std::string& what, const fs::filesystem_error& error) {
    return VoicesFailure(Kind::cannotWrite, what + ": " +
                                                (error.code() == std::errc::no_space_on_device
                                                     ? std::string("the disk is full")
                                                     : error.code().message()));
}

void place(const SourceFile& file, const fs::path& destination) {
    try {
        fs::create_directories(destination.parent_path());
        if (file.downloaded) {
            fs::rename(file.path, destination);
        } else {
            fs::copy_file(file.path, destination);
        }
    } catch (const fs::filesystem_error& error) {
        throw writeFailure("cannot put " + file.name + " in place", error);
    }
}

// The folder's name a voice of files gets: its model's, or the one given.
std::string voiceName(const std::optional<std::string>& chosen, const std::string& modelName,
                      bool kokoro) {
    if (chosen) {
        return *chosen;
    }
    const std::string stem = fs::path(modelName).stem().string();
    // The Kokoro export published with a voices/ folder calls its model just "model".
    return kokoro && stem == "model" ? "kokoro" : stem;
}

}  // namespace

// Puts the files together as one voice directory in the staging folder; gives its name.
std::string arrangeFiles(const std::vector<SourceFile>& files,
                         const std::optional<std::string>& name, const fs::path& staging) {
    const bool kokoro = std::any_of(files.begin(), files.end(), [](const SourceFile& file) {
        return file.name.ends_with(".bin");
    });
    std::vector<const SourceFile*> models;
    for (const SourceFile& file : files) {
        if (file.name.ends_with(".onnx")) {
            models.push_back(&file);
        } else if (!file.name.ends_with(".bin") &&
                   !(file.name.ends_with(".onnx.json") && !kokoro)) {
            throw VoicesFailure(Kind::notAVoice,
                                file.name +
                                    " is not part of a voice: give a voice folder, a "
                                    "Piper NAME.onnx, or a Kokoro model with its voice "
                                    "pack (.bin)");
        }
    }
    if (models.size() != 1) {
        throw VoicesFailure(Kind::notAVoice,
                            kokoro ? "a Kokoro voice is one model (.onnx) with its voice pack"
                                   : "a Piper voice is one model (.onnx) with its .onnx.json");
    }
    const std::string folderName = voiceName(name, models.front()->name, kokoro);
    const fs::path directory = staging / folderName;
    if (!kokoro) {
        const std::string descriptionName = models.front()->name + ".json";
        const auto description =
            std::find_if(files.begin(), files.end(),
                         [&](const SourceFile& file) { return file.name == descriptionName; });
        if (description != files.end()) {
            place(*description, directory / descriptionName);
        } else {
            const SourceFile beside{fs::path(models.front()->path).concat(".json"),
                                    descriptionName};
            std::error_code error;
            if (models.front()->downloaded || !fs::is_regular_file(beside.path, error)) {
                throw VoicesFailure(Kind::notAVoice, descriptionName + " is missing beside " +
                                                         models.front()->name +
                                                         " (a Piper voice needs both)");
            }
            place(beside, directory / descriptionName);
        }
        place(*models.front(), directory / models.front()->name);
        return folderName;
    }
    // Laid out as the two published exports are, where the voice looks for them: a pack of all
    // styles (an .npz archive) beside kokoro-v1.0*.onnx as voices-v1.0.bin, or one file per
    // style in voices/ beside onnx/model*.onnx.
    bool archive = false;
    for (const SourceFile& file : files) {
        if (file.name.ends_with(".bin")) {
            std::ifstream stream(file.path, std::ios::binary);
            std::array<char, 2> magic{};
            const bool isArchive =
                stream.read(magic.data(), 2) && magic[0] == 'P' && magic[1] == 'K';
            archive = archive || isArchive;
            place(file,
                  isArchive ? directory / "voices-v1.0.bin" : directory / "voices" / file.name);
        }
    }
    const std::string& model = models.front()->name;
    if (archive) {
        place(*models.front(),
              directory / (model.starts_with("kokoro-v1.0") ? model : "kokoro-v1.0.onnx"));
    } else {
        place(*models.front(),
              directory / "onnx" / (model.starts_with("model") ? model : "model.onnx"));
    }
    return folderName;
}

std::string arrangeFolder(const fs::path& folder, const std::optional<std::string>& name,
                          const fs::path& staging) {
    const fs::path normal = fs::absolute(folder).lexically_normal();
    const std::string folderName =
        name.value_or((normal.has_filename() ? normal : normal.parent_path()).filename().string());
    // Checked before copying, so a wrong folder is not copied whole first.
    try {
        readVoiceDirectory(folder);
    } catch (const VoiceError& error) {
        throw VoicesFailure(Kind::notAVoice, folder.string() + " is not a voice: " + error.what());
    }
    try {
        // Links stay links: following them could copy a loop (a link to ".") forever.
        fs::copy(folder, staging / folderName,
                 fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    } catch (const fs::filesystem_error& error) {
        throw writeFailure("cannot copy " + folder.string(), error);
    }
    return folderName;
}

}  // namespace murmela
