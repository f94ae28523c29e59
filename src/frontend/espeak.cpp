#include "frontend/espeak.h"

#include <espeak-ng/speak_lib.h>
#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <optional>

#include "common/voice_error.h"
#include "frontend/unicode.h"

namespace murmela {
namespace {

// espeak-ng builds "<path>/espeak-ng-data/phondata-manifest" into a fixed buffer; a path is
// usable only when that whole string stays below 150 bytes.
constexpr std::string_view probeSuffix = "/espeak-ng-data/phondata-manifest";
constexpr size_t pathLimit = 150;
// IPA, with "^" (bits 8 to 23) tying the letters of one phoneme.
constexpr int phonemeMode = espeakPHONEMES_IPA | espeakPHONEMES_TIE | ('^' << 8);

// The library's process-wide state, as this program sees it.
struct LibraryState {
    std::mutex lock;
    // The path (as the caller gave it) for which the library was last set up successfully;
    // empty for the data installed with espeak-ng.
    std::optional<std::string> loadedPath;
    // The espeak-ng voice the library speaks with now.
    std::string language;
};

LibraryState& library() {
    static LibraryState* state = new LibraryState;  // made once, never destroyed
    return *state;
}

bool fits(const std::string& path) {
    return path.size() + probeSuffix.size() < pathLimit;
}

// espeak-ng falls back to the system's own data when a directory lacks it, and after one
// successful start it reports success even for a failed one; so look for the files first.
bool hasData(const std::filesystem::path& directory) {
    std::error_code ignored;
    for (const char* file : {"phondata-manifest", "phontab", "phonindex", "phondata"}) {
        if (!std::filesystem::is_regular_file(directory / "espeak-ng-data" / file, ignored)) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::filesystem::path Espeak::temporaryDirectory() {
    const char* configured = std::getenv("TMPDIR");
    if (configured != nullptr && *configured != '\0') {
        return configured;
    }
    return "/tmp";
}

std::string Espeak::linkedPath(const std::filesystem::path& directory) {
    std::string path = directory.string();
    if (fits(path)) {
        return path;
    }
    std::filesystem::path link =
        temporaryDirectory() / ("murmela-" + std::to_string(static_cast<long>(::getpid())));
    std::error_code ignored;
    std::filesystem::path current = std::filesystem::read_symlink(link, ignored);
    if (ignored || current.string() != path) {
        std::filesystem::remove(link, ignored);
        std::filesystem::create_directory_symlink(directory, link);  // throws as it is
    }
    if (!fits(link.string())) {
        throw VoiceError::damaged("espeak-ng path");
    }
    return link.string();
}

namespace {

// Called with the lock held.
bool selectLanguage(LibraryState& state, const std::string& language) {
    if (state.language == language) {
        return true;
    }
    // A voice file's name ("en-us") or, failing that, a language ("en-gb", whose voice file is
    // plain "en").
    espeak_VOICE wanted{};
    wanted.languages = language.c_str();
    if (espeak_SetVoiceByName(language.c_str()) != EE_OK &&
        espeak_SetVoiceByProperties(&wanted) != EE_OK) {
        state.language.clear();
        return false;
    }
    state.language = language;
    return true;
}

// Called with the lock held; `path` is empty for the installed data.
void initialise(LibraryState& state, const std::string& path, const std::string& language) {
    if (state.loadedPath != path) {
        const std::string given = path.empty() ? path : Espeak::linkedPath(path);
        if ((!path.empty() && !hasData(path)) ||
            espeak_Initialize(AUDIO_OUTPUT_SYNCHRONOUS, 0, path.empty() ? nullptr : given.c_str(),
                              espeakINITIALIZE_DONT_EXIT) < 1) {
            throw VoiceError::damaged("espeak-ng data");
        }
        state.loadedPath = path;
        state.language.clear();
    }
    if (!selectLanguage(state, language)) {
        throw VoiceError::damaged("espeak-ng voice " + language);
    }
}

}  // namespace

Espeak::Espeak(const std::filesystem::path& directory, std::string language)
    : language_(std::move(language)) {
    // Relative paths are made absolute so that a link to the directory works from anywhere.
    const std::string path = std::filesystem::absolute(directory).string();
    LibraryState& state = library();
    std::lock_guard guard(state.lock);
    initialise(state, path, language_);
}

Espeak::Espeak(SystemData, std::string language) : language_(std::move(language)) {
    LibraryState& state = library();
    std::lock_guard guard(state.lock);
    initialise(state, std::string(), language_);
}

Espeak Espeak::preferringOwnData(const std::filesystem::path& directory, std::string language) {
    if (hasData(directory)) {
        return Espeak(directory, std::move(language));
    }
    return Espeak(SystemData{}, std::move(language));
}

std::u32string Espeak::phonemes(std::u32string_view text) const {
    LibraryState& state = library();
    std::lock_guard guard(state.lock);
    // Two voices of different languages share the library: each call speaks its own.
    if (!selectLanguage(state, language_)) {
        return {};
    }
    const std::string bytes = encodeUtf8(text);
    const void* cursor = bytes.c_str();
    std::u32string joined;
    while (cursor != nullptr) {
        const char* clause = espeak_TextToPhonemes(&cursor, espeakCHARS_UTF8, phonemeMode);
        if (clause == nullptr) {
            break;
        }
        std::u32string scalars = decodeUtf8(clause);
        std::u32string_view trimmed = trimmingWhitespace(scalars);
        if (trimmed.empty()) {
            continue;
        }
        if (!joined.empty()) {
            joined.push_back(U' ');
        }
        joined.append(trimmed);
    }
    return joined;
}

}  // namespace murmela
