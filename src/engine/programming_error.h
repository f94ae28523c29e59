#pragma once
// Impossible states in the engine (an id outside 32 bits, a non-finite duration, a DFT that
// can't be set up, a counter that overflows) are programming errors, not bad input: the
// message is logged and the process stops.

#include <string_view>

namespace murmela {

[[noreturn]] void programmingError(std::string_view message);

}  // namespace murmela
