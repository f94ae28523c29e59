#pragma once

#include <cstdint>
#include <span>

namespace murmela {

// Where to cut a chunk of ids that is too long, so that ids[0, split) and ids[split, end) are
// synthesised apart: just after a separator, so it ends the left part.
//
// Separators are tried in the order given (a comma before a space). Of a separator's
// occurrences the one nearest the middle (count / 2) is taken, the earlier of two equally near;
// when that is the last id it would leave nothing on the right, and the next separator is
// tried. Without any, the middle. At least two ids are needed; fewer is a programming error.
int64_t splitIndex(std::span<const int64_t> ids, std::span<const int64_t> separators);

}  // namespace murmela
