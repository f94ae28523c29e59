#pragma once
// The program's one log. Every line goes to standard error and, where a systemd journal is
// running, to the journal too (subsystem = the application id, category "app").
//
// Thread-safe: lines from different threads never interleave.

#include <functional>
#include <string>
#include <string_view>

namespace murmela::log {

enum class Level { info, error };

// An information line; the message is written as it stands.
void info(std::string_view message);

// An error line, written as "<source>: <message>"; the source is a fixed tag such as
// "murmelaMain".
void error(std::string_view source, std::string_view message);

// Lets a test see every line that is logged while it lives, as (level, text written).
class Capture {
public:
    using Observer = std::function<void(Level, const std::string&)>;
    explicit Capture(Observer observer);
    ~Capture();
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

private:
    Observer observer_;
};

}  // namespace murmela::log

namespace murmela {

// Impossible states (an id outside 32 bits, a non-finite duration, a transform that can't be set
// up, a counter that overflows) are programming errors, not bad input: the message is logged and
// the process stops rather than carry on with wrong numbers.
[[noreturn]] void programmingError(std::string_view message);

}  // namespace murmela
