#pragma once
// Many simulated controllers on one thread: an epoll loop over non-blocking sockets, one timer
// heap and a task queue through which other threads reach the controllers. A controller costs
// a few hundred bytes and its socket, so a thousand of them are cheap.
//
//   Simulator sim;
//   auto& c = sim.Add({.mac = "AA:BB:CC", .port = port});
//   sim.Start();
//   c.WaitIdentified(5s);
//   c.SendEvent(2, "Door held open");
//   c.WaitAcks(67, 1, 5s);

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <queue>
#include <string_view>
#include <thread>
#include <vector>

#include "tools/sim/Controller.h"
#include "tools/sim/WireCodec.h"

namespace zanth::sim {

struct SimulatorOptions {
    // Connections under way (connecting or identifying) at one time. The host takes one
    // connection per ~100 ms and queues twenty, so a larger crowd only overflows its backlog.
    int maxConnecting = 16;
};

enum class Direction { FromHost, ToHost };

// Called on the loop thread for every whole frame (clear text, also on an encrypted link).
// Set it before Start; it must not call back into the simulator's waits.
using FrameHook =
    std::function<void(const Controller&, Direction, int code, std::string_view frame)>;

// A link's traffic as it goes on the wire, enciphered on an encrypted link: for captures
// (tools/sim/Capture.h). Open comes when the TCP connection is up, Data with every whole frame
// sent or received (or, from a host whose stream can't be read, the bytes the link was dropped
// on), Close when the socket closes.
struct WireEvent {
    enum class Kind { Open, Data, Close };
    Kind kind = Kind::Data;
    // Data: the way the bytes went. Open and Close: ToHost when the controller dialled or
    // ended the link, FromHost when the host did.
    Direction direction = Direction::ToHost;
    std::string_view bytes;
    bool reset = false;  // Close: a reset rather than an orderly end
    sockaddr_in controllerEnd{};
    sockaddr_in hostEnd{};
};
using WireTap = std::function<void(const Controller&, const WireEvent&)>;

struct SimulatorTotals {
    size_t controllers = 0;
    size_t identified = 0;
    uint64_t identifications = 0;
    uint64_t reconnects = 0;
    uint64_t linkDrops = 0;
    uint64_t connectFailures = 0;
    uint64_t protocolErrors = 0;
    std::map<int, uint64_t> sent;
    std::map<int, uint64_t> acks;
    std::map<int, uint64_t> commands;
};

class Simulator {
  public:
    explicit Simulator(SimulatorOptions options = {});
    ~Simulator();
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    // Adds a controller; before Start or while running. Listen mode binds its port here, so
    // ListenPort is known at once. Throws std::runtime_error for a bad MAC, host or port.
    Controller& Add(ControllerConfig config);
    // Starts the loop thread; a simulator runs once.
    void Start();
    // Closes every link and ends the loop thread. Safe to call twice.
    void Stop();
    bool Running() const { return thread_.joinable(); }

    size_t Count() const;
    Controller& At(size_t index);
    Controller* Find(std::string_view mac);

    void SetFrameHook(FrameHook hook) { hook_ = std::move(hook); }
    // Called on the loop thread; set it before Start.
    void SetWireTap(WireTap tap) { wireTap_ = std::move(tap); }

    SimulatorTotals Totals() const;
    bool WaitAllIdentified(std::chrono::milliseconds timeout) const;
    size_t IdentifiedCount() const;

  private:
    friend class Controller;

    struct Timer {
        std::chrono::steady_clock::time_point when;
        uint64_t order;
        Controller* controller;
        int kind;
        uint32_t generation;
        int arg;
        bool operator>(const Timer& other) const {
            return when != other.when ? when > other.when : order > other.order;
        }
    };

    void Run();
    void RunTasks();
    void RunDueTimers();
    int NextTimeoutMs();
    void Wake();
    void Post(Controller* controller, std::function<void(Controller&)> task);

    // Loop-thread services for the controllers.
    void Watch(int fd, Controller* controller, bool listener, bool wantWrite);
    void Rewatch(int fd, Controller* controller, bool wantWrite);
    void Unwatch(int fd);
    void ArmTimer(Controller* controller, int kind, uint32_t generation, int delayMs, int arg);
    void RequestConnect(Controller* controller);
    void ReleaseSlot(Controller* controller);
    void PumpConnects();
    void Emit(const Controller& controller, Direction direction, int code, std::string_view frame);

    const SimulatorOptions options_;
    int epoll_ = -1;
    int wakeFd_ = -1;
    std::thread thread_;
    bool stopping_ = false;  // loop thread
    WireCodec codec_;        // loop thread
    FrameHook hook_;
    WireTap wireTap_;

    mutable std::mutex controllersMutex_;
    std::vector<std::unique_ptr<Controller>> controllers_;
    std::atomic<size_t> count_{0};

    std::mutex tasksMutex_;
    std::vector<std::pair<Controller*, std::function<void(Controller&)>>> tasks_;
    bool stopRequested_ = false;

    // Loop thread.
    std::priority_queue<Timer, std::vector<Timer>, std::greater<Timer>> timers_;
    uint64_t timerOrder_ = 0;
    std::deque<Controller*> connectQueue_;
    int connecting_ = 0;
    std::vector<Controller*> acceptReady_;

    // Every controller's stats and the simulator's count live under this lock.
    mutable std::mutex stateMutex_;
    mutable std::condition_variable changed_;
    size_t identifiedCount_ = 0;
};

}  // namespace zanth::sim
