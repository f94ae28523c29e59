// Where libFuzzer is not at hand, and in the sanitizer builds: a bounded run of random inputs
// through the same checks the fuzzers make.

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "fuzz_targets.h"
#include "support/test_voice.h"

namespace murmela {
namespace {

// Pieces that random text is made of: enough of the kinds the front end treats specially that
// short inputs reach its rules, and raw bytes for everything else.
const char* const fragments[] = {
    "the",    "I",          "I'm",  "lead",   "lives",  "wind",   "read",    "in",
    "1984",   "Dr.",        "e.g.", "No.",    "5",      " ",      " ",       ",",
    ".",      "...",        "?!",   "\u2026", "\u2014", "\"",     "(",       ")",
    "*",      "#",          "'",    "\u2019", "\u0301", "\u200d", "\u2160",  "\u24b6",
    "\u05e9", "\U0001f600", "\t",   "\n\t",   "\xff",   "\xc0",   "\xe4\xb8"};

// Raw bytes, a quarter of the time, stand for everything else (NUL among them).
std::string randomText(std::mt19937& random, size_t maxParts) {
    std::string text;
    const size_t parts = random() % maxParts;
    for (size_t i = 0; i < parts; ++i) {
        if (random() % 4 == 0) {
            text.push_back(static_cast<char>(random() % 256));
        } else {
            text += fragments[random() % std::size(fragments)];
        }
    }
    return text;
}

// Half the time an object of members with odd names and values, else a jumble of tokens.
std::string randomJson(std::mt19937& random) {
    static const std::vector<std::string> names = {"\"vocab\"", "\"a\"", "\"\\u0329\"",
                                                   "\"\"",      "\" \"", "\"\\u0000\""};
    static const std::vector<std::string> values = {
        "1",    "-2",   "3.5",   "1e400", "-1e400", "18446744073709551616",
        "true", "null", "\"x\"", "[1]",   "{}",     "{\"a\": 2}"};
    static const std::vector<std::string> tokens = {"{", "}",  "[",  "]",    ":", ",",
                                                    " ", "\"", "\\", "\xff", "1", "\"a\""};
    std::string json;
    const size_t parts = random() % 12;
    if (random() % 2 == 0) {
        json.push_back('{');
        for (size_t i = 0; i < parts; ++i) {
            json += (i > 0 ? "," : "") + names[random() % names.size()] + ":" +
                    values[random() % values.size()];
        }
        return json + (random() % 8 == 0 ? "" : "}");
    }
    for (size_t i = 0; i < parts; ++i) {
        json += tokens[random() % tokens.size()];
    }
    return json;
}

TEST(RandomInput, TextNeverBreaksTheChunkPromises) {
    std::mt19937 random(1234);
    for (int i = 0; i < 2000; ++i) {
        const std::string text = randomText(random, 40);
        fuzzing::chunks(testing::testVoiceDirectory(),
                        reinterpret_cast<const uint8_t*>(text.data()), text.size());
    }
}

TEST(RandomInput, VocabularyFilesGiveAVocabularyOrTheirError) {
    std::mt19937 random(5678);
    for (int i = 0; i < 3000; ++i) {
        const std::string json = randomJson(random);
        fuzzing::vocabulary(reinterpret_cast<const uint8_t*>(json.data()), json.size());
    }
}

}  // namespace
}  // namespace murmela
