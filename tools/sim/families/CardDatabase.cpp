#include "tools/sim/families/CardDatabase.h"

#include <algorithm>
#include <cctype>
#include <iterator>

#include "protocol/Codes.h"

namespace zanth::sim {
namespace {

// The add command's fields, by position, for CSV diagnostics; "(0)" marks the fixed zeros.
// clang-format off
constexpr const char* kAddFieldNames[] = {
    "card set ID", "no format", "card number", "PIN", "access type", "unique ID",
    "access group 1", "access group 2", "access group 3", "access group 4", "access group 5",
    "access group 6", "access group 7", "access group 8", "passback exempt", "(0)",
    "extended access", "PIN commands", "(0)", "start", "end", "escort ID",
    "in-schedule elevator group", "out-schedule elevator group", "(0)", "PIN exempt",
    "card role"};
// clang-format on
constexpr size_t kAddFields1 = 25;  // generation 1; 26 and 27 for the later two
constexpr size_t kMaxStampLength = 40;

// "0", or a date and a time joined by the first '-'. Only their starts are looked at: the host
// library checks the values and may pass trailing text of a date on as it stands.
bool IsStamp(std::string_view s) {
    if (s == "0") return true;
    size_t dash = s.find('-');
    if (s.size() > kMaxStampLength || dash == std::string_view::npos || dash == 0 ||
        dash + 1 >= s.size())
        return false;
    auto digit = [](char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; };
    return digit(s[0]) && digit(s[dash + 1]);
}

// A CSV date "yyyy/mm/dd" or time "hh:mm:ss" within the bounds the host library applies.
bool IsTriple(std::string_view s, char separator, const int (&low)[3], const int (&high)[3]) {
    for (int i = 0; i < 3; ++i) {
        size_t end = i < 2 ? s.find(separator) : s.size();
        if (end == std::string_view::npos || end == 0 || end > 4) return false;
        auto value = FieldInRange(s.substr(0, end), low[i], high[i]);
        if (!value || s[0] == '-') return false;
        s.remove_prefix(i < 2 ? end + 1 : end);
    }
    return true;
}

std::string_view Trim(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r'))
        s.remove_suffix(1);
    return s;
}

}  // namespace

std::string CardDatabase::CardKey(int32_t cardSetId, std::string_view cardNumber) {
    // A card number holds no ';', so the key is unambiguous.
    return std::to_string(cardSetId) + ";" + std::string(cardNumber);
}

bool CardDatabase::Handle(FamilyContext& context, int code, std::string_view payload) {
    std::optional<std::string> answer;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        answer = Answer(code, payload);
    }
    if (!answer) return false;
    context.Reply(code + 1000, *answer);
    return true;
}

