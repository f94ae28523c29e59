#pragma once
// The server's side of the module protocol: starts an output module program on pipes, sends it
// commands and reads its replies and events. The tests and the benchmark talk to sd_murmela (and
// to other modules, for comparison) through it.

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace murmela::speechd {

// One reply or event: its code, its continuation lines' text, its last line's text after the
// code, and for AUDIO the samples.
struct Reply {
    int code = 0;
    std::vector<std::string> lines;
    std::string last;
    std::vector<int16_t> samples;
};

class ModuleClient {
public:
    // Starts `program` with `arguments`; `environment` ("NAME=value") is added to this
    // process's own, replacing variables of the same name.
    ModuleClient(const std::string& program, const std::vector<std::string>& arguments,
                 const std::vector<std::string>& environment);
    ~ModuleClient();
    ModuleClient(const ModuleClient&) = delete;
    ModuleClient& operator=(const ModuleClient&) = delete;

    bool started() const { return pid_ > 0; }
    // Writes `text` to the module's input; false when the module no longer reads.
    bool send(std::string_view text);

    // The next reply or event; nothing when none comes within `patience`, the output ends or
    // the module writes a line that is not one.
    std::optional<Reply> next(std::chrono::milliseconds patience = std::chrono::seconds(60));
    // The next reply that is not an event, keeping the events on the way in `passed`.
    std::optional<Reply> nextReply(std::vector<Reply>* passed = nullptr);
    // The events up to and with the message's closing one (END, STOP or PAUSE).
    std::vector<Reply> events();

    // The next line of the program's output, whatever it says, for a program that speaks
    // another line protocol; nothing when none comes within `patience` or the output ends.
    std::optional<std::string> nextLine(std::chrono::milliseconds patience);

    // The most memory the module has held resident so far, in KiB; nothing once it has ended.
    std::optional<int64_t> peakResidentKilobytes() const;
    // The memory the module holds resident now, in KiB; nothing once it has ended.
    std::optional<int64_t> residentKilobytes() const;
    // How many file descriptors the module has open; nothing once it has ended.
    std::optional<int> openDescriptors() const;

    // Closes the module's input and gives its exit status; -1 when it had to be killed.
    int finish();

private:
    // A size in KiB from the module's /proc status, e.g. "VmRSS:".
    std::optional<int64_t> statusKilobytes(std::string_view field) const;

    pid_t pid_ = -1;
    int input_ = -1;
    int output_ = -1;
    std::string buffer_;
};

}  // namespace murmela::speechd
