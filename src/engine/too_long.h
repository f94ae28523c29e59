#pragma once

#include <cstdint>
#include <exception>

namespace murmela {

// A chunk needs more frames than the largest decoder bucket holds. Internal to the engine: the
// voice splits such a chunk and tries the parts.
class TooLong : public std::exception {
public:
    explicit TooLong(int64_t frameCount) : frames(frameCount) {}
    const char* what() const noexcept override {
        return "a chunk needs more frames than any decoder bucket holds";
    }

    int64_t frames;
};

}  // namespace murmela
