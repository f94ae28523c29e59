#include "audio/player.h"

#include <QTimer>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <string_view>

#include "audio/sink_stream.h"
#include "common/speech_rules.h"
#include "common/voice_format.h"
#include "logging/log.h"

namespace murmela {
namespace {

bool environmentIs(const char* name, std::string_view value) {
    const char* set = std::getenv(name);
    return set != nullptr && value == set;
}

}  // namespace

bool audioSwitchedOff() {
    static const bool off = environmentIs("MURMELA_AUDIO", "none");
    return off;
}

bool muteSwitchedOn() {
    static const bool muted = environmentIs("MURMELA_MUTE", "1");
    return muted;
}

namespace {

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
    stream_->setParent(this);
    feed_ = &stream_->feed();
    // Queued: a report is taken after whatever the sink was doing when it was made.
    connect(stream_, &SinkStream::reportsReady, this, &Player::takeReports, Qt::QueuedConnection);
}

Player::~Player() = default;

void Player::start(std::function<void()> idle) {
    stop();
    if (stream_) {
        const QString description = stream_->open(generation_);
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
        clock_ += static_cast<double>(samples.size()) / static_cast<double>(sampleRate);
        const auto delay = std::chrono::ceil<std::chrono::milliseconds>(
            std::chrono::duration<double>(clock_ - uptimeSeconds()));
        QTimer::singleShot(std::max(delay, std::chrono::milliseconds(0)), Qt::PreciseTimer, this,
                           [this, generation] { blockDone(generation); });
        return;
    }
    for (float& sample : samples) {
        sample = clampedSample(sample);
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
        stream_->close();
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
