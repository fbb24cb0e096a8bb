#include "gateway/ApiInput.h"

#include <nlohmann/json.hpp>

#include "gateway/PayloadCodec.h"
#include "gateway/SiteTime.h"

namespace zanthd {
namespace {

using nlohmann::json;

bool Fail(ApiError* e, const std::string& field, const std::string& message, int status = 400) {
    e->status = status;
    e->field = field;
    e->message = message;
    return false;
}

bool ParseBody(const std::string& body, json* out, ApiError* e) {
    *out = json::parse(body, nullptr, false);
    if (out->is_discarded()) return Fail(e, "", "the body is not valid JSON");
    if (!out->is_object()) return Fail(e, "", "the body must be a JSON object");
    return true;
}

// Refuses keys the resource doesn't have, so that a typo doesn't pass silently.
bool OnlyKeys(const json& object, const std::string& prefix, std::initializer_list<const char*> keys,
              ApiError* e) {
    for (auto it = object.begin(); it != object.end(); ++it) {
        bool known = false;
        for (const char* k : keys) known = known || it.key() == k;
        if (!known) {
            std::string list;
            for (const char* k : keys) list += (list.empty() ? "" : ", ") + std::string(k);
            return Fail(e, prefix + it.key(), "unknown field (expected one of " + list + ")");
        }
    }
    return true;
}

bool String(const json& o, const char* key, const std::string& field, size_t maxLen, bool required,
            std::string* out, ApiError* e) {
    auto it = o.find(key);
    if (it == o.end() || it->is_null()) {
        if (required) return Fail(e, field, "required: a string");
        return true;
    }
    if (!it->is_string()) return Fail(e, field, "expected a string");
    const std::string& s = it->get_ref<const std::string&>();
    if (s.size() > maxLen) return Fail(e, field, "at most " + std::to_string(maxLen) + " characters");
    *out = s;
    return true;
}

bool Bool(const json& o, const char* key, const std::string& field, bool* out, ApiError* e) {
    auto it = o.find(key);
    if (it == o.end() || it->is_null()) return true;
    if (!it->is_boolean()) return Fail(e, field, "expected true or false");
    *out = it->get<bool>();
    return true;
}

bool Integer(const json& o, const char* key, const std::string& field, int64_t low, int64_t high,
             bool required, std::optional<int64_t>* out, ApiError* e) {
    auto it = o.find(key);
    if (it == o.end() || it->is_null()) {
        if (required) return Fail(e, field, "required: an integer from " + std::to_string(low) + " to " + std::to_string(high));
        return true;
    }
    std::string bounds = "an integer from " + std::to_string(low) + " to " + std::to_string(high);
    if (!it->is_number_integer()) return Fail(e, field, "expected " + bounds);
    int64_t v = 0;
    if (it->is_number_unsigned()) {
        uint64_t u = it->get<uint64_t>();
        if (u > static_cast<uint64_t>(high)) return Fail(e, field, "expected " + bounds);
        v = static_cast<int64_t>(u);
    } else {
        v = it->get<int64_t>();
    }
    if (v < low || v > high) return Fail(e, field, "expected " + bounds);
    *out = v;
    return true;
}

bool LocalTimeField(const json& o, const char* key, std::string* out, ApiError* e) {
    if (!String(o, key, key, 19, false, out, e)) return false;
    LocalDateTime t;
    if (!out->empty() && !ParseLocalDateTime(*out, &t)) {
        return Fail(e, key, "a site-local time \"YYYY-MM-DDTHH:MM\" or \"YYYY-MM-DDTHH:MM:SS\"");
    }
    return true;
}

const char* const kDays[] = {"mon", "tue", "wed", "thu", "fri", "sat", "sun"};

std::string ClockText(int minutes) {
    char text[16];
    std::snprintf(text, sizeof text, "%02d:%02d", (minutes / 60) % 100, minutes % 60);
    return text;
}

}  // namespace

bool KnownKind(const std::string& kind) {
    static const char* const kKinds[] = {"event", "alarm", "lookup", "door", "pin", "connect",
                                         "disconnect", "decision", "audit"};
    for (const char* k : kKinds) {
        if (kind == k) return true;
    }
    return false;
}

bool ParseClock(const std::string& text, int* minutes) {
    if (text.size() != 5 || text[2] != ':') return false;
    for (size_t i : {0u, 1u, 3u, 4u}) {
        if (text[i] < '0' || text[i] > '9') return false;
    }
    int h = (text[0] - '0') * 10 + (text[1] - '0');
    int m = (text[3] - '0') * 10 + (text[4] - '0');
    if (m > 59 || h > 24 || (h == 24 && m != 0)) return false;
    *minutes = h * 60 + m;
    return true;
}

bool ParseId(const std::string& text, int64_t* out) {
    auto v = ParseNumber(text, 1, int64_t{1} << 53);
    if (!v) return false;
    *out = *v;
    return true;
}

bool ParseCardholder(const std::string& body, CardholderInput* out, ApiError* e) {
    json j;
    if (!ParseBody(body, &j, e)) return false;
    if (!OnlyKeys(j, "", {"name", "pin", "valid_from", "valid_until", "enabled", "cards", "access"}, e)) {
        return false;
    }
    CardholderInput c;
    if (!String(j, "name", "name", 200, true, &c.name, e)) return false;
    if (c.name.empty()) return Fail(e, "name", "a name of 1 to 200 characters");
    if (!String(j, "pin", "pin", 16, false, &c.pin, e)) return false;
    for (char ch : c.pin) {
        if (ch < '0' || ch > '9') return Fail(e, "pin", "digits only, at most 16");
    }
    if (!LocalTimeField(j, "valid_from", &c.validFrom, e)) return false;
    if (!LocalTimeField(j, "valid_until", &c.validUntil, e)) return false;
    if (!c.validFrom.empty() && !c.validUntil.empty() && c.validUntil <= c.validFrom) {
        return Fail(e, "valid_until", "a time after valid_from");
    }
    if (!Bool(j, "enabled", "enabled", &c.enabled, e)) return false;
    if (auto it = j.find("cards"); it != j.end() && !it->is_null()) {
        if (!it->is_array()) return Fail(e, "cards", "expected an array of cards");
        if (it->size() > 100) return Fail(e, "cards", "at most 100 cards per cardholder");
        for (size_t i = 0; i < it->size(); ++i) {
            std::string p = "cards[" + std::to_string(i) + "]";
            const json& card = (*it)[i];
            if (!card.is_object()) return Fail(e, p, "expected an object {\"number\", \"facility\"}");
            if (!OnlyKeys(card, p + ".", {"number", "facility"}, e)) return false;
            std::optional<int64_t> number, facility;
            if (!Integer(card, "number", p + ".number", 0, 4294967295LL, true, &number, e)) return false;
            if (!Integer(card, "facility", p + ".facility", -2147483648LL, 2147483647LL, false, &facility, e)) {
                return false;
            }
            CardInput ci;
            ci.number = static_cast<uint32_t>(*number);
            if (facility) ci.facility = static_cast<int32_t>(*facility);
            for (const CardInput& other : c.cards) {
                if (other.number == ci.number && other.facility == ci.facility) {
                    return Fail(e, p, "the same card twice");
                }
            }
            c.cards.push_back(ci);
        }
    }
    if (auto it = j.find("access"); it != j.end() && !it->is_null()) {
        if (!it->is_array()) return Fail(e, "access", "expected an array of {\"door\", \"schedule\", \"pin\"}");
        if (it->size() > 1000) return Fail(e, "access", "at most 1000 entries");
        for (size_t i = 0; i < it->size(); ++i) {
            std::string p = "access[" + std::to_string(i) + "]";
            const json& a = (*it)[i];
            if (!a.is_object()) return Fail(e, p, "expected an object {\"door\", \"schedule\", \"pin\"}");
            if (!OnlyKeys(a, p + ".", {"door", "schedule", "pin"}, e)) return false;
            AccessInput ai;
            if (!String(a, "door", p + ".door", 200, true, &ai.door, e)) return false;
            if (!String(a, "schedule", p + ".schedule", 200, false, &ai.schedule, e)) return false;
            if (!Bool(a, "pin", p + ".pin", &ai.pin, e)) return false;
            c.access.push_back(ai);
        }
    }
    *out = std::move(c);
    return true;
}

bool ParseSchedule(const std::string& body, ScheduleInput* out, ApiError* e) {
    json j;
    if (!ParseBody(body, &j, e)) return false;
    if (!OnlyKeys(j, "", {"name", "intervals"}, e)) return false;
    ScheduleInput s;
    if (!String(j, "name", "name", 200, true, &s.name, e)) return false;
    if (s.name.empty()) return Fail(e, "name", "a name of 1 to 200 characters");
    auto it = j.find("intervals");
    if (it == j.end() || !it->is_array()) {
        return Fail(e, "intervals", "required: an array of {\"days\", \"from\", \"to\"}");
    }
    if (it->size() > 100) return Fail(e, "intervals", "at most 100 intervals");
    for (size_t i = 0; i < it->size(); ++i) {
        std::string p = "intervals[" + std::to_string(i) + "]";
        const json& iv = (*it)[i];
        if (!iv.is_object()) return Fail(e, p, "expected an object {\"days\", \"from\", \"to\"}");
        if (!OnlyKeys(iv, p + ".", {"days", "from", "to"}, e)) return false;
        IntervalInput in;
        auto days = iv.find("days");
        if (days == iv.end() || !days->is_array() || days->empty()) {
            return Fail(e, p + ".days", "a non-empty array of \"mon\" ... \"sun\"");
        }
        for (size_t d = 0; d < days->size(); ++d) {
            const json& day = (*days)[d];
            int bit = -1;
            if (day.is_string()) {
                for (int k = 0; k < 7; ++k) {
                    if (day.get_ref<const std::string&>() == kDays[k]) bit = k;
                }
            }
            if (bit < 0) return Fail(e, p + ".days[" + std::to_string(d) + "]", "one of \"mon\" ... \"sun\"");
            in.days = static_cast<uint8_t>(in.days | (1u << bit));
        }
        std::string from, to;
        if (!String(iv, "from", p + ".from", 5, true, &from, e)) return false;
        if (!String(iv, "to", p + ".to", 5, true, &to, e)) return false;
        if (!ParseClock(from, &in.fromMinute) || in.fromMinute >= 1440) {
            return Fail(e, p + ".from", "a local time \"HH:MM\" from 00:00 to 23:59");
        }
        if (!ParseClock(to, &in.toMinute)) return Fail(e, p + ".to", "a local time \"HH:MM\" up to 24:00");
        if (in.toMinute <= in.fromMinute) {
            return Fail(e, p + ".to", "a time after from (an interval over midnight is two intervals)");
        }
        s.intervals.push_back(in);
    }
    *out = std::move(s);
    return true;
}

bool ParseEventsQuery(const std::string* after, const std::string* limit, const std::string* kind,
                      EventsQuery* out, ApiError* e) {
    EventsQuery q;
    if (after != nullptr) {
        auto v = ParseNumber(*after, 0, int64_t{1} << 62);
        if (!v) return Fail(e, "after", "an id, 0 or more");
        q.after = *v;
    }
    if (limit != nullptr) {
        auto v = ParseNumber(*limit, 1, 1000);
        if (!v) return Fail(e, "limit", "an integer from 1 to 1000");
        q.limit = static_cast<int>(*v);
    }
    if (kind != nullptr) {
        if (!KnownKind(*kind)) {
            return Fail(e, "kind", "one of event, alarm, lookup, door, pin, connect, disconnect, decision, audit");
        }
        q.kind = *kind;
    }
    *out = q;
    return true;
}

std::string ToJson(const CardholderInput& c) {
    json j;
    j["name"] = c.name;
    j["pin"] = c.pin.empty() ? json(nullptr) : json(c.pin);
    j["valid_from"] = c.validFrom.empty() ? json(nullptr) : json(c.validFrom);
    j["valid_until"] = c.validUntil.empty() ? json(nullptr) : json(c.validUntil);
    j["enabled"] = c.enabled;
    j["cards"] = json::array();
    for (const CardInput& card : c.cards) {
        json cj;
        cj["number"] = card.number;
        cj["facility"] = card.facility ? json(*card.facility) : json(nullptr);
        j["cards"].push_back(cj);
    }
    j["access"] = json::array();
    for (const AccessInput& a : c.access) {
        j["access"].push_back({{"door", a.door},
                               {"schedule", a.schedule.empty() ? json(nullptr) : json(a.schedule)},
                               {"pin", a.pin}});
    }
    return j.dump();
}

std::string ToJson(const ScheduleInput& s) {
    json j;
    j["name"] = s.name;
    j["intervals"] = json::array();
    for (const IntervalInput& in : s.intervals) {
        json days = json::array();
        for (int k = 0; k < 7; ++k) {
            if (in.days & (1u << k)) days.push_back(kDays[k]);
        }
        j["intervals"].push_back({{"days", days}, {"from", ClockText(in.fromMinute)}, {"to", ClockText(in.toMinute)}});
    }
    return j.dump();
}

}  // namespace zanthd
