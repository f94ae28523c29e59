#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace murmela {

// Lets tables keyed by scalar strings be searched with a view, without building a string.
struct ScalarsHash {
    using is_transparent = void;
    size_t operator()(std::u32string_view text) const {
        return std::hash<std::u32string_view>{}(text);
    }
};

}  // namespace murmela
