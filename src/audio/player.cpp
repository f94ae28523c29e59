#include "audio/player.h"

#include <QCoreApplication>
#include <QPointer>
#include <QThread>
#include <QTimer>

#include <chrono>
#include <cmath>
#include <future>
#include <limits>

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

// Posts `work` to the main thread's event loop.
template <typename Work>
void postToMainThread(Work work) {
    QMetaObject::invokeMethod(QCoreApplication::instance(), std::move(work), Qt::QueuedConnection);
}

}  // namespace

Player::Player(QObject* parent) : QObject(parent) {
    if (audioSwitchedOff()) {
        return;
    }
    SinkStream::bindServerConnectionToThisThread();
    // The audio thread holds the player only weakly: a released player lets its completions
    // lapse.
    QPointer<Player> self(this);
    stream_ = new SinkStream(
        muteSwitchedOn(),
        [self](int64_t generation) {
            postToMainThread([self, generation] {
                if (self) {
                    self->blockDone(generation);
                }
            });
        },
        [self](int64_t generation, const QString& description) {
            postToMainThread([self, generation, description] {
                if (self) {
                    self->outputFailedFor(generation, description);
                }
            });
        });
    feed_ = &stream_->feed();
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
        std::promise<QString> opened;
        std::future<QString> problem = opened.get_future();
        QMetaObject::invokeMethod(
            stream_,
            [stream = stream_, generation = generation_, &opened] {
                opened.set_value(stream->open(generation));
            },
            Qt::QueuedConnection);
        const QString description = problem.get();
        if (!description.isEmpty()) {
            throw AudioOutputError(description.toStdString());
        }
    } else {
        clock_ = uptimeSeconds();
    }
    idle_ = std::move(idle);
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
        QMetaObject::invokeMethod(stream_, &SinkStream::close, Qt::QueuedConnection);
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

void Player::outputFailedFor(int64_t generation, const QString& description) {
    if (generation != generation_) {
        return;
    }
    stop();
    emit outputFailed(description);
}

void Player::callIdleIfDone() {
    if (finished_ && pending_ == 0 && idle_) {
        std::function<void()> idle = std::move(idle_);
        idle_ = nullptr;
        idle();
    }
}

}  // namespace murmela
