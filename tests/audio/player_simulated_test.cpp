// The player without an audio device (MURMELA_AUDIO=none): the bookkeeping of pending blocks,
// the idle callback and generations, with playing time simulated on the main thread's timers.

#include <gtest/gtest.h>

#include <stdlib.h>

#include <chrono>
#include <memory>
#include <vector>

#include "audio/player.h"
#include "player_harness.h"

namespace murmela {
namespace {

using namespace std::chrono_literals;
using testing::Clock;
using testing::CompletionTrace;
using testing::runEventsFor;
using testing::runEventsUntil;
using testing::secondsBetween;

// Timers fire a little late, never early; this is how late a test accepts.
constexpr double kLateness = 0.25;

double uptime() {
    return std::chrono::duration<double>(Clock::now().time_since_epoch()).count();
}

class SimulatedPlayer : public ::testing::Test {
protected:
    void SetUp() override {
        // Read once per process, so set before the first player.
        ::setenv("MURMELA_AUDIO", "none", 1);
        testing::ensureApplication();
    }
};

TEST_F(SimulatedPlayer, FinishWithNothingScheduledCallsIdleAtOnceAndOnlyOnce) {
    Player player;
    int idleCalls = 0;
    player.start([&] { ++idleCalls; });
    player.schedule({});  // an empty block neither counts nor delays
    EXPECT_EQ(player.pending(), 0);
    player.finish();
    EXPECT_EQ(idleCalls, 1);
    EXPECT_TRUE(player.finished());
    player.finish();
    runEventsFor(50ms);
    EXPECT_EQ(idleCalls, 1);
}

TEST_F(SimulatedPlayer, BlocksCompleteWhenTheirSimulatedPlayingEnds) {
    Player player;
    CompletionTrace trace(player);
    Clock::time_point idleAt;
    int idleCalls = 0;
    player.start([&] {
        ++idleCalls;
        idleAt = Clock::now();
    });
    const Clock::time_point scheduled = Clock::now();
    const double scheduledUptime = uptime();
    player.schedule(std::vector<float>(24000, 0.1f));
    player.schedule(std::vector<float>(12000, 0.1f));
    EXPECT_EQ(player.pending(), 2);
    EXPECT_NEAR(player.clock() - scheduledUptime, 1.5, 0.01);
    player.finish();
    EXPECT_EQ(idleCalls, 0);

    ASSERT_TRUE(
        runEventsUntil([&] { return idleCalls > 0 && trace.completions().size() == 2; }, 5s));
    const double first = secondsBetween(scheduled, trace.completions()[0]);
    const double second = secondsBetween(scheduled, trace.completions()[1]);
    EXPECT_GE(first, 1.0);
    EXPECT_LE(first, 1.0 + kLateness);
    EXPECT_GE(second, 1.5);
    EXPECT_LE(second, 1.5 + kLateness);
    EXPECT_GE(secondsBetween(scheduled, idleAt), 1.5);
    EXPECT_EQ(player.pending(), 0);
    EXPECT_EQ(idleCalls, 1);
}

TEST_F(SimulatedPlayer, BlockAfterTheClockRanOutStartsFromNow) {
    Player player;
    CompletionTrace trace(player);
    player.start([] {});
    player.schedule(std::vector<float>(2400, 0.0f));  // 0.1 s
    ASSERT_TRUE(runEventsUntil([&] { return player.pending() == 0; }, 2s));
    runEventsFor(300ms);

    const Clock::time_point scheduled = Clock::now();
    const double scheduledUptime = uptime();
    player.schedule(std::vector<float>(4800, 0.0f));  // 0.2 s, from now, not from the old clock
    EXPECT_NEAR(player.clock() - scheduledUptime, 0.2, 0.01);
    ASSERT_TRUE(runEventsUntil([&] { return trace.completions().size() == 2; }, 2s));
    const double played = secondsBetween(scheduled, trace.completions()[1]);
    EXPECT_GE(played, 0.2);
    EXPECT_LE(played, 0.2 + kLateness);
}

TEST_F(SimulatedPlayer, StoppedUtteranceNeitherCallsIdleNorCountsItsLateCompletions) {
    Player player;
    CompletionTrace trace(player);
    int stoppedIdle = 0;
    player.start([&] { ++stoppedIdle; });
    player.schedule(std::vector<float>(2400, 0.0f));  // would complete after 0.1 s
    player.finish();
    const int64_t generation = player.generation();
    player.stop();
    EXPECT_EQ(player.generation(), generation + 1);
    EXPECT_EQ(player.pending(), 0);
    EXPECT_FALSE(player.finished());

    // A restart at once: the old block's completion must not count for the new utterance.
    int restartedIdle = 0;
    Clock::time_point restartedIdleAt;
    player.start([&] {
        ++restartedIdle;
        restartedIdleAt = Clock::now();
    });
    const Clock::time_point scheduled = Clock::now();
    player.schedule(std::vector<float>(7200, 0.0f));  // 0.3 s
    player.finish();
    runEventsFor(200ms);
    EXPECT_EQ(player.pending(), 1);
    ASSERT_TRUE(runEventsUntil([&] { return restartedIdle > 0; }, 3s));
    EXPECT_GE(secondsBetween(scheduled, restartedIdleAt), 0.3);

    runEventsFor(200ms);
    EXPECT_EQ(stoppedIdle, 0);
    EXPECT_EQ(restartedIdle, 1);
    EXPECT_EQ(player.pending(), 0);
    EXPECT_FALSE(trace.wentNegative());

    // A stop with nothing after it: the late completion leaves pending at 0.
    player.start([&] { ++stoppedIdle; });
    player.schedule(std::vector<float>(1200, 0.0f));
    player.stop();
    runEventsFor(200ms);
    EXPECT_EQ(player.pending(), 0);
    EXPECT_EQ(stoppedIdle, 0);
    EXPECT_FALSE(trace.wentNegative());
}

TEST_F(SimulatedPlayer, ReleasedPlayerLetsItsCompletionsLapse) {
    int idleCalls = 0;
    {
        auto player = std::make_unique<Player>();
        player->start([&] { ++idleCalls; });
        player->schedule(std::vector<float>(1200, 0.0f));
        player->finish();
    }
    runEventsFor(200ms);
    EXPECT_EQ(idleCalls, 0);
}

}  // namespace
}  // namespace murmela
