#pragma once
// The start of a benchmark program that drives the application model: no sound device (playing
// time is simulated), settings in a private folder that goes at the end, and a Qt event loop's
// application object.

#include <functional>

namespace murmela::bench {

// Sets all that up, calls `beforeRunning` (for a line about the inputs, say), runs the
// benchmarks the command line selects and gives the program's exit status.
int runModelBenchmarks(int argc, char** argv, const std::function<void()>& beforeRunning = {});

}  // namespace murmela::bench
