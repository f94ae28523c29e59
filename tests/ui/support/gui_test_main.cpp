// The entry point of every user-interface test program: one QApplication on the offscreen
// platform and the build's staged resources. Tests never reach the desktop's session bus:
// registered with ctest, a program runs under dbus-run-session with a bus of its own
// (MURMELA_TEST_BUS=1); run any other way, its bus address leads nowhere.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <QApplication>

#include "support/gui_test.h"

int main(int argc, char** argv) {
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    ::setenv("MURMELA_RESOURCES", murmela::testing::stagedResourceDirectory().c_str(), 1);
    if (!murmela::testing::hasPrivateSessionBus()) {
        ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/murmela-test-bus", 1);
    }
    ::testing::InitGoogleTest(&argc, argv);
    QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
