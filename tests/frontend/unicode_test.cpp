// UTF-8 at the edges: ill-formed input never stops text processing.

#include "frontend/unicode.h"

#include <gtest/gtest.h>

namespace murmela {
namespace {

TEST(Unicode, WellFormedTextRoundTrips) {
    const std::string text = "a é ʧ 中 😀 \u200d";
    std::u32string scalars = decodeUtf8(text);
    EXPECT_EQ(scalars, U"a é ʧ 中 😀 \u200d");
    EXPECT_EQ(encodeUtf8(scalars), text);
}

TEST(Unicode, IllFormedBytesBecomeOneReplacementEachAndDecodingGoesOn) {
    const std::u32string replacement = U"\uFFFD";
    EXPECT_EQ(decodeUtf8("a\xff"
                         "b"),
              U"a" + replacement + U"b");
    // A truncated sequence is one replacement, and the byte that broke it is read again.
    EXPECT_EQ(decodeUtf8("\xe4\xb8"
                         "x"),
              replacement + U"x");
    EXPECT_EQ(decodeUtf8("\xf0\x9f\x98"), replacement);
    // Overlong forms, surrogates and values past U+10FFFF are not scalars.
    EXPECT_EQ(decodeUtf8("\xc0\xaf"), replacement + replacement);
    EXPECT_EQ(decodeUtf8("\xed\xa0\x80"), replacement + replacement + replacement);
    EXPECT_EQ(decodeUtf8("\xf4\x90\x80\x80"), std::u32string(4, U'\uFFFD'));
    EXPECT_EQ(decodeUtf8(std::string("\0z", 2)), std::u32string(U"\0z", 2));
}

TEST(Unicode, EncodingReplacesWhatIsNotAScalar) {
    std::u32string bad = {U'a', static_cast<char32_t>(0xD800), static_cast<char32_t>(0x110000)};
    EXPECT_EQ(encodeUtf8(bad), "a\xef\xbf\xbd\xef\xbf\xbd");
}

TEST(Unicode, TrimmingUsesTheWhiteSpaceListOnly) {
    EXPECT_EQ(trimmingWhitespace(U"\t\u00a0\u3000 word \u2029\n"), U"word");
    EXPECT_EQ(trimmingWhitespace(U" \u200b "), U"\u200b");  // zero width space is not White_Space
    EXPECT_EQ(trimmingWhitespace(U"\u180e"), U"\u180e");
    EXPECT_EQ(trimmingWhitespace(U"   "), U"");
    EXPECT_TRUE(isWhiteSpace(U'\u0085'));
    EXPECT_TRUE(isWhiteSpace(U'\u202f'));
    EXPECT_FALSE(isWhiteSpace(U'\u200b'));
}

}  // namespace
}  // namespace murmela
