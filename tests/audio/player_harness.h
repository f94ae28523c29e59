#pragma once
// What the player tests share: a Qt event loop to run the player in, and a record of when its
// blocks completed.

#include <QTimer>

#include <chrono>
#include <functional>
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

}  // namespace murmela::testing
