#pragma once
// Unicode scalars and the conversions at the edges of the front end.

#include <string>
#include <string_view>

namespace murmela {

// UTF-8 to scalars. Ill-formed bytes become U+FFFD (one per maximal bad sequence, as
// Unicode recommends) and decoding goes on: text processing never fails.
std::u32string decodeUtf8(std::string_view bytes);

// Scalars to UTF-8. A value that is not a scalar (a surrogate, or past U+10FFFF) is written
// as U+FFFD.
std::string encodeUtf8(std::u32string_view scalars);

// The Unicode White_Space set, listed explicitly so no library's notion of space leaks in.
constexpr bool isWhiteSpace(char32_t c) {
    return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 ||
           (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F ||
           c == 0x205F || c == 0x3000;
}

// `text` without White_Space at either end.
std::u32string_view trimmingWhitespace(std::u32string_view text);

}  // namespace murmela
