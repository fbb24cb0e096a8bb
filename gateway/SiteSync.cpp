#include "gateway/SiteSync.h"

#include "gateway/CallPath.h"
#include "gateway/Controllers.h"
#include "gateway/Log.h"
#include "gateway/Rules.h"

namespace zanthd {
namespace {

using nlohmann::json;

constexpr int32_t kUnknownRecord = -101;

// A validity bound "YYYY-MM-DDTHH:MM[:SS]" (site-local) as the controller's date and time; "0"
// for none. The controller's dates run from 1901 to 2037: an earlier bound is none, a later one
// ends in 2037.
std::pair<std::string, std::string> Stamp(const std::string& local) {
    if (local.size() < 16) return {"0", "0"};
    int year = std::atoi(local.substr(0, 4).c_str());
    if (year < 1901) return {"0", "0"};
    if (year > 2037) return {"2037/12/31", "23:59:59"};
    std::string date = local.substr(0, 4) + "/" + local.substr(5, 2) + "/" + local.substr(8, 2);
    std::string time = local.substr(11, 5) + (local.size() >= 19 ? local.substr(16, 3) : ":00");
    return {date, time};
}

CallRequest Gateway(const std::string& exportName, json args) {
    CallRequest r;
    r.exportName = exportName;
    r.args = std::move(args);
    r.actor = "gateway";
    r.via = "pending";
    return r;
}

bool Offline(const CallAnswer& a) {
    return a.kind == CallAnswer::Kind::kNotConnected || a.kind == CallAnswer::Kind::kTimedOut ||
           a.kind == CallAnswer::Kind::kUnavailable || a.kind == CallAnswer::Kind::kBusy;
}

std::string Why(const CallAnswer& a) {
    if (a.kind == CallAnswer::Kind::kAnswered) return ResultName(a.result.result) + " (" + std::to_string(a.result.result) + ")";
    return a.body.value("error", std::string("refused"));
}

}  // namespace

SiteSync::SiteSync(const Config& config, Controllers& controllers, RulesStore& rules, CallPath& calls)
    : config_(config), controllers_(controllers), rules_(rules), calls_(calls) {}

SiteSync::~SiteSync() { Stop(); }

void SiteSync::Start() {
    stop_ = false;
    thread_ = std::thread([this] { Run(); });
}

void SiteSync::Stop() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stop_ = true;
    }
    cv_.notify_all();
    if (thread_.joinable()) thread_.join();
}

void SiteSync::Connected(const std::string& mac) {
    {
        std::lock_guard<std::mutex> lock(timersMutex_);
        timersWritten_.erase(mac);
    }
    std::lock_guard<std::mutex> lock(mutex_);
    queue_[mac] = true;
    cv_.notify_all();
}

void SiteSync::PendingChanged() {
    std::vector<std::string> macs = rules_.PendingMacs();
    std::lock_guard<std::mutex> lock(mutex_);
    for (const std::string& mac : macs) queue_.emplace(mac, false);
    cv_.notify_all();
}

void SiteSync::Run() {
    for (;;) {
        std::string mac;
        bool timers = false;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            cv_.wait(lock, [this] { return stop_ || !queue_.empty(); });
            if (stop_) return;
            mac = queue_.begin()->first;
            timers = queue_.begin()->second;
            queue_.erase(queue_.begin());
        }
        if (!controllers_.IsConnected(mac)) continue;  // its connect brings it back here
        if (timers) EnsureRelayTimers(mac);
        ApplyPending(mac);
    }
}

bool SiteSync::EnsureRelayTimers(const std::string& mac) {
    {
        std::lock_guard<std::mutex> lock(timersMutex_);
        if (timersWritten_.count(mac)) return true;
    }
    if (!WriteRelayTimers(mac)) return false;
    std::lock_guard<std::mutex> lock(timersMutex_);
    timersWritten_.insert(mac);
    return true;
}

bool SiteSync::WriteRelayTimers(const std::string& mac) {
    bool ok = true;
    for (const DoorConfig& d : config_.doors) {
        if (d.controller != mac || d.openMs == 0) continue;
        CallAnswer a = calls_.CallAndWait(
            Gateway("SetLocalRelayTimer", {{"mac", mac}, {"relay", d.relay}, {"value", d.openMs}}));
        if (!a.Ok()) {
            Log(Level::Warn, "sync", "the relay timer of door %s (%s relay %d) was not set: %s", d.name.c_str(),
                mac.c_str(), d.relay, Why(a).c_str());
            ok = false;
        }
    }
    return ok;
}

void SiteSync::ApplyPending(const std::string& mac) {
    std::vector<PendingChange> changes;
    ApiError e;
    if (!rules_.ListPending(mac, &changes, &e)) {
        Log(Level::Error, "sync", "cannot read the pending changes: %s", e.message.c_str());
        return;
    }
    size_t written = 0;
    for (const PendingChange& p : changes) {
        uint32_t uid = 0;
        if (!rules_.CardUid(p.card, p.facility, &uid)) {
            Log(Level::Error, "sync", "no unique ID for card %u", p.card);
            return;
        }
        CallAnswer a;
        if (p.op == "delete") {
            a = calls_.CallAndWait(Gateway("DeleteCardRecord2", {{"mac", mac}, {"uniqueId", uid}}));
            // A record the controller doesn't have is as good as deleted.
            if (a.kind == CallAnswer::Kind::kAnswered && a.result.result == kUnknownRecord) a.result.ok = true;
        } else {
            Cardholder holder;
            if (!rules_.GetCardholder(p.cardholder, &holder, &e)) {
                // Its holder is gone again; the change that removed it is pending behind this one.
                rules_.FinishPending(p.id, "");
                continue;
            }
            if (p.facility && *p.facility < 0) {
                rules_.FinishPending(p.id, "a negative facility has no card set on the controllers");
                continue;
            }
            auto [startDate, startTime] = Stamp(holder.doc.validFrom);
            auto [endDate, endTime] = Stamp(holder.doc.validUntil);
            json args = {{"mac", mac}, {"cardSetId", p.facility.value_or(0)}, {"noFormat", 0},
                         {"cardNumber", std::to_string(p.card)},
                         {"pin", holder.doc.pin.empty() ? "0" : holder.doc.pin}, {"accessType", 1},
                         {"uniqueId", uid}, {"extendedAccess", 0}, {"passbackExempt", 0}, {"pinCommands", 0},
                         {"startDate", startDate}, {"startTime", startTime}, {"endDate", endDate},
                         {"endTime", endTime}, {"escortId", 0}, {"inScheduleElevatorGroup", 0},
                         {"outScheduleElevatorGroup", 0}, {"pinExempt", 0}, {"cardRole", 0}};
            for (int g = 1; g <= 8; ++g) args["accessGroup" + std::to_string(g)] = 0;
            a = calls_.CallAndWait(Gateway("AddModCardRecord3", std::move(args)));
        }
        if (Offline(a)) {
            Log(Level::Info, "sync", "%s: pending changes wait (%s)", mac.c_str(), Why(a).c_str());
            return;
        }
        rules_.FinishPending(p.id, a.Ok() ? "" : Why(a));
        if (a.Ok()) {
            ++written;
        } else {
            Log(Level::Warn, "sync", "%s refused the %s of card %u: %s", mac.c_str(), p.op.c_str(), p.card,
                Why(a).c_str());
        }
    }
    if (written > 0) Log(Level::Info, "sync", "%s: %zu pending card changes written", mac.c_str(), written);
}

}  // namespace zanthd
