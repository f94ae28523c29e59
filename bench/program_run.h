#pragma once
// Running one of our programs to its end from a benchmark, for what it cost.

#include <filesystem>
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

}  // namespace murmela::bench
