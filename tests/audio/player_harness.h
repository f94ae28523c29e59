#pragma once
// What the player and speech tests share: a Qt event loop to run the player in, a record of when
// its blocks completed, and, on a private sound server (tests/support/pulse-session), a
// recording of what it played and the check that known samples were heard in it, whole.

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
void runEventsFor(std::chrono::milliseconds duration);

double secondsBetween(Clock::time_point from, Clock::time_point to);

// Notes when a player's `pending` count went down (a block completed), checked every millisecond.
class CompletionTrace {
public:
    explicit CompletionTrace(const Player& player);

    const std::vector<Clock::time_point>& completions() const { return completions_; }
    bool wentNegative() const { return wentNegative_; }

private:
    QTimer timer_;
    bool wentNegative_ = false;
    std::vector<Clock::time_point> completions_;
};

// Runs a program to its end, without Qt's process machinery (whose child shares the parent's
// memory in a way the thread sanitizer cannot follow); gives its exit status, or -1.
int run(const std::vector<std::string>& arguments);

// Records the private sink's monitor with parec, at the player's format (24000 Hz, mono,
// float), into `file` until stopped.
class MonitorRecording {
public:
    explicit MonitorRecording(const std::filesystem::path& file);
    ~MonitorRecording() { stop(); }
    MonitorRecording(const MonitorRecording&) = delete;
    MonitorRecording& operator=(const MonitorRecording&) = delete;

    bool started() const { return pid_ > 0; }
    // Ends the recording and gives what was recorded.
    std::vector<float> stop();

private:
    std::filesystem::path file_;
    int pid_ = -1;
};

// How many samples of `recording` are not silence.
size_t soundingSamples(const std::vector<float>& recording);

// Checks that `expected` was heard whole and once in `recording`, found by its first sounding
// stretch (an opening silence would match any silence): correlation above 0.999, no sample off
// by 1e-3 or more. Gives where it starts, or the recording's size when it was not heard.
size_t expectHeardWhole(const std::vector<float>& recording, const std::vector<float>& expected);

}  // namespace murmela::testing
