// The player on a private sound server (tests/support/pulse-session) whose null sink's monitor is
// recorded: what was played must be exactly the scheduled blocks, back to back; each completion
// must come only after its block could have been heard; a stop silences the output at once; a
// server that hangs or goes away ends the utterance. With MURMELA_MUTE=1 the same runs must give
// the same callbacks and timing, and silence. Where no server can be reached at all, start must
// fail with a description, and the player stay usable.

#include <signal.h>
#include <stdlib.h>

#include <QString>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "audio/player.h"
#include "player_harness.h"
#include "support/temporary_directory.h"

namespace murmela {
namespace {

using namespace std::chrono_literals;
using testing::Clock;
using testing::CompletionTrace;
using testing::MonitorRecording;
using testing::runEventsFor;
using testing::runEventsUntil;
using testing::secondsBetween;
using testing::soundingSamples;

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
        testing::expectHeardWhole(recorded, expected);
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
        try {
            player.start([&] { ++idleCalls; });
            FAIL() << "start succeeded without a sound server";
        } catch (const AudioOutputError& error) {
            EXPECT_NE(std::string(error.what()), "") << "attempt " << attempt;
        }
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
