#pragma once
// Watches what an output module writes back, in order, against what the server asked of it, and
// notes every broken promise about a message's events: BEGIN first, then audio and index marks,
// then exactly one closing event (END, STOP or PAUSE), and nothing of the message after that.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "speechd/module_client.h"

namespace murmela::speechd {

class EventChecker {
public:
    struct Counts {
        int64_t messages = 0;  // accepted with "200 OK SPEAKING"
        int64_t events = 0;    // every 7xx event
        int64_t audio = 0;
        int64_t marks = 0;
        int64_t ends = 0;
        int64_t stops = 0;
        int64_t pauses = 0;
    };

    // A message with these index marks, in document order, is being sent; the module's
    // "200 OK SPEAKING" makes it the one being spoken, any other final reply drops it.
    void messageSent(std::vector<std::string> marks);
    // The server asked to stop or pause the message being spoken. Either may cross the
    // message's END on the way, so neither is owed an answer.
    void stopSent();
    void pauseSent();

    // Every reply and event the module wrote, in the order it wrote them.
    void observe(const Reply& reply);

    // Whether a message is accepted and not yet closed.
    bool speaking() const { return current_.has_value(); }

    // The module has ended: a message left open is a fault.
    void finish();

    // What went wrong, in order, each naming its message; at most `keptFaults` are kept.
    static constexpr size_t keptFaults = 50;
    const std::vector<std::string>& faults() const { return faults_; }
    int64_t faultCount() const { return faultCount_; }
    const Counts& counts() const { return counts_; }

private:
    struct Message {
        int64_t number = 0;
        std::vector<std::string> marks;
        size_t marksReported = 0;
        bool begun = false;
        bool stopAsked = false;
        bool pauseAsked = false;
    };

    void audio(const Reply& event);
    void mark(const Reply& event);
    void close(int code);
    void fault(const std::string& what);
    // "message N" for the message being spoken, or what came last when none is.
    std::string where() const;

    std::optional<std::vector<std::string>> sent_;
    std::optional<Message> current_;
    int64_t lastClosed_ = 0;
    std::string lastClosing_;
    Counts counts_;
    std::vector<std::string> faults_;
    int64_t faultCount_ = 0;
};

}  // namespace murmela::speechd
