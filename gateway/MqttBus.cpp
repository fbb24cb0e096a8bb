#include "gateway/MqttBus.h"

#include <mosquitto.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "gateway/CallPath.h"
#include "gateway/HttpJson.h"
#include "gateway/Log.h"
#include "gateway/Metrics.h"
#include "gateway/PayloadCodec.h"

namespace zanthd {

using nlohmann::json;

namespace {

// How long a link may go without the broker's CONNACK before it is given up and made anew.
constexpr auto kConnackWait = std::chrono::seconds(10);
// The link's thread looks at the journal this often when nothing else wakes it.
constexpr int kIdleLoopMs = 2;
constexpr size_t kPage = 512;

int64_t NowSeconds() { return NowMs() / 1000; }

}  // namespace

std::string RecordTopic(const std::string& prefix, const Record& r, bool* retained) {
    *retained = false;
    std::string mac = NormalizeMac(r.mac);
    std::string level = mac.empty() ? "site" : mac;
    if (!mac.empty() && (r.kind == "connect" || r.kind == "disconnect")) {
        *retained = true;
        return prefix + "/" + level + "/status";
    }
    std::string kind = r.kind.empty() ? "record" : r.kind;
    std::replace_if(kind.begin(), kind.end(), [](char c) { return c == '/' || c == '+' || c == '#'; }, '_');
    return prefix + "/" + level + "/" + kind;
}

std::string RecordPayload(const Record& r) {
    json j = {{"id", r.id},     {"mac", r.mac},   {"time", IsoTime(r.receivedMs)}, {"time_ms", r.receivedMs},
              {"type", r.kind}, {"raw", r.raw}};
    json fields = json::parse(r.fields, nullptr, false);
    j["fields"] = fields.is_discarded() || !fields.is_object() ? json::object() : fields;
    if (r.kind == "connect" || r.kind == "disconnect") j["connected"] = r.kind == "connect";
    if (!r.decision.empty()) j["decision"] = r.decision;
    if (!r.source.empty()) j["source"] = r.source;
    if (r.latencyMs >= 0) j["latency_ms"] = r.latencyMs;
    if (!r.actor.empty()) j["actor"] = r.actor;
    return Dump(j);
}

json ReplyBody(const std::string& id, const CallAnswer& a, const PayloadCodec& codec) {
    json body = a.body.is_object() ? a.body : json::object();
    body["id"] = id;
    body["status"] = a.status;
    if (a.kind == CallAnswer::Kind::kAnswered && !a.result.ok && a.result.result < 0) {
        ControllerResult c = codec.DescribeResult(a.result.result);
        if (!c.name.empty()) body["controller_result"] = c.name;
    }
    return body;
}

MqttBus::MqttBus(const Config& config, Journal& journal, CallPath& calls, const PayloadCodec& codec,
                 Metrics& metrics)
    : config_(config), mc_(config.mqtt), journal_(journal), calls_(calls), codec_(codec), metrics_(metrics),
      prefix_(config.mqtt.topicPrefix), statusTopic_(prefix_ + "/gateway/status"),
      errorsTopic_(prefix_ + "/gateway/errors"), decisionTopic_(prefix_ + "/gateway/decision"),
      // An id is remembered at least as long as a signed request can be replayed.
      memory_(10000, std::max<std::chrono::steady_clock::duration>(
                         std::chrono::minutes(10), std::chrono::seconds(2 * config.mqtt.hmacWindowS + 60))) {
    requestOptions_.prefix = prefix_;
    requestOptions_.hmacSecret = mc_.hmacSecret;
    requestOptions_.hmacWindowS = mc_.hmacWindowS;
    metrics_.Gauge("zanthd_mqtt_connected", "1 while the broker is connected, 0 while it isn't.",
                   [this] { return connected_.load() ? 1.0 : 0.0; });
    metrics_.Gauge("zanthd_mqtt_backlog_records",
                   "Journal records the broker has not acknowledged yet: what is left to publish.",
                   [this] { return static_cast<double>(Backlog()); });
    metrics_.Gauge("zanthd_mqtt_acked_upto", "The journal's last id that the broker has acknowledged, with every id before it.",
                   [this] { return static_cast<double>(ackedUpto_.load()); });
    metrics_.Help("zanthd_mqtt_published_total", "counter", "Journal records the broker has acknowledged.");
    metrics_.Help("zanthd_mqtt_connects_total", "counter", "Connections to the broker, by the broker's answer.");
    metrics_.Help("zanthd_mqtt_requests_total", "counter",
                  "Requests taken from the bus, by outcome: answered (by status), repeat, refused (by status).");
}

MqttBus::~MqttBus() {
    Stop(0);
    mosquitto_lib_cleanup();
}

void MqttBus::OnDecision(std::function<void(const std::string& payload)> handler) {
    decisionHandler_ = std::move(handler);
}

int64_t MqttBus::Backlog() const { return std::max<int64_t>(0, journal_.LastId() - ackedUpto_.load()); }

bool MqttBus::Start(std::string* error) {
    mosquitto_lib_init();
    if (!reader_.Open(journal_.Path(), error)) return false;
    ackedUpto_ = journal_.PublishedUpto();
    lastSent_ = ackedUpto_;
    markStored_ = ackedUpto_;
    lastMark_ = std::chrono::steady_clock::now();
    Log(Level::Info, "mqtt", "publishing to %s:%d under %s/ from journal id %lld%s", mc_.host.c_str(), mc_.port,
        prefix_.c_str(), static_cast<long long>(lastSent_ + 1),
        mc_.commands ? (mc_.hmacSecret.empty() ? ", taking commands" : ", taking signed commands") : "");
    thread_ = std::thread([this] { Run(); });
    return true;
}

void MqttBus::StopCommands() { takingCommands_ = false; }

void MqttBus::Stop(int graceMs) {
    if (!thread_.joinable()) return;
    (void)graceMs;  // the farewell bounds itself
    {
        std::lock_guard<std::mutex> lock(waitMutex_);
        stop_ = true;
    }
    waitCv_.notify_all();
    thread_.join();
    Log(Level::Info, "mqtt", "left the broker; published up to journal id %lld of %lld",
        static_cast<long long>(ackedUpto_.load()), static_cast<long long>(journal_.LastId()));
}

void MqttBus::Wait(std::chrono::milliseconds ms) {
    std::unique_lock<std::mutex> lock(waitMutex_);
    waitCv_.wait_for(lock, ms, [this] { return stop_.load(); });
}

bool MqttBus::PublishNow(const std::string& topic, const std::string& payload, bool retain) {
    std::shared_lock<std::shared_mutex> lock(clientMutex_);
    if (mosq_ == nullptr || !connected_) return false;
    int rc = mosquitto_publish(mosq_, nullptr, topic.c_str(), static_cast<int>(payload.size()), payload.data(),
                               mc_.qos, retain);
    return rc == MOSQ_ERR_SUCCESS;
}

void MqttBus::Run() {
    auto backoff = std::chrono::milliseconds(250);
    const auto longest = std::chrono::milliseconds(int64_t{mc_.reconnectMaxS} * 1000);
    while (!stop_) {
        bool wasConnected = false;
        if (Connect()) {
            Session();
            wasConnected = lastConnectResult_ == 0;
        }
        Teardown();
        if (stop_) break;
        if (wasConnected) backoff = std::chrono::milliseconds(250);
        Wait(backoff);
        backoff = std::min(backoff * 2, longest);
    }
}

bool MqttBus::Connect() {
    // The client is made and set up before other threads can see it, and outside the lock that
    // guards it: libmosquitto takes its own locks in there, and holds them while it calls the
    // callbacks, which take this one to publish.
    refused_ = false;
    farewellMid_ = -1;
    farewellAcked_ = false;
    mosquitto* m = mosquitto_new(mc_.clientId.c_str(), true, this);
    if (m == nullptr) {
        Log(Level::Error, "mqtt", "cannot make a client: %s", std::strerror(errno));
        return false;
    }
    mosquitto_threaded_set(m, true);
    mosquitto_int_option(m, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V311);
    mosquitto_int_option(m, MOSQ_OPT_TCP_NODELAY, 1);
    // The journal's window is counted here; replies and decisions are never held behind it.
    mosquitto_max_inflight_messages_set(m, 0);
    int rc = MOSQ_ERR_SUCCESS;
    if (!mc_.username.empty()) {
        rc = mosquitto_username_pw_set(m, mc_.username.c_str(), mc_.password.empty() ? nullptr : mc_.password.c_str());
    }
    if (rc == MOSQ_ERR_SUCCESS && mc_.Tls()) {
        rc = mosquitto_tls_set(m, mc_.tlsCa.c_str(), nullptr, mc_.tlsCert.empty() ? nullptr : mc_.tlsCert.c_str(),
                               mc_.tlsKey.empty() ? nullptr : mc_.tlsKey.c_str(), nullptr);
        if (rc == MOSQ_ERR_SUCCESS) rc = mosquitto_tls_opts_set(m, 1, nullptr, nullptr);
    }
    std::string offline = Dump({{"status", "offline"}, {"site", config_.site}});
    if (rc == MOSQ_ERR_SUCCESS) {
        rc = mosquitto_will_set(m, statusTopic_.c_str(), static_cast<int>(offline.size()), offline.data(), mc_.qos, true);
    }
    if (rc != MOSQ_ERR_SUCCESS) {
        Log(Level::Error, "mqtt", "cannot set the client up: %s", mosquitto_strerror(rc));
        mosquitto_destroy(m);
        return false;
    }
    mosquitto_connect_callback_set(m, &MqttBus::OnConnectCb);
    mosquitto_disconnect_callback_set(m, &MqttBus::OnDisconnectCb);
    mosquitto_publish_callback_set(m, &MqttBus::OnPublishCb);
    mosquitto_message_callback_set(m, &MqttBus::OnMessageCb);
    rc = mosquitto_connect_async(m, mc_.host.c_str(), mc_.port, mc_.keepaliveS);
    if (rc != MOSQ_ERR_SUCCESS) {
        int code = rc == MOSQ_ERR_ERRNO ? 1000 + errno : rc;
        if (code != lastConnectResult_) {
            Log(Level::Warn, "mqtt", "cannot reach the broker at %s:%d: %s (trying again)", mc_.host.c_str(), mc_.port,
                rc == MOSQ_ERR_ERRNO ? std::strerror(errno) : mosquitto_strerror(rc));
        }
        lastConnectResult_ = code;
        metrics_.Count("zanthd_mqtt_connects_total", Metrics::Label("result", "unreachable"));
        mosquitto_destroy(m);
        return false;
    }
    std::unique_lock<std::shared_mutex> lock(clientMutex_);
    mosq_ = m;
    return true;
}

void MqttBus::Session() {
    auto started = std::chrono::steady_clock::now();
    while (!stop_) {
        int rc = mosquitto_loop(mosq_, kIdleLoopMs, 1);
        if (rc != MOSQ_ERR_SUCCESS) {
            if (connected_ || lastConnectResult_ != 2000 + rc) {
                Log(Level::Warn, "mqtt", "the link to the broker at %s:%d ended: %s (trying again)", mc_.host.c_str(),
                    mc_.port, rc == MOSQ_ERR_ERRNO ? std::strerror(errno) : mosquitto_strerror(rc));
            }
            if (!connected_) lastConnectResult_ = 2000 + rc;
            return;
        }
        if (refused_) return;
        if (!connected_) {
            if (std::chrono::steady_clock::now() - started > kConnackWait) {
                Log(Level::Warn, "mqtt", "the broker at %s:%d did not answer the connection; trying again",
                    mc_.host.c_str(), mc_.port);
                return;
            }
            continue;
        }
        FillWindow();
        StoreMark(false);
    }
    if (connected_) Farewell();
}

void MqttBus::Teardown() {
    connected_ = false;
    mosquitto* m = nullptr;
    {
        // Once out of sight of the other threads, the client is destroyed outside the lock.
        std::unique_lock<std::shared_mutex> lock(clientMutex_);
        std::swap(m, mosq_);
    }
    if (m != nullptr) mosquitto_destroy(m);
    // What was in flight goes out again from the mark.
    buffer_.clear();
    inFlight_.clear();
    midIndex_.clear();
    firstIndex_ = 0;
    lastSent_ = ackedUpto_.load();
    StoreMark(true);
}

void MqttBus::FillWindow() {
    while (inFlight_.size() < static_cast<size_t>(mc_.window)) {
        if (buffer_.empty()) {
            std::vector<Record> page;
            if (!reader_.Read(lastSent_, static_cast<int>(std::min<size_t>(kPage, static_cast<size_t>(mc_.window))), "",
                              &page)) {
                Log(Level::Warn, "mqtt", "cannot read the journal after id %lld; trying again",
                    static_cast<long long>(lastSent_));
                return;
            }
            if (page.empty()) return;
            for (Record& r : page) buffer_.push_back(std::move(r));
        }
        const Record& r = buffer_.front();
        bool retained = false;
        std::string topic = RecordTopic(prefix_, r, &retained);
        std::string payload = RecordPayload(r);
        int mid = 0;
        int rc = mosquitto_publish(mosq_, &mid, topic.c_str(), static_cast<int>(payload.size()), payload.data(),
                                   mc_.qos, retained);
        if (rc != MOSQ_ERR_SUCCESS) return;  // the loop notices a broken link
        inFlight_.push_back({mid, r.id, false});
        midIndex_[mid] = firstIndex_ + inFlight_.size() - 1;
        lastSent_ = r.id;
        buffer_.pop_front();
    }
}

void MqttBus::StoreMark(bool force) {
    int64_t upto = ackedUpto_.load();
    auto now = std::chrono::steady_clock::now();
    if (upto <= markStored_) return;
    if (!force && now - lastMark_ < std::chrono::milliseconds(mc_.markIntervalMs)) return;
    std::string error;
    if (!journal_.MarkPublished(upto, &error)) {
        Log(Level::Warn, "mqtt", "cannot store the published mark %lld: %s", static_cast<long long>(upto), error.c_str());
        lastMark_ = now;
        return;
    }
    markStored_ = upto;
    lastMark_ = now;
}

void MqttBus::Farewell() {
    // The will is for a gateway that dies; one that stops says so itself, and waits a moment for
    // the broker to hold it, and for the records in flight.
    std::string offline = Dump({{"status", "offline"}, {"site", config_.site}, {"time", IsoTime(NowMs())}});
    int mid = 0;
    if (mosquitto_publish(mosq_, &mid, statusTopic_.c_str(), static_cast<int>(offline.size()), offline.data(), mc_.qos,
                          true) == MOSQ_ERR_SUCCESS) {
        farewellMid_ = mid;
    }
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);
    while (std::chrono::steady_clock::now() < deadline && (!farewellAcked_ || !inFlight_.empty())) {
        if (mosquitto_loop(mosq_, 10, 1) != MOSQ_ERR_SUCCESS) break;
    }
    StoreMark(true);
    mosquitto_disconnect(mosq_);
    deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
    while (std::chrono::steady_clock::now() < deadline) {
        if (mosquitto_loop(mosq_, 10, 1) != MOSQ_ERR_SUCCESS) break;
    }
}

