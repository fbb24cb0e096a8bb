#include "gateway/Rules.h"

#include <nlohmann/json.hpp>
#include <set>

#include "gateway/Journal.h"

namespace zanthd {
namespace {

constexpr const char* kSchema = R"(
CREATE TABLE IF NOT EXISTS cardholders(id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT NOT NULL,
                                       doc TEXT NOT NULL);
CREATE TABLE IF NOT EXISTS cards(number INTEGER NOT NULL, facility INTEGER,
                                 holder INTEGER NOT NULL REFERENCES cardholders(id) ON DELETE CASCADE);
CREATE UNIQUE INDEX IF NOT EXISTS cards_key ON cards(number, IFNULL(facility, -2147483649));
CREATE TABLE IF NOT EXISTS schedules(id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT NOT NULL UNIQUE,
                                     doc TEXT NOT NULL);
CREATE TABLE IF NOT EXISTS pending(id INTEGER PRIMARY KEY AUTOINCREMENT, mac TEXT NOT NULL,
                                   op TEXT NOT NULL, card INTEGER NOT NULL, facility INTEGER,
                                   holder INTEGER NOT NULL, created_ms INTEGER NOT NULL);
CREATE TABLE IF NOT EXISTS card_ids(id INTEGER PRIMARY KEY AUTOINCREMENT, number INTEGER NOT NULL,
                                    facility INTEGER);
CREATE UNIQUE INDEX IF NOT EXISTS card_ids_key ON card_ids(number, IFNULL(facility, -2147483649));
)";

bool Fail(ApiError* e, int status, const std::string& field, const std::string& message) {
    e->status = status;
    e->field = field;
    e->message = message;
    return false;
}

bool DbFail(ApiError* e, const Database& db) { return Fail(e, 500, "", "rules database: " + db.Error()); }

}  // namespace

RuleSet::RuleSet(std::vector<Cardholder> holders, std::vector<Schedule> schedules)
    : holders_(std::move(holders)), schedules_(std::move(schedules)) {
    for (const Schedule& s : schedules_) schedulesByName_[s.doc.name] = &s;
    for (size_t i = 0; i < holders_.size(); ++i) {
        for (const CardInput& c : holders_[i].doc.cards) cards_[{c.number, c.facility}] = i;
    }
}

const Cardholder* RuleSet::Holder(int64_t id) const {
    for (const Cardholder& h : holders_) {
        if (h.id == id) return &h;
    }
    return nullptr;
}

RuleDecision RuleSet::Decide(const DoorConfig* door, uint32_t card, int32_t facility, int64_t nowMs,
                             const SiteClock& clock) const {
    RuleDecision d;
    if (door == nullptr) {
        d.reason = "unknown door";
        return d;
    }
    d.door = door->name;
    // A card registered with its facility code matches first; one without, any facility.
    auto it = cards_.find({card, facility});
    if (it == cards_.end()) it = cards_.find({card, std::nullopt});
    if (it == cards_.end()) {
        d.reason = "unknown card";
        return d;
    }
    const Cardholder& h = holders_[it->second];
    d.cardholder = h.id;
    d.name = h.doc.name;
    if (!h.doc.enabled) {
        d.reason = "cardholder disabled";
        return d;
    }
    if (nowMs < h.fromMs || nowMs >= h.untilMs) {
        d.reason = "outside the validity window";
        return d;
    }
    bool doorAllowed = false;
    SiteClock::Local local = clock.ToLocal(nowMs);
    for (const AccessInput& a : h.doc.access) {
        if (a.door != door->name) continue;
        doorAllowed = true;
        bool inSchedule = a.schedule.empty();
        if (!inSchedule) {
            auto s = schedulesByName_.find(a.schedule);
            if (s != schedulesByName_.end()) {
                for (const IntervalInput& in : s->second->doc.intervals) {
                    if ((in.days & (1u << local.weekday)) && local.minuteOfDay >= in.fromMinute &&
                        local.minuteOfDay < in.toMinute) {
                        inSchedule = true;
                    }
                }
            }
        }
        if (inSchedule) {
            d.grant = true;
            d.pin = d.pin || a.pin;
            // Without a PIN on record a PIN can't be checked: the entry that wants one denies.
            if (a.pin && h.doc.pin.empty()) {
                d.grant = false;
                d.reason = "a PIN is wanted and none is on record";
                continue;
            }
            d.reason = "granted";
            if (!a.pin) {
                d.pin = false;
                return d;  // an entry without PIN wins over one with
            }
        }
    }
    if (!d.grant && d.reason.empty()) d.reason = doorAllowed ? "outside the schedule" : "door not allowed";
    return d;
}

