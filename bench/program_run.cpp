#include "program_run.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <thread>

extern char** environ;

namespace murmela::bench {

namespace {

ProgramRun runWithInput(std::vector<std::string> words,
                        const std::optional<std::filesystem::path>& input,
                        const std::function<void(int)>& feed, bool countOutput) {
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    ProgramRun run;
    int pipeEnds[2] = {-1, -1};
    if (countOutput && ::pipe(pipeEnds) != 0) {
        return run;
    }
    int feedEnds[2] = {-1, -1};
    if (feed) {
        if (::pipe2(feedEnds, O_CLOEXEC) != 0) {
            return run;
        }
        // A program that goes early makes the feeder's writes fail, not the benchmark end.
        std::signal(SIGPIPE, SIG_IGN);
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (input) {
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, input->c_str(), O_RDONLY, 0);
    }
    if (feed) {
        posix_spawn_file_actions_adddup2(&actions, feedEnds[0], STDIN_FILENO);
    }
    if (countOutput) {
        posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, pipeEnds[0]);
    } else {
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    }
    pid_t pid = -1;
    const bool started = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    std::thread feeder;
    if (feed) {
        ::close(feedEnds[0]);
        if (started) {
            feeder = std::thread([&feed, end = feedEnds[1]] {
                feed(end);
                ::close(end);
            });
        } else {
            ::close(feedEnds[1]);
        }
    }
    if (countOutput) {
        ::close(pipeEnds[1]);
        char buffer[1 << 16];
        while (started) {
            const ssize_t count = ::read(pipeEnds[0], buffer, sizeof buffer);
            if (count < 0 && errno == EINTR) {
                continue;
            }
            if (count <= 0) {
                break;
            }
            run.outputBytes += count;
        }
        ::close(pipeEnds[0]);
    }
    if (feeder.joinable()) {
        feeder.join();
    }
    int status = 0;
    rusage usage{};
    if (!started || ::wait4(pid, &status, 0, &usage) != pid) {
        return run;
    }
    run.succeeded = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    run.peakKilobytes = usage.ru_maxrss;
    return run;
}

}  // namespace

ProgramRun runProgram(std::vector<std::string> words,
                      const std::optional<std::filesystem::path>& input, bool countOutput) {
    return runWithInput(std::move(words), input, nullptr, countOutput);
}

ProgramRun runProgramFedBy(std::vector<std::string> words, const std::function<void(int)>& feed,
                           bool countOutput) {
    return runWithInput(std::move(words), std::nullopt, feed, countOutput);
}

}  // namespace murmela::bench
