#include "tools/sim/Simulator.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace zanth::sim {
namespace {

// Epoll data: the controller's address, with the low bit set for its listening socket. The
// wake-up descriptor has 0.
constexpr uint64_t kListenerTag = 1;

sockaddr_in ResolveHost(const std::string& host, int port) {
    if (port < 1 || port > 65535)
        throw std::runtime_error("port out of range: " + std::to_string(port));
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    if (::inet_pton(AF_INET, host.c_str(), &a.sin_addr) == 1) return a;
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0 || found == nullptr)
        throw std::runtime_error("unknown host: " + host);
    a.sin_addr = reinterpret_cast<sockaddr_in*>(found->ai_addr)->sin_addr;
    ::freeaddrinfo(found);
    return a;
}

// A listening socket for a controller that waits to be called; its port is returned.
int OpenListener(const std::string& address, int port, int* boundPort) {
    if (port < 0 || port > 65535)
        throw std::runtime_error("port out of range: " + std::to_string(port));
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    if (::inet_pton(AF_INET, address.c_str(), &a.sin_addr) != 1)
        throw std::runtime_error("bad listen address: " + address);
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) throw std::runtime_error(std::string("socket: ") + std::strerror(errno));
    int on = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || ::listen(fd, 4) != 0) {
        std::string error = std::strerror(errno);
        ::close(fd);
        throw std::runtime_error("cannot listen on port " + std::to_string(port) + ": " + error);
    }
    socklen_t length = sizeof a;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &length);
    *boundPort = ntohs(a.sin_port);
    return fd;
}

}  // namespace

Simulator::Simulator(SimulatorOptions options) : options_(options) {
    epoll_ = ::epoll_create1(EPOLL_CLOEXEC);
    wakeFd_ = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (epoll_ < 0 || wakeFd_ < 0) throw std::runtime_error("cannot create the event loop");
    epoll_event e{};
    e.events = EPOLLIN;
    e.data.u64 = 0;
    ::epoll_ctl(epoll_, EPOLL_CTL_ADD, wakeFd_, &e);
}

Simulator::~Simulator() {
    Stop();
    controllers_.clear();
    if (wakeFd_ >= 0) ::close(wakeFd_);
    if (epoll_ >= 0) ::close(epoll_);
}

Controller& Simulator::Add(ControllerConfig config) {
    std::string mac = NormalizeMac(config.mac);
    if (mac.empty()) throw std::runtime_error("bad MAC: " + config.mac);
    config.mac = mac;
    sockaddr_in host{};
    int listenFd = -1;
    int listenPort = 0;
    if (config.listen) {
        listenFd = OpenListener(config.listenAddress, config.listenPort, &listenPort);
    } else {
        host = ResolveHost(config.host, config.port);
    }
    Controller* controller = nullptr;
    {
        std::lock_guard<std::mutex> lock(controllersMutex_);
        controllers_.push_back(std::unique_ptr<Controller>(new Controller(
            *this, controllers_.size(), std::move(config), host, listenFd, listenPort)));
        controller = controllers_.back().get();
        count_.store(controllers_.size());
    }
    // It comes to life on the loop thread, now or when the loop starts.
    Post(controller, [](Controller& c) { c.Activate(); });
    return *controller;
}

void Simulator::Start() {
    if (thread_.joinable() || stopping_) return;
    thread_ = std::thread([this] { Run(); });
}

void Simulator::Stop() {
    if (!thread_.joinable()) return;
    {
        std::lock_guard<std::mutex> lock(tasksMutex_);
        stopRequested_ = true;
    }
    Wake();
    thread_.join();
}

size_t Simulator::Count() const {
    return count_.load();
}

Controller& Simulator::At(size_t index) {
    std::lock_guard<std::mutex> lock(controllersMutex_);
    return *controllers_.at(index);
}

Controller* Simulator::Find(std::string_view mac) {
    std::string wanted = NormalizeMac(mac);
    std::lock_guard<std::mutex> lock(controllersMutex_);
    for (auto& c : controllers_) {
        if (c->Mac() == wanted) return c.get();
    }
    return nullptr;
}

SimulatorTotals Simulator::Totals() const {
    SimulatorTotals t;
    std::lock_guard<std::mutex> lock(controllersMutex_);
    std::lock_guard<std::mutex> state(stateMutex_);
    t.controllers = controllers_.size();
    for (const auto& c : controllers_) {
        const ControllerStats& s = c->stats_;
        if (s.identified) ++t.identified;
        t.identifications += s.identifications;
        t.reconnects += s.Reconnects();
        t.linkDrops += s.linkDrops;
        t.connectFailures += s.connectFailures;
        t.protocolErrors += s.protocolErrors;
        for (auto [code, n] : s.sent) t.sent[code] += n;
        for (auto [code, n] : s.acks) t.acks[code] += n;
        for (auto [code, n] : s.commandCounts) t.commands[code] += n;
    }
    return t;
}

size_t Simulator::IdentifiedCount() const {
    std::lock_guard<std::mutex> lock(stateMutex_);
    return identifiedCount_;
}

bool Simulator::WaitAllIdentified(std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(stateMutex_);
    return changed_.wait_for(lock, timeout, [&] { return identifiedCount_ >= count_.load(); });
}

