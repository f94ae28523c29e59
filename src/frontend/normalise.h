#pragma once
// Cleaning the user's text and cutting it into sentences.
//
// Speech may only be cut between sentences, so the sentence rule decides where synthesis
// breaks the text. Neither step ever fails.

#include <string>
#include <string_view>
#include <vector>

namespace murmela {

// The text's scalars without markdown markup (* _ ` # > |), every run of white space one
// U+0020, trimmed. Ill-formed UTF-8 becomes U+FFFD.
std::u32string normalise(std::string_view utf8Text);

// The sentences of normalised text, in order, each its words joined by single spaces.
// Sentences without a letter or a number are dropped.
std::vector<std::u32string> sentences(std::u32string_view text);

}  // namespace murmela