std::optional<std::string> CardDatabase::Answer(int code, std::string_view payload) {
    auto result = [](int value) { return std::to_string(value) + ";"; };
    PayloadReader in(payload);
    switch (code) {
        case ZANTH_ADD_MOD_CARD_RECORD:
        case ZANTH_ADD_MOD_CARD_RECORD_2:
        case ZANTH_ADD_MOD_CARD_RECORD_3: {
            size_t fields = kAddFields1 + (code == ZANTH_ADD_MOD_CARD_RECORD     ? 0
                                           : code == ZANTH_ADD_MOD_CARD_RECORD_2 ? 1
                                                                                 : 2);
            auto add = ParseAdd(payload, fields);
            return result(add ? Store(*add) : kResultBadArgument);
        }
        case ZANTH_GET_CARD_RECORD:
        case ZANTH_GET_CARD_RECORD_2:
        case ZANTH_GET_CARD_RECORD_3:
        case ZANTH_GET_CARD_RECORD_4: {
            // By card: "cardNumber;cardSetId;noFormat;pin;"; by unique ID (26) the unique ID
            // stands first. The no-format and PIN fields are checked for form alone.
            bool byId = code == ZANTH_GET_CARD_RECORD_3;
            uint32_t id = byId ? in.UniqueId(0) : 0;
            std::string number = byId ? std::string() : in.Text(0, kMaxTextLength);
            auto cardSetId = static_cast<int32_t>(in.Number(1, 0, INT32_MAX));
            in.Number(2, 0, 1);
            in.Text(3, kMaxTextLength);
            if (!in.Ok() || in.Count() != 4) return result(kResultBadArgument);
            if (!byId) {
                auto card = byCard_.find(CardKey(cardSetId, number));
                if (card == byCard_.end()) return result(kResultUnknownRecord);
                id = card->second;
            }
            CardRecord* record = nullptr;
            int found = LookUp(id, &record);
            return found != kResultOk ? result(found) : RecordText(*record, code);
        }
        case ZANTH_DELETE_CARD_RECORD:
        case ZANTH_UNDELETE_CARD_RECORD: {
            auto cardSetId = static_cast<int32_t>(in.Number(0, 0, INT32_MAX));
            in.Number(1, 0, 1);
            std::string number = in.Text(2, kMaxTextLength);
            in.Text(3, kMaxTextLength);
            if (!in.Ok() || in.Count() != 4) return result(kResultBadArgument);
            auto card = byCard_.find(CardKey(cardSetId, number));
            if (card == byCard_.end()) return result(kResultUnknownRecord);
            return result(SetDeleted(card->second, code == ZANTH_DELETE_CARD_RECORD));
        }
        case ZANTH_DELETE_CARD_RECORD_2:
        case ZANTH_UNDELETE_CARD_RECORD_2: {
            uint32_t id = in.UniqueId(0);
            if (!in.Ok() || in.Count() != 1) return result(kResultBadArgument);
            return result(SetDeleted(id, code == ZANTH_DELETE_CARD_RECORD_2));
        }
        case ZANTH_GET_CARD_HOLDER_STATUS:
        case ZANTH_RESET_CARD_HOLDER_STATUS: {
            uint32_t id = in.UniqueId(0);
            if (!in.Ok() || in.Count() != 1) return result(kResultBadArgument);
            CardRecord* record = nullptr;
            int found = LookUp(id, &record);
            if (found != kResultOk) return result(found);
            if (code == ZANTH_RESET_CARD_HOLDER_STATUS) {
                record->status = {};
                return result(kResultOk);
            }
            // Every field filled: the host reads them with a tokeniser that skips empty ones.
            std::string text = "0;" + record->status.stamp + ";";
            for (int32_t v : record->status.values) text += std::to_string(v) + ";";
            return text;
        }
        case ZANTH_RESET_ALL_CARD_HOLDER_STATUS:
        case ZANTH_EXECUTE_RELOAD_DB:
            for (auto& [id, record] : records_) record.status = {};
            return result(kResultOk);
        case ZANTH_GET_NUMBER_OF_CARDS:
            return "0;" + std::to_string(records_.size() - deleted_) + ";" +
                   std::to_string(capacity_) + ";";
        case ZANTH_GET_NUMBER_DEL_RECORDS:
            return "0;" + std::to_string(deleted_) + ";";
        case ZANTH_EXECUTE_DB_CHANGE_OVER: {
            auto cardholders = static_cast<size_t>(in.Number(0, 1, kMaxChangeover));
            if (!in.Ok() || in.Count() != 1) return result(kResultBadArgument);
            if (records_.size() - deleted_ > cardholders) return result(kResultStoreFull);
            DropDeleted();
            capacity_ = cardholders;
            return result(kResultOk);
        }
        case ZANTH_EXECUTE_PREINDEX_DB:
            DropDeleted();
            return result(kResultOk);
        default:
            return std::nullopt;
    }
}

