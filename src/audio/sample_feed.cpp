#include "audio/sample_feed.h"

#include <algorithm>
#include <cstring>

namespace murmela {

SampleFeed::SampleFeed(QObject* parent) : QIODevice(parent) {
    open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

void SampleFeed::push(int64_t generation, std::vector<float> samples) {
    std::lock_guard lock(mutex_);
    blocks_.push_back(Block{generation, std::move(samples)});
    finished_ = false;
}

void SampleFeed::wakeReaderIfWaiting() {
    bool wake = false;
    {
        std::lock_guard lock(mutex_);
        wake = waiting_ && !blocks_.empty();
        if (wake) {
            waiting_ = false;
        }
    }
    if (wake) {
        // The sink stopped pulling when it found nothing; readyRead makes it pull again.
        emit readyRead();
    }
}

void SampleFeed::finish() {
    std::lock_guard lock(mutex_);
    finished_ = true;
}

void SampleFeed::discard() {
    std::lock_guard lock(mutex_);
    blocks_.clear();
    ends_.clear();
    finished_ = false;
}

void SampleFeed::beginStream() {
    std::lock_guard lock(mutex_);
    position_ = 0;
    streaming_ = false;
    waiting_ = false;
    firstSample_.reset();
}

std::vector<int64_t> SampleFeed::takePlayed(int64_t playedFrames) {
    std::lock_guard lock(mutex_);
    std::vector<int64_t> generations;
    while (!ends_.empty() && ends_.front().frame <= playedFrames) {
        generations.push_back(ends_.front().generation);
        ends_.pop_front();
    }
    return generations;
}

bool SampleFeed::hasUnplayedBlocks() const {
    std::lock_guard lock(mutex_);
    return !blocks_.empty() || !ends_.empty();
}

bool SampleFeed::drained() const {
    std::lock_guard lock(mutex_);
    return finished_ && blocks_.empty() && ends_.empty();
}

std::optional<std::chrono::steady_clock::time_point> SampleFeed::firstSampleTime() const {
    std::lock_guard lock(mutex_);
    return firstSample_;
}

qint64 SampleFeed::bytesAvailable() const {
    std::lock_guard lock(mutex_);
    qint64 queued = 0;
    for (const Block& block : blocks_) {
        queued += static_cast<qint64>((block.samples.size() - block.offset) * sizeof(float));
    }
    return queued + QIODevice::bytesAvailable();
}

qint64 SampleFeed::readData(char* data, qint64 maxSize) {
    std::lock_guard lock(mutex_);
    const auto frames = static_cast<size_t>(maxSize / static_cast<qint64>(sizeof(float)));
    if (frames == 0) {
        return 0;
    }
    if (blocks_.empty() && !streaming_) {
        // Nothing to play yet: leading silence would only delay the first block.
        waiting_ = true;
        return 0;
    }
    if (!streaming_) {
        streaming_ = true;
        firstSample_ = std::chrono::steady_clock::now();
    }
    auto* out = reinterpret_cast<float*>(data);
    size_t filled = 0;
    while (filled < frames && !blocks_.empty()) {
        Block& block = blocks_.front();
        const size_t count = std::min(frames - filled, block.samples.size() - block.offset);
        std::memcpy(out + filled, block.samples.data() + block.offset, count * sizeof(float));
        block.offset += count;
        filled += count;
        if (block.offset == block.samples.size()) {
            ends_.push_back(BlockEnd{block.generation, position_ + static_cast<int64_t>(filled)});
            blocks_.pop_front();
        }
    }
    // A gap between blocks (synthesis slower than playback) is played as silence, so the stream
    // never runs dry and its position stays the playing time.
    std::fill(out + filled, out + frames, 0.0f);
    position_ += static_cast<int64_t>(frames);
    return static_cast<qint64>(frames * sizeof(float));
}

qint64 SampleFeed::writeData(const char*, qint64) {
    return -1;
}

}  // namespace murmela
