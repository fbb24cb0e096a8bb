#include "notify/ResetMon.h"

#include <cstring>

#include "monitors/CharIntQueueMon.h"
#include "protocol/Result.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {
namespace {

constexpr uint32_t kStepMilliseconds = 1000;

}  // namespace

ResetMon::ResetMon(const char* name) {
    CopyBounded(name_, name ? name : "", sizeof name_);
    resetQueue_ = std::make_unique<CharIntQueueMon>("resetQueue");
}

ResetMon::~ResetMon() {
    resetQueue_.reset();
    Log(name_, kLogTrace, "[ResetMon::~ResetMon] ResetMon terminated");
}

void ResetMon::WaitForResetDLLEvent(int32_t* result) {
    *result = 0;
    int32_t elapsed = 0;
    int32_t limit = 0;
    GetResetTime(&limit);
    for (;;) {
        if (!hResetDLL_.Lock(kStepMilliseconds)) {
            elapsed += static_cast<int32_t>(kStepMilliseconds);
            if (elapsed > limit) {
                Log(name_, kLogError, "[ResetMon::WaitForResetDLLEvent] hResetDLL timeout");
                *result = kTerminating;
                return;
            }
            continue;
        }
        // Each step takes the mutex, then waits for the event with it released: the Reset thread
        // takes the mutex three times on the way to its signal (the request, the result, the
        // signal), and a step that held it for its whole second would cost each of them a step.
        // The event keeps a signal that comes before the wait, so none is lost.
        hResetDLL_.Unlock();
        const bool signalled = resetDLLEvent_.Wait(kStepMilliseconds);
        if (signalled) {
            resetDLLEvent_.Reset();
            return;
        }
        if (elapsed > limit) {
            Log(name_, kLogError, "[ResetMon::WaitForResetDLLEvent] resetDLLEvent timeout");
            *result = kTerminating;
            return;
        }
        elapsed += static_cast<int32_t>(kStepMilliseconds);
    }
}

void ResetMon::AddRequest(int32_t rspid, const char* mac) {
    hResetDLL_.Lock();
    const char* text = mac ? mac : "";
    resetQueue_->Add(rspid, text, static_cast<int32_t>(std::strlen(text) + 1));
    hResetDLL_.Unlock();
}

void ResetMon::TakeRequest(int32_t* rspid, char* mac, int32_t size, int32_t* error) {
    hResetDLL_.Lock();
    resetQueue_->Remove(rspid, mac, size, error);
    hResetDLL_.Unlock();
}

void ResetMon::Signal() {
    hResetDLL_.Lock();
    resetDLLEvent_.Set();
    hResetDLL_.Unlock();
}

void ResetMon::GetResetTime(int32_t* value) {
    hResetDLL_.Lock();
    *value = resetTime_;
    hResetDLL_.Unlock();
}

void ResetMon::SetResetTime(const int32_t* value) {
    hResetDLL_.Lock();
    resetTime_ = *value;
    hResetDLL_.Unlock();
}

void ResetMon::GetThreadResetResult(int32_t* value) {
    hResetDLL_.Lock();
    *value = threadResetResult_;
    hResetDLL_.Unlock();
}

void ResetMon::SetThreadResetResult(const int32_t* value) {
    hResetDLL_.Lock();
    threadResetResult_ = *value;
    hResetDLL_.Unlock();
}

}  // namespace zanth