std::optional<CardDatabase::Add> CardDatabase::ParseAdd(std::string_view payload, size_t fieldCount,
                                                        std::optional<size_t>* badField) {
    PayloadReader in(payload);
    Add add;
    CardRecord& r = add.record;
    r.cardSetId = static_cast<int32_t>(in.Number(0, 0, INT32_MAX));
    r.noFormat = static_cast<int32_t>(in.Number(1, 0, 1));
    r.cardNumber = in.Text(2, kMaxTextLength);
    r.pin = in.Text(3, kMaxTextLength);
    r.accessType = static_cast<int32_t>(in.Number(4, 1, 3));
    r.uniqueId = in.UniqueId(5);
    for (size_t g = 0; g < r.accessGroups.size(); ++g)
        r.accessGroups[g] = static_cast<int32_t>(in.Number(6 + g, 0, 65535));
    r.passbackExempt = static_cast<int32_t>(in.Number(14, 0, 1));
    in.Number(15, INT32_MIN, INT32_MAX);
    r.extendedAccess = static_cast<int32_t>(in.Number(16, 0, 1));
    r.pinCommands = static_cast<int32_t>(in.Number(17, 0, 1));
    in.Number(18, INT32_MIN, INT32_MAX);
    r.start = in.Text(19, kMaxStampLength);
    if (!IsStamp(r.start)) in.Fail(19);
    r.end = in.Text(20, kMaxStampLength);
    if (!IsStamp(r.end)) in.Fail(20);
    r.escortId = static_cast<uint32_t>(in.Number(21, 0, UINT32_MAX));
    r.inScheduleElevatorGroup = static_cast<int32_t>(in.Number(22, 0, 255));
    r.outScheduleElevatorGroup = static_cast<int32_t>(in.Number(23, 0, 255));
    in.Number(24, INT32_MIN, INT32_MAX);
    add.hasPinExempt = fieldCount > kAddFields1;
    add.hasCardRole = fieldCount > kAddFields1 + 1;
    if (add.hasPinExempt) r.pinExempt = static_cast<int32_t>(in.Number(25, 0, 1));
    if (add.hasCardRole) r.cardRole = static_cast<uint32_t>(in.Number(26, 0, 65535));
    if (in.Count() != fieldCount && in.Ok()) in.Fail(std::min(in.Count(), fieldCount));
    if (!in.Ok()) {
        if (badField != nullptr) *badField = in.FirstBad();
        return std::nullopt;
    }
    return add;
}

std::string CardDatabase::RecordText(const CardRecord& r, int getCode) {
    std::string t = "0;";
    auto text = [&](std::string_view s) {
        t.append(s);
        t.push_back(';');
    };
    auto number = [&](int64_t v) { text(std::to_string(v)); };
    text(r.cardNumber);
    number(r.cardSetId);
    number(r.noFormat);
    text(r.pin);
    number(r.accessType);
    number(r.uniqueId);
    number(r.revision);
    for (int32_t g : r.accessGroups) number(g);
    number(r.passbackExempt);
    text("0");
    number(r.extendedAccess);
    text("0");
    number(r.pinCommands);
    text("0");
    text(r.start);
    text(r.end);
    number(r.escortId);
    number(r.inScheduleElevatorGroup);
    number(r.outScheduleElevatorGroup);
    text("0");
    // The old request's reader stops at field 27; the one behind code 25 writes field 29
    // wherever it comes, so only code 35, whose caller has a place for the role, gets it.
    if (getCode != ZANTH_GET_CARD_RECORD) number(r.pinExempt);
    if (getCode == ZANTH_GET_CARD_RECORD_4) number(r.cardRole);
    return t;
}

