#pragma once
// The player, and the process-wide switches that stand its device in for automated runs.
//
// Process-wide switches for automated runs, read from the environment once, on first use.

#include <QObject>
#include <QString>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <vector>

namespace murmela {

// MURMELA_AUDIO=none: no audio device at all; playing time is only simulated.
bool audioSwitchedOff();

// MURMELA_MUTE=1: the device plays as usual, at volume 0.
bool muteSwitchedOn();

// Plays synthesised audio while it is still being made. The producer starts an utterance, hands
// over one block of samples per chunk as soon as it is ready, says when the last one has come,
// and hears once, through the idle callback, that everything has been played back.
//
// A generation counter, raised by every stop, makes completions of an earlier utterance
// harmless. With MURMELA_AUDIO=none there is no device and playing time is simulated with
// timers; with MURMELA_MUTE=1 the device plays at volume 0.
//
// Every member is called on the main thread, and every callback and signal comes there. The
// sink lives on the main thread too: Qt keeps its one connection to the sound server there, and
// when the server goes away it frees that connection at once on its own thread, so a sink on any
// other thread could still be using it. The sink pulls samples without blocking, so the main
// thread never waits for it.

class SampleFeed;
class SinkStream;

// The audio output could not be opened; what() says why.
class AudioOutputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class Player : public QObject {
    Q_OBJECT

public:
    explicit Player(QObject* parent = nullptr);
    ~Player() override;
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    // Prepares for a new utterance (stopping the current one); `idle` is called once after the
    // last block has been heard. Throws AudioOutputError, leaving no callback, when the output
    // cannot be opened.
    void start(std::function<void()> idle);
    // Queues one block; it plays right after the blocks before it. An empty block is ignored.
    // Samples are clamped to [-1, 1], NaN to 1.
    void schedule(std::vector<float> samples);
    // The producer has no more blocks.
    void finish();
    // Abandons everything queued at once; the idle callback is dropped without being called.
    void stop();

    int64_t generation() const { return generation_; }
    int64_t pending() const { return pending_; }
    bool finished() const { return finished_; }
    // Uptime in seconds at which simulated playback of the last block ends (no device only).
    double clock() const { return clock_; }

signals:
    // The output failed while playing. The utterance is over: it has been stopped, and its idle
    // callback will not come.
    void outputFailed(const QString& description);

private:
    void blockDone(int64_t generation);
    void takeReports();
    void callIdleIfDone();

    SinkStream* stream_ = nullptr;  // a child; none without a device
    SampleFeed* feed_ = nullptr;    // the stream's
    int64_t generation_ = 0;
    int64_t pending_ = 0;
    bool finished_ = false;
    std::function<void()> idle_;
    double clock_ = 0.0;
};

}  // namespace murmela
