#pragma once
// The audio thread's side of the player: one QAudioSink stream per utterance at 24000 Hz, mono,
// 32-bit float, pulling from a SampleFeed. It watches how far the sink has actually played and
// reports each block once it has been heard, and reports a sink that fails while playing.
//
// Lives on the audio thread; every member is called there. The report functions are called on
// the audio thread too and must do nothing but post to the thread that wants to know.

#include <QObject>
#include <QString>
#include <QTimer>

#include <cstdint>
#include <functional>

class QAudioSink;

namespace murmela {

class SampleFeed;

class SinkStream : public QObject {
    Q_OBJECT

  public:
    using Played = std::function<void(int64_t generation)>;
    using Failed = std::function<void(int64_t generation, const QString& description)>;

    // Qt keeps one connection to the sound server per process, and it belongs to the thread that
    // first opens a stream: only there does it learn that the server went away. Called on the
    // main thread before any stream opens elsewhere, this keeps it on a thread that outlives
    // every player.
    static void bindServerConnectionToThisThread();

    SinkStream(bool muted, Played played, Failed failed);
    ~SinkStream() override;

    SampleFeed& feed() { return *feed_; }

    // Opens a fresh stream on the default output for the utterance `generation`. Gives the
    // description of the failure, or an empty string.
    QString open(int64_t generation);
    // Ends the stream at once; what it still held is not played.
    void close();

  private:
    void poll();
    void sinkStateChanged();
    void fail(const QString& description);

    QAudioSink* sink_ = nullptr;  // a child while open
    SampleFeed* feed_;            // owned as a child
    QTimer poller_;
    bool muted_;
    int64_t generation_ = 0;
    Played played_;
    Failed failed_;
};

}  // namespace murmela