// ---------------------------------------------------------------------------------------------
// The loop

void Simulator::Run() {
    epoll_event events[256];
    for (;;) {
        RunTasks();
        if (stopping_) break;
        PumpConnects();
        int n = ::epoll_wait(epoll_, events, 256, NextTimeoutMs());
        for (int i = 0; i < n; ++i) {
            uint64_t data = events[i].data.u64;
            if (data == 0) {
                uint64_t value = 0;
                while (::read(wakeFd_, &value, sizeof value) > 0) {
                }
                continue;
            }
            auto* controller = reinterpret_cast<Controller*>(data & ~kListenerTag);
            if (data & kListenerTag) {
                // New links are made only between batches, so that no event of this batch can
                // land on a descriptor opened during it.
                acceptReady_.push_back(controller);
            } else {
                controller->OnSocketEvent(events[i].events);
            }
        }
        for (Controller* c : acceptReady_) {
            if (c->listenFd_ >= 0) c->OnListenerReady();
        }
        acceptReady_.clear();
        RunDueTimers();
    }

    std::vector<Controller*> all;
    {
        std::lock_guard<std::mutex> lock(controllersMutex_);
        for (auto& c : controllers_) all.push_back(c.get());
    }
    for (Controller* c : all) {
        if (c->listenFd_ >= 0) {
            Unwatch(c->listenFd_);
            ::close(c->listenFd_);
            c->listenFd_ = -1;
        }
        c->CloseLink(Controller::DropReason::Stop);
    }
    connectQueue_.clear();
    timers_ = {};
}

void Simulator::RunTasks() {
    std::vector<std::pair<Controller*, std::function<void(Controller&)>>> tasks;
    {
        std::lock_guard<std::mutex> lock(tasksMutex_);
        tasks.swap(tasks_);
        if (stopRequested_) stopping_ = true;
    }
    if (stopping_) return;
    for (auto& [controller, task] : tasks) task(*controller);
}

void Simulator::Post(Controller* controller, std::function<void(Controller&)> task) {
    {
        std::lock_guard<std::mutex> lock(tasksMutex_);
        tasks_.emplace_back(controller, std::move(task));
    }
    Wake();
}

void Simulator::Wake() {
    uint64_t one = 1;
    ssize_t n = ::write(wakeFd_, &one, sizeof one);
    (void)n;  // a full counter already wakes the loop
}

int Simulator::NextTimeoutMs() {
    if (timers_.empty()) return -1;
    auto left = timers_.top().when - std::chrono::steady_clock::now();
    auto ms = std::chrono::ceil<std::chrono::milliseconds>(left).count();
    return ms <= 0 ? 0 : static_cast<int>(std::min<long long>(ms, 60000));
}

void Simulator::RunDueTimers() {
    auto now = std::chrono::steady_clock::now();
    while (!timers_.empty() && timers_.top().when <= now) {
        Timer t = timers_.top();
        timers_.pop();
        // A timer armed before its kind was cancelled finds a newer generation and is void.
        if (t.generation != t.controller->timerGeneration_[t.kind]) continue;
        t.controller->OnTimer(static_cast<Controller::TimerKind>(t.kind), t.arg);
    }
}

void Simulator::ArmTimer(Controller* controller, int kind, uint32_t generation, int delayMs,
                         int arg) {
    timers_.push(Timer{std::chrono::steady_clock::now() + std::chrono::milliseconds(delayMs),
                       timerOrder_++, controller, kind, generation, arg});
}

void Simulator::Watch(int fd, Controller* controller, bool listener, bool wantWrite) {
    epoll_event e{};
    e.events = EPOLLIN | (wantWrite ? EPOLLOUT : 0u);
    e.data.u64 = reinterpret_cast<uint64_t>(controller) | (listener ? kListenerTag : 0);
    ::epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &e);
}

void Simulator::Rewatch(int fd, Controller* controller, bool wantWrite) {
    epoll_event e{};
    e.events = EPOLLIN | (wantWrite ? EPOLLOUT : 0u);
    e.data.u64 = reinterpret_cast<uint64_t>(controller);
    ::epoll_ctl(epoll_, EPOLL_CTL_MOD, fd, &e);
}

void Simulator::Unwatch(int fd) {
    ::epoll_ctl(epoll_, EPOLL_CTL_DEL, fd, nullptr);
}

void Simulator::RequestConnect(Controller* controller) {
    connectQueue_.push_back(controller);
}

void Simulator::ReleaseSlot(Controller* controller) {
    if (!controller->holdsSlot_) return;
    controller->holdsSlot_ = false;
    --connecting_;
}

void Simulator::PumpConnects() {
    while (connecting_ < std::max(options_.maxConnecting, 1) && !connectQueue_.empty()) {
        Controller* c = connectQueue_.front();
        connectQueue_.pop_front();
        if (c->state_ != LinkState::Waiting || c->fd_ >= 0) continue;
        c->holdsSlot_ = true;
        ++connecting_;
        c->BeginConnect();
    }
}

void Simulator::Emit(const Controller& controller, Direction direction, int code,
                     std::string_view frame) {
    if (hook_) hook_(controller, direction, code, frame);
}

}  // namespace zanth::sim
