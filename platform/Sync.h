#pragma once
// Auto-reset events and the timed owner mutex that stand in for the system's event and
// mutex handles.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>

namespace platform {

constexpr uint32_t kInfinite = 0xFFFFFFFFu;

// Set wakes one waiter (or the next one to wait) and clears itself on that wake.
class AutoResetEvent {
  public:
    void Set();
    void Reset();
    // True when signalled, false when the time ran out. kInfinite waits without limit.
    bool Wait(uint32_t milliseconds);

  private:
    std::mutex lock_;
    std::condition_variable cv_;
    bool signalled_ = false;
};

// A mutex that can be waited for with a time-out and that records its owner, so that a
// release by a thread that does not own it is a harmless no-op. Waiters take it in the order
// they came: a thread that releases and at once takes it again (a waiting loop in steps) queues
// behind the others instead of starving them, whatever the system's scheduler favours.
class OwnedTimedMutex {
  public:
    // True when the mutex was taken within the time. kInfinite waits without limit.
    bool Lock(uint32_t milliseconds = kInfinite);
    // Releases only when the calling thread owns the mutex; false otherwise.
    bool Unlock();
    bool OwnedByMe() const;

  private:
    // A flag under a plain mutex: the timed wait is a condition variable's, which every tool
    // (ThreadSanitizer included) understands.
    mutable std::mutex lock_;
    std::condition_variable released_;
    bool locked_ = false;
    std::thread::id owner_{};
    std::deque<uint64_t> waiting_;  // tickets of the waiters, oldest first
    uint64_t nextTicket_ = 0;
};

}  // namespace platform
