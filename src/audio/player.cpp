#include "audio/player.h"

#include <QThread>
#include <QTimer>

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <limits>
#include <mutex>
#include <optional>

#include "audio/audio_switches.h"
#include "audio/programming_error.h"
#include "audio/sample_feed.h"
#include "audio/sink_stream.h"

namespace murmela {
namespace {

using audio::programmingError;

constexpr double kSampleRate = 24000.0;

double uptimeSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

Player::Player(QObject* parent) : QObject(parent) {
    if (audioSwitchedOff()) {
        return;
    }
    SinkStream::bindServerConnectionToThisThread();
    stream_ = new SinkStream(muteSwitchedOn());
    feed_ = &stream_->feed();
    // Queued: the reports come on the main thread, and a released player receives none.
    connect(stream_, &SinkStream::reportsReady, this, &Player::takeReports, Qt::QueuedConnection);
    audioThread_ = new QThread(this);
    audioThread_->setObjectName(QStringLiteral("murmela.audio"));
    stream_->moveToThread(audioThread_);
    // The sink is torn down on its own thread, as the thread ends.
    connect(audioThread_, &QThread::finished, stream_, &QObject::deleteLater);
    audioThread_->start(QThread::TimeCriticalPriority);
}

Player::~Player() {
    if (audioThread_) {
        audioThread_->quit();
        audioThread_->wait();
    }
}

void Player::start(std::function<void()> idle) {
    stop();
    if (stream_) {
        const QString description = openStream();
        if (!description.isEmpty()) {
            throw AudioOutputError(description.toStdString());
        }
    } else {
        clock_ = uptimeSeconds();
    }
    idle_ = std::move(idle);
}

QString Player::openStream() {
    // Waits for the audio thread to open the stream, so that a failure can be thrown.
    struct Outcome {
        std::mutex mutex;
        std::condition_variable done;
        std::optional<QString> problem;
    } outcome;
    stream_->post([stream = stream_, generation = generation_, &outcome] {
        QString problem = stream->open(generation);
        std::lock_guard lock(outcome.mutex);
        outcome.problem = std::move(problem);
        // Under the lock: the waiting thread cannot return, and end `outcome`, before this.
        outcome.done.notify_one();
    });
    std::unique_lock lock(outcome.mutex);
    outcome.done.wait(lock, [&] { return outcome.problem.has_value(); });
    return *outcome.problem;
}

void Player::schedule(std::vector<float> samples) {
    if (samples.empty()) {
        return;
    }
    if (samples.size() > std::numeric_limits<uint32_t>::max()) {
        programmingError("a block of more than 4294967295 samples");
    }
    if (pending_ == std::numeric_limits<int64_t>::max()) {
        programmingError("pending block count overflows");
    }
    const int64_t generation = generation_;
    if (!stream_) {
        ++pending_;
        const double now = uptimeSeconds();
        if (clock_ <= now) {
            clock_ = now;
        }
        clock_ += static_cast<double>(samples.size()) / kSampleRate;
        const auto delay = std::chrono::ceil<std::chrono::milliseconds>(
            std::chrono::duration<double>(clock_ - uptimeSeconds()));
        QTimer::singleShot(std::max(delay, std::chrono::milliseconds(0)), Qt::PreciseTimer, this,
                           [this, generation] { blockDone(generation); });
        return;
    }
    for (float& sample : samples) {
        // fmin first: it turns NaN into 1.
        sample = std::fmax(std::fmin(sample, 1.0f), -1.0f);
    }
    ++pending_;
    feed_->push(generation, std::move(samples));
}

void Player::finish() {
    finished_ = true;
    if (feed_) {
        feed_->finish();
    }
    callIdleIfDone();
}

void Player::stop() {
    if (generation_ == std::numeric_limits<int64_t>::max()) {
        programmingError("player generation overflows");
    }
    ++generation_;
    pending_ = 0;
    finished_ = false;
    idle_ = nullptr;
    if (stream_) {
        feed_->discard();
        stream_->post([stream = stream_] { stream->close(); });
    }
}

void Player::blockDone(int64_t generation) {
    if (generation != generation_) {
        return;  // a block of a stopped utterance
    }
    if (pending_ <= 0) {
        programmingError("a block completed that was not pending");
    }
    --pending_;
    callIdleIfDone();
}

void Player::takeReports() {
    for (const SinkStream::Report& report : stream_->takeReports()) {
        if (report.generation != generation_) {
            continue;  // about a stopped utterance
        }
        if (report.failed) {
            stop();
            emit outputFailed(report.description);
        } else {
            blockDone(report.generation);
        }
    }
}

void Player::callIdleIfDone() {
    if (finished_ && pending_ == 0 && idle_) {
        std::function<void()> idle = std::move(idle_);
        idle_ = nullptr;
        idle();
    }
}

}  // namespace murmela
