#pragma once
// What a client sends, read and checked before anything is done with it: the JSON bodies of the
// rules API and the queries of the events API. A mistake names its field and what was expected;
// the caller answers it with a 4xx and touches nothing. No function here throws.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zanthd {

struct ApiError {
    int status = 400;
    std::string field;     // "cards[2].number", empty for the body as a whole
    std::string message;   // what was expected, or what is wrong
};

struct CardInput {
    uint32_t number = 0;
    std::optional<int32_t> facility;  // none: any facility
};

struct AccessInput {
    std::string door;      // a door name of the config
    std::string schedule;  // a schedule name; empty: at any time
    bool pin = false;      // a PIN is asked for after the card
};

struct CardholderInput {
    std::string name;
    std::string pin;         // digits; empty: none
    std::string validFrom;   // site-local "YYYY-MM-DDTHH:MM[:SS]"; empty: no bound
    std::string validUntil;
    bool enabled = true;
    std::vector<CardInput> cards;
    std::vector<AccessInput> access;
};

struct IntervalInput {
    uint8_t days = 0;  // bit 0 Monday ... bit 6 Sunday
    int fromMinute = 0;
    int toMinute = 0;  // up to 1440 ("24:00"), after fromMinute
};

struct ScheduleInput {
    std::string name;
    std::vector<IntervalInput> intervals;
};

struct EventsQuery {
    int64_t after = 0;
    int limit = 100;
    std::string kind;  // empty: every kind
};

bool ParseCardholder(const std::string& body, CardholderInput* out, ApiError* error);
bool ParseSchedule(const std::string& body, ScheduleInput* out, ApiError* error);
// The query values as given (absent: nullptr). limit 1 to 1000.
bool ParseEventsQuery(const std::string* after, const std::string* limit, const std::string* kind,
                      EventsQuery* out, ApiError* error);
// An id from a path: 1 to 2^53.
bool ParseId(const std::string& text, int64_t* out);
// "HH:MM", "24:00" allowed; minutes of the day.
bool ParseClock(const std::string& text, int* minutes);
// The JSON of the inputs, as the API shows them back.
std::string ToJson(const CardholderInput& c);
std::string ToJson(const ScheduleInput& s);
bool KnownKind(const std::string& kind);

}  // namespace zanthd
