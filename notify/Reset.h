#pragma once
// The thread that carries out library and thread resets. It runs a blocking message loop and
// ends on TERM_MSG or the terminate byte; its end clears the terminate byte, which is what
// lets Initialization start the library again after Shutdown or a reset.

#include <cstdint>

#include "protocol/CommandRecord.h"
#include "protocol/MessageUtil.h"

namespace zanth {

struct Monitors;
class ResetMon;

class Reset {
  public:
    Reset(void* parentWindow, void* instance, Monitors& monitors, ResetMon& resetMon);
    ~Reset();
    void Run();

  private:
    // Tears down every Worker and the listener, blanks the valid list, rebuilds workerMon and
    // sets the terminate byte, so that every library thread leaves.
    void ResetDLL();
    // Ends the Worker of the oldest requested MAC; `respond` sends the result to responseMon
    // instead of the blocked ResetThread caller.
    void ResetThread(bool respond);

    char name_[8];
    void* parentWindow_;
    void* instance_;
    Monitors& monitors_;
    ResetMon& resetMon_;
    int32_t result_ = 0;
    int32_t rspid_ = 0;
    char mac_[kMacSize];
    char msgBuffer_[kMessageBufferSize + 1];
    MessageUtil util_;
    CommandRecord record_{};
    char logText_[kLogTextSize];
};

// The reset exports, which talk to the Reset thread through `resetMon` and not to Master.
int32_t ResetDLL(ResetMon& resetMon);
int32_t ResetThread(ResetMon& resetMon, const char* mac);
int32_t RspResetThread(ResetMon& resetMon, int32_t rspid, const char* mac);

}  // namespace zanth
