// Cleaning text and finding the sentences: where speech may be cut.

#include "frontend/normalise.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "frontend/unicode.h"

namespace murmela {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<std::string> sentencesOf(const std::string& text) {
    std::vector<std::string> out;
    for (const std::u32string& sentence : sentences(normalise(text))) {
        out.push_back(encodeUtf8(sentence));
    }
    return out;
}

TEST(Normalise, MarkupAndWhiteSpaceRunsBecomeSingleSpaces) {
    EXPECT_EQ(normalise("# Title\n\n> **Bold** and _it_ | `code`\tend"),
              U"Title Bold and it code end");
    EXPECT_EQ(normalise("a\u00a0\u2003 \r\nb"), U"a b");
    EXPECT_EQ(normalise("word*#_word"), U"word word");
    EXPECT_EQ(normalise("  *** _ \n\t "), U"");
    EXPECT_EQ(normalise(""), U"");
    // Not markup: these stay for the sentence rules and the word pieces.
    EXPECT_EQ(normalise("(a) \"b\" c-d"), U"(a) \"b\" c-d");
}

TEST(Normalise, IllFormedBytesAreReplacedNotFatal) {
    EXPECT_EQ(normalise("ok \xff\xfe done"), U"ok \uFFFD\uFFFD done");
}

TEST(Sentences, AShortOpeningStaysWithWhatFollows) {
    EXPECT_THAT(sentencesOf("Hi. How are you today?"), ElementsAre("Hi. How are you today?"));
    // Neither ";" nor "!" may close a first sentence of two words.
    EXPECT_THAT(sentencesOf("Wait; Stop!"), ElementsAre("Wait; Stop!"));
}

TEST(Sentences, AfterTheFirstSentenceAnyLengthMayClose) {
    EXPECT_THAT(sentencesOf("One two three. Four five six. Seven."),
                ElementsAre("One two three.", "Four five six.", "Seven."));
    EXPECT_THAT(sentencesOf("Are you there? Yes! Good: go; now"),
                ElementsAre("Are you there?", "Yes!", "Good:", "go;", "now"));
}

TEST(Sentences, TitlesAndShortFormsDoNotCloseASentence) {
    EXPECT_THAT(sentencesOf("We met with Mr. Smith today."),
                ElementsAre("We met with Mr. Smith today."));
    EXPECT_THAT(sentencesOf("We met with MR. Smith and mR. Jones."), ::testing::SizeIs(1));
    EXPECT_THAT(sentencesOf("We met them (Mr. Smith) today."), ::testing::SizeIs(1));
    EXPECT_THAT(sentencesOf("He wrote to \"Dr. Who\" twice."), ::testing::SizeIs(1));
    EXPECT_THAT(sentencesOf("Take apples, pears, e.g. ripe ones, etc. And then go."),
                ::testing::SizeIs(1));
    // A final "etc." never closes, whatever follows.
    EXPECT_THAT(sentencesOf("We bought apples, pears etc."),
                ElementsAre("We bought apples, pears etc."));
    // Any other word with a full stop does.
    EXPECT_THAT(sentencesOf("They live in Dr. Street. Then more."),
                ElementsAre("They live in Dr. Street.", "Then more."));
}

TEST(Sentences, ACommaClosesOnlyFromTheTwelfthWord) {
    EXPECT_THAT(sentencesOf("w1 w2 w3 w4 w5 w6 w7 w8 w9 w10 w11, w12 w13"), ::testing::SizeIs(1));
    EXPECT_THAT(sentencesOf("w1 w2 w3 w4 w5 w6 w7 w8 w9 w10 w11 w12, w13"),
                ElementsAre("w1 w2 w3 w4 w5 w6 w7 w8 w9 w10 w11 w12,", "w13"));
}

TEST(Sentences, FullStopsInsideQuotesBracketsOrEllipsesRunOn) {
    EXPECT_THAT(sentencesOf("He said \"stop.\" Then he left."),
                ElementsAre("He said \"stop.\" Then he left."));
    EXPECT_THAT(sentencesOf("It was over (for now.) Then more."), ::testing::SizeIs(1));
    EXPECT_THAT(sentencesOf("And so it goes\u2026 Then more."), ::testing::SizeIs(1));
}

TEST(Sentences, NothingToSayGivesNoSentences) {
    EXPECT_THAT(sentencesOf("- -- ---"), IsEmpty());
    EXPECT_THAT(sentencesOf("\u2026 \u2026"), IsEmpty());
    EXPECT_THAT(sentencesOf("** __ ## >"), IsEmpty());
    EXPECT_THAT(sentencesOf(""), IsEmpty());
    // A sentence of punctuation between real ones vanishes; numbers count as speakable.
    EXPECT_THAT(sentencesOf("Here we go now. ?! ... It costs 42."),
                ElementsAre("Here we go now.", "It costs 42."));
    EXPECT_THAT(sentencesOf("One two three. \u216b. \u00bd."), ::testing::SizeIs(3));
    EXPECT_THAT(sentencesOf("\u05e9\u05dc\u05d5\u05dd \u05e2\u05d5\u05dc\u05dd"),
                ::testing::SizeIs(1));
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
    const std::vector<std::string> texts = {
        "",
        "   ",
        "Hi.",
        "Hi. There we go. And again!",
        "# Title\n\n> **Bold** and _it_ | `code`\tend. Then more.",
        "word*#_word. Dr. Smith, e.g. the one, met Mr. Jones... Really?! Yes: no; maybe.",
        "- -- --- Here we go now. ?! ... It costs 42.",
        "ok \xff\xfe done. \xe4\xb8 half \xf0\x9f\x98\x80 smile. \xc0\xaf end",
        "And so it goes\u2026 Then more. (for now.) \u05e9\u05dc\u05d5\u05dd "
        "\u05e2\u05d5\u05dc\u05dd"};
    for (const std::string& text : texts) {
        EXPECT_EQ(readSentences(text), sentences(normalise(text))) << text;
    }

    const std::vector<std::string> fragments = {"the",
                                                "Dr.",
                                                "e.g.",
                                                "No.",
                                                "1984",
                                                " ",
                                                " ",
                                                "  ",
                                                ",",
                                                ".",
                                                "...",
                                                "?!",
                                                ":",
                                                "*",
                                                "**",
                                                "#",
                                                "_",
                                                "|",
                                                ">",
                                                "`",
                                                "\t",
                                                "\n",
                                                "\u00a0",
                                                "\u2003",
                                                "\u2026",
                                                "\u2014",
                                                "\xcc\x81",
                                                "\xe2\x80\x8d",
                                                "\xd7\xa9",
                                                "\xf0\x9f\x98\x80",
                                                "\xff",
                                                "\xc0",
                                                "\xe4\xb8",
                                                "\xf0\x9f",
                                                std::string(1, '\0'),
                                                std::string(700, 'a'),
                                                std::string(300, '\xd7')};
    std::mt19937 random(7);
    for (int round = 0; round < 200; ++round) {
        std::string text;
        const size_t parts = 1 + random() % 400;
        for (size_t i = 0; i < parts; ++i) {
            text += fragments[random() % fragments.size()];
        }
        ASSERT_EQ(readSentences(text), sentences(normalise(text))) << "round " << round;
    }
}

}  // namespace
}  // namespace murmela
