// Registration of the host's callbacks, and the polling of the queues they would drain.

#include <cstring>

#include "frame/Context.h"
#include "frame/Master.h"
#include "notify/BigString.h"
#include "notify/ConnDiscController.h"
#include "notify/Reset.h"
#include "notify/Response.h"
#include "notify/SmallString.h"
#include "platform/Thread.h"
#include "protocol/Result.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {

int32_t Master::StartCallbackThread(const char* exportName, const char* threadName,
                                    std::function<void()> body) {
    std::lock_guard<std::recursive_mutex> g(transactionLock_);
    // The former thread of this kind is told to stop; the replacement begins after 2 seconds.
    HandleMon& handles = *context_->handleMon;
    uint8_t running = 0;
    int32_t index = 0;
    handles.IsRunning(threadName, &running);
    if (running) {
        handles.SetStop(threadName, 1, &index);
        platform::Sleep(2000);
        handles.Remove(threadName, &index);
    }
    platform::ThreadId id = 0;
    // Suspended until registered: a thread that asked ShouldStop before its registration would
    // leave at once.
    int error = platform::CreateThread(std::move(body), &id, true);
    if (error != 0) {
        FormatText(logText_, sizeof logText_, "[Master::%s] Error on CreateThread", exportName);
        FormatText(logText2_, sizeof logText2_, "Error code = %d", error);
        Log(masterName_, kLogError, logText_, logText2_);
        return error;
    }
    handles.Add(threadName, id);
    platform::ResumeThread(id);
    return 0;
}

int32_t Master::SetTextCallback(const char* exportName, const char* threadName,
                                ZanthTextCallback callback, TextQueue queue, bool big) {
    CallbackStart start{};
    CopyBounded(start.name, threadName, 20);
    start.name[19] = '\0';
    start.callback = callback;
    start.queue = (context_.get()->*queue).get();
    start.handles = context_->handleMon.get();
    if (big) {
        return StartCallbackThread(exportName, threadName, [start] {
            BigString* body = new BigString(start);
            body->Run();
            delete body;
        });
    }
    return StartCallbackThread(exportName, threadName, [start] {
        SmallString* body = new SmallString(start);
        body->Run();
        delete body;
    });
}

int32_t Master::SetResponseCallback(ZanthResponseCallback callback) {
    HandleMon& handles = *context_->handleMon;
    CharIntQueueMon& responses = *context_->responseMon;
    return StartCallbackThread("SetResponseCallback", "response", [callback, &handles, &responses] {
        Response* body = new Response(callback, handles, responses);
        body->Run();
        delete body;
    });
}

int32_t Master::SetConnectedControllersCallback(ZanthConnectionCallback callback) {
    return context_->connDiscController->SetConnectedCallback(callback);
}

int32_t Master::SetDisconnectedControllersCallback(ZanthConnectionCallback callback) {
    return context_->connDiscController->SetDisconnectedCallback(callback);
}

// A missing buffer is refused before the queue is touched, so that no item is lost to it.
int32_t Master::GetNext(TextQueue queue, char* buffer, int32_t size) {
    if (buffer == nullptr || size < 0) return kBadArgument;
    int32_t error = 0;
    (context_.get()->*queue)->Remove(buffer, size, &error);
    return error;
}

int32_t Master::GetNumber(TextQueue queue, int32_t* count) {
    if (count == nullptr) return kBadArgument;
    (context_.get()->*queue)->Length(count);
    return 0;
}

int32_t Master::GetNextResponse(int32_t* rspid, char* buffer, int32_t size) {
    if (rspid == nullptr || buffer == nullptr || size < 0) return kBadArgument;
    int32_t error = 0;
    context_->responseMon->Remove(rspid, buffer, size, &error);
    return error;
}

int32_t Master::GetNumberResponse(int32_t* count) {
    if (count == nullptr) return kBadArgument;
    context_->responseMon->Length(count);
    return 0;
}

int32_t Master::ResetDLL() {
    return zanth::ResetDLL(*context_->resetMon);
}

int32_t Master::ResetThread(const char* mac) {
    return zanth::ResetThread(*context_->resetMon, mac);
}

int32_t Master::RspResetThread(int32_t rspid, const char* mac) {
    return zanth::RspResetThread(*context_->resetMon, rspid, mac);
}

}  // namespace zanth
