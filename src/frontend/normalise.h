#pragma once
// Cleaning the user's text and cutting it into sentences.
//
// Speech may only be cut between sentences, so the sentence rule decides where synthesis
// breaks the text. Neither step ever fails.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace murmela {

// The text's scalars without markdown markup (* _ ` # > |), every run of white space one
// U+0020, trimmed. Ill-formed UTF-8 becomes U+FFFD.
std::u32string normalise(std::string_view utf8Text);

// Whether `utf8Text` holds anything but white space: the one test every way of speaking makes
// before it asks the voice for anything.
bool hasSomethingToSpeak(std::string_view utf8Text);

// Whether `c` ends a word of the normalised text: white space or markup, which normalise()
// turns into a space.
bool separatesWords(char32_t c);

// The sentences of normalised text, in order, each its words joined by single spaces.
// Sentences without a letter or a number are dropped.
std::vector<std::u32string> sentences(std::u32string_view text);

// Gathers words into sentences by the sentence rules, one word at a time.
class SentenceGrouping {
public:
    // Adds the next word (not empty, without spaces); gives the sentence it closes, when it
    // closes one that has a letter or a number.
    std::optional<std::u32string> add(std::u32string_view word);
    // The text has ended: gives the sentence still open, when it has a letter or a number.
    std::optional<std::u32string> finish();

private:
    std::u32string open_;
    size_t openWords_ = 0;
    size_t closedSentences_ = 0;
};

// The sentences of a UTF-8 text, one at a time, the same and in the same order as
// sentences(normalise(text)); it decodes and cleans only as much of the text as the next
// sentence needs, so the first sentence of a long text comes without going through the rest.
class SentenceReader {
public:
    explicit SentenceReader(std::string_view utf8Text) : rest_(utf8Text) {}

    // The next sentence; nothing once the text is used up.
    std::optional<std::u32string> next();

private:
    // The next word of the normalised text; false at its end.
    bool nextWord(std::u32string& word);
    // Decodes the next stretch of bytes; false when none is left.
    bool decodeMore();

    std::string_view rest_;  // not yet decoded
    std::u32string scalars_;
    size_t position_ = 0;  // in scalars_
    SentenceGrouping grouping_;
    bool finished_ = false;
};

}  // namespace murmela