int CardDatabase::Store(const Add& add) {
    const CardRecord& in = add.record;
    if (in.uniqueId == 0) return kResultBadArgument;
    std::string key = CardKey(in.cardSetId, in.cardNumber);
    auto existing = records_.find(in.uniqueId);
    auto holder = byCard_.find(key);
    bool dropHolder = false;
    if (holder != byCard_.end() && holder->second != in.uniqueId) {
        if (!records_.at(holder->second).deleted) return kResultCardInUse;
        dropHolder = true;
    }
    if (existing == records_.end() && records_.size() - (dropHolder ? 1 : 0) >= capacity_)
        return kResultStoreFull;
    if (dropHolder) Erase(records_.find(holder->second));

    CardRecord next = in;
    next.deleted = false;
    if (existing == records_.end()) {
        next.revision = 1;
        next.status = {};
        if (!add.hasPinExempt) next.pinExempt = 0;
        if (!add.hasCardRole) next.cardRole = 0;
        byCard_.emplace(std::move(key), in.uniqueId);
        records_.emplace(in.uniqueId, std::move(next));
        return kResultOk;
    }
    CardRecord& old = existing->second;
    std::string oldKey = CardKey(old.cardSetId, old.cardNumber);
    if (oldKey != key) {
        byCard_.erase(oldKey);
        byCard_.emplace(std::move(key), in.uniqueId);
    }
    if (old.deleted) --deleted_;
    next.revision = old.revision + 1;
    next.status = old.status;
    if (!add.hasPinExempt) next.pinExempt = old.pinExempt;
    if (!add.hasCardRole) next.cardRole = old.cardRole;
    old = std::move(next);
    return kResultOk;
}

int CardDatabase::LookUp(uint32_t uniqueId, CardRecord** record) {
    auto it = records_.find(uniqueId);
    if (it == records_.end()) return kResultUnknownRecord;
    if (it->second.deleted) return kResultRecordDeleted;
    *record = &it->second;
    return kResultOk;
}

int CardDatabase::SetDeleted(uint32_t uniqueId, bool deleted) {
    auto it = records_.find(uniqueId);
    if (it == records_.end()) return kResultUnknownRecord;
    if (it->second.deleted != deleted) {
        it->second.deleted = deleted;
        deleted ? ++deleted_ : --deleted_;
    }
    return kResultOk;
}

void CardDatabase::Erase(std::unordered_map<uint32_t, CardRecord>::iterator it) {
    byCard_.erase(CardKey(it->second.cardSetId, it->second.cardNumber));
    if (it->second.deleted) --deleted_;
    records_.erase(it);
}

void CardDatabase::DropDeleted() {
    for (auto it = records_.begin(); it != records_.end();) {
        auto next = std::next(it);
        if (it->second.deleted) Erase(it);
        it = next;
    }
}

// ---------------------------------------------------------------------------------------------
// Any thread

CardCounts CardDatabase::Counts() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return {records_.size() - deleted_, deleted_, capacity_};
}

std::optional<CardRecord> CardDatabase::Find(uint32_t uniqueId) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = records_.find(uniqueId);
    if (it == records_.end()) return std::nullopt;
    return it->second;
}

std::vector<CardRecord> CardDatabase::Records() const {
    std::vector<CardRecord> all;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        all.reserve(records_.size());
        for (const auto& [id, record] : records_) all.push_back(record);
    }
    std::sort(all.begin(), all.end(),
              [](const CardRecord& a, const CardRecord& b) { return a.uniqueId < b.uniqueId; });
    return all;
}

int CardDatabase::Put(const CardRecord& record) {
    std::lock_guard<std::mutex> lock(mutex_);
    return Store(Add{record, true, true});
}

bool CardDatabase::SetStatus(uint32_t uniqueId, const CardholderStatus& status) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = records_.find(uniqueId);
    if (it == records_.end()) return false;
    it->second.status = status;
    return true;
}

void CardDatabase::SetCapacity(size_t capacity) {
    std::lock_guard<std::mutex> lock(mutex_);
    capacity_ = capacity;
}

void CardDatabase::Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    records_.clear();
    byCard_.clear();
    deleted_ = 0;
}

// ---------------------------------------------------------------------------------------------
// CSV

