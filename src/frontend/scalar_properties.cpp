#include "frontend/scalar_properties.h"

#include <unicode/uchar.h>

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

}  // namespace murmela
