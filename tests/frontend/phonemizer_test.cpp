// Phonemes to ids: the fix-up tables, the symbol rule, the vocabulary file and the chunk
// split, and the whole path from text to chunks against the real espeak-ng.

#include "frontend/phonemizer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "common/voice_error.h"
#include "files/files.h"
#include "frontend/unicode.h"
#include "support/temporary_directory.h"
#include "support/test_voice.h"

namespace murmela {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::TemporaryDirectory;

constexpr int64_t comma = 7;
constexpr int64_t space = 40;
constexpr int64_t other = 100;

std::vector<size_t> chunkSizes(const std::vector<std::vector<int64_t>>& chunks) {
    std::vector<size_t> sizes;
    for (const auto& chunk : chunks) {
        sizes.push_back(chunk.size());
    }
    return sizes;
}

std::string cleaned(const std::u32string& ipa) {
    return encodeUtf8(Phonemizer::cleanPhonemes(ipa));
}

Phonemizer testPhonemizer() {
    return Phonemizer(testing::testVoiceDirectory() / "vocab.json",
                      Espeak(testing::testVoiceDirectory()));
}

Phonemizer phonemizerWithVocabulary(const TemporaryDirectory& directory, const std::string& json) {
    testing::writeText(directory / "vocab.json", json);
    return Phonemizer(directory / "vocab.json", Espeak(testing::testVoiceDirectory()));
}

TEST(SplitIds, UpTo400IdsAreOneChunk) {
    EXPECT_THAT(Phonemizer::splitIds({}, comma, space), IsEmpty());
    const std::vector<int64_t> full(400, other);
    EXPECT_THAT(chunkSizes(Phonemizer::splitIds(full, comma, space)), ElementsAre(400));
    const std::vector<int64_t> over(401, other);
    EXPECT_THAT(chunkSizes(Phonemizer::splitIds(over, comma, space)), ElementsAre(200, 201));
}

TEST(SplitIds, ACommaAnywhereBeatsASpaceAtTheMiddle) {
    std::vector<int64_t> ids(401, other);
    ids[10] = comma;
    ids[200] = space;
    const auto chunks = Phonemizer::splitIds(ids, comma, space);
    EXPECT_THAT(chunkSizes(chunks), ElementsAre(11, 390));
    EXPECT_EQ(chunks[0].back(), comma);  // the comma ends the left part
}

TEST(SplitIds, ACommaAtTheLastIndexGivesWayToASpace) {
    std::vector<int64_t> ids(401, other);
    ids[400] = comma;
    ids[300] = space;
    EXPECT_THAT(chunkSizes(Phonemizer::splitIds(ids, comma, space)), ElementsAre(301, 100));
    // Nothing to cut at: the middle.
    std::vector<int64_t> noSpace(401, other);
    noSpace[400] = comma;
    EXPECT_THAT(chunkSizes(Phonemizer::splitIds(noSpace, comma, std::nullopt)),
                ElementsAre(200, 201));
}

TEST(SplitIds, TheNearestCutToTheMiddleWinsAndTheEarlierOnATie) {
    std::vector<int64_t> ids(402, other);  // the middle is index 201
    ids[100] = space;
    ids[250] = space;
    EXPECT_THAT(chunkSizes(Phonemizer::splitIds(ids, comma, space)), ElementsAre(251, 151));
    ids[199] = space;
    ids[203] = space;
    EXPECT_THAT(chunkSizes(Phonemizer::splitIds(ids, comma, space)), ElementsAre(200, 202));
}

TEST(SplitIds, WithoutCommaOrSpaceLongRunsAreHalvedAgainAndAgain) {
    const std::vector<int64_t> ids(1000, other);
    EXPECT_THAT(chunkSizes(Phonemizer::splitIds(ids, std::nullopt, std::nullopt)),
                ElementsAre(250, 250, 250, 250));
    const std::vector<int64_t> odd(801, other);
    EXPECT_THAT(chunkSizes(Phonemizer::splitIds(odd, std::nullopt, std::nullopt)),
                ElementsAre(400, 200, 201));  // a half of 400 is cut no further
}

TEST(CleanPhonemes, TiedPhonemesBecomeOneSymbolBeforeTheirPartsAreTouched) {
    EXPECT_EQ(cleaned(U"e^\u026a"), "A");  // e^ɪ, with neither the tie nor ɪ left
    EXPECT_EQ(cleaned(U"e"), "A");
    EXPECT_EQ(cleaned(U"a^\u026a a^\u028a \u0254^\u026a o^\u028a"), "I W Y O");
    EXPECT_EQ(cleaned(U"d^\u0292 t^\u0283"), "\u02a4 \u02a7");
    EXPECT_EQ(cleaned(U"\u0259^l"), "\u1d4al");
}

TEST(CleanPhonemes, SyllabicConsonantsGetASchwaAfterTheGlottalStopIsReplaced) {
    EXPECT_EQ(cleaned(U"n\u0329"), "\u1d4an");                             // n̩ → ᵊn
    EXPECT_EQ(cleaned(U"b\u02c8\u028c\u0294n\u0329"), "b\u02c8\u028ctn");  // ʔn̩ → tn
    EXPECT_EQ(cleaned(U"\u0294\u02ccn\u0329"), "tn");
    EXPECT_EQ(cleaned(U"l\u0329 \u0329x"), "\u1d4al k");  // a stray mark after a space goes
    EXPECT_EQ(cleaned(U"\u0329a"), "a");
}

TEST(CleanPhonemes, TheSecondTableRunsInItsOwnOrder) {
    EXPECT_EQ(cleaned(U"\u025c\u02d0\u0279"), "\u025c\u0279");  // ɜːɹ → ɜɹ, one ɹ
    EXPECT_EQ(cleaned(U"\u025c\u02d0"), "\u025c\u0279");
    EXPECT_EQ(cleaned(U"\u026a\u0259 i\u02d0 o"), "i\u0259 i \u0254");
    EXPECT_EQ(cleaned(U"\u025a r \u00e7 \u0250 \u026c \u02b2o \u02b2\u0259 \u02b2"),
              "\u0259\u0279 \u0279 k \u0259 l j\u0254 j\u0259 ");  // trimmed before, not after
    // A nasal vowel loses its tilde and is then plain "a"; the result is trimmed.
    EXPECT_EQ(cleaned(U"  a\u0303 \n"), "a");
}

TEST(Replacing, MatchesLeftToRightWithoutOverlapOrRescanning) {
    EXPECT_EQ(replacing(U"aaa", U"aa", U"b"), U"ba");
    EXPECT_EQ(replacing(U"ab", U"a", U"aa"), U"aab");
    EXPECT_EQ(replacing(U"abc", U"", U"x"), U"abc");
    EXPECT_EQ(replacing(U"ab", U"abc", U"x"), U"ab");
    EXPECT_EQ(replacing(U"xax", U"x", U""), U"a");
}

TEST(SplitSymbols, MarksAndJoinersStayWithTheirBase) {
    auto symbols = [](std::u32string_view text) {
        std::vector<std::string> out;
        for (std::u32string_view symbol : Phonemizer::splitSymbols(text)) {
            out.push_back(encodeUtf8(symbol));
        }
        return out;
    };
    EXPECT_THAT(symbols(U"\u02c8an\u0329"), ElementsAre("\u02c8", "a", "n\u0329"));
    EXPECT_THAT(symbols(U"\u0301\u0301a"), ElementsAre("\u0301\u0301", "a"));
    EXPECT_THAT(symbols(U"a\u200d\u0301b"), ElementsAre("a\u200d", "\u0301", "b"));
    EXPECT_THAT(symbols(U"a^\u026a\u20dd"), ElementsAre("a", "^", "\u026a\u20dd"));  // Me
    EXPECT_THAT(symbols(U""), IsEmpty());
}

TEST(BlankUnspeakable, RomanNumeralsAndCircledLettersBecomeSpaces) {
    EXPECT_EQ(blankUnspeakable(U"\u2160\u2182\u2183\u2184\u2185\u2188\u24b6\u24e9\u24ea a"),
              U"  \u2183\u2184    \u24ea a");
}

TEST(PassThrough, OnlyRunsOfTheEightPunctuationSymbolsSkipEspeak) {
    EXPECT_TRUE(Phonemizer::isPassThrough(U"..."));
    EXPECT_TRUE(Phonemizer::isPassThrough(U"\u2026"));
    EXPECT_TRUE(Phonemizer::isPassThrough(U"?!"));
    EXPECT_TRUE(Phonemizer::isPassThrough(U",;:\u2014"));
    EXPECT_FALSE(Phonemizer::isPassThrough(U"-"));
    EXPECT_FALSE(Phonemizer::isPassThrough(U""));
    EXPECT_FALSE(Phonemizer::isPassThrough(U".\u0301"));
    EXPECT_FALSE(Phonemizer::isPassThrough(U"a."));
}

TEST(Ids, SymbolsOutsideTheVocabularyVanishWholeMarksAndAll) {
    TemporaryDirectory directory;
    const Phonemizer phonemizer =
        phonemizerWithVocabulary(directory, R"({"vocab": {"a": 1, "n\u0329": 2, " ": 3}})");
    EXPECT_THAT(phonemizer.ids(U"a n\u0329 q"), ElementsAre(1, 3, 2, 3));
    // "a" with a mark is a symbol of its own; its base is not tried alone.
    EXPECT_THAT(phonemizer.ids(U"a\u0301a"), ElementsAre(1));
    EXPECT_EQ(phonemizer.id(U"n\u0329"), 2);
    EXPECT_EQ(phonemizer.id(U"n"), std::nullopt);
}

TEST(Vocabulary, TheInnerTableOrTheTopLevelIsRead) {
    TemporaryDirectory directory;
    const Phonemizer inner = phonemizerWithVocabulary(directory, R"({"vocab": {"a": 5}, "b": 6})");
    EXPECT_EQ(inner.id(U"a"), 5);
    EXPECT_EQ(inner.id(U"b"), std::nullopt);
    // A "vocab" that is no object is just a member, skipped when it is no number.
    const Phonemizer top = phonemizerWithVocabulary(directory, R"({"vocab": "x", "b": 6})");
    EXPECT_EQ(top.id(U"b"), 6);
    EXPECT_EQ(top.id(U"vocab"), std::nullopt);
}

TEST(Vocabulary, NumbersAreReadAsIntegersAndOthersSkipped) {
    TemporaryDirectory directory;
    const Phonemizer phonemizer = phonemizerWithVocabulary(
        directory, R"({"a": 3.7, "b": -2, "c": "4", "d": null, "e": [1], "f": true,
                       "g": 1e300, "h": -1e300, "i": 18446744073709551615, "a": 9})");
    EXPECT_EQ(phonemizer.id(U"a"), 9);  // the later duplicate wins
    EXPECT_EQ(phonemizer.id(U"b"), -2);
    for (std::u32string_view skipped : {U"c", U"d", U"e", U"f"}) {
        EXPECT_EQ(phonemizer.id(skipped), std::nullopt) << encodeUtf8(skipped);
    }
    EXPECT_EQ(phonemizer.id(U"g"), std::numeric_limits<int64_t>::max());
    EXPECT_EQ(phonemizer.id(U"h"), std::numeric_limits<int64_t>::min());
    EXPECT_EQ(phonemizer.id(U"i"), std::numeric_limits<int64_t>::max());
    const Phonemizer fraction = phonemizerWithVocabulary(directory, R"({"a": 3.7, "b": -2.9})");
    EXPECT_EQ(fraction.id(U"a"), 3);
    EXPECT_EQ(fraction.id(U"b"), -2);
}

