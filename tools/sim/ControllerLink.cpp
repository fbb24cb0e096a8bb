// The controller's link: connecting, identifying, the schedules, reading and writing frames,
// and the end of a link with what follows it.

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "protocol/Codes.h"
#include "tools/sim/Controller.h"
#include "tools/sim/Simulator.h"
#include "tools/sim/families/Clock.h"
#include "tools/sim/families/Upload.h"

namespace zanth::sim {
namespace {

// What the timed event schedule reports, round and round.
struct ScheduledKind {
    const char* description;
    int eventClass;
    int priority;
};
constexpr ScheduledKind kScheduled[] = {
    {"Access granted", 1, 3},  {"Access denied: unknown card", 1, 2},
    {"Request to exit", 1, 4}, {"Door held open", 2, 2},
    {"Door closed", 1, 4},     {"Access granted", 1, 3},
};

}  // namespace

void Controller::SetState(LinkState state) {
    state_ = state;
    bool identified = state == LinkState::Identified;
    bool encrypted = encrypted_;
    Observe([&](ControllerStats& s) {
        s.state = state;
        s.identified = identified;
        s.encrypted = encrypted;
    });
}

void Controller::Activate() {
    if (config_.listen) {
        if (listenFd_ >= 0) sim_.Watch(listenFd_, this, true, false);
        SetState(LinkState::Listening);
        return;
    }
    SetState(LinkState::Waiting);
    sim_.RequestConnect(this);
}

void Controller::ArmTimer(TimerKind kind, int delayMs, int arg) {
    sim_.ArmTimer(this, static_cast<int>(kind), timerGeneration_[static_cast<int>(kind)], delayMs,
                  arg);
}

void Controller::CancelTimer(TimerKind kind) {
    ++timerGeneration_[static_cast<int>(kind)];
}

void Controller::OnTimer(TimerKind kind, int arg) {
    switch (kind) {
        case TimerKind::Connect:
            if (state_ == LinkState::Waiting) sim_.RequestConnect(this);
            break;
        case TimerKind::ConnectTimeout:
            if (state_ == LinkState::Connecting) CloseLink(DropReason::Timeout);
            break;
        case TimerKind::IdentifyTimeout:
            if (state_ == LinkState::Identifying) CloseLink(DropReason::Timeout);
            break;
        case TimerKind::Heartbeat:
            if (state_ != LinkState::Identified || schedule_.heartbeatMs <= 0) break;
            Enqueue({ZANTH_HEART_BEAT, HeartbeatPayload(Mac(), Family<ControllerClock>().Now()),
                     ZANTH_HEART_BEAT_RSP, false, std::nullopt});
            ArmTimer(TimerKind::Heartbeat, schedule_.heartbeatMs);
            break;
        case TimerKind::Event:
            if (state_ != LinkState::Identified || schedule_.eventIntervalMs <= 0) break;
            SendScheduledEvent(false);
            ArmTimer(TimerKind::Event, schedule_.eventIntervalMs);
            break;
        case TimerKind::PinReport:
            if (state_ != LinkState::Identified) break;
            Enqueue({ZANTH_REPORT_PIN, PinReportPayload(Mac(), arg, config_.pin),
                     ZANTH_REPORT_PIN_RSP, false, std::nullopt});
            break;
        case TimerKind::Reboot:
            if (state_ != LinkState::Rebooting) break;
            if (config_.listen) {
                if (ReopenListener()) {
                    SetState(LinkState::Listening);
                } else {
                    ArmTimer(TimerKind::Reboot, std::max(config_.reconnectMinMs, 50));
                }
            } else {
                SetState(LinkState::Waiting);
                sim_.RequestConnect(this);
            }
            break;
        case TimerKind::DelayedReply:
            SendDelayedReplies(arg);
            break;
        case TimerKind::Count:
            break;
    }
}

void Controller::BeginConnect() {
    Observe([](ControllerStats& s) { ++s.connectAttempts; });
    fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd_ < 0) {
        CloseLink(DropReason::Error);
        return;
    }
    int on = 1;
    ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    SetState(LinkState::Connecting);
    int rc = ::connect(fd_, reinterpret_cast<const sockaddr*>(&hostAddress_), sizeof hostAddress_);
    if (rc != 0 && errno != EINPROGRESS) {
        CloseLink(DropReason::Error);
        return;
    }
    wantWrite_ = true;
    sim_.Watch(fd_, this, false, true);
    ArmTimer(TimerKind::ConnectTimeout, config_.connectTimeoutMs);
}

