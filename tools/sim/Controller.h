#pragma once
// One simulated controller. Its link lives on the simulator's loop thread; the public methods
// are for any other thread: the Send... calls hand a message to the loop and return at once,
// the reads take a snapshot under the simulator's lock, and the waits block on its condition
// variable with a deadline.
//
// What it does on the wire: connects to the host (or, in listen mode, waits to be called and
// identifies on 45), identifies with 1042 or, with a seed, 1043 and an encrypted link from then
// on, sends its unsolicited traffic, answers the host's commands in arrival order and counts
// every acknowledgement. A dropped link is connected again with a growing back-off. Commands
// beyond the link's own go to the controller's command families (families/Family.h), and a
// test can set a fault on any code (Fault.h).

#include <netinet/in.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tools/sim/Fault.h"
#include "tools/sim/Payloads.h"
#include "tools/sim/WireCodec.h"
#include "tools/sim/families/Family.h"

namespace zanth::sim {

class Simulator;

enum class LinkState {
    Stopped,          // not running, or a dropped link that is not to be connected again
    Waiting,          // waiting for a connection slot or for the back-off to pass
    Connecting,       // TCP connect under way
    Identifying,      // identification sent, acceptance (70) awaited
    Identified,       // accepted: traffic flows
    Listening,        // listen mode: waiting for the host to call
    AwaitingContact,  // listen mode: the host connected, its 45 awaited
    Rebooting,        // off the line for the reboot delay
};
const char* LinkStateName(LinkState state);

struct Schedule {
    int heartbeatMs = 0;      // 0: no heartbeats
    int eventIntervalMs = 0;  // 0: no timed events
    // The next event goes out as soon as the former one's 67 is in: as fast as the host allows.
    bool eventsFlatOut = false;
};

struct ControllerConfig {
    std::string mac;                  // "XX:XX:XX"
    std::optional<std::string> seed;  // set: identify with 1043 and encrypt the link
    bool listen = false;              // wait for the host's call instead of connecting
    std::string host = "127.0.0.1";   // connect mode
    int port = 0;
    std::string listenAddress = "127.0.0.1";  // listen mode; port 0 takes any free one
    int listenPort = 0;
    Schedule schedule;
    // Connect again after an identified link ended. Failed attempts to get there are always
    // retried, with the back-off below.
    bool reconnect = true;
    int reconnectMinMs = 100;  // back-off after a failure, doubled up to the maximum
    int reconnectMaxMs = 3000;
    int rebootDelayMs = 1000;  // how long a reboot keeps the controller off the line
    int connectTimeoutMs = 5000;
    // A host that replaces a former link of this MAC takes five seconds before its 70.
    int identifyTimeoutMs = 15000;
    int pinDelayMs = 200;      // from a PIN request to the PIN report
    std::string pin = "1234";  // what the keypad user types
    std::string model = "ZN-4000";
    std::string firmware = "4.21.7";
    // Codes this controller's firmware doesn't know: answered with 9910 like any unknown one.
    std::set<int> unsupportedCodes;
};

struct ReceivedCommand {
    int code = 0;
    std::string payload;
};

// What a test can observe of a controller.
struct ControllerStats {
    LinkState state = LinkState::Stopped;
    bool identified = false;
    bool encrypted = false;
    uint64_t connectAttempts = 0;
    uint64_t connectFailures = 0;
    uint64_t identifications = 0;           // acceptances (70) received
    uint64_t linkDrops = 0;                 // identified links that ended, other than by Stop
    uint64_t terminations = 0;              // 9990 received from the host
    uint64_t rejections = 0;                // 71 received
    uint64_t protocolErrors = 0;            // unreadable frames from the host (the link is dropped)
    uint64_t unexpectedAcks = 0;            // acknowledgements that matched nothing outstanding
    uint64_t outstandingAcks = 0;           // sent messages whose acknowledgement is still due
    uint64_t heldDropped = 0;               // messages dropped because too many waited for a link
    uint64_t faults = 0;                    // commands that met a fault set by SetFault
    std::map<int, uint64_t> sent;           // frames sent, by code
    std::map<int, uint64_t> acks;           // host acknowledgements received, by code
    std::deque<std::string> ackFrames;      // the latest acknowledgements, whole clear frames
    std::map<int, uint64_t> commandCounts;  // host commands received, by code
    std::vector<ReceivedCommand> commands;  // the latest host commands, in arrival order

