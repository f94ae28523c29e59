// Where a chunk that is too long is cut in two.

#include "engine/chunk_split.h"

#include <gtest/gtest.h>

#include <vector>

namespace murmela {
namespace {

constexpr int64_t comma = 7;
constexpr int64_t space = 40;
const std::vector<int64_t> commaThenSpace = {comma, space};

// `count` ids of filler (1), with the given separators placed.
std::vector<int64_t> ids(int64_t count, std::vector<std::pair<int64_t, int64_t>> placed) {
    std::vector<int64_t> result(static_cast<size_t>(count), 1);
    for (auto [position, id] : placed) {
        result[static_cast<size_t>(position)] = id;
    }
    return result;
}

TEST(SplitIndex, EqualDistancesGoToTheEarlierSeparator) {
    // half = 20; both commas are 10 away.
    EXPECT_EQ(splitIndex(ids(40, {{10, comma}, {30, comma}}), commaThenSpace), 11);
}

TEST(SplitIndex, TheSeparatorNearestTheMiddleWins) {
    EXPECT_EQ(splitIndex(ids(40, {{3, space}, {25, space}}), commaThenSpace), 26);
    EXPECT_EQ(splitIndex(ids(40, {{2, comma}, {18, comma}, {23, comma}}), commaThenSpace), 19);
}

TEST(SplitIndex, ACommaBeatsANearerSpace) {
    EXPECT_EQ(splitIndex(ids(40, {{5, comma}, {20, space}}), commaThenSpace), 6);
    // Unless the comma isn't a separator of this vocabulary.
    EXPECT_EQ(splitIndex(ids(40, {{5, comma}, {20, space}}), std::vector<int64_t>{space}), 21);
}

TEST(SplitIndex, ASeparatorAtTheEndLeavesNothingToTheRightAndIsPassedOver) {
    EXPECT_EQ(splitIndex(ids(40, {{39, comma}, {12, space}}), commaThenSpace), 13);
    EXPECT_EQ(splitIndex(ids(40, {{39, comma}}), commaThenSpace), 20);
    EXPECT_EQ(splitIndex(ids(2, {{1, space}}), commaThenSpace), 1);
}

TEST(SplitIndex, WithoutSeparatorsTheMiddle) {
    EXPECT_EQ(splitIndex(ids(41, {}), commaThenSpace), 20);
    EXPECT_EQ(splitIndex(ids(41, {}), std::vector<int64_t>{}), 20);
    EXPECT_EQ(splitIndex(ids(2, {}), commaThenSpace), 1);
}

TEST(SplitIndexDeathTest, FewerThanTwoIdsCannotBeSplit) {
    EXPECT_DEATH(splitIndex(ids(1, {}), commaThenSpace), "splitting a chunk of 1 ids");
}

}  // namespace
}  // namespace murmela
