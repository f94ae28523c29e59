// The two fix-up tables that bring espeak-ng's IPA to the model's symbols.

#include <algorithm>
#include <cstdint>
#include <vector>

#include "frontend/phonemizer.h"
#include "frontend/symbols.h"
#include "frontend/unicode.h"

namespace murmela {
namespace {

struct Fixup {
    std::u32string_view from;
    std::u32string_view to;
};

// "^" is espeak-ng's tie between the letters of one phoneme.
constexpr Fixup firstTable[] = {
    {U"\u0294\u02cc\u006e\u0329", U"tn"},  // ʔˌn̩
    {U"\u0294\u006e\u0329", U"tn"},        // ʔn̩
    {U"\u0294\u006e", U"tn"},              // ʔn
    {U"\u0294", U"t"},                     // ʔ
    {U"a^\u026a", U"I"},                   // a^ɪ
    {U"a^\u028a", U"W"},                   // a^ʊ
    {U"d^\u0292", U"\u02a4"},              // d^ʒ → ʤ
    {U"e^\u026a", U"A"},                   // e^ɪ
    {U"e", U"A"},
    {U"t^\u0283", U"\u02a7"},       // t^ʃ → ʧ
    {U"\u0254^\u026a", U"Y"},       // ɔ^ɪ
    {U"\u0259^l", U"\u1d4al"},      // ə^l → ᵊl
    {U"\u02b2o", U"jo"},            // ʲo
    {U"\u02b2\u0259", U"j\u0259"},  // ʲə
    {U"\u02b2", U""},               // ʲ
    {U"\u025a", U"\u0259\u0279"},   // ɚ → əɹ
    {U"r", U"\u0279"},
    {U"x", U"k"},
    {U"\u00e7", U"k"},       // ç
    {U"\u0250", U"\u0259"},  // ɐ → ə
    {U"\u026c", U"l"},       // ɬ
    {U"\u0303", U""},        // combining tilde
};

// Applied in this order, after the first table and the syllabic marks.
constexpr Fixup secondTable[] = {
    {U"o^\u028a", U"O"},                       // o^ʊ
    {U"\u025c\u02d0\u0279", U"\u025c\u0279"},  // ɜːɹ → ɜɹ
    {U"\u025c\u02d0", U"\u025c\u0279"},        // ɜː → ɜɹ
    {U"\u026a\u0259", U"i\u0259"},             // ɪə → iə
    {U"\u02d0", U""},                          // ː
    {U"o", U"\u0254"},                         // o → ɔ
    {U"^", U""},
};

// The first table with its longest entries (in symbols) first, so that "e^ɪ" is replaced
// before "e" alone could break it; equal lengths keep table order.
const std::vector<Fixup>& firstTableLongestFirst() {
    static const std::vector<Fixup> ordered = [] {
        std::vector<Fixup> entries(std::begin(firstTable), std::end(firstTable));
        std::stable_sort(entries.begin(), entries.end(), [](const Fixup& a, const Fixup& b) {
            return symbolCount(a.from) > symbolCount(b.from);
        });
        return entries;
    }();
    return ordered;
}

// Which scalars a text may hold, by their value modulo 64: a cheap test that lets the fix-ups
// skip the scans that cannot match.
class Presence {
public:
    explicit Presence(std::u32string_view text) {
        for (char32_t c : text) {
            add(c);
        }
    }
    void add(char32_t c) { bits_ |= uint64_t{1} << (c % 64); }
    void add(std::u32string_view text) {
        for (char32_t c : text) {
            add(c);
        }
    }
    bool mayHold(char32_t c) const { return (bits_ >> (c % 64)) & 1; }

private:
    uint64_t bits_ = 0;
};

// Applies one fix-up to `text`, using `scratch` for the result so that no piece needs more
// than the two buffers.
void replace(std::u32string& text, std::u32string& scratch, Presence& presence,
             const Fixup& fixup) {
    if (!presence.mayHold(fixup.from.front())) {
        return;
    }
    size_t found = text.find(fixup.from);
    if (found == std::u32string::npos) {
        return;
    }
    scratch.clear();
    size_t done = 0;
    for (; found != std::u32string::npos; found = text.find(fixup.from, done)) {
        scratch.append(text, done, found - done);
        scratch.append(fixup.to);
        done = found + fixup.from.size();
    }
    scratch.append(text, done);
    text.swap(scratch);
    presence.add(fixup.to);
}

constexpr char32_t syllabicMark = 0x0329;  // combining vertical line below
constexpr char32_t smallSchwa = 0x1D4A;    // ᵊ

// A syllabic consonant ("n̩") becomes a small schwa before it ("ᵊn"); a stray mark goes.
std::u32string withSyllabicSchwas(std::u32string_view text) {
    std::u32string out;
    out.reserve(text.size() + 4);
    for (size_t i = 0; i < text.size();) {
        if (i + 1 < text.size() && !isWhiteSpace(text[i]) && text[i + 1] == syllabicMark) {
            out.push_back(smallSchwa);
            out.push_back(text[i]);
            i += 2;
            continue;
        }
        if (text[i] != syllabicMark) {
            out.push_back(text[i]);
        }
        ++i;
    }
    return out;
}

}  // namespace

std::u32string replacing(std::u32string_view text, std::u32string_view from,
                         std::u32string_view to) {
    if (from.empty() || from.size() > text.size()) {
        return std::u32string(text);
    }
    std::u32string out;
    out.reserve(text.size());
    size_t done = 0;
    for (size_t found = text.find(from); found != std::u32string_view::npos;
         found = text.find(from, done)) {
        out.append(text.substr(done, found - done));
        out.append(to);
        done = found + from.size();
    }
    out.append(text.substr(done));
    return out;
}

std::u32string Phonemizer::cleanPhonemes(std::u32string_view phonemes) {
    std::u32string text(trimmingWhitespace(phonemes));
    std::u32string scratch;
    scratch.reserve(text.size() + 8);
    Presence presence(text);
    for (const Fixup& fixup : firstTableLongestFirst()) {
        replace(text, scratch, presence, fixup);
    }
    if (presence.mayHold(syllabicMark) && text.find(syllabicMark) != std::u32string::npos) {
        text = withSyllabicSchwas(text);
        presence.add(smallSchwa);
    }
    for (const Fixup& fixup : secondTable) {
        replace(text, scratch, presence, fixup);
    }
    return text;
}

}  // namespace murmela
