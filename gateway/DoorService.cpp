#include "gateway/DoorService.h"

#include <cstring>
#include <nlohmann/json.hpp>

#include "gateway/CallPath.h"
#include "gateway/Ingest.h"
#include "gateway/Library.h"
#include "gateway/Log.h"
#include "gateway/Metrics.h"
#include "gateway/PayloadCodec.h"

namespace zanthd {
namespace {

double MsSince(std::chrono::steady_clock::time_point t) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t).count();
}

}  // namespace

DoorService::DoorService(const Config& config, Library& library, const PayloadCodec& codec,
                         Decider& decider, CallPath& calls, Ingest& ingest, Metrics& metrics)
    : config_(config), library_(library), codec_(codec), decider_(decider), calls_(calls), ingest_(ingest),
      metrics_(metrics) {
    for (const DoorConfig& d : config_.doors) doors_[{d.controller, d.door}] = &d;
}

DoorService::~DoorService() { Stop(0); }

const DoorConfig* DoorService::DoorAt(const std::string& mac, int door) const {
    auto it = doors_.find({mac, door});
    return it == doors_.end() ? nullptr : it->second;
}

void DoorService::Start() { thread_ = std::thread([this] { Run(); }); }

void DoorService::Stop(int graceMs) {
    if (!thread_.joinable()) return;
    taking_ = false;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(graceMs);
    while (std::chrono::steady_clock::now() < deadline) {
        // open_ belongs to the thread; an empty answered queue and a short wait are enough here.
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        std::lock_guard<std::mutex> lock(answeredMutex_);
        if (answered_.empty()) break;
    }
    stop_ = true;
    thread_.join();
}

void DoorService::Run() {
    const auto poll = std::chrono::microseconds(config_.lookupPollUs);
    while (!stop_) {
        bool busy = false;
        if (taking_) {
            // Look-ups first: a person waits at the door.
            while (auto lookup = library_.NextLookup()) {
                TakeLookup(*lookup);
                busy = true;
            }
            while (auto pin = library_.NextPin()) {
                TakePin(*pin);
                busy = true;
            }
            // Door reports come padded with blanks.
            while (auto report = library_.NextPostAccess()) {
                report->erase(report->find_last_not_of(' ') + 1);
                TakeDoorReport(*report);
                busy = true;
            }
        }
        std::deque<Answered> answered;
        {
            std::lock_guard<std::mutex> lock(answeredMutex_);
            answered.swap(answered_);
        }
        for (Answered& a : answered) {
            auto it = open_.find(a.id);
            if (it == open_.end()) continue;  // decided already, by its deadline
            Resolve(it->second, a.answer);
        }
        auto now = std::chrono::steady_clock::now();
        for (auto it = open_.begin(); it != open_.end();) {
            Open& o = it->second;
            if (now >= o.deadline) {
                if (o.waitingPin) {
                    SendDecision(o, false, o.answer.source, "no PIN in time");
                } else {
                    bool grant = config_.mode == DecisionMode::Webhook && config_.webhookGrantOnFailure;
                    SendDecision(o, grant,
                                 config_.mode == DecisionMode::Webhook ? "webhook-timeout"
                                 : config_.mode == DecisionMode::Mqtt  ? "mqtt-timeout"
                                                                       : "timeout",
                                 "no decision in time");
                }
                it = open_.erase(it);
            } else if (o.answer.source == "done") {
                it = open_.erase(it);
            } else {
                ++it;
            }
        }
        if (!busy) std::this_thread::sleep_for(poll);
    }
}

void DoorService::TakeLookup(const std::string& raw) {
    auto taken = std::chrono::steady_clock::now();
    auto lookup = codec_.ParseLookup(raw);
    if (!lookup) {
        // Nothing to answer it with: journal it as it came.
        Record r;
        r.kind = "lookup";
        r.raw = raw;
        r.fields = "{}";
        r.decision = "none";
        r.source = "unreadable";
        ingest_.Submit(std::move(r));
        Log(Level::Warn, "doors", "a look-up in an unknown format: %s", raw.c_str());
        return;
    }
    Open o;
    o.id = nextId_++;
    o.request.lookup = *lookup;
    o.request.door = DoorAt(lookup->mac, lookup->door);
    o.request.receivedMs = NowMs();
    o.raw = raw;
    o.taken = taken;
    int deadlineMs = config_.mode == DecisionMode::Webhook ? config_.webhookTimeoutMs
                     : config_.mode == DecisionMode::Mqtt  ? config_.mqttDecisionTimeoutMs
                                                           : 2000;
    o.deadline = taken + std::chrono::milliseconds(deadlineMs);
    uint64_t id = o.id;
    open_[id] = std::move(o);
    decider_.Decide(open_[id].request, [this, id](const DecisionAnswer& answer) {
        std::lock_guard<std::mutex> lock(answeredMutex_);
        answered_.push_back({id, answer});
    });
    // The rules answer on this thread: take that answer at once rather than a turn later.
    std::deque<Answered> answered;
    {
        std::lock_guard<std::mutex> lock(answeredMutex_);
        for (auto it = answered_.begin(); it != answered_.end();) {
            if (it->id == id) {
                answered.push_back(*it);
                it = answered_.erase(it);
            } else {
                ++it;
            }
        }
    }
    for (Answered& a : answered) {
        auto it = open_.find(a.id);
        if (it != open_.end()) Resolve(it->second, a.answer);
    }
}

