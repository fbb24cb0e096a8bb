#include "gateway/CardLoads.h"

#include <future>

#include "gateway/HttpJson.h"
#include "gateway/Ingest.h"
#include "gateway/Journal.h"
#include "gateway/Log.h"

namespace zanthd {

using nlohmann::json;

const char* const CardLoads::kExport = "AddModCardRecord3";

namespace {

constexpr size_t kKeptLoads = 100;
constexpr size_t kKeptErrors = 100;

}  // namespace

struct CardLoads::Load {
    mutable std::mutex mutex;
    int64_t id = 0;
    std::string mac;
    std::string actor;
    int deadlineMs = 0;
    std::vector<PreparedCall> calls;
    std::vector<std::string> cardNumbers;
    size_t sent = 0, done = 0, ok = 0, failed = 0, inFlight = 0;
    bool pumping = false;  // a thread is in Pump: an answer that comes meanwhile leaves it to it
    std::string state = "running";  // then "done", or "stopped" when the controller went away
    std::string stopReason;
    json errors = json::array();
    int64_t startedMs = 0, finishedMs = 0;
    std::chrono::steady_clock::time_point started;
    double seconds = 0;
};

CardLoads::CardLoads(CallPath& calls, Ingest& ingest, int window)
    : calls_(calls), ingest_(ingest), window_(static_cast<size_t>(std::max(window, 1))) {}

json CardLoads::CardArgs(const json& given, const json& key) {
    json r = {{"pin", "0"}, {"accessType", 1}, {"extendedAccess", 0}, {"passbackExempt", 0},
              {"pinCommands", 0}, {"startDate", "0"}, {"startTime", "0"}, {"endDate", "0"},
              {"endTime", "0"}, {"escortId", 0}, {"inScheduleElevatorGroup", 0},
              {"outScheduleElevatorGroup", 0}, {"pinExempt", 0}, {"cardRole", 0},
              {"noFormat", 0}};
    for (int g = 1; g <= 8; ++g) r["accessGroup" + std::to_string(g)] = 0;
    if (given.is_object()) {
        for (const auto& [k, v] : given.items()) r[k] = v;
    }
    for (const auto& [k, v] : key.items()) r[k] = v;
    return r;
}

bool CardLoads::Start(const std::string& mac, const json& cards, const std::string& actor,
                      int deadlineMs, int64_t* id, CallAnswer* refusal) {
    auto fail = [refusal](const std::string& field, const std::string& error) {
        refusal->kind = CallAnswer::Kind::kBadArgument;
        refusal->status = 400;
        refusal->body = {{"error", error}};
        if (!field.empty()) refusal->body["field"] = field;
        return false;
    };
    if (!cards.is_array()) return fail("cards", "cards: expected an array of card records");
    if (cards.empty()) return fail("cards", "cards: at least one card record");
    auto load = std::make_shared<Load>();
    load->calls.reserve(cards.size());
    for (size_t i = 0; i < cards.size(); ++i) {
        std::string where = "cards[" + std::to_string(i) + "]";
        if (!cards[i].is_object()) return fail(where, where + ": expected an object");
        if (cards[i].contains("mac")) return fail(where + ".mac", where + ".mac: the controller is the load's");
        PreparedCall call;
        CallAnswer why;
        if (!calls_.Check(kExport, CardArgs(cards[i], {{"mac", mac}}), &call, &why)) {
            *refusal = why;
            std::string field = why.body.value("field", std::string());
            refusal->body["field"] = field.empty() ? where : where + "." + field;
            refusal->body["error"] = where + ": " + why.body.value("error", std::string());
            return false;
        }
        load->calls.push_back(std::move(call));
        load->cardNumbers.push_back(cards[i].value("cardNumber", std::string()));
    }
    load->mac = mac;
    load->actor = actor;
    load->deadlineMs = deadlineMs;
    load->startedMs = NowMs();
    load->started = std::chrono::steady_clock::now();
    {
        std::lock_guard<std::mutex> lock(mutex_);
        load->id = nextId_++;
        loads_[load->id] = load;
        while (loads_.size() > kKeptLoads) {
            auto oldest = loads_.begin();
            std::lock_guard<std::mutex> l(oldest->second->mutex);
            if (oldest->second->state == "running") break;
            loads_.erase(oldest);
        }
    }
    *id = load->id;
    Audit(load, "card load started");
    Pump(load);
    return true;
}

void CardLoads::Pump(const std::shared_ptr<Load>& load) {
    {
        // An answer can come on this very thread, inside CallPrepared (a refusal): the loop
        // below then goes on, rather than a call within a call for every record.
        std::lock_guard<std::mutex> lock(load->mutex);
        if (load->pumping) return;
        load->pumping = true;
    }
    for (;;) {
        size_t index;
        PreparedCall call;
        {
            std::lock_guard<std::mutex> lock(load->mutex);
            if (load->state != "running" || load->inFlight >= window_ || load->sent >= load->calls.size()) {
                load->pumping = false;
                return;
            }
            index = load->sent++;
            ++load->inFlight;
            call = load->calls[index];
        }
        CallRequest r;
        r.exportName = kExport;
        r.deadlineMs = load->deadlineMs;
        // No audit record per card: the load's own records stand for them.
        calls_.CallPrepared(call, std::move(r),
                            [this, load, index](const CallAnswer& a) { Done(load, index, a); });
    }
}

void CardLoads::Done(const std::shared_ptr<Load>& load, size_t index, const CallAnswer& a) {
    bool finished = false;
    {
        std::lock_guard<std::mutex> lock(load->mutex);
        --load->inFlight;
        ++load->done;
        if (a.Ok()) {
            ++load->ok;
        } else {
            ++load->failed;
            if (load->errors.size() < kKeptErrors) {
                json e = {{"index", index}, {"cardNumber", load->cardNumbers[index]}, {"status", a.status}};
                if (a.kind == CallAnswer::Kind::kAnswered) {
                    e["result"] = a.result.result;
                    e["name"] = ResultName(a.result.result);
                } else {
                    e["error"] = a.body.value("error", std::string());
                }
                load->errors.push_back(e);
            }
            if ((a.kind == CallAnswer::Kind::kNotConnected || a.kind == CallAnswer::Kind::kUnavailable) &&
                load->state == "running") {
                load->state = "stopped";
                load->stopReason = a.body.value("error", std::string());
            }
        }
        finished = load->inFlight == 0 && (load->state != "running" || load->done == load->calls.size());
        if (finished) {
            if (load->state == "running") load->state = "done";
            load->finishedMs = NowMs();
            load->seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - load->started).count();
            load->calls.clear();
            load->calls.shrink_to_fit();
        }
    }
    if (finished) {
        Audit(load, "card load ended");
        return;
    }
    Pump(load);
}

