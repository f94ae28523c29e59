#include "audio/sink_stream.h"

#include <QAudioDevice>
#include <QAudioFormat>
#include <QAudioSink>
#include <QBuffer>
#include <QCoreApplication>
#include <QMediaDevices>
#include <algorithm>
#include <chrono>
#include <cstring>
#include <utility>

#include "common/voice_format.h"

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

namespace {

// How often the played position is checked: the lateness of a completion, at most.
constexpr std::chrono::milliseconds kPollInterval{5};

QAudioFormat playerFormat() {
    QAudioFormat format;
    format.setSampleRate(static_cast<int>(sampleRate));
    format.setChannelCount(1);
    format.setChannelConfig(QAudioFormat::ChannelConfigMono);
    format.setSampleFormat(QAudioFormat::Float);
    return format;
}

QString openFailure(QAudio::Error error) {
    switch (error) {
        case QAudio::FatalError:
            return QStringLiteral("the sound server is not reachable");
        case QAudio::OpenError:
            return QStringLiteral("the output device could not be opened");
        default:
            return QStringLiteral("the output did not start");
    }
}

QString playingFailure(QAudio::Error error) {
    switch (error) {
        case QAudio::FatalError:
            return QStringLiteral("the connection to the sound server was lost");
        case QAudio::IOError:
            return QStringLiteral("the output stopped taking samples");
        case QAudio::NoError:
            return QStringLiteral("the output stopped playing");
        default:
            return QStringLiteral("the output stopped unexpectedly");
    }
}

}  // namespace

void PlayedPosition::restart(Clock::time_point now) {
    lastPlayed_ = 0;
    lastProgress_ = now;
}

std::optional<int64_t> PlayedPosition::update(int64_t processedMicroseconds,
                                              std::optional<Clock::time_point> firstSample,
                                              bool blocksWaiting, Clock::time_point now) {
    int64_t played = 0;
    if (firstSample) {
        const auto elapsed =
            std::chrono::duration_cast<std::chrono::microseconds>(now - *firstSample).count();
        played = std::min(processedMicroseconds, elapsed) * sampleRate / 1000000;
    }
    if (played > lastPlayed_ || !blocksWaiting) {
        lastPlayed_ = played;
        lastProgress_ = now;
    } else if (now - lastProgress_ > stallLimit) {
        return std::nullopt;
    }
    return played;
}

void SinkStream::bindServerConnectionToThisThread() {
    const QAudioDevice device = QMediaDevices::defaultAudioOutput();
    if (device.isNull()) {
        return;  // without a device no stream ever opens
    }
    // A stream with nothing to play, opened and closed at once: silent.
    QBuffer nothing;
    nothing.open(QIODevice::ReadOnly);
    QAudioSink sink(device, playerFormat());
    sink.start(&nothing);
    sink.stop();
}

SinkStream::SinkStream(bool muted) : feed_(new SampleFeed(this)), poller_(this), muted_(muted) {
    poller_.setTimerType(Qt::PreciseTimer);
    poller_.setInterval(kPollInterval);
    connect(&poller_, &QTimer::timeout, this, &SinkStream::poll);
}

std::vector<SinkStream::Report> SinkStream::takeReports() {
    return std::exchange(reports_, {});
}

void SinkStream::report(Report report) {
    reports_.push_back(std::move(report));
    emit reportsReady();
}

SinkStream::~SinkStream() {
    // Qt's sink runs pending events as it goes; none of them may reach this object any more.
    QCoreApplication::removePostedEvents(this);
    poller_.stop();
    if (sink_) {
        sink_->disconnect(this);
        sink_->stop();
        delete sink_;
    }
}

QString SinkStream::open(int64_t generation) {
    close();
    generation_ = generation;
    const QAudioDevice device = QMediaDevices::defaultAudioOutput();
    if (device.isNull()) {
        return QStringLiteral("no output device is available");
    }
    // No parent: Qt 6.4 gives the sink's parent its platform part as a child too, which that
    // parent's end would then delete under the sink.
    auto* sink = new QAudioSink(device, playerFormat());
    if (muted_) {
        sink->setVolume(0.0);
    }
    feed_->beginStream();
    sink->start(feed_);
    if (sink->isNull() || sink->error() != QAudio::NoError ||
        sink->state() == QAudio::StoppedState) {
        const QString problem = sink->isNull() ? QStringLiteral("no output device is available")
                                               : openFailure(sink->error());
        sink->deleteLater();
        return problem;
    }
    connect(sink, &QAudioSink::stateChanged, this, &SinkStream::sinkStateChanged);
    sink_ = sink;
    played_.restart(PlayedPosition::Clock::now());
    poller_.start();
    return {};
}

void SinkStream::close() {
    poller_.stop();
    if (QAudioSink* sink = std::exchange(sink_, nullptr)) {
        // Disconnected first: the stop that follows is no failure.
        sink->disconnect(this);
        sink->stop();
        // Deleted from the event loop, because Qt's sink runs pending events as it goes.
        sink->deleteLater();
    }
}

void SinkStream::poll() {
    if (!sink_) {
        return;
    }
    feed_->wakeReaderIfWaiting();
    const QAudio::Error error = sink_->error();
    if (error == QAudio::FatalError || error == QAudio::IOError || error == QAudio::OpenError) {
        fail(playingFailure(error));
        return;
    }
    const std::optional<int64_t> played =
        played_.update(sink_->processedUSecs(), feed_->firstSampleTime(),
                       feed_->hasUnplayedBlocks(), PlayedPosition::Clock::now());
    if (!played) {
        fail(playingFailure(QAudio::NoError));
        return;
    }
    for (int64_t generation : feed_->takePlayed(*played)) {
        report(Report{generation, false, {}});
    }
    if (feed_->drained()) {
        // Everything was heard: let the output rest until the next utterance.
        close();
    }
}

void SinkStream::sinkStateChanged() {
    if (sink_ && sink_->state() == QAudio::StoppedState) {
        fail(playingFailure(sink_->error()));
    }
}

void SinkStream::fail(const QString& description) {
    close();
    report(Report{generation_, true, description});
}

}  // namespace murmela
