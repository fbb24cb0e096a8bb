#pragma once
// Tells the host of connects and disconnects: one thread, started at the first registration of
// either callback, takes one notice from connDiscQueue every 200 ms and calls the host.

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "zanth.h"

namespace zanth {

struct Monitors;

class ConnDiscController {
  public:
    // The thread takes its notices from the monitors' connDiscQueue, which the context builds
    // after this object: it is looked up only once the thread runs.
    ConnDiscController(const char* name, Monitors& monitors);
    ~ConnDiscController();

    // Stores the callback, starts the thread if it hasn't been started, sets the flag. Always 0.
    int32_t SetConnectedCallback(ZanthConnectionCallback callback);
    int32_t SetDisconnectedCallback(ZanthConnectionCallback callback);

  private:
    void StartWorkerThread();
    void Run();
    void Deliver(ZanthConnectionCallback callback, const char* mac);

    std::mutex lock_;
    std::string name_;
    Monitors& monitors_;
    // Read by the thread without the mutex, which only serialises registrations.
    std::atomic<bool> connectedSet_{false};
    std::atomic<bool> disconnectedSet_{false};
    bool started_ = false;
    std::atomic<ZanthConnectionCallback> connected_{nullptr};
    std::atomic<ZanthConnectionCallback> disconnected_{nullptr};
    char delivery_[141];
};

}  // namespace zanth
