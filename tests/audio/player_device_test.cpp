// The player on a real sound server: a private PulseAudio daemon with a null sink, started by
// tests/support/pulse-session, whose monitor is recorded with parec. What was played must be
// exactly the scheduled blocks, back to back; each completion must come only after its block
// could have been heard; a stop must silence the output at once; and a server that goes away
// while playing must end the utterance instead of leaving it waiting.
//
// With MURMELA_MUTE=1 the same runs must give the same callbacks and timing, and silence.

#include <signal.h>

#include <QString>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <limits>
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

size_t threadCount() {
    const auto tasks = std::filesystem::directory_iterator("/proc/self/task");
    return static_cast<size_t>(std::distance(begin(tasks), end(tasks)));
}
using testing::CompletionTrace;
using testing::MonitorRecording;
using testing::run;
using testing::runEventsFor;
using testing::runEventsUntil;
using testing::secondsBetween;
using testing::soundingSamples;

constexpr double kRate = 24000.0;
// The longest a completion may come after its block's end could first have been heard: the
// sink's buffer and the server's latency.
constexpr double kLatency = 0.75;

bool muted() {
    const char* value = std::getenv("MURMELA_MUTE");
    return value != nullptr && std::string(value) == "1";
}

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
    }

    testing::TemporaryDirectory directory_{"murmela-player"};
};

TEST_F(DevicePlayer, PlaysBlocksBackToBackAndReportsEachOnlyAfterItWasHeard) {
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

    Player player;
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
        std::cout << "block " << k << " ends at " << end << " s, reported at " << at << " s (+"
                  << (at - end) * 1000.0 << " ms)\n";
    }
    EXPECT_GE(secondsBetween(begin, idleAt), end);

    if (muted()) {
        EXPECT_EQ(soundingSamples(recorded), 0u) << "a muted player was heard";
        return;
    }
    testing::expectHeardWhole(recorded, expected);
    // Nothing but the blocks was heard: no repeat, no tail, no gap padded with sound.
    const size_t sounding = soundingSamples(recorded);
    EXPECT_NEAR(static_cast<double>(sounding), static_cast<double>(expected.size()), 0.01 * kRate);
}

TEST_F(DevicePlayer, StopSilencesAtOnceAndARestartPlaysOnlyTheNewUtterance) {
    MonitorRecording recording(directory_ / "monitor.f32");
    ASSERT_TRUE(recording.started()) << "parec did not start";

    Player player;
    CompletionTrace trace(player);
    int stoppedIdle = 0;
    player.start([&] { ++stoppedIdle; });
    const std::vector<float> stopped = noise(48000, 5);  // 2 s, cut short
    const Clock::time_point begin = Clock::now();
    player.schedule(stopped);
    player.finish();
    runEventsFor(300ms);
    player.stop();
    const double stoppedAfter = secondsBetween(begin, Clock::now());
    EXPECT_EQ(player.pending(), 0);

    int restartedIdle = 0;
    Clock::time_point restartedIdleAt;
    player.start([&] {
        ++restartedIdle;
        restartedIdleAt = Clock::now();
    });
    const std::vector<float> next = noise(12000, 6);  // 0.5 s
    const Clock::time_point restarted = Clock::now();
    player.schedule(next);
    player.finish();
    ASSERT_TRUE(runEventsUntil([&] { return restartedIdle > 0; }, 10s));
    EXPECT_GE(secondsBetween(restarted, restartedIdleAt), 0.5);
    runEventsFor(2s);  // past the end of the stopped block
    const std::vector<float> recorded = recording.stop();

    EXPECT_EQ(stoppedIdle, 0);
    EXPECT_EQ(restartedIdle, 1);
    EXPECT_EQ(player.pending(), 0);
    EXPECT_FALSE(trace.wentNegative());
    if (muted()) {
        EXPECT_EQ(soundingSamples(recorded), 0u) << "a muted player was heard";
        return;
    }
    // Of the stopped block, only what played before the stop (plus the output's latency).
    const size_t sounding = soundingSamples(recorded);
    EXPECT_GE(sounding, next.size());
    EXPECT_LE(static_cast<double>(sounding - next.size()), (stoppedAfter + kLatency) * kRate)
        << "the stopped block went on playing";
    // The new utterance is heard whole.
    testing::expectHeardWhole(recorded, next);
}

// Keeps the sound server stopped (SIGSTOP) while it lives: it neither plays nor says why.
class FrozenServer {
public:
    explicit FrozenServer(pid_t pid) : pid_(pid) { ::kill(pid_, SIGSTOP); }
    ~FrozenServer() { ::kill(pid_, SIGCONT); }

private:
    pid_t pid_;
};

TEST_F(DevicePlayer, ServerThatHangsWhilePlayingEndsTheUtteranceInsteadOfWaitingForever) {
    const char* daemon = std::getenv("MURMELA_PULSE_PID");
    ASSERT_NE(daemon, nullptr);
    Player player;
    int idleCalls = 0;
    QString failure;
    QObject::connect(&player, &Player::outputFailed,
                     [&](const QString& description) { failure = description; });
    player.start([&] { ++idleCalls; });
    player.schedule(noise(72000, 8));  // 3 s
    player.finish();
    runEventsFor(500ms);
    {
        FrozenServer frozen(static_cast<pid_t>(std::atoi(daemon)));
        const Clock::time_point frozenAt = Clock::now();
        ASSERT_TRUE(runEventsUntil([&] { return !failure.isEmpty(); }, 15s))
            << "the player waited for a server that stopped playing";
        std::cout << "failure after " << secondsBetween(frozenAt, Clock::now())
                  << " s of silence: " << failure.toStdString() << "\n";
    }
    EXPECT_EQ(player.pending(), 0);
    runEventsFor(500ms);
    EXPECT_EQ(idleCalls, 0);

    // Once the server answers again, the next utterance plays.
    int nextIdle = 0;
    player.start([&] { ++nextIdle; });
    player.schedule(noise(2400, 9));
    player.finish();
    EXPECT_TRUE(runEventsUntil([&] { return nextIdle == 1; }, 5s));
}

// Last, because it ends the sound server.
TEST_F(DevicePlayer, ServerLostWhilePlayingEndsTheUtterance) {
    {
        Player first;  // connects Qt to the sound server, with the threads that takes
    }
    const size_t threadsWithoutPlayer = threadCount();
    Player player;
    CompletionTrace trace(player);
    int idleCalls = 0;
    QString failure;
    QObject::connect(&player, &Player::outputFailed,
                     [&](const QString& description) { failure = description; });
    player.start([&] { ++idleCalls; });
    player.schedule(noise(72000, 7));  // 3 s
    player.finish();
    const int64_t generation = player.generation();
    runEventsFor(500ms);
    // Qt frees its server connection on the thread that made it as soon as it fails; a sink on a
    // thread of its own may still be using it then, and the process aborts now and then. The
    // player adds no thread to those Qt and the sound library run.
    EXPECT_EQ(threadCount(), threadsWithoutPlayer);
    ASSERT_EQ(run({"pactl", "exit"}), 0);

    ASSERT_TRUE(runEventsUntil([&] { return !failure.isEmpty(); }, 5s))
        << "the player did not notice that the server went away";
    std::cout << "failure: " << failure.toStdString() << "\n";
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

}  // namespace
}  // namespace murmela
