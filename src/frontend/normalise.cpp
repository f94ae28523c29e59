#include "frontend/normalise.h"

#include <algorithm>
#include <array>

#include "frontend/unicode.h"
#include "frontend/word_tables.h"

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
    return abbreviations().contains(rest);
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

bool hasSomethingToSpeak(std::string_view utf8Text) {
    const std::u32string scalars = decodeUtf8(utf8Text);
    return std::any_of(scalars.begin(), scalars.end(), [](char32_t c) { return !isWhiteSpace(c); });
}

bool separatesWords(char32_t c) {
    return isMarkup(c) || isWhiteSpace(c);
}

std::vector<std::u32string> sentences(std::u32string_view text) {
    std::vector<std::u32string> finished;
    SentenceGrouping grouping;
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
        if (std::optional<std::u32string> sentence = grouping.add(word)) {
            finished.push_back(std::move(*sentence));
        }
    }
    if (std::optional<std::u32string> sentence = grouping.finish()) {
        finished.push_back(std::move(*sentence));
    }
    return finished;
}

std::optional<std::u32string> SentenceGrouping::add(std::u32string_view word) {
    if (!open_.empty()) {
        open_.push_back(U' ');
    }
    open_.append(word);
    ++openWords_;
    if (mayClose(word, openWords_) &&
        (closedSentences_ > 0 || openWords_ >= minFirstSentenceWords)) {
        ++closedSentences_;
        return finish();
    }
    return std::nullopt;
}

std::optional<std::u32string> SentenceGrouping::finish() {
    std::u32string closed = std::move(open_);
    open_.clear();
    openWords_ = 0;
    if (!isSpeakable(closed)) {
        return std::nullopt;
    }
    return closed;
}

std::optional<std::u32string> SentenceReader::next() {
    std::u32string word;
    while (!finished_) {
        if (!nextWord(word)) {
            finished_ = true;
            return grouping_.finish();
        }
        if (std::optional<std::u32string> sentence = grouping_.add(word)) {
            return sentence;
        }
    }
    return std::nullopt;
}

bool SentenceReader::nextWord(std::u32string& word) {
    word.clear();
    for (;;) {
        if (position_ == scalars_.size()) {
            scalars_.clear();
            position_ = 0;
            if (!decodeMore()) {
                return !word.empty();
            }
        }
        const char32_t c = scalars_[position_];
        if (separatesWords(c)) {
            if (!word.empty()) {
                return true;
            }
        } else {
            word.push_back(c);
        }
        ++position_;
    }
}

bool SentenceReader::decodeMore() {
    if (rest_.empty()) {
        return false;
    }
    // A stretch ends before an ASCII byte, which never belongs to a multi-byte sequence, so
    // decoding stretch by stretch gives what decoding the whole would.
    constexpr size_t stretch = 1024;
    size_t end = std::min(stretch, rest_.size());
    while (end < rest_.size() && static_cast<unsigned char>(rest_[end]) >= 0x80) {
        ++end;
    }
    scalars_ = decodeUtf8(rest_.substr(0, end));
    rest_.remove_prefix(end);
    return true;
}

}  // namespace murmela