RulesStore::RulesStore(const std::vector<DoorConfig>& doors, const SiteClock& clock)
    : doors_(doors), clock_(clock) {}

void RulesStore::Resolve(const SiteClock& clock, Cardholder* h) {
    LocalDateTime t;
    h->fromMs = INT64_MIN;
    h->untilMs = INT64_MAX;
    if (!h->doc.validFrom.empty() && ParseLocalDateTime(h->doc.validFrom, &t)) h->fromMs = clock.ToUnixMs(t);
    if (!h->doc.validUntil.empty() && ParseLocalDateTime(h->doc.validUntil, &t)) h->untilMs = clock.ToUnixMs(t);
}

bool RulesStore::Open(const std::string& path, std::string* error) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!db_.Open(path, false, 2000) || !db_.Exec("PRAGMA journal_mode=WAL; PRAGMA foreign_keys=ON;") ||
        !db_.Exec(kSchema)) {
        *error = db_.Error();
        return false;
    }
    // A database of an earlier zanthd has no column for the controllers' refusals yet.
    Statement columns = db_.Prepare("SELECT 1 FROM pragma_table_info('pending') WHERE name = 'last_result'");
    if (columns.Step() != SQLITE_ROW && !db_.Exec("ALTER TABLE pending ADD COLUMN last_result TEXT")) {
        *error = db_.Error();
        return false;
    }
    return Reload(error);
}

bool RulesStore::CardUid(uint32_t number, std::optional<int32_t> facility, uint32_t* uid) {
    std::lock_guard<std::mutex> lock(mutex_);
    Statement ins = db_.Prepare("INSERT OR IGNORE INTO card_ids(number, facility) VALUES(?1, ?2)");
    Statement get = db_.Prepare(
        "SELECT id FROM card_ids WHERE number = ?1 AND IFNULL(facility, -2147483649) = IFNULL(?2, -2147483649)");
    for (Statement* q : {&ins, &get}) {
        q->Bind(1, static_cast<int64_t>(number));
        if (facility) q->Bind(2, static_cast<int64_t>(*facility)); else q->BindNull(2);
    }
    if (!ins.Run() || get.Step() != SQLITE_ROW) return false;
    int64_t id = get.Int(0);
    if (id < 1 || id > 4294967295LL) return false;
    *uid = static_cast<uint32_t>(id);
    return true;
}

bool RulesStore::FinishPending(int64_t id, const std::string& failure) {
    std::lock_guard<std::mutex> lock(mutex_);
    Statement q = failure.empty() ? db_.Prepare("DELETE FROM pending WHERE id = ?1")
                                  : db_.Prepare("UPDATE pending SET last_result = ?2 WHERE id = ?1");
    q.Bind(1, id);
    if (!failure.empty()) q.Bind(2, failure);
    return q.Run();
}

std::vector<std::string> RulesStore::PendingMacs() {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> macs;
    Statement q = db_.Prepare("SELECT DISTINCT mac FROM pending ORDER BY mac");
    while (q.Step() == SQLITE_ROW) macs.push_back(q.Text(0));
    return macs;
}

std::shared_ptr<const RuleSet> RulesStore::Snapshot() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return snapshot_;
}

bool RulesStore::Reload(std::string* error) {
    std::vector<Cardholder> holders;
    std::vector<Schedule> schedules;
    Statement h = db_.Prepare("SELECT id, doc FROM cardholders ORDER BY id");
    while (h.Step() == SQLITE_ROW) {
        Cardholder c;
        c.id = h.Int(0);
        ApiError ignored;
        if (!ParseCardholder(h.Text(1), &c.doc, &ignored)) continue;
        Resolve(clock_, &c);
        holders.push_back(std::move(c));
    }
    Statement s = db_.Prepare("SELECT id, doc FROM schedules ORDER BY id");
    while (s.Step() == SQLITE_ROW) {
        Schedule sc;
        sc.id = s.Int(0);
        ApiError ignored;
        if (!ParseSchedule(s.Text(1), &sc.doc, &ignored)) continue;
        schedules.push_back(std::move(sc));
    }
    if (!h.Ok() || !s.Ok()) {
        *error = db_.Error();
        return false;
    }
    snapshot_ = std::make_shared<const RuleSet>(std::move(holders), std::move(schedules));
    return true;
}

