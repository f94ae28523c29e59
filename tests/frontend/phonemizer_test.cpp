// Text to ids: the espeak-ng context (against the real library, files and links), the fix-up
// tables, the symbol rule, the vocabulary file, the chunk split and the whole path to chunks.

#include "frontend/phonemizer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "common/voice_error.h"
#include "frontend/unicode.h"
#include "support/environment.h"
#include "support/temporary_directory.h"
#include "support/test_voice.h"

namespace murmela {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::TemporaryDirectory;
using ::testing::ThrowsMessage;

std::string ipa(const Espeak& espeak, const std::string& text) {
    return encodeUtf8(espeak.phonemes(decodeUtf8(text)));
}

// A voice directory (just espeak-ng's data) whose absolute path plus the suffix espeak-ng adds
// ("/espeak-ng-data/phondata-manifest") is `bytes` long, padded with `filler`.
fs::path voiceDirectoryOfLength(const fs::path& base, size_t bytes, const std::string& filler) {
    bytes -= std::string_view("/espeak-ng-data/phondata-manifest").size();
    std::string path = base.string() + "/";
    while (path.size() + filler.size() <= bytes) {
        path += filler;
    }
    path.append(bytes - path.size(), 'x');
    fs::create_directories(path);
    fs::create_directory_symlink(testing::testVoiceDirectory() / "espeak-ng-data",
                                 fs::path(path) / "espeak-ng-data");
    return path;
}

TEST(Espeak, PathsPast149Utf8BytesAreReachedThroughALinkInTheTemporaryDirectory) {
    TemporaryDirectory links("m");
    TemporaryDirectory voices;
    const testing::ScopedVariable tmpdir("TMPDIR", links.path());
    const fs::path link = links / ("murmela-" + std::to_string(::getpid()));

    const fs::path fits = voiceDirectoryOfLength(voices / "a", 149, "v");
    EXPECT_EQ(Espeak::linkedPath(fits), fits.string());
    EXPECT_FALSE(fs::exists(fs::symlink_status(link)));

    // 150 bytes, fewer characters: "é" is two bytes.
    const fs::path accented = voiceDirectoryOfLength(voices / "b", 150, "é");
    EXPECT_EQ(Espeak::linkedPath(accented), link.string());
    EXPECT_EQ(fs::read_symlink(link), accented);

    // A link to elsewhere is replaced, and the library really starts through it.
    const fs::path tooLong = voiceDirectoryOfLength(voices / "c", 150, "v");
    EXPECT_EQ(Espeak::linkedPath(tooLong), link.string());
    EXPECT_EQ(fs::read_symlink(link), tooLong);
    EXPECT_EQ(ipa(Espeak(tooLong), "cat"), "kˈæt");
}

TEST(Espeak, LinkFailuresAreReported) {
    TemporaryDirectory voices;
    const fs::path voice = voiceDirectoryOfLength(voices / "e", 200, "v");
    {
        const testing::ScopedVariable tmpdir("TMPDIR", voices / "no" / "such" / "directory");
        EXPECT_THROW(Espeak::linkedPath(voice), fs::filesystem_error);
    }
    // A temporary directory so deep that even the link is too long for espeak-ng.
    fs::create_directories(voices / std::string(130, 't'));
    const testing::ScopedVariable tmpdir("TMPDIR", voices / std::string(130, 't'));
    EXPECT_THAT([&] { Espeak::linkedPath(voice); },
                ThrowsMessage<VoiceError>("voice: espeak-ng path unreadable"));
}

TEST(Espeak, ADirectoryStartsTheLibraryOnceAndAFailureCanBeRetried) {
    TemporaryDirectory voice;
    EXPECT_THAT([&] { Espeak{voice.path()}; },
                ThrowsMessage<VoiceError>("voice: espeak-ng data unreadable"));
    // The failed attempt recorded nothing: once the data is there, the same path works.
    fs::copy(testing::testVoiceDirectory() / "espeak-ng-data", voice / "espeak-ng-data",
             fs::copy_options::recursive);
    EXPECT_EQ(ipa(Espeak(voice.path()), "dog"), "dˈɑːɡ");
    // Were the library started again, it would now fail: its data is gone.
    fs::rename(voice / "espeak-ng-data", voice / "moved");
    EXPECT_EQ(ipa(Espeak(voice.path()), "dog"), "dˈɑːɡ");
}

TEST(Espeak, ClausesAreJoinedByOneSpaceAndEmptyOnesDropped) {
    Espeak espeak(testing::testVoiceDirectory());
    EXPECT_EQ(ipa(espeak, ""), "");
    EXPECT_EQ(ipa(espeak, "   "), "");
    EXPECT_EQ(ipa(espeak, "The cat sat. A dog, too."), "ðə kˈæt sˈæt ɐ dˈɑːɡ tˈuː");
    EXPECT_EQ(ipa(espeak, "church"), "t^ʃˈɜːt^ʃ");  // multi-letter phonemes carry the tie
    std::string punctuationOnly = ipa(espeak, "?!;");
    EXPECT_EQ(punctuationOnly.find("  "), std::string::npos);
    EXPECT_NE(punctuationOnly.back(), ' ');
}

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

TEST(SplitIds, CutsAfterTheCommaElseTheSpaceNearestTheMiddleUntilEachHoldsAtMost400) {
    const struct {
        size_t count;
        std::vector<size_t> commas, spaces, sizes;
    } cases[] = {
        {0, {}, {}, {}},
        {400, {}, {}, {400}},
        {401, {}, {}, {200, 201}},
        {401, {10}, {200}, {11, 390}},                // a comma anywhere beats a space
        {401, {400}, {300}, {301, 100}},              // nothing would be left right of the last
        {402, {}, {100, 250}, {251, 151}},            // the nearest to the middle (201)
        {402, {}, {100, 199, 203, 250}, {200, 202}},  // and the earlier on a tie
        {1000, {}, {}, {250, 250, 250, 250}},         // halved again and again
        {801, {}, {}, {400, 200, 201}},               // a half of 400 is cut no further
    };
    for (const auto& each : cases) {
        std::vector<int64_t> ids(each.count, other);
        for (size_t at : each.commas) {
            ids[at] = comma;
        }
        for (size_t at : each.spaces) {
            ids[at] = space;
        }
        EXPECT_EQ(chunkSizes(Phonemizer::splitIds(ids, comma, space)), each.sizes) << each.count;
    }
    // A vocabulary without a space: the middle.
    std::vector<int64_t> ids(401, space);
    EXPECT_THAT(chunkSizes(Phonemizer::splitIds(ids, comma, std::nullopt)), ElementsAre(200, 201));
}

TEST(CleanPhonemes, TheFixUpsRunInTheirOrder) {
    const std::pair<std::u32string_view, const char*> cases[] = {
        // Tied phonemes become one symbol before their parts are touched.
        {U"e^\u026a", "A"},
        {U"\u0259^l", "\u1d4al"},
        // Syllabic consonants get a schwa after the glottal stop is replaced: ʔn̩ → tn.
        {U"n\u0329", "\u1d4an"},
        {U"b\u02c8\u028c\u0294n\u0329", "b\u02c8\u028ctn"},
        {U"l\u0329 \u0329x", "\u1d4al k"},  // a stray mark after a space goes
        {U"\u0329a", "a"},
        // The second table in its own order.
        {U"\u025c\u02d0\u0279", "\u025c\u0279"},  // ɜːɹ → ɜɹ, one ɹ
        {U"\u025c\u02d0", "\u025c\u0279"},
        {U"\u026a\u0259 i\u02d0 o", "i\u0259 i \u0254"},
        {U"\u025a r \u00e7 \u0250 \u026c \u02b2o \u02b2\u0259 \u02b2",
         "\u0259\u0279 \u0279 k \u0259 l j\u0254 j\u0259 "},  // trimmed before, not after
        {U"  a\u0303 \n", "a"},                               // a nasal vowel is plain "a"
    };
    for (const auto& [phonemes, expected] : cases) {
        EXPECT_EQ(encodeUtf8(Phonemizer::cleanPhonemes(phonemes)), expected) << expected;
    }
}

TEST(Symbols, ReplacingSplittingBlankingAndPassingThrough) {
    // Left to right, without overlap or rescanning.
    EXPECT_EQ(replacing(U"aaa", U"aa", U"b"), U"ba");
    EXPECT_EQ(replacing(U"ab", U"a", U"aa"), U"aab");
    EXPECT_EQ(replacing(U"abc", U"", U"x"), U"abc");
    EXPECT_EQ(replacing(U"ab", U"abc", U"x"), U"ab");
    EXPECT_EQ(replacing(U"xax", U"x", U""), U"a");

    // Marks and joiners stay with their base.
    EXPECT_THAT(Phonemizer::splitSymbols(U"\u02c8an\u0329"),
                ElementsAre(U"\u02c8", U"a", U"n\u0329"));
    EXPECT_THAT(Phonemizer::splitSymbols(U"\u0301\u0301a"), ElementsAre(U"\u0301\u0301", U"a"));
    EXPECT_THAT(Phonemizer::splitSymbols(U"a\u200d\u0301b"),
                ElementsAre(U"a\u200d", U"\u0301", U"b"));
    EXPECT_THAT(Phonemizer::splitSymbols(U"a^\u026a\u20dd"),
                ElementsAre(U"a", U"^", U"\u026a\u20dd"));  // Me
    EXPECT_THAT(Phonemizer::splitSymbols(U""), IsEmpty());

    // Roman numerals and circled letters become spaces.
    EXPECT_EQ(blankUnspeakable(U"\u2160\u2182\u2183\u2184\u2185\u2188\u24b6\u24e9\u24ea a"),
              U"  \u2183\u2184    \u24ea a");

    // Only runs of the eight punctuation symbols skip espeak-ng.
    for (std::u32string_view piece : {U"...", U"\u2026", U"?!", U",;:\u2014"}) {
        EXPECT_TRUE(Phonemizer::isPassThrough(piece)) << encodeUtf8(piece);
    }
    for (std::u32string_view piece : {U"-", U"", U".\u0301", U"a."}) {
        EXPECT_FALSE(Phonemizer::isPassThrough(piece)) << encodeUtf8(piece);
    }
}

Phonemizer testPhonemizer() {
    return Phonemizer(testing::testVoiceDirectory() / "vocab.json",
                      Espeak(testing::testVoiceDirectory()));
}

Phonemizer phonemizerWithVocabulary(const TemporaryDirectory& directory, const std::string& json) {
    testing::writeText(directory / "vocab.json", json);
    return Phonemizer(directory / "vocab.json", Espeak(testing::testVoiceDirectory()));
}

TEST(Vocabulary, TheInnerTableOrTheTopLevelMapsSymbolsToIntegers) {
    TemporaryDirectory directory;
    const Phonemizer inner =
        phonemizerWithVocabulary(directory, R"({"vocab": {"a": 5, "n\u0329": 2, " ": 3}, "b": 6})");
    EXPECT_EQ(inner.id(U"b"), std::nullopt);
    // Symbols outside the vocabulary vanish, marks and all; "a" with a mark is a symbol of its
    // own, and its base is not tried alone.
    EXPECT_THAT(inner.ids(U"a n\u0329 q a\u0301"), ElementsAre(5, 3, 2, 3, 3));
    EXPECT_EQ(inner.id(U"n"), std::nullopt);
    // A "vocab" that is no object is just a member, skipped when it is no number.
    const Phonemizer top = phonemizerWithVocabulary(directory, R"({"vocab": "x", "b": 6})");
    EXPECT_EQ(top.id(U"b"), 6);
    EXPECT_EQ(top.id(U"vocab"), std::nullopt);

    const Phonemizer phonemizer = phonemizerWithVocabulary(
        directory, R"({"a": 3.7, "b": -2.9, "c": "4", "d": null, "e": [1], "f": true,
                       "g": 1e300, "h": -1e300, "i": 18446744073709551615, "j": 2, "j": 9})");
    EXPECT_EQ(phonemizer.id(U"a"), 3);
    EXPECT_EQ(phonemizer.id(U"b"), -2);
    for (std::u32string_view skipped : {U"c", U"d", U"e", U"f"}) {
        EXPECT_EQ(phonemizer.id(skipped), std::nullopt) << encodeUtf8(skipped);
    }
    EXPECT_EQ(phonemizer.id(U"g"), std::numeric_limits<int64_t>::max());
    EXPECT_EQ(phonemizer.id(U"h"), std::numeric_limits<int64_t>::min());
    EXPECT_EQ(phonemizer.id(U"i"), std::numeric_limits<int64_t>::max());
    EXPECT_EQ(phonemizer.id(U"j"), 9);  // the later duplicate wins
}