TEST(Vocabulary, DamagedFilesGiveTheirOwnErrors) {
    TemporaryDirectory directory;
    const Espeak espeak(testing::testVoiceDirectory());
    EXPECT_THROW(Phonemizer(directory / "absent.json", espeak), std::filesystem::filesystem_error);
    EXPECT_THROW(Phonemizer(directory.path(), espeak), std::filesystem::filesystem_error);
    for (const char* json : {"", "{\"a\": 1", "{\"a\": 1,", "\xff", "{\"a\": 1}}"}) {
        EXPECT_THROW(phonemizerWithVocabulary(directory, json), nlohmann::json::parse_error)
            << json;
    }
    // A number too large for a double is the parser's error too.
    EXPECT_THROW(phonemizerWithVocabulary(directory, R"({"a": 1e400})"), nlohmann::json::exception);
    for (const char* json : {"[1, 2]", "42", "\"vocab\"", "null", "{}", R"({"a": "1", "b": {}})",
                             R"({"vocab": {"a": "1"}, "b": 2})"}) {
        try {
            phonemizerWithVocabulary(directory, json);
            ADD_FAILURE() << "accepted " << json;
        } catch (const VoiceError& error) {
            EXPECT_STREQ(error.what(), "voice: vocab unreadable") << json;
        }
    }
}

