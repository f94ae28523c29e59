#pragma once
// Where libFuzzer is not at hand, and in the sanitizer builds: inputs for a fuzz target made by
// mutating its seed corpus at random, as a bounded stand-in for the fuzzer's own search.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace murmela::testing {

// `count` inputs, each a seed from `seeds` (every file in it) changed a few times: bytes
// flipped, inserted or removed, a stretch repeated, or a piece of another seed spliced in.
// The same `seed` gives the same inputs.
std::vector<std::string> mutatedSeeds(const std::filesystem::path& seeds, size_t count,
                                      uint32_t seed);

}  // namespace murmela::testing
