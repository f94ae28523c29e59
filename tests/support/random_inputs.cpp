#include "support/random_inputs.h"

#include <algorithm>
#include <random>
#include <stdexcept>

#include "files/files.h"

namespace murmela::testing {

std::vector<std::string> mutatedSeeds(const std::filesystem::path& seeds, size_t count,
                                      uint32_t seed) {
    std::vector<std::string> originals;
    for (const auto& entry : std::filesystem::directory_iterator(seeds)) {
        originals.push_back(readFile(entry.path()));
    }
    if (originals.empty()) {
        throw std::runtime_error("no seeds in " + seeds.string());
    }
    std::sort(originals.begin(), originals.end());  // the directory's order is not fixed
    std::mt19937 random(seed);
    auto below = [&random](size_t bound) { return bound == 0 ? 0 : random() % bound; };
    std::vector<std::string> inputs;
    for (size_t i = 0; i < count; ++i) {
        std::string input = originals[below(originals.size())];
        for (size_t change = 1 + below(4); change > 0; --change) {
            const size_t at = below(input.size() + 1);
            switch (random() % 5) {
                case 0:
                    if (at < input.size()) {
                        input[at] = static_cast<char>(input[at] ^ (1 << below(8)));
                    }
                    break;
                case 1:
                    input.insert(at, 1, static_cast<char>(random() % 256));
                    break;
                case 2:
                    input.erase(at, 1 + below(8));
                    break;
                case 3:
                    input.insert(at, input.substr(at, 1 + below(16)));
                    break;
                default: {
                    const std::string& other = originals[below(originals.size())];
                    const size_t from = below(other.size());
                    input.insert(at, other.substr(from, 1 + below(64)));
                }
            }
        }
        inputs.push_back(std::move(input));
    }
    return inputs;
}

}  // namespace murmela::testing
