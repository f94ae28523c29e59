#pragma once
// The two threads of the application model: the render thread's queue that runs loading,
// speaking and saving one at a time, and the inbox through which results come back to the
// main thread.
//
// Hands work from any thread to the thread that owns the inbox (the main thread), to run there
// in its event loop, in the order it was posted.
//
// The work itself travels through a queue under a standard mutex; Qt's event only wakes the
// owner and carries nothing. That way every hand-off is ordered by a lock that the thread
// sanitizer can see, not only by Qt's own internals. Work still waiting when the inbox is
// destroyed is dropped without running.

#include <QObject>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

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

// One serial worker thread, "murmela.render", that runs the model's long operations (loading,
// speaking, saving) one at a time in the order they were posted. The thread is started by the
// first post.
//
// A job gets copies of what it works on and reports back by posting to the main thread; it
// must not throw. Closing the queue drops the jobs that have not started, waits for the one
// that runs (whoever posted it makes it end soon, for example with a cancel flag) and joins
// the thread; nothing can be posted after that.

class RenderQueue {
public:
    RenderQueue() = default;
    ~RenderQueue();  // closes
    RenderQueue(const RenderQueue&) = delete;
    RenderQueue& operator=(const RenderQueue&) = delete;

    // Runs `job` on the worker after every job posted before it. Ignored once closed.
    void post(std::function<void()> job);

    // Drops the waiting jobs, waits for the running one and ends the thread. Called on the
    // thread that posts, never from a job.
    void close();

private:
    void run();

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> jobs_;
    bool closed_ = false;
    std::thread thread_;
};

}  // namespace murmela