void MqttBus::OnConnectCb(mosquitto* mosq, void* self, int rc) {
    auto* bus = static_cast<MqttBus*>(self);
    const MqttConfig& mc = bus->mc_;
    if (rc != 0) {
        bus->refused_ = true;
        if (bus->lastConnectResult_ != rc) {
            Log(Level::Warn, "mqtt", "the broker at %s:%d refused %s: %s (trying again)", mc.host.c_str(), mc.port,
                mc.clientId.c_str(), mosquitto_connack_string(rc));
        }
        bus->lastConnectResult_ = rc;
        bus->metrics_.Count("zanthd_mqtt_connects_total", Metrics::Label("result", mosquitto_connack_string(rc)));
        return;
    }
    Log(Level::Info, "mqtt", "connected to %s:%d as %s%s; %lld records to publish", mc.host.c_str(), mc.port,
        mc.clientId.c_str(), mc.Tls() ? " (TLS)" : "", static_cast<long long>(bus->Backlog()));
    bus->lastConnectResult_ = 0;
    bus->metrics_.Count("zanthd_mqtt_connects_total", Metrics::Label("result", "accepted"));
    if (mc.commands) mosquitto_subscribe(mosq, nullptr, (bus->prefix_ + "/+/call/+").c_str(), mc.qos);
    if (bus->decisionHandler_) mosquitto_subscribe(mosq, nullptr, bus->decisionTopic_.c_str(), mc.qos);
    std::string online = Dump({{"status", "online"}, {"site", bus->config_.site}, {"time", IsoTime(NowMs())}});
    mosquitto_publish(mosq, nullptr, bus->statusTopic_.c_str(), static_cast<int>(online.size()), online.data(), mc.qos,
                      true);
    bus->connected_ = true;
}

