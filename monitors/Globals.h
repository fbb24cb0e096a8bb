#pragma once
// The monitors are reached through these pointers, not through Master, because every thread
// uses them. Master creates them in a fixed order at load and deletes them at unload.

#include <cstdint>

#include "platform/Thread.h"

namespace zanth {

class HandleMon;
class LogMon;
class ThreadHashMon;
class RecvMon;
class HandleHashMon;
class ValidMon;
class MsgMon;
class CharQueueMon;
class CharIntQueueMon;
class SeedHashMon;
class ConnDiscController;
class ConnDiscQueue;
class ResetMon;

extern HandleMon* handleMon;
extern LogMon* logmon;
extern ThreadHashMon* sendMon;
extern RecvMon* recvMon;
extern HandleHashMon* workerMon;
extern ValidMon* validMon;
extern MsgMon* eventMon;
extern MsgMon* alarmMon;
extern CharQueueMon* lookupMon;
extern CharQueueMon* lookupPinMon;
extern CharQueueMon* postAccessMon;
extern CharQueueMon* hereiamMon;
extern CharQueueMon* smartCardMon;
extern CharQueueMon* keyPadMon;
extern CharQueueMon* cmdKeyMon;
extern CharIntQueueMon* responseMon;
extern SeedHashMon* seedMon;
extern ConnDiscController* connDiscController;
extern ConnDiscQueue* connDiscQueue;
extern CharQueueMon* eventMonQueue;
extern CharQueueMon* alarmMonQueue;
extern ResetMon* resetMon;

// The log folder read from the per-user store at load (256 bytes), or null. It ends in '/'.
extern char* logFolder;
// The id of the Reset thread, kept by Initialization.
extern platform::ThreadId resetThreadId;

// Thread message numbers.
constexpr uint32_t WSA_ASYNC = 1101;
constexpr uint32_t TERM_MSG = 1103;
constexpr uint32_t WM_WORKER_KILL = 1104;
constexpr uint32_t RESET_MSG = 1105;
constexpr uint32_t KILL_MSG = 1106;
constexpr uint32_t RKILL_MSG = 1107;

// The library's version text.
constexpr const char* kLibraryVersion = "2.6.0.10";

// Sets the library's terminate flag; what a monitor does when its construction fails.
void SetLibraryTerminating();
// Reads the terminate flag (false before handleMon exists).
bool LibraryTerminating();
// What unloading does first, whichever static object goes first: tells every library thread to
// stop and waits for them, up to a bound. True when none is left, so the monitors may go.
bool StopLibraryThreads();

}  // namespace zanth
