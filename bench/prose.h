#pragma once
// Ordinary English prose for the benchmarks, made up from word lists so that no one's text
// is copied and every run reads the same words.

#include <cstddef>
#include <string>

namespace murmela::bench {

// About `words` words of sentences with the usual commas, questions and numbers.
std::string prose(size_t words);

}  // namespace murmela::bench
