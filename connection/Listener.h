#pragma once
// Owns the listening socket and starts one Worker thread per accepted connection. It knows
// nothing of controllers, except the terminate message it gives a connection that comes in
// after the library has begun to end.

#include <cstdint>
#include <mutex>

#include "connection/WorkerStartRecord.h"
#include "platform/Socket.h"
#include "protocol/CommandRecord.h"
#include "protocol/MessageUtil.h"

namespace zanth {

struct Monitors;
class SeedHashMon;

class Listener {
  public:
    // Its Workers are handed `monitors` and `seeds`.
    Listener(int32_t port, void* parentWindow, void* instance, Monitors& monitors,
             SeedHashMon& seeds);
    ~Listener();
    // Each turn: the mailbox, then one pending connection, then 100 ms of sleep.
    void Run();

  private:
    void Accept();
    // Reads what the peer sent so far, sends ZANTH_TERMINATE in clear, shuts down and closes.
    void Refuse(int which);
    void LogSocketError(int32_t level, const char* text, int error);

    char name_[16];
    int32_t port_;
    void* parentWindow_;
    void* instance_;
    Monitors& monitors_;
    SeedHashMon& seeds_;
    platform::SocketHandle listenSocket_ = platform::kInvalidSocket;
    platform::SocketHandle acceptSocket_ = platform::kInvalidSocket;
    WorkerStartRecord startRecord_;
    MessageUtil util_;
    std::mutex acceptLock_;
    char buffer_[kMessageBufferSize + 1];
    char logText_[kLogTextSize];
    char logText2_[kLogTextSize];
};

}  // namespace zanth
