#pragma once

#include <cstdint>

#include "platform/Socket.h"

namespace zanth {

constexpr int32_t kAcceptedLink = 0;  // the Listener accepted the connection
constexpr int32_t kOutboundLink = 1;  // the library opened it (ContactController)

// The start data of a Worker thread, read by its constructor.
struct WorkerStartRecord {
    platform::SocketHandle socket = platform::kInvalidSocket;
    void* parentWindow = nullptr;
    void* instance = nullptr;
    int32_t type = kAcceptedLink;
    char iphostname[51] = {};
    int32_t port = 0;
    int32_t rspfunc = 0;
    int32_t rspid = 0;
};

}  // namespace zanth
