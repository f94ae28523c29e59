#pragma once
// Recording what a private sound server (tests/support/pulse-session) played, and finding known
// samples in the recording.

#include <sys/types.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace murmela::testing {

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

}  // namespace murmela::testing
