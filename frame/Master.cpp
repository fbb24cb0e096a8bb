#include "frame/Master.h"

#include <chrono>
#include <cstring>
#include <string>

#include "connection/Listener.h"
#include "frame/ArgumentCheck.h"
#include "frame/Context.h"
#include "frame/Transaction.h"
#include "notify/Reset.h"
#include "platform/File.h"
#include "platform/Socket.h"
#include "platform/Thread.h"
#include "platform/UserStore.h"
#include "protocol/Codes.h"
#include "protocol/Result.h"
#include "protocol/Text.h"
#include "zanth_version.h"

namespace zanth {

Master::Master(const char* name) : context_(std::make_unique<Context>()) {
    CopyBounded(masterName_, name ? name : "master", sizeof masterName_);
    msgBuffer_[0] = recvBuffer_[0] = logText_[0] = logText2_[0] = mac_[0] = '\0';
    msgBuffer_[kMessageBufferSize] = recvBuffer_[kMessageBufferSize] = '\0';

    // The log folder of the per-user store, ending in its separator, or the current directory.
    char folder[kPathSize] = {};
    std::string stored;
    if (platform::ReadUserValue(&stored)) CopyBounded(folder, stored.c_str(), kPathSize);

    // The order is required: every monitor after the log can report.
    Context& c = *context_;
    c.handleMon = std::make_unique<HandleMon>("handleMon");
    c.logmon = std::make_unique<LogMon>("logmon", folder);
    SetLibraryLog(c.logmon.get());
    c.sendMon = std::make_unique<ThreadHashMon>("sendMon");
    c.recvMon = std::make_unique<RecvMon>("recvMon");
    c.workerMon = std::make_unique<HandleHashMon>("workerMon", *c.sendMon);
    c.validMon = std::make_unique<ValidMon>("validMon");
    c.eventMon = std::make_unique<MsgMon>("eventMon", "ZanthEvents.log", folder);
    // A message file that can't be opened stops the library: it loads, and every start fails.
    if (!c.eventMon->Opened()) c.handleMon->SetTerminating(1);
    c.alarmMon = std::make_unique<MsgMon>("alarmMon", "ZanthAlarms.log", folder);
    if (!c.alarmMon->Opened()) c.handleMon->SetTerminating(1);
    c.lookupMon = std::make_unique<CharQueueMon>("lookupMon");
    c.lookupPinMon = std::make_unique<CharQueueMon>("lookupPinMon");
    c.postAccessMon = std::make_unique<CharQueueMon>("postAccessMon");
    c.hereiamMon = std::make_unique<CharQueueMon>("hereiamMon");
    c.smartCardMon = std::make_unique<CharQueueMon>("smartCardMon");
    c.keyPadMon = std::make_unique<CharQueueMon>("keyPadMon");
    c.cmdKeyMon = std::make_unique<CharQueueMon>("cmdKeyMon");
    c.responseMon = std::make_unique<CharIntQueueMon>("responseMon");
    c.seedMon = std::make_unique<SeedHashMon>("seedMon");
    c.connDiscController = std::make_unique<ConnDiscController>("connDiscController", c);
    c.connDiscQueue = std::make_unique<ConnDiscQueue>("connDiscQueue");
    c.eventMonQueue = std::make_unique<CharQueueMon>("eventMonQueue");
    c.alarmMonQueue = std::make_unique<CharQueueMon>("alarmMonQueue");
    // Last, as the static object beside Master it once was.
    c.resetMon = std::make_unique<ResetMon>("resetMon");

    flag_ = 0;
    code_ = 0;
    rslt_ = 0;

    uint16_t version = 0;
    socketResult_ = platform::SocketStartup(0x0202, &version);
    if (socketResult_ != 0) {
        Log(masterName_, kLogFatal, "[Master::Master] Error on WSAStartup",
            "Could not find a usable version of Winsock.DLL");
        c.handleMon->SetTerminating(1);
    } else if ((version & 0xFF) != 2 || ((version >> 8) & 0xFF) != 2) {
        Log(masterName_, kLogFatal, "[Master::Master] Error on WSAStartup - confirm",
            "Could not find a usable version of Winsock.DLL");
        c.handleMon->SetTerminating(1);
    }
}

Master::~Master() {
    if (platform::ProcessExiting()) {
        // The system has ended the library's threads already and takes the memory back: waiting
        // for them would hold the host's exit up for the whole bound, and taking the monitors
        // down could block on a lock one of them held. Nothing is logged for the same reason.
        (void)context_.release();
        return;
    }
    // Unlike the original, the library's threads are told to stop and waited for before the
    // monitors they use go away; nothing of this changes what Shutdown does.
    if (!StopLibraryThreads()) {
        // A thread that doesn't end (a host callback that never returns) still uses the
        // monitors: the whole context is left in place rather than pulled from under it.
        Log(masterName_, kLogFatal,
            "[Master::~Master] library threads still running, monitors kept");
        (void)context_.release();
        return;
    }

    Context& c = *context_;
    c.resetMon.reset();
    socketResult_ = platform::SocketCleanup();
    if (socketResult_ != 0) {
        MessageUtil::SocketErrorText(platform::LastSocketError(), logText2_, sizeof logText2_);
        Log(masterName_, kLogError, "[Master::~Master] Error on WSACleanup", logText2_);
    }
    c.seedMon.reset();
    c.cmdKeyMon.reset();
    c.keyPadMon.reset();
    c.smartCardMon.reset();
    c.hereiamMon.reset();
    c.responseMon.reset();
    c.lookupMon.reset();
    c.lookupPinMon.reset();
    c.postAccessMon.reset();
    c.alarmMon.reset();
    c.eventMon.reset();
    c.validMon.reset();
    c.workerMon.reset();
    c.recvMon.reset();
    c.sendMon.reset();
    c.handleMon.reset();
    c.connDiscController.reset();
    c.connDiscQueue.reset();
    c.eventMonQueue.reset();
    c.alarmMonQueue.reset();
    Log(masterName_, kLogTrace, "[Master::~Master] Master terminated");
    // The log goes last: every monitor logs from its destructor.
    SetLibraryLog(nullptr);
    c.logmon.reset();
    context_.reset();
    platform::EndUnload();
}

bool Master::StopLibraryThreads() {
    // How long unloading waits for the library's own threads before it gives them up.
    constexpr std::chrono::seconds kUnloadBound{10};
    HandleMon& handles = *context_->handleMon;
    handles.SetUnloading(true);
    platform::BeginUnload();
    int32_t ignored = 0;
    handles.PostMsgByName("listener", platform::TERM_MSG, &ignored);
    handles.PostMsgByName("reset", platform::TERM_MSG, &ignored);
    return platform::WaitForLibraryThreads(kUnloadBound);
}

int32_t Master::Initialization(int32_t port, void* parentWindow, void* instance) {
    std::lock_guard<std::recursive_mutex> g(transactionLock_);
    result_ = 0;
    if (context_->Terminating()) result_ = kTerminating;
    ArgumentCheck("Master::Initialization", result_, logText_, masterName_)
        .Check("port", port, 1025, 65535);
    if (result_ != 0) return result_;

    // A second Initialization replaces the listener, and may change the port.
    Context& c = *context_;
    HandleMon& handles = *c.handleMon;
    uint8_t running = 0;
    int32_t index = 0;
    handles.IsRunning("listener", &running);
    if (running) {
        handles.PostMsgByName("listener", platform::TERM_MSG, &index);
        platform::Sleep(2000);
        handles.Remove("listener", &index);
    }
    listenerArgs_ = ListenerArgs{port, parentWindow, instance};
    ListenerArgs listen = listenerArgs_;
    int error = platform::CreateThread(
        [listen, &c] {
            Listener* listener =
                new Listener(listen.port, listen.parentWindow, listen.instance, c, *c.seedMon);
            listener->Run();
            delete listener;
        },
        &threadId_);
    if (error == 0) {
        handles.Add("listener", threadId_);
    } else {
        FormatText(logText2_, sizeof logText2_, "Error code = %d", error);
        Log(masterName_, kLogError, "[Master::Initialization] Error on CreateThread (listen)",
            logText2_);
        result_ = error;
    }

    if (result_ == 0) {
        handles.IsRunning("reset", &running);
        if (running) {
            handles.PostMsgByName("reset", platform::TERM_MSG, &index);
            platform::Sleep(2000);
            handles.Remove("reset", &index);
        }
        resetArgs_ = ResetArgs{parentWindow, instance};
        ResetArgs args = resetArgs_;
        error = platform::CreateThread(
            [args, &c] {
                Reset* reset = new Reset(args.parentWindow, args.instance, c, *c.resetMon);
                reset->Run();
                delete reset;
            },
            &threadId_);
        if (error == 0) {
            handles.Add("reset", threadId_);
            c.resetMon->SetResetThread(threadId_);
        } else {
            FormatText(logText2_, sizeof logText2_, "Error code = %d", error);
            Log(masterName_, kLogError, "[Master::Initialization] Error on CreateThread (reset)",
                logText2_);
            result_ = error;
        }
    }
    if (result_ == 0) c.seedMon->Load();
    return result_;
}

int32_t Master::Shutdown() {
    Context& c = *context_;
    c.handleMon->SetTerminating(1);
    int32_t index = 0;
    c.handleMon->PostMsgByName("listener", platform::TERM_MSG, &index);
    c.handleMon->PostMsgByName("reset", platform::TERM_MSG, &index);
    c.workerMon->SendTerminateAll();
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
    context_->validMon->SetList(list);
    context_->workerMon->SendTerminateInvalid(*context_->validMon);
    return 0;
}

int32_t Master::GetValidControllers(char* buffer, int32_t size) {
    if (buffer == nullptr && size != 0) return kBadArgument;
    int32_t error = 0;
    context_->validMon->GetList(buffer, size, &error);
    return error;
}

int32_t Master::GetConnectedControllers(char* buffer, int32_t size) {
    if (buffer == nullptr && size != 0) return kBadArgument;
    int32_t error = 0;
    context_->workerMon->GetConnected(buffer, size, &error);
    return error;
}

int32_t Master::GetDLLVersion(char* buffer, int32_t size) {
    int32_t length = static_cast<int32_t>(std::strlen(ZANTH_VERSION_TEXT));
    if (buffer == nullptr && size != 0) return kBadArgument;
    if (buffer == nullptr || size <= length) return kTooLarge;
    CopyBounded(buffer, ZANTH_VERSION_TEXT, static_cast<size_t>(length) + 1);
    return 0;
}

int32_t Master::Setting(const char* method, const char* subject, int32_t mode, int32_t* value,
                        int32_t low, int32_t high, const std::function<void(int32_t*)>& get,
                        const std::function<void(const int32_t*)>& set) {
    std::lock_guard<std::recursive_mutex> g(transactionLock_);
    int32_t result = kOk;
    ArgumentCheck c(method, result, logText_, masterName_);
    if (!c.Present(value) || !c.Check("mode", mode, 0, 1)) return result;
    if (mode == 0) {
        get(value);
    } else if (c.CheckBetween(subject, *value, low, high)) {
        set(value);
    }
    return result;
}

int32_t Master::DebugLevel(int32_t mode, int32_t* level) {
    LogMon& log = *context_->logmon;
    return Setting(
        "Master::DebugLevel", "debug level", mode, level, kLogAlways, kLogTrace,
        [&log](int32_t* v) { log.GetLevel(v); }, [&log](const int32_t* v) { log.SetLevel(*v); });
}

int32_t Master::RecvWaitTime(int32_t mode, int32_t* value) {
    RecvMon& slot = *context_->recvMon;
    // The method logs under its older name.
    return Setting(
        "Master::WaitTime", "wait time", mode, value, 0, 600000,
        [&slot](int32_t* v) { slot.GetWaitTime(v); },
        [&slot](const int32_t* v) { slot.SetWaitTime(v); });
}

int32_t Master::ResetDLLTime(int32_t mode, int32_t* value) {
    ResetMon& reset = *context_->resetMon;
    return Setting(
        "Master::ResetDLLTime", "reset time", mode, value, 0, 600000,
        [&reset](int32_t* v) { reset.GetResetTime(v); },
        [&reset](const int32_t* v) { reset.SetResetTime(v); });
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
