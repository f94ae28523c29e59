#pragma once
// Unicode for the front end: UTF-8 decoding and encoding, the properties of scalars the rules
// consult, and hashing of scalar strings for the word tables.

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

// The Unicode properties the front end asks about, answered by ICU.

// General category Mn, Mc or Me: a mark that belongs to the scalar before it.
bool isMark(char32_t c);

// General category Lu, Ll, Lt, Lm or Lo.
bool isLetter(char32_t c);

// General category Lu.
bool isUppercase(char32_t c);

// Any Unicode numeric type: digits, numerals, fractions and the like.
bool hasNumericType(char32_t c);

// General category Nd, a digit of some positional script.
bool isDecimalDigit(char32_t c);

// The decimal digit's value, 0 to 9.
int digitValue(char32_t c);

// Simple (one scalar for one) lower-casing; the length never changes.
char32_t lowercase(char32_t c);
std::u32string lowercased(std::u32string_view text);

// Unicode scalars and the conversions at the edges of the front end.

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

// `text` in Normalization Form D (canonically decomposed), as ICU gives it; ill-formed input
// comes back unchanged.
std::u32string canonicalDecomposition(std::u32string_view text);

// `text` without White_Space at either end.
std::u32string_view trimmingWhitespace(std::u32string_view text);

}  // namespace murmela
