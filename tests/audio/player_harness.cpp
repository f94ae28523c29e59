#include "player_harness.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
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

CompletionTrace::CompletionTrace(const Player& player) {
    timer_.setTimerType(Qt::PreciseTimer);
    timer_.setInterval(1);
    QObject::connect(&timer_, &QTimer::timeout,
                     [this, &player, lastPending = player.pending(),
                      lastGeneration = player.generation()]() mutable {
                         const int64_t pending = player.pending();
                         wentNegative_ = wentNegative_ || pending < 0;
                         // A stop resets the count; only a fall within one utterance is a
                         // completion.
                         if (player.generation() == lastGeneration && pending < lastPending) {
                             completions_.insert(completions_.end(),
                                                 static_cast<size_t>(lastPending - pending),
                                                 Clock::now());
                         }
                         lastPending = pending;
                         lastGeneration = player.generation();
                     });
    timer_.start();
}

int spawn(const std::vector<std::string>& arguments) {
    std::vector<char*> argv;
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    pid_t pid = -1;
    return ::posix_spawnp(&pid, argv[0], nullptr, nullptr, argv.data(), environ) == 0 ? pid : -1;
}

int run(const std::vector<std::string>& arguments) {
    const pid_t pid = spawn(arguments);
    int status = 0;
    if (pid < 0 || ::waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) {
        return -1;
    }
    return WEXITSTATUS(status);
}

}  // namespace murmela::testing
