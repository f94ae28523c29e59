#include "fuzz_targets.h"

#include <nlohmann/json.hpp>
#include <set>
#include <string_view>

#include "common/voice_error.h"
#include "files/files.h"
#include "frontend/phonemizer.h"
#include "support/fuzzing.h"

namespace murmela::fuzzing {
namespace {

struct Voice {
    explicit Voice(const std::filesystem::path& directory)
        : phonemizer(directory / "vocab.json", Espeak(directory)) {
        for (const auto& [symbol, id] : parseVocabulary(readFile(directory / "vocab.json"))) {
            ids.insert(id);
        }
    }
    Phonemizer phonemizer;
    std::set<int64_t> ids;
};

}  // namespace

void chunks(const std::filesystem::path& voice, const uint8_t* data, size_t size) {
    static const Voice loaded(voice);
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    loaded.phonemizer.chunks(text, [](std::vector<int64_t> chunk) {
        if (chunk.empty() || chunk.size() > Phonemizer::maxChunkIds) {
            broken("chunks hold 1 to 400 ids");
        }
        for (int64_t id : chunk) {
            if (!loaded.ids.contains(id)) {
                broken("every id is the vocabulary's");
            }
        }
        return true;
    });
}

void vocabulary(const uint8_t* data, size_t size) {
    const std::string_view json(reinterpret_cast<const char*>(data), size);
    try {
        if (parseVocabulary(json).empty()) {
            broken("a vocabulary has at least one symbol");
        }
    } catch (const nlohmann::json::exception&) {  // the parser's own errors
    } catch (const VoiceError& error) {
        if (std::string_view(error.what()) != "voice: vocab unreadable") {
            broken("a damaged vocabulary is reported as such");
        }
    }
}

}  // namespace murmela::fuzzing
