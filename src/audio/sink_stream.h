#pragma once
// The audio thread's side of the player: one QAudioSink stream per utterance at 24000 Hz, mono,
// 32-bit float, pulling from a SampleFeed. It watches how far the sink has actually played and
// reports each block once it has been heard, and reports a sink that fails while playing.
//
// Lives on the audio thread. The main thread talks to it only through post(), feed() and
// takeReports(); everything that crosses between the threads goes through this object's lock
// (or the feed's), and Qt's queued signals only say that there is something to look at.

#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <vector>

class QAudioSink;

namespace murmela {

class SampleFeed;

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
    // first opens a stream: only there does it learn that the server went away. Called on the
    // main thread before any stream opens elsewhere, this keeps it on a thread that outlives
    // every player.
    static void bindServerConnectionToThisThread();

    explicit SinkStream(bool muted);
    ~SinkStream() override;

    // Any thread. The feed that the stream plays.
    SampleFeed& feed() { return *feed_; }

    // Any thread. Runs `command` on the audio thread, after the commands posted before it.
    void post(std::function<void()> command);

    // Any thread. Takes the reports gathered since the last call, oldest first.
    std::vector<Report> takeReports();

    // Audio thread. Opens a fresh stream on the default output for the utterance `generation`.
    // Gives the description of the failure, or an empty string.
    QString open(int64_t generation);
    // Audio thread. Ends the stream at once; what it still held is not played.
    void close();

signals:
    // Emitted on the audio thread when there are reports to take.
    void reportsReady();
    // Emitted by post(); runs the commands on the audio thread.
    void commandsPosted();

private:
    void runCommands();
    void poll();
    void sinkStateChanged();
    void fail(const QString& description);
    void report(Report report);

    QAudioSink* sink_ = nullptr;  // owned while open
    SampleFeed* feed_;            // a child
    QTimer poller_;
    bool muted_;
    int64_t generation_ = 0;
    int64_t lastPlayed_ = 0;  // frames
    std::chrono::steady_clock::time_point lastProgress_;

    std::mutex mutex_;  // guards the two queues
    std::deque<std::function<void()>> commands_;
    std::vector<Report> reports_;
};

}  // namespace murmela