TEST(Vocabulary, DamagedFilesGiveTheirOwnErrors) {
    TemporaryDirectory directory;
    const Espeak espeak(testing::testVoiceDirectory());
    EXPECT_THROW(Phonemizer(directory / "absent.json", espeak), fs::filesystem_error);
    EXPECT_THROW(Phonemizer(directory.path(), espeak), fs::filesystem_error);
    for (const char* json : {"", "{\"a\": 1", "{\"a\": 1,", "\xff", "{\"a\": 1}}"}) {
        EXPECT_THROW(phonemizerWithVocabulary(directory, json), nlohmann::json::parse_error)
            << json;
    }
    // A number too large for a double is the parser's error too.
    EXPECT_THROW(phonemizerWithVocabulary(directory, R"({"a": 1e400})"), nlohmann::json::exception);
    for (const char* json : {"[1, 2]", "42", "\"vocab\"", "null", "{}", R"({"a": "1", "b": {}})",
                             R"({"vocab": {"a": "1"}, "b": 2})"}) {
        EXPECT_THAT([&] { phonemizerWithVocabulary(directory, json); },
                    ThrowsMessage<VoiceError>("voice: vocab unreadable"))
            << json;
    }
}

TEST(Chunks, EnglishTextBecomesIdsOfTheVocabulary) {
    const Phonemizer phonemizer = testPhonemizer();
    const auto chunks =
        testing::allChunks(phonemizer, "Hello, big world. This is the second sentence!");
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
    EXPECT_THAT(testing::allChunks(phonemizer, "Wait... for me"),
                ::testing::Contains(::testing::Contains(*phonemizer.id(U"\u2026"))));
    // Nothing speakable: no chunks.
    for (const char* text :
         {"", "  \n\t ** __ ", "... ?! \u2014 - --", "\xcc\x81\xcc\x81 \u20dd"}) {
        EXPECT_THAT(testing::allChunks(phonemizer, text), IsEmpty()) << text;
    }
}

