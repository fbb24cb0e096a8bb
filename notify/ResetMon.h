#pragma once
// The meeting point of the reset exports and the Reset thread: requests go in through its queue,
// completion comes out through its event and the stored thread reset result. It lives for the
// whole process, apart from the other monitors, so a reset can rebuild those around it.

#include <cstdint>
#include <memory>

#include "platform/Sync.h"
#include "protocol/CommandRecord.h"

namespace zanth {

class CharIntQueueMon;

class ResetMon {
public:
    static constexpr int32_t kDefaultResetTime = 300000;

    // The one ResetMon of the library registers itself as the global resetMon.
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

private:
    // Held apart so that an unload whose threads didn't end can leave them to those threads.
    struct Handles {
        platform::OwnedTimedMutex hResetDLL;
        platform::AutoResetEvent resetDLLEvent;
    };
    std::unique_ptr<Handles> handles_;
    platform::OwnedTimedMutex& hResetDLL_;
    platform::AutoResetEvent& resetDLLEvent_;
    char name_[32];
    int32_t resetTime_ = kDefaultResetTime;
    int32_t threadResetResult_ = 0;
    std::unique_ptr<CharIntQueueMon> resetQueue_;
};

}  // namespace zanth
