#include "player_harness.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <QCoreApplication>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>

namespace murmela::testing {
namespace {

pid_t spawn(const std::vector<std::string>& arguments) {
    std::vector<char*> argv;
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    pid_t pid = -1;
    return ::posix_spawnp(&pid, argv[0], nullptr, nullptr, argv.data(), environ) == 0 ? pid : -1;
}

// The first offset of `recording` at which the opening samples of `expected` are heard, or the
// recording's size.
size_t locate(const std::vector<float>& recording, const std::vector<float>& expected) {
    const size_t window = std::min<size_t>(240, expected.size());
    for (size_t offset = 0; offset + window <= recording.size(); ++offset) {
        size_t i = 0;
        while (i < window && std::fabs(recording[offset + i] - expected[i]) < 1e-3f) {
            ++i;
        }
        if (i == window) {
            return offset;
        }
    }
    return recording.size();
}

double correlation(const float* a, const float* b, size_t count) {
    double ab = 0.0, aa = 0.0, bb = 0.0;
    for (size_t i = 0; i < count; ++i) {
        ab += static_cast<double>(a[i]) * b[i];
        aa += static_cast<double>(a[i]) * a[i];
        bb += static_cast<double>(b[i]) * b[i];
    }
    return aa > 0.0 && bb > 0.0 ? ab / std::sqrt(aa * bb) : 0.0;
}

}  // namespace

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

int run(const std::vector<std::string>& arguments) {
    const pid_t pid = spawn(arguments);
    int status = 0;
    if (pid < 0 || ::waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) {
        return -1;
    }
    return WEXITSTATUS(status);
}

MonitorRecording::MonitorRecording(const std::filesystem::path& file) : file_(file) {
    const char* sink = std::getenv("MURMELA_PULSE_SINK");
    pid_ = spawn({"parec", std::string("--device=") + (sink ? sink : "murmela") + ".monitor",
                  "--format=float32le", "--rate=24000", "--channels=1", "--raw",
                  "--latency-msec=10", file.string()});
    // parec needs a moment to connect before the monitor reaches the file.
    runEventsFor(std::chrono::milliseconds(400));
}

std::vector<float> MonitorRecording::stop() {
    if (pid_ > 0) {
        ::kill(pid_, SIGTERM);
        ::waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
    std::ifstream in(file_, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), {});
    std::vector<float> samples(bytes.size() / sizeof(float));
    std::copy_n(bytes.data(), samples.size() * sizeof(float),
                reinterpret_cast<char*>(samples.data()));
    return samples;
}

size_t soundingSamples(const std::vector<float>& recording) {
    return static_cast<size_t>(std::count_if(recording.begin(), recording.end(),
                                             [](float x) { return std::fabs(x) >= 1e-4f; }));
}

size_t expectHeardWhole(const std::vector<float>& recording, const std::vector<float>& expected) {
    const auto sounding = std::find_if(expected.begin(), expected.end(),
                                       [](float x) { return std::fabs(x) >= 1e-3f; });
    const size_t lead = static_cast<size_t>(sounding - expected.begin());
    const size_t found = locate(recording, std::vector<float>(sounding, expected.end()));
    if (found < lead || found >= recording.size() ||
        recording.size() - (found - lead) < expected.size()) {
        ADD_FAILURE() << "the samples were not heard whole";
        return recording.size();
    }
    const size_t offset = found - lead;
    const double similarity =
        correlation(recording.data() + offset, expected.data(), expected.size());
    float largestDifference = 0.0f;
    for (size_t i = 0; i < expected.size(); ++i) {
        largestDifference =
            std::max(largestDifference, std::fabs(recording[offset + i] - expected[i]));
    }
    std::cout << "recording: correlation " << similarity << ", largest difference "
              << largestDifference << "\n";
    EXPECT_GT(similarity, 0.999);
    EXPECT_LT(largestDifference, 1e-3f);
    return offset;
}

}  // namespace murmela::testing
