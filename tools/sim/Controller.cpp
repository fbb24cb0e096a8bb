#include "tools/sim/Controller.h"

#include <sys/socket.h>
#include <unistd.h>

#include "protocol/Codes.h"
#include "tools/sim/Simulator.h"
#include "tools/sim/families/Clock.h"
#include "tools/sim/families/Upload.h"

namespace zanth::sim {
namespace {

// The host's acknowledgement of each unsolicited message; 0 where none comes.
int AckFor(int code) {
    switch (code) {
        case ZANTH_EVENT_MESSAGE:
        case ZANTH_ALARM_MESSAGE:
        case ZANTH_MESSAGE_BUNDLE:
            return ZANTH_MESSAGE_RSP;
        case ZANTH_HEART_BEAT:
            return ZANTH_HEART_BEAT_RSP;
        case ZANTH_CHECK_CARD:
            return ZANTH_CHECK_CARD_RSP;
        case ZANTH_HERE_I_AM:
            return ZANTH_HERE_I_AM_RSP;
        case ZANTH_REPORT_PIN:
            return ZANTH_REPORT_PIN_RSP;
        case ZANTH_SMART_CARD_DATA:
            return ZANTH_SMART_CARD_DATA_RSP;
        case ZANTH_KEY_PAD_DATA:
            return ZANTH_KEY_PAD_DATA_RSP;
        case ZANTH_COMMAND_KEY_DATA:
            return ZANTH_COMMAND_KEY_DATA_RSP;
        default:
            return 0;
    }
}

uint64_t Lookup(const std::map<int, uint64_t>& map, int code) {
    auto it = map.find(code);
    return it == map.end() ? 0 : it->second;
}

}  // namespace

const char* LinkStateName(LinkState state) {
    switch (state) {
        case LinkState::Stopped:
            return "stopped";
        case LinkState::Waiting:
            return "waiting";
        case LinkState::Connecting:
            return "connecting";
        case LinkState::Identifying:
            return "identifying";
        case LinkState::Identified:
            return "identified";
        case LinkState::Listening:
            return "listening";
        case LinkState::AwaitingContact:
            return "awaiting contact";
        case LinkState::Rebooting:
            return "rebooting";
    }
    return "?";
}

uint64_t ControllerStats::Acks(int code) const {
    return Lookup(acks, code);
}
uint64_t ControllerStats::Sent(int code) const {
    return Lookup(sent, code);
}
uint64_t ControllerStats::Commands(int code) const {
    return Lookup(commandCounts, code);
}

Controller::Controller(Simulator& sim, size_t index, ControllerConfig config,
                       const sockaddr_in& hostAddress, int listenFd, int listenPort)
    : sim_(sim),
      index_(index),
      config_(std::move(config)),
      hostAddress_(hostAddress),
      listenPort_(listenPort),
      listenFd_(listenFd),
      schedule_(config_.schedule),
      families_(MakeFamilies(config_)) {}

Controller::~Controller() {
    if (fd_ >= 0) ::close(fd_);
    if (listenFd_ >= 0) ::close(listenFd_);
}

void Controller::Observe(const std::function<void(ControllerStats&)>& change) {
    {
        std::lock_guard<std::mutex> lock(sim_.stateMutex_);
        change(stats_);
    }
    sim_.changed_.notify_all();
}

// ---------------------------------------------------------------------------------------------
// Any thread

ControllerStats Controller::Stats() const {
    std::lock_guard<std::mutex> lock(sim_.stateMutex_);
    return stats_;
}

LinkState Controller::State() const {
    std::lock_guard<std::mutex> lock(sim_.stateMutex_);
    return stats_.state;
}

bool Controller::Identified() const {
    std::lock_guard<std::mutex> lock(sim_.stateMutex_);
    return stats_.identified;
}

bool Controller::WaitUntil(const std::function<bool(const ControllerStats&)>& condition,
                           std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(sim_.stateMutex_);
    return sim_.changed_.wait_for(lock, timeout, [&] { return condition(stats_); });
}

bool Controller::WaitIdentified(std::chrono::milliseconds timeout) const {
    return WaitUntil([](const ControllerStats& s) { return s.identified; }, timeout);
}

bool Controller::WaitAcks(int code, uint64_t count, std::chrono::milliseconds timeout) const {
    return WaitUntil([&](const ControllerStats& s) { return s.Acks(code) >= count; }, timeout);
}

bool Controller::WaitCommands(int code, uint64_t count, std::chrono::milliseconds timeout) const {
    return WaitUntil([&](const ControllerStats& s) { return s.Commands(code) >= count; }, timeout);
}

void Controller::Post(std::function<void(Controller&)> task) {
    sim_.Post(this, std::move(task));
}

MessageRecord Controller::MakeRecord(int code, int door, std::string_view description,
                                     int eventClass, int priority) {
    MessageRecord r;
    r.code = code;
    r.mac = Mac();
    // 1 to 99999, then round again, as the host's upload by message ID expects.
    uint32_t n = nextMsgId_.fetch_add(1);
    r.msgId = (n - 1) % kMaxMessageId + 1;
    // Stamped by the controller's own clock, which the host may have set.
    r.time = Family<ControllerClock>().Now();
    r.eventClass = eventClass;
    r.priority = priority;
    r.door = door;
    r.description = std::string(description);
    return r;
}

std::string Controller::SendEvent(int door, std::string_view description, int eventClass,
                                  int priority) {
    MessageRecord r = MakeRecord(ZANTH_EVENT_MESSAGE, door, description, eventClass, priority);
    std::string text = MessageText(r);
    Post([r = std::move(r), text](Controller& c) {
        c.Enqueue({ZANTH_EVENT_MESSAGE, text, ZANTH_MESSAGE_RSP, false, r});
    });
    return text;
}

std::string Controller::SendAlarm(int door, std::string_view description, int eventClass,
                                  int priority) {
    MessageRecord r = MakeRecord(ZANTH_ALARM_MESSAGE, door, description, eventClass, priority);
    std::string text = MessageText(r);
    Post([r = std::move(r), text](Controller& c) {
        c.Enqueue({ZANTH_ALARM_MESSAGE, text, ZANTH_MESSAGE_RSP, false, r});
    });
    return text;
}

std::string Controller::SendBundle(const std::vector<BundleEntry>& entries) {
    std::string payload = BundlePayload(entries);
    SendFrame(ZANTH_MESSAGE_BUNDLE, payload, ZANTH_MESSAGE_RSP);
    return payload;
}

uint32_t Controller::StoreMessages(size_t count) {
    struct Kind {
        int code;
        const char* description;
        int eventClass;
        int priority;
    };
    static constexpr Kind kKinds[] = {
        {ZANTH_EVENT_MESSAGE, "Access granted", 1, 3},
        {ZANTH_EVENT_MESSAGE, "Access denied: unknown card", 1, 2},
        {ZANTH_EVENT_MESSAGE, "Request to exit", 1, 4},
        {ZANTH_ALARM_MESSAGE, "Door forced open", 2, 1},
        {ZANTH_EVENT_MESSAGE, "Door closed", 1, 4},
    };
    MessageStore& store = Family<MessageStore>();
    uint32_t first = 0;
    for (size_t i = 0; i < count; ++i) {
        const Kind& k = kKinds[i % (sizeof kKinds / sizeof kKinds[0])];
        MessageRecord r = MakeRecord(k.code, 1 + static_cast<int>(i % 4), k.description,
                                     k.eventClass, k.priority);
        if (i == 0) first = r.msgId;
        store.Add(r);
    }
    return first;
}

std::string Controller::SendHeartbeat() {
    std::string payload = HeartbeatPayload(Mac(), Family<ControllerClock>().Now());
    SendFrame(ZANTH_HEART_BEAT, payload, ZANTH_HEART_BEAT_RSP);
    return payload;
}

std::string Controller::SendLookup(int door, uint32_t card, int facility) {
    std::string payload = LookupPayload(Mac(), door, card, facility);
    Post([payload, door, card](Controller& c) {
        c.pendingLookups_.insert({door, card});
        c.Enqueue({ZANTH_CHECK_CARD, payload, ZANTH_CHECK_CARD_RSP, false, std::nullopt});
    });
    return payload;
}

std::string Controller::SendPin(int door, std::string_view pin) {
    std::string payload = PinReportPayload(Mac(), door, pin);
    SendFrame(ZANTH_REPORT_PIN, payload, ZANTH_REPORT_PIN_RSP);
    return payload;
}

std::string Controller::SendPostAccess(int door, uint32_t card, bool granted) {
    std::string payload = PostAccessPayload(Mac(), door, card, granted);
    SendFrame(ZANTH_POST_ACCESS_MSG_TO_HOST, payload, 0);
    return payload;
}

std::string Controller::SendSmartCard(int door, std::string_view hexData) {
    std::string payload = SmartCardPayload(Mac(), door, hexData);
    SendFrame(ZANTH_SMART_CARD_DATA, payload, ZANTH_SMART_CARD_DATA_RSP);
    return payload;
}

std::string Controller::SendKeyPad(int door, std::string_view keys) {
    std::string payload = KeyPadPayload(Mac(), door, keys);
    SendFrame(ZANTH_KEY_PAD_DATA, payload, ZANTH_KEY_PAD_DATA_RSP);
    return payload;
}

std::string Controller::SendCommandKey(int door, std::string_view key) {
    std::string payload = CommandKeyPayload(Mac(), door, key);
    SendFrame(ZANTH_COMMAND_KEY_DATA, payload, ZANTH_COMMAND_KEY_DATA_RSP);
    return payload;
}

std::string Controller::SendHereIAm() {
    std::string payload = HereIAmPayload(Mac(), config_.model, config_.firmware);
    SendFrame(ZANTH_HERE_I_AM, payload, ZANTH_HERE_I_AM_RSP);
    return payload;
}

void Controller::SendFrame(int code, std::string payload, std::optional<int> ack) {
    int expectedAck = ack ? *ack : AckFor(code);
    Post([code, payload = std::move(payload), expectedAck](Controller& c) {
        c.Enqueue({code, payload, expectedAck, false, std::nullopt});
    });
}

void Controller::SetSchedule(const Schedule& schedule) {
    Post([schedule](Controller& c) { c.ApplySchedule(schedule); });
}

void Controller::SetFault(int code, Fault fault) {
    std::lock_guard<std::mutex> lock(faultsMutex_);
    faults_[code] = std::move(fault);
}

void Controller::ClearFault(int code) {
    std::lock_guard<std::mutex> lock(faultsMutex_);
    faults_.erase(code);
}

void Controller::ClearFaults() {
    std::lock_guard<std::mutex> lock(faultsMutex_);
    faults_.clear();
}

void Controller::Reset() {
    Post([](Controller& c) {
        if (c.fd_ < 0) return;
        // No linger: close sends a reset instead of the end of the stream.
        linger off{1, 0};
        ::setsockopt(c.fd_, SOL_SOCKET, SO_LINGER, &off, sizeof off);
        c.resetting_ = true;
        c.CloseLink(DropReason::Requested);
    });
}

void Controller::Drop() {
    Post([](Controller& c) {
        if (c.fd_ >= 0) c.CloseLink(DropReason::Requested);
    });
}

}  // namespace zanth::sim
