#include "app/main_thread_inbox.h"

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

}  // namespace murmela
