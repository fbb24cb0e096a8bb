#pragma once
// The meeting point of the reset exports and the Reset thread: requests go in through its queue,
// completion comes out through its event and the stored thread reset result. It is the last
// object the library's context builds and the first it takes down.

#include <atomic>
#include <cstdint>
#include <memory>

#include "platform/Sync.h"
#include "platform/Thread.h"
#include "protocol/CommandRecord.h"

namespace zanth {

class CharIntQueueMon;

class ResetMon {
  public:
    static constexpr int32_t kDefaultResetTime = 300000;

    explicit ResetMon(const char* name);
    ~ResetMon();
    ResetMon(const ResetMon&) = delete;
    ResetMon& operator=(const ResetMon&) = delete;

    // Waits for the Reset thread's signal in steps of one second, up to resetTime. 0 when it
    // came, -10001 when the time ran out.
    void WaitForResetDLLEvent(int32_t* result);

    void AddRequest(int32_t rspid, const char* mac);
    // The oldest request; -10009 in *error when there is none.
    void TakeRequest(int32_t* rspid, char* mac, int32_t size, int32_t* error);
    void Signal();
    void GetResetTime(int32_t* value);
    void SetResetTime(const int32_t* value);
    void GetThreadResetResult(int32_t* value);
    void SetThreadResetResult(const int32_t* value);

    // The Reset thread that takes the requests, as Initialization started it; 0 before.
    void SetResetThread(platform::ThreadId id) { resetThread_.store(id); }
    platform::ThreadId ResetThread() const { return resetThread_.load(); }

  private:
    platform::OwnedTimedMutex hResetDLL_;
    platform::AutoResetEvent resetDLLEvent_;
    std::atomic<platform::ThreadId> resetThread_{0};
    char name_[32];
    int32_t resetTime_ = kDefaultResetTime;
    int32_t threadResetResult_ = 0;
    std::unique_ptr<CharIntQueueMon> resetQueue_;
};

}  // namespace zanth
