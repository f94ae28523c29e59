#include "cli/input_sentences.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

#include "app/render_work.h"
#include "cli/sentence_collector.h"

namespace murmela {
namespace {

std::string readFailure(int error) {
    return std::string("cannot read standard input: ") + std::strerror(error);
}

}  // namespace

InputSentences::InputSentences(int descriptor) {
    // Checked first: with the descriptor closed, the pipe below could take its number.
    if (::fcntl(descriptor, F_GETFD) < 0 || ::pipe2(wakeReader_, O_CLOEXEC) != 0) {
        throw InputError(readFailure(errno));
    }
    try {
        reader_ = std::thread([this, descriptor] { read(descriptor); });
    } catch (const std::system_error& error) {
        ::close(wakeReader_[0]);
        ::close(wakeReader_[1]);
        throw InputError(std::string("cannot start reading standard input: ") + error.what());
    }
}

InputSentences::~InputSentences() {
    {
        std::lock_guard guard(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    const char wake = 0;
    while (::write(wakeReader_[1], &wake, 1) < 0 && errno == EINTR) {
    }
    reader_.join();
    ::close(wakeReader_[0]);
    ::close(wakeReader_[1]);
}

std::optional<std::string> InputSentences::next() {
    std::unique_lock guard(mutex_);
    changed_.wait(guard, [this] { return !waiting_.empty() || ended_ || error_; });
    if (!waiting_.empty()) {
        std::string sentence = std::move(waiting_.front());
        waiting_.pop_front();
        changed_.notify_all();
        return sentence;
    }
    if (error_) {
        throw InputError(*error_);
    }
    return std::nullopt;
}

bool InputSentences::ready() {
    std::lock_guard guard(mutex_);
    return !waiting_.empty() || ended_ || error_;
}

bool InputSentences::deliver(std::vector<std::string> sentences) {
    for (std::string& sentence : sentences) {
        std::unique_lock guard(mutex_);
        changed_.wait(guard, [this] { return stopping_ || waiting_.size() < maxWaitingSentences; });
        if (stopping_) {
            return false;
        }
        waiting_.push_back(std::move(sentence));
        changed_.notify_all();
    }
    std::lock_guard guard(mutex_);
    return !stopping_;
}

void InputSentences::read(int descriptor) {
    // Nothing leaves this thread but what it hands over under the lock.
    std::optional<std::string> failure;
    try {
        SentenceCollector collector;
        std::vector<char> buffer(1 << 16);
        auto lastArrival = std::chrono::steady_clock::now();
        for (;;) {
            int timeout = -1;
            if (collector.holdsText()) {
                const auto waited = std::chrono::steady_clock::now() - lastArrival;
                const auto left =
                    std::chrono::ceil<std::chrono::milliseconds>(pauseThatEndsASentence - waited);
                timeout = static_cast<int>(std::max<int64_t>(left.count(), 0));
            }
            std::array<pollfd, 2> watched = {pollfd{descriptor, POLLIN, 0},
                                             pollfd{wakeReader_[0], POLLIN, 0}};
            const int ready = ::poll(watched.data(), watched.size(), timeout);
            if (ready < 0) {
                if (errno == EINTR) {
                    continue;
                }
                failure = readFailure(errno);
                break;
            }
            if (watched[1].revents != 0) {
                return;  // told to stop
            }
            if (ready == 0) {
                if (!deliver(collector.flush())) {
                    return;
                }
                continue;
            }
            const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
            if (count < 0) {
                if (errno == EINTR || errno == EAGAIN) {
                    continue;
                }
                failure = readFailure(errno);
                break;
            }
            if (count == 0) {
                break;
            }
            lastArrival = std::chrono::steady_clock::now();
            if (!deliver(
                    collector.add(std::string_view(buffer.data(), static_cast<size_t>(count))))) {
                return;
            }
        }
        // What was complete before the input ended or failed is spoken either way.
        if (!deliver(collector.flush())) {
            return;
        }
    } catch (...) {
        failure = "cannot read standard input: " + errorDescription(std::current_exception());
    }
    std::lock_guard guard(mutex_);
    ended_ = true;
    error_ = std::move(failure);
    changed_.notify_all();
}

}  // namespace murmela