bool RulesStore::Check(const CardholderInput& in, ApiError* e) {
    for (size_t i = 0; i < in.access.size(); ++i) {
        const AccessInput& a = in.access[i];
        std::string p = "access[" + std::to_string(i) + "]";
        bool known = false;
        for (const DoorConfig& d : doors_) known = known || d.name == a.door;
        if (!known) return Fail(e, 400, p + ".door", "a door of the config; \"" + a.door + "\" is none");
        if (!a.schedule.empty()) {
            Statement q = db_.Prepare("SELECT 1 FROM schedules WHERE name = ?1");
            q.Bind(1, a.schedule);
            if (q.Step() != SQLITE_ROW) {
                return Fail(e, 400, p + ".schedule", "a schedule's name; \"" + a.schedule + "\" is none");
            }
        }
    }
    return true;
}

bool RulesStore::NotePending(int64_t holder, const CardholderInput* before, const CardholderInput* after) {
    // The controllers that serve the doors the cardholder may open (before or after the change).
    auto macsOf = [&](const CardholderInput* c) {
        std::set<std::string> macs;
        if (c == nullptr) return macs;
        for (const AccessInput& a : c->access) {
            for (const DoorConfig& d : doors_) {
                if (d.name == a.door) macs.insert(d.controller);
            }
        }
        return macs;
    };
    auto has = [](const CardholderInput* c, const CardInput& card) {
        if (c == nullptr) return false;
        for (const CardInput& x : c->cards) {
            if (x.number == card.number && x.facility == card.facility) return true;
        }
        return false;
    };
    std::set<std::string> oldMacs = macsOf(before), newMacs = macsOf(after);
    Statement ins = db_.Prepare(
        "INSERT INTO pending(mac, op, card, facility, holder, created_ms) VALUES(?1, ?2, ?3, ?4, ?5, ?6)");
    int64_t now = NowMs();
    auto note = [&](const std::string& mac, const char* op, const CardInput& card) {
        ins.Bind(1, mac).Bind(2, std::string_view(op)).Bind(3, static_cast<int64_t>(card.number));
        if (card.facility) ins.Bind(4, static_cast<int64_t>(*card.facility)); else ins.BindNull(4);
        ins.Bind(5, holder).Bind(6, now);
        return ins.Run();
    };
    if (before != nullptr) {
        for (const CardInput& c : before->cards) {
            for (const std::string& mac : oldMacs) {
                if (!(has(after, c) && newMacs.count(mac)) && !note(mac, "delete", c)) return false;
            }
        }
    }
    if (after != nullptr) {
        for (const CardInput& c : after->cards) {
            for (const std::string& mac : newMacs) {
                if (!(has(before, c) && oldMacs.count(mac)) && !note(mac, "add", c)) return false;
            }
        }
    }
    return true;
}

bool RulesStore::ListCardholders(const std::string& search, std::vector<Cardholder>* out, ApiError* e) {
    std::lock_guard<std::mutex> lock(mutex_);
    Statement q = db_.Prepare(
        search.empty() ? "SELECT id, doc FROM cardholders ORDER BY id"
                       : "SELECT DISTINCT h.id, h.doc FROM cardholders h LEFT JOIN cards c ON c.holder = h.id "
                         "WHERE instr(lower(h.name), lower(?1)) > 0 OR CAST(c.number AS TEXT) = ?1 ORDER BY h.id");
    if (!search.empty()) q.Bind(1, search);
    int rc;
    while ((rc = q.Step()) == SQLITE_ROW) {
        Cardholder c;
        c.id = q.Int(0);
        ApiError ignored;
        if (ParseCardholder(q.Text(1), &c.doc, &ignored)) out->push_back(std::move(c));
    }
    if (rc != SQLITE_DONE) return DbFail(e, db_);
    return true;
}