TEST(Chunks, EnglishTextBecomesIdsOfTheVocabulary) {
    const Phonemizer phonemizer = testPhonemizer();
    const auto chunks = phonemizer.chunks("Hello, big world. This is the second sentence!");
    ASSERT_EQ(chunks.size(), 2u);  // one per sentence
    // "həlˈO, bˈɪɡ wˈɜɹld.": the comma sticks to the word before it; a space comes after it.
    std::vector<int64_t> expected;
    for (std::u32string_view symbol :
         {U"h", U"\u0259", U"l", U"\u02c8", U"O", U",", U" ", U"b", U"\u02c8", U"\u026a", U"\u0261",
          U" ", U"w", U"\u02c8", U"\u025c", U"\u0279", U"l", U"d", U"."}) {
        expected.push_back(*phonemizer.id(symbol));
    }
    EXPECT_EQ(chunks[0], expected);
    EXPECT_EQ(chunks[1].back(), *phonemizer.id(U"!"));
    EXPECT_THAT(phonemizer.chunks("Wait... for me"),
                ::testing::Contains(::testing::Contains(*phonemizer.id(U"\u2026"))));
}

TEST(Chunks, NothingSpeakableGivesNoChunks) {
    const Phonemizer phonemizer = testPhonemizer();
    EXPECT_THAT(phonemizer.chunks(""), IsEmpty());
    EXPECT_THAT(phonemizer.chunks("  \n\t ** __ "), IsEmpty());
    EXPECT_THAT(phonemizer.chunks("... ?! \u2014 - --"), IsEmpty());
    EXPECT_THAT(phonemizer.chunks("\xcc\x81\xcc\x81 \xe2\x83\x9d"), IsEmpty());  // lone marks
}

