#pragma once
// Kokoro's voice packs: per voice a style table of 510 rows of 256 float32 values, either as
// one NumPy array per voice in a .npz archive (a zip of .npy files, stored or deflated), or as
// one headerless little-endian file per voice in a folder.

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace murmela {

constexpr size_t styleRows = 510;
constexpr size_t styleWidth = 256;

// One voice's styles, row-major: row n (the style for n tokens) starts at n * styleWidth.
using StyleTable = std::vector<float>;

// The members of a zip archive, read from its bytes.
class ZipArchive {
public:
    // Reads the archive's central directory. Throws VoiceError::failed("<name>: <problem>")
    // when the bytes are not a complete zip archive; `name` names the file in errors.
    ZipArchive(std::string bytes, std::string name);

    // Member names, in the archive's order.
    std::vector<std::string> names() const;
    // The member's content, inflated when it was deflated; throws as the constructor does,
    // also for a member that is not there.
    std::string read(std::string_view member) const;

private:
    struct Member {
        std::string name;
        uint16_t method;
        uint64_t compressedSize;
        uint64_t size;
        uint64_t localHeader;
    };
    [[noreturn]] void fail(const std::string& problem) const;

    std::string bytes_;
    std::string name_;
    std::vector<Member> members_;
};

// The float32 style table in the text of a .npy file: little-endian, C order, of shape
// [510, 1, 256] or [510, 256]. Throws VoiceError::failed("<name>: <problem>").
StyleTable parseStyleArray(std::string_view npy, const std::string& name);

// The voice names of a pack: the .npz file's arrays, or the folder's .bin files, sorted.
std::vector<std::string> packVoices(const std::filesystem::path& pack);

// The style table of voice `voice` in `pack` (a .npz file or a folder of .bin files). Throws
// VoiceError::failed naming the pack and the problem, "has no voice <voice>" among them.
StyleTable readStyleTable(const std::filesystem::path& pack, const std::string& voice);

}  // namespace murmela
