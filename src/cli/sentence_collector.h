#pragma once
// Text that arrives a little at a time (a pipe, a terminal, `tail -f`), cut into sentences as
// soon as each is complete, so that speech can begin long before the input ends.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "frontend/normalise.h"

namespace murmela {

// A sentence is complete when the front end's sentence rules close it, at a blank line, and
// when the caller says the input paused or ended (flush). Memory stays bounded however the
// input runs on: a word is cut after maxWordScalars characters and an open sentence after the
// word that takes it to maxSentenceScalars.
class SentenceCollector {
public:
    // No English word comes near this; a longer run is a hash, a URL or a line of base64, read
    // out in pieces all the same.
    static constexpr size_t maxWordScalars = 100;
    // About eighty words, half a minute of speech: longer than almost every sentence of prose,
    // short enough that a log line that never ends is heard soon after it starts.
    static constexpr size_t maxSentenceScalars = 500;

    // Takes the next bytes of UTF-8 input, split anywhere (a character, a word or a sentence
    // may go on in the next bytes); gives the sentences they complete, in order, as UTF-8.
    std::vector<std::string> add(std::string_view bytes);

    // The input paused or ended: gives the sentence still open, if it has anything to speak.
    std::vector<std::string> flush();

    // Whether there is text waiting for the end of its sentence, which flush() would give.
    bool holdsText() const;

private:
    void addScalar(char32_t scalar, std::vector<std::string>& complete);
    void endWord(std::vector<std::string>& complete);
    void endSentence(std::vector<std::string>& complete);

    std::string unfinishedCharacter_;  // the first bytes of a character split between reads
    std::u32string word_;
    SentenceGrouping grouping_;
    size_t openScalars_ = 0;    // in the words the grouping holds
    bool atLineStart_ = false;  // only white space since the last line feed
};

}  // namespace murmela
