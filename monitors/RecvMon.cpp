#include "monitors/RecvMon.h"

#include <cstring>

#include "monitors/HandleHashMon.h"
#include "platform/Thread.h"
#include "stores/LogMon.h"

namespace zanth {

RecvMon::RecvMon(const char* name) : name_(name ? name : "") {
    std::memset(buffer_, 0, sizeof buffer_);
}

RecvMon::~RecvMon() {
    Log(name_.c_str(), kLogTrace, "[RecvMon::~RecvMon] RecvMon terminated");
}

// The clean-up of a failed wait: it frees the slot, so a reply parked meanwhile is lost and a
// stalled producer can go on.
bool RecvMon::Fail(char* dest) {
    std::memset(dest, 0, kMessageBufferSize);
    hRecv_.Lock();
    empty_ = 1;
    bufferEmpty_.Set();
    hRecv_.Unlock();
    return false;
}

bool RecvMon::GetBuffer(char* dest, const char* mac, HandleHashMon& workers) {
    for (;;) {
        uint32_t wait = waitTime_.load();
        if (!hRecv_.Lock(wait)) {
            Log(name_.c_str(), kLogTrace, "[RecvMon::GetBuffer] hRecv timeout");
            workers.DropSilentWorker(mac);
            return Fail(dest);
        }
        if (!empty_) {
            std::memcpy(dest, buffer_, kMessageBufferSize);
            empty_ = 1;
            bufferEmpty_.Set();
            hRecv_.Unlock();
            return true;
        }
        hRecv_.Unlock();
        if (!bufferFull_.Wait(wait)) {
            Log(name_.c_str(), kLogTrace, "[RecvMon::GetBuffer] bufferFull timeout");
            workers.DropSilentWorker(mac);
            return Fail(dest);
        }
    }
}

bool RecvMon::SetBuffer(const char* src) {
    for (;;) {
        hRecv_.Lock();
        if (empty_) {
            std::memcpy(buffer_, src, kMessageBufferSize);
            empty_ = 0;
            bufferFull_.Set();
            hRecv_.Unlock();
            return true;
        }
        hRecv_.Unlock();
        // No time-out on the producer side; only a Worker that was killed, or the end of the
        // library, gives the wait up.
        while (!bufferEmpty_.Wait(100)) {
            if (platform::ThisThreadKilled() || platform::Unloading()) return false;
        }
    }
}

void RecvMon::GetWaitTime(int32_t* result) {
    hRecv_.Lock();
    *result = static_cast<int32_t>(waitTime_.load());
    hRecv_.Unlock();
}

void RecvMon::SetWaitTime(const int32_t* value) {
    hRecv_.Lock();
    waitTime_.store(static_cast<uint32_t>(*value));
    hRecv_.Unlock();
}

bool RecvMon::SlotEmpty() {
    hRecv_.Lock();
    bool empty = empty_ != 0;
    hRecv_.Unlock();
    return empty;
}

}  // namespace zanth
