#include "monitors/Globals.h"

#include <chrono>

#include "monitors/HandleMon.h"

namespace zanth {

HandleMon* handleMon = nullptr;
LogMon* logmon = nullptr;
ThreadHashMon* sendMon = nullptr;
RecvMon* recvMon = nullptr;
HandleHashMon* workerMon = nullptr;
ValidMon* validMon = nullptr;
MsgMon* eventMon = nullptr;
MsgMon* alarmMon = nullptr;
CharQueueMon* lookupMon = nullptr;
CharQueueMon* lookupPinMon = nullptr;
CharQueueMon* postAccessMon = nullptr;
CharQueueMon* hereiamMon = nullptr;
CharQueueMon* smartCardMon = nullptr;
CharQueueMon* keyPadMon = nullptr;
CharQueueMon* cmdKeyMon = nullptr;
CharIntQueueMon* responseMon = nullptr;
SeedHashMon* seedMon = nullptr;
ConnDiscController* connDiscController = nullptr;
ConnDiscQueue* connDiscQueue = nullptr;
CharQueueMon* eventMonQueue = nullptr;
CharQueueMon* alarmMonQueue = nullptr;
ResetMon* resetMon = nullptr;

char* logFolder = nullptr;
platform::ThreadId resetThreadId = 0;

void SetLibraryTerminating() {
    if (handleMon) handleMon->SetTerminating(1);
}

bool StopLibraryThreads() {
    // How long unloading waits for the library's own threads before it gives them up.
    constexpr std::chrono::seconds kUnloadBound{10};
    if (!handleMon) return platform::WaitForLibraryThreads(kUnloadBound);
    handleMon->SetUnloading(true);
    platform::BeginUnload();
    int32_t ignored = 0;
    handleMon->PostMsgByName("listener", TERM_MSG, &ignored);
    handleMon->PostMsgByName("reset", TERM_MSG, &ignored);
    return platform::WaitForLibraryThreads(kUnloadBound);
}

bool LibraryTerminating() {
    if (!handleMon) return false;
    uint8_t flag = 0;
    handleMon->IsTerminating(&flag);
    return flag != 0;
}

}  // namespace zanth
