#include "speechd/event_checker.h"

#include <algorithm>

namespace murmela::speechd {
namespace {

std::string eventName(int code) {
    switch (code) {
        case 700:
            return "INDEX MARK";
        case 701:
            return "BEGIN";
        case 702:
            return "END";
        case 703:
            return "STOP";
        case 704:
            return "PAUSE";
        case 705:
            return "AUDIO";
        default:
            return "event " + std::to_string(code);
    }
}

}  // namespace

void EventChecker::messageSent(std::vector<std::string> marks) {
    sent_ = std::move(marks);
}

void EventChecker::stopSent() {
    if (current_) {
        current_->stopAsked = true;
    }
}

void EventChecker::pauseSent() {
    if (current_) {
        current_->pauseAsked = true;
    }
}

void EventChecker::observe(const Reply& reply) {
    if (reply.code < 700) {
        if (reply.code == 200 && reply.last == "OK SPEAKING") {
            if (!sent_) {
                fault("SPEAKING with no message sent");
            } else if (current_) {
                fault("SPEAKING while " + where() + " is still open");
            }
            current_ = Message{};
            current_->number = ++counts_.messages;
            current_->marks = sent_ ? std::move(*sent_) : std::vector<std::string>();
            sent_.reset();
        } else if (reply.code != 202) {
            // Refused, or the reply to some other command: no message begins.
            sent_.reset();
        }
        return;
    }
    ++counts_.events;
    const std::string name = eventName(reply.code);
    switch (reply.code) {
        case 701:
            if (!current_) {
                fault("BEGIN with no message being spoken, after " + where());
            } else if (current_->begun) {
                fault(where() + ": a second BEGIN");
            }
            if (current_) {
                current_->begun = true;
            }
            break;
        case 705:
            audio(reply);
            break;
        case 700:
            mark(reply);
            break;
        case 702:
        case 703:
        case 704:
            close(reply.code);
            break;
        default:
            fault("unknown " + name + " after " + where());
    }
}

void EventChecker::audio(const Reply& event) {
    ++counts_.audio;
    if (!current_) {
        fault("AUDIO after " + where());
        return;
    }
    if (!current_->begun) {
        fault(where() + ": AUDIO before BEGIN");
    }
    // The header's count shows whether the escaped samples came through whole.
    const std::string header = "num_samples=" + std::to_string(event.samples.size());
    if (std::find(event.lines.begin(), event.lines.end(), header) == event.lines.end()) {
        fault(where() + ": AUDIO of " + std::to_string(event.samples.size()) +
              " samples whose header says otherwise");
    }
}

void EventChecker::mark(const Reply& event) {
    ++counts_.marks;
    const std::string name = event.lines.empty() ? std::string() : event.lines.front();
    if (!current_) {
        fault("INDEX MARK \"" + name + "\" after " + where());
        return;
    }
    Message& message = *current_;
    if (!message.begun) {
        fault(where() + ": INDEX MARK before BEGIN");
    }
    if (message.marksReported < message.marks.size() &&
        message.marks[message.marksReported] == name) {
        ++message.marksReported;
    } else if (std::find(message.marks.begin(), message.marks.end(), name) != message.marks.end()) {
        fault(where() + ": INDEX MARK \"" + name + "\" out of order");
    } else {
        fault(where() + ": INDEX MARK \"" + name + "\" that is not in the message");
    }
}

void EventChecker::close(int code) {
    const std::string name = eventName(code);
    if (!current_) {
        fault(name + " after " + where());
        return;
    }
    const Message& message = *current_;
    if (!message.begun) {
        fault(where() + ": " + name + " before BEGIN");
    }
    if (code == 702) {
        ++counts_.ends;
        if (message.marksReported != message.marks.size()) {
            fault(where() + ": END with " +
                  std::to_string(message.marks.size() - message.marksReported) +
                  " of its index marks never reported");
        }
    } else if (code == 703) {
        ++counts_.stops;
        if (!message.stopAsked) {
            fault(where() + ": STOP that the server did not ask for");
        }
    } else {
        ++counts_.pauses;
        if (!message.pauseAsked) {
            fault(where() + ": PAUSE that the server did not ask for");
        }
    }
    lastClosed_ = message.number;
    lastClosing_ = name;
    current_.reset();
}

void EventChecker::finish() {
    if (current_) {
        fault(where() + " never closed");
        current_.reset();
    }
}

void EventChecker::fault(const std::string& what) {
    ++faultCount_;
    if (faults_.size() < keptFaults) {
        faults_.push_back(what);
    }
}

std::string EventChecker::where() const {
    if (current_) {
        return "message " + std::to_string(current_->number);
    }
    if (lastClosed_ == 0) {
        return "the start";
    }
    return "message " + std::to_string(lastClosed_) + "'s " + lastClosing_;
}

}  // namespace murmela::speechd
