#include "frame/Master.h"

#include "notify/ResetMon.h"

#include <cstring>
#include <string>

#include "connection/Listener.h"
#include "frame/ArgumentCheck.h"
#include "frame/Transaction.h"
#include "monitors/CharIntQueueMon.h"
#include "monitors/CharQueueMon.h"
#include "monitors/ConnDiscQueue.h"
#include "monitors/Globals.h"
#include "monitors/HandleHashMon.h"
#include "monitors/HandleMon.h"
#include "monitors/RecvMon.h"
#include "monitors/ThreadHashMon.h"
#include "monitors/ValidMon.h"
#include "notify/ConnDiscController.h"
#include "notify/Reset.h"
#include "platform/File.h"
#include "platform/Socket.h"
#include "platform/Thread.h"
#include "platform/UserStore.h"
#include "protocol/Codes.h"
#include "protocol/Result.h"
#include "protocol/Text.h"
#include "security/SeedHashMon.h"
#include "stores/LogMon.h"
#include "stores/MsgMon.h"

namespace zanth {
namespace {

template <class T>
void DeleteMonitor(T*& monitor) {
    delete monitor;
    monitor = nullptr;
}

}  // namespace

Master::Master(const char* name) {
    CopyBounded(masterName_, name ? name : "master", sizeof masterName_);
    msgBuffer_[0] = recvBuffer_[0] = logText_[0] = logText2_[0] = mac_[0] = '\0';
    msgBuffer_[kMessageBufferSize] = recvBuffer_[kMessageBufferSize] = '\0';

    logFolder = new char[kPathSize]();
    std::string folder;
    if (platform::ReadUserValue(&folder)) CopyBounded(logFolder, folder.c_str(), kPathSize);

    // The order is required: every monitor after the log can report.
    handleMon = new HandleMon("handleMon");
    logmon = new LogMon("logmon");
    sendMon = new ThreadHashMon("sendMon");
    recvMon = new RecvMon("recvMon");
    workerMon = new HandleHashMon("workerMon");
    validMon = new ValidMon("validMon");
    eventMon = new MsgMon("eventMon", "ZanthEvents.log");
    alarmMon = new MsgMon("alarmMon", "ZanthAlarms.log");
    lookupMon = new CharQueueMon("lookupMon");
    lookupPinMon = new CharQueueMon("lookupPinMon");
    postAccessMon = new CharQueueMon("postAccessMon");
    hereiamMon = new CharQueueMon("hereiamMon");
    smartCardMon = new CharQueueMon("smartCardMon");
    keyPadMon = new CharQueueMon("keyPadMon");
    cmdKeyMon = new CharQueueMon("cmdKeyMon");
    responseMon = new CharIntQueueMon("responseMon");
    seedMon = new SeedHashMon("seedMon");
    connDiscController = new ConnDiscController("connDiscController");
    connDiscQueue = new ConnDiscQueue("connDiscQueue");
    eventMonQueue = new CharQueueMon("eventMonQueue");
    alarmMonQueue = new CharQueueMon("alarmMonQueue");

    flag_ = 0;
    code_ = 0;
    rslt_ = 0;

    uint16_t version = 0;
    socketResult_ = platform::SocketStartup(0x0202, &version);
    if (socketResult_ != 0) {
        Log(masterName_, kLogFatal, "[Master::Master] Error on WSAStartup",
            "Could not find a usable version of Winsock.DLL");
        SetLibraryTerminating();
    } else if ((version & 0xFF) != 2 || ((version >> 8) & 0xFF) != 2) {
        Log(masterName_, kLogFatal, "[Master::Master] Error on WSAStartup - confirm",
            "Could not find a usable version of Winsock.DLL");
        SetLibraryTerminating();
    }
}

Master::~Master() {
    // Unlike the original, the library's threads are told to stop and waited for before the
    // monitors they use go away; nothing of this changes what Shutdown does.
    if (!StopLibraryThreads()) {
        // A thread that doesn't end (a host callback that never returns) still uses the
        // monitors: they are left in place rather than pulled from under it.
        Log(masterName_, kLogFatal,
            "[Master::~Master] library threads still running, monitors kept");
        return;
    }

    socketResult_ = platform::SocketCleanup();
    if (socketResult_ != 0) {
        MessageUtil::SocketErrorText(platform::LastSocketError(), logText2_, sizeof logText2_);
        Log(masterName_, kLogError, "[Master::~Master] Error on WSACleanup", logText2_);
    }
    DeleteMonitor(seedMon);
    DeleteMonitor(cmdKeyMon);
    DeleteMonitor(keyPadMon);
    DeleteMonitor(smartCardMon);
    DeleteMonitor(hereiamMon);
    DeleteMonitor(responseMon);
    DeleteMonitor(lookupMon);
    DeleteMonitor(lookupPinMon);
    DeleteMonitor(postAccessMon);
    DeleteMonitor(alarmMon);
    DeleteMonitor(eventMon);
    DeleteMonitor(validMon);
    DeleteMonitor(workerMon);
    DeleteMonitor(recvMon);
    DeleteMonitor(sendMon);
    DeleteMonitor(handleMon);
    DeleteMonitor(connDiscController);
    DeleteMonitor(connDiscQueue);
    DeleteMonitor(eventMonQueue);
    DeleteMonitor(alarmMonQueue);
    Log(masterName_, kLogTrace, "[Master::~Master] Master terminated");
    // The log goes last: every monitor logs from its destructor.
    DeleteMonitor(logmon);
    delete[] logFolder;
    logFolder = nullptr;
    resetThreadId = 0;
    platform::EndUnload();
}

int32_t Master::Initialization(int32_t port, void* parentWindow, void* instance) {
    std::lock_guard<std::recursive_mutex> g(transactionLock_);
    result_ = 0;
    if (LibraryTerminating()) result_ = kTerminating;
    ArgumentCheck("Master::Initialization", result_, logText_, masterName_)
        .Check("port", port, 1025, 65535);
    if (result_ != 0) return result_;

    // A second Initialization replaces the listener, and may change the port.
    uint8_t running = 0;
    int32_t index = 0;
    handleMon->IsRunning("listener", &running);
    if (running) {
        handleMon->PostMsgByName("listener", TERM_MSG, &index);
        platform::Sleep(2000);
        handleMon->Remove("listener", &index);
    }
    listenerArgs_ = ListenerArgs{port, parentWindow, instance};
    ListenerArgs listen = listenerArgs_;
    int error = platform::CreateThread(
        [listen] {
            Listener* listener = new Listener(listen.port, listen.parentWindow, listen.instance);
            listener->Run();
            delete listener;
        },
        &threadId_);
    if (error == 0) {
        handleMon->Add("listener", threadId_);
    } else {
        FormatText(logText2_, sizeof logText2_, "Error code = %d", error);
        Log(masterName_, kLogError, "[Master::Initialization] Error on CreateThread (listen)",
            logText2_);
        result_ = error;
    }

    if (result_ == 0) {
        handleMon->IsRunning("reset", &running);
        if (running) {
            handleMon->PostMsgByName("reset", TERM_MSG, &index);
            platform::Sleep(2000);
            handleMon->Remove("reset", &index);
        }
        resetArgs_ = ResetArgs{parentWindow, instance};
        ResetArgs args = resetArgs_;
        error = platform::CreateThread(
            [args] {
                Reset* reset = new Reset(args.parentWindow, args.instance);
                reset->Run();
                delete reset;
            },
            &threadId_);
        if (error == 0) {
            handleMon->Add("reset", threadId_);
            resetThreadId = threadId_;
        } else {
            FormatText(logText2_, sizeof logText2_, "Error code = %d", error);
            Log(masterName_, kLogError, "[Master::Initialization] Error on CreateThread (reset)",
                logText2_);
            result_ = error;
        }
    }
    if (result_ == 0) seedMon->Load();
    return result_;
}

int32_t Master::Shutdown() {
    handleMon->SetTerminating(1);
    int32_t index = 0;
    handleMon->PostMsgByName("listener", TERM_MSG, &index);
    handleMon->PostMsgByName("reset", TERM_MSG, &index);
    workerMon->SendTerminateAll();
    // The threads get their turn; nothing is joined and no failure is reported.
    platform::Sleep(1000);
    return 0;
}

int32_t Master::Terminate(const char* mac) {
    Transaction t(*this, "Master::Terminate", 0, 0, mac);
    Log(masterName_, kLogTrace, "[Master::Terminate] Invoked");
    if (!t.Admit()) return t.Result();
    // Not awaited: the Worker sends it to the controller when it next takes a command, and ends.
    t.Send(ZANTH_TERMINATE);
    return t.Result();
}

int32_t Master::SetValidControllers(const char* list) {
    validMon->SetList(list);
    workerMon->SendTerminateInvalid();
    return 0;
}

int32_t Master::GetValidControllers(char* buffer, int32_t size) {
    if (buffer == nullptr && size != 0) return kBadArgument;
    int32_t error = 0;
    validMon->GetList(buffer, size, &error);
    return error;
}

int32_t Master::GetConnectedControllers(char* buffer, int32_t size) {
    if (buffer == nullptr && size != 0) return kBadArgument;
    int32_t error = 0;
    workerMon->GetConnected(buffer, size, &error);
    return error;
}

int32_t Master::GetDLLVersion(char* buffer, int32_t size) {
    int32_t length = static_cast<int32_t>(std::strlen(kLibraryVersion));
    if (buffer == nullptr && size != 0) return kBadArgument;
    if (buffer == nullptr || size <= length) return kTooLarge;
    CopyBounded(buffer, kLibraryVersion, static_cast<size_t>(length) + 1);
    return 0;
}

int32_t Master::DebugLevel(int32_t mode, int32_t* level) {
    std::lock_guard<std::recursive_mutex> g(transactionLock_);
    int32_t result = kOk;
    ArgumentCheck c("Master::DebugLevel", result, logText_, masterName_);
    if (!c.Present(level) || !c.Check("mode", mode, 0, 1)) return result;
    if (mode == 0) {
        logmon->GetLevel(level);
    } else if (c.CheckBetween("debug level", *level, kLogAlways, kLogTrace)) {
        logmon->SetLevel(*level);
    }
    return result;
}

int32_t Master::RecvWaitTime(int32_t mode, int32_t* value) {
    std::lock_guard<std::recursive_mutex> g(transactionLock_);
    int32_t result = kOk;
    // The method logs under its older name.
    ArgumentCheck c("Master::WaitTime", result, logText_, masterName_);
    if (!c.Present(value) || !c.Check("mode", mode, 0, 1)) return result;
    if (mode == 0) {
        recvMon->GetWaitTime(value);
    } else if (c.CheckBetween("wait time", *value, 0, 600000)) {
        recvMon->SetWaitTime(value);
    }
    return result;
}

int32_t Master::ResetDLLTime(int32_t mode, int32_t* value) {
    std::lock_guard<std::recursive_mutex> g(transactionLock_);
    int32_t result = kOk;
    ArgumentCheck c("Master::ResetDLLTime", result, logText_, masterName_);
    if (!c.Present(value) || !c.Check("mode", mode, 0, 1) || !resetMon) {
        return resetMon ? result : kPostFailed;
    }
    if (mode == 0) {
        resetMon->GetResetTime(value);
    } else if (c.CheckBetween("reset time", *value, 0, 600000)) {
        resetMon->SetResetTime(value);
    }
    return result;
}

int32_t Master::CheckErrorCode(int32_t code, const char* methodName) {
    int32_t result = kUnexpectedReply;
    if (code == ZANTH_UNKNOWN_COMMAND) {
        FormatText(logText_, sizeof logText_, "[%s] Invalid code error, recv:", methodName);
    } else if (code == ZANTH_UNABLE_TO_PROCESS_COMMAND) {
        FormatText(logText_, sizeof logText_, "[%s] Unimplemented code error, recv:", methodName);
        result = kCannotProcess;
    }
    CopyBounded(logText2_, recvBuffer_, kLogPayloadLimit + 1);
    Log(masterName_, kLogError, logText_, logText2_, true);
    return result;
}

}  // namespace zanth
