// The player where no sound server can be reached: start fails with a description instead of
// playing into nothing, and the player stays usable for the next attempt.

#include <stdlib.h>

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "audio/player.h"
#include "player_harness.h"

namespace murmela {
namespace {

TEST(PlayerWithoutServer, StartThrowsWithADescriptionAndThePlayerStaysUsable) {
    // Read once per process, when the first player asks for a device.
    ::setenv("PULSE_SERVER", "unix:/nonexistent/murmela-no-sound-server", 1);
    ::unsetenv("MURMELA_AUDIO");
    testing::ensureApplication();
    Player player;
    int idleCalls = 0;
    for (int attempt = 0; attempt < 2; ++attempt) {
        try {
            player.start([&] { ++idleCalls; });
            FAIL() << "start succeeded without a sound server";
        } catch (const AudioOutputError& error) {
            EXPECT_NE(std::string(error.what()), "") << "attempt " << attempt;
        }
        // A failed start stores no idle callback: finishing calls nothing.
        player.finish();
        EXPECT_EQ(idleCalls, 0);
        player.stop();
    }
    // Blocks handed over regardless are held, never played, never completed.
    player.schedule(std::vector<float>(2400, 0.5f));
    testing::runEventsFor(std::chrono::milliseconds(300));
    EXPECT_EQ(player.pending(), 1);
    player.stop();
    EXPECT_EQ(player.pending(), 0);
    EXPECT_EQ(idleCalls, 0);
}

}  // namespace
}  // namespace murmela
