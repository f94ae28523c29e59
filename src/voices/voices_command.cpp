#include "voices/voices_command.h"

#include <curl/curl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>

#include "common/error_description.h"
#include "common/voice_error.h"
#include "engine/voice.h"
#include "voices/download.h"
#include "voices/voice_assembly.h"
#include "voices/voice_catalog.h"
#include "voices/voice_store.h"

namespace murmela {
namespace {

namespace fs = std::filesystem;
using Kind = VoicesFailure::Kind;

VoicesFailure usage(const std::string& message) {
    return VoicesFailure(Kind::badArguments, message + " (murmela voices --help shows the usage)");
}

bool isAddress(const std::string& source) {
    return source.starts_with("http://") || source.starts_with("https://");
}

uintmax_t parseSize(const std::string& text) {
    size_t end = 0;
    unsigned long long value = 0;
    try {
        value = std::stoull(text, &end);
    } catch (const std::exception&) {
        throw usage("--max-size takes a number of bytes, not \"" + text + "\"");
    }
    const std::string unit = text.substr(end);
    const int shift = unit.empty()                 ? 0
                      : unit == "k" || unit == "K" ? 10
                      : unit == "M"                ? 20
                      : unit == "G"                ? 30
                                                   : -1;
    if (shift < 0 || text[0] == '-' || value > (~0ULL >> shift)) {
        throw usage("--max-size takes a number of bytes, with k, M or G after it, not \"" + text +
                    "\"");
    }
    return static_cast<uintmax_t>(value) << shift;
}

std::string humanSize(uintmax_t bytes) {
    std::array<char, 32> text{};
    if (bytes >= 1000000) {
        std::snprintf(text.data(), text.size(), "%.1f MB", static_cast<double>(bytes) / 1e6);
    } else {
        std::snprintf(text.data(), text.size(), "%.0f kB", static_cast<double>(bytes) / 1e3);
    }
    return text.data();
}

// Code points, which is what a terminal lines up by for the names a voice gives.
size_t displayWidth(const std::string& text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

void printTable(const std::vector<InstalledVoice>& voices) {
    std::vector<std::vector<std::string>> rows{
        {"ID", "NAME", "LANGUAGE", "KIND", "QUALITY", "RATE", "SIZE", "LICENCE", "WHERE"}};
    for (const InstalledVoice& voice : voices) {
        const VoiceDetails& details = voice.details;
        auto orDash = [](const std::string& text) { return text.empty() ? "-" : text; };
        rows.push_back({voice.id, details.name, orDash(details.language),
                        std::string(kindName(details.kind)), orDash(details.quality),
                        std::to_string(details.sampleRate) + " Hz", humanSize(voice.sizeBytes),
                        orDash(details.license), std::string(placeName(voice.place))});
    }
    std::vector<size_t> widths(rows.front().size(), 0);
    for (const auto& row : rows) {
        for (size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], displayWidth(row[column]));
        }
    }
    for (const auto& row : rows) {
        std::string line;
        for (size_t column = 0; column < row.size(); ++column) {
            line += row[column];
            if (column + 1 < row.size()) {
                line += std::string(widths[column] - displayWidth(row[column]) + 2, ' ');
            }
        }
        std::printf("%s\n", line.c_str());
    }
}

void printJson(const std::vector<InstalledVoice>& voices) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const InstalledVoice& voice : voices) {
        const VoiceDetails& details = voice.details;
        list.push_back({{"id", voice.id},
                        {"name", details.name},
                        {"language", details.language},
                        {"kind", kindName(details.kind)},
                        {"style", details.style},
                        {"gender", details.gender},
                        {"quality", details.quality},
                        {"sampleRate", details.sampleRate},
                        {"sizeBytes", voice.sizeBytes},
                        {"license", details.license},
                        {"place", placeName(voice.place)},
                        {"directory", voice.directory.string()}});
    }
    std::printf("%s\n",
                list.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
}

void listVoices(const VoiceStore& store, bool json) {
    const VoiceListing listing = store.list();
    for (const std::string& problem : listing.problems) {
        std::fprintf(stderr, "murmela voices: skipped %s\n", problem.c_str());
    }
    json ? printJson(listing.voices) : printTable(listing.voices);
}

