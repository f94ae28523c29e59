#include "app/render_queue.h"

#include <pthread.h>
#include <QMetaObject>
#include <utility>

namespace murmela {

void MainThreadInbox::post(std::function<void()> work) {
    bool wake = false;
    {
        std::lock_guard lock(mutex_);
        // One wake-up per batch: a non-empty queue already has one on its way.
        wake = waiting_.empty();
        waiting_.push_back(std::move(work));
    }
    if (wake) {
        QMetaObject::invokeMethod(this, "deliver", Qt::QueuedConnection);
    }
}

void MainThreadInbox::deliver() {
    std::deque<std::function<void()>> batch;
    {
        std::lock_guard lock(mutex_);
        batch.swap(waiting_);
    }
    for (std::function<void()>& work : batch) {
        work();
    }
}

RenderQueue::~RenderQueue() {
    close();
}

void RenderQueue::post(std::function<void()> job) {
    {
        std::lock_guard lock(mutex_);
        if (closed_) {
            return;
        }
        jobs_.push_back(std::move(job));
        if (!thread_.joinable()) {
            thread_ = std::thread([this] { run(); });
        }
    }
    wake_.notify_one();
}

void RenderQueue::close() {
    std::deque<std::function<void()>> dropped;
    {
        std::lock_guard lock(mutex_);
        closed_ = true;
        dropped.swap(jobs_);
    }
    wake_.notify_one();
    if (thread_.joinable()) {
        thread_.join();
    }
    // The dropped jobs' copies (a voice, samples) go here, on the posting thread.
}

void RenderQueue::run() {
    pthread_setname_np(pthread_self(), "murmela.render");
    for (;;) {
        std::function<void()> job;
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [this] { return closed_ || !jobs_.empty(); });
            if (jobs_.empty()) {
                return;  // closed
            }
            job = std::move(jobs_.front());
            jobs_.pop_front();
        }
        job();
    }
}

}  // namespace murmela
