#pragma once
// The few socket, environment and directory calls of the test support, on BSD sockets and POSIX
// or on Winsock and the CRT, so that the same tests build for Linux and for Windows.

#include <cstddef>
#include <cstdint>
#include <string>

namespace zanth::test::net {

#if defined(_WIN32)
constexpr char kSeparator = '\\';
using Fd = uintptr_t;
constexpr Fd kNoFd = ~static_cast<Fd>(0);
#else
constexpr char kSeparator = '/';
using Fd = int;
constexpr Fd kNoFd = -1;
#endif

// Winsock's start, once per process (nothing to do elsewhere).
void Startup();

Fd TcpSocket();
void Close(Fd fd);
// Closes with a reset instead of an orderly end.
void CloseWithReset(Fd fd);
// Ends the sending direction only: the peer reads end of stream.
bool ShutdownSend(Fd fd);
bool ConnectLoopback(Fd fd, int port);
void SetNoDelay(Fd fd);
// Binds to 127.0.0.1 (or every address) at `port` (0: any free one) and returns the port, or -1.
int Bind(Fd fd, int port, bool loopbackOnly);
bool Listen(Fd fd, int backlog);
Fd Accept(Fd fd);
// 1 readable (or closed, or failed), 0 nothing within the time, -1 error.
int WaitReadable(Fd fd, int timeoutMs);
// Never raises SIGPIPE; -1 on failure.
long Send(Fd fd, const void* data, size_t length);
long Recv(Fd fd, void* buffer, size_t length);

void SetEnv(const char* name, const std::string& value);
// A fresh directory from `prefix` (its last six characters, "XXXXXX", are replaced); empty on
// failure.
std::string MakeTempDir(std::string prefix);
bool ChangeDir(const std::string& dir);
// The system's temporary folder, without its trailing separator.
std::string TempRoot();

// True in a Windows program that runs under Wine, whose sockets close in order even when asked
// for a reset (SO_LINGER 0): tests that need a peer's reset skip there.
bool UnderWine();

}  // namespace zanth::test::net
