#include "platform/Socket.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <cstdio>

namespace platform {
namespace {

static_assert(sizeof(SocketHandle) == sizeof(SOCKET), "SocketHandle holds a SOCKET");

SOCKET S(SocketHandle s) {
    return static_cast<SOCKET>(s);
}

int Check(int rc) {
    return rc == 0 ? 0 : kSocketError;
}

}  // namespace

// Winsock reports its own numbers already.
int WinsockError(int e) {
    return e;
}

int LastSocketError() {
    return ::WSAGetLastError();
}

int SocketStartup(uint16_t requestedVersion, uint16_t* version) {
    WSADATA data{};
    int rc = ::WSAStartup(requestedVersion, &data);
    if (version) *version = rc == 0 ? data.wVersion : 0;
    return rc;
}

int SocketCleanup() {
    return ::WSACleanup() == 0 ? 0 : ::WSAGetLastError();
}

SocketHandle OpenTcpSocket() {
    // Not inherited by child processes, like SOCK_CLOEXEC on the other side.
    SOCKET s =
        ::WSASocketW(AF_INET, SOCK_STREAM, IPPROTO_TCP, nullptr, 0, WSA_FLAG_NO_HANDLE_INHERIT);
    return s == INVALID_SOCKET ? kInvalidSocket : static_cast<SocketHandle>(s);
}

int CloseSocket(SocketHandle s) {
    return Check(::closesocket(S(s)));
}

int ShutdownBoth(SocketHandle s) {
    return Check(::shutdown(S(s), SD_BOTH));
}

int SetNonBlocking(SocketHandle s) {
    u_long on = 1;
    return Check(::ioctlsocket(S(s), FIONBIO, &on));
}

int SetNoDelay(SocketHandle s) {
    BOOL on = TRUE;
    return Check(::setsockopt(S(s), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on),
                              sizeof on));
}

// Winsock's SO_REUSEADDR would let the listener share a port that another program holds; the
// exclusive use keeps "address already in use" (10048) as the answer, and a Windows listener
// rebinds after its own close without help.
int SetReuseAddress(SocketHandle s) {
    BOOL on = TRUE;
    return Check(::setsockopt(S(s), SOL_SOCKET, SO_EXCLUSIVEADDRUSE,
                              reinterpret_cast<const char*>(&on), sizeof on));
}

static int BindTo(SocketHandle s, uint32_t address, int port) {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<u_short>(port));
    a.sin_addr.s_addr = address;
    return Check(::bind(S(s), reinterpret_cast<sockaddr*>(&a), sizeof a));
}

int BindAny(SocketHandle s, int port) {
    return BindTo(s, htonl(INADDR_ANY), port);
}

int BindLoopback(SocketHandle s, int port) {
    return BindTo(s, htonl(INADDR_LOOPBACK), port);
}

int Listen(SocketHandle s, int backlog) {
    return Check(::listen(S(s), backlog));
}

bool Readable(SocketHandle s, int milliseconds) {
    WSAPOLLFD p{};
    p.fd = S(s);
    p.events = POLLRDNORM;
    int n = ::WSAPoll(&p, 1, milliseconds);
    return n > 0 && (p.revents & (POLLRDNORM | POLLERR | POLLHUP)) != 0;
}

SocketHandle Accept(SocketHandle s) {
    sockaddr_in a{};
    int len = sizeof a;
    SOCKET c = ::accept(S(s), reinterpret_cast<sockaddr*>(&a), &len);
    if (c == INVALID_SOCKET) return kInvalidSocket;
    // An accepted socket takes over the listener's non-blocking mode on Windows; the library
    // sets the mode it wants itself, so start from a blocking one as on the other side.
    u_long off = 0;
    ::ioctlsocket(c, FIONBIO, &off);
    ::SetHandleInformation(reinterpret_cast<HANDLE>(c), HANDLE_FLAG_INHERIT, 0);
    return static_cast<SocketHandle>(c);
}

int Connect(SocketHandle s, uint32_t address, int port) {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<u_short>(port));
    a.sin_addr.s_addr = address;
    return Check(::connect(S(s), reinterpret_cast<sockaddr*>(&a), sizeof a));
}

long Recv(SocketHandle s, void* buffer, size_t length, bool peek) {
    int n = static_cast<int>(length > 0x7FFFFFFF ? 0x7FFFFFFF : length);
    return ::recv(S(s), static_cast<char*>(buffer), n, peek ? MSG_PEEK : 0);
}

// Winsock raises no signal on a broken link: a plain send is enough.
long Send(SocketHandle s, const void* buffer, size_t length) {
    int n = static_cast<int>(length > 0x7FFFFFFF ? 0x7FFFFFFF : length);
    return ::send(S(s), static_cast<const char*>(buffer), n, 0);
}

int LocalPort(SocketHandle s) {
    sockaddr_in a{};
    int len = sizeof a;
    if (::getsockname(S(s), reinterpret_cast<sockaddr*>(&a), &len) != 0) return -1;
    return ntohs(a.sin_port);
}

bool PeerAddress(SocketHandle s, char* out, size_t size) {
    if (out == nullptr || size == 0) return false;
    sockaddr_in a{};
    int len = sizeof a;
    if (::getpeername(S(s), reinterpret_cast<sockaddr*>(&a), &len) != 0 ||
        a.sin_family != AF_INET) {
        std::snprintf(out, size, "unknown");
        return false;
    }
    // The address is in network order: its first byte is the first octet.
    const auto* octet = reinterpret_cast<const unsigned char*>(&a.sin_addr);
    std::snprintf(out, size, "%u.%u.%u.%u:%u", octet[0], octet[1], octet[2], octet[3],
                  static_cast<unsigned>(ntohs(a.sin_port)));
    return true;
}

uint32_t InetAddr(const char* text) {
    if (text == nullptr) return kInaddrNone;
    return ::inet_addr(text);
}

uint32_t ResolveHost(const char* name, int* error) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    int rc = ::getaddrinfo(name, nullptr, &hints, &found);
    if (rc != 0 || found == nullptr) {
        // getaddrinfo's failures are Winsock numbers (11001 for an unknown host).
        if (error) *error = rc != 0 ? rc : 11001;
        if (found) ::freeaddrinfo(found);
        return 0;
    }
    uint32_t address = reinterpret_cast<sockaddr_in*>(found->ai_addr)->sin_addr.s_addr;
    ::freeaddrinfo(found);
    if (error) *error = 0;
    return address;
}

}  // namespace platform
