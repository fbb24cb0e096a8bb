#include "gateway/Decider.h"

#include <httplib.h>

#include <nlohmann/json.hpp>

#include "gateway/Journal.h"
#include "gateway/Log.h"

namespace zanthd {

void RulesDecider::Decide(const DecisionRequest& request,
                          std::function<void(const DecisionAnswer&)> done) {
    auto rules = rules_.Snapshot();
    RuleDecision d = rules->Decide(request.door, request.lookup.card, request.lookup.facility,
                                   NowMs(), clock_);
    DecisionAnswer a;
    a.grant = d.grant;
    a.pin = d.grant && d.pin;
    a.source = "rules";
    a.reason = d.reason;
    a.cardholder = d.cardholder;
    a.name = d.name;
    done(a);
}

bool RulesDecider::CheckPin(int64_t cardholder, const std::string& pin) {
    const Cardholder* h = rules_.Snapshot()->Holder(cardholder);
    return h != nullptr && !h->doc.pin.empty() && h->doc.pin == pin;
}

WebhookDecider::WebhookDecider(std::string url, int timeoutMs, bool grantOnFailure, int threads)
    : timeoutMs_(timeoutMs), grantOnFailure_(grantOnFailure) {
    size_t start = url.find("://");
    size_t slash = start == std::string::npos ? std::string::npos : url.find('/', start + 3);
    scheme_host_ = slash == std::string::npos ? url : url.substr(0, slash);
    path_ = slash == std::string::npos ? "/" : url.substr(slash);
    for (int i = 0; i < threads; ++i) threads_.emplace_back([this] { Run(); });
}

WebhookDecider::~WebhookDecider() { Stop(); }

void WebhookDecider::Stop() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stop_ = true;
    }
    cv_.notify_all();
    for (auto& t : threads_) {
        if (t.joinable()) t.join();
    }
}

void WebhookDecider::Decide(const DecisionRequest& request,
                            std::function<void(const DecisionAnswer&)> done) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        jobs_.push_back({request, std::move(done)});
    }
    cv_.notify_one();
}

void WebhookDecider::Run() {
    for (;;) {
        Job job;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            cv_.wait(lock, [&] { return stop_ || !jobs_.empty(); });
            if (stop_) return;
            job = std::move(jobs_.front());
            jobs_.pop_front();
        }
        job.done(Ask(job.request));
    }
}

DecisionAnswer WebhookDecider::Ask(const DecisionRequest& request) {
    DecisionAnswer fallback;
    fallback.grant = grantOnFailure_;
    nlohmann::json body = {{"mac", request.lookup.mac},
                           {"door", request.lookup.door},
                           {"door_name", request.door ? request.door->name : ""},
                           {"card", request.lookup.card},
                           {"facility", request.lookup.facility},
                           {"time_ms", request.receivedMs}};
    httplib::Client client(scheme_host_);
    client.set_connection_timeout(std::chrono::milliseconds(timeoutMs_));
    client.set_read_timeout(std::chrono::milliseconds(timeoutMs_));
    client.set_write_timeout(std::chrono::milliseconds(timeoutMs_));
    auto res = client.Post(path_, body.dump(), "application/json");
    if (!res) {
        fallback.source = "webhook-error";
        fallback.reason = httplib::to_string(res.error());
        if (res.error() == httplib::Error::Read || res.error() == httplib::Error::Connection) {
            fallback.source = "webhook-timeout";
        }
        return fallback;
    }
    if (res->status != 200) {
        fallback.source = "webhook-error";
        fallback.reason = "status " + std::to_string(res->status);
        return fallback;
    }
    auto j = nlohmann::json::parse(res->body, nullptr, false);
    if (j.is_discarded() || !j.is_object() || !j.contains("grant") || !j["grant"].is_boolean()) {
        fallback.source = "webhook-error";
        fallback.reason = "answer without a boolean \"grant\"";
        return fallback;
    }
    DecisionAnswer a;
    a.grant = j["grant"].get<bool>();
    a.source = "webhook";
    a.reason = j.contains("reason") && j["reason"].is_string() ? j["reason"].get<std::string>()
                                                              : (a.grant ? "granted" : "denied");
    return a;
}

}  // namespace zanthd