// "Well, we walked ... home.": one sentence of over 400 ids whose comma comes early.
std::string overlongSentence() {
    std::string text = "Well, we walked along the river";
    for (int i = 0; i < 12; ++i) {
        text += " and then along the little winding road";
    }
    return text + " until we were home.";
}

// Speaking starts on the first chunk handed over, so handing them over one by one must give
// exactly the list, and a caller that stops must get nothing more, even inside one sentence.
TEST(Chunks, HandedOverOneByOneTheyAreTheListsChunksAndStopWhenAsked) {
    const Phonemizer phonemizer = testPhonemizer();
    const std::string text =
        "Hello there, my friend. Wait... what? ** Dr. Smith said 1984 was long ago! " +
        overlongSentence() + " The end.";
    const auto expected = testing::allChunks(phonemizer, text);
    ASSERT_GE(expected.size(), 6u);
    // The overlong sentence is cut after its early comma first: "Well," is a chunk of its own.
    EXPECT_TRUE(std::ranges::any_of(expected, [&](const std::vector<int64_t>& chunk) {
        return chunk.size() < 10 && chunk.back() == *phonemizer.id(U",");
    }));
    for (size_t stopAfter = 1; stopAfter <= expected.size() + 1; ++stopAfter) {
        std::vector<std::vector<int64_t>> handed;
        phonemizer.chunks(text, [&](std::vector<int64_t> chunk) {
            handed.push_back(std::move(chunk));
            return handed.size() < stopAfter;
        });
        const size_t count = std::min(stopAfter, expected.size());
        EXPECT_EQ(handed, std::vector(expected.begin(), expected.begin() + count));
    }
}

