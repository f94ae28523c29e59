#pragma once
// The one gateway to the espeak-ng library, which turns English text into IPA.
//
// espeak-ng keeps all its state in process-wide globals and is not reentrant, so an Espeak
// holds nothing itself: every instance is a handle on the same library state, and one
// process-wide lock serialises every call into the library. Any thread may use any instance.

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>

namespace murmela {

class Espeak {
public:
    // Makes the library ready for the voice directory (the one holding "espeak-ng-data") with
    // the espeak-ng voice `language`. Does nothing when it is already set up for this same path.
    // Throws VoiceError, or std::filesystem::filesystem_error when the short link can't be made.
    explicit Espeak(const std::filesystem::path& directory, std::string language = "en-us");

    // The directory's own espeak-ng data when it has some, else the data installed with
    // espeak-ng: voices downloaded from elsewhere come without it. Throws as the constructor.
    static Espeak preferringOwnData(const std::filesystem::path& directory, std::string language);

    // The IPA of `text`, clauses joined by single spaces, multi-letter phonemes tied with "^".
    // Empty when espeak-ng gives nothing. Never throws.
    std::u32string phonemes(std::u32string_view text) const;

    // The path to give espeak-ng for `directory`: the directory itself, or, when espeak-ng
    // could not handle a path that long, a symbolic link to it in the temporary directory
    // named "murmela-<pid>". Throws as the constructor does. Call it with the lock held.
    static std::string linkedPath(const std::filesystem::path& directory);

    // The temporary directory that holds the link: $TMPDIR, else /tmp.
    static std::filesystem::path temporaryDirectory();

private:
    struct SystemData {};
    Espeak(SystemData, std::string language);

    std::string language_;
};

}  // namespace murmela
