// The stream the sink pulls: blocks back to back with silence in the gaps, nothing at all before
// the first block, and the stream position where each block ends, which is what completions are
// measured against. Read on another thread while the main thread hands in blocks, as in playing.
// And how far the sink stream counts a stream as heard, from what a stand-in sink reports.

#include "audio/sink_stream.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <thread>
#include <vector>

namespace murmela {
namespace {

// Reads `frames` frames as the sink would; gives what came (possibly nothing).
std::vector<float> pull(SampleFeed& feed, size_t frames) {
    std::vector<float> out(frames);
    const qint64 got =
        feed.read(reinterpret_cast<char*>(out.data()), static_cast<qint64>(frames * sizeof(float)));
    out.resize(got > 0 ? static_cast<size_t>(got) / sizeof(float) : 0);
    return out;
}

TEST(SampleFeed, NothingBeforeTheFirstBlockThenSilenceInGapsAndExactBlockEnds) {
    SampleFeed feed;
    feed.beginStream();
    EXPECT_TRUE(pull(feed, 100).empty()) << "leading silence would delay the first block";

    feed.push(7, std::vector<float>(150, 0.25f));
    std::vector<float> first = pull(feed, 100);
    ASSERT_EQ(first.size(), 100u);
    EXPECT_EQ(first.front(), 0.25f);
    // The rest of the block, then silence: the stream never runs dry once it has begun.
    std::vector<float> second = pull(feed, 100);
    ASSERT_EQ(second.size(), 100u);
    EXPECT_EQ(second[49], 0.25f);
    EXPECT_EQ(second[50], 0.0f);
    EXPECT_EQ(second[99], 0.0f);

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
}

TEST(SampleFeed, DiscardDropsUnreadBlocksAndTheirEnds) {
    SampleFeed feed;
    feed.beginStream();
    feed.push(1, std::vector<float>(50, 0.5f));
    feed.push(1, std::vector<float>(50, 0.5f));
    pull(feed, 60);  // the first block is read whole, the second in part
    feed.discard();
    const std::vector<float> after = pull(feed, 40);
    ASSERT_EQ(after.size(), 40u);
    for (float sample : after) {
        EXPECT_EQ(sample, 0.0f);
    }
    EXPECT_TRUE(feed.takePlayed(1000).empty()) << "a stopped block must not complete";
    EXPECT_FALSE(feed.drained()) << "a discard is no finish";
}

TEST(SampleFeed, EverySampleArrivesOnceAndInOrderWhileBlocksKeepComing) {
    SampleFeed feed;
    feed.beginStream();
    constexpr int kBlocks = 300;
    // Every scheduled sample is non-zero and numbered, so silence and order are told apart.
    auto valueOf = [](int64_t index) { return 1.0f + static_cast<float>(index % 4096); };

    std::vector<float> heard;
    int64_t position = 0;
    std::vector<int64_t> endsSeen;
    std::thread reader([&] {
        int64_t expectedCount = 0;
        for (int b = 0; b < kBlocks; ++b) {
            expectedCount += 1 + (b * 37) % 500;
        }
        // Silence fills the wait for the producer; so many frames mean samples were lost.
        constexpr int64_t kGiveUp = 50'000'000;
        while (static_cast<int64_t>(heard.size()) < expectedCount && position < kGiveUp) {
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
        std::vector<float> block(static_cast<size_t>(1 + (b * 37) % 500));
        for (float& sample : block) {
            sample = valueOf(index++);
        }
        feed.push(b, std::move(block));
        if (b % 17 == 0) {
            std::this_thread::yield();
        }
    }
    reader.join();

    ASSERT_EQ(static_cast<int64_t>(heard.size()), index);
    for (int64_t i = 0; i < index; ++i) {
        ASSERT_EQ(heard[static_cast<size_t>(i)], valueOf(i)) << "sample " << i;
    }
    for (int64_t generation : feed.takePlayed(position)) {
        endsSeen.push_back(generation);
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
    using Clock = PlayedPosition::Clock;
    using std::chrono::milliseconds;
    const Clock::time_point opened = Clock::now();
    PlayedPosition position;
    position.restart(opened);
    StandInSink sink;

    // Before the feed hands out a sample nothing is heard, whatever the sink says.
    sink.processedMicroseconds = 500000;
    EXPECT_EQ(position.update(sink.processedMicroseconds, std::nullopt, true, opened), 0);

    // The sink claims half a second, but only 100 ms have passed since the first sample.
    const Clock::time_point first = opened + milliseconds(10);
    EXPECT_EQ(position.update(sink.processedMicroseconds, first, true, first + milliseconds(100)),
              2400);
    // Once the clock has caught up, the sink's own figure counts.
    EXPECT_EQ(position.update(sink.processedMicroseconds, first, true, first + milliseconds(900)),
              12000);

    // The sink stands still with blocks waiting: up to the limit that is patience, past it a
    // failure.
    const Clock::time_point stalled = first + milliseconds(900);
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

}  // namespace
}  // namespace murmela
