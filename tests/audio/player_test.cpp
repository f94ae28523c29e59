// The player's pieces without a sound server: the stream of samples the sink pulls (read on
// another thread while blocks come in), how far a stand-in sink counts as heard, and the player
// with playing time simulated (MURMELA_AUDIO=none) for its pending blocks, idle callback and
// generations.

#include <gtest/gtest.h>

#include <stdlib.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "audio/player.h"
#include "audio/sink_stream.h"
#include "player_harness.h"

namespace murmela {
namespace {

using namespace std::chrono_literals;
using testing::Clock;
using testing::CompletionTrace;
using testing::runEventsFor;
using testing::runEventsUntil;
using testing::secondsBetween;

// Reads `frames` frames as the sink would; gives what came (possibly nothing).
std::vector<float> pull(SampleFeed& feed, size_t frames) {
    std::vector<float> out(frames);
    const qint64 got =
        feed.read(reinterpret_cast<char*>(out.data()), static_cast<qint64>(frames * sizeof(float)));
    out.resize(got > 0 ? static_cast<size_t>(got) / sizeof(float) : 0);
    return out;
}

TEST(SampleFeed, NothingBeforeTheFirstBlockThenSilenceInGapsExactBlockEndsAndDiscards) {
    SampleFeed feed;
    feed.beginStream();
    EXPECT_TRUE(pull(feed, 100).empty()) << "leading silence would delay the first block";

    feed.push(7, std::vector<float>(150, 0.25f));
    EXPECT_EQ(pull(feed, 100).front(), 0.25f);
    // The rest of the block, then silence: the stream never runs dry once it has begun.
    std::vector<float> second = pull(feed, 100);
    ASSERT_EQ(second.size(), 100u);
    EXPECT_EQ(second[49], 0.25f);
    EXPECT_EQ(second[50], 0.0f);
    feed.push(7, std::vector<float>(30, -0.5f));
    std::vector<float> third = pull(feed, 100);
    EXPECT_EQ(third[0], -0.5f);
    EXPECT_EQ(third[30], 0.0f);

    // The first block ends at frame 150, the second (after 50 frames of gap) at 230.
    EXPECT_TRUE(feed.takePlayed(149).empty());
    EXPECT_EQ(feed.takePlayed(229), std::vector<int64_t>{7});
    EXPECT_EQ(feed.takePlayed(230), std::vector<int64_t>{7});
    EXPECT_TRUE(feed.takePlayed(1000).empty());
    EXPECT_FALSE(feed.drained());
    feed.finish();
    EXPECT_TRUE(feed.drained());

    // A new stream counts from 0 again, and waits for its first block.
    feed.beginStream();
    EXPECT_TRUE(pull(feed, 10).empty());
    feed.push(8, std::vector<float>(10, 0.1f));
    pull(feed, 10);
    EXPECT_EQ(feed.takePlayed(10), std::vector<int64_t>{8});

    // A discard drops what is unread, in part or whole, and its ends; it is no finish.
    feed.push(9, std::vector<float>(50, 0.5f));
    feed.push(9, std::vector<float>(50, 0.5f));
    pull(feed, 60);
    feed.discard();
    EXPECT_EQ(pull(feed, 40), std::vector<float>(40, 0.0f));
    EXPECT_TRUE(feed.takePlayed(1000).empty()) << "a stopped block must not complete";
    EXPECT_FALSE(feed.drained());
}

TEST(SampleFeed, EverySampleArrivesOnceAndInOrderWhileBlocksKeepComing) {
    SampleFeed feed;
    feed.beginStream();
    constexpr int kBlocks = 300;
    auto blockSize = [](int b) { return static_cast<size_t>(1 + (b * 37) % 500); };
    // Every scheduled sample is non-zero and numbered, so silence and order are told apart.
    auto valueOf = [](int64_t index) { return 1.0f + static_cast<float>(index % 4096); };
    size_t total = 0;
    for (int b = 0; b < kBlocks; ++b) {
        total += blockSize(b);
    }

    std::vector<float> heard;
    std::vector<int64_t> endsSeen;
    std::thread reader([&] {
        // Silence fills the wait for the producer; so many frames mean samples were lost.
        for (int64_t position = 0; heard.size() < total && position < 50'000'000;) {
            for (float sample : pull(feed, 480)) {
                ++position;
                if (sample != 0.0f) {
                    heard.push_back(sample);
                }
            }
            for (int64_t generation : feed.takePlayed(position)) {
                endsSeen.push_back(generation);
            }
        }
    });
    int64_t index = 0;
    for (int b = 0; b < kBlocks; ++b) {
        std::vector<float> block(blockSize(b));
        for (float& sample : block) {
            sample = valueOf(index++);
        }
        feed.push(b, std::move(block));
        if (b % 17 == 0) {
            std::this_thread::yield();
        }
    }
    reader.join();

    ASSERT_EQ(heard.size(), total);
    for (size_t i = 0; i < total; ++i) {
        ASSERT_EQ(heard[i], valueOf(static_cast<int64_t>(i))) << "sample " << i;
    }
    ASSERT_EQ(endsSeen.size(), static_cast<size_t>(kBlocks));
    for (int b = 0; b < kBlocks; ++b) {
        EXPECT_EQ(endsSeen[static_cast<size_t>(b)], b);
    }
}

// What a sink says it has processed, which may run ahead of the clock (a server that buffers
// generously) or stand still (one that hangs).
struct StandInSink {
    int64_t processedMicroseconds = 0;
};

TEST(PlayedPosition, HeardTimeIsClampedToTheClockAndAStallWhileBlocksWaitIsAFailure) {
    using std::chrono::milliseconds;
    const PlayedPosition::Clock::time_point opened = PlayedPosition::Clock::now();
    PlayedPosition position;
    position.restart(opened);
    StandInSink sink;

    // Before the feed hands out a sample nothing is heard, whatever the sink says.
    sink.processedMicroseconds = 500000;
    EXPECT_EQ(position.update(sink.processedMicroseconds, std::nullopt, true, opened), 0);

    // The sink claims half a second, but only 100 ms have passed since the first sample.
    const auto first = opened + milliseconds(10);
    EXPECT_EQ(position.update(sink.processedMicroseconds, first, true, first + milliseconds(100)),
              2400);
    // Once the clock has caught up, the sink's own figure counts.
    EXPECT_EQ(position.update(sink.processedMicroseconds, first, true, first + milliseconds(900)),
              12000);

    // The sink stands still with blocks waiting: up to the limit that is patience, past it a
    // failure.
    const auto stalled = first + milliseconds(900);
    EXPECT_EQ(position.update(sink.processedMicroseconds, first, true,
                              stalled + PlayedPosition::stallLimit),
              12000);
    EXPECT_EQ(position.update(sink.processedMicroseconds, first, true,
                              stalled + PlayedPosition::stallLimit + milliseconds(1)),
              std::nullopt);

    // Standing still with nothing left to hear is no stall, and progress restarts the wait.
    PlayedPosition idle;
    idle.restart(opened);
    EXPECT_EQ(idle.update(0, first, false, opened + std::chrono::seconds(60)), 0);
    EXPECT_EQ(idle.update(1000000, first, true, opened + std::chrono::seconds(64)), 24000);
    EXPECT_EQ(idle.update(1000000, first, true, opened + std::chrono::seconds(69)), 24000);
}

class SimulatedPlayer : public ::testing::Test {
protected:
    void SetUp() override {
        // Read once per process, so set before the first player.
        ::setenv("MURMELA_AUDIO", "none", 1);
        testing::ensureApplication();
    }
    // Timers fire a little late, never early; this is how late a test accepts.
    static void expectAfter(Clock::time_point from, Clock::time_point at, double seconds) {
        EXPECT_GE(secondsBetween(from, at), seconds);
        EXPECT_LE(secondsBetween(from, at), seconds + 0.25);
    }
};

TEST_F(SimulatedPlayer, BlocksCompleteWhenTheirPlayingEndsAndIdleComesOnceAfterTheLast) {
    Player player;
    int idleCalls = 0;
    player.start([&] { ++idleCalls; });
    player.schedule({});  // an empty block neither counts nor delays
    EXPECT_EQ(player.pending(), 0);
    player.finish();
    player.finish();
    EXPECT_EQ(idleCalls, 1);

    CompletionTrace trace(player);
    Clock::time_point idleAt;
    player.start([&] {
        ++idleCalls;
        idleAt = Clock::now();
    });
    const Clock::time_point scheduled = Clock::now();
    player.schedule(std::vector<float>(24000, 0.1f));
    player.schedule(std::vector<float>(12000, 0.1f));
    EXPECT_EQ(player.pending(), 2);
    player.finish();
    EXPECT_EQ(idleCalls, 1);
    ASSERT_TRUE(
        runEventsUntil([&] { return idleCalls > 1 && trace.completions().size() == 2; }, 5s));
    expectAfter(scheduled, trace.completions()[0], 1.0);
    expectAfter(scheduled, trace.completions()[1], 1.5);
    expectAfter(scheduled, idleAt, 1.5);

    // Once the clock has run out, a block plays from now, not from the old clock.
    runEventsFor(300ms);
    const Clock::time_point late = Clock::now();
    player.schedule(std::vector<float>(4800, 0.0f));  // 0.2 s
    ASSERT_TRUE(runEventsUntil([&] { return trace.completions().size() == 3; }, 2s));
    expectAfter(late, trace.completions()[2], 0.2);
    EXPECT_EQ(idleCalls, 2);
    EXPECT_EQ(player.pending(), 0);
}

TEST_F(SimulatedPlayer, StoppedOrReleasedUtterancesNeitherCallIdleNorCountLateCompletions) {
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

    // A stop with nothing after it: the late completion leaves pending at 0.
    player.start([&] { ++stoppedIdle; });
    player.schedule(std::vector<float>(1200, 0.0f));
    player.stop();
    // A released player lets its completions lapse.
    {
        auto released = std::make_unique<Player>();
        released->start([&] { ++stoppedIdle; });
        released->schedule(std::vector<float>(1200, 0.0f));
        released->finish();
    }
    runEventsFor(200ms);
    EXPECT_EQ(stoppedIdle, 0);
    EXPECT_EQ(restartedIdle, 1);
    EXPECT_EQ(player.pending(), 0);
    EXPECT_FALSE(trace.wentNegative());
}

}  // namespace
}  // namespace murmela
