#pragma once
// Who decides at the door. A Decider gets a look-up and answers once, through `done`, on any
// thread; the door service bounds the wait with its own deadline, so a decider that never
// answers still ends in a decision. Rules decide at once from the gateway's own tables; a
// webhook asks an HTTP service of the site's; a message bus (later) asks over MQTT.

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "gateway/Config.h"
#include "gateway/PayloadCodec.h"
#include "gateway/Rules.h"

namespace zanthd {

struct DecisionRequest {
    Lookup lookup;
    const DoorConfig* door = nullptr;  // null: no door of the config at that place
    int64_t receivedMs = 0;
};

struct DecisionAnswer {
    bool grant = false;
    bool pin = false;     // ask for the cardholder's PIN before granting
    std::string source;   // "rules", "webhook", "webhook-timeout", ...
    std::string reason;
    int64_t cardholder = 0;
    std::string name;
};

class Decider {
  public:
    virtual ~Decider() = default;
    virtual void Decide(const DecisionRequest& request,
                        std::function<void(const DecisionAnswer&)> done) = 0;
    // What a PIN typed for a cardholder that the rules asked one of means: true grants.
    virtual bool CheckPin(int64_t cardholder, const std::string& pin) = 0;
    virtual void Stop() {}
};

class RulesDecider final : public Decider {
  public:
    RulesDecider(const RulesStore& rules, const SiteClock& clock) : rules_(rules), clock_(clock) {}
    void Decide(const DecisionRequest& request,
                std::function<void(const DecisionAnswer&)> done) override;
    bool CheckPin(int64_t cardholder, const std::string& pin) override;

  private:
    const RulesStore& rules_;
    const SiteClock& clock_;
};

// POSTs {"mac", "door", "door_name", "card", "facility", "time"} to the URL and reads
// {"grant": bool}. A time-out, an error status or an unreadable answer gives the configured
// fallback (deny unless configured otherwise). The calls run on a few threads of their own, so
// a slow webhook delays only its own door.
class WebhookDecider final : public Decider {
  public:
    WebhookDecider(std::string url, int timeoutMs, bool grantOnFailure, int threads = 8);
    ~WebhookDecider() override;
    void Decide(const DecisionRequest& request,
                std::function<void(const DecisionAnswer&)> done) override;
    bool CheckPin(int64_t, const std::string&) override { return false; }
    void Stop() override;

  private:
    struct Job {
        DecisionRequest request;
        std::function<void(const DecisionAnswer&)> done;
    };
    void Run();
    DecisionAnswer Ask(const DecisionRequest& request);

    std::string scheme_host_;
    std::string path_;
    const int timeoutMs_;
    const bool grantOnFailure_;
    std::mutex mutex_;
    std::condition_variable cv_;
    std::deque<Job> jobs_;
    bool stop_ = false;
    std::vector<std::thread> threads_;
};

}  // namespace zanthd
