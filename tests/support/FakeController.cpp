#include "support/FakeController.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace zanth::test {
namespace {

using Clock = std::chrono::steady_clock;

int Remaining(Clock::time_point deadline) {
    auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
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
    net::Close(listenFd_);
}

bool FakeController::Connect(int port, int timeoutMs) {
    auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    do {
        net::Fd s = net::TcpSocket();
        if (net::ConnectLoopback(s, port)) {
            net::SetNoDelay(s);
            fd_ = s;
            return true;
        }
        net::Close(s);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    } while (Clock::now() < deadline);
    return false;
}

int FakeController::Listen() {
    listenFd_ = net::TcpSocket();
    int port = net::Bind(listenFd_, 0, true);
    net::Listen(listenFd_, 4);
    return port;
}

bool FakeController::Accept(int timeoutMs) {
    if (net::WaitReadable(listenFd_, timeoutMs) <= 0) return false;
    fd_ = net::Accept(listenFd_);
    return fd_ != net::kNoFd;
}

bool FakeController::SendRaw(std::string_view bytes) {
    size_t sent = 0;
    while (sent < bytes.size()) {
        long n = net::Send(fd_, bytes.data() + sent, bytes.size() - sent);
        if (n < 0) return false;
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
        if (net::WaitReadable(fd_, Remaining(deadline)) <= 0) return std::nullopt;
        char buffer[8192];
        long got = net::Recv(fd_, buffer, std::min(sizeof buffer, n - out.size()));
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
    return net::WaitReadable(fd_, timeoutMs) == 0;
}

bool FakeController::WaitClosed(int timeoutMs) {
    auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        if (net::WaitReadable(fd_, Remaining(deadline)) <= 0) return false;
        char buffer[4096];
        long got = net::Recv(fd_, buffer, sizeof buffer);
        if (got <= 0) return true;
    }
}

void FakeController::Close() {
    net::Close(fd_);
    fd_ = net::kNoFd;
}

void FakeController::Reset() {
    net::CloseWithReset(fd_);
    fd_ = net::kNoFd;
}

}  // namespace zanth::test
