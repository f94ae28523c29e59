#pragma once

#include <mutex>

namespace murmela {

// Tells a running speak request to stop. The main thread raises it, the synthesis loop checks
// it between steps; once raised it stays raised. Safe to use from any thread.
class CancelFlag {
public:
    void cancel() {
        std::lock_guard guard(lock_);
        on_ = true;
    }
    bool isCancelled() const {
        std::lock_guard guard(lock_);
        return on_;
    }

private:
    mutable std::mutex lock_;
    bool on_ = false;
};

}  // namespace murmela