    uint64_t Reconnects() const { return identifications > 0 ? identifications - 1 : 0; }
    uint64_t Acks(int code) const;
    uint64_t Sent(int code) const;
    uint64_t Commands(int code) const;
};

class Controller {
  public:
    static constexpr size_t kMaxRecordedCommands = 1024;
    static constexpr size_t kMaxRecordedAcks = 64;
    static constexpr size_t kMaxHeld = 4096;

    Controller(const Controller&) = delete;
    Controller& operator=(const Controller&) = delete;
    ~Controller();

    const std::string& Mac() const { return config_.mac; }
    const ControllerConfig& Config() const { return config_; }
    // Listen mode: the port it listens on (known from Simulator::Add on).
    int ListenPort() const { return listenPort_; }

    ControllerStats Stats() const;
    LinkState State() const;
    bool Identified() const;

    // Waits until `condition` holds for the stats, or the time passes.
    bool WaitUntil(const std::function<bool(const ControllerStats&)>& condition,
                   std::chrono::milliseconds timeout) const;
    bool WaitIdentified(std::chrono::milliseconds timeout) const;
    // Until `count` acknowledgements of `code` are in.
    bool WaitAcks(int code, uint64_t count, std::chrono::milliseconds timeout) const;
    // Until `count` commands of `code` have arrived.
    bool WaitCommands(int code, uint64_t count, std::chrono::milliseconds timeout) const;

    // Unsolicited traffic. Each returns the payload it sends; messages asked for before the
    // link is identified wait for it.
    std::string SendEvent(int door = 1, std::string_view description = "Access granted",
                          int eventClass = 1, int priority = 3);
    std::string SendAlarm(int door = 1, std::string_view description = "Door forced open",
                          int eventClass = 2, int priority = 1);
    std::string SendBundle(const std::vector<BundleEntry>& entries);
    // An event or alarm record with the next message ID and the time now, not yet sent.
    MessageRecord MakeRecord(int code, int door, std::string_view description, int eventClass,
                             int priority);
    // `count` events and alarms raised while no host listened: they go into the controller's
    // message log (families/Upload.h) unsent, for an upload to fetch. Returns the first one's
    // message ID.
    uint32_t StoreMessages(size_t count);
    std::string SendHeartbeat();
    // The look-up stays pending until the host's RecheckLookupCard answers it.
    std::string SendLookup(int door, uint32_t card, int facility = 0);
    std::string SendPin(int door, std::string_view pin);
    std::string SendPostAccess(int door, uint32_t card, bool granted);
    std::string SendSmartCard(int door, std::string_view hexData);
    std::string SendKeyPad(int door, std::string_view keys);
    std::string SendCommandKey(int door, std::string_view key);
    std::string SendHereIAm();
    // Any frame, as it stands. `expectedAck` is the code the host should answer with (0: none);
    // by default the usual acknowledgement of `code`.
    void SendFrame(int code, std::string payload, std::optional<int> expectedAck = std::nullopt);

    void SetSchedule(const Schedule& schedule);
    // Cuts the link as a power failure would; it comes back as the reconnect policy says.
    void Drop();
    // Cuts the link with a reset rather than an orderly close, as a crashed controller would.
    void Reset();

    // The controller's instance of a command family, for reading or changing its state from
    // any thread through the family's accessors: c.Family<CardDatabase>().Counts().
    template <class F>
    F& Family() {
        for (const auto& family : families_) {
            if (auto* wanted = dynamic_cast<F*>(family.get())) return *wanted;
        }
        throw std::logic_error("the controller has no such command family");
    }

    // Faults, by command code, from any thread; see Fault.h. A new fault for a code replaces
    // the one before.
    void SetFault(int code, Fault fault);
    void ClearFault(int code);
    void ClearFaults();

  private:
    friend class Simulator;
    friend class FamilyContext;

    enum class TimerKind {
        Connect,
        ConnectTimeout,
        IdentifyTimeout,
        Heartbeat,
        Event,
        PinReport,
        Reboot,
        DelayedReply,
        Count
    };
    enum class DropReason {
        PeerClosed,
        Error,
        Protocol,
        Terminated,
        Rejected,
        Reboot,
        Requested,
        Timeout,
        Stop
    };
    struct Outgoing {
        Outgoing(int code, std::string payload, int expectedAck, bool flatOut,
                 std::optional<MessageRecord> record, std::vector<uint32_t> delivers = {})
            : code(code),
              payload(std::move(payload)),
              expectedAck(expectedAck),
              flatOut(flatOut),
              record(std::move(record)),
              delivers(std::move(delivers)) {}
        int code = 0;
        std::string payload;
        int expectedAck = 0;
        bool flatOut = false;
        std::optional<MessageRecord> record;  // events and alarms go to the log when sent
        std::vector<uint32_t> delivers;       // an upload's messages, delivered by its ack
    };
    struct Expected {
        int code = 0;
        bool flatOut = false;
        std::vector<uint32_t> delivers;  // message IDs the acknowledgement delivers
    };