void Controller::FinishConnect() {
    int error = 0;
    socklen_t length = sizeof error;
    if (::getsockopt(fd_, SOL_SOCKET, SO_ERROR, &error, &length) != 0 || error != 0) {
        CloseLink(DropReason::Error);
        return;
    }
    CancelTimer(TimerKind::ConnectTimeout);
    TapOpen(true);
    SendIdentification();
}

void Controller::SendIdentification() {
    bool encrypt = config_.seed.has_value();
    int code = encrypt ? ZANTH_IDENTIFY_ENCRYPTED_CONTROLLER : ZANTH_IDENTIFY_CONTROLLER;
    std::string frame = ClearFrame(code, IdentifyPayload(Mac(), config_.firmware));
    // The identification itself travels in clear; every frame after it, the 70 included, is
    // enciphered with the key both ends derive from it.
    out_ += frame;
    TapData(true, frame);
    if (encrypt) {
        if (!sim_.codec_.DeriveKey(frame, *config_.seed, key_)) {
            CloseLink(DropReason::Error);
            return;
        }
        encrypted_ = true;
    }
    SetState(LinkState::Identifying);
    Observe([code](ControllerStats& s) { ++s.sent[code]; });
    sim_.Emit(*this, Direction::ToHost, code, frame);
    ArmTimer(TimerKind::IdentifyTimeout, config_.identifyTimeoutMs);
    Flush();
}

void Controller::OnIdentified() {
    CancelTimer(TimerKind::IdentifyTimeout);
    if (holdsSlot_) sim_.ReleaseSlot(this);
    backoffMs_ = 0;
    state_ = LinkState::Identified;
    bool encrypted = encrypted_;
    Observe([&](ControllerStats& s) {
        ++s.identifications;
        ++sim_.identifiedCount_;
        s.state = LinkState::Identified;
        s.identified = true;
        s.encrypted = encrypted;
    });
    // Messages raised while the link was down go out now, oldest first.
    while (!held_.empty()) {
        Outgoing message = std::move(held_.front());
        held_.pop_front();
        Transmit(message);
    }
    ArmSchedule();
}

void Controller::ArmSchedule() {
    if (schedule_.heartbeatMs > 0) ArmTimer(TimerKind::Heartbeat, schedule_.heartbeatMs);
    if (schedule_.eventIntervalMs > 0) ArmTimer(TimerKind::Event, schedule_.eventIntervalMs);
    if (schedule_.eventsFlatOut && !flatOutPending_) SendScheduledEvent(true);
}

void Controller::ApplySchedule(const Schedule& schedule) {
    schedule_ = schedule;
    CancelTimer(TimerKind::Heartbeat);
    CancelTimer(TimerKind::Event);
    if (state_ == LinkState::Identified) ArmSchedule();
}

void Controller::SendScheduledEvent(bool flatOut) {
    const ScheduledKind& kind =
        kScheduled[nextMsgId_.load() % (sizeof kScheduled / sizeof kScheduled[0])];
    MessageRecord r = MakeRecord(ZANTH_EVENT_MESSAGE, 1 + static_cast<int>(index_ % 4),
                                 kind.description, kind.eventClass, kind.priority);
    std::string text = MessageText(r);
    if (flatOut) flatOutPending_ = true;
    Enqueue({ZANTH_EVENT_MESSAGE, std::move(text), ZANTH_MESSAGE_RSP, flatOut, std::move(r)});
}

void Controller::CloseSocket() {
    if (fd_ >= 0) {
        sim_.Unwatch(fd_);
        ::close(fd_);
        fd_ = -1;
    }
    in_.clear();
    out_.clear();
    wantWrite_ = false;
    encrypted_ = false;
}

