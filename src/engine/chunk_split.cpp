#include "engine/chunk_split.h"

#include <cstdlib>
#include <string>

#include "logging/log.h"

namespace murmela {

int64_t splitIndex(std::span<const int64_t> ids, std::span<const int64_t> separators) {
    const int64_t count = static_cast<int64_t>(ids.size());
    if (count < 2) {
        programmingError("splitting a chunk of " + std::to_string(count) + " ids");
    }
    const int64_t half = count / 2;
    for (int64_t separator : separators) {
        int64_t nearest = -1;
        for (int64_t position = 0; position < count; ++position) {
            if (ids[static_cast<size_t>(position)] != separator) {
                continue;
            }
            // Strictly nearer only: on a tie the earlier position stays.
            if (nearest < 0 || std::abs(position - half) < std::abs(nearest - half)) {
                nearest = position;
            }
        }
        if (nearest >= 0 && nearest + 1 < count) {
            return nearest + 1;
        }
    }
    return half;
}

}  // namespace murmela
