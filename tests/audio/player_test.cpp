// The player: the stream of samples the sink pulls, how far a stand-in sink counts as heard, and
// the player with playing time simulated (MURMELA_AUDIO=none) for its pending blocks, idle
// callback and generations. Then the player on a private sound server
// (tests/support/pulse-session) whose null sink's monitor is recorded; muted (MURMELA_MUTE=1),
// the same runs must give the same callbacks and timing, and silence. Without any server, start
// must fail with a description and the player stay usable.

#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <QString>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "audio/player.h"
#include "audio/sink_stream.h"
#include "player_harness.h"
#include "support/temporary_directory.h"

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

TEST(PlayedPosition, HeardTimeIsClampedToTheClockAndAStallWhileBlocksWaitIsAFailure) {
    using std::chrono::milliseconds;
    const PlayedPosition::Clock::time_point opened = PlayedPosition::Clock::now();
    PlayedPosition position;
    position.restart(opened);
    // What the sink says it has processed may run ahead of the clock (a server that buffers
    // generously) or stand still (one that hangs).
    const int64_t processed = 500000;

    // Before the feed hands out a sample nothing is heard, whatever the sink says.
    EXPECT_EQ(position.update(processed, std::nullopt, true, opened), 0);

    // The sink claims half a second, but only 100 ms have passed since the first sample.
    const auto first = opened + milliseconds(10);
    EXPECT_EQ(position.update(processed, first, true, first + milliseconds(100)), 2400);
    // Once the clock has caught up, the sink's own figure counts.
    EXPECT_EQ(position.update(processed, first, true, first + milliseconds(900)), 12000);

    // The sink stands still with blocks waiting: up to the limit that is patience, past it a
    // failure.
    const auto stalled = first + milliseconds(900);
    EXPECT_EQ(position.update(processed, first, true, stalled + PlayedPosition::stallLimit), 12000);
    EXPECT_EQ(position.update(processed, first, true,
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

constexpr double kRate = 24000.0;
// The longest a completion may come after its block's end could first have been heard: the
// sink's buffer and the server's latency.
constexpr double kLatency = 0.75;

// Noise, so that any shift, gap or repeat in the recording shows.
std::vector<float> noise(size_t count, unsigned seed) {
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> uniform(-0.5f, 0.5f);
    std::vector<float> samples(count);
    for (float& sample : samples) {
        sample = uniform(generator);
    }
    return samples;
}

// Records the private sink's monitor with parec, at the player's format, until stopped.
class MonitorRecording {
public:
    explicit MonitorRecording(std::filesystem::path file) : file_(std::move(file)) {
        const std::string monitor = std::string(std::getenv("MURMELA_PULSE_SINK")) + ".monitor";
        pid_ = testing::spawn({"parec", "--device=" + monitor, "--format=float32le", "--rate=24000",
                               "--channels=1", "--raw", "--latency-msec=10", file_.string()});
        runEventsFor(400ms);  // parec needs a moment to connect before the monitor reaches the file
    }
    ~MonitorRecording() { stop(); }

    bool started() const { return pid_ > 0; }
    // Ends the recording and gives what was recorded.
    std::vector<float> stop() {
        if (pid_ > 0) {
            ::kill(pid_, SIGTERM);
            ::waitpid(pid_, nullptr, 0);
            pid_ = -1;
        }
        std::ifstream in(file_, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(in)), {});
        std::vector<float> samples(bytes.size() / sizeof(float));
        std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
        return samples;
    }

private:
    std::filesystem::path file_;
    int pid_ = -1;
};

size_t soundingSamples(const std::vector<float>& recording) {
    return static_cast<size_t>(
        std::ranges::count_if(recording, [](float x) { return std::fabs(x) >= 1e-4f; }));
}

// Checks that `expected` was heard whole in `recording`, no sample off by 1e-3 or more. It is
// found by its first sounding stretch, since an opening silence would match any silence.
void expectHeardWhole(const std::vector<float>& recording, const std::vector<float>& expected) {
    const size_t lead = static_cast<size_t>(
        std::ranges::find_if(expected, [](float x) { return std::fabs(x) >= 1e-3f; }) -
        expected.begin());
    auto matchesAt = [&](size_t offset, size_t from, size_t to) {
        for (size_t i = from; i < to; ++i) {
            if (std::fabs(recording[offset + i] - expected[i]) >= 1e-3f) {
                return false;
            }
        }
        return true;
    };
    for (size_t offset = 0; offset + expected.size() <= recording.size(); ++offset) {
        if (matchesAt(offset, lead, std::min(lead + 240, expected.size()))) {
            EXPECT_TRUE(matchesAt(offset, 0, expected.size())) << "changed where heard";
            return;
        }
    }
    ADD_FAILURE() << "the samples were not heard whole";
}

class DevicePlayer : public ::testing::Test {
protected:
    void SetUp() override {
        if (const char* reason = std::getenv("MURMELA_PULSE_UNAVAILABLE")) {
            GTEST_SKIP() << "no sound server for this test: " << reason;
        }
        if (std::getenv("MURMELA_PULSE_SINK") == nullptr) {
            GTEST_SKIP() << "run this test through tests/support/pulse-session";
        }
        testing::ensureApplication();
        makePlayer();
    }

    void makePlayer() {
        player_ = std::make_unique<Player>();
        QObject::connect(player_.get(), &Player::outputFailed,
                         [this](const QString& description) { failure_ = description; });
    }

    // Whether the recording is silence, when muted; otherwise checks `expected` was heard whole.
    bool expectMutedOrHeard(const std::vector<float>& recorded,
                            const std::vector<float>& expected) {
        const char* mute = std::getenv("MURMELA_MUTE");
        if (mute != nullptr && std::string(mute) == "1") {
            EXPECT_EQ(soundingSamples(recorded), 0u) << "a muted player was heard";
            return true;
        }
        expectHeardWhole(recorded, expected);
        return false;
    }

    testing::TemporaryDirectory directory_{"murmela-player"};
    QString failure_;
    std::unique_ptr<Player> player_;
};

TEST_F(DevicePlayer, PlaysBlocksBackToBackAndReportsEachOnlyAfterItWasHeard) {
    Player& player = *player_;
    MonitorRecording recording(directory_ / "monitor.f32");
    ASSERT_TRUE(recording.started()) << "parec did not start";

    // Four blocks; the third has values outside [-1, 1] and a NaN, which must arrive clamped.
    std::vector<std::vector<float>> blocks = {noise(7200, 1), noise(12000, 2), noise(4800, 3),
                                              noise(9600, 4)};
    blocks[2][100] = 1.5f;
    blocks[2][101] = -2.0f;
    blocks[2][102] = std::numeric_limits<float>::quiet_NaN();
    std::vector<float> expected;
    for (const std::vector<float>& block : blocks) {
        expected.insert(expected.end(), block.begin(), block.end());
    }
    const size_t clampedAt = blocks[0].size() + blocks[1].size() + 100;
    expected[clampedAt] = 1.0f;
    expected[clampedAt + 1] = -1.0f;
    expected[clampedAt + 2] = 1.0f;

    CompletionTrace trace(player);
    int idleCalls = 0;
    Clock::time_point idleAt;
    player.start([&] {
        ++idleCalls;
        idleAt = Clock::now();
    });
    // The later blocks come while the earlier ones still play, as chunks do from synthesis.
    const Clock::time_point begin = Clock::now();
    player.schedule(blocks[0]);
    player.schedule(blocks[1]);
    runEventsFor(200ms);
    player.schedule(blocks[2]);
    runEventsFor(200ms);
    player.schedule(blocks[3]);
    player.finish();
    ASSERT_TRUE(
        runEventsUntil([&] { return idleCalls > 0 && trace.completions().size() == 4; }, 10s))
        << "completions: " << trace.completions().size() << ", idle calls: " << idleCalls;
    runEventsFor(300ms);
    const std::vector<float> recorded = recording.stop();

    EXPECT_EQ(idleCalls, 1);
    EXPECT_EQ(player.pending(), 0);
    double end = 0.0;
    for (size_t k = 0; k < blocks.size(); ++k) {
        end += static_cast<double>(blocks[k].size()) / kRate;
        const double at = secondsBetween(begin, trace.completions()[k]);
        EXPECT_GE(at, end) << "block " << k << " reported before it could have been heard";
        EXPECT_LE(at, end + kLatency) << "block " << k << " reported late";
    }
    EXPECT_GE(secondsBetween(begin, idleAt), end);
    if (!expectMutedOrHeard(recorded, expected)) {
        // Nothing but the blocks was heard: no repeat, no tail, no gap padded with sound.
        EXPECT_NEAR(static_cast<double>(soundingSamples(recorded)),
                    static_cast<double>(expected.size()), 0.01 * kRate);
    }
}

TEST_F(DevicePlayer, StopSilencesAtOnceAndARestartPlaysOnlyTheNewUtterance) {
    Player& player = *player_;
    MonitorRecording recording(directory_ / "monitor.f32");
    ASSERT_TRUE(recording.started()) << "parec did not start";

    CompletionTrace trace(player);
    int stoppedIdle = 0;
    player.start([&] { ++stoppedIdle; });
    const Clock::time_point begin = Clock::now();
    player.schedule(noise(48000, 5));  // 2 s, cut short
    player.finish();
    runEventsFor(300ms);
    player.stop();
    const double stoppedAfter = secondsBetween(begin, Clock::now());

    int restartedIdle = 0;
    player.start([&] { ++restartedIdle; });
    const std::vector<float> next = noise(12000, 6);  // 0.5 s
    player.schedule(next);
    player.finish();
    ASSERT_TRUE(runEventsUntil([&] { return restartedIdle > 0; }, 10s));
    runEventsFor(2s);  // past the end of the stopped block
    const std::vector<float> recorded = recording.stop();

    EXPECT_EQ(stoppedIdle, 0);
    EXPECT_EQ(restartedIdle, 1);
    EXPECT_EQ(player.pending(), 0);
    EXPECT_FALSE(trace.wentNegative());
    if (!expectMutedOrHeard(recorded, next)) {
        // Of the stopped block, only what played before the stop (plus the output's latency).
        EXPECT_LE(static_cast<double>(soundingSamples(recorded)) - static_cast<double>(next.size()),
                  (stoppedAfter + kLatency) * kRate)
            << "the stopped block went on playing";
    }
}

TEST_F(DevicePlayer, ServerThatHangsWhilePlayingEndsTheUtteranceInsteadOfWaitingForever) {
    Player& player = *player_;
    const char* daemon = std::getenv("MURMELA_PULSE_PID");
    ASSERT_NE(daemon, nullptr);
    int idleCalls = 0;
    player.start([&] { ++idleCalls; });
    player.schedule(noise(72000, 8));  // 3 s
    player.finish();
    runEventsFor(500ms);
    // Stopped, the server neither plays nor says why.
    ::kill(std::atoi(daemon), SIGSTOP);
    const bool noticed = runEventsUntil([&] { return !failure_.isEmpty(); }, 15s);
    ::kill(std::atoi(daemon), SIGCONT);
    ASSERT_TRUE(noticed) << "the player waited for a server that stopped playing";
    std::cout << "failure: " << failure_.toStdString() << "\n";
    EXPECT_EQ(player.pending(), 0);
    runEventsFor(500ms);
    EXPECT_EQ(idleCalls, 0);

    // Once the server answers again, the next utterance plays.
    player.start([&] { ++idleCalls; });
    player.schedule(noise(2400, 9));
    player.finish();
    EXPECT_TRUE(runEventsUntil([&] { return idleCalls == 1; }, 5s));
}

size_t threadCount() {
    const auto tasks = std::filesystem::directory_iterator("/proc/self/task");
    return static_cast<size_t>(std::distance(begin(tasks), end(tasks)));
}

// Last, because it ends the sound server.
TEST_F(DevicePlayer, ServerLostWhilePlayingEndsTheUtterance) {
    player_.reset();  // it connected Qt to the sound server, with the threads that takes
    const size_t threadsWithoutPlayer = threadCount();
    makePlayer();
    Player& player = *player_;
    CompletionTrace trace(player);
    int idleCalls = 0;
    player.start([&] { ++idleCalls; });
    player.schedule(noise(72000, 7));  // 3 s
    player.finish();
    const int64_t generation = player.generation();
    runEventsFor(500ms);
    // Qt frees its server connection on the thread that made it as soon as it fails; a sink on a
    // thread of its own may still be using it then, and the process aborts now and then. The
    // player adds no thread to those Qt and the sound library run.
    EXPECT_EQ(threadCount(), threadsWithoutPlayer);
    ASSERT_EQ(testing::run({"pactl", "exit"}), 0);

    ASSERT_TRUE(runEventsUntil([&] { return !failure_.isEmpty(); }, 5s))
        << "the player did not notice that the server went away";
    std::cout << "failure: " << failure_.toStdString() << "\n";
    EXPECT_GT(player.generation(), generation);
    EXPECT_EQ(player.pending(), 0);
    runEventsFor(3s);
    EXPECT_EQ(idleCalls, 0);
    EXPECT_TRUE(trace.completions().empty());

    // Still usable: a new start either finds an output or says why not.
    try {
        player.start([] {});
        player.finish();
    } catch (const AudioOutputError& error) {
        EXPECT_NE(std::string(error.what()), "");
    }
    player.stop();
}

TEST(PlayerWithoutServer, StartThrowsWithADescriptionAndThePlayerStaysUsable) {
    // Read once per process, when the first player asks for a device.
    ::setenv("PULSE_SERVER", "unix:/nonexistent/murmela-no-sound-server", 1);
    ::unsetenv("MURMELA_AUDIO");
    testing::ensureApplication();
    Player player;
    int idleCalls = 0;
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_THAT(
            [&] { player.start([&] { ++idleCalls; }); },
            ::testing::ThrowsMessage<AudioOutputError>(::testing::Not(::testing::IsEmpty())))
            << "attempt " << attempt;
        // A failed start stores no idle callback: finishing calls nothing.
        player.finish();
        EXPECT_EQ(idleCalls, 0);
        player.stop();
    }
    // Blocks handed over regardless are held, never played, never completed.
    player.schedule(std::vector<float>(2400, 0.5f));
    runEventsFor(300ms);
    EXPECT_EQ(player.pending(), 1);
    player.stop();
    EXPECT_EQ(player.pending(), 0);
    EXPECT_EQ(idleCalls, 0);
}

}  // namespace
}  // namespace murmela
