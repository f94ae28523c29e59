#pragma once
// Running one of our programs to its end from a benchmark, for what it cost.

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace murmela::bench {

struct ProgramRun {
    bool succeeded = false;     // started, and exited with status 0
    long peakKilobytes = 0;     // its largest resident set
    long long outputBytes = 0;  // written to its standard output, when counted
};

// Runs `words` (the program's path first) to its end, with `input` as its standard input when
// given. Its standard output is counted when `countOutput`, else it goes to /dev/null.
ProgramRun runProgram(std::vector<std::string> words,
                      const std::optional<std::filesystem::path>& input, bool countOutput);

// The same, with a pipe as its standard input that `feed` writes to (on a thread of its own,
// while the program runs); the pipe closes when `feed` returns. A write fails with EPIPE, and
// does not end the benchmark, when the program has gone.
ProgramRun runProgramFedBy(std::vector<std::string> words, const std::function<void(int)>& feed,
                           bool countOutput);

}  // namespace murmela::bench
