#pragma once
// The Unicode properties the front end asks about, answered by ICU.

#include <string>
#include <string_view>

namespace murmela {

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

}  // namespace murmela
