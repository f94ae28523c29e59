#pragma once
// Reading a descriptor (standard input) on a thread of its own as the text arrives, and handing
// out its sentences one by one as each is complete (see SentenceCollector). A pause of more than
// pauseThatEndsASentence in the input also completes the sentence it holds: a producer that
// writes "Starting backup" and then works for a minute is heard at once.
//
// At most a few sentences wait to be taken; while they wait the reader stops reading, so a
// fast producer is held back by the pipe and nothing keeps more than those few sentences.

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace murmela {

// The input could not be read; what() says why, in a few words.
class InputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class InputSentences {
public:
    static constexpr std::chrono::milliseconds pauseThatEndsASentence{500};
    static constexpr size_t maxWaitingSentences = 4;

    // Starts reading `descriptor`, which stays the caller's. Throws InputError when no thread
    // can be started for it.
    explicit InputSentences(int descriptor);
    // Stops reading, even in the middle of a wait for input that never comes.
    ~InputSentences();
    InputSentences(const InputSentences&) = delete;
    InputSentences& operator=(const InputSentences&) = delete;

    // Any one thread: the next sentence, waiting for it as long as it takes; nothing once the
    // input has ended. The sentences read before a read error come first, then InputError.
    std::optional<std::string> next();

    // Whether next() would answer without waiting.
    bool ready();

private:
    void read(int descriptor);
    // The reader's: hands over what it has completed; false when it should stop.
    bool deliver(std::vector<std::string> sentences);

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::string> waiting_;
    bool ended_ = false;
    bool stopping_ = false;
    std::optional<std::string> error_;
    int wakeReader_[2] = {-1, -1};  // a pipe whose reading end ends the reader's wait for input
    std::thread reader_;
};

}  // namespace murmela
