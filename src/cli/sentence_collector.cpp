#include "cli/sentence_collector.h"

#include <algorithm>
#include <optional>

#include "frontend/unicode.h"

namespace murmela {
namespace {

// How many bytes at the end of `bytes` begin a character whose other bytes have not come yet.
size_t unfinishedTail(std::string_view bytes) {
    const size_t lookBack = std::min<size_t>(4, bytes.size());
    for (size_t back = 1; back <= lookBack; ++back) {
        const auto byte = static_cast<unsigned char>(bytes[bytes.size() - back]);
        if ((byte & 0xC0) == 0x80) {
            continue;  // a continuation byte
        }
        const size_t length = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC0 ? 2 : 1;
        return length > back ? back : 0;
    }
    return 0;
}

void keep(std::optional<std::u32string> sentence, std::vector<std::string>& complete) {
    if (sentence) {
        complete.push_back(encodeUtf8(*sentence));
    }
}

}  // namespace

std::vector<std::string> SentenceCollector::add(std::string_view bytes) {
    std::vector<std::string> complete;
    std::string joined;
    if (!unfinishedCharacter_.empty()) {
        joined = std::move(unfinishedCharacter_) + std::string(bytes);
        unfinishedCharacter_.clear();
        bytes = joined;
    }
    const size_t tail = unfinishedTail(bytes);
    for (char32_t scalar : decodeUtf8(bytes.substr(0, bytes.size() - tail))) {
        addScalar(scalar, complete);
    }
    unfinishedCharacter_ = std::string(bytes.substr(bytes.size() - tail));
    return complete;
}

std::vector<std::string> SentenceCollector::flush() {
    std::vector<std::string> complete;
    if (!unfinishedCharacter_.empty()) {
        // A character cut short for good reads as U+FFFD, as decoding the whole text would.
        for (char32_t scalar : decodeUtf8(unfinishedCharacter_)) {
            addScalar(scalar, complete);
        }
        unfinishedCharacter_.clear();
    }
    endSentence(complete);
    return complete;
}

bool SentenceCollector::holdsText() const {
    return !unfinishedCharacter_.empty() || !word_.empty() || openScalars_ > 0;
}

void SentenceCollector::addScalar(char32_t scalar, std::vector<std::string>& complete) {
    if (scalar == U'\n') {
        if (atLineStart_) {
            endSentence(complete);  // a blank line ends a paragraph
        }
        atLineStart_ = true;
    } else if (!isWhiteSpace(scalar)) {
        atLineStart_ = false;
    }
    if (separatesWords(scalar)) {
        endWord(complete);
        return;
    }
    word_.push_back(scalar);
    if (word_.size() >= maxWordScalars) {
        endWord(complete);
    }
}

void SentenceCollector::endWord(std::vector<std::string>& complete) {
    if (word_.empty()) {
        return;
    }
    openScalars_ += word_.size() + 1;
    std::optional<std::u32string> closed = grouping_.add(word_);
    word_.clear();
    if (closed) {
        openScalars_ = 0;
        keep(std::move(closed), complete);
    } else if (openScalars_ >= maxSentenceScalars) {
        endSentence(complete);
    }
}

void SentenceCollector::endSentence(std::vector<std::string>& complete) {
    endWord(complete);
    if (openScalars_ > 0) {
        openScalars_ = 0;
        keep(grouping_.finish(), complete);
    }
}

}  // namespace murmela
