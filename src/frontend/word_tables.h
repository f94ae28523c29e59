#pragma once
// The program's constant word tables: which characters wrap words, which punctuation reaches
// the model unphonemised, fixed respellings, and the context words that choose between the
// readings of a homograph. Built once, on first use, and shared read-only by every thread.

#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "frontend/unicode.h"

namespace murmela {

using WordSet = std::unordered_set<std::u32string, ScalarsHash, std::equal_to<>>;
using WordMap = std::unordered_map<std::u32string, std::u32string, ScalarsHash, std::equal_to<>>;

// One symbol (a scalar and its marks) that is a quotation mark, bracket or markup character:
// " ' “ ” ‘ ’ ( ) [ ] * _ ` #
bool isQuoteOrMarkup(std::u32string_view symbol);

// One symbol that passes to the model as it is: , . ! ? ; : — …
bool isPassThroughPunctuation(std::u32string_view symbol);

// All tables below hold lower-case words.

// Two abbreviation sets that differ on purpose. The sentence-splitting set (without the final
// full stop) names the short forms whose full stop never ends a sentence. The dotted set is
// every abbreviation read as a word; its extra entries ("prof.", "a.m.", "p.m.", "u.s.",
// "approx.") often do end a sentence ("at 9 a.m."), so there the full stop still closes it.
const WordSet& abbreviations();
const WordSet& dottedAbbreviations();
const WordMap& nameRespellings();
const WordMap& pronounRespellings();
const WordSet& perfectTenseContext();
const WordSet& pastTimeContext();
const WordSet& metalContext();
const WordSet& verbFollowsContext();
const WordSet& determinerAndParticleContext();
const WordSet& subjectContext();
const WordSet& possessiveAndQuantifierContext();
const WordSet& timePrepositionContext();
const WordSet& auxiliaries();

}  // namespace murmela
