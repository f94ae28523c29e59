#pragma once
// States that correct code never reaches (counter overflow, impossible sizes) stop the process
// with a message instead of carrying on with wrong numbers.

#include <cstdio>
#include <cstdlib>

namespace murmela::audio {

[[noreturn]] inline void programmingError(const char* message) {
    std::fprintf(stderr, "murmela: programming error: %s\n", message);
    std::fflush(stderr);
    std::abort();
}

}  // namespace murmela::audio
