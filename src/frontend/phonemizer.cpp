#include "frontend/phonemizer.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "common/voice_error.h"
#include "common/voice_format.h"
#include "files/files.h"
#include "frontend/normalise.h"
#include "frontend/pieces.h"
#include "frontend/unicode.h"
#include "frontend/word_tables.h"
#include "logging/log.h"

namespace murmela {

Vocabulary parseVocabulary(std::string_view json) {
    const nlohmann::json root = nlohmann::json::parse(json);
    if (!root.is_object()) {
        throw VoiceError::damaged("vocab");
    }
    const auto inner = root.find("vocab");
    const nlohmann::json& table = inner != root.end() && inner->is_object() ? *inner : root;
    Vocabulary vocabulary;
    for (const auto& [name, value] : table.items()) {
        if (const std::optional<int64_t> id = integerValue(value)) {
            vocabulary.insert_or_assign(decodeUtf8(name), *id);
        }
    }
    if (vocabulary.empty()) {
        throw VoiceError::damaged("vocab");
    }
    return vocabulary;
}

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

namespace {

// Roman numeral signs and circled Latin letters: espeak-ng reads them badly or not at all.
// U+2183 and U+2184 (reversed C) are ordinary letters and stay.
bool isUnspeakable(char32_t c) {
    return (c >= 0x2160 && c <= 0x2182) || (c >= 0x2185 && c <= 0x2188) ||
           (c >= 0x24B6 && c <= 0x24E9);
}

// Hands `ids` to `each` in chunks of at most maxChunkIds, halving recursively; false once
// `each` has asked to stop.
bool forEachChunk(std::span<const int64_t> ids, std::optional<int64_t> comma,
                  std::optional<int64_t> space,
                  const std::function<bool(std::vector<int64_t>)>& each) {
    if (ids.empty()) {
        return true;
    }
    if (ids.size() <= Phonemizer::maxChunkIds) {
        return each(std::vector<int64_t>(ids.begin(), ids.end()));
    }
    const size_t cut = Phonemizer::splitIndex(ids, comma, space);
    return forEachChunk(ids.first(cut), comma, space, each) &&
           forEachChunk(ids.subspan(cut), comma, space, each);
}

std::function<bool(std::vector<int64_t>)> appendingTo(std::vector<std::vector<int64_t>>& chunks) {
    return [&chunks](std::vector<int64_t> chunk) {
        chunks.push_back(std::move(chunk));
        return true;
    };
}

}  // namespace

Phonemizer::Phonemizer(const std::filesystem::path& vocabURL, Espeak espeak)
    : vocab_(std::make_shared<const Vocabulary>(parseVocabulary(readFile(vocabURL)))),
      espeak_(espeak) {}

Phonemizer::Phonemizer(Vocabulary vocabulary, Espeak espeak)
    : vocab_(std::make_shared<const Vocabulary>(std::move(vocabulary))), espeak_(espeak) {}

std::optional<int64_t> Phonemizer::id(std::u32string_view symbol) const {
    const auto found = vocab_->find(symbol);
    if (found == vocab_->end()) {
        return std::nullopt;
    }
    return found->second;
}

std::vector<int64_t> Phonemizer::ids(std::u32string_view phonemes) const {
    std::vector<int64_t> out;
    out.reserve(phonemes.size());
    for (size_t i = 0; i < phonemes.size();) {
        const size_t end = symbolEnd(phonemes, i);
        if (const auto found = vocab_->find(phonemes.substr(i, end - i)); found != vocab_->end()) {
            out.push_back(found->second);
        }
        i = end;
    }
    return out;
}

std::vector<std::u32string_view> Phonemizer::splitSymbols(std::u32string_view text) {
    std::vector<std::u32string_view> symbols;
    for (size_t i = 0; i < text.size();) {
        const size_t end = symbolEnd(text, i);
        symbols.push_back(text.substr(i, end - i));
        i = end;
    }
    return symbols;
}

size_t Phonemizer::splitIndex(std::span<const int64_t> ids, std::optional<int64_t> comma,
                              std::optional<int64_t> space) {
    const size_t count = ids.size();
    if (count < 2) {
        programmingError("splitting " + std::to_string(count) + " ids");
    }
    const size_t middle = count / 2;
    for (const std::optional<int64_t>& separator : {comma, space}) {
        if (!separator) {
            continue;
        }
        std::optional<size_t> nearest;
        size_t nearestDistance = 0;
        for (size_t position = 0; position < count; ++position) {
            if (ids[position] != *separator) {
                continue;
            }
            const size_t distance = position > middle ? position - middle : middle - position;
            if (!nearest || distance < nearestDistance) {  // strictly: a tie keeps the earlier
                nearest = position;
                nearestDistance = distance;
            }
        }
        if (nearest && *nearest + 1 < count) {
            return *nearest + 1;
        }
    }
    return middle;
}

std::vector<std::vector<int64_t>> Phonemizer::splitIds(std::span<const int64_t> ids,
                                                       std::optional<int64_t> comma,
                                                       std::optional<int64_t> space) {
    std::vector<std::vector<int64_t>> chunks;
    forEachChunk(ids, comma, space, appendingTo(chunks));
    return chunks;
}

bool Phonemizer::isPassThrough(std::u32string_view piece) {
    // The eight punctuation symbols are single scalars, and a mark or joiner would make a
    // symbol of its own that is none of them, so checking scalars checks symbols.
    return !piece.empty() && std::all_of(piece.begin(), piece.end(), [](char32_t c) {
        return isPassThroughPunctuation(std::u32string_view(&c, 1));
    });
}

void Phonemizer::chunks(std::string_view text,
                        const std::function<bool(std::vector<int64_t>)>& each) const {
    const std::optional<int64_t> commaId = id(U",");
    const std::optional<int64_t> spaceId = id(U" ");
    forEachSentence(espeak_, text, PhonemeStyle::modelSymbols, [&](std::u32string phonemes) {
        return forEachChunk(ids(phonemes), commaId, spaceId, each);
    });
}

void forEachSentence(const Espeak& espeak, std::string_view text, PhonemeStyle style,
                     const std::function<bool(std::u32string)>& each) {
    SentenceReader reader(text);
    while (const std::optional<std::u32string> sentence = reader.next()) {
        std::u32string out;
        for (const std::u32string& piece : pieces(*sentence)) {
            if (Phonemizer::isPassThrough(piece)) {
                out.append(piece);  // punctuation sticks to the word before it
                continue;
            }
            const std::u32string spoken = espeak.phonemes(blankUnspeakable(piece));
            const std::u32string phonemes = style == PhonemeStyle::modelSymbols
                                                ? Phonemizer::cleanPhonemes(spoken)
                                                : replacing(trimmingWhitespace(spoken), U"^", U"");
            if (phonemes.empty()) {
                continue;
            }
            if (!out.empty() && out.back() != U' ') {
                out.push_back(U' ');
            }
            out.append(phonemes);
        }
        if (!each(std::u32string(trimmingWhitespace(out)))) {
            return;
        }
    }
}

std::u32string blankUnspeakable(std::u32string_view text) {
    std::u32string out(text);
    for (char32_t& c : out) {
        if (isUnspeakable(c)) {
            c = U' ';
        }
    }
    return out;
}

// The two fix-up tables that bring espeak-ng's IPA to the model's symbols.

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
