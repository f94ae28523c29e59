#pragma once
// The SSML that speech-dispatcher sends: text to speak, index marks to report when the audio
// reaches them, and pauses. Every other element is dropped and its content spoken; no markup
// is ever read aloud.

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace murmela::speechd {

struct SsmlPiece {
    enum class Kind { text, mark, pause };
    Kind kind = Kind::text;
    std::string text;      // the words (entities decoded) or the mark's name
    int milliseconds = 0;  // of a pause
};

// A document that cannot be read: a tag, comment or CDATA section left open, or <speak>
// without its </speak>.
class SsmlError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The pieces of `document` in order; adjacent text is joined. Plain text without markup is
// one text piece. A `<` that cannot begin markup ("a < b") is text.
std::vector<SsmlPiece> parseSsml(std::string_view document);

}  // namespace murmela::speechd
