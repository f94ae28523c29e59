// Cleaning text and finding the sentences, where speech may be cut; and UTF-8 at the edges,
// where ill-formed input never stops text processing.

#include "frontend/normalise.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "frontend/unicode.h"

namespace murmela {
namespace {

using namespace std::string_literals;

TEST(Unicode, IllFormedBytesBecomeOneReplacementEachAndDecodingGoesOn) {
    const std::string text = "a é ʧ 中 😀 \u200d";
    EXPECT_EQ(decodeUtf8(text), U"a é ʧ 中 😀 \u200d");
    EXPECT_EQ(encodeUtf8(decodeUtf8(text)), text);
    const char32_t replacement = U'\uFFFD';
    EXPECT_EQ(decodeUtf8("a\xffz"), U"a\uFFFDz");
    // A truncated sequence is one replacement, and the byte that broke it is read again.
    EXPECT_EQ(decodeUtf8("\xe4\xb8x"), U"\uFFFDx");
    EXPECT_EQ(decodeUtf8("\xf0\x9f\x98"), U"\uFFFD");
    // Overlong forms, surrogates and values past U+10FFFF are not scalars.
    EXPECT_EQ(decodeUtf8("\xc0\xaf"), std::u32string(2, replacement));
    EXPECT_EQ(decodeUtf8("\xed\xa0\x80"), std::u32string(3, replacement));
    EXPECT_EQ(decodeUtf8("\xf4\x90\x80\x80"), std::u32string(4, replacement));
    EXPECT_EQ(decodeUtf8("\0z"s), std::u32string(U"\0z", 2));
    const std::u32string bad = {U'a', char32_t{0xD800}, char32_t{0x110000}};
    EXPECT_EQ(encodeUtf8(bad), "a\uFFFD\uFFFD");
}

TEST(Unicode, TrimmingUsesTheWhiteSpaceListOnly) {
    EXPECT_EQ(trimmingWhitespace(U"\t\u00a0\u3000\u0085\u202f word \u2029\n"), U"word");
    EXPECT_EQ(trimmingWhitespace(U" \u200b "), U"\u200b");  // zero width space is not White_Space
    EXPECT_EQ(trimmingWhitespace(U"\u180e"), U"\u180e");
    EXPECT_EQ(trimmingWhitespace(U"   "), U"");
}

TEST(Normalise, MarkupAndWhiteSpaceRunsBecomeSingleSpaces) {
    EXPECT_EQ(normalise("# Title\n\n> **Bold** and _it_ | `code`\tend"),
              U"Title Bold and it code end");
    EXPECT_EQ(normalise("a\u00a0\u2003 \r\nb"), U"a b");
    EXPECT_EQ(normalise("word*#_word"), U"word word");
    EXPECT_EQ(normalise("  *** _ \n\t "), U"");
    EXPECT_EQ(normalise("ok \xff\xfe done"), U"ok \uFFFD\uFFFD done");
    // Not markup: these stay for the sentence rules and the word pieces.
    EXPECT_EQ(normalise("(a) \"b\" c-d"), U"(a) \"b\" c-d");
}

TEST(Sentences, WhereASentenceEnds) {
    const struct {
        const char* text;
        std::vector<std::string> sentences;
    } cases[] = {
        // A short opening stays with what follows; neither ";" nor "!" closes two words.
        {"Hi. How are you today?", {"Hi. How are you today?"}},
        {"Wait; Stop!", {"Wait; Stop!"}},
        // After the first sentence any length may close.
        {"One two three. Four five six. Seven.", {"One two three.", "Four five six.", "Seven."}},
        {"Are you there? Yes! Good: go; now", {"Are you there?", "Yes!", "Good:", "go;", "now"}},
        // Titles and short forms in any case do not close; a final "etc." never does.
        {"We met with MR. Smith and mR. Jones.", {"We met with MR. Smith and mR. Jones."}},
        {"We met them (Mr. Smith) or \"Dr. Who\" today.",
         {"We met them (Mr. Smith) or \"Dr. Who\" today."}},
        {"Take pears, e.g. ripe ones, etc. And then go.",
         {"Take pears, e.g. ripe ones, etc. And then go."}},
        {"We bought apples, pears etc.", {"We bought apples, pears etc."}},
        {"They live in Dr. Street. Then more.", {"They live in Dr. Street.", "Then more."}},
        // A comma closes only from the twelfth word.
        {"w1 w2 w3 w4 w5 w6 w7 w8 w9 w10 w11, w12 w13",
         {"w1 w2 w3 w4 w5 w6 w7 w8 w9 w10 w11, w12 w13"}},
        {"w1 w2 w3 w4 w5 w6 w7 w8 w9 w10 w11 w12, w13",
         {"w1 w2 w3 w4 w5 w6 w7 w8 w9 w10 w11 w12,", "w13"}},
        // Full stops inside quotes, brackets or ellipses run on.
        {"He said \"stop.\" Then he left.", {"He said \"stop.\" Then he left."}},
        {"It was over (for now.) Then more.", {"It was over (for now.) Then more."}},
        {"And so it goes\u2026 Then more.", {"And so it goes\u2026 Then more."}},
        // Nothing to say gives no sentence; numbers and other scripts count as speakable.
        {"- -- --- \u2026 \u2026 ** __ ## >", {}},
        {"Here we go now. ?! ... It costs 42.", {"Here we go now.", "It costs 42."}},
        {"One two three. \u216b. \u00bd.", {"One two three.", "\u216b.", "\u00bd."}},
        {"\u05e9\u05dc\u05d5\u05dd \u05e2\u05d5\u05dc\u05dd",
         {"\u05e9\u05dc\u05d5\u05dd \u05e2\u05d5\u05dc\u05dd"}},
    };
    for (const auto& each : cases) {
        std::vector<std::string> found;
        for (const std::u32string& sentence : sentences(normalise(each.text))) {
            found.push_back(encodeUtf8(sentence));
        }
        EXPECT_EQ(found, each.sentences) << each.text;
    }
}

std::vector<std::u32string> readSentences(const std::string& text) {
    std::vector<std::u32string> out;
    SentenceReader reader(text);
    while (std::optional<std::u32string> sentence = reader.next()) {
        out.push_back(std::move(*sentence));
    }
    EXPECT_EQ(reader.next(), std::nullopt);  // and stays used up
    return out;
}

// Speaking reads sentence by sentence, so the reader must find exactly the sentences that
// cleaning the whole text first finds, also where its stretches of bytes end inside a word, a
// multi-byte character or an ill-formed sequence.
TEST(SentenceReader, ReadsTheSentencesOfTheWholeCleanedText) {
    const std::string longWord(700, 'a'), longBytes(300, '\xd7');
    const std::string fragments[] = {
        "the",    "Dr.",      "e.g.",     "No.",    "1984",   " ",      " ",          "  ",
        ",",      ".",        "...",      "?!",     ":",      "*",      "**",         "#",
        "_",      "|",        ">",        "`",      "\t",     "\n\t",   "\u00a0",     "\u2003",
        "\u2026", "\u2014",   "\u0301",   "\u200d", "\u05e9", "\u2019", "\U0001f600", "\xff",
        "\xc0",   "\xe4\xb8", "\xf0\x9f", "\0"s,    longWord, longBytes};
    std::mt19937 random(7);
    for (int round = 0; round < 200; ++round) {
        std::string text;
        const size_t parts = 1 + random() % 400;
        for (size_t i = 0; i < parts; ++i) {
            text += fragments[random() % std::size(fragments)];
        }
        ASSERT_EQ(readSentences(text), sentences(normalise(text))) << "round " << round;
    }
}

}  // namespace
}  // namespace murmela
