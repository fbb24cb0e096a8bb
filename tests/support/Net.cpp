#include "support/Net.h"

#include <cstdlib>

#if defined(_WIN32)
// Winsock 2 before windows.h.
// clang-format off
#include <winsock2.h>
#include <ws2tcpip.h>
#include <direct.h>
#include <io.h>
#include <windows.h>
// clang-format on
#else
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

namespace zanth::test::net {

#if defined(_WIN32)

namespace {
SOCKET S(Fd fd) {
    return static_cast<SOCKET>(fd);
}
}  // namespace

void Startup() {
    static bool started = [] {
        WSADATA data;
        return ::WSAStartup(MAKEWORD(2, 2), &data) == 0;
    }();
    (void)started;
}

Fd TcpSocket() {
    Startup();
    SOCKET s = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    return s == INVALID_SOCKET ? kNoFd : static_cast<Fd>(s);
}

void Close(Fd fd) {
    if (fd != kNoFd) ::closesocket(S(fd));
}

bool ShutdownSend(Fd fd) {
    return ::shutdown(S(fd), SD_SEND) == 0;
}

int WaitReadable(Fd fd, int timeoutMs) {
    WSAPOLLFD p{};
    p.fd = S(fd);
    p.events = POLLRDNORM;
    int n = ::WSAPoll(&p, 1, timeoutMs);
    return n < 0 ? -1 : (n > 0 ? 1 : 0);
}

long Send(Fd fd, const void* data, size_t length) {
    return ::send(S(fd), static_cast<const char*>(data), static_cast<int>(length), 0);
}

long Recv(Fd fd, void* buffer, size_t length) {
    return ::recv(S(fd), static_cast<char*>(buffer), static_cast<int>(length), 0);
}

void SetEnv(const char* name, const std::string& value) {
    ::_putenv_s(name, value.c_str());
}

std::string MakeTempDir(std::string prefix) {
    if (::_mktemp_s(prefix.data(), prefix.size() + 1) != 0) return "";
    if (::_mkdir(prefix.c_str()) != 0) return "";
    return prefix;
}

bool ChangeDir(const std::string& dir) {
    return ::_chdir(dir.c_str()) == 0;
}

std::string TempRoot() {
    char buffer[MAX_PATH + 1];
    DWORD n = ::GetTempPathA(sizeof buffer, buffer);
    if (n == 0 || n >= sizeof buffer) return ".";
    std::string root(buffer, n);
    while (!root.empty() && (root.back() == '\\' || root.back() == '/')) root.pop_back();
    return root;
}

bool UnderWine() {
    HMODULE ntdll = ::GetModuleHandleA("ntdll.dll");
    return ntdll && ::GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

#else

namespace {
int S(Fd fd) {
    return fd;
}
}  // namespace

void Startup() {}

Fd TcpSocket() {
    return ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

void Close(Fd fd) {
    if (fd >= 0) ::close(fd);
}

bool ShutdownSend(Fd fd) {
    return ::shutdown(fd, SHUT_WR) == 0;
}

int WaitReadable(Fd fd, int timeoutMs) {
    pollfd p{fd, POLLIN, 0};
    int n = ::poll(&p, 1, timeoutMs);
    return n < 0 ? -1 : (n > 0 ? 1 : 0);
}

long Send(Fd fd, const void* data, size_t length) {
    return ::send(fd, data, length, MSG_NOSIGNAL);
}

long Recv(Fd fd, void* buffer, size_t length) {
    return ::recv(fd, buffer, length, 0);
}

void SetEnv(const char* name, const std::string& value) {
    ::setenv(name, value.c_str(), 1);
}

std::string MakeTempDir(std::string prefix) {
    if (::mkdtemp(prefix.data()) == nullptr) return "";
    return prefix;
}

bool ChangeDir(const std::string& dir) {
    return ::chdir(dir.c_str()) == 0;
}

std::string TempRoot() {
    const char* tmp = std::getenv("TMPDIR");
    return tmp && *tmp ? tmp : "/tmp";
}

bool UnderWine() {
    return false;
}

#endif

void CloseWithReset(Fd fd) {
    if (fd == kNoFd) return;
    linger l{};
    l.l_onoff = 1;
    l.l_linger = 0;
    ::setsockopt(S(fd), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&l), sizeof l);
    Close(fd);
}

bool ConnectLoopback(Fd fd, int port) {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return ::connect(S(fd), reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
}

void SetNoDelay(Fd fd) {
    int on = 1;
    ::setsockopt(S(fd), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof on);
}

int Bind(Fd fd, int port, bool loopbackOnly) {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    a.sin_addr.s_addr = htonl(loopbackOnly ? INADDR_LOOPBACK : INADDR_ANY);
    if (::bind(S(fd), reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) return -1;
    socklen_t len = sizeof a;
    if (::getsockname(S(fd), reinterpret_cast<sockaddr*>(&a), &len) != 0) return -1;
    return ntohs(a.sin_port);
}

bool Listen(Fd fd, int backlog) {
    return ::listen(S(fd), backlog) == 0;
}

Fd Accept(Fd fd) {
    auto c = ::accept(S(fd), nullptr, nullptr);
#if defined(_WIN32)
    return c == INVALID_SOCKET ? kNoFd : static_cast<Fd>(c);
#else
    return c;
#endif
}

}  // namespace zanth::test::net