std::optional<std::string> CardDatabase::CsvToPayload(std::string_view line, size_t* fieldCount,
                                                      std::string* error) {
    std::vector<std::string_view> f;
    for (;;) {
        size_t comma = line.find(',');
        f.push_back(Trim(line.substr(0, comma)));
        if (comma == std::string_view::npos) break;
        line.remove_prefix(comma + 1);
    }
    if (f.size() < 24 || f.size() > 26) {
        *error = "expected 24 to 26 fields, found " + std::to_string(f.size());
        return std::nullopt;
    }
    for (std::string_view field : f) {
        if (field.find(';') != std::string_view::npos) {
            *error = "a field holds ';'";
            return std::nullopt;
        }
    }
    auto orZero = [](std::string_view s) { return s.empty() ? std::string("0") : std::string(s); };
    // Stamps as the host library makes them: a date alone covers its whole day.
    auto stamp = [&](size_t date, size_t time, bool end) -> std::optional<std::string> {
        static constexpr int kDateLow[3] = {1901, 1, 1}, kDateHigh[3] = {2037, 12, 31};
        static constexpr int kTimeLow[3] = {0, 0, 0}, kTimeHigh[3] = {23, 59, 59};
        bool dateZero = f[date] == "0";
        bool timeZero = f[time] == "0";
        if (!dateZero && !IsTriple(f[date], '/', kDateLow, kDateHigh)) {
            *error = "bad date \"" + std::string(f[date]) + "\", not yyyy/mm/dd or 0";
            return std::nullopt;
        }
        if (!timeZero && !IsTriple(f[time], ':', kTimeLow, kTimeHigh)) {
            *error = "bad time \"" + std::string(f[time]) + "\", not hh:mm:ss or 0";
            return std::nullopt;
        }
        if (dateZero) return std::string("0");
        return std::string(f[date]) + "-" +
               (timeZero ? std::string(end ? "23:59:59" : "00:00:00") : std::string(f[time]));
    };
    auto start = stamp(17, 18, false);
    if (!start) return std::nullopt;
    auto end = stamp(19, 20, true);
    if (!end) return std::nullopt;

    std::string p;
    auto put = [&](std::string_view s) {
        p.append(s);
        p.push_back(';');
    };
    put(f[0]);
    put(f[1]);
    put(orZero(f[2]));
    put(orZero(f[3]));
    for (size_t i = 4; i < 14; ++i) put(f[i]);  // access type, unique ID, access groups
    put(f[15]);                                 // passback exempt ahead of extended access
    put("0");
    put(f[14]);
    put(f[16]);
    put("0");
    put(*start);
    put(*end);
    put(f[21]);
    put(f[22]);
    put(f[23]);
    put("0");
    for (size_t i = 24; i < f.size(); ++i) put(f[i]);
    *fieldCount = f.size() + 1;
    return p;
}

std::optional<size_t> CardDatabase::LoadCsv(std::istream& in, std::string* error) {
    std::string ignored;
    if (error == nullptr) error = &ignored;
    size_t loaded = 0;
    size_t lineNumber = 0;
    auto fail = [&](const std::string& what) -> std::optional<size_t> {
        *error = "line " + std::to_string(lineNumber) + ": " + what;
        return std::nullopt;
    };
    for (std::string line; std::getline(in, line);) {
        ++lineNumber;
        std::string_view text = Trim(line);
        if (text.empty() || text.front() == '#') continue;
        size_t fieldCount = 0;
        std::string what;
        auto payload = CsvToPayload(text, &fieldCount, &what);
        if (!payload) return fail(what);
        std::optional<size_t> bad;
        auto add = ParseAdd(*payload, fieldCount, &bad);
        if (!add) {
            size_t i = bad.value_or(0);
            std::string name = i < std::size(kAddFieldNames) ? kAddFieldNames[i] : "field";
            return fail("bad " + name + " \"" + std::string(PayloadReader(*payload).Raw(i)) + "\"");
        }
        std::lock_guard<std::mutex> lock(mutex_);
        int stored = Store(*add);
        if (stored == kResultCardInUse) return fail("the card belongs to another record");
        if (stored == kResultStoreFull) return fail("the database is full");
        if (stored != kResultOk) return fail("refused with " + std::to_string(stored));
        ++loaded;
    }
    return loaded;
}

}  // namespace zanth::sim
