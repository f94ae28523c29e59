#pragma once
// What the player and speech tests share: a Qt event loop to run the player in, a record of when
// its blocks completed, and programs run beside it.

#include <QTimer>
#include <chrono>
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

// Starts a program, or runs it to its end, without Qt's process machinery (whose child shares
// the parent's memory in a way the thread sanitizer cannot follow); gives its pid or exit status,
// or -1.
int spawn(const std::vector<std::string>& arguments);
int run(const std::vector<std::string>& arguments);

}  // namespace murmela::testing
