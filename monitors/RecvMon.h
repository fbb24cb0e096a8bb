#pragma once
// The one place where a blocking host call meets the reply that a Worker read: a single slot,
// common to all controllers. A reply carries no mark of its caller; the caller's check of the
// reply code is the only defence against a late reply parked here.

#include <atomic>
#include <cstdint>
#include <string>

#include "platform/Sync.h"
#include "protocol/CommandRecord.h"

namespace zanth {

class HandleHashMon;

class RecvMon {
  public:
    explicit RecvMon(const char* name);
    ~RecvMon();

    // Waits for a reply and copies all 4097 bytes of the slot into `dest`. False on a time-out,
    // with `dest` all zero; each of the two inner waits is bounded by the wait time. On a
    // time-out the Worker of `mac` is dropped from `workers` first (HandleHashMon's
    // DropSilentWorker), so that the controller calls again and gets a fresh Worker.
    bool GetBuffer(char* dest, const char* mac, HandleHashMon& workers);
    // Parks 4097 bytes of `src`, waiting while an earlier reply lies unread. False only when a
    // Worker gives the wait up because it was killed or the library unloads.
    bool SetBuffer(const char* src);

    void GetWaitTime(int32_t* result);
    void SetWaitTime(const int32_t* value);
    // The wait time without the slot's lock, for a Worker that times its own Rsp commands.
    uint32_t WaitTime() const { return waitTime_.load(); }

    bool SlotEmpty();

  private:
    bool Fail(char* dest);

    platform::OwnedTimedMutex hRecv_;
    platform::AutoResetEvent bufferEmpty_;
    platform::AutoResetEvent bufferFull_;
    std::string name_;
    uint8_t empty_ = 1;
    std::atomic<uint32_t> waitTime_{300000};
    char buffer_[kMessageBufferSize];
};

}  // namespace zanth
