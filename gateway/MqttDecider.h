#pragma once
// Door decisions over the message bus ([decisions] mode = "mqtt"). Each look-up is published at
// once on <prefix>/<mac>/decide, ahead of the journal's backlog:
//   {"id", "reply_to", "mac", "door", "door_name", "card", "facility", "time", "time_ms", "deadline_ms"}
// and whoever decides for the site answers on `reply_to` (<prefix>/gateway/decision) with
//   {"id": the request's id, "grant": true|false, "reason": "..."}
// The first answer with that id within the deadline decides; a later one, or one for an id
// nobody asked, is dropped. No answer in time, or no broker to ask: deny. The id is 128 random
// bits, so only a party that reads the requests can answer them; the broker's ACLs say who that is.

#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "gateway/Decider.h"

namespace zanthd {

class MqttBus;
class Metrics;

class MqttDecider final : public Decider {
  public:
    MqttDecider(MqttBus& bus, Metrics& metrics, int timeoutMs);
    void Decide(const DecisionRequest& request, std::function<void(const DecisionAnswer&)> done) override;
    bool CheckPin(int64_t, const std::string&) override { return false; }
    void Stop() override;

    // An answer from the bus (the bus's thread).
    void Take(const std::string& payload);

  private:
    struct Asked {
        std::function<void(const DecisionAnswer&)> done;
        std::chrono::steady_clock::time_point deadline;
    };
    void ForgetExpired(std::chrono::steady_clock::time_point now);

    MqttBus& bus_;
    Metrics& metrics_;
    const int timeoutMs_;
    std::mutex mutex_;
    std::map<std::string, Asked> asked_;
};

}  // namespace zanthd
