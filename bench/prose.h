#pragma once
// Ordinary English prose for the benchmarks, made up from word lists so that no one's text
// is copied and every run reads the same words.

#include <cstddef>
#include <string>

namespace murmela::bench {

// About `words` words of sentences with the usual commas, questions and numbers.
std::string prose(size_t words);

// For first-audio benchmarks: 5,000 words of prose, and its first sentence alone, so that the
// difference between the two is what the rest of a long text costs before speech starts.
const std::string& longProse();
const std::string& firstSentenceOfLongProse();

}  // namespace murmela::bench