TEST(Chunks, AnOverlongSentenceIsCutAtItsCommaFirstAndNeverBeyond400) {
    const Phonemizer phonemizer = testPhonemizer();
    // A comma among the first eleven words does not end the sentence, so it stays in it.
    std::string text = "Well, we walked along the river";
    for (int i = 0; i < 12; ++i) {
        text += " and then along the little winding road";
    }
    text += " until we were home.";
    const auto chunks = phonemizer.chunks(text);
    ASSERT_GE(chunks.size(), 3u);
    EXPECT_EQ(chunks[0].back(), *phonemizer.id(U","));
    EXPECT_LT(chunks[0].size(), 10u);
    for (const auto& chunk : chunks) {
        EXPECT_LE(chunk.size(), Phonemizer::maxChunkIds);
        EXPECT_FALSE(chunk.empty());
    }
    EXPECT_EQ(chunks[1].back(), *phonemizer.id(U" "));
}

// Speaking starts on the first chunk handed over, so handing them over one by one must give
// exactly the list, and a caller that stops must get nothing more, even inside one sentence.
TEST(Chunks, HandedOverOneByOneTheyAreTheListsChunksAndStopWhenAsked) {
    const Phonemizer phonemizer = testPhonemizer();
    std::string text =
        "Hello there, my friend. Wait... what? ** Dr. Smith said 1984 was long ago! ";
    text += "Well, we walked along the river";
    for (int i = 0; i < 12; ++i) {
        text += " and then along the little winding road";
    }
    text += " until we were home. The end.";
    const auto expected = phonemizer.chunks(text);
    ASSERT_GE(expected.size(), 6u);

    std::vector<std::vector<int64_t>> handed;
    phonemizer.chunks(text, [&](std::vector<int64_t> chunk) {
        handed.push_back(std::move(chunk));
        return true;
    });
    EXPECT_EQ(handed, expected);

    // A stop anywhere, also between two chunks of the overlong sentence, ends the handing over.
    for (size_t stopAfter = 1; stopAfter <= expected.size(); ++stopAfter) {
        handed.clear();
        phonemizer.chunks(text, [&](std::vector<int64_t> chunk) {
            handed.push_back(std::move(chunk));
            return handed.size() < stopAfter;
        });
        EXPECT_EQ(handed, std::vector(expected.begin(), expected.begin() + stopAfter));
    }

    size_t calls = 0;
    phonemizer.chunks("  ** ... ", [&](std::vector<int64_t>) { return ++calls > 0; });
    EXPECT_EQ(calls, 0u);
}

