#include "speechd/module_client.h"

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <thread>

#include "files/files.h"
#include "speechd/protocol.h"

extern char** environ;

namespace murmela::speechd {
namespace {

// The C view of `strings` that exec wants, ending in a null pointer.
std::vector<char*> nullTerminated(std::vector<std::string>& strings) {
    std::vector<char*> pointers;
    for (std::string& text : strings) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

ModuleClient::ModuleClient(const std::string& program, const std::vector<std::string>& arguments,
                           const std::vector<std::string>& environment) {
    int input[2], output[2];
    if (::pipe(input) != 0 || ::pipe(output) != 0) {
        return;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    for (int end : {input[0], input[1], output[0], output[1]}) {
        posix_spawn_file_actions_addclose(&actions, end);
    }
    std::vector<std::string> variables = environment;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view variable = *entry;
        const std::string_view name = variable.substr(0, variable.find('=') + 1);
        bool replaced = false;
        for (const std::string& given : environment) {
            replaced = replaced || given.starts_with(name);
        }
        if (!replaced) {
            variables.emplace_back(variable);
        }
    }
    std::vector<std::string> words = {program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv = nullTerminated(words), envp = nullTerminated(variables);
    if (posix_spawn(&pid_, program.c_str(), &actions, nullptr, argv.data(), envp.data()) != 0) {
        pid_ = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    ::close(input[0]);
    ::close(output[1]);
    input_ = input[1];
    output_ = output[0];
}

ModuleClient::~ModuleClient() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        finish();
    }
    if (input_ >= 0) {
        ::close(input_);
    }
    if (output_ >= 0) {
        ::close(output_);
    }
}

bool ModuleClient::send(std::string_view text) {
    // The module's death must show as a failed send, not end the caller.
    signal(SIGPIPE, SIG_IGN);
    return writeAll(input_, text) == 0;
}

std::optional<std::string> ModuleClient::nextLine(std::chrono::milliseconds patience) {
    for (;;) {
        const size_t newline = buffer_.find('\n');
        if (newline != std::string::npos) {
            std::string line = buffer_.substr(0, newline);
            buffer_.erase(0, newline + 1);
            return line;
        }
        pollfd ready{output_, POLLIN, 0};
        if (::poll(&ready, 1, static_cast<int>(patience.count())) <= 0) {
            return std::nullopt;
        }
        char chunk[65536];
        const ssize_t got = ::read(output_, chunk, sizeof chunk);
        if (got <= 0) {
            return std::nullopt;
        }
        buffer_.append(chunk, static_cast<size_t>(got));
    }
}

std::optional<Reply> ModuleClient::next(std::chrono::milliseconds patience) {
    Reply reply;
    while (std::optional<std::string> line = nextLine(patience)) {
        // Anything but "<three digits><space or dash>" is no reply: the exchange is over.
        const char* digits = line->data();
        const auto [end, error] =
            std::from_chars(digits, digits + std::min<size_t>(3, line->size()), reply.code);
        if (line->size() < 4 || error != std::errc() || end != digits + 3 ||
            ((*line)[3] != ' ' && (*line)[3] != '-')) {
            return std::nullopt;
        }
        const std::string_view text = std::string_view(*line).substr(4);
        if ((*line)[3] == ' ') {
            reply.last = text;
            return reply;
        }
        if (text.starts_with(std::string_view("AUDIO\0", 6))) {
            reply.samples = audioSamples(text.substr(6));
        } else {
            reply.lines.emplace_back(text);
        }
    }
    return std::nullopt;
}

std::optional<Reply> ModuleClient::nextReply(std::vector<Reply>* passed) {
    for (;;) {
        std::optional<Reply> reply = next();
        if (!reply || reply->code < 700) {
            return reply;
        }
        if (passed != nullptr) {
            passed->push_back(std::move(*reply));
        }
    }
}

std::vector<Reply> ModuleClient::events() {
    std::vector<Reply> received;
    while (std::optional<Reply> event = next()) {
        received.push_back(std::move(*event));
        const int code = received.back().code;
        if (code == 702 || code == 703 || code == 704) {
            break;
        }
    }
    return received;
}

std::optional<int64_t> ModuleClient::statusKilobytes(std::string_view field) const {
    if (pid_ <= 0) {
        return std::nullopt;
    }
    std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
    std::string word;
    while (status >> word) {
        if (word == field) {
            int64_t kilobytes = 0;
            if (status >> kilobytes) {
                return kilobytes;
            }
            break;
        }
    }
    return std::nullopt;
}

std::optional<int64_t> ModuleClient::peakResidentKilobytes() const {
    return statusKilobytes("VmHWM:");
}

std::optional<int64_t> ModuleClient::residentKilobytes() const {
    return statusKilobytes("VmRSS:");
}

std::optional<int> ModuleClient::openDescriptors() const {
    if (pid_ <= 0) {
        return std::nullopt;
    }
    std::error_code error;
    std::filesystem::directory_iterator entries("/proc/" + std::to_string(pid_) + "/fd", error);
    if (error) {
        return std::nullopt;
    }
    int count = 0;
    while (entries != std::filesystem::directory_iterator()) {
        ++count;
        if (entries.increment(error); error) {
            return std::nullopt;
        }
    }
    return count;
}

int ModuleClient::finish() {
    if (input_ >= 0) {
        ::close(input_);
        input_ = -1;
    }
    if (pid_ <= 0) {
        return -1;
    }
    int status = 0;
    for (int waited = 0; waited < 300; ++waited) {
        if (::waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return -1;
}

}  // namespace murmela::speechd
