// The Worker's side of outbound contact: resolving the address and connecting.

#include <cstring>

#include "connection/Worker.h"
#include "protocol/Result.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {

uint32_t Worker::GetAddr(const char* name) {
    if (name == nullptr || name[0] == '\0') return 0;
    uint32_t address = platform::InetAddr(name);
    if (address == platform::kInaddrNone && std::strcmp(name, "255.255.255.255") != 0) {
        int error = 0;
        address = platform::ResolveHost(name, &error);
        if (address == 0) {
            LogSocketError(kLogError, "[Worker::GetAddr] Error on gethostbyname", error);
            return 0;
        }
    }
    return address;
}

int32_t Worker::ContactGateway() {
    int32_t result = 0;
    FormatText(logText_, sizeof logText_, "[Worker::ContactGateway] iphostname=%s port=%d",
               iphostname_, port_);
    Log(mac_, kLogTrace, logText_);
    uint32_t address = GetAddr(iphostname_);
    if (address == 0) {
        FormatText(logText_, sizeof logText_,
                   "[Worker::ContactGateway] invalid IP address or host name %s", iphostname_);
        Log(mac_, kLogError, logText_);
        return kBadArgument;
    }
    socket_ = platform::OpenTcpSocket();
    if (socket_ == platform::kInvalidSocket) {
        result = platform::LastSocketError();
        LogSocketError(kLogError, "[Worker::ContactGateway] Error on socket", result);
        return result;
    }
    if (platform::Connect(socket_, address, port_) != 0) {
        result = platform::LastSocketError();
        LogSocketError(kLogError, "[Worker::ContactGateway] Error on connect", result);
    } else if (platform::SetNonBlocking(socket_) != 0) {
        result = platform::LastSocketError();
        LogSocketError(kLogError, "[Worker::ContactGateway] Error on ioctlsocket", result);
    }
    if (result != 0) {
        // The failed socket is closed here: the end of the Worker closes only a working link.
        platform::CloseSocket(socket_);
        socket_ = platform::kInvalidSocket;
    }
    return result;
}

}  // namespace zanth
