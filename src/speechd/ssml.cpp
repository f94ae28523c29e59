#include "speechd/ssml.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <map>
#include <optional>

#include "frontend/unicode.h"

namespace murmela::speechd {
namespace {

bool isNameStart(char c) {
    return std::isalpha(static_cast<unsigned char>(c)) || c == '_' || c == ':' ||
           static_cast<unsigned char>(c) >= 0x80;
}

bool isNameChar(char c) {
    return isNameStart(c) || std::isdigit(static_cast<unsigned char>(c)) || c == '-' || c == '.';
}

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// `&name;` at the start of `text`: its characters and length, or nothing when it is not a
// reference this reader knows (then the ampersand is text).
std::optional<std::pair<std::string, size_t>> entity(std::string_view text) {
    const size_t semicolon = text.find(';');
    if (semicolon == std::string_view::npos || semicolon > 12) {
        return std::nullopt;
    }
    const std::string_view name = text.substr(1, semicolon - 1);
    static const std::map<std::string_view, std::string_view> named = {
        {"amp", "&"}, {"lt", "<"}, {"gt", ">"}, {"quot", "\""}, {"apos", "'"}};
    if (auto found = named.find(name); found != named.end()) {
        return std::pair{std::string(found->second), semicolon + 1};
    }
    if (name.size() < 2 || name.front() != '#') {
        return std::nullopt;
    }
    const bool hex = name[1] == 'x' || name[1] == 'X';
    const std::string_view digits = name.substr(hex ? 2 : 1);
    uint32_t value = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, hex ? 16 : 10);
    const bool scalar = value > 0 && value <= 0x10FFFF && (value < 0xD800 || value > 0xDFFF);
    if (digits.empty() || error != std::errc() || end != digits.data() + digits.size() || !scalar) {
        return std::nullopt;
    }
    return std::pair{encodeUtf8(std::u32string(1, static_cast<char32_t>(value))), semicolon + 1};
}

struct Tag {
    std::string name;
    bool closing = false;
    std::map<std::string, std::string> attributes;
};

// The tag in `text`, which begins with '<' and ends with its '>'.
Tag readTag(std::string_view text) {
    Tag tag;
    size_t at = 1;
    if (text[at] == '/') {
        tag.closing = true;
        ++at;
    }
    while (at < text.size() && isNameChar(text[at])) {
        tag.name.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(text[at]))));
        ++at;
    }
    for (;;) {
        while (at < text.size() && (isSpace(text[at]) || text[at] == '/')) {
            ++at;
        }
        const size_t nameStart = at;
        while (at < text.size() && isNameChar(text[at])) {
            ++at;
        }
        if (at == nameStart) {
            return tag;
        }
        std::string name(text.substr(nameStart, at - nameStart));
        while (at < text.size() && isSpace(text[at])) {
            ++at;
        }
        if (at >= text.size() || text[at] != '=') {
            tag.attributes[name] = "";
            continue;
        }
        ++at;
        while (at < text.size() && isSpace(text[at])) {
            ++at;
        }
        if (at >= text.size() || (text[at] != '"' && text[at] != '\'')) {
            continue;
        }
        const size_t close = text.find(text[at], at + 1);
        std::string value(text.substr(at + 1, close - at - 1));
        // Attribute values may hold references too.
        std::string decoded;
        for (size_t i = 0; i < value.size(); ++i) {
            std::optional<std::pair<std::string, size_t>> reference;
            if (value[i] == '&' && (reference = entity(std::string_view(value).substr(i)))) {
                decoded += reference->first;
                i += reference->second - 1;
            } else {
                decoded.push_back(value[i]);
            }
        }
        tag.attributes[name] = decoded;
        at = close + 1;
    }
}

// Where the tag beginning at `open` ends (its '>'), skipping '>' inside quoted values.
size_t tagEnd(std::string_view text, size_t open) {
    char quote = 0;
    for (size_t at = open + 1; at < text.size(); ++at) {
        const char c = text[at];
        if (quote != 0) {
            if (c == quote) {
                quote = 0;
            }
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == '>') {
            return at;
        } else if (c == '<') {
            break;
        }
    }
    throw SsmlError("a tag is not closed");
}

