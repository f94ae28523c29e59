// The report's two roundings of a time, and the values it must never write.

#include "app/milliseconds.h"

#include <gtest/gtest.h>

#include <limits>

namespace murmela {
namespace {

TEST(Milliseconds, LoadTimeIsTruncatedAndRenderTimesRoundHalvesAwayFromZero) {
    EXPECT_EQ(truncatedMilliseconds(2.999), 2);
    EXPECT_EQ(truncatedMilliseconds(-2.999), -2);
    EXPECT_EQ(truncatedMilliseconds(0.5), 0);
    EXPECT_EQ(roundedMilliseconds(2.5), 3);
    EXPECT_EQ(roundedMilliseconds(3.5), 4);  // not to even
    EXPECT_EQ(roundedMilliseconds(-2.5), -3);
    EXPECT_EQ(roundedMilliseconds(2.4999), 2);
    EXPECT_EQ(roundedMilliseconds(0.5), 1);
    EXPECT_EQ(roundedMilliseconds(-0x1p63), std::numeric_limits<int64_t>::min());
}

TEST(Milliseconds, DifferencesOfTheClockAreInMilliseconds) {
    const auto start = std::chrono::steady_clock::time_point{};
    EXPECT_DOUBLE_EQ(millisecondsBetween(start, start + std::chrono::microseconds(1500)), 1.5);
    EXPECT_DOUBLE_EQ(millisecondsBetween(start, start + std::chrono::seconds(2)), 2000.0);
}

TEST(MillisecondsDeathTest, AValueThatIsNotFiniteOrPastSixtyFourBitsStopsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(roundedMilliseconds(std::numeric_limits<double>::quiet_NaN()), "out of range");
    EXPECT_DEATH(truncatedMilliseconds(std::numeric_limits<double>::infinity()), "out of range");
    EXPECT_DEATH(roundedMilliseconds(0x1p63), "out of range");
    EXPECT_DEATH(truncatedMilliseconds(-0x1p64), "out of range");
}

}  // namespace
}  // namespace murmela
