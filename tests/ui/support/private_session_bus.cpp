#include "support/private_session_bus.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace murmela::testing {
namespace {

// Only the bus itself: no services are activated, whatever the machine has installed.
constexpr const char* configuration = R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:dir=@DIR@</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";

}  // namespace

PrivateSessionBus::PrivateSessionBus() {
    std::string config = configuration;
    config.replace(config.find("@DIR@"), 5, directory_.path().string());
    std::filesystem::path configFile = directory_ / "bus.conf";
    writeText(configFile, config);

    int pipe[2];
    if (::pipe2(pipe, O_CLOEXEC) != 0) {
        return;
    }
    std::string configArgument = "--config-file=" + configFile.string();
    pid_t child = ::fork();
    if (child == 0) {
        // The daemon ends with the test program, however the program ends.
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        ::dup2(pipe[1], STDOUT_FILENO);
        // Its complaints about resource limits are noise in every test's output; a daemon
        // that does not start is reported below.
        int null = ::open("/dev/null", O_WRONLY);
        ::dup2(null, STDERR_FILENO);
        ::execlp("dbus-daemon", "dbus-daemon", configArgument.c_str(), "--nofork",
                 "--print-address=1", static_cast<char*>(nullptr));
        ::_exit(127);
    }
    ::close(pipe[1]);
    if (child < 0) {
        ::close(pipe[0]);
        return;
    }
    daemon_ = child;
    char buffer[1024];
    std::string line;
    for (;;) {
        ssize_t got = ::read(pipe[0], buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            break;
        }
        line.append(buffer, static_cast<size_t>(got));
        if (line.find('\n') != std::string::npos) {
            break;
        }
    }
    ::close(pipe[0]);
    if (size_t end = line.find('\n'); end != std::string::npos) {
        address_ = line.substr(0, end);
    } else {
        std::fprintf(stderr, "test: dbus-daemon did not start; the session bus is unreachable\n");
    }
}

PrivateSessionBus::~PrivateSessionBus() {
    if (daemon_ > 0) {
        ::kill(daemon_, SIGTERM);
        ::waitpid(daemon_, nullptr, 0);
    }
}

}  // namespace murmela::testing
