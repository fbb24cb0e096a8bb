#pragma once
// The doors' side of the gateway: one thread takes look-ups, PIN reports and door reports from
// the library's queues by polling them tightly (never the callbacks' one-second sleep), asks the
// decider, and answers each look-up with RecheckLookupCard's Rsp form on the call path (through
// the response router), so a slow controller holds up no other controller's answer. A look-up whose rules want a PIN gets a
// RequestPin, and the answer waits for the PIN report (or its time-out). Every look-up is
// journaled with its decision, where it came from and how long it took.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "gateway/Config.h"
#include "gateway/Decider.h"

namespace zanthd {

class CallPath;
class Library;
class Ingest;
class Metrics;
class PayloadCodec;

class DoorService {
  public:
    DoorService(const Config& config, Library& library, const PayloadCodec& codec,
                Decider& decider, CallPath& calls, Ingest& ingest, Metrics& metrics);
    ~DoorService();
    void Start();
    // Stops taking look-ups; those already taken are still answered (for up to `graceMs`).
    void Stop(int graceMs);

    const DoorConfig* DoorAt(const std::string& mac, int door) const;

  private:
    struct Open {
        uint64_t id = 0;
        DecisionRequest request;
        std::string raw;
        std::chrono::steady_clock::time_point taken;
        std::chrono::steady_clock::time_point deadline;
        bool waitingPin = false;
        DecisionAnswer answer;  // once decided (or the PIN asked for)
    };
    struct Answered {
        uint64_t id = 0;
        DecisionAnswer answer;
    };
    void Run();
    void TakeLookup(const std::string& raw);
    void TakePin(const std::string& raw);
    void TakeDoorReport(const std::string& raw);
    void Resolve(Open& open, const DecisionAnswer& answer);
    void SendDecision(Open& open, bool grant, const std::string& source, const std::string& reason);

    const Config& config_;
    Library& library_;
    const PayloadCodec& codec_;
    Decider& decider_;
    CallPath& calls_;
    Ingest& ingest_;
    Metrics& metrics_;
    std::map<std::pair<std::string, int>, const DoorConfig*> doors_;

    std::thread thread_;
    std::atomic<bool> taking_{true};
    std::atomic<bool> stop_{false};
    std::map<uint64_t, Open> open_;  // the service's thread only
    uint64_t nextId_ = 1;
    std::mutex answeredMutex_;
    std::deque<Answered> answered_;
};

}  // namespace zanthd
