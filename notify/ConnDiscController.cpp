#include "notify/ConnDiscController.h"

#include <cstring>

#include "monitors/Monitors.h"
#include "platform/Thread.h"
#include "protocol/CommandRecord.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {

ConnDiscController::ConnDiscController(const char* name, Monitors& monitors)
    : name_(name ? name : ""), monitors_(monitors) {
    std::memset(delivery_, 0, sizeof delivery_);
}

ConnDiscController::~ConnDiscController() {
    { std::lock_guard<std::mutex> g(lock_); }
    Log(name_.c_str(), kLogTrace,
        "[ConnDiscController::~ConnDiscController] ConnDiscController terminated");
}

int32_t ConnDiscController::SetConnectedCallback(ZanthConnectionCallback callback) {
    std::lock_guard<std::mutex> g(lock_);
    connected_.store(callback);
    StartWorkerThread();
    connectedSet_.store(true);
    return 0;
}

int32_t ConnDiscController::SetDisconnectedCallback(ZanthConnectionCallback callback) {
    std::lock_guard<std::mutex> g(lock_);
    disconnected_.store(callback);
    StartWorkerThread();
    disconnectedSet_.store(true);
    return 0;
}

// Entered with the mutex held. The started flag is never cleared: a failed start is not
// retried, and after a library reset the notices stay silent.
void ConnDiscController::StartWorkerThread() {
    if (started_) return;
    started_ = true;
    platform::ThreadId id = 0;
    int error = platform::CreateThread([this] { Run(); }, &id, true);
    if (error == 0) {
        monitors_.handleMon->Add("connDiscController", id);
        platform::ResumeThread(id);
    } else {
        char text2[kLogTextSize];
        FormatText(text2, sizeof text2, "Error code = %d", error);
        Log(name_.c_str(), kLogError,
            "[ConnDiscController::StartWorkerThread] Error on CreateThread", text2);
    }
}

void ConnDiscController::Deliver(ZanthConnectionCallback callback, const char* mac) {
    size_t length = std::strlen(mac);
    std::memset(delivery_, ' ', 140);
    std::memcpy(delivery_, mac, length);
    delivery_[length] = '\0';
    callback(delivery_);
}

void ConnDiscController::Run() {
    char mac[141];
    for (;;) {
        platform::Sleep(200);
        int32_t length = 0;
        monitors_.connDiscQueue->Length(&length);
        if (length > 0) {
            uint8_t connected = 0;
            int64_t time = 0;
            int32_t error = 0;
            std::memset(mac, 0, sizeof mac);
            monitors_.connDiscQueue->Remove(mac, 140, &connected, &time, &error);
            if (error == 0) {
                // A notice whose callback isn't registered is consumed and gone.
                ZanthConnectionCallback callback = nullptr;
                if (connected == 1 && connectedSet_.load()) callback = connected_.load();
                if (connected == 0 && disconnectedSet_.load()) callback = disconnected_.load();
                if ((connected == 1 && connectedSet_.load()) ||
                    (connected == 0 && disconnectedSet_.load())) {
                    // A null pointer was stored as given; calling it would kill the host.
                    if (callback) Deliver(callback, mac);
                }
            }
        }
        uint8_t stop = 0;
        monitors_.handleMon->ShouldStop("connDiscController", &stop);
        if (stop) return;
    }
}

}  // namespace zanth
