#pragma once
// zanthd on a message bus (MQTT 3.1.1, libmosquitto): the journal published in journal order, at
// least once; commands taken from the bus through the same call path as the REST API; and, when
// the decisions are the bus's, door look-ups asked over it (MqttDecider).
//
// Topics, under the prefix (zanth/<site> by default):
//   <mac>/event, alarm, lookup, door, pin, decision, audit   the journal's records, by kind
//   <mac>/status                  connect and disconnect, retained: a controller's last word
//   site/<kind>                   the journal's records that name no controller (audit, ...)
//   gateway/status                {"status":"online"}, retained; "offline" is the gateway's will
//   <mac>/call/<export>           requests to the gateway (MqttRequest.h); gateway/call/<export>
//                                 for the local exports
//   reply/...                     the answers, on the topic each request names
//   gateway/errors                refusals of requests that name no usable reply topic
//   <mac>/decide                  a look-up asked of the site's decider (mode "mqtt"), answered
//                                 on gateway/decision with {"id", "grant", "reason"}
//
// Publishing: one thread owns the link. It reads the journal on a connection of its own from the
// first record the broker hasn't acknowledged, keeps up to `window` records in flight (QoS 1 or
// 2), and moves the journal's published mark over the records whose PUBACK is in, in order, every
// `mark_interval_ms`. A link that breaks is made anew (a fresh client, clean session): whatever
// was in flight goes out again from the mark, so a record may reach a subscriber twice but is
// never skipped; every message carries its journal id for that. While the broker is away the
// journal keeps taking records (retention never drops one beyond the mark) and /metrics shows
// the backlog. Requests, replies and decisions go out at once from any thread, ahead of the
// journal's backlog.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <shared_mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "gateway/Config.h"
#include "gateway/Journal.h"
#include "gateway/MqttRequest.h"

struct mosquitto;
struct mosquitto_message;

namespace zanthd {

class CallPath;
class Metrics;
class PayloadCodec;
struct CallAnswer;

// The topic of a journal record and whether it is retained.
std::string RecordTopic(const std::string& prefix, const Record& record, bool* retained);
// A journal record as the bus carries it: id, mac, time, time_ms, type, raw, fields and, where
// present, decision, source, latency_ms and actor.
std::string RecordPayload(const Record& record);
// A command's answer as a reply: {id, status, result, name, outputs, ...} or {id, status, error}.
nlohmann::json ReplyBody(const std::string& id, const CallAnswer& answer, const PayloadCodec& codec);

class MqttBus {
  public:
    MqttBus(const Config& config, Journal& journal, CallPath& calls, const PayloadCodec& codec, Metrics& metrics);
    ~MqttBus();

    // Takes the answers to the decisions asked over the bus; before Start.
    void OnDecision(std::function<void(const std::string& payload)> handler);
    // Starts the link's thread; it keeps trying to reach the broker until Stop.
    bool Start(std::string* error);
    // Requests from now on are refused as "stopping".
    void StopCommands();
    // Says offline, stores the published mark and leaves the broker (within `graceMs`).
    void Stop(int graceMs);

    // Publishes now, ahead of the journal; false when the broker isn't connected.
    bool PublishNow(const std::string& topic, const std::string& payload, bool retain = false);

    bool Connected() const { return connected_.load(); }
    // The journal's last id the broker has acknowledged, in order.
    int64_t AckedUpto() const { return ackedUpto_.load(); }
    // Records journaled and not yet acknowledged by the broker.
    int64_t Backlog() const;
    const std::string& Prefix() const { return prefix_; }
    const std::string& DecisionTopic() const { return decisionTopic_; }

  private:
    struct InFlight {
        int mid = 0;
        int64_t id = 0;
        bool acked = false;
    };
    void Run();
    bool Connect();
    void Session();
    void Teardown();
    void FillWindow();
    void StoreMark(bool force);
    void Farewell();
    void Wait(std::chrono::milliseconds ms);

    // libmosquitto's callbacks, on the link's thread.
    static void OnConnectCb(mosquitto*, void* self, int rc);
    static void OnDisconnectCb(mosquitto*, void* self, int rc);
    static void OnPublishCb(mosquitto*, void* self, int mid);
    static void OnMessageCb(mosquitto*, void* self, const mosquitto_message* message);
    void HandleRequest(const std::string& topic, const std::string& payload, bool retained);
    void Answer(const std::string& id, const std::string& replyTo, const CallAnswer& answer);
    void Refuse(const BusRefusal& refusal, const std::string& topic);

    const Config& config_;
    const MqttConfig& mc_;
    Journal& journal_;
    CallPath& calls_;
    const PayloadCodec& codec_;
    Metrics& metrics_;
    const std::string prefix_;
    const std::string statusTopic_, errorsTopic_, decisionTopic_;
    BusRequestOptions requestOptions_;
    RequestMemory memory_;
    std::function<void(const std::string&)> decisionHandler_;

    std::thread thread_;
    std::atomic<bool> stop_{false};
    std::atomic<bool> takingCommands_{true};
    std::mutex waitMutex_;
    std::condition_variable waitCv_;

    // The client: set and cleared by the link's thread under the unique lock; other threads
    // publish under the shared lock.
    mutable std::shared_mutex clientMutex_;
    mosquitto* mosq_ = nullptr;
    std::atomic<bool> connected_{false};
    bool refused_ = false;        // the broker refused the connection (the link's thread)
    int lastConnectResult_ = -1;  // to log a change of fortune once
    int farewellMid_ = -1;
    std::atomic<bool> farewellAcked_{false};

    // The journal's side, on the link's thread only.
    JournalReader reader_;
    std::deque<Record> buffer_;
    std::deque<InFlight> inFlight_;
    std::unordered_map<int, size_t> midIndex_;  // mid -> place in inFlight_ counted from `firstIndex_`
    size_t firstIndex_ = 0;
    int64_t lastSent_ = 0;
    std::atomic<int64_t> ackedUpto_{0};
    int64_t markStored_ = 0;
    std::chrono::steady_clock::time_point lastMark_;
};

}  // namespace zanthd
