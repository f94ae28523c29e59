// The entry point of every user-interface test program: one QApplication on the offscreen
// platform, the build's staged resources, and a session bus of the run's own.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <QApplication>

#include "support/gui_test.h"
#include "support/private_session_bus.h"

namespace murmela::testing {
namespace {
QString busAddress;
}  // namespace

QString privateSessionBusAddress() {
    return busAddress;
}

}  // namespace murmela::testing

int main(int argc, char** argv) {
    using namespace murmela::testing;
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    ::setenv("MURMELA_RESOURCES", stagedResourceDirectory().c_str(), 1);
    PrivateSessionBus bus;
    // Without a daemon of its own, the run gets an address that leads nowhere rather than the
    // desktop's bus.
    std::string address =
        bus.address().empty() ? "unix:path=/nonexistent/murmela-test-bus" : bus.address();
    ::setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
    busAddress = QString::fromStdString(bus.address());
    ::setenv("XDG_RUNTIME_DIR", bus.directory().c_str(), 0);

    ::testing::InitGoogleTest(&argc, argv);
    int result = 0;
    {
        QApplication application(argc, argv);
        result = RUN_ALL_TESTS();
    }
    return result;
}
