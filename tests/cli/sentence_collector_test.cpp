// Input that arrives in pieces, cut into sentences: the same sentences as the front end cuts
// from the whole text however the pieces fall, plus the blank-line rule and the bounds that keep
// an input without sentence ends from growing without limit.

#include "cli/sentence_collector.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "frontend/normalise.h"
#include "frontend/unicode.h"

namespace murmela {
namespace {

using Sentences = std::vector<std::string>;

// Feeds `writes` one by one; gives what each completed, then what flush() gave.
std::vector<Sentences> collect(const std::vector<std::string>& writes) {
    SentenceCollector collector;
    std::vector<Sentences> outcome;
    for (const std::string& write : writes) {
        outcome.push_back(collector.add(write));
    }
    outcome.push_back(collector.flush());
    return outcome;
}

TEST(SentenceCollector, CutsWhereTheFrontEndCutsHoweverTheInputIsSplit) {
    const std::vector<std::string> texts = {
        "The weather is nice today. We will meet at the station! Will you come? Yes.",
        "Dr. Smith met Mrs. Jones at 9 a.m. on the corner, and then they left",
        "Hi. How are you today? Fine.",
        "Caf\xc3\xa9 cr\xc3\xa8me na\xc3\xafve \xe6\x9d\xb1\xe4\xba\xac \xf0\x9f\x98\x80 is here. "
        "Then **bold** and `code` and > quoted | piped text.",
        "Broken \xc3 bytes \xff here. And more.",
    };
    for (const std::string& text : texts) {
        Sentences expected;
        for (const std::u32string& sentence : sentences(normalise(text))) {
            expected.push_back(encodeUtf8(sentence));
        }
        for (size_t pieceSize : {size_t{1}, size_t{2}, size_t{3}, size_t{7}, text.size()}) {
            SentenceCollector collector;
            Sentences got;
            for (size_t start = 0; start < text.size(); start += pieceSize) {
                for (std::string& sentence : collector.add(text.substr(start, pieceSize))) {
                    got.push_back(std::move(sentence));
                }
            }
            for (std::string& sentence : collector.flush()) {
                got.push_back(std::move(sentence));
            }
            EXPECT_EQ(got, expected) << text << " in pieces of " << pieceSize;
            EXPECT_FALSE(collector.holdsText());
        }
    }
}

TEST(SentenceCollector, SpeaksEachSentenceOnlyOnceItIsComplete) {
    struct Case {
        const char* what;
        std::vector<std::string> writes;
        std::vector<Sentences> expected;  // after each write, then after flush()
    };
    const std::vector<Case> cases = {
        {"a sentence split between writes is not cut in halves",
         {"The weather is ni", "ce today. We wi", "ll go.\n"},
         {{}, {"The weather is nice today."}, {"We will go."}, {}}},
        {"the last word may go on in the next write",
         {"It costs 3.", "50 euros today. "},
         {{}, {"It costs 3.50 euros today."}, {}}},
        {"a blank line ends a sentence without a stop",
         {"Backup started at noon\n", "\n", "Copying files\n \t\r\nDone"},
         {{}, {"Backup started at noon"}, {"Copying files"}, {"Done"}}},
        {"a single line feed does not",
         {"first line\nsecond line\n"},
         {{}, {"first line second line"}}},
        {"end of input without a final stop",
         {"One more thing. And the end"},
         {{"One more thing."}, {"And the end"}}},
        {"nothing to speak gives nothing", {"  \n\n", "... --- ***\n\n", "?!"}, {{}, {}, {}, {}}},
        {"a character cut short for good", {"Caf\xc3"}, {{}, {"Caf\xef\xbf\xbd"}}},
    };
    for (const Case& testCase : cases) {
        EXPECT_EQ(collect(testCase.writes), testCase.expected) << testCase.what;
    }
}

TEST(SentenceCollector, SaysWhetherTextWaitsForItsEnd) {
    SentenceCollector collector;
    EXPECT_FALSE(collector.holdsText());
    collector.add("\xe6\x9d");  // the first bytes of a character
    EXPECT_TRUE(collector.holdsText());
    collector.add("\xb1 Tokyo is a city of many people. ");
    EXPECT_FALSE(collector.holdsText());
    collector.add("And then");
    EXPECT_TRUE(collector.holdsText());
    EXPECT_EQ(collector.flush(), Sentences{"And then"});
    EXPECT_FALSE(collector.holdsText());
    collector.add("... ");  // unspeakable, but still waiting for its sentence
    EXPECT_TRUE(collector.holdsText());
    EXPECT_EQ(collector.flush(), Sentences{});
}

TEST(SentenceCollector, CutsInputThatNeverEndsASentence) {
    SentenceCollector collector;
    // A run without spaces is read in pieces of the longest word.
    const std::string run(SentenceCollector::maxWordScalars * 5 / 2, 'a');
    Sentences sentences = collector.add(run);
    for (std::string& sentence : collector.flush()) {
        sentences.push_back(std::move(sentence));
    }
    ASSERT_EQ(sentences.size(), 1u);
    EXPECT_EQ(sentences[0], std::string(SentenceCollector::maxWordScalars, 'a') + " " +
                                std::string(SentenceCollector::maxWordScalars, 'a') + " " +
                                std::string(SentenceCollector::maxWordScalars / 2, 'a'));

    // Words without a stop, ten thousand of them, come out as they go in bounded sentences.
    size_t words = 0;
    size_t longest = 0;
    for (int repeat = 0; repeat < 10000; ++repeat) {
        for (const std::string& sentence : collector.add("word ")) {
            longest = std::max(longest, sentence.size());
            words += static_cast<size_t>(std::count(sentence.begin(), sentence.end(), ' ')) + 1;
        }
    }
    for (const std::string& sentence : collector.flush()) {
        words += static_cast<size_t>(std::count(sentence.begin(), sentence.end(), ' ')) + 1;
    }
    EXPECT_EQ(words, 10000u);
    EXPECT_LE(longest, SentenceCollector::maxSentenceScalars);
    EXPECT_GT(longest, SentenceCollector::maxSentenceScalars - 10);
}

}  // namespace
}  // namespace murmela