// A folder that is removed with everything in it unless it is kept.
class StagingFolder {
public:
    explicit StagingFolder(fs::path path) : path_(std::move(path)) {}
    ~StagingFolder() {
        std::error_code error;
        fs::remove_all(path_, error);
    }
    StagingFolder(const StagingFolder&) = delete;
    StagingFolder& operator=(const StagingFolder&) = delete;
    const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

// Partial downloads are named by their address, so a resumed one continues the same file.
std::string partialName(const std::string& url, const std::string& name) {
    uint64_t hash = 14695981039346656037ULL;  // FNV-1a: stable from run to run
    for (const char c : url) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
    }
    std::array<char, 17> hex{};
    std::snprintf(hex.data(), hex.size(), "%016llx", static_cast<unsigned long long>(hash));
    return std::string(hex.data()) + "-" + name;
}

void checkChecksum(const SourceFile& file, const std::string& expected) {
    const std::string actual = sha256Hex(file.path);
    if (actual != expected) {
        throw VoicesFailure(Kind::badDownload, "wrong checksum for " + file.name + ": expected " +
                                                   expected + ", got " + actual);
    }
}

constexpr const char* testSentence = "This is a test.";

// A voice counts once its files describe it, it loads, and it speaks a sentence.
void checkVoice(const fs::path& directory) {
    const std::string name = directory.filename().string();
    try {
        readVoiceDirectory(directory);
    } catch (const VoiceError& error) {
        throw VoicesFailure(Kind::notAVoice, name + " is not a voice: " + error.what());
    }
    size_t samples = 0;
    try {
        Voice voice(directory);
        voice.speak(testSentence, 1.0, [&samples](SpokenChunk&& chunk) {
            samples += chunk.result.samples.size();
            return true;
        });
    } catch (...) {
        throw VoicesFailure(Kind::notAVoice, name + " fails its test sentence: " +
                                                 errorDescription(std::current_exception()));
    }
    if (samples == 0) {
        throw VoicesFailure(Kind::notAVoice, name + " fails its test sentence: it made no sound");
    }
}

// Downloads every address among the sources into the partial downloads' folder, a Piper
// model's description too. Files stay there until the voice is complete, so a download that
// breaks off resumes on the next run.
std::vector<SourceFile> gatherFiles(const VoicesOptions& options, const VoiceStore& store) {
    const bool kokoro =
        std::any_of(options.sources.begin(), options.sources.end(), [](const std::string& source) {
            return (isAddress(source) ? urlFileName(source) : source).ends_with(".bin");
        });
    DownloadOptions downloading;
    downloading.sizeLimit = options.sizeLimit;
    downloading.showProgress = ::isatty(STDERR_FILENO) == 1;
    std::vector<SourceFile> files;
    std::vector<std::string> names;
    for (const std::string& source : options.sources) {
        names.push_back(isAddress(source) ? urlFileName(source)
                                          : fs::path(source).filename().string());
    }
    auto fetch = [&](const std::string& url, const std::string& name) {
        const fs::path partial = store.partialDownloads() / partialName(url, name);
        download(url, partial, downloading);
        files.push_back({partial, name, true});
    };
    try {
        for (size_t index = 0; index < options.sources.size(); ++index) {
            const std::string& source = options.sources[index];
            if (!isAddress(source)) {
                std::error_code error;
                if (!fs::is_regular_file(source, error)) {
                    throw VoicesFailure(Kind::notFound, "no such file: " + source);
                }
                files.push_back({source, names[index], false});
                continue;
            }
            if (names[index].empty()) {
                throw usage("cannot tell a file name from the address " + source);
            }
            fetch(source, names[index]);
            const std::string descriptionName = names[index] + ".json";
            if (!kokoro && names[index].ends_with(".onnx") &&
                std::find(names.begin(), names.end(), descriptionName) == names.end()) {
                fetch(urlWithSuffix(source, ".json"), descriptionName);
            }
        }
        for (size_t index = 0; index < options.checksums.size(); ++index) {
            const auto file = std::find_if(files.begin(), files.end(), [&](const SourceFile& f) {
                return f.name == names[index];
            });
            checkChecksum(*file, options.checksums[index]);
        }
    } catch (const VoicesFailure& failure) {
        // A download that broke off waits to be resumed; any other failure keeps nothing.
        if (failure.kind() != Kind::noNetwork) {
            for (const SourceFile& file : files) {
                std::error_code error;
                if (file.downloaded) {
                    fs::remove(file.path, error);
                }
            }
        }
        throw;
    }
    return files;
}

}  // namespace

