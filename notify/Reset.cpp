#include "notify/Reset.h"

#include <cstring>

#include "monitors/Monitors.h"
#include "notify/ResetMon.h"
#include "platform/Thread.h"
#include "protocol/Codes.h"
#include "protocol/Result.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {
namespace {

// The pauses of a reset are its design: one second for Workers to leave by themselves, one
// after the forced end, and five that outlast every library thread's polling interval.
constexpr uint32_t kPoliteExitMilliseconds = 1000;
constexpr uint32_t kAfterKillMilliseconds = 1000;
constexpr uint32_t kSettleMilliseconds = 5000;

}  // namespace

Reset::Reset(void* parentWindow, void* instance, Monitors& monitors, ResetMon& resetMon)
    : parentWindow_(parentWindow), instance_(instance), monitors_(monitors), resetMon_(resetMon) {
    CopyBounded(name_, "reset", sizeof name_);
    std::memset(mac_, 0, sizeof mac_);
    std::memset(msgBuffer_, 0, sizeof msgBuffer_);
    logText_[0] = '\0';
}

Reset::~Reset() {
    uint8_t terminating = 0;
    monitors_.handleMon->IsTerminating(&terminating);
    if (!terminating) {
        int32_t index = 0;
        monitors_.handleMon->Remove("reset", &index);
    }
    Log(name_, kLogTrace, "[Reset::~Reset] reset thread terminated");
    monitors_.handleMon->SetTerminating(0);
}

void Reset::Run() {
    for (;;) {
        uint32_t message = 0;
        // A failing take is not told from an ordinary quit, and nothing is logged.
        if (platform::GetThreadMessage(&message) <= 0) return;
        switch (message) {
            case platform::TERM_MSG:
                Log(name_, kLogTrace, "[Reset::Run] GetMessage = TERM_MSG");
                return;
            case platform::RESET_MSG:
                Log(name_, kLogTrace, "[Reset::Run] GetMessage = RESET_MSG");
                ResetDLL();
                break;
            case platform::KILL_MSG:
                Log(name_, kLogTrace, "[Reset::Run] GetMessage = KILL_MSG");
                ResetThread(false);
                break;
            case platform::RKILL_MSG:
                Log(name_, kLogTrace, "[Reset::Run] GetMessage = RKILL_MSG");
                ResetThread(true);
                break;
            default:
                break;
        }
        uint8_t terminating = 0;
        monitors_.handleMon->IsTerminating(&terminating);
        if (terminating) return;
    }
}

void Reset::ResetDLL() {
    Log(name_, kLogTrace, "[Reset::ResetDLL] Begin Reset DLL");
    int32_t index = 0;
    monitors_.handleMon->PostMsgByName("listener", platform::TERM_MSG, &index);
    monitors_.workerMon->SendTerminateAll();
    platform::Sleep(kPoliteExitMilliseconds);
    monitors_.workerMon->TerminateAll();
    platform::Sleep(kAfterKillMilliseconds);
    // No controller is valid afterwards, and the ALL mark is gone.
    monitors_.validMon->SetList(" ");
    monitors_.workerMon->Rebuild();
    monitors_.handleMon->SetTerminating(1);
    Log(name_, kLogTrace, "[Reset::ResetDLL] Sleep for 5 seconds");
    platform::Sleep(kSettleMilliseconds);
    resetMon_.Signal();
    Log(name_, kLogTrace, "[Reset::ResetDLL] Complete Reset DLL");
}

void Reset::ResetThread(bool respond) {
    result_ = kOk;
    Log(name_, kLogTrace, "[Reset::ResetThread] Begin Reset Thread");
    int32_t error = 0;
    std::memset(mac_, 0, sizeof mac_);
    resetMon_.TakeRequest(&rspid_, mac_, sizeof mac_, &error);
    // No request: nothing is signalled, and a blocked ResetThread runs into its time-out.
    if (error < 0) return;
    uint8_t flag = 0;
    monitors_.validMon->Contains(mac_, &flag);
    if (flag) {
        flag = 0;
        monitors_.workerMon->IsConnected(mac_, &flag);
        if (!flag) result_ = kNotConnected;
    } else {
        result_ = kNotValid;
    }
    if (result_ == kOk) {
        util_.BuildMessage(ZANTH_TERMINATE, "", 0, msgBuffer_, kMessageBufferSize);
        monitors_.sendMon->Queue(record_, mac_, 0, 0, msgBuffer_, "", "");
        Log(name_, kLogTrace, "[Reset::ResetThread] Sleep for 1 second");
        platform::Sleep(kPoliteExitMilliseconds);
        monitors_.workerMon->TerminateByName(mac_);
    }
    Log(name_, kLogTrace, "[Reset::ResetThread] Complete Reset Thread");
    if (respond) {
        char text[16];
        FormatText(text, sizeof text, "%d;", result_);
        util_.BuildMessage(0, text, std::strlen(text), msgBuffer_, kMessageBufferSize);
        monitors_.responseMon->Add(rspid_, msgBuffer_,
                                   static_cast<int32_t>(std::strlen(msgBuffer_) + 1));
    } else {
        resetMon_.SetThreadResetResult(&result_);
        resetMon_.Signal();
    }
}

int32_t ResetDLL(ResetMon& resetMon) {
    if (!platform::PostThreadMessage(resetMon.ResetThread(), platform::RESET_MSG)) {
        return kPostFailed;
    }
    int32_t wait = 0;
    // The outcome of the wait isn't the caller's: a reset that outlasts resetTime goes on.
    resetMon.WaitForResetDLLEvent(&wait);
    return kOk;
}

int32_t ResetThread(ResetMon& resetMon, const char* mac) {
    resetMon.AddRequest(0, mac);
    if (!platform::PostThreadMessage(resetMon.ResetThread(), platform::KILL_MSG)) {
        return kPostFailed;
    }
    int32_t wait = 0;
    resetMon.WaitForResetDLLEvent(&wait);
    int32_t result = 0;
    resetMon.GetThreadResetResult(&result);
    return result;
}

int32_t RspResetThread(ResetMon& resetMon, int32_t rspid, const char* mac) {
    resetMon.AddRequest(rspid, mac);
    if (!platform::PostThreadMessage(resetMon.ResetThread(), platform::RKILL_MSG)) {
        return kPostFailed;
    }
    return kOk;
}

}  // namespace zanth
