#pragma once
// The monitors that the library's threads share, and the two message files the Workers write:
// the part of the library's context (frame/Context.h) that a thread is handed. The context
// builds them at load, each under its own name, and takes them down at unload; nothing else
// creates or deletes them, so a thread that holds this may use every member for as long as it
// runs.

#include <memory>

#include "monitors/CharIntQueueMon.h"
#include "monitors/CharQueueMon.h"
#include "monitors/ConnDiscQueue.h"
#include "monitors/HandleHashMon.h"
#include "monitors/HandleMon.h"
#include "monitors/RecvMon.h"
#include "monitors/ThreadHashMon.h"
#include "monitors/ValidMon.h"
#include "stores/MsgMon.h"

namespace zanth {

struct Monitors {
    // Named library threads and the terminate byte.
    std::unique_ptr<HandleMon> handleMon;
    // Commands on their way to the Workers, and the one reply slot of the blocking calls.
    std::unique_ptr<ThreadHashMon> sendMon;
    std::unique_ptr<RecvMon> recvMon;
    // The Workers by MAC, and the controllers the host serves.
    std::unique_ptr<HandleHashMon> workerMon;
    std::unique_ptr<ValidMon> validMon;
    // ZanthEvents.log and ZanthAlarms.log.
    std::unique_ptr<MsgMon> eventMon;
    std::unique_ptr<MsgMon> alarmMon;
    // What the controllers send of their own accord, on its way to the host.
    std::unique_ptr<CharQueueMon> lookupMon;
    std::unique_ptr<CharQueueMon> lookupPinMon;
    std::unique_ptr<CharQueueMon> postAccessMon;
    std::unique_ptr<CharQueueMon> hereiamMon;
    std::unique_ptr<CharQueueMon> smartCardMon;
    std::unique_ptr<CharQueueMon> keyPadMon;
    std::unique_ptr<CharQueueMon> cmdKeyMon;
    // The replies of the Rsp calls, under their rspid.
    std::unique_ptr<CharIntQueueMon> responseMon;
    // Connects and disconnects, and the events and alarms for their callbacks.
    std::unique_ptr<ConnDiscQueue> connDiscQueue;
    std::unique_ptr<CharQueueMon> eventMonQueue;
    std::unique_ptr<CharQueueMon> alarmMonQueue;

    // The library is ending: the terminate byte (or the unload) is set.
    bool Terminating() const { return handleMon->Terminating(); }
};

}  // namespace zanth