bool RulesStore::GetCardholder(int64_t id, Cardholder* out, ApiError* e) {
    std::lock_guard<std::mutex> lock(mutex_);
    Statement q = db_.Prepare("SELECT doc FROM cardholders WHERE id = ?1");
    q.Bind(1, id);
    if (q.Step() != SQLITE_ROW) return Fail(e, 404, "id", "no cardholder " + std::to_string(id));
    out->id = id;
    ApiError ignored;
    ParseCardholder(q.Text(0), &out->doc, &ignored);
    return true;
}

bool RulesStore::PutCardholder(int64_t id, const CardholderInput& in, Cardholder* out, ApiError* e) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!Check(in, e)) return false;
    std::optional<CardholderInput> before;
    if (id != 0) {
        Statement q = db_.Prepare("SELECT doc FROM cardholders WHERE id = ?1");
        q.Bind(1, id);
        if (q.Step() != SQLITE_ROW) return Fail(e, 404, "id", "no cardholder " + std::to_string(id));
        CardholderInput old;
        ApiError ignored;
        ParseCardholder(q.Text(0), &old, &ignored);
        before = old;
    }
    if (!db_.Exec("BEGIN IMMEDIATE")) return DbFail(e, db_);
    auto rollback = [&](bool result) {
        db_.Exec("ROLLBACK");
        return result;
    };
    std::string doc = ToJson(in);
    if (id == 0) {
        Statement ins = db_.Prepare("INSERT INTO cardholders(name, doc) VALUES(?1, ?2)");
        ins.Bind(1, in.name).Bind(2, doc);
        if (!ins.Run()) return rollback(DbFail(e, db_));
        id = sqlite3_last_insert_rowid(db_.Handle());
    } else {
        Statement up = db_.Prepare("UPDATE cardholders SET name = ?2, doc = ?3 WHERE id = ?1");
        up.Bind(1, id).Bind(2, in.name).Bind(3, doc);
        if (!up.Run()) return rollback(DbFail(e, db_));
        Statement del = db_.Prepare("DELETE FROM cards WHERE holder = ?1");
        del.Bind(1, id);
        if (!del.Run()) return rollback(DbFail(e, db_));
    }
    Statement card = db_.Prepare("INSERT INTO cards(number, facility, holder) VALUES(?1, ?2, ?3)");
    for (size_t i = 0; i < in.cards.size(); ++i) {
        const CardInput& c = in.cards[i];
        card.Bind(1, static_cast<int64_t>(c.number));
        if (c.facility) card.Bind(2, static_cast<int64_t>(*c.facility)); else card.BindNull(2);
        card.Bind(3, id);
        if (!card.Run()) {
            if ((db_.ErrorCode() & 0xff) == SQLITE_CONSTRAINT) {
                return rollback(Fail(e, 409, "cards[" + std::to_string(i) + "].number",
                                     "card " + std::to_string(c.number) + " belongs to another cardholder"));
            }
            return rollback(DbFail(e, db_));
        }
    }
    if (!NotePending(id, before ? &*before : nullptr, &in)) return rollback(DbFail(e, db_));
    if (!db_.Exec("COMMIT")) return rollback(DbFail(e, db_));
    std::string error;
    if (!Reload(&error)) return Fail(e, 500, "", error);
    out->id = id;
    out->doc = in;
    Resolve(clock_, out);
    return true;
}

bool RulesStore::DeleteCardholder(int64_t id, ApiError* e) {
    std::lock_guard<std::mutex> lock(mutex_);
    Statement q = db_.Prepare("SELECT doc FROM cardholders WHERE id = ?1");
    q.Bind(1, id);
    if (q.Step() != SQLITE_ROW) return Fail(e, 404, "id", "no cardholder " + std::to_string(id));
    CardholderInput before;
    ApiError ignored;
    ParseCardholder(q.Text(0), &before, &ignored);
    if (!db_.Exec("BEGIN IMMEDIATE")) return DbFail(e, db_);
    Statement del = db_.Prepare("DELETE FROM cardholders WHERE id = ?1");
    del.Bind(1, id);
    Statement cards = db_.Prepare("DELETE FROM cards WHERE holder = ?1");
    cards.Bind(1, id);
    if (!del.Run() || !cards.Run() || !NotePending(id, &before, nullptr) || !db_.Exec("COMMIT")) {
        db_.Exec("ROLLBACK");
        return DbFail(e, db_);
    }
    std::string error;
    if (!Reload(&error)) return Fail(e, 500, "", error);
    return true;
}

