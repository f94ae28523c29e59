// The runtime's thread count follows the CPUs the program may run on, so that a program held to
// one core (taskset, a container's cpuset) does not make its thread pool take turns with itself.

#include "engine/model_session.h"

#include <gtest/gtest.h>
#include <sched.h>

namespace murmela {
namespace {

TEST(ModelSession, ThreadCountFollowsTheAllowedCpus) {
    cpu_set_t original;
    ASSERT_EQ(sched_getaffinity(0, sizeof original, &original), 0);
    const int before = physicalCoreCount();
    EXPECT_GE(before, 1);
    EXPECT_LE(before, CPU_COUNT(&original));

    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (!CPU_ISSET(cpu, &original)) {
            continue;
        }
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(cpu, &one);
        ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
        EXPECT_EQ(physicalCoreCount(), 1) << "held to CPU " << cpu;
    }

    // Read again, not remembered from the first call.
    ASSERT_EQ(sched_setaffinity(0, sizeof original, &original), 0);
    EXPECT_EQ(physicalCoreCount(), before);
}

}  // namespace
}  // namespace murmela