// A megabyte of odd text (long words, runs of full stops in quotes, control codes, ill-formed
// bytes, other scripts) gives chunks the model can take, and neither hangs nor crashes. The
// fuzzers check the same on short inputs of every kind.
TEST(Chunks, AMegabyteOfOddTextGivesChunksOfAtMost400Ids) {
    std::string text;
    while (text.size() < (1 << 20)) {
        text +=
            "The quick brown fox, in 1984, met Dr. Who\u2026 \U0001f600 \x01\x1b[0m \u05e9 "
            "\xcc\x81 " +
            std::string(300, 'a') + " \xff\xc0 \"((" + std::string(200, '.') + "))\" 1234567890 ";
    }
    for (const auto& chunk : testing::allChunks(testPhonemizer(), text)) {
        ASSERT_TRUE(!chunk.empty() && chunk.size() <= Phonemizer::maxChunkIds) << chunk.size();
    }
}

// Copies share espeak-ng and the vocabulary; callers on two threads get what one alone gets.
TEST(Chunks, TwoThreadsGetWhatOneGets) {
    const Phonemizer phonemizer = testPhonemizer();
    const std::string texts[] = {"I have read it twice, in 1984 and since 2005. It lives on.",
                                 "Wind the clock, Dr. Smith. The lead pipe broke... Really?!"};
    const std::vector<std::vector<int64_t>> expected[] = {testing::allChunks(phonemizer, texts[0]),
                                                          testing::allChunks(phonemizer, texts[1])};
    auto work = [&](const Phonemizer& own, size_t text) {
        for (int round = 0; round < 20; ++round) {
            EXPECT_EQ(testing::allChunks(own, texts[text]), expected[text]);
        }
    };
    std::thread a(work, std::cref(phonemizer), 0);
    std::thread b(work, phonemizer, 1);  // a copy
    a.join();
    b.join();
}

}  // namespace
}  // namespace murmela