// The pause a <break> asks for: its time ("250ms", "1.5s") or else its strength.
int breakMilliseconds(const Tag& tag) {
    if (auto time = tag.attributes.find("time"); time != tag.attributes.end()) {
        const std::string& value = time->second;
        double amount = 0;
        const auto [end, error] =
            std::from_chars(value.data(), value.data() + value.size(), amount);
        const std::string_view unit(end, value.data() + value.size() - end);
        if (error == std::errc() && amount >= 0 && (unit == "ms" || unit == "s")) {
            // Long enough for any sentence break; a typo of "5000s" must not silence a reader.
            const double milliseconds = unit == "s" ? amount * 1000 : amount;
            return static_cast<int>(std::lround(std::min(milliseconds, 10000.0)));
        }
    }
    static const std::map<std::string, int> strengths = {{"none", 0},     {"x-weak", 100},
                                                         {"weak", 200},   {"medium", 400},
                                                         {"strong", 700}, {"x-strong", 1000}};
    if (auto strength = tag.attributes.find("strength"); strength != tag.attributes.end()) {
        if (auto found = strengths.find(strength->second); found != strengths.end()) {
            return found->second;
        }
    }
    return strengths.at("medium");
}

class Reader {
public:
    std::vector<SsmlPiece> pieces;

    void text(std::string_view words) {
        if (words.empty()) {
            return;
        }
        if (pieces.empty() || pieces.back().kind != SsmlPiece::Kind::text) {
            pieces.push_back({SsmlPiece::Kind::text, "", 0});
        }
        pieces.back().text.append(words);
    }

    void element(const Tag& tag) {
        if (tag.name == "speak") {
            openSpeak += tag.closing ? -1 : 1;
        } else if (tag.name == "mark" && !tag.closing) {
            if (auto name = tag.attributes.find("name"); name != tag.attributes.end()) {
                pieces.push_back({SsmlPiece::Kind::mark, name->second, 0});
            }
        } else if (tag.name == "break" && !tag.closing) {
            pieces.push_back({SsmlPiece::Kind::pause, "", breakMilliseconds(tag)});
        } else if (tag.name == "p" || tag.name == "s" || tag.name == "br") {
            // Sentences and paragraphs must not run into each other.
            text(" ");
        }
    }

    int openSpeak = 0;
};

}  // namespace

std::vector<SsmlPiece> parseSsml(std::string_view document) {
    Reader reader;
    size_t at = 0;
    while (at < document.size()) {
        const char c = document[at];
        if (c == '&') {
            if (auto reference = entity(document.substr(at))) {
                reader.text(reference->first);
                at += reference->second;
            } else {
                reader.text("&");
                ++at;
            }
            continue;
        }
        if (c != '<') {
            const size_t next = document.find_first_of("<&", at);
            const size_t stop = next == std::string_view::npos ? document.size() : next;
            reader.text(document.substr(at, stop - at));
            at = stop;
            continue;
        }
        const std::string_view rest = document.substr(at);
        if (rest.starts_with("<!--")) {
            const size_t close = document.find("-->", at + 4);
            if (close == std::string_view::npos) {
                throw SsmlError("a comment is not closed");
            }
            at = close + 3;
        } else if (rest.starts_with("<![CDATA[")) {
            const size_t close = document.find("]]>", at + 9);
            if (close == std::string_view::npos) {
                throw SsmlError("a CDATA section is not closed");
            }
            reader.text(document.substr(at + 9, close - at - 9));
            at = close + 3;
        } else if (rest.size() > 1 &&
                   (isNameStart(rest[1]) || rest[1] == '/' || rest[1] == '?' || rest[1] == '!')) {
            const size_t close = tagEnd(document, at);
            if (rest[1] != '?' && rest[1] != '!') {
                reader.element(readTag(document.substr(at, close - at + 1)));
            }
            at = close + 1;
        } else {
            reader.text("<");
            ++at;
        }
    }
    if (reader.openSpeak > 0) {
        throw SsmlError("<speak> is not closed");
    }
    return std::move(reader.pieces);
}

}  // namespace murmela::speechd
