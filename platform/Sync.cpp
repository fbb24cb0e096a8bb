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
    if (locked_ || !waiting_.empty()) {
        const uint64_t ticket = nextTicket_++;
        waiting_.push_back(ticket);
        auto mine = [this, ticket] { return !locked_ && waiting_.front() == ticket; };
        bool got = true;
        if (milliseconds == kInfinite) {
            released_.wait(g, mine);
        } else {
            got = released_.wait_for(g, std::chrono::milliseconds(milliseconds), mine);
        }
        if (!got) {
            // Leaves the queue; the next waiter may be first now.
            for (auto it = waiting_.begin(); it != waiting_.end(); ++it) {
                if (*it == ticket) {
                    waiting_.erase(it);
                    break;
                }
            }
            g.unlock();
            released_.notify_all();
            return false;
        }
        waiting_.pop_front();
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
    // Every waiter looks: only the oldest takes it.
    released_.notify_all();
    return true;
}

bool OwnedTimedMutex::OwnedByMe() const {
    std::lock_guard<std::mutex> g(lock_);
    return locked_ && owner_ == std::this_thread::get_id();
}

}  // namespace platform