    Controller(Simulator& sim, size_t index, ControllerConfig config,
               const sockaddr_in& hostAddress, int listenFd, int listenPort);

    // Loop thread only.
    void Activate();
    void OnSocketEvent(uint32_t events);
    void OnListenerReady();
    void OnTimer(TimerKind kind, int arg);
    void BeginConnect();
    void FinishConnect();
    void SendIdentification();
    void OnReadable();
    void OnWritable();
    void HandleFrame(const std::string& frame);
    void HandleAck(int code, const std::string& frame);
    void HandleCommand(int code, std::string_view payload);
    // Carries the command out and answers it: the built-in cases, then the families.
    void Answer(int code, std::string_view payload);
    bool OfferToFamilies(int code, std::string_view payload);
    std::optional<Fault> TakeFault(int code);
    void ApplyFault(int code, std::string_view payload, const Fault& fault);
    void SendDelayedReplies(int id);
    void HandleRecheck(std::string_view payload);
    void HandlePinRequest(std::string_view payload);
    void OnIdentified();
    void Enqueue(Outgoing message);
    void Transmit(const Outgoing& message);
    void WriteFrame(int code, std::string_view payload);
    void Flush();
    // An answer to the host; captured instead of written while a fault reshapes the answers.
    void Reply(int code, std::string_view payload);
    void CloseLink(DropReason reason);
    void CloseSocket();
    void Reboot();
    bool ReopenListener();
    void ArmTimer(TimerKind kind, int delayMs, int arg = 0);
    void CancelTimer(TimerKind kind);
    void ArmSchedule();
    void SendScheduledEvent(bool flatOut);
    void ApplySchedule(const Schedule& schedule);
    void SetState(LinkState state);
    // The link's wire traffic for the simulator's tap (WireEvent in Simulator.h); each does
    // nothing while no tap is set.
    void TapOpen(bool controllerDialled);
    void TapData(bool toHost, std::string_view bytes);
    void TapClose(bool byController, bool reset);
    void Post(std::function<void(Controller&)> task);
    // Runs `change` on the stats under the simulator's lock and wakes the waiters.
    void Observe(const std::function<void(ControllerStats&)>& change);

    Simulator& sim_;
    const size_t index_;
    const ControllerConfig config_;
    const sockaddr_in hostAddress_;
    std::atomic<int> listenPort_{0};
    std::atomic<uint32_t> nextMsgId_{1};

    // Loop-thread state.
    int fd_ = -1;
    int listenFd_ = -1;
    LinkState state_ = LinkState::Stopped;
    bool encrypted_ = false;
    bool holdsSlot_ = false;  // counts against the simulator's connections in progress
    bool wantWrite_ = false;
    unsigned char key_[kKeySize] = {};
    std::string in_;
    std::string out_;
    // The ends of the link as the tap reports them, from its Open to its Close.
    bool tapped_ = false;
    bool resetting_ = false;  // Reset() is closing the link with a reset
    sockaddr_in tapController_{};
    sockaddr_in tapHost_{};
    Schedule schedule_;
    int backoffMs_ = 0;
    bool flatOutPending_ = false;
    std::deque<Outgoing> held_;
    std::deque<Expected> expected_;
    std::set<std::pair<int, uint32_t>> pendingLookups_;
    uint32_t timerGeneration_[static_cast<int>(TimerKind::Count)] = {};
    struct Answered {
        int code = 0;
        std::string payload;
    };
    std::vector<Answered>* capture_ = nullptr;
    std::map<int, std::vector<Answered>> delayed_;  // answers held back by a fault, by timer
    int nextDelayedId_ = 0;

    // Made once, at construction; each guards its own state.
    const std::vector<std::unique_ptr<sim::Family>> families_;

    mutable std::mutex faultsMutex_;
    std::map<int, Fault> faults_;

    // Guarded by the simulator's state lock.
    ControllerStats stats_;
};

}  // namespace zanth::sim
