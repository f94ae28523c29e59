// The respellings against the real espeak-ng: each reading must come out as the phonemes a
// listener expects, not merely as a different spelling.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "frontend/espeak.h"
#include "frontend/phonemizer.h"
#include "frontend/pieces.h"
#include "frontend/unicode.h"
#include "support/test_voice.h"

namespace murmela {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

// espeak-ng's IPA for the word pieces of one sentence, as the front end hands them over.
std::string spoken(const std::string& sentence) {
    const Espeak espeak(testing::testVoiceDirectory());
    std::string ipa;
    for (const std::u32string& piece : pieces(decodeUtf8(sentence))) {
        if (!Phonemizer::isPassThrough(piece)) {
            ipa += encodeUtf8(espeak.phonemes(piece)) + " ";
        }
    }
    return ipa;
}

TEST(Readings, LeadIsTheMetalNextToMetalAndTheVerbOtherwise) {
    EXPECT_THAT(spoken("They fitted a lead pipe."), HasSubstr("l\u02c8\u025bd"));  // lˈɛd
    EXPECT_THAT(spoken("Lead poisoning is slow."), HasSubstr("l\u02c8\u025bd"));
    EXPECT_THAT(spoken("They want to lead the team."), HasSubstr("l\u02c8i\u02d0d"));  // lˈiːd
}

TEST(Readings, LivesIsTheVerbAfterASubject) {
    EXPECT_THAT(spoken("She lives here."), HasSubstr("l\u02c8\u026avz"));  // lˈɪvz
    EXPECT_THAT(spoken("Tom lives here now."), HasSubstr("l\u02c8\u026avz"));
    EXPECT_THAT(spoken("Cats have nine lives."), HasSubstr("l\u02c8a^\u026avz"));  // lˈa^ɪvz
}

TEST(Readings, WindIsTheVerbBeforeAnObject) {
    EXPECT_THAT(spoken("Wind the clock tonight."), HasSubstr("w\u02c8a^\u026and"));  // wˈa^ɪnd
    EXPECT_THAT(spoken("The path winds back."), HasSubstr("w\u02c8a^\u026andz"));
    EXPECT_THAT(spoken("The wind blew hard."), HasSubstr("w\u02c8\u026and"));  // wˈɪnd
}

TEST(Readings, ReadIsThePastAfterAPerfectWordOrBeforeAPastTime) {
    EXPECT_THAT(spoken("I read it yesterday."), HasSubstr("\u0279\u02c8\u025bd"));  // ɹˈɛd
    EXPECT_THAT(spoken("We have never read it."), HasSubstr("\u0279\u02c8\u025bd"));
    EXPECT_THAT(spoken("I will read it tomorrow."), HasSubstr("\u0279\u02c8i\u02d0d"));
}

TEST(Readings, PronounIIsStressedExceptBeforeAnAuxiliary) {
    // "Am I right": a stressed "I" (ˈa^ɪ); "I am right": espeak-ng's weak "I" joined to "am".
    EXPECT_THAT(spoken("Am I right?"), HasSubstr("\u02c8a^\u026a"));
    EXPECT_THAT(spoken("I am right."), ::testing::StartsWith("a^\u026a\u0250m "));
    EXPECT_THAT(spoken("I'll go now."), HasSubstr("\u02c8a^\u026a"));
}

TEST(Readings, YearsAreReadInTwoHalves) {
    // "nineteen eighty-four", where espeak-ng alone says "nineteen hundred eighty four".
    EXPECT_THAT(spoken("She was born in 1984."),
                AllOf(HasSubstr("n\u02c8a^\u026anti\u02d0n \u02c8e^\u026a\u027ei"),
                      Not(HasSubstr("h\u02c8\u028cnd"))));
    EXPECT_THAT(spoken("It has rained since 2005."), HasSubstr("\u03b8\u02c8a^\u028az\u0259nd f"));
    EXPECT_THAT(spoken("Finish it by 1900."), HasSubstr("h\u02c8\u028cnd\u0279\u026ad"));
}

TEST(Readings, DigitsOfOtherScriptsAreReadAsEnglishNumbers) {
    // espeak-ng alone would switch to Punjabi for the digit (and read freed memory doing so).
    EXPECT_THAT(spoken("Room \u0a69 is open."), HasSubstr("\u03b8\u0279\u02c8i\u02d0"));  // θɹˈiː
}

TEST(Readings, AbbreviationsAreReadAsWords) {
    EXPECT_THAT(spoken("Dr. Smith is here."), HasSubstr("d\u02c8\u0251\u02d0kt"));  // dˈɑːkt
    EXPECT_THAT(spoken("We left at 9 a.m. sharp."), HasSubstr("\u02cce^\u026a\u02c8\u025bm"));
    EXPECT_THAT(spoken("Fruit, e.g. apples."), HasSubstr("\u025b\u0261z\u02c8\u00e6mp"));
    EXPECT_THAT(spoken("Smith vs. Jones."), HasSubstr("v\u02c8\u025c\u02d0s"));
    EXPECT_THAT(spoken("It was in the U.S. then."), HasSubstr("j\u02ccu\u02d0\u02c8\u025bs"));
}

}  // namespace
}  // namespace murmela
