// Sentence pieces and word rewriting, without espeak-ng: what each piece says and what
// context each rewrite sees.

#include "frontend/pieces.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "frontend/normalise.h"
#include "frontend/unicode.h"
#include "frontend/word_tables.h"

namespace murmela {
namespace {

using ::testing::ElementsAre;

std::vector<std::string> piecesOf(const std::string& sentence) {
    std::vector<std::string> out;
    for (const std::u32string& piece : pieces(decodeUtf8(sentence))) {
        out.push_back(encodeUtf8(piece));
    }
    return out;
}

// The rewrite of `word` in a sentence "<previous> <word> <following...>"; "" when unchanged.
std::string rewritten(const std::string& previous, const std::string& word,
                      const std::vector<std::string>& following = {}) {
    std::vector<std::u32string> next;
    for (const std::string& each : following) {
        next.push_back(decodeUtf8(each));
    }
    const std::u32string previousScalars = decodeUtf8(previous);
    std::optional<std::u32string_view> before;
    if (!previous.empty()) {
        before = previousScalars;
    }
    const auto result = rewrite(decodeUtf8(word), before, next);
    return result ? encodeUtf8(*result) : "";
}

TEST(Pieces, WordRunsAndPunctuationRunsAlternate) {
    EXPECT_THAT(piecesOf("Hello there, my friend."),
                ElementsAre("Hello there", ",", "my friend", "."));
    EXPECT_THAT(piecesOf("no punctuation at all"), ElementsAre("no punctuation at all"));
    EXPECT_THAT(piecesOf("Really?! Yes \u2014 sure; fine: ok"),
                ElementsAre("Really", "?!", "Yes", "\u2014", "sure", ";", "fine", ":", "ok"));
    // A hyphen is part of the words, for espeak-ng to read or skip.
    EXPECT_THAT(piecesOf("well - maybe"), ElementsAre("well - maybe"));
}

TEST(Pieces, QuotesAndBracketsNeverReachTheWords) {
    EXPECT_THAT(piecesOf("\"Hello,\" she said (quietly)."),
                ElementsAre("Hello", ",", "she said quietly", "."));
    EXPECT_THAT(piecesOf("[\u201cit\u2019s\u201d] *really* `so` #1"),
                ElementsAre("it\u2019s really so 1"));
    EXPECT_THAT(piecesOf("end.\") \" next"), ElementsAre("end", ".", "next"));
    // A full stop with a mark on it is no punctuation and stays in the word.
    EXPECT_THAT(piecesOf("a b.\u0301"), ElementsAre("a b.\u0301"));
}

TEST(Pieces, RunsOfFullStopsBecomeOneEllipsis) {
    EXPECT_THAT(piecesOf("Wait... what.. now?.. ok."),
                ElementsAre("Wait", "\u2026", "what", "\u2026", "now", "?\u2026", "ok", "."));
    EXPECT_THAT(piecesOf("So \u2026 fine"), ElementsAre("So", "\u2026", "fine"));
}

TEST(Pieces, DottedAbbreviationsKeepTheirFullStop) {
    EXPECT_THAT(piecesOf("Dr. Smith met Mr. Jones at 9 a.m. today."),
                ElementsAre("doctor Smith met mister Jones at 9 a.m today", "."));
    // At the end of the sentence the same full stop ends it too.
    EXPECT_THAT(piecesOf("They live in the U.S."), ElementsAre("They live in the u.s", "."));
    EXPECT_THAT(piecesOf("fruit, e.g., apples"),
                ElementsAre("fruit", ",", "for example", ",", "apples"));
    // "No." is a number sign only before a number.
    EXPECT_THAT(piecesOf("It was No. 5 then."), ElementsAre("It was number 5 then", "."));
    EXPECT_THAT(piecesOf("She said no. Then"), ElementsAre("She said no", ".", "Then"));
    EXPECT_THAT(piecesOf("St. Louis is on Main St. here"),
                ElementsAre("saint Louis is on Main street here"));
    // Two full stops are an ellipsis, not an abbreviation's stop.
    EXPECT_THAT(piecesOf("and etc.. more"), ElementsAre("and etc", "\u2026", "more"));
}

TEST(Pieces, PunctuationCutsTheContextOfRewrites) {
    // "pipe" after the comma is no following word of "lead"; "pipe" before it no previous.
    EXPECT_THAT(piecesOf("a lead pipe"), ElementsAre("a led pipe"));
    EXPECT_THAT(piecesOf("a lead, pipe"), ElementsAre("a lead", ",", "pipe"));
    EXPECT_THAT(piecesOf("the pipe, lead it"), ElementsAre("the pipe", ",", "lead it"));
    // At most four following words: "yesterday" fifth after "read" is not seen.
    EXPECT_THAT(piecesOf("I read the old book yesterday"),
                ElementsAre("eye red the old book yesterday"));
    EXPECT_THAT(piecesOf("I read the big old red book yesterday"),
                ElementsAre("eye read the big old red book yesterday"));
    // A following word with punctuation is the last one seen.
    EXPECT_THAT(piecesOf("I read it. Yesterday"), ElementsAre("eye read it", ".", "Yesterday"));
}

TEST(Rewrite, PronounIIsRespeltUnlessAnAuxiliaryFollows) {
    EXPECT_EQ(rewritten("", "I", {"think"}), "eye");
    EXPECT_EQ(rewritten("Am", "I", {"right"}), "eye");  // inverted question: stressed
    EXPECT_EQ(rewritten("do", "I"), "eye");
    EXPECT_EQ(rewritten("", "I", {"am", "right"}), "");  // statement: espeak-ng's weak form
    EXPECT_EQ(rewritten("", "I", {"Can't", "go"}), "");
    EXPECT_EQ(rewritten("", "I", {"won\u2019t"}), "");
    EXPECT_EQ(rewritten("", "I'm", {"here"}), "eim");
    EXPECT_EQ(rewritten("", "I\u2019ll", {"go"}), "isle");
    EXPECT_EQ(rewritten("", "I've"), "ive");
    EXPECT_EQ(rewritten("", "I'D", {"say"}), "eyed");
    EXPECT_EQ(rewritten("", "I'd", {"have", "gone"}), "");
    // Lower case "i" and other words that begin with "I" are left alone.
    EXPECT_EQ(rewritten("", "i", {"think"}), "");
    EXPECT_EQ(rewritten("", "i'm"), "");
    EXPECT_EQ(rewritten("", "Ice"), "");
    EXPECT_EQ(rewritten("", "It's"), "");
}

TEST(Rewrite, NamesAreRespeltInAnyCase) {
    EXPECT_EQ(rewritten("", "Tchaikovsky"), "chykoffsky");
    EXPECT_EQ(rewritten("by", "CHOPIN"), "showpan");
    EXPECT_EQ(rewritten("", "goethe"), "gerta");
    EXPECT_EQ(rewritten("", "Chopin's"), "");
}

TEST(Rewrite, EveryDottedAbbreviationIsReadAsAWord) {
    // Whatever the set holds: an entry without a reading would stop the program here.
    for (const std::u32string& abbreviation : dottedAbbreviations()) {
        for (const char* next : {"Next", "5", "and"}) {
            const std::string reading = rewritten("", encodeUtf8(abbreviation), {next});
            EXPECT_FALSE(reading.empty() || reading.back() == '.') << encodeUtf8(abbreviation);
        }
    }
    EXPECT_EQ(rewritten("", "Prof.", {"Next"}), "professor");
    EXPECT_EQ(rewritten("", "P.M."), "p.m");  // letter by letter, without the closing stop
    EXPECT_EQ(rewritten("", "St.", {"Louis"}), "saint");
    EXPECT_EQ(rewritten("Main", "st.", {"and"}), "street");
    EXPECT_EQ(rewritten("", "No.", {"5"}), "number");
    EXPECT_EQ(rewritten("", "No.", {"way"}), "no");
    // Without its full stop a word is not an abbreviation.
    EXPECT_EQ(rewritten("", "Dr"), "");
}

TEST(Rewrite, TheSentenceSetAndTheDottedSetDifferOnPurpose) {
    // First: the sentence set is keyed without the final full stop, and each of its entries is
    // read as a word too.
    std::vector<std::string> onlyDotted;
    for (const std::u32string& dotted : dottedAbbreviations()) {
        if (!abbreviations().contains(dotted.substr(0, dotted.size() - 1))) {
            onlyDotted.push_back(encodeUtf8(dotted));
        }
    }
    EXPECT_EQ(abbreviations().size() + onlyDotted.size(), dottedAbbreviations().size());
    // Second: these are read as words but may end a sentence ("It starts at 9 a.m.").
    EXPECT_THAT(onlyDotted,
                ::testing::UnorderedElementsAre("prof.", "a.m.", "p.m.", "u.s.", "approx."));
    EXPECT_THAT(sentences(U"We met our teacher, the Prof. She spoke at 9 a.m. Then we left."),
                ::testing::SizeIs(3));
    EXPECT_THAT(sentences(U"We met our teacher, Dr. Lee. She spoke at length."),
                ::testing::SizeIs(2));
}

TEST(Rewrite, LeadIsTheMetalOnlyNextToMetal) {
    EXPECT_EQ(rewritten("a", "lead", {"pipe"}), "led");
    EXPECT_EQ(rewritten("", "Lead", {"poisoning", "is"}), "led");
    EXPECT_EQ(rewritten("pencil", "lead"), "led");
    EXPECT_EQ(rewritten("to", "lead", {"the", "team"}), "");
    EXPECT_EQ(rewritten("they", "lead"), "");
    // Only the word right after counts.
    EXPECT_EQ(rewritten("", "lead", {"the", "pipe"}), "");
}

TEST(Rewrite, LivesIsTheVerbAfterASubjectOrBeforeAPlace) {
    EXPECT_EQ(rewritten("she", "lives", {"here"}), "livs");
    EXPECT_EQ(rewritten("who", "lives", {"next", "door"}), "livs");
    EXPECT_EQ(rewritten("Tom", "lives", {"here"}), "livs");
    EXPECT_EQ(rewritten("nine", "lives"), "");
    EXPECT_EQ(rewritten("their", "lives", {"there"}), "");
    EXPECT_EQ(rewritten("saved", "lives"), "");
}

TEST(Rewrite, WindIsTheVerbAfterAVerbWordOrBeforeAnObject) {
    EXPECT_EQ(rewritten("", "Wind", {"the", "clock"}), "wined");
    EXPECT_EQ(rewritten("", "wind", {"up"}), "wined");
    EXPECT_EQ(rewritten("to", "wind"), "wined");
    EXPECT_EQ(rewritten("please", "wind", {"it"}), "wined");
    EXPECT_EQ(rewritten("it", "winds", {"down"}), "wineds");
    EXPECT_EQ(rewritten("road", "winds", {"back"}), "wineds");
    EXPECT_EQ(rewritten("the", "wind", {"blew"}), "");
    EXPECT_EQ(rewritten("the", "wind", {"up", "north"}), "");
    EXPECT_EQ(rewritten("of", "wind", {"up"}), "");
    EXPECT_EQ(rewritten("and", "wind"), "");
    EXPECT_EQ(rewritten("", "winds", {"of", "change"}), "");
}

TEST(Rewrite, ReadIsThePastAfterAPerfectWordOrBeforeAPastTime) {
    EXPECT_EQ(rewritten("have", "read", {"it"}), "red");
    EXPECT_EQ(rewritten("I've", "read"), "red");
    EXPECT_EQ(rewritten("never", "read", {"it"}), "red");
    EXPECT_EQ(rewritten("I", "read", {"it", "yesterday"}), "red");
    EXPECT_EQ(rewritten("we", "read", {"it", "two", "days", "ago"}), "red");
    EXPECT_EQ(rewritten("will", "read", {"it", "yesterday"}), "");
    EXPECT_EQ(rewritten("to", "read", {"it", "before"}), "");
    EXPECT_EQ(rewritten("", "Read", {"it", "before", "signing"}), "");  // a command
    EXPECT_EQ(rewritten("I", "read", {"it", "now"}), "");
}

TEST(Rewrite, FourDigitsAfterAWordOfTimeAreAYear) {
    EXPECT_EQ(rewritten("in", "1984"), "nineteen eighty-four");
    EXPECT_EQ(rewritten("since", "2005"), "two thousand five");
    EXPECT_EQ(rewritten("by", "1900"), "nineteen hundred");
    EXPECT_EQ(rewritten("In", "2024"), "twenty twenty-four");
    EXPECT_EQ(rewritten("until", "1905"), "nineteen oh five");
    EXPECT_EQ(rewritten("from", "2000"), "two thousand");
    EXPECT_EQ(rewritten("after", "1066"), "ten sixty-six");
    EXPECT_EQ(rewritten("year", "2010"), "twenty ten");
    EXPECT_EQ(rewritten("circa", "1812"), "eighteen twelve");
    // Digits of another script have the same values.
    EXPECT_EQ(rewritten("in", "\u0661\u0669\u0668\u0664"), "nineteen eighty-four");
    // Other numbers are left to espeak-ng.
    EXPECT_EQ(rewritten("about", "1984"), "");
    EXPECT_EQ(rewritten("", "1984"), "");
    EXPECT_EQ(rewritten("in", "0800"), "");
    EXPECT_EQ(rewritten("in", "19845"), "");
    EXPECT_EQ(rewritten("in", "198"), "");
    EXPECT_EQ(rewritten("in", "19a4"), "");
}

TEST(Rewrite, DigitsOfOtherScriptsAreReadAsTheSameNumber) {
    EXPECT_EQ(rewritten("", "\u09ea\u09eb"), "45");  // Bengali
    EXPECT_EQ(rewritten("Room", "\u0a69"), "3");     // Gurmukhi
    EXPECT_EQ(rewritten("", "4\u0be9rd"), "43rd");   // Tamil among ASCII
    EXPECT_EQ(rewritten("", "\uff11\uff12"), "12");  // full width
    EXPECT_EQ(rewritten("", "42"), "");
    EXPECT_EQ(rewritten("", "\u00bd"), "");  // not a decimal digit
}

}  // namespace
}  // namespace murmela
