#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace murmela {

// The first bucket, in the order given, that holds `length`; nothing when none does. The list
// is deliberately not sorted: a voice lists its buckets smallest first.
inline std::optional<int64_t> chooseBucket(std::span<const int64_t> buckets, int64_t length) {
    for (int64_t bucket : buckets) {
        if (bucket >= length) {
            return bucket;
        }
    }
    return std::nullopt;
}

}  // namespace murmela
