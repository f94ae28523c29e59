#include "frontend/symbols.h"

#include "frontend/scalar_properties.h"

namespace murmela {
namespace {

bool joinsPrevious(char32_t c) {
    // Plain ASCII is by far the most common case and never a mark.
    return c >= 0x300 && (c == zeroWidthJoiner || isMark(c));
}

}  // namespace

bool startsSymbol(std::u32string_view text, size_t index) {
    return index == 0 || text[index - 1] == zeroWidthJoiner || !joinsPrevious(text[index]);
}

size_t symbolEnd(std::u32string_view text, size_t index) {
    size_t end = index + 1;
    while (end < text.size() && !startsSymbol(text, end)) {
        ++end;
    }
    return end;
}

size_t symbolStart(std::u32string_view text, size_t end) {
    size_t start = end - 1;
    while (!startsSymbol(text, start)) {
        --start;
    }
    return start;
}

size_t symbolCount(std::u32string_view text) {
    size_t count = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        count += startsSymbol(text, i) ? 1 : 0;
    }
    return count;
}

}  // namespace murmela
