#include "speechd/spoken_text.h"

#include <map>

#include "frontend/unicode.h"

namespace murmela::speechd {
namespace {

constexpr std::string_view letterNames[26] = {
    "ay",  "bee", "see", "dee", "ee",         "eff", "gee", "aitch", "eye",
    "jay", "kay", "el",  "em",  "en",         "oh",  "pee", "cue",   "ar",
    "ess", "tee", "you", "vee", "double you", "ex",  "why", "zee"};

constexpr std::string_view digitNames[10] = {"zero", "one", "two",   "three", "four",
                                             "five", "six", "seven", "eight", "nine"};

const std::map<char32_t, std::string_view>& symbolNames() {
    static const std::map<char32_t, std::string_view> names = {
        {U' ', "space"},        {U'\t', "tab"},
        {U'\n', "new line"},    {U'!', "exclamation mark"},
        {U'"', "quote"},        {U'#', "number sign"},
        {U'$', "dollar"},       {U'%', "percent"},
        {U'&', "and"},          {U'\'', "apostrophe"},
        {U'(', "left paren"},   {U')', "right paren"},
        {U'*', "star"},         {U'+', "plus"},
        {U',', "comma"},        {U'-', "dash"},
        {U'.', "dot"},          {U'/', "slash"},
        {U':', "colon"},        {U';', "semicolon"},
        {U'<', "less than"},    {U'=', "equals"},
        {U'>', "greater than"}, {U'?', "question mark"},
        {U'@', "at"},           {U'[', "left bracket"},
        {U'\\', "backslash"},   {U']', "right bracket"},
        {U'^', "caret"},        {U'_', "underscore"},
        {U'`', "grave"},        {U'{', "left brace"},
        {U'|', "bar"},          {U'}', "right brace"},
        {U'~', "tilde"}};
    return names;
}

// The punctuation each mode reads out; the modes nest.
constexpr std::u32string_view someSymbols = U"#$%&*+/<=>@[\\]^_|~";
constexpr std::u32string_view mostSymbols = U"\"'()-:;`{}";
constexpr std::u32string_view allSymbols = U".,!?";

bool isReadOut(char32_t c, PunctuationMode mode) {
    switch (mode) {
        case PunctuationMode::all:
            if (allSymbols.find(c) != std::u32string_view::npos) {
                return true;
            }
            [[fallthrough]];
        case PunctuationMode::most:
            if (mostSymbols.find(c) != std::u32string_view::npos) {
                return true;
            }
            [[fallthrough]];
        case PunctuationMode::some:
            return someSymbols.find(c) != std::u32string_view::npos;
        case PunctuationMode::none:
            return false;
    }
    return false;
}

std::string nameOf(char32_t c) {
    if (c >= U'a' && c <= U'z') {
        return std::string(letterNames[c - U'a']);
    }
    if (c >= U'A' && c <= U'Z') {
        return "capital " + std::string(letterNames[c - U'A']);
    }
    if (c >= U'0' && c <= U'9') {
        return std::string(digitNames[c - U'0']);
    }
    if (auto found = symbolNames().find(c); found != symbolNames().end()) {
        return std::string(found->second);
    }
    return encodeUtf8(std::u32string(1, c));
}

}  // namespace

std::string spokenText(std::string_view text, PunctuationMode punctuation, bool spelling) {
    std::string spoken;
    for (char32_t c : decodeUtf8(text)) {
        if (spelling) {
            if (!isWhiteSpace(c) || c == U' ') {
                spoken += nameOf(c) + ", ";
            }
        } else if (isReadOut(c, punctuation)) {
            spoken += " " + nameOf(c) + " ";
        } else {
            spoken += encodeUtf8(std::u32string(1, c));
        }
    }
    return spoken;
}

std::string characterName(std::string_view character) {
    if (character == "space") {
        return "space";
    }
    const std::u32string scalars = decodeUtf8(character);
    if (scalars.size() != 1) {
        return std::string(character);
    }
    return nameOf(scalars.front());
}

std::string keyName(std::string_view key) {
    static const std::map<std::string_view, std::string_view> names = {
        {"double-quote", "double quote"},
        {"backspace", "back space"},
        {"kp-*", "keypad star"},
        {"kp-+", "keypad plus"},
        {"kp--", "keypad minus"},
        {"kp-.", "keypad dot"},
        {"kp-/", "keypad slash"},
        {"kp-enter", "keypad enter"},
        {"num-lock", "num lock"},
        {"scroll-lock", "scroll lock"},
        {"prior", "page up"},
        {"next", "page down"},
        {"escape", "escape"}};
    std::string spoken;
    size_t start = 0;
    while (start <= key.size()) {
        size_t underscore = key.find('_', start);
        if (underscore == std::string_view::npos) {
            underscore = key.size();
        }
        const std::string_view part = key.substr(start, underscore - start);
        std::string name;
        if (auto found = names.find(part); found != names.end()) {
            name = found->second;
        } else if (part.size() == 4 && part.starts_with("kp-")) {
            name = "keypad " + characterName(part.substr(3));
        } else if (part.size() >= 2 && part.front() == 'f' &&
                   part.find_first_not_of("0123456789", 1) == std::string_view::npos) {
            name = "F " + std::string(part.substr(1));
        } else if (decodeUtf8(part).size() == 1) {
            name = characterName(part);
        } else {
            name = part;
        }
        if (!name.empty()) {
            spoken += (spoken.empty() ? "" : " ") + name;
        }
        start = underscore + 1;
    }
    return spoken;
}

}  // namespace murmela::speechd
