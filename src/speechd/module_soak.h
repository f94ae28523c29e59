#pragma once
// A long run of what a screen reader makes speech-dispatcher do to a module: many short
// messages, some with SSML index marks, rate, volume and voice changed between them, most cut
// short by STOP or PAUSE at a random moment. Every reply and event goes through an EventChecker,
// and the module's resident memory and open descriptors are read once it has settled and at the
// end, so a leak shows as growth between the two.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "speechd/event_checker.h"
#include "speechd/module_client.h"

namespace murmela::speechd {

struct SoakPlan {
    int rounds = 2000;
    // The round after which memory and descriptors are first read: by then every kind of
    // message and setting has come by and the module's caches are warm.
    int settledRound = 100;
    // The same seed sends the same commands; the module's timing still varies.
    uint64_t seed = 0;
};

struct SoakReport {
    SoakPlan plan;
    int rounds = 0;  // completed
    std::optional<int64_t> residentSettledKilobytes, residentEndKilobytes;
    std::optional<int> descriptorsSettled, descriptorsEnd;
    EventChecker::Counts counts;
    // The checker's faults, then the replies that were not the ones due.
    std::vector<std::string> faults;
    int64_t faultCount = 0;
    // Why the run ended early (the module went quiet or away); empty when it did not.
    std::string abandoned;

    std::optional<int64_t> residentGrowthKilobytes() const;
    // Everything that fails the soak: the faults, an early end, resident memory grown by
    // `allowedGrowthKilobytes` or more after the settled round, or descriptors that changed.
    std::vector<std::string> problems() const;
    // The figures in one line, for a log.
    std::string summary() const;
};

// More growth than this over the soak is a leak, not the allocator's own fluctuation.
inline constexpr int64_t allowedGrowthKilobytes = 5'000'000 / 1024;  // 5 MB

// $MURMELA_SOAK_SEED, to repeat a run, or else a fresh seed. Throws std::invalid_argument when
// the variable is set but not a number.
uint64_t soakSeed();

// Initialises the freshly started `module` as the server does and runs `plan` against it, then
// sends QUIT and waits for the module to end.
SoakReport runSoak(ModuleClient& module, const SoakPlan& plan);

}  // namespace murmela::speechd
