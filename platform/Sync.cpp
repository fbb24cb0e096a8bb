#include "platform/Sync.h"

#include <chrono>

namespace platform {

void AutoResetEvent::Set() {
    {
        std::lock_guard<std::mutex> g(lock_);
        signalled_ = true;
    }
    cv_.notify_one();
}

void AutoResetEvent::Reset() {
    std::lock_guard<std::mutex> g(lock_);
    signalled_ = false;
}

bool AutoResetEvent::Wait(uint32_t milliseconds) {
    std::unique_lock<std::mutex> g(lock_);
    if (milliseconds == kInfinite) {
        cv_.wait(g, [this] { return signalled_; });
    } else if (!cv_.wait_for(g, std::chrono::milliseconds(milliseconds),
                             [this] { return signalled_; })) {
        return false;
    }
    signalled_ = false;
    return true;
}

bool OwnedTimedMutex::Lock(uint32_t milliseconds) {
    bool taken;
    if (milliseconds == kInfinite) {
        mutex_.lock();
        taken = true;
    } else if (milliseconds == 0) {
        taken = mutex_.try_lock();
    } else {
        taken = mutex_.try_lock_for(std::chrono::milliseconds(milliseconds));
    }
    if (taken) owner_.store(std::this_thread::get_id());
    return taken;
}

bool OwnedTimedMutex::Unlock() {
    if (owner_.load() != std::this_thread::get_id()) return false;
    owner_.store(std::thread::id());
    mutex_.unlock();
    return true;
}

bool OwnedTimedMutex::OwnedByMe() const { return owner_.load() == std::this_thread::get_id(); }

}  // namespace platform