std::vector<std::string> addVoice(const VoicesOptions& options, const VoiceStore& store) {
    std::error_code error;
    const bool folder = options.sources.size() == 1 && !isAddress(options.sources.front()) &&
                        fs::is_directory(options.sources.front(), error);
    if (folder && !options.checksums.empty()) {
        throw usage("--sha256 checks a file, not a folder");
    }
    if (!folder) {
        for (const std::string& source : options.sources) {
            if (!isAddress(source) && fs::is_directory(source, error)) {
                throw usage("a voice folder is added on its own: " + source);
            }
        }
    }
    std::vector<SourceFile> files;
    if (!folder) {
        files = gatherFiles(options, store);
    }
    const StagingFolder staging(store.createStaging());
    std::string name;
    try {
        name = folder ? arrangeFolder(options.sources.front(), options.name, staging.path())
                      : arrangeFiles(files, options.name, staging.path());
        checkVoice(staging.path() / name);
    } catch (...) {
        for (const SourceFile& file : files) {
            if (file.downloaded) {
                fs::remove(file.path, error);
            }
        }
        throw;
    }
    return store.install(staging.path() / name, name);
}

namespace {

// libcurl's set-up and tear-down, once for the command.
class CurlLibrary {
public:
    CurlLibrary() { curl_global_init(CURL_GLOBAL_DEFAULT); }
    ~CurlLibrary() { curl_global_cleanup(); }
    CurlLibrary(const CurlLibrary&) = delete;
    CurlLibrary& operator=(const CurlLibrary&) = delete;
};

}  // namespace

VoicesExit exitStatus(Kind kind) {
    switch (kind) {
        case Kind::badArguments:
            return voicesBadArguments;
        case Kind::notFound:
            return voicesNotFound;
        case Kind::noNetwork:
            return voicesNoNetwork;
        case Kind::badDownload:
            return voicesBadDownload;
        case Kind::cannotWrite:
            return voicesCannotWrite;
        case Kind::notAVoice:
            return voicesNotAVoice;
        case Kind::refused:
            return voicesRefused;
    }
    return voicesUnexpected;
}

