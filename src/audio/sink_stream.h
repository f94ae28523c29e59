#pragma once
// The device side of the player: one QAudioSink stream per utterance at 24000 Hz, mono, 32-bit
// float, pulling from a SampleFeed. It watches how far the sink has actually played and reports
// each block once it has been heard, and reports a sink that fails while playing.
//
// Lives on the thread of Qt's connection to the sound server (the main thread, see
// bindServerConnectionToThisThread), as every sink must: Qt tears that connection down on its own
// thread when the server goes away, expecting its sinks to let go of it there and then.

#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

class QAudioSink;

namespace murmela {

class SampleFeed;

// How far a stream has been heard, judged from what its sink says it has processed: never more
// than the time since the first sample went out (a block cannot be heard sooner than it takes to
// play), and a position that stands still for longer than the stall limit while blocks wait is
// a failed output: a server that hangs without closing the connection must not hold an
// utterance forever.
class PlayedPosition {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::seconds stallLimit{5};

    // A fresh stream, opened at `now`.
    void restart(Clock::time_point now);

    // Frames heard by `now`, from the sink's processed time and the moment the feed handed out
    // its first sample (none yet: nothing heard); nothing once the output has stalled.
    std::optional<int64_t> update(int64_t processedMicroseconds,
                                  std::optional<Clock::time_point> firstSample, bool blocksWaiting,
                                  Clock::time_point now);

private:
    int64_t lastPlayed_ = 0;
    Clock::time_point lastProgress_;
};

class SinkStream : public QObject {
    Q_OBJECT

public:
    // Something that happened to an utterance's stream.
    struct Report {
        int64_t generation;
        bool failed;          // false: one block was heard
        QString description;  // why it failed
    };

    // Qt keeps one connection to the sound server per process, and it belongs to the thread that
    // first opens a stream: only there does it learn that the server went away, and only there
    // may sinks use it. Called on the main thread before any stream opens, this keeps it on a
    // thread that outlives every player.
    static void bindServerConnectionToThisThread();

    explicit SinkStream(bool muted);
    ~SinkStream() override;

    // The feed that the stream plays.
    SampleFeed& feed() { return *feed_; }

    // Takes the reports gathered since the last call, oldest first.
    std::vector<Report> takeReports();

    // Opens a fresh stream on the default output for the utterance `generation`. Gives the
    // description of the failure, or an empty string.
    QString open(int64_t generation);
    // Ends the stream at once; what it still held is not played.
    void close();

signals:
    // There are reports to take.
    void reportsReady();

private:
    void poll();
    void sinkStateChanged();
    void fail(const QString& description);
    void report(Report report);

    QAudioSink* sink_ = nullptr;  // owned while open
    SampleFeed* feed_;            // a child
    QTimer poller_;
    bool muted_;
    int64_t generation_ = 0;
    PlayedPosition played_;

    std::vector<Report> reports_;
};

}  // namespace murmela
