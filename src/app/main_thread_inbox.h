#pragma once
// Hands work from any thread to the thread that owns the inbox (the main thread), to run there
// in its event loop, in the order it was posted.
//
// The work itself travels through a queue under a standard mutex; Qt's event only wakes the
// owner and carries nothing. That way every hand-off is ordered by a lock that the thread
// sanitizer can see, not only by Qt's own internals. Work still waiting when the inbox is
// destroyed is dropped without running.

#include <QObject>

#include <deque>
#include <functional>
#include <mutex>

namespace murmela {

class MainThreadInbox final : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    // Any thread: queues `work` to run on the inbox's thread.
    void post(std::function<void()> work);

private slots:
    void deliver();

private:
    std::mutex mutex_;
    std::deque<std::function<void()>> waiting_;
};

}  // namespace murmela