void MqttBus::OnDisconnectCb(mosquitto*, void* self, int) { static_cast<MqttBus*>(self)->connected_ = false; }

void MqttBus::OnPublishCb(mosquitto*, void* self, int mid) {
    auto* bus = static_cast<MqttBus*>(self);
    if (mid == bus->farewellMid_) bus->farewellAcked_ = true;
    auto it = bus->midIndex_.find(mid);
    if (it == bus->midIndex_.end()) return;  // a reply, a decision or a status
    bus->inFlight_[it->second - bus->firstIndex_].acked = true;
    bus->midIndex_.erase(it);
    uint64_t n = 0;
    int64_t upto = -1;
    while (!bus->inFlight_.empty() && bus->inFlight_.front().acked) {
        upto = bus->inFlight_.front().id;
        bus->inFlight_.pop_front();
        ++bus->firstIndex_;
        ++n;
    }
    if (n > 0) {
        bus->ackedUpto_ = upto;
        bus->metrics_.Count("zanthd_mqtt_published_total", "", n);
    }
}

void MqttBus::OnMessageCb(mosquitto*, void* self, const mosquitto_message* m) {
    auto* bus = static_cast<MqttBus*>(self);
    std::string topic = m->topic ? m->topic : "";
    std::string payload(static_cast<const char*>(m->payload), static_cast<size_t>(std::max(m->payloadlen, 0)));
    if (topic == bus->decisionTopic_) {
        // A retained answer was given to some look-up long ago: never to this one.
        if (!m->retain && bus->decisionHandler_) bus->decisionHandler_(payload);
        return;
    }
    // An empty retained message is how a retained request is cleared.
    if (CallTopicExport(bus->prefix_, topic).empty() || (m->retain && payload.empty())) return;
    bus->HandleRequest(topic, payload, m->retain);
}

