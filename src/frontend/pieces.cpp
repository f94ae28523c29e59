#include "frontend/pieces.h"

#include "frontend/scalar_properties.h"
#include "frontend/symbols.h"
#include "frontend/word_tables.h"

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

}  // namespace murmela
