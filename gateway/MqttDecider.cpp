#include "gateway/MqttDecider.h"

#include <openssl/rand.h>

#include <nlohmann/json.hpp>

#include "gateway/HttpJson.h"
#include "gateway/Journal.h"
#include "gateway/Log.h"
#include "gateway/Metrics.h"
#include "gateway/MqttBus.h"

namespace zanthd {

using nlohmann::json;

namespace {

std::string RandomId() {
    unsigned char bytes[16];
    if (RAND_bytes(bytes, sizeof bytes) != 1) return "";
    static const char kHex[] = "0123456789abcdef";
    std::string id;
    for (unsigned char b : bytes) {
        id.push_back(kHex[b >> 4]);
        id.push_back(kHex[b & 15]);
    }
    return id;
}

}  // namespace

MqttDecider::MqttDecider(MqttBus& bus, Metrics& metrics, int timeoutMs)
    : bus_(bus), metrics_(metrics), timeoutMs_(timeoutMs) {
    metrics_.Help("zanthd_mqtt_decision_answers_total", "counter",
                  "Answers to door decisions asked over the bus: taken, or dropped (late, repeated, unknown or unreadable).");
    bus_.OnDecision([this](const std::string& payload) { Take(payload); });
}

void MqttDecider::ForgetExpired(std::chrono::steady_clock::time_point now) {
    // The door service denied these at its own deadline; an answer now would change nothing.
    for (auto it = asked_.begin(); it != asked_.end();) {
        it = it->second.deadline < now ? asked_.erase(it) : std::next(it);
    }
}

void MqttDecider::Decide(const DecisionRequest& request, std::function<void(const DecisionAnswer&)> done) {
    std::string id = RandomId();
    const Lookup& l = request.lookup;
    json ask = {{"id", id},
                {"reply_to", bus_.DecisionTopic()},
                {"mac", l.mac},
                {"door", l.door},
                {"door_name", request.door ? request.door->name : ""},
                {"card", l.card},
                {"facility", l.facility},
                {"time", IsoTime(request.receivedMs)},
                {"time_ms", request.receivedMs},
                {"deadline_ms", timeoutMs_}};
    auto now = std::chrono::steady_clock::now();
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ForgetExpired(now);
        asked_[id] = {done, now + std::chrono::milliseconds(timeoutMs_)};
    }
    std::string topic = bus_.Prefix() + "/" + (l.mac.empty() ? std::string("site") : l.mac) + "/decide";
    if (!id.empty() && bus_.PublishNow(topic, Dump(ask))) return;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        asked_.erase(id);
    }
    DecisionAnswer a;
    a.grant = false;
    a.source = "mqtt-offline";
    a.reason = "the broker is not connected: nobody could be asked";
    done(a);
}

void MqttDecider::Take(const std::string& payload) {
    json j = json::parse(payload, nullptr, false);
    auto count = [this](const char* why) {
        metrics_.Count("zanthd_mqtt_decision_answers_total", Metrics::Label("outcome", why));
    };
    if (j.is_discarded() || !j.is_object() || !j.contains("id") || !j["id"].is_string() || !j.contains("grant") ||
        !j["grant"].is_boolean()) {
        Log(Level::Warn, "mqtt", "an answer on %s without a string \"id\" and a boolean \"grant\" was dropped",
            bus_.DecisionTopic().c_str());
        return count("unreadable");
    }
    std::function<void(const DecisionAnswer&)> done;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = asked_.find(j["id"].get<std::string>());
        if (it == asked_.end()) return count("late or unknown");
        if (it->second.deadline < std::chrono::steady_clock::now()) {
            asked_.erase(it);
            return count("late or unknown");
        }
        done = std::move(it->second.done);
        asked_.erase(it);
    }
    DecisionAnswer a;
    a.grant = j["grant"].get<bool>();
    a.source = "mqtt";
    a.reason = j.contains("reason") && j["reason"].is_string() ? j["reason"].get<std::string>()
                                                              : (a.grant ? "granted" : "denied");
    count("taken");
    done(a);
}

void MqttDecider::Stop() {
    std::lock_guard<std::mutex> lock(mutex_);
    asked_.clear();
}

}  // namespace zanthd