void Controller::CloseLink(DropReason reason) {
    bool wasIdentified = state_ == LinkState::Identified;
    bool wasConnecting = state_ == LinkState::Connecting || state_ == LinkState::Identifying;
    LinkState next = LinkState::Waiting;
    if (reason == DropReason::Stop) {
        next = LinkState::Stopped;
    } else if (reason == DropReason::Reboot) {
        next = LinkState::Rebooting;
    } else if (config_.listen) {
        next = LinkState::Listening;
    } else if (!config_.reconnect && wasIdentified) {
        next = LinkState::Stopped;
    }
    // A host that closed or broke the link ended it; anything else is the controller's doing.
    TapClose(reason != DropReason::PeerClosed && reason != DropReason::Error,
             reason == DropReason::Error || resetting_);
    // The record changes in one step, and before the socket closes: whoever sees the link end
    // sees why.
    state_ = next;
    Observe([&](ControllerStats& s) {
        if (wasIdentified) {
            if (reason != DropReason::Stop) ++s.linkDrops;
            if (sim_.identifiedCount_ > 0) --sim_.identifiedCount_;
        }
        if (wasConnecting && !wasIdentified && reason != DropReason::Stop) ++s.connectFailures;
        if (reason == DropReason::Terminated) ++s.terminations;
        if (reason == DropReason::Rejected) ++s.rejections;
        if (reason == DropReason::Protocol) ++s.protocolErrors;
        s.outstandingAcks = 0;
        s.state = next;
        s.identified = false;
        s.encrypted = false;
    });
    CloseSocket();
    if (holdsSlot_) sim_.ReleaseSlot(this);
    for (int k = 0; k < static_cast<int>(TimerKind::Count); ++k) {
        if (k != static_cast<int>(TimerKind::Reboot)) ++timerGeneration_[k];
    }
    expected_.clear();
    delayed_.clear();
    flatOutPending_ = false;
    pendingLookups_.clear();

    if (next == LinkState::Rebooting) {
        ArmTimer(TimerKind::Reboot, std::max(config_.rebootDelayMs, 0));
    } else if (next == LinkState::Waiting) {
        // A link that was up comes back quickly; repeated failures back off up to the maximum.
        backoffMs_ = backoffMs_ == 0 ? config_.reconnectMinMs
                                     : std::min(backoffMs_ * 2, config_.reconnectMaxMs);
        ArmTimer(TimerKind::Connect, backoffMs_);
    }
}

void Controller::Reboot() {
    if (config_.listen && listenFd_ >= 0) {
        // A rebooting controller takes no calls either.
        sim_.Unwatch(listenFd_);
        ::close(listenFd_);
        listenFd_ = -1;
    }
    CloseLink(DropReason::Reboot);
}

bool Controller::ReopenListener() {
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    int on = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(listenPort_.load()));
    ::inet_pton(AF_INET, config_.listenAddress.c_str(), &a.sin_addr);
    if (::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || ::listen(fd, 4) != 0) {
        ::close(fd);
        return false;
    }
    listenFd_ = fd;
    sim_.Watch(listenFd_, this, true, false);
    return true;
}

void Controller::OnListenerReady() {
    int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) return;
    if (fd_ >= 0 || state_ != LinkState::Listening) {
        // One host at a time: a second caller is turned away.
        ::close(fd);
        return;
    }
    int on = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    fd_ = fd;
    Observe([](ControllerStats& s) { ++s.connectAttempts; });
    TapOpen(false);
    sim_.Watch(fd_, this, false, false);
    SetState(LinkState::AwaitingContact);
}

// ---------------------------------------------------------------------------------------------
// Loop thread: socket input and output

void Controller::OnSocketEvent(uint32_t events) {
    if (fd_ < 0) return;
    if (state_ == LinkState::Connecting) {
        if (events & (EPOLLOUT | EPOLLERR | EPOLLHUP)) FinishConnect();
        return;
    }
    if (events & (EPOLLIN | EPOLLHUP | EPOLLERR)) OnReadable();
    if (fd_ >= 0 && (events & EPOLLOUT)) OnWritable();
}

void Controller::OnReadable() {
    char buffer[16384];
    // A few reads per wake-up keep one busy link from starving the others.
    for (int round = 0; round < 4 && fd_ >= 0; ++round) {
        ssize_t n = ::recv(fd_, buffer, sizeof buffer, 0);
        if (n > 0) {
            in_.append(buffer, static_cast<size_t>(n));
            std::string frame;
            std::string raw;
            for (;;) {
                // The codec takes the frame off the front; a tap needs the bytes as they came.
                if (tapped_) raw = in_;
                auto status = sim_.codec_.Decode(in_, encrypted_ ? key_ : nullptr, frame);
                if (status == WireCodec::Status::NeedMore) break;
                if (status == WireCodec::Status::Bad) {
                    TapData(false, raw);
                    CloseLink(DropReason::Protocol);
                    return;
                }
                if (tapped_) {
                    TapData(false, std::string_view(raw).substr(0, raw.size() - in_.size()));
                }
                HandleFrame(frame);
                if (fd_ < 0) return;
            }
            if (static_cast<size_t>(n) < sizeof buffer) break;
            continue;
        }
        if (n == 0) {
            CloseLink(DropReason::PeerClosed);
            return;
        }
        if (errno == EINTR) continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK) break;
        CloseLink(DropReason::Error);
        return;
    }
    Flush();
}

