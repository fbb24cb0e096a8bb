#include "support/FakeController.h"

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace zanth::test {
namespace {

using Clock = std::chrono::steady_clock;

int Remaining(Clock::time_point deadline) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

}  // namespace

std::string Frame(int code, std::string_view payload) {
    char header[16];
    std::snprintf(header, sizeof header, "%04d;%04d;", code, static_cast<int>(payload.size() + 10));
    return std::string(header) + std::string(payload);
}

FakeController::~FakeController() {
    Close();
    if (listenFd_ >= 0) ::close(listenFd_);
}

bool FakeController::Connect(int port, int timeoutMs) {
    auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    do {
        int s = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(static_cast<uint16_t>(port));
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::connect(s, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0) {
            int on = 1;
            ::setsockopt(s, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            fd_ = s;
            return true;
        }
        ::close(s);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    } while (Clock::now() < deadline);
    return false;
}

int FakeController::Listen() {
    listenFd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int on = 1;
    ::setsockopt(listenFd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(listenFd_, reinterpret_cast<sockaddr*>(&a), sizeof a);
    ::listen(listenFd_, 4);
    socklen_t len = sizeof a;
    ::getsockname(listenFd_, reinterpret_cast<sockaddr*>(&a), &len);
    return ntohs(a.sin_port);
}

bool FakeController::Accept(int timeoutMs) {
    pollfd p{listenFd_, POLLIN, 0};
    if (::poll(&p, 1, timeoutMs) <= 0) return false;
    fd_ = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
    return fd_ >= 0;
}

bool FakeController::SendRaw(std::string_view bytes) {
    size_t sent = 0;
    while (sent < bytes.size()) {
        ssize_t n = ::send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        sent += static_cast<size_t>(n);
    }
    return true;
}

bool FakeController::SendFrame(int code, std::string_view payload) {
    return SendRaw(Frame(code, payload));
}

bool FakeController::SendInPieces(std::string_view bytes, const std::vector<size_t>& cuts,
                                  int pauseMs) {
    size_t from = 0;
    for (size_t cut : cuts) {
        if (!SendRaw(bytes.substr(from, cut - from))) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(pauseMs));
        from = cut;
    }
    return SendRaw(bytes.substr(from));
}

bool FakeController::Identify(const std::string& mac, int timeoutMs) {
    if (!SendFrame(1042, "02:5A:37:" + mac + ";1.0;")) return false;
    auto reply = ReadFrame(timeoutMs);
    return reply && *reply == "0070;0010;";
}

std::optional<std::string> FakeController::ReadBytes(size_t n, int timeoutMs) {
    auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    std::string out;
    while (out.size() < n) {
        pollfd p{fd_, POLLIN, 0};
        if (::poll(&p, 1, Remaining(deadline)) <= 0) return std::nullopt;
        char buffer[8192];
        ssize_t got = ::recv(fd_, buffer, std::min(sizeof buffer, n - out.size()), 0);
        if (got <= 0) return std::nullopt;
        out.append(buffer, static_cast<size_t>(got));
    }
    return out;
}

std::optional<std::string> FakeController::ReadFrame(int timeoutMs) {
    auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    auto header = ReadBytes(10, timeoutMs);
    if (!header) return std::nullopt;
    int total = std::atoi(header->substr(5, 4).c_str());
    if (total <= 10) return header;
    auto body = ReadBytes(static_cast<size_t>(total - 10), Remaining(deadline));
    if (!body) return std::nullopt;
    return *header + *body;
}

bool FakeController::Silent(int timeoutMs) {
    pollfd p{fd_, POLLIN, 0};
    return ::poll(&p, 1, timeoutMs) == 0;
}

bool FakeController::WaitClosed(int timeoutMs) {
    auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        pollfd p{fd_, POLLIN, 0};
        if (::poll(&p, 1, Remaining(deadline)) <= 0) return false;
        char buffer[4096];
        ssize_t got = ::recv(fd_, buffer, sizeof buffer, 0);
        if (got <= 0) return true;
    }
}

void FakeController::Close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
}

void FakeController::Reset() {
    if (fd_ < 0) return;
    linger l{1, 0};
    ::setsockopt(fd_, SOL_SOCKET, SO_LINGER, &l, sizeof l);
    ::close(fd_);
    fd_ = -1;
}

}  // namespace zanth::test
