#pragma once
// A dbus-daemon of the test run's own, started before the application so that nothing a test
// does (such as revealing a folder) reaches the desktop's real session bus.

#include <sys/types.h>

#include <string>

#include "support/temporary_directory.h"

namespace murmela::testing {

class PrivateSessionBus {
public:
    // Starts the daemon; address() is empty when it could not be started.
    PrivateSessionBus();
    ~PrivateSessionBus();
    PrivateSessionBus(const PrivateSessionBus&) = delete;
    PrivateSessionBus& operator=(const PrivateSessionBus&) = delete;

    const std::string& address() const { return address_; }

    // A private directory for the run (mode 0700), fit to be XDG_RUNTIME_DIR too.
    const std::filesystem::path& directory() const { return directory_.path(); }

private:
    TemporaryDirectory directory_{"murmela-bus"};
    pid_t daemon_ = -1;
    std::string address_;
};

}  // namespace murmela::testing
