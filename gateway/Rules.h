#pragma once
// The gateway's own access rules, kept in SQLite and managed through the API: cardholders with
// their names, PINs and validity windows, their cards, the doors each may open and under which
// schedule. Decisions are taken on an in-memory snapshot rebuilt after each change, so a look-up
// costs no database read and a locked journal never stands between a person and a door.
//
// A change of a cardholder's cards is also noted, for each controller of a door the cardholder
// may open, as a pending change to that controller's own card database (written to the
// controllers by the command engine).

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "gateway/ApiInput.h"
#include "gateway/Config.h"
#include "gateway/Sqlite.h"
#include "gateway/SiteTime.h"

namespace zanthd {

struct Cardholder {
    int64_t id = 0;
    CardholderInput doc;
    int64_t fromMs = INT64_MIN;  // the validity window as instants
    int64_t untilMs = INT64_MAX;
};

struct Schedule {
    int64_t id = 0;
    ScheduleInput doc;
};

struct PendingChange {
    int64_t id = 0;
    std::string mac;
    std::string op;  // "add" or "delete"
    uint32_t card = 0;
    std::optional<int32_t> facility;
    int64_t cardholder = 0;
    int64_t createdMs = 0;
    std::string lastResult;  // why the controller refused it the last time; empty: not tried
};

struct RuleDecision {
    bool grant = false;
    bool pin = false;        // grant only after the cardholder's PIN
    std::string reason;      // "granted", "unknown card", ...
    int64_t cardholder = 0;  // 0: none
    std::string name;
    std::string door;        // the door's name, empty when the door isn't configured
};

// An immutable view of the rules for deciding.
class RuleSet {
  public:
    RuleSet(std::vector<Cardholder> holders, std::vector<Schedule> schedules);
    RuleDecision Decide(const DoorConfig* door, uint32_t card, int32_t facility, int64_t nowMs,
                        const SiteClock& clock) const;
    const Cardholder* Holder(int64_t id) const;

  private:
    std::vector<Cardholder> holders_;
    std::map<std::string, const Schedule*> schedulesByName_;
    std::vector<Schedule> schedules_;
    std::map<std::pair<uint32_t, std::optional<int32_t>>, size_t> cards_;
};

class RulesStore {
  public:
    RulesStore(const std::vector<DoorConfig>& doors, const SiteClock& clock);
    bool Open(const std::string& path, std::string* error);
    std::shared_ptr<const RuleSet> Snapshot() const;

    // Each returns false with `error` (status 400 for a bad reference, 404 for a missing id, 409
    // for a card held by another cardholder, 500 for the database).
    bool ListCardholders(const std::string& search, std::vector<Cardholder>* out, ApiError* error);
    bool GetCardholder(int64_t id, Cardholder* out, ApiError* error);
    bool PutCardholder(int64_t id, const CardholderInput& in, Cardholder* out, ApiError* error);  // id 0 adds
    bool DeleteCardholder(int64_t id, ApiError* error);
    bool ListSchedules(std::vector<Schedule>* out, ApiError* error);
    bool PutSchedule(int64_t id, const ScheduleInput& in, Schedule* out, ApiError* error);
    bool DeleteSchedule(int64_t id, ApiError* error);
    bool ListPending(const std::string& mac, std::vector<PendingChange>* out, ApiError* error);
    // A change written to its controller (failure empty: it is gone from the list), or refused
    // by it (kept, with why).
    bool FinishPending(int64_t id, const std::string& failure);
    std::vector<std::string> PendingMacs();
    // The unique ID a card has in the controllers' databases: given once per card (number and
    // facility) and kept for good, so that a card keeps its record however its holder changes.
    bool CardUid(uint32_t number, std::optional<int32_t> facility, uint32_t* uid);

    // The validity window of a cardholder as instants in the site's zone.
    static void Resolve(const SiteClock& clock, Cardholder* holder);

  private:
    bool Reload(std::string* error);
    bool Check(const CardholderInput& in, ApiError* error);
    bool NotePending(int64_t holder, const CardholderInput* before, const CardholderInput* after);

    const std::vector<DoorConfig>& doors_;
    const SiteClock& clock_;
    mutable std::mutex mutex_;
    Database db_;
    std::shared_ptr<const RuleSet> snapshot_;
};

}  // namespace zanthd