// Odd text of every kind gives chunks of known ids, or none, and never hangs or crashes.
TEST(Chunks, OddTextNeverFails) {
    const Phonemizer phonemizer = testPhonemizer();
    std::set<int64_t> vocabulary;
    const nlohmann::json json =
        nlohmann::json::parse(readFile(testing::testVoiceDirectory() / "vocab.json"));
    for (const auto& [symbol, id] : json.at("vocab").items()) {
        vocabulary.insert(id.get<int64_t>());
    }
    std::string megabyte;
    while (megabyte.size() < (1 << 20)) {
        megabyte += "The quick brown fox, in 1984, met Dr. Who\xe2\x80\xa6 \xf0\x9f\x98\x80 ";
        megabyte += "\x01\x1b[0m \xd7\xa9\xd7\x9c\xd7\x95\xd7\x9d \xcc\x81 \xff\xc0 ... ";
        megabyte += std::string(300, 'a') + " \"((" + std::string(200, '.') + "))\" 1234567890 ";
    }
    const std::vector<std::string> texts = {
        "1234 5678 !!! ??? --- %%% $$$",
        "\xf0\x9f\x98\x80\xf0\x9f\x8e\x89 party \xf0\x9f\x98\x80",
        "\xd7\xa9\xd7\x9c\xd7\x95\xd7\x9d \xd8\xb3\xd9\x84\xd8\xa7\xd9\x85 \xe2\x80\x8f hello",
        std::string("a\0b\x01\x07\x1b[31mred\x7f\r\n end", 20),
        "\xcc\x81\xcc\x81\xcc\x81 a\xcc\x81\xcc\x81 \xe2\x80\x8d\xe2\x80\x8d",
        "\xff\xfe\xfd hello \xc0\xaf \xed\xa0\x80 world \xf4\x90\x80\x80",
        "\xe2\x85\xab \xe2\x92\xb6\xe2\x92\xb7 chapter \xe2\x85\xa0",
        megabyte};
    for (const std::string& text : texts) {
        for (const auto& chunk : phonemizer.chunks(text)) {
            EXPECT_FALSE(chunk.empty());
            EXPECT_LE(chunk.size(), Phonemizer::maxChunkIds);
            for (int64_t id : chunk) {
                ASSERT_TRUE(vocabulary.contains(id)) << id;
            }
        }
    }
}

TEST(Chunks, TwoThreadsGetWhatOneGets) {
    const Phonemizer phonemizer = testPhonemizer();
    const std::string first = "I have read it twice, in 1984 and since 2005. It lives on.";
    const std::string second = "Wind the clock, Dr. Smith. The lead pipe broke... Really?!";
    const auto expectedFirst = phonemizer.chunks(first);
    const auto expectedSecond = phonemizer.chunks(second);
    std::vector<std::vector<int64_t>> gotFirst[20], gotSecond[20];
    std::thread a([&] {
        for (auto& got : gotFirst) {
            got = phonemizer.chunks(first);
        }
    });
    std::thread b([&, copy = phonemizer] {
        for (auto& got : gotSecond) {
            got = copy.chunks(second);
        }
    });
    a.join();
    b.join();
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(gotFirst[i], expectedFirst);
        EXPECT_EQ(gotSecond[i], expectedSecond);
    }
}

}  // namespace
}  // namespace murmela
