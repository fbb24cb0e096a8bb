#pragma once
// Sockets behind the few calls the library makes: BSD sockets (posix/Socket.cpp) or Winsock 2.2
// (win32/Socket.cpp). Every error leaves this layer as its Winsock number, so the rest of the
// library compares, logs and returns those numbers.

#include <cstddef>
#include <cstdint>

namespace platform {

#if defined(_WIN32)
// Winsock's SOCKET, without pulling the system headers into every subsystem.
using SocketHandle = uintptr_t;
constexpr SocketHandle kInvalidSocket = ~static_cast<SocketHandle>(0);
#else
using SocketHandle = int;
constexpr SocketHandle kInvalidSocket = -1;
#endif
constexpr int kSocketError = -1;

constexpr int WSAEWOULDBLOCK = 10035;
constexpr int WSAECONNABORTED = 10053;
constexpr int WSAECONNRESET = 10054;
constexpr int WSAECONNREFUSED = 10061;

// The system's error number as its Winsock number; numbers with no counterpart pass as they are.
int WinsockError(int systemError);
// The Winsock number of the calling thread's last socket error.
int LastSocketError();
// The text of a Winsock number, or null when the table has no row for it.
const char* WinsockErrorName(int winsockError);

// Start and stop of the socket stack: WSAStartup/WSACleanup on Windows; elsewhere nothing to
// do, and version 2.2 is reported.
int SocketStartup(uint16_t requestedVersion, uint16_t* version);
int SocketCleanup();

SocketHandle OpenTcpSocket();
int CloseSocket(SocketHandle s);
int ShutdownBoth(SocketHandle s);
int SetNonBlocking(SocketHandle s);
int SetNoDelay(SocketHandle s);
int SetReuseAddress(SocketHandle s);
int BindAny(SocketHandle s, int port);
int BindLoopback(SocketHandle s, int port);
int Listen(SocketHandle s, int backlog);
// Waits up to `milliseconds` for the socket to become readable (0: just look).
bool Readable(SocketHandle s, int milliseconds);
SocketHandle Accept(SocketHandle s);
// Blocking connect to an IPv4 address in network order.
int Connect(SocketHandle s, uint32_t address, int port);
// Receive and send; kSocketError with LastSocketError() set on failure. Sends never raise SIGPIPE.
long Recv(SocketHandle s, void* buffer, size_t length, bool peek);
long Send(SocketHandle s, const void* buffer, size_t length);
// The port a bound socket got.
int LocalPort(SocketHandle s);
// The peer's IPv4 address and port as "a.b.c.d:port" into `out` (always terminated); false,
// with "unknown", when the socket has no peer.
bool PeerAddress(SocketHandle s, char* out, size_t size);

// inet_addr semantics: the address in network order, or 0xFFFFFFFF for a text that isn't one
// (which "255.255.255.255" also gives).
uint32_t InetAddr(const char* text);
constexpr uint32_t kInaddrNone = 0xFFFFFFFFu;
// Name resolution restricted to IPv4, first address. 0 and *error set on failure.
uint32_t ResolveHost(const char* name, int* error);

}  // namespace platform
