#include "platform/Socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace platform {
namespace {

int Fail() {
    return kSocketError;
}

}  // namespace

int WinsockError(int e) {
    switch (e) {
        case 0:
            return 0;
        case EWOULDBLOCK:
            return 10035;
#if EAGAIN != EWOULDBLOCK
        case EAGAIN:
            return 10035;
#endif
        case EINPROGRESS:
            return 10036;
        case EALREADY:
            return 10037;
        case ENOTSOCK:
            return 10038;
        case EDESTADDRREQ:
            return 10039;
        case EMSGSIZE:
            return 10040;
        case EPROTOTYPE:
            return 10041;
        case ENOPROTOOPT:
            return 10042;
        case EPROTONOSUPPORT:
            return 10043;
        case ESOCKTNOSUPPORT:
            return 10044;
        case EOPNOTSUPP:
            return 10045;
        case EPFNOSUPPORT:
            return 10046;
        case EAFNOSUPPORT:
            return 10047;
        case EADDRINUSE:
            return 10048;
        case EADDRNOTAVAIL:
            return 10049;
        case ENETDOWN:
            return 10050;
        case ENETUNREACH:
            return 10051;
        case ENETRESET:
            return 10052;
        case ECONNABORTED:
            return 10053;
        case ECONNRESET:
            return 10054;
        case EPIPE:
            return 10054;
        case ENOBUFS:
            return 10055;
        case EISCONN:
            return 10056;
        case ENOTCONN:
            return 10057;
        case ESHUTDOWN:
            return 10058;
        case ETIMEDOUT:
            return 10060;
        case ECONNREFUSED:
            return 10061;
        case EHOSTDOWN:
            return 10064;
        case EHOSTUNREACH:
            return 10065;
        case EBADF:
            return 10009;
        case EACCES:
            return 10013;
        case EFAULT:
            return 10014;
        case EINVAL:
            return 10022;
        case EMFILE:
            return 10024;
        case EINTR:
            return 10004;
        case ENOMEM:
            return 8;
        default:
            return e;
    }
}

int LastSocketError() {
    return WinsockError(errno);
}

int SocketStartup(uint16_t, uint16_t* version) {
    if (version) *version = 0x0202;
    return 0;
}

int SocketCleanup() {
    return 0;
}

SocketHandle OpenTcpSocket() {
    SocketHandle s = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
    return s < 0 ? kInvalidSocket : s;
}

int CloseSocket(SocketHandle s) {
    return ::close(s) == 0 ? 0 : Fail();
}

int ShutdownBoth(SocketHandle s) {
    return ::shutdown(s, SHUT_RDWR) == 0 ? 0 : Fail();
}

int SetNonBlocking(SocketHandle s) {
    int flags = ::fcntl(s, F_GETFL, 0);
    if (flags < 0) return Fail();
    return ::fcntl(s, F_SETFL, flags | O_NONBLOCK) == 0 ? 0 : Fail();
}

int SetNoDelay(SocketHandle s) {
    int on = 1;
    return ::setsockopt(s, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) == 0 ? 0 : Fail();
}

int SetReuseAddress(SocketHandle s) {
    int on = 1;
    return ::setsockopt(s, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 ? 0 : Fail();
}

static int BindTo(SocketHandle s, uint32_t address, int port) {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    a.sin_addr.s_addr = address;
    return ::bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 ? 0 : Fail();
}

int BindAny(SocketHandle s, int port) {
    return BindTo(s, htonl(INADDR_ANY), port);
}

int BindLoopback(SocketHandle s, int port) {
    return BindTo(s, htonl(INADDR_LOOPBACK), port);
}

int Listen(SocketHandle s, int backlog) {
    return ::listen(s, backlog) == 0 ? 0 : Fail();
}

bool Readable(SocketHandle s, int milliseconds) {
    pollfd p{s, POLLIN, 0};
    int n;
    do {
        n = ::poll(&p, 1, milliseconds);
    } while (n < 0 && errno == EINTR);
    return n > 0 && (p.revents & (POLLIN | POLLERR | POLLHUP)) != 0;
}

SocketHandle Accept(SocketHandle s) {
    sockaddr_in a{};
    socklen_t len = sizeof a;
    SocketHandle c = ::accept4(s, reinterpret_cast<sockaddr*>(&a), &len, SOCK_CLOEXEC);
    return c < 0 ? kInvalidSocket : c;
}

int Connect(SocketHandle s, uint32_t address, int port) {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    a.sin_addr.s_addr = address;
    if (::connect(s, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0) return 0;
    if (errno != EINTR) return Fail();
    // An interrupted connect goes on in the background: wait for it to finish and take its own
    // result, since a second connect would only report that one is under way.
    pollfd p{s, POLLOUT, 0};
    int n;
    do {
        n = ::poll(&p, 1, -1);
    } while (n < 0 && errno == EINTR);
    int error = 0;
    socklen_t len = sizeof error;
    if (n < 0 || ::getsockopt(s, SOL_SOCKET, SO_ERROR, &error, &len) != 0) return Fail();
    if (error == 0) return 0;
    errno = error;
    return Fail();
}

long Recv(SocketHandle s, void* buffer, size_t length, bool peek) {
    ssize_t n;
    do {
        n = ::recv(s, buffer, length, peek ? MSG_PEEK : 0);
    } while (n < 0 && errno == EINTR);
    return n;
}

long Send(SocketHandle s, const void* buffer, size_t length) {
    ssize_t n;
    do {
        n = ::send(s, buffer, length, MSG_NOSIGNAL);
    } while (n < 0 && errno == EINTR);
    return n;
}

int LocalPort(SocketHandle s) {
    sockaddr_in a{};
    socklen_t len = sizeof a;
    if (::getsockname(s, reinterpret_cast<sockaddr*>(&a), &len) != 0) return -1;
    return ntohs(a.sin_port);
}

bool PeerAddress(SocketHandle s, char* out, size_t size) {
    if (out == nullptr || size == 0) return false;
    sockaddr_in a{};
    socklen_t len = sizeof a;
    if (::getpeername(s, reinterpret_cast<sockaddr*>(&a), &len) != 0 || a.sin_family != AF_INET) {
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
    in_addr a{};
    if (text == nullptr || ::inet_aton(text, &a) == 0) return kInaddrNone;
    return a.s_addr;
}

uint32_t ResolveHost(const char* name, int* error) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    int rc = ::getaddrinfo(name, nullptr, &hints, &found);
    if (rc != 0 || found == nullptr) {
        // The resolver's own failures read as "Host not found".
        if (error) *error = (rc == EAI_SYSTEM) ? LastSocketError() : 11001;
        if (found) ::freeaddrinfo(found);
        return 0;
    }
    uint32_t address = reinterpret_cast<sockaddr_in*>(found->ai_addr)->sin_addr.s_addr;
    ::freeaddrinfo(found);
    if (error) *error = 0;
    return address;
}

}  // namespace platform
