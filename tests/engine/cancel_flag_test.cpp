// The flag by which a speak request is stopped from another thread.

#include "engine/cancel_flag.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace murmela {
namespace {

TEST(CancelFlag, StartsLoweredAndStaysRaised) {
    CancelFlag flag;
    EXPECT_FALSE(flag.isCancelled());
    flag.cancel();
    EXPECT_TRUE(flag.isCancelled());
    flag.cancel();
    EXPECT_TRUE(flag.isCancelled());
}

TEST(CancelFlag, ARaiseOnOneThreadIsSeenOnAnother) {
    CancelFlag flag;
    std::atomic<bool> checking = false;
    int checksAfterRaise = 0;
    std::thread worker([&] {
        checking = true;
        while (!flag.isCancelled()) {
            std::this_thread::yield();
        }
        // Once seen, never lowered.
        for (int i = 0; i < 1000; ++i) {
            checksAfterRaise += flag.isCancelled() ? 1 : 0;
        }
    });
    while (!checking) {
        std::this_thread::yield();
    }
    flag.cancel();
    worker.join();
    EXPECT_EQ(checksAfterRaise, 1000);
}

}  // namespace
}  // namespace murmela
