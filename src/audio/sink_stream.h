#pragma once
// The device side of the player: the feed of samples the sink pulls, and the stream that opens
// the sink, watches how far it has played and reports each block once heard.
//
// The stream of samples that the audio sink pulls: the blocks scheduled so far, back to back, with
// silence wherever the next block has not come yet, so that the stream's position is always
// playing time. It notes where in the stream each block ends, which tells when a block has been
// heard once the sink reports how far it has played.
//
// Thread-safe: the producer side may hand in blocks on one thread while the sink side reads
// them on another.

#include <QIODevice>
#include <QObject>
#include <QString>
#include <QTimer>
#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <vector>

class QAudioSink;

namespace murmela {

class SampleFeed : public QIODevice {
    Q_OBJECT

public:
    explicit SampleFeed(QObject* parent = nullptr);

    // Producer side. Appends a block of samples (already clamped) for the utterance `generation`.
    void push(int64_t generation, std::vector<float> samples);
    // Producer side. The producer has handed over the last block of the utterance.
    void finish();
    // Producer side. Drops every block not yet read and every unreported block end.
    void discard();

    // Sink side. Tells the reader, which found nothing last time, that blocks have come.
    void wakeReaderIfWaiting();
    // Sink side. A new sink stream starts reading at position 0.
    void beginStream();
    // Sink side. Takes the blocks that end at or before stream frame `playedFrames`, in order,
    // and gives their generations.
    std::vector<int64_t> takePlayed(int64_t playedFrames);
    // Sink side. Blocks wait to be read or to be reported as played.
    bool hasUnplayedBlocks() const;
    // Sink side. The utterance is over: finished, everything read and every block reported.
    bool drained() const;
    // Sink side. When the stream first got samples, if it did.
    std::optional<std::chrono::steady_clock::time_point> firstSampleTime() const;

    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override;

protected:
    qint64 readData(char* data, qint64 maxSize) override;
    qint64 writeData(const char* data, qint64 maxSize) override;

private:
    struct Block {
        int64_t generation;
        std::vector<float> samples;
        size_t offset = 0;  // samples already read
    };
    struct BlockEnd {
        int64_t generation;
        int64_t frame;  // stream position just after the block's last sample
    };

    mutable std::mutex mutex_;
    std::deque<Block> blocks_;
    std::deque<BlockEnd> ends_;
    int64_t position_ = 0;    // frames read in the current stream
    bool streaming_ = false;  // a sample has been read, so gaps are filled with silence
    bool waiting_ = false;    // the last read found nothing, the reader waits for readyRead
    bool finished_ = false;
    std::optional<std::chrono::steady_clock::time_point> firstSample_;
};

// The device side of the player: one QAudioSink stream per utterance at 24000 Hz, mono, 32-bit
// float, pulling from a SampleFeed. It watches how far the sink has actually played and reports
// each block once it has been heard, and reports a sink that fails while playing.
//
// Lives on the thread of Qt's connection to the sound server (the main thread, see
// bindServerConnectionToThisThread), as every sink must: Qt tears that connection down on its own
// thread when the server goes away, expecting its sinks to let go of it there and then.

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