VoicesOptions parseVoicesOptions(const std::vector<std::string>& arguments) {
    VoicesOptions options;
    size_t next = 0;
    if (!arguments.empty() && !arguments[0].starts_with("-")) {
        const std::string& action = arguments[0];
        if (action == "add") {
            options.action = VoicesOptions::Action::add;
        } else if (action == "remove") {
            options.action = VoicesOptions::Action::remove;
        } else if (action == "list") {
            options.action = VoicesOptions::Action::list;
        } else {
            throw usage("unknown action \"" + action + "\"");
        }
        next = 1;
    }
    using Action = VoicesOptions::Action;
    std::vector<std::string> words;
    bool onlyWords = false;
    for (size_t index = next; index < arguments.size(); ++index) {
        const std::string& argument = arguments[index];
        auto value = [&]() -> const std::string& {
            if (index + 1 >= arguments.size()) {
                throw usage(argument + " needs a value");
            }
            return arguments[++index];
        };
        if (onlyWords || !argument.starts_with("-") || argument == "-") {
            words.push_back(argument);
        } else if (argument == "--") {
            onlyWords = true;
        } else if (argument == "--help" || argument == "-h") {
            options.action = Action::help;
            return options;
        } else if (argument == "--json" && options.action == Action::list) {
            options.json = true;
        } else if (argument == "--sha256" && options.action == Action::add) {
            std::string hex = value();
            std::transform(hex.begin(), hex.end(), hex.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
            if (hex.size() != 64 ||
                hex.find_first_not_of("0123456789abcdef") != std::string::npos) {
                throw usage("--sha256 takes 64 hexadecimal digits, not \"" + hex + "\"");
            }
            options.checksums.push_back(hex);
        } else if (argument == "--max-size" && options.action == Action::add) {
            options.sizeLimit = parseSize(value());
        } else if (argument == "--name" && options.action == Action::add) {
            options.name = value();
        } else {
            throw usage("unknown option " + argument);
        }
    }
    switch (options.action) {
        case Action::list:
            if (!words.empty()) {
                throw usage("unexpected \"" + words.front() + "\"");
            }
            break;
        case Action::add:
            if (words.empty()) {
                throw usage("add needs a voice's files, folder or addresses");
            }
            if (!options.checksums.empty() && options.checksums.size() != words.size()) {
                throw usage("give one --sha256 for each file, in the same order, or none");
            }
            options.sources = std::move(words);
            break;
        case Action::remove:
            if (words.size() != 1) {
                throw usage("remove takes one voice id");
            }
            options.id = words.front();
            break;
        case Action::help:
            break;
    }
    return options;
}

std::string voicesUsage() {
    return R"(Usage: murmela voices [--json]
       murmela voices add [--sha256 HEX]... [--max-size SIZE] [--name NAME] PATH|URL...
       murmela voices remove ID

Lists, adds and removes the voices Murmela speaks with. No display is needed.

  murmela voices         the installed voices as a table: id, name, language, kind,
                         quality, sample rate, size, licence and where it lives
  --json                 the same as a JSON array, for scripts

  add PATH|URL...        installs a voice from a voice folder, a Piper NAME.onnx (its
                         NAME.onnx.json is taken from beside it, or from URL + ".json"),
                         or a Kokoro model with its voice pack (.bin). Addresses are
                         downloaded (http and https), and a download that broke off
                         resumes. The voice must load and speak a test sentence before it
                         is moved into place; then its ids are printed, one a line.
  --sha256 HEX           the file's SHA-256; one for each PATH or URL, in order
  --max-size SIZE        refuse a download larger than SIZE bytes (k, M or G after the
                         number); 2G unless given
  --name NAME            the installed folder's name (the model's name unless given)

  remove ID              removes a voice you added (a Kokoro pack by its folder's name)

Voices live in three places: the bundled one, "murmela", among the resources
(/usr/share/murmela/Voice); yours in $XDG_DATA_HOME/murmela/voices
(~/.local/share/murmela/voices); and those for all users, the second bundled voice
"murmela-slt" among them, in the resources' voices/ (/usr/share/murmela/voices).

Exit status: 0 done, 1 an unexpected error, 2 bad arguments, 3 not found (file, address
or id), 4 no network (unreachable, or the download broke off), 5 a wrong checksum or a
download over the size limit, 6 cannot write (a full disk included), 7 not a voice or it
fails its test sentence, 8 refused (a bundled or system voice, or one installed already).
)";
}

int runVoices(int argc, char** argv) {
    try {
        const VoicesOptions options =
            parseVoicesOptions(std::vector<std::string>(argv + 2, argv + argc));
        const VoiceStore store(VoiceLocations::standard());
        switch (options.action) {
            case VoicesOptions::Action::help:
                std::fputs(voicesUsage().c_str(), stdout);
                break;
            case VoicesOptions::Action::list:
                listVoices(store, options.json);
                break;
            case VoicesOptions::Action::add: {
                const CurlLibrary curl;
                std::vector<std::string> ids;
                try {
                    ids = addVoice(options, store);
                } catch (...) {
                    store.tidyPartialDownloads();
                    throw;
                }
                store.tidyPartialDownloads();
                for (const std::string& id : ids) {
                    std::printf("%s\n", id.c_str());
                }
                break;
            }
            case VoicesOptions::Action::remove:
                store.remove(options.id);
                break;
        }
        return voicesDone;
    } catch (const VoicesFailure& failure) {
        std::fprintf(stderr, "murmela voices: %s\n", failure.what());
        return exitStatus(failure.kind());
    } catch (...) {
        std::fprintf(stderr, "murmela voices: %s\n",
                     errorDescription(std::current_exception()).c_str());
        return voicesUnexpected;
    }
}

}  // namespace murmela