void MqttBus::HandleRequest(const std::string& topic, const std::string& payload, bool retained) {
    BusRequest request;
    BusRefusal refusal;
    if (!ParseBusRequest(requestOptions_, topic, payload, NowSeconds(), &request, &refusal)) {
        if (refusal.status == 401) {
            Log(Level::Warn, "mqtt", "refused a request on %s: %s", topic.c_str(), refusal.error.c_str());
        }
        Refuse(refusal, topic);
        return;
    }
    if (retained) {
        // A retained request would run again at every connection: it is refused, and left alone.
        refusal.status = 400;
        refusal.field = "";
        refusal.error = "a request must not be retained (clear it: publish an empty retained message on its topic)";
        Log(Level::Warn, "mqtt", "refused a retained request on %s", topic.c_str());
        Refuse(refusal, topic);
        return;
    }
    if (!takingCommands_) {
        refusal.status = 503;
        refusal.error = "the gateway is stopping";
        Refuse(refusal, topic);
        return;
    }
    json stored;
    switch (memory_.Begin(request.id, request.replyTo, std::chrono::steady_clock::now(), &stored)) {
        case RequestMemory::Seen::kAnswered:
            stored["repeat"] = true;
            PublishNow(request.replyTo, Dump(stored));
            metrics_.Count("zanthd_mqtt_requests_total", Metrics::Label("outcome", "repeat"));
            return;
        case RequestMemory::Seen::kRunning:
            metrics_.Count("zanthd_mqtt_requests_total", Metrics::Label("outcome", "repeat"));
            return;
        case RequestMemory::Seen::kNew:
            break;
    }
    CallRequest call;
    call.exportName = request.exportName;
    call.args = std::move(request.args);
    call.actor = "mqtt";
    call.via = "mqtt";
    call.deadlineMs = request.deadlineMs;
    call.requestId = request.id;
    std::string id = request.id, replyTo = request.replyTo;
    calls_.Call(std::move(call), [this, id, replyTo](const CallAnswer& a) { Answer(id, replyTo, a); });
}