void Controller::OnWritable() {
    Flush();
}

void Controller::Flush() {
    while (fd_ >= 0 && !out_.empty()) {
        ssize_t n = ::send(fd_, out_.data(), out_.size(), MSG_NOSIGNAL);
        if (n > 0) {
            out_.erase(0, static_cast<size_t>(n));
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
        CloseLink(DropReason::Error);
        return;
    }
    if (fd_ < 0 || state_ == LinkState::Connecting) return;
    bool want = !out_.empty();
    if (want != wantWrite_) {
        wantWrite_ = want;
        sim_.Rewatch(fd_, this, want);
    }
}

void Controller::WriteFrame(int code, std::string_view payload) {
    if (fd_ < 0) return;
    size_t before = out_.size();
    if (!sim_.codec_.Encode(code, payload, encrypted_ ? key_ : nullptr, out_)) {
        CloseLink(DropReason::Error);
        return;
    }
    TapData(true, std::string_view(out_).substr(before));
    Observe([code](ControllerStats& s) { ++s.sent[code]; });
    if (sim_.hook_) sim_.Emit(*this, Direction::ToHost, code, ClearFrame(code, payload));
}

void Controller::Enqueue(Outgoing message) {
    if (state_ != LinkState::Identified) {
        if (held_.size() >= kMaxHeld) {
            held_.pop_front();
            Observe([](ControllerStats& s) { ++s.heldDropped; });
        }
        held_.push_back(std::move(message));
        return;
    }
    Transmit(message);
    Flush();
}

void Controller::Transmit(const Outgoing& message) {
    WriteFrame(message.code, message.payload);
    if (fd_ < 0) return;
    std::vector<uint32_t> delivers = message.delivers;
    if (message.record) {
        Family<MessageStore>().Add(*message.record);
        delivers.push_back(message.record->msgId);
    }
    if (message.expectedAck != 0) {
        expected_.push_back({message.expectedAck, message.flatOut, std::move(delivers)});
        Observe([](ControllerStats& s) { ++s.outstandingAcks; });
    }
}

// ---------------------------------------------------------------------------------------------
// Loop thread: the wire tap

void Controller::TapOpen(bool controllerDialled) {
    if (!sim_.wireTap_ || fd_ < 0) return;
    sockaddr_in local{};
    sockaddr_in peer{};
    socklen_t length = sizeof local;
    ::getsockname(fd_, reinterpret_cast<sockaddr*>(&local), &length);
    length = sizeof peer;
    ::getpeername(fd_, reinterpret_cast<sockaddr*>(&peer), &length);
    tapController_ = local;
    tapHost_ = peer;
    tapped_ = true;
    WireEvent e;
    e.kind = WireEvent::Kind::Open;
    e.direction = controllerDialled ? Direction::ToHost : Direction::FromHost;
    e.controllerEnd = tapController_;
    e.hostEnd = tapHost_;
    sim_.wireTap_(*this, e);
}

void Controller::TapData(bool toHost, std::string_view bytes) {
    if (!tapped_ || bytes.empty()) return;
    WireEvent e;
    e.kind = WireEvent::Kind::Data;
    e.direction = toHost ? Direction::ToHost : Direction::FromHost;
    e.bytes = bytes;
    e.controllerEnd = tapController_;
    e.hostEnd = tapHost_;
    sim_.wireTap_(*this, e);
}

void Controller::TapClose(bool byController, bool reset) {
    resetting_ = false;
    if (!tapped_) return;
    WireEvent e;
    e.kind = WireEvent::Kind::Close;
    e.direction = byController ? Direction::ToHost : Direction::FromHost;
    e.reset = reset;
    e.controllerEnd = tapController_;
    e.hostEnd = tapHost_;
    tapped_ = false;
    sim_.wireTap_(*this, e);
}

}  // namespace zanth::sim
