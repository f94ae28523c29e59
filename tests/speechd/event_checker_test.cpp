// The checker the soak runs every event through: quiet about what a well-behaved module sends,
// including the races the protocol allows, and naming each kind of broken promise; and the soak
// against a program that is no module.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "speechd/event_checker.h"
#include "speechd/module_soak.h"

namespace murmela::speechd {
namespace {

// What the server and the module say to each other, step by step, as the checker sees it.
class Exchange {
public:
    Exchange& speak(std::vector<std::string> marks = {}) {
        checker_.messageSent(std::move(marks));
        checker_.observe({202, {}, "OK RECEIVING MESSAGE", {}});
        checker_.observe({200, {}, "OK SPEAKING", {}});
        return *this;
    }
    Exchange& refused() {
        checker_.messageSent({"x"});
        checker_.observe({202, {}, "OK RECEIVING MESSAGE", {}});
        checker_.observe({301, {}, "ERROR ALREADY SPEAKING", {}});
        return *this;
    }
    Exchange& event(int code) {
        checker_.observe({code, {}, "", {}});
        return *this;
    }
    Exchange& audio(size_t samples, size_t declared) {
        checker_.observe({705,
                          {"bits=16", "num_channels=1", "sample_rate=24000",
                           "num_samples=" + std::to_string(declared), "big_endian=0"},
                          "AUDIO",
                          std::vector<int16_t>(samples, 7)});
        return *this;
    }
    Exchange& audio() { return audio(4800, 4800); }
    Exchange& mark(const std::string& name) {
        checker_.observe({700, {name}, "INDEX MARK", {}});
        return *this;
    }
    Exchange& stop() {
        checker_.stopSent();
        return *this;
    }
    Exchange& pause() {
        checker_.pauseSent();
        return *this;
    }
    Exchange& voiceList() {
        checker_.observe({200, {"Murmela\ten-US\tnone"}, "OK VOICE LIST SENT", {}});
        return *this;
    }

    std::vector<std::string> faults() {
        checker_.finish();
        return checker_.faults();
    }
    const EventChecker& checker() const { return checker_; }

private:
    EventChecker checker_;
};

constexpr int begin = 701, end = 702, stopped = 703, paused = 704;

TEST(SpeechdEventChecker, WellBehavedExchangesAndTheRacesTheProtocolAllows) {
    Exchange exchange;
    exchange.speak({"a", "b"}).event(begin).audio().mark("a").audio().mark("b").event(end);
    EXPECT_FALSE(exchange.checker().speaking());
    // Stopped before any audio: the module still says BEGIN first.
    exchange.voiceList().speak({"a"}).stop().event(begin).event(stopped);
    // A STOP and a PAUSE that crossed the message's END on the way are owed nothing.
    exchange.speak().event(begin).audio().stop().event(end).voiceList();
    exchange.speak().event(begin).audio().event(end).stop().pause();
    exchange.speak({"p", "q"}).event(begin).audio().pause().mark("p").event(paused);
    // A refused message is not spoken; the next is, and may repeat a mark's name.
    exchange.refused().voiceList().speak({"d", "d"}).event(begin).mark("d").mark("d").event(end);
    EXPECT_EQ(exchange.faults(), std::vector<std::string>{});

    const EventChecker::Counts& counts = exchange.checker().counts();
    EXPECT_EQ(counts.messages, 6);
    EXPECT_EQ(counts.ends, 4);
    EXPECT_EQ(counts.stops, 1);
    EXPECT_EQ(counts.pauses, 1);
    EXPECT_EQ(counts.marks, 5);
    EXPECT_EQ(counts.audio, 5);
    EXPECT_EQ(counts.events, 6 * 2 + 5 + 5);
}

TEST(SpeechdEventChecker, NamesEveryBrokenPromise) {
    using Faults = std::vector<std::string>;
    // Audio or a second closing event after the message has closed.
    EXPECT_EQ(Exchange().speak().event(begin).audio().stop().event(stopped).audio().faults(),
              Faults{"AUDIO after message 1's STOP"});
    EXPECT_EQ(Exchange().speak().event(begin).event(end).voiceList().event(end).faults(),
              Faults{"END after message 1's END"});
    EXPECT_EQ(Exchange().speak().stop().event(begin).event(stopped).event(end).faults(),
              Faults{"END after message 1's STOP"});
    EXPECT_EQ(
        Exchange().event(begin).audio().faults(),
        (Faults{"BEGIN with no message being spoken, after the start", "AUDIO after the start"}));
    // Closing events nobody asked for, or without BEGIN.
    EXPECT_EQ(Exchange().speak().event(begin).audio().event(stopped).faults(),
              Faults{"message 1: STOP that the server did not ask for"});
    EXPECT_EQ(Exchange().speak().event(begin).event(paused).faults(),
              Faults{"message 1: PAUSE that the server did not ask for"});
    EXPECT_EQ(Exchange().speak().audio().event(end).faults(),
              (Faults{"message 1: AUDIO before BEGIN", "message 1: END before BEGIN"}));
    EXPECT_EQ(Exchange().speak().event(begin).event(begin).event(end).faults(),
              Faults{"message 1: a second BEGIN"});
    // Marks out of order, foreign, or missing from a message spoken to its end.
    EXPECT_EQ(Exchange().speak({"a", "b"}).event(begin).mark("b").mark("a").event(end).faults(),
              (Faults{"message 1: INDEX MARK \"b\" out of order",
                      "message 1: END with 1 of its index marks never reported"}));
    EXPECT_EQ(Exchange().speak({"a"}).event(begin).mark("a").mark("z").event(end).faults(),
              Faults{"message 1: INDEX MARK \"z\" that is not in the message"});
    EXPECT_EQ(Exchange().speak({"a", "b"}).event(begin).mark("a").event(end).faults(),
              Faults{"message 1: END with 1 of its index marks never reported"});
    // Damaged audio, an unknown event, a message left open, SPEAKING out of turn.
    EXPECT_EQ(Exchange().speak().event(begin).audio(4799, 4800).event(end).faults(),
              Faults{"message 1: AUDIO of 4799 samples whose header says otherwise"});
    EXPECT_EQ(Exchange().speak().event(begin).event(706).event(end).faults(),
              Faults{"unknown event 706 after message 1"});
    EXPECT_EQ(Exchange().speak().event(begin).audio().faults(), Faults{"message 1 never closed"});
    Exchange twice;
    twice.speak().event(begin).speak().event(end).event(end);
    EXPECT_EQ(twice.faults(), (Faults{"SPEAKING while message 1 is still open",
                                      "message 2: END before BEGIN", "END after message 2's END"}));
}

TEST(SpeechdEventChecker, ASoakOfWhatIsNoModuleEndsWithItsReason) {
    // A wrapper that prints its own greeting on the module's output, then a module that ends.
    for (const char* program : {"/bin/echo", "/bin/true"}) {
        ModuleClient module(program, {"profiler output will be written to x"}, {});
        const SoakReport report = runSoak(module, {.rounds = 5, .settledRound = 2, .seed = 1});
        EXPECT_EQ(report.rounds, 0) << program;
        EXPECT_EQ(report.abandoned,
                  "the module went quiet, went away or wrote what is no reply in round 1")
            << program;
        EXPECT_FALSE(report.problems().empty()) << program;
    }
}

}  // namespace
}  // namespace murmela::speechd