void MqttBus::Answer(const std::string& id, const std::string& replyTo, const CallAnswer& a) {
    json body = ReplyBody(id, a, codec_);
    std::vector<std::string> waiting = memory_.Finish(id, body, std::chrono::steady_clock::now());
    metrics_.Count("zanthd_mqtt_requests_total",
                   Metrics::Label("outcome", "answered") + "," + Metrics::Label("status", std::to_string(a.status)));
    if (!PublishNow(replyTo, Dump(body))) {
        Log(Level::Warn, "mqtt", "the answer to request %s could not be published now; a repeat of it gets it",
            id.c_str());
    }
    body["repeat"] = true;
    for (const std::string& topic : waiting) PublishNow(topic, Dump(body));
}

void MqttBus::Refuse(const BusRefusal& r, const std::string& topic) {
    json body = {{"id", r.id.empty() ? json(nullptr) : json(r.id)}, {"status", r.status}, {"error", r.error},
                 {"topic", topic}};
    if (!r.field.empty()) body["field"] = r.field;
    PublishNow(r.replyTo.empty() ? errorsTopic_ : r.replyTo, Dump(body));
    metrics_.Count("zanthd_mqtt_requests_total",
                   Metrics::Label("outcome", "refused") + "," + Metrics::Label("status", std::to_string(r.status)));
}

}  // namespace zanthd
