#pragma once
// What the voice is given to say for a message: punctuation read out as the mode asks, words
// spelt letter by letter, and single characters and keys said by their names.

#include <string>
#include <string_view>

#include "speechd/settings.h"

namespace murmela::speechd {

// `text` with the punctuation the mode reads out replaced by its name ("a, b" → "a comma b"
// in mode all); the other punctuation stays for the voice's phrasing. With `spelling` every
// character is said on its own.
std::string spokenText(std::string_view text, PunctuationMode punctuation, bool spelling);

// The name of one character as CHAR sends it ("a" → "ay", "A" → "capital ay", "space").
// A character without a name of its own is given as it is.
std::string characterName(std::string_view character);

// The name of a key as KEY sends it: its parts joined by "_" said in turn ("shift_a" →
// "shift ay", "kp-enter" → "keypad enter").
std::string keyName(std::string_view key);

}  // namespace murmela::speechd
