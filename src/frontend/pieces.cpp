#include "frontend/pieces.h"

#include <algorithm>
#include <array>

#include "frontend/phonemizer.h"
#include "frontend/unicode.h"
#include "frontend/word_tables.h"
#include "logging/log.h"

namespace murmela {

namespace {

// How many pairs after a word may give it following words: at most four.
constexpr size_t followingWindow = 5;

// The words of a sentence with the punctuation that trails each, side by side.
struct Words {
    std::vector<std::u32string> words;
    std::vector<std::u32string> punctuation;
};

// Splits the quotes and brackets off both ends of `raw` and the trailing punctuation off its
// end, dropping quotes that sit among the punctuation ("word.)" or "word,\"").
void addWord(std::u32string_view raw, Words& into) {
    size_t begin = 0;
    while (begin < raw.size()) {
        const size_t end = symbolEnd(raw, begin);
        if (!isQuoteOrMarkup(raw.substr(begin, end - begin))) {
            break;
        }
        begin = end;
    }
    // Find where the word ends, then copy the punctuation after it without the quotes.
    size_t end = raw.size();
    while (end > begin) {
        const size_t start = symbolStart(raw, end);
        const std::u32string_view symbol = raw.substr(start, end - start);
        if (!isPassThroughPunctuation(symbol) && !isQuoteOrMarkup(symbol)) {
            break;
        }
        end = start;
    }
    std::u32string punctuation;
    for (size_t i = end; i < raw.size(); ++i) {
        if (!isQuoteOrMarkup(raw.substr(i, 1))) {
            punctuation.push_back(raw[i]);
        }
    }
    if (begin == end && punctuation.empty()) {
        return;  // only quotes: nothing to read, nothing to pause for
    }
    into.words.emplace_back(raw.substr(begin, end - begin));
    into.punctuation.push_back(std::move(punctuation));
}

bool startsWithOneFullStop(std::u32string_view punctuation) {
    return !punctuation.empty() && punctuation[0] == U'.' &&
           (punctuation.size() == 1 || punctuation[1] != U'.');
}

// "No." is an abbreviation only before a number ("No. 5"); elsewhere it is the word "no" at
// the end of a sentence.
bool isAbbreviation(std::u32string_view wordWithStop, std::u32string_view next) {
    const std::u32string key = lowercased(wordWithStop);
    if (!dottedAbbreviations().contains(key)) {
        return false;
    }
    return key != U"no." || (!next.empty() && isDecimalDigit(next.front()));
}

// Gives a dotted abbreviation its full stop back, so that it neither ends a piece nor reaches
// espeak-ng as a pause. At the end of the sentence the same full stop also ends it.
void keepAbbreviationStops(Words& sentence) {
    const size_t count = sentence.words.size();
    for (size_t i = 0; i < count; ++i) {
        std::u32string& word = sentence.words[i];
        std::u32string& punctuation = sentence.punctuation[i];
        if (word.empty() || !startsWithOneFullStop(punctuation)) {
            continue;
        }
        std::u32string_view next;
        if (i + 1 < count) {
            next = sentence.words[i + 1];
        }
        if (!isAbbreviation(word + U'.', next)) {
            continue;
        }
        word.push_back(U'.');
        punctuation.erase(0, 1);
        if (i + 1 == count && punctuation.empty()) {
            punctuation.push_back(U'.');
        }
    }
}

// Every run of two or more full stops becomes one "…".
std::u32string withEllipses(std::u32string_view punctuation) {
    std::u32string out;
    for (size_t i = 0; i < punctuation.size();) {
        size_t run = i;
        while (run < punctuation.size() && punctuation[run] == U'.') {
            ++run;
        }
        if (run - i >= 2) {
            out.push_back(U'\u2026');
            i = run;
        } else {
            out.push_back(punctuation[i]);
            ++i;
        }
    }
    return out;
}

}  // namespace

std::vector<std::u32string> pieces(std::u32string_view sentence) {
    Words sentenceWords;
    for (size_t start = 0; start <= sentence.size();) {
        size_t end = sentence.find(U' ', start);
        if (end == std::u32string_view::npos) {
            end = sentence.size();
        }
        if (end > start) {
            addWord(sentence.substr(start, end - start), sentenceWords);
        }
        start = end + 1;
    }
    keepAbbreviationStops(sentenceWords);

    const std::vector<std::u32string>& words = sentenceWords.words;
    const std::vector<std::u32string>& punctuation = sentenceWords.punctuation;
    std::vector<std::u32string> out;
    std::u32string run;
    auto endRun = [&] {
        if (!run.empty()) {
            out.push_back(std::move(run));
            run.clear();
        }
    };
    for (size_t i = 0; i < words.size(); ++i) {
        const std::u32string& word = words[i];
        if (!word.empty()) {
            std::optional<std::u32string_view> previous;
            if (i > 0 && punctuation[i - 1].empty()) {
                previous = words[i - 1];
            }
            // The next words up to and including the first that punctuation follows; an empty
            // word (a pair of punctuation only) can only be that last one.
            size_t followingCount = 0;
            if (punctuation[i].empty()) {
                for (size_t j = i + 1; j < words.size() && j < i + followingWindow; ++j) {
                    ++followingCount;
                    if (!punctuation[j].empty()) {
                        if (words[j].empty()) {
                            --followingCount;
                        }
                        break;
                    }
                }
            }
            const std::span<const std::u32string> following(words.data() + i + 1, followingCount);
            const std::optional<std::u32string> replacement = rewrite(word, previous, following);
            if (!run.empty()) {
                run.push_back(U' ');
            }
            run.append(replacement ? *replacement : word);
        }
        if (!punctuation[i].empty()) {
            endRun();
            out.push_back(withEllipses(punctuation[i]));
        }
    }
    endRun();
    return out;
}

// The word rewrites: each rule sits next to the tables it reads.

namespace {

// A word as the tables hold it: lower-cased, with the typographic apostrophe made plain.
// Kept on the stack; a word longer than any table entry is not copied and matches nothing.
class Key {
public:
    explicit Key(std::u32string_view word) {
        if (word.size() > buffer_.size()) {
            return;
        }
        for (char32_t c : word) {
            buffer_[size_++] = c == U'\u2019' ? U'\'' : lowercase(c);
        }
    }
    std::u32string_view view() const { return {buffer_.data(), size_}; }
    bool operator==(std::u32string_view other) const { return view() == other; }

private:
    std::array<char32_t, 16> buffer_{};
    size_t size_ = 0;
};

bool contains(const WordSet& table, std::optional<std::u32string_view> word) {
    return word && table.contains(Key(*word).view());
}

bool startsWith(const WordSet& table, std::span<const std::u32string> words) {
    return !words.empty() && table.contains(Key(words.front()).view());
}

bool containsAny(const WordSet& table, std::span<const std::u32string> words) {
    return std::any_of(words.begin(), words.end(), [&](const std::u32string& word) {
        return table.contains(Key(word).view());
    });
}

bool is(std::optional<std::u32string_view> word, std::u32string_view key) {
    return word && Key(*word) == key;
}

// The pronoun "I" (always written with a capital) and its contractions. Before an auxiliary
// it is the unstressed subject of a statement ("I am", "I'd have") and espeak-ng's own weak
// reading fits; elsewhere ("Am I right", "so do I", "Henry I") it carries stress, which the
// respelling gives it.
std::optional<std::u32string> pronoun(std::u32string_view word, const Key& key,
                                      std::span<const std::u32string> following) {
    if (word.front() != U'I') {
        return std::nullopt;
    }
    const auto found = pronounRespellings().find(key.view());
    if (found == pronounRespellings().end() || startsWith(auxiliaries(), following)) {
        return std::nullopt;
    }
    return found->second;
}

std::optional<std::u32string> name(const Key& key) {
    const auto found = nameRespellings().find(key.view());
    if (found == nameRespellings().end()) {
        return std::nullopt;
    }
    return found->second;
}

// Dotted abbreviations, read as a listener expects. Those that espeak-ng reads letter by
// letter ("a.m.") keep their inner full stops and lose the last, which it would take for the
// end of a clause. "st." and "no." depend on the next word: a saint before a name ("St. Louis")
// and a street otherwise ("Main St."); a number before one ("No. 5").
//
// Checked against the dotted set when first built: an abbreviation without a reading, or a
// reading of something outside the set, is a programming error.
const WordMap& abbreviationReadings() {
    static const WordMap table = [] {
        WordMap readings = {{U"dr.", U"doctor"},       {U"mr.", U"mister"},
                            {U"mrs.", U"missus"},      {U"ms.", U"miz"},
                            {U"jr.", U"junior"},       {U"sr.", U"senior"},
                            {U"vs.", U"versus"},       {U"etc.", U"et cetera"},
                            {U"e.g.", U"for example"}, {U"i.e.", U"that is"},
                            {U"prof.", U"professor"},  {U"mt.", U"mount"},
                            {U"a.m.", U"a.m"},         {U"p.m.", U"p.m"},
                            {U"u.s.", U"u.s"},         {U"approx.", U"approximately"}};
        for (const std::u32string& key : dottedAbbreviations()) {
            if (!readings.contains(key) && key != U"st." && key != U"no.") {
                programmingError("no reading for the dotted abbreviation " + encodeUtf8(key));
            }
        }
        for (const auto& [key, reading] : readings) {
            if (!dottedAbbreviations().contains(key)) {
                programmingError("a reading for " + encodeUtf8(key) + ", no dotted abbreviation");
            }
        }
        return readings;
    }();
    return table;
}

std::optional<std::u32string> abbreviation(const Key& key,
                                           std::span<const std::u32string> following) {
    if (!dottedAbbreviations().contains(key.view())) {
        return std::nullopt;
    }
    const WordMap& readings = abbreviationReadings();
    const char32_t next =
        following.empty() || following.front().empty() ? U'\0' : following.front().front();
    if (key == U"st.") {
        return isUppercase(next) ? U"saint" : U"street";
    }
    if (key == U"no.") {
        return isDecimalDigit(next) ? U"number" : U"no";
    }
    return readings.find(key.view())->second;
}

// "lead" is the metal next to a word about metal ("a lead pipe", "pencil lead", "lead
// poisoning"); otherwise it is the verb, espeak-ng's own reading.
std::optional<std::u32string> lead(std::optional<std::u32string_view> previous,
                                   std::span<const std::u32string> following) {
    if (contains(metalContext(), previous) || startsWith(metalContext(), following)) {
        return U"led";
    }
    return std::nullopt;
}

// Words of place that follow the verb "lives" but hardly the noun.
const WordSet& placeWords() {
    static const WordSet table = {U"here", U"there", U"alone", U"nearby", U"abroad", U"together"};
    return table;
}

// "lives" is the noun after a possessive or quantifier ("nine lives", "their lives there"),
// the verb after a subject ("she lives", "who lives") or before a word of place ("Tom lives
// here"), and otherwise the noun, espeak-ng's own reading.
std::optional<std::u32string> lives(std::optional<std::u32string_view> previous,
                                    std::span<const std::u32string> following) {
    if (contains(possessiveAndQuantifierContext(), previous)) {
        return std::nullopt;
    }
    if (contains(subjectContext(), previous) || startsWith(placeWords(), following)) {
        return U"livs";
    }
    return std::nullopt;
}

// Articles and prepositions, after which "wind" is the noun ("a gust of wind up the hill").
const WordSet& nounMarkers() {
    static const WordSet table = {U"a", U"an", U"no", U"of", U"in", U"into", U"against", U"with"};
    return table;
}

// "wind" and "winds" are the noun after a possessive, article or preposition ("the wind up
// north"); the verb after a word that a verb follows or a subject ("to wind", "it winds"), or
// before a determiner or particle ("wind the clock", "winds up"); otherwise the noun. "and"
// joins nouns as often as verbs ("sun and wind"), so it decides nothing.
std::optional<std::u32string> wind(const Key& key, std::optional<std::u32string_view> previous,
                                   std::span<const std::u32string> following) {
    if (contains(possessiveAndQuantifierContext(), previous) || contains(nounMarkers(), previous)) {
        return std::nullopt;
    }
    const bool afterVerbContext =
        (contains(verbFollowsContext(), previous) && !is(previous, U"and")) ||
        contains(subjectContext(), previous);
    if (afterVerbContext || startsWith(determinerAndParticleContext(), following)) {
        return key == U"wind" ? U"wined" : U"wineds";
    }
    return std::nullopt;
}

// "read" is the past after a perfect-tense word ("have read", "was read", "never read");
// the present after "to" or an auxiliary ("will read", "didn't read") and at the start of a
// run, where it is mostly a command ("Read the letter before you sign"); otherwise the past
// when a past-time word follows ("read it yesterday").
std::optional<std::u32string> read(std::optional<std::u32string_view> previous,
                                   std::span<const std::u32string> following) {
    if (contains(perfectTenseContext(), previous)) {
        return U"red";
    }
    if (!previous || is(previous, U"to") || contains(auxiliaries(), previous)) {
        return std::nullopt;
    }
    if (containsAny(pastTimeContext(), following)) {
        return U"red";
    }
    return std::nullopt;
}

std::u32string numberWords(int n) {
    static const std::array<std::u32string_view, 20> small = {
        U"zero",     U"one",     U"two",     U"three",     U"four",     U"five",    U"six",
        U"seven",    U"eight",   U"nine",    U"ten",       U"eleven",   U"twelve",  U"thirteen",
        U"fourteen", U"fifteen", U"sixteen", U"seventeen", U"eighteen", U"nineteen"};
    static const std::array<std::u32string_view, 10> tens = {
        U"",      U"",      U"twenty",  U"thirty", U"forty",
        U"fifty", U"sixty", U"seventy", U"eighty", U"ninety"};
    if (n < 20) {
        return std::u32string(small[n]);
    }
    std::u32string words(tens[n / 10]);
    if (n % 10 != 0) {
        words += U'-';
        words += small[n % 10];
    }
    return words;
}

// A year is read in two halves ("nineteen eighty-four", "twenty twenty-four"), with "hundred"
// or "oh" where the second half needs it ("nineteen hundred", "nineteen oh five"); the first
// years of a millennium are read in thousands ("two thousand", "two thousand five").
std::u32string yearWords(int year) {
    const int first = year / 100;
    const int second = year % 100;
    if (first % 10 == 0 && second < 10) {
        std::u32string words = numberWords(first / 10) + U" thousand";
        return second == 0 ? words : words + U' ' + numberWords(second);
    }
    if (second == 0) {
        return numberWords(first) + U" hundred";
    }
    if (second < 10) {
        return numberWords(first) + U" oh " + numberWords(second);
    }
    return numberWords(first) + U' ' + numberWords(second);
}

// Four digits after a word of time ("in 1984", "since 2005") are a year; espeak-ng would read
// a plain number ("one thousand nine hundred ..."). A leading zero makes a time of day or a
// code, not a year.
std::optional<std::u32string> year(std::u32string_view word,
                                   std::optional<std::u32string_view> previous) {
    if (word.size() != 4 || !contains(timePrepositionContext(), previous) ||
        !std::all_of(word.begin(), word.end(), isDecimalDigit)) {
        return std::nullopt;
    }
    int value = 0;
    for (char32_t digit : word) {
        value = value * 10 + digitValue(digit);
    }
    if (value < 1000) {
        return std::nullopt;
    }
    return yearWords(value);
}

// Digits of other scripts ("৪৫") are read as the same number in English ("45"): that is what
// a listener of an English voice expects, and espeak-ng 1.51 mishandles them (it switches to
// the script's language and reads freed memory).
std::optional<std::u32string> foreignDigits(std::u32string_view word) {
    const auto isForeignDigit = [](char32_t c) { return c >= 0x80 && isDecimalDigit(c); };
    if (std::none_of(word.begin(), word.end(), isForeignDigit)) {
        return std::nullopt;
    }
    std::u32string digits(word);
    for (char32_t& c : digits) {
        if (isForeignDigit(c)) {
            c = static_cast<char32_t>(U'0' + digitValue(c));
        }
    }
    return digits;
}

}  // namespace

std::optional<std::u32string> rewrite(std::u32string_view word,
                                      std::optional<std::u32string_view> previous,
                                      std::span<const std::u32string> following) {
    if (word.empty()) {
        return std::nullopt;
    }
    const Key key(word);
    if (auto respelt = pronoun(word, key, following)) {
        return respelt;
    }
    if (auto respelt = name(key)) {
        return respelt;
    }
    if (auto reading = abbreviation(key, following)) {
        return reading;
    }
    if (key == U"lead") {
        return lead(previous, following);
    }
    if (key == U"lives") {
        return lives(previous, following);
    }
    if (key == U"wind" || key == U"winds") {
        return wind(key, previous, following);
    }
    if (key == U"read") {
        return read(previous, following);
    }
    if (auto reading = year(word, previous)) {
        return reading;
    }
    return foreignDigits(word);
}

}  // namespace murmela
