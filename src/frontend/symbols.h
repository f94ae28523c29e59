#pragma once
// Phoneme symbols: one base scalar with the marks that follow it.
//
// A symbol is a scalar followed by every directly following mark (Mn, Mc, Me) or U+200D ZERO
// WIDTH JOINER; the scalar after a joiner starts a new symbol. The same rule cuts words,
// punctuation and phoneme strings, so a full stop carrying a mark is never taken for one.

#include <cstddef>
#include <string_view>

namespace murmela {

constexpr char32_t zeroWidthJoiner = 0x200D;

// Whether the scalar at `index` begins a new symbol.
bool startsSymbol(std::u32string_view text, size_t index);

// Where the symbol that begins at `index` ends.
size_t symbolEnd(std::u32string_view text, size_t index);

// Where the symbol that ends at `end` (exclusive, end > 0) begins.
size_t symbolStart(std::u32string_view text, size_t end);

// How many symbols `text` has.
size_t symbolCount(std::u32string_view text);

}  // namespace murmela
