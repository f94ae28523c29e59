#include "frontend/normalise.h"

#include <algorithm>
#include <array>

#include "frontend/scalar_properties.h"
#include "frontend/unicode.h"

namespace murmela {
namespace {

bool isMarkup(char32_t c) {
    return c == U'*' || c == U'_' || c == U'`' || c == U'#' || c == U'>' || c == U'|';
}

// Stripped from a word before the abbreviation test; ")" is deliberately not among them.
bool isWrapping(char32_t c) {
    return c == U'(' || c == U'"' || c == U'\'';
}

bool isHardBreak(char32_t c) {
    return c == U'!' || c == U'?' || c == U';' || c == U':';
}

// Titles and short forms whose full stop does not end a sentence, without that full stop.
constexpr std::array<std::u32string_view, 13> abbreviations = {
    U"dr", U"mr", U"mrs", U"ms", U"st", U"vs", U"etc", U"e.g", U"i.e", U"no", U"jr", U"sr", U"mt"};

// The first sentence must have this many words before it may be closed, so that a short
// opening ("Hi.") stays with what follows.
constexpr size_t minFirstSentenceWords = 3;
// A comma closes a sentence only once it is this long.
constexpr size_t minCommaBreakWords = 12;

bool isAbbreviation(std::u32string_view word) {
    std::u32string key = lowercased(word);
    std::u32string_view rest = key;
    while (!rest.empty() && isWrapping(rest.front())) {
        rest.remove_prefix(1);
    }
    while (!rest.empty() && isWrapping(rest.back())) {
        rest.remove_suffix(1);
    }
    while (!rest.empty() && rest.back() == U'.') {
        rest.remove_suffix(1);
    }
    return std::find(abbreviations.begin(), abbreviations.end(), rest) != abbreviations.end();
}

bool mayClose(std::u32string_view word, size_t openWords) {
    const char32_t last = word.back();
    if (isHardBreak(last)) {
        return true;
    }
    if (last == U',') {
        return openWords >= minCommaBreakWords;
    }
    if (last == U'.') {
        return !isAbbreviation(word);
    }
    return false;
}

bool isSpeakable(std::u32string_view sentence) {
    return std::any_of(sentence.begin(), sentence.end(),
                       [](char32_t c) { return isLetter(c) || hasNumericType(c); });
}

}  // namespace

std::u32string normalise(std::string_view utf8Text) {
    const std::u32string scalars = decodeUtf8(utf8Text);
    std::u32string out;
    out.reserve(scalars.size());
    // Markup becomes white space, which the same pass then collapses: a run of markup and
    // white space in any mix gives one space.
    bool afterMarkup = false;
    bool afterSpace = false;
    for (char32_t c : scalars) {
        if (isMarkup(c)) {
            if (!afterMarkup && !afterSpace) {
                out.push_back(U' ');
                afterSpace = true;
            }
            afterMarkup = true;
            continue;
        }
        afterMarkup = false;
        if (isWhiteSpace(c)) {
            if (!afterSpace) {
                out.push_back(U' ');
                afterSpace = true;
            }
            continue;
        }
        afterSpace = false;
        out.push_back(c);
    }
    const std::u32string_view trimmed = trimmingWhitespace(out);
    return std::u32string(trimmed);
}

std::vector<std::u32string> sentences(std::u32string_view text) {
    std::vector<std::u32string> finished;
    std::u32string open;
    size_t openWords = 0;
    auto close = [&] {
        if (isSpeakable(open)) {
            finished.push_back(std::move(open));
        }
        open.clear();
        openWords = 0;
    };
    size_t closedSentences = 0;
    for (size_t start = 0; start < text.size();) {
        size_t end = text.find(U' ', start);
        if (end == std::u32string_view::npos) {
            end = text.size();
        }
        const std::u32string_view word = text.substr(start, end - start);
        start = end + 1;
        if (word.empty()) {
            continue;
        }
        if (!open.empty()) {
            open.push_back(U' ');
        }
        open.append(word);
        ++openWords;
        if (mayClose(word, openWords) &&
            (closedSentences > 0 || openWords >= minFirstSentenceWords)) {
            ++closedSentences;
            close();
        }
    }
    if (!open.empty()) {
        close();
    }
    return finished;
}

}  // namespace murmela
