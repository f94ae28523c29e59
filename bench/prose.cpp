#include "prose.h"

#include <array>
#include <cstdint>
#include <string_view>

#include "frontend/normalise.h"
#include "frontend/unicode.h"

namespace murmela::bench {
namespace {

constexpr std::array<std::string_view, 16> subjects = {
    "The old farmer",  "My sister",     "Our new neighbour", "The children",
    "A tired teacher", "The small dog", "Everyone in town",  "The captain",
    "Her grandfather", "The engineers", "A young doctor",    "The baker",
    "His best friend", "The committee", "Two travellers",    "The quiet student"};
constexpr std::array<std::string_view, 16> verbs = {"walked slowly towards",
                                                    "carefully opened",
                                                    "talked for hours about",
                                                    "painted",
                                                    "looked again at",
                                                    "quietly repaired",
                                                    "wrote a letter about",
                                                    "remembered",
                                                    "carried",
                                                    "cleaned",
                                                    "argued about",
                                                    "photographed",
                                                    "drove past",
                                                    "found",
                                                    "described",
                                                    "waited beside"};
constexpr std::array<std::string_view, 16> objects = {
    "the wooden bridge", "a basket of apples", "the village library", "the broken window",
    "an old map",        "the garden gate",    "the morning train",   "a bright red kite",
    "the harbour wall",  "the kitchen table",  "a pile of books",     "the long road home",
    "the market square", "a summer storm",     "the church tower",    "the river bank"};
constexpr std::array<std::string_view, 12> endings = {
    "before the sun went down",  "while the rain kept falling", "on a cold winter morning",
    "after a long day at work",  "without saying a word",       "in the middle of the night",
    "with great care",           "as the bells began to ring",  "during the summer holidays",
    "because nobody else would", "at about 7 o'clock",          "for the 3rd time that week"};
constexpr std::array<std::string_view, 8> joiners = {"and then", "but later", "so",    "although",
                                                     "and",      "because",   "while", "until"};

// A small deterministic generator (a linear congruential one), the same on every machine.
class Dice {
public:
    size_t roll(size_t sides) {
        state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<size_t>(state_ >> 33) % sides;
    }

private:
    uint64_t state_ = 20240607;
};

size_t countWords(std::string_view text) {
    size_t count = 0;
    bool inWord = false;
    for (char c : text) {
        const bool space = c == ' ';
        count += !space && !inWord ? 1 : 0;
        inWord = !space;
    }
    return count;
}

template <size_t n>
std::string_view pick(Dice& dice, const std::array<std::string_view, n>& words) {
    return words[dice.roll(n)];
}

}  // namespace

std::string prose(size_t words) {
    Dice dice;
    std::string text;
    size_t written = 0;
    while (written < words) {
        std::string sentence;
        sentence += pick(dice, subjects);
        sentence += ' ';
        sentence += pick(dice, verbs);
        sentence += ' ';
        sentence += pick(dice, objects);
        switch (dice.roll(4)) {
            case 0: {
                sentence += ", ";
                sentence += pick(dice, joiners);
                sentence += ' ';
                std::string next(pick(dice, subjects));
                next[0] = static_cast<char>(next[0] - 'A' + 'a');
                sentence += next;
                sentence += ' ';
                sentence += pick(dice, verbs);
                sentence += ' ';
                sentence += pick(dice, objects);
                break;
            }
            case 1:
                sentence += ' ';
                sentence += pick(dice, endings);
                break;
            default:
                break;
        }
        sentence += dice.roll(8) == 0 ? "?" : ".";
        sentence += dice.roll(6) == 0 ? "\n\n" : " ";
        written += countWords(sentence);
        text += sentence;
    }
    return text;
}

const std::string& longProse() {
    static const std::string text = prose(5000);
    return text;
}

const std::string& firstSentenceOfLongProse() {
    static const std::string text = encodeUtf8(sentences(normalise(longProse())).front());
    return text;
}

}  // namespace murmela::bench