void DoorService::Resolve(Open& o, const DecisionAnswer& answer) {
    if (o.answer.source == "done" || o.waitingPin) return;
    if (answer.grant && answer.pin) {
        // Ask the door's keypad for the PIN; the look-up stays open until it comes.
        o.waitingPin = true;
        o.answer = answer;
        o.deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(config_.pinTimeoutMs);
        std::string mac = o.request.lookup.mac;
        CallRequest ask;
        ask.exportName = "RspRequestPin";
        ask.args = {{"mac", mac}, {"pinValue1", o.request.lookup.door}, {"pinValue2", config_.pinSeconds},
                    {"pinValue3", config_.pinDigits}};
        calls_.Call(std::move(ask), [mac](const CallAnswer& a) {
            if (!a.Ok()) Log(Level::Warn, "doors", "the PIN request to %s failed: %s", mac.c_str(), a.body.dump().c_str());
        });
        Record r;
        r.kind = "decision";
        r.mac = mac;
        r.raw = "pin requested";
        nlohmann::json f = {{"door", o.request.lookup.door}, {"card", o.request.lookup.card},
                            {"cardholder", answer.cardholder}};
        r.fields = f.dump();
        r.decision = "pin";
        r.source = answer.source;
        ingest_.Submit(std::move(r));
        return;
    }
    o.answer = answer;
    SendDecision(o, answer.grant, answer.source, answer.reason);
}

void DoorService::SendDecision(Open& o, bool grant, const std::string& source, const std::string& reason) {
    std::string mac = o.request.lookup.mac;
    double latency = MsSince(o.taken);
    CallRequest answer;
    answer.exportName = "RspRecheckLookupCard";
    answer.args = {{"mac", mac}, {"data", codec_.DecisionText(o.request.lookup, grant)}};
    calls_.Call(std::move(answer), [mac](const CallAnswer& a) {
        if (a.kind != CallAnswer::Kind::kAnswered) {
            Log(Level::Warn, "doors", "the decision for %s did not reach it: %s", mac.c_str(),
                a.body.value("error", std::string("?")).c_str());
        }
    });
    metrics_.ObserveDecision(latency / 1000.0);
    metrics_.Count("zanthd_decisions_total",
                   Metrics::Label("source", source) + "," + Metrics::Label("decision", grant ? "grant" : "deny"));
    Record r;
    r.kind = "lookup";
    r.mac = mac;
    r.raw = o.raw;
    nlohmann::json f = {{"door", o.request.lookup.door},
                        {"card", o.request.lookup.card},
                        {"facility", o.request.lookup.facility},
                        {"door_name", o.request.door ? o.request.door->name : ""},
                        {"reason", reason},
                        {"cardholder", o.answer.cardholder != 0 ? o.answer.cardholder : 0}};
    r.fields = f.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    r.decision = grant ? "grant" : "deny";
    r.source = source;
    r.latencyMs = latency;
    ingest_.Submit(std::move(r));
    o.answer.source = "done";
}

void DoorService::TakePin(const std::string& raw) {
    Record r;
    r.kind = "pin";
    r.raw = raw;
    auto pin = codec_.ParsePin(raw);
    if (!pin) {
        r.fields = "{}";
        ingest_.Submit(std::move(r));
        return;
    }
    r.mac = pin->mac;
    // The PIN itself is a secret: the journal keeps its length, never its digits.
    std::string masked(pin->pin.size(), '*');
    r.raw = pin->mac + ";" + std::to_string(pin->door) + ";" + masked + ";";
    nlohmann::json f = {{"door", pin->door}, {"pin_length", pin->pin.size()}};
    r.fields = f.dump();
    for (auto& [id, o] : open_) {
        if (!o.waitingPin || o.request.lookup.mac != pin->mac || o.request.lookup.door != pin->door) continue;
        bool ok = decider_.CheckPin(o.answer.cardholder, pin->pin);
        r.decision = ok ? "grant" : "deny";
        r.source = o.answer.source;
        ingest_.Submit(std::move(r));
        o.waitingPin = false;
        SendDecision(o, ok, o.answer.source, ok ? "granted with PIN" : "wrong PIN");
        return;
    }
    r.decision = "none";
    r.source = "no look-up waits for a PIN at that door";
    ingest_.Submit(std::move(r));
}

void DoorService::TakeDoorReport(const std::string& raw) {
    Record r;
    r.kind = "door";
    r.raw = raw;
    if (auto m = codec_.ParseDoorReport(raw)) {
        r.mac = m->mac;
        nlohmann::json f = nlohmann::json::object();
        for (const auto& [k, v] : m->fields) f[k] = v;
        r.fields = f.dump();
    } else {
        r.fields = "{}";
    }
    ingest_.Submit(std::move(r));
}

}  // namespace zanthd
