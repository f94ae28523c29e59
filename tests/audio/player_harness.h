#pragma once
// What the player and speech tests share: a Qt event loop to run the player in, a record of when
// its blocks completed, and, on a private sound server (tests/support/pulse-session), a
// recording of what it played and the check that known samples were heard in it, whole.

#include <sys/types.h>
#include <QTimer>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "audio/player.h"

namespace murmela::testing {

using Clock = std::chrono::steady_clock;

// The process's QCoreApplication, made on first use.
void ensureApplication();

// Runs the main thread's events until `done` holds or `timeout` passes; says whether it held.
bool runEventsUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout);

// Runs the main thread's events for `duration`.
void runEventsFor(std::chrono::milliseconds duration);

// Seconds from `from` to `to`.
double secondsBetween(Clock::time_point from, Clock::time_point to);

// Watches a player's `pending` count every millisecond and notes when it went down, which is when
// a block completed.
class CompletionTrace {
public:
    explicit CompletionTrace(const Player& player);

    const std::vector<Clock::time_point>& completions() const { return completions_; }
    // Whether `pending` was ever seen below zero.
    bool wentNegative() const { return wentNegative_; }

private:
    const Player& player_;
    QTimer timer_;
    int64_t lastPending_ = 0;
    int64_t lastGeneration_ = 0;
    bool wentNegative_ = false;
    std::vector<Clock::time_point> completions_;
};

// Starts a program, without Qt's process machinery, whose child shares the parent's memory in
// a way the thread sanitizer cannot follow. Gives its pid, or -1.
pid_t spawn(const std::vector<std::string>& arguments);

// Runs a program to its end; gives its exit status, or -1.
int run(const std::vector<std::string>& arguments);

// Records the null sink's monitor with parec, at the player's format (24000 Hz, mono, float),
// into `file` until stopped.
class MonitorRecording {
public:
    explicit MonitorRecording(const std::filesystem::path& file);
    ~MonitorRecording();
    MonitorRecording(const MonitorRecording&) = delete;
    MonitorRecording& operator=(const MonitorRecording&) = delete;

    bool started() const { return pid_ > 0; }

    // Ends the recording and gives what was recorded.
    std::vector<float> stop();

private:
    std::filesystem::path file_;
    pid_t pid_ = -1;
};

// Where `expected` begins in `recording`: the first offset at which its opening samples are
// heard, or the recording's size when they never are.
size_t locate(const std::vector<float>& recording, const std::vector<float>& expected);

// The normalised correlation of two runs of `count` samples.
double correlation(const float* a, const float* b, size_t count);

// How many samples of `recording` are not silence.
size_t soundingSamples(const std::vector<float>& recording);

// Checks that `expected` was heard whole and once in `recording`, found by its first sounding
// stretch (an opening silence would match any silence): correlation above 0.999, no sample off
// by 1e-3 or more. Gives where it starts, or the recording's size when it was not heard.
size_t expectHeardWhole(const std::vector<float>& recording, const std::vector<float>& expected);

}  // namespace murmela::testing
