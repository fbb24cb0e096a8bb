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
    std::unique_lock<std::mutex> g(lock_);
    auto free = [this] { return !locked_; };
    if (milliseconds == kInfinite) {
        released_.wait(g, free);
    } else if (!released_.wait_for(g, std::chrono::milliseconds(milliseconds), free)) {
        return false;
    }
    locked_ = true;
    owner_ = std::this_thread::get_id();
    return true;
}

bool OwnedTimedMutex::Unlock() {
    {
        std::lock_guard<std::mutex> g(lock_);
        if (!locked_ || owner_ != std::this_thread::get_id()) return false;
        locked_ = false;
        owner_ = std::thread::id();
    }
    released_.notify_one();
    return true;
}

bool OwnedTimedMutex::OwnedByMe() const {
    std::lock_guard<std::mutex> g(lock_);
    return locked_ && owner_ == std::this_thread::get_id();
}

}  // namespace platform
