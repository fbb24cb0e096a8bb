#include "frame/DateTimeText.h"

#include <cstring>
#include <string>
#include <string_view>

#include "protocol/Text.h"

namespace zanth {
namespace {

struct Part {
    const char* name;
    int32_t low;
    int32_t high;
};

constexpr Part kDateParts[] = {{"year", 1901, 2037}, {"month", 1, 12}, {"day", 1, 31}};
constexpr Part kTimeParts[] = {{"hour", 0, 23}, {"minute", 0, 59}, {"second", 0, 59}};

// Splits `text` on `delimiter` into three checked parts, in place.
bool SplitParts(ArgumentCheck& check, char* text, const char* delimiter, const Part (&parts)[3],
                const char* formatWords, const char* (&out)[3]) {
    char* state = nullptr;
    for (int i = 0; i < 3; ++i) {
        out[i] = Tokenize(i == 0 ? text : nullptr, delimiter, &state);
        if (out[i] == nullptr) {
            char line[kLogTextSize];
            FormatText(line, sizeof line, "[%s] %s", check.Method(), formatWords);
            return check.Refuse(line);
        }
        if (!check.CheckBetween(parts[i].name, DecimalValue(out[i]), parts[i].low, parts[i].high)) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool PutHostDate(ArgumentCheck& check, char* date, Payload& payload) {
    const char* part[3];
    if (!SplitParts(check, date, "/", kDateParts, "Invalid date, must be in yyyy/mm/dd format",
                    part)) {
        return false;
    }
    payload.Text(part[1]).Text(part[2]).Text(part[0]);
    return true;
}

bool PutHostTime(ArgumentCheck& check, char* time, Payload& payload) {
    const char* part[3];
    if (!SplitParts(check, time, ":", kTimeParts, "Invalid time, must be in hh:mm:ss format",
                    part)) {
        return false;
    }
    payload.Text(part[0]).Text(part[1]).Text(part[2]);
    return true;
}

void TakeWireDate(ReplyFields& fields, char* date, int32_t dateSize) {
    std::string_view month, day, year;
    fields.Field(&month).Field(&day).Field(&year);
    if (!fields.Ok()) return;
    // "year/month/day" and its terminator.
    size_t length = year.size() + month.size() + day.size() + 2;
    if (date == nullptr || dateSize <= 0 || static_cast<size_t>(dateSize) <= length) {
        fields.Fail(kTooLarge);
        return;
    }
    std::string text;
    text.append(year).append("/").append(month).append("/").append(day);
    std::memset(date, 0, static_cast<size_t>(dateSize));
    std::memcpy(date, text.data(), text.size());
}

void TakeWireTime(ReplyFields& fields, char* time, int32_t timeSize) {
    if (!fields.Ok()) return;
    if (time == nullptr || timeSize <= 0) {
        fields.Fail(kTooLarge);
        return;
    }
    std::memset(time, 0, static_cast<size_t>(timeSize));
    size_t used = 0;
    for (int i = 0; i < 3; ++i) {
        std::string_view part;
        if (!fields.Field(&part).Ok()) return;
        size_t add = part.size() + (i > 0 ? 1 : 0);
        if (used + add >= static_cast<size_t>(timeSize)) {
            fields.Fail(kTooLarge);
            return;
        }
        if (i > 0) time[used++] = ':';
        std::memcpy(time + used, part.data(), part.size());
        used += part.size();
    }
}

}  // namespace zanth
