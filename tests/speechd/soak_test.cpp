// A short soak of the real sd_murmela with the bundled voice: messages spoken, stopped and
// paused at random, every event checked, and no descriptor or memory leaked over the run. It
// waits for each event as long as it takes, so a loaded machine makes it slower, not flaky.
// MURMELA_SOAK_SEED repeats a run whose seed a failure printed.

#include <gtest/gtest.h>

#include <iostream>
#include <string>
#include <vector>

#include "speechd/module_client.h"
#include "speechd/module_soak.h"

namespace murmela::speechd {
namespace {

TEST(SpeechdSoak, ShortRunKeepsEveryPromise) {
    const SoakPlan plan{.rounds = 150, .settledRound = 50, .seed = soakSeed()};
    std::cout << "soak seed " << plan.seed << std::endl;
    ModuleClient module(MURMELA_SD_MODULE, {"murmela.conf"},
                        {"MURMELA_RESOURCES=" MURMELA_SOAK_RESOURCES});
    ASSERT_TRUE(module.started());
    const SoakReport report = runSoak(module, plan);
    std::cout << "soak: " << report.summary() << std::endl;

    EXPECT_EQ(report.problems(), std::vector<std::string>{}) << "seed " << plan.seed;
    EXPECT_EQ(report.rounds, plan.rounds);
    // The run reached every kind of ending and reported marks, so the checks had work to do.
    EXPECT_EQ(report.counts.messages, plan.rounds);
    EXPECT_GT(report.counts.ends, 0);
    EXPECT_GT(report.counts.stops, 0);
    EXPECT_GT(report.counts.pauses, 0);
    EXPECT_GT(report.counts.marks, 0);
    EXPECT_GT(report.counts.audio, report.counts.messages);
}

}  // namespace
}  // namespace murmela::speechd
