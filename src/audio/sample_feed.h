#pragma once
// The stream of samples that the audio sink pulls: the blocks scheduled so far, back to back, with
// silence wherever the next block has not come yet, so that the stream's position is always
// playing time. It notes where in the stream each block ends, which tells when a block has been
// heard once the sink reports how far it has played.
//
// Thread-safe: the producer side may hand in blocks on one thread while the sink side reads
// them on another.

#include <QIODevice>

#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <vector>

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

}  // namespace murmela
