#include "logging/log.h"

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <string>
#include <vector>

#include "build_info.h"

#if MURMELA_HAVE_SYSTEMD
#include <syslog.h>
#include <systemd/sd-journal.h>
#endif

namespace murmela::log {
namespace {

struct LogState {
    std::mutex mutex;
    std::vector<Capture::Observer*> observers;
    bool journal = false;
};

LogState& state() {
    static LogState* shared = [] {
        auto* created = new LogState;  // lives for the whole process, also during static teardown
#if MURMELA_HAVE_SYSTEMD
        std::error_code ignored;
        created->journal = std::filesystem::exists("/run/systemd/journal/socket", ignored);
#endif
        return created;
    }();
    return *shared;
}

void write(Level level, const std::string& text) {
    LogState& log = state();
    std::lock_guard lock(log.mutex);
    std::cerr << "murmela: " << (level == Level::error ? "error: " : "") << text << '\n'
              << std::flush;
#if MURMELA_HAVE_SYSTEMD
    if (log.journal) {
        sd_journal_send("MESSAGE=%s", text.c_str(), "PRIORITY=%i",
                        level == Level::error ? LOG_ERR : LOG_INFO, "SYSLOG_IDENTIFIER=murmela",
                        "MURMELA_SUBSYSTEM=%s", buildinfo::appId, "MURMELA_CATEGORY=app", nullptr);
    }
#endif
    for (Capture::Observer* observer : log.observers) {
        (*observer)(level, text);
    }
}

}  // namespace

void info(std::string_view message) {
    write(Level::info, std::string(message));
}

void error(std::string_view source, std::string_view message) {
    std::string text(source);
    text += ": ";
    text += message;
    write(Level::error, text);
}

Capture::Capture(Observer observer) : observer_(std::move(observer)) {
    LogState& log = state();
    std::lock_guard lock(log.mutex);
    log.observers.push_back(&observer_);
}

Capture::~Capture() {
    LogState& log = state();
    std::lock_guard lock(log.mutex);
    std::erase(log.observers, &observer_);
}

}  // namespace murmela::log

namespace murmela {

void programmingError(std::string_view message) {
    log::error("murmelaProgrammingError", message);
    std::abort();
}

}  // namespace murmela
