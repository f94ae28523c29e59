#include "player_harness.h"

#include <QCoreApplication>

namespace murmela::testing {

void ensureApplication() {
    if (QCoreApplication::instance() == nullptr) {
        static int argc = 1;
        static char name[] = "murmela-test";
        static char* argv[] = {name, nullptr};
        new QCoreApplication(argc, argv);
    }
}

bool runEventsUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    const Clock::time_point deadline = Clock::now() + timeout;
    while (!done()) {
        if (Clock::now() >= deadline) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 5);
    }
    return true;
}

void runEventsFor(std::chrono::milliseconds duration) {
    runEventsUntil([] { return false; }, duration);
}

double secondsBetween(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double>(to - from).count();
}

CompletionTrace::CompletionTrace(const Player& player)
    : player_(player), lastPending_(player.pending()), lastGeneration_(player.generation()) {
    timer_.setTimerType(Qt::PreciseTimer);
    timer_.setInterval(1);
    QObject::connect(&timer_, &QTimer::timeout, [this] {
        const int64_t pending = player_.pending();
        wentNegative_ = wentNegative_ || pending < 0;
        // A stop resets the count; only a fall within one utterance is a completion.
        if (player_.generation() == lastGeneration_ && pending < lastPending_) {
            for (int64_t i = pending; i < lastPending_; ++i) {
                completions_.push_back(Clock::now());
            }
        }
        lastPending_ = pending;
        lastGeneration_ = player_.generation();
    });
    timer_.start();
}

}  // namespace murmela::testing
