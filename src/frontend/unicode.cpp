#include "frontend/unicode.h"

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <cstdint>

namespace murmela {

bool isMark(char32_t c) {
    const int8_t type = u_charType(static_cast<UChar32>(c));
    return type == U_NON_SPACING_MARK || type == U_COMBINING_SPACING_MARK ||
           type == U_ENCLOSING_MARK;
}

bool isLetter(char32_t c) {
    const int8_t type = u_charType(static_cast<UChar32>(c));
    return type == U_UPPERCASE_LETTER || type == U_LOWERCASE_LETTER || type == U_TITLECASE_LETTER ||
           type == U_MODIFIER_LETTER || type == U_OTHER_LETTER;
}

bool isUppercase(char32_t c) {
    return u_charType(static_cast<UChar32>(c)) == U_UPPERCASE_LETTER;
}

bool hasNumericType(char32_t c) {
    return u_getIntPropertyValue(static_cast<UChar32>(c), UCHAR_NUMERIC_TYPE) != U_NT_NONE;
}

bool isDecimalDigit(char32_t c) {
    return u_charType(static_cast<UChar32>(c)) == U_DECIMAL_DIGIT_NUMBER;
}

int digitValue(char32_t c) {
    return static_cast<int>(u_getNumericValue(static_cast<UChar32>(c)));
}

char32_t lowercase(char32_t c) {
    if (c >= U'A' && c <= U'Z') {
        return c + (U'a' - U'A');
    }
    if (c < 0x80) {
        return c;
    }
    return static_cast<char32_t>(u_tolower(static_cast<UChar32>(c)));
}

std::u32string lowercased(std::u32string_view text) {
    std::u32string out(text);
    for (char32_t& c : out) {
        c = lowercase(c);
    }
    return out;
}

namespace {

constexpr char32_t replacement = 0xFFFD;

void append(std::string& out, char32_t c) {
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
        c = replacement;
    }
    if (c < 0x80) {
        out.push_back(static_cast<char>(c));
    } else if (c < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (c >> 6)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (c >> 12)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (c >> 18)));
        out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
}

}  // namespace

std::u32string decodeUtf8(std::string_view bytes) {
    std::u32string out;
    out.reserve(bytes.size());
    size_t i = 0;
    const size_t n = bytes.size();
    while (i < n) {
        const auto lead = static_cast<uint8_t>(bytes[i]);
        if (lead < 0x80) {
            out.push_back(lead);
            ++i;
            continue;
        }
        // Length and the allowed range of the second byte (which excludes overlong forms,
        // surrogates and values past U+10FFFF).
        size_t length = 0;
        uint8_t low = 0x80, high = 0xBF;
        char32_t value = 0;
        if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2;
            value = lead & 0x1F;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            value = lead & 0x0F;
            if (lead == 0xE0)
                low = 0xA0;
            if (lead == 0xED)
                high = 0x9F;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            value = lead & 0x07;
            if (lead == 0xF0)
                low = 0x90;
            if (lead == 0xF4)
                high = 0x8F;
        } else {
            out.push_back(replacement);
            ++i;
            continue;
        }
        size_t taken = 1;
        bool complete = true;
        for (; taken < length; ++taken) {
            if (i + taken >= n) {
                complete = false;
                break;
            }
            const auto next = static_cast<uint8_t>(bytes[i + taken]);
            const uint8_t min = taken == 1 ? low : 0x80;
            const uint8_t max = taken == 1 ? high : 0xBF;
            if (next < min || next > max) {
                complete = false;
                break;
            }
            value = (value << 6) | (next & 0x3F);
        }
        if (!complete) {
            out.push_back(replacement);
            i += taken;  // the maximal valid prefix becomes one replacement
            continue;
        }
        out.push_back(value);
        i += length;
    }
    return out;
}

std::string encodeUtf8(std::u32string_view scalars) {
    std::string out;
    out.reserve(scalars.size());
    for (char32_t c : scalars) {
        append(out, c);
    }
    return out;
}

std::u32string_view trimmingWhitespace(std::u32string_view text) {
    size_t begin = 0;
    size_t end = text.size();
    while (begin < end && isWhiteSpace(text[begin])) {
        ++begin;
    }
    while (end > begin && isWhiteSpace(text[end - 1])) {
        --end;
    }
    return text.substr(begin, end - begin);
}

std::u32string canonicalDecomposition(std::u32string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* nfd = icu::Normalizer2::getNFDInstance(status);
    if (U_FAILURE(status) || nfd == nullptr) {
        return std::u32string(text);
    }
    const icu::UnicodeString source = icu::UnicodeString::fromUTF32(
        reinterpret_cast<const UChar32*>(text.data()), static_cast<int32_t>(text.size()));
    const icu::UnicodeString decomposed = nfd->normalize(source, status);
    if (U_FAILURE(status)) {
        return std::u32string(text);
    }
    std::u32string out(static_cast<size_t>(decomposed.countChar32()), U'\0');
    decomposed.toUTF32(reinterpret_cast<UChar32*>(out.data()), static_cast<int32_t>(out.size()),
                       status);
    return U_FAILURE(status) ? std::u32string(text) : out;
}

}  // namespace murmela