void CardLoads::Audit(const std::shared_ptr<Load>& load, const std::string& action) {
    Record r;
    r.kind = "audit";
    r.mac = load->mac;
    r.actor = load->actor;
    r.raw = action;
    {
        std::lock_guard<std::mutex> lock(load->mutex);
        json f = Json(*load);
        f.erase("errors");
        r.fields = Dump(f);
    }
    ingest_.Submit(std::move(r));
}

json CardLoads::Json(const Load& l) {
    json j = {{"id", l.id}, {"mac", l.mac}, {"state", l.state}, {"total", l.cardNumbers.size()},
              {"sent", l.sent}, {"done", l.done}, {"ok", l.ok}, {"failed", l.failed},
              {"not_sent", l.cardNumbers.size() - l.sent}, {"started", IsoTime(l.startedMs)},
              {"finished", l.finishedMs ? json(IsoTime(l.finishedMs)) : json(nullptr)},
              {"actor", l.actor}, {"errors", l.errors}};
    double seconds = l.finishedMs ? l.seconds
                                  : std::chrono::duration<double>(std::chrono::steady_clock::now() - l.started).count();
    j["seconds"] = seconds;
    j["records_per_second"] = seconds > 0 ? static_cast<double>(l.done) / seconds : 0.0;
    if (!l.stopReason.empty()) j["stopped_because"] = l.stopReason;
    return j;
}

bool CardLoads::Progress(int64_t id, json* out) const {
    std::shared_ptr<Load> load;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = loads_.find(id);
        if (it == loads_.end()) return false;
        load = it->second;
    }
    std::lock_guard<std::mutex> lock(load->mutex);
    *out = Json(*load);
    return true;
}

json CardLoads::List() const {
    std::vector<std::shared_ptr<Load>> all;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& [id, l] : loads_) all.push_back(l);
    }
    json list = json::array();
    for (const auto& l : all) {
        std::lock_guard<std::mutex> lock(l->mutex);
        json j = Json(*l);
        j.erase("errors");
        list.push_back(j);
    }
    return list;
}

}  // namespace zanthd
