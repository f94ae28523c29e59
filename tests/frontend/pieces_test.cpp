// Sentence pieces and word rewriting: what each piece says and what context each rewrite sees,
// and, against the real espeak-ng, that the respellings come out as the phonemes a listener
// expects.

#include "frontend/pieces.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "frontend/espeak.h"
#include "frontend/normalise.h"
#include "frontend/phonemizer.h"
#include "frontend/unicode.h"
#include "frontend/word_tables.h"
#include "support/test_voice.h"

namespace murmela {
namespace {

// The pieces of one sentence, joined by "|".
std::string piecesOf(const std::string& sentence) {
    std::string out;
    for (const std::u32string& piece : pieces(decodeUtf8(sentence))) {
        out += (out.empty() ? "" : "|") + encodeUtf8(piece);
    }
    return out;
}

struct Case {
    const char* sentence;
    const char* pieces;
};

void expectPieces(std::initializer_list<Case> cases) {
    for (const Case& each : cases) {
        EXPECT_EQ(piecesOf(each.sentence), each.pieces) << each.sentence;
    }
}

TEST(Pieces, WordRunsAndPunctuationRunsAlternate) {
    expectPieces({
        {"Hello there, my friend.", "Hello there|,|my friend|."},
        {"Really?! Yes \u2014 sure; fine: ok", "Really|?!|Yes|\u2014|sure|;|fine|:|ok"},
        {"well - maybe", "well - maybe"},  // a hyphen is left to espeak-ng
        // Quotes and brackets never reach the words; a full stop with a mark is no punctuation.
        {"\"Hello,\" she said (quietly).", "Hello|,|she said quietly|."},
        {"[\u201cit\u2019s\u201d] *really* `so` #1", "it\u2019s really so 1"},
        {"end.\") \" next", "end|.|next"},
        {"a b.\u0301", "a b.\u0301"},
        // Runs of full stops become one ellipsis.
        {"Wait... what.. now?.. ok.", "Wait|\u2026|what|\u2026|now|?\u2026|ok|."},
        {"So \u2026 fine", "So|\u2026|fine"},
        // A dotted abbreviation keeps its full stop; at the end the same stop ends the sentence.
        {"Dr. Smith met Mr. Jones at 9 a.m. today.",
         "doctor Smith met mister Jones at 9 a.m today|."},
        {"They live in the U.S.", "They live in the u.s|."},
        {"fruit, e.g., apples", "fruit|,|for example|,|apples"},
        {"It was No. 5 then.", "It was number 5 then|."},  // a number sign only before a number
        {"She said no. Then", "She said no|.|Then"},
        {"St. Louis is on Main St. here", "saint Louis is on Main street here"},
        {"and etc.. more", "and etc|\u2026|more"},
        // Punctuation cuts the context of rewrites, and at most four following words are seen.
        {"a lead pipe", "a led pipe"},
        {"a lead, pipe", "a lead|,|pipe"},
        {"the pipe, lead it", "the pipe|,|lead it"},
        {"I read the old book yesterday", "eye red the old book yesterday"},
        {"I read the big old red book yesterday", "eye read the big old red book yesterday"},
        {"I read it. Yesterday", "eye read it|.|Yesterday"},
    });
}

TEST(Rewrite, NeighboursChooseTheReading) {
    expectPieces({
        // The pronoun "I" is stressed, except as the subject just before an auxiliary.
        {"I think so", "eye think so"},
        {"I am right", "I am right"},
        {"I won\u2019t go", "I won\u2019t go"},
        {"I\u2019ll go", "isle go"},
        {"I'd have gone", "I'd have gone"},
        {"i think it's Ice", "i think it's Ice"},
        {"by CHOPIN", "by showpan"},
        {"Chopin's Dr Who", "Chopin's Dr Who"},  // no abbreviation without its full stop
        {"pencil lead", "pencil led"},
        {"to lead the pipe", "to lead the pipe"},  // only the word right after counts
        {"she lives here", "she livs here"},
        {"Tom lives here", "Tom livs here"},
        {"their lives there", "their lives there"},
        {"saved lives", "saved lives"},
        {"Wind the clock", "wined the clock"},
        {"to wind", "to wined"},
        {"it winds down", "it wineds down"},
        {"the wind up north", "the wind up north"},
        {"sun and wind", "sun and wind"},
        {"winds of change", "winds of change"},
        {"have read it", "have red it"},
        {"will read it yesterday", "will read it yesterday"},
        {"Read it before signing", "Read it before signing"},  // a command
        {"I read it now", "eye read it now"},
        // Four digits after a word of time are a year, whatever the script of the digits.
        {"in 1984", "in nineteen eighty-four"},
        {"since 2005", "since two thousand five"},
        {"by 1900", "by nineteen hundred"},
        {"until 1905", "until nineteen oh five"},
        {"from 2000", "from two thousand"},
        {"in \u0661\u0669\u0668\u0664", "in nineteen eighty-four"},
        {"about 1984 in 0800 in 19845 in 198", "about 1984 in 0800 in 19845 in 198"},
        // Digits of other scripts are read as the same number.
        {"\u09ea\u09eb", "45"},
        {"4\u0be9rd \uff11\uff12 \u00bd", "43rd 12 \u00bd"},
    });
}

TEST(Rewrite, EveryDottedAbbreviationIsReadAsAWord) {
    // Whatever the set holds: an entry without a reading would stop the program here.
    for (const std::u32string& abbreviation : dottedAbbreviations()) {
        for (const std::u32string next : {U"Next", U"5", U"and"}) {
            const auto reading = rewrite(abbreviation, std::nullopt, std::span(&next, 1));
            EXPECT_FALSE(!reading || reading->empty() || reading->back() == U'.')
                << encodeUtf8(abbreviation);
        }
    }
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

TEST(Readings, RespellingsComeOutAsTheExpectedPhonemes) {
    const Espeak espeak(testing::testVoiceDirectory());
    const struct {
        const char* sentence;
        const char* phonemes;
    } cases[] = {
        {"They fitted a lead pipe.", "l\u02c8\u025bd"},    // lˈɛd
        {"She lives here.", "l\u02c8\u026avz"},            // lˈɪvz
        {"Wind the clock tonight.", "w\u02c8a^\u026and"},  // wˈa^ɪnd
        {"I read it yesterday.", "\u0279\u02c8\u025bd"},   // ɹˈɛd
        {"Am I right?", "\u02c8a^\u026a"},                 // ˈa^ɪ
        {"She was born in 1984.", "n\u02c8a^\u026anti\u02d0n \u02c8e^\u026a\u027ei"},
        // espeak-ng alone would switch to Punjabi for the digit (and read freed memory doing so).
        {"Room \u0a69 is open.", "\u03b8\u0279\u02c8i\u02d0"},  // θɹˈiː
        {"Dr. Smith is here.", "d\u02c8\u0251\u02d0kt"},        // dˈɑːkt
        {"We left at 9 a.m. sharp.", "\u02cce^\u026a\u02c8\u025bm"},
        {"It was in the U.S. then.", "j\u02ccu\u02d0\u02c8\u025bs"},
    };
    for (const auto& each : cases) {
        std::string ipa;
        for (const std::u32string& piece : pieces(decodeUtf8(each.sentence))) {
            if (!Phonemizer::isPassThrough(piece)) {
                ipa += encodeUtf8(espeak.phonemes(piece)) + " ";
            }
        }
        EXPECT_THAT(ipa, ::testing::HasSubstr(each.phonemes)) << each.sentence;
    }
}

}  // namespace
}  // namespace murmela
