#pragma once
// Whole files: read, written in place, or replaced atomically; descriptors written in full or
// read line by line; and where the application's resources live.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace murmela {

// The whole content of a regular file (or whatever can be read like one).
// Throws std::filesystem::filesystem_error with the system's error code when it can't be read,
// a directory included.
std::string readFile(const std::filesystem::path& path);

// Writes `bytes` to `path` in place, creating the file or emptying an existing one first. A
// symbolic link at `path` is refused rather than followed, so the bytes land exactly where the
// path says and nowhere else.
// Throws std::filesystem::filesystem_error with the system's error code on failure; what was
// written by then stays.
void writeFile(const std::filesystem::path& path, std::span<const uint8_t> bytes);

// Replaces `destination` with `bytes` so that a reader sees either the old file or the whole new
// one, never a part: the bytes go to a new file beside the destination, are flushed to disk, and
// that file is renamed over the destination.
// Throws std::filesystem::filesystem_error with the system's error code on failure; then the
// scratch file is gone and an existing destination is as it was.
void writeFileAtomically(const std::filesystem::path& destination, std::span<const uint8_t> bytes);

// The same replacement for a writer that produces its bytes piece by piece: the scratch file
// beside `destination` is created empty and its descriptor returned, its path stored in
// `scratch`. Throws std::filesystem::filesystem_error when it cannot be created (the
// destination names a directory, or its directory is missing or not writable).
int createScratchFile(const std::filesystem::path& destination, std::filesystem::path& scratch);

// Writes all of `bytes` to `fd`, retrying after interruptions and short writes. Returns 0, or
// the error number of the write that failed.
int writeAll(int fd, std::span<const uint8_t> bytes);
int writeAll(int fd, std::string_view text);

// Flushes the scratch file to disk, closes `fd` and renames the file over `destination`. Throws
// std::filesystem::filesystem_error on failure, after removing the scratch file; the
// descriptor is closed either way.
void replaceWithScratchFile(int fd, const std::filesystem::path& scratch,
                            const std::filesystem::path& destination);

// Where the application's resources (voice, texts, design tokens, licences) live.

// $MURMELA_RESOURCES when set and not empty, otherwise <directory of the
// executable>/../share/murmela; for the helper programs installed one level deeper
// (libexec/murmela, lib/speech-dispatcher-modules), <directory>/../../share/murmela when only
// that one exists. Nothing when neither can be determined.
std::optional<std::filesystem::path> resourceDirectory();

// The directory of the running executable, when the system can tell.
std::optional<std::filesystem::path> executableDirectory();

// Reads LF-terminated lines from a file descriptor, never holding more than one line's worth
// of bytes however long the line is.
class LineReader {
public:
    struct Line {
        std::string text;       // without its LF
        bool overlong = false;  // cut at the limit; the rest up to the LF was discarded
    };

    LineReader(int descriptor, size_t longestLine);

    // The next line; nothing once the input has ended. A last line without LF still counts.
    std::optional<Line> next();

private:
    bool fill();

    int descriptor_;
    size_t longestLine_;
    std::string buffer_;
    size_t start_ = 0;
    bool ended_ = false;
};

}  // namespace murmela