bool RulesStore::ListSchedules(std::vector<Schedule>* out, ApiError* e) {
    std::lock_guard<std::mutex> lock(mutex_);
    Statement q = db_.Prepare("SELECT id, doc FROM schedules ORDER BY id");
    int rc;
    while ((rc = q.Step()) == SQLITE_ROW) {
        Schedule s;
        s.id = q.Int(0);
        ApiError ignored;
        if (ParseSchedule(q.Text(1), &s.doc, &ignored)) out->push_back(std::move(s));
    }
    if (rc != SQLITE_DONE) return DbFail(e, db_);
    return true;
}

bool RulesStore::PutSchedule(int64_t id, const ScheduleInput& in, Schedule* out, ApiError* e) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::string doc = ToJson(in);
    Statement q = db_.Prepare(id == 0 ? "INSERT INTO schedules(name, doc) VALUES(?2, ?3)"
                                      : "UPDATE schedules SET name = ?2, doc = ?3 WHERE id = ?1");
    if (id != 0) q.Bind(1, id);
    q.Bind(2, in.name).Bind(3, doc);
    if (!q.Run()) {
        if ((db_.ErrorCode() & 0xff) == SQLITE_CONSTRAINT) {
            return Fail(e, 409, "name", "a schedule named \"" + in.name + "\" exists");
        }
        return DbFail(e, db_);
    }
    if (id == 0) {
        id = sqlite3_last_insert_rowid(db_.Handle());
    } else if (sqlite3_changes(db_.Handle()) == 0) {
        return Fail(e, 404, "id", "no schedule " + std::to_string(id));
    }
    std::string error;
    if (!Reload(&error)) return Fail(e, 500, "", error);
    out->id = id;
    out->doc = in;
    return true;
}

bool RulesStore::DeleteSchedule(int64_t id, ApiError* e) {
    std::lock_guard<std::mutex> lock(mutex_);
    Statement name = db_.Prepare("SELECT name FROM schedules WHERE id = ?1");
    name.Bind(1, id);
    if (name.Step() != SQLITE_ROW) return Fail(e, 404, "id", "no schedule " + std::to_string(id));
    std::string n = name.Text(0);
    // A schedule still named by a cardholder's access stays: deny-by-default must not turn into
    // a silent change of meaning.
    Statement users = db_.Prepare("SELECT id, doc FROM cardholders");
    while (users.Step() == SQLITE_ROW) {
        CardholderInput c;
        ApiError ignored;
        if (!ParseCardholder(users.Text(1), &c, &ignored)) continue;
        for (const AccessInput& a : c.access) {
            if (a.schedule == n) {
                return Fail(e, 409, "id", "schedule \"" + n + "\" is used by cardholder " +
                                              std::to_string(users.Int(0)));
            }
        }
    }
    Statement del = db_.Prepare("DELETE FROM schedules WHERE id = ?1");
    del.Bind(1, id);
    if (!del.Run()) return DbFail(e, db_);
    std::string error;
    if (!Reload(&error)) return Fail(e, 500, "", error);
    return true;
}

bool RulesStore::ListPending(const std::string& mac, std::vector<PendingChange>* out, ApiError* e) {
    std::lock_guard<std::mutex> lock(mutex_);
    Statement q = db_.Prepare(
        mac.empty() ? "SELECT id, mac, op, card, facility, holder, created_ms, last_result FROM pending ORDER BY id"
                    : "SELECT id, mac, op, card, facility, holder, created_ms, last_result FROM pending WHERE mac = ?1 ORDER BY id");
    if (!mac.empty()) q.Bind(1, mac);
    int rc;
    while ((rc = q.Step()) == SQLITE_ROW) {
        PendingChange p;
        p.id = q.Int(0);
        p.mac = q.Text(1);
        p.op = q.Text(2);
        p.card = static_cast<uint32_t>(q.Int(3));
        if (!q.IsNull(4)) p.facility = static_cast<int32_t>(q.Int(4));
        p.cardholder = q.Int(5);
        p.createdMs = q.Int(6);
        if (!q.IsNull(7)) p.lastResult = q.Text(7);
        out->push_back(p);
    }
    if (rc != SQLITE_DONE) return DbFail(e, db_);
    return true;
}

}  // namespace zanthd
