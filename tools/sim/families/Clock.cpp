#include "tools/sim/families/Clock.h"

#include <cctype>
#include <cstdio>

#include "protocol/Codes.h"

namespace zanth::sim {
namespace {

int DaysIn(int month, int year) {
    static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return month == 2 && leap ? 29 : kDays[month - 1];
}

}  // namespace

bool ControllerClock::Handle(FamilyContext& context, int code, std::string_view payload) {
    switch (code) {
        case ZANTH_GET_TIME_DATE:
        case ZANTH_SET_TIME_DATE:
        case ZANTH_GET_CURRENT_TIME_ZONE:
        case ZANTH_GET_TZ:
        case ZANTH_SET_TZ:
            break;
        default:
            return false;
    }
    context.Reply(code + 1000, Answer(code, payload));
    return true;
}

std::string ControllerClock::Answer(int code, std::string_view payload) {
    static const std::string kBad = std::to_string(kResultBadArgument) + ";";
    if (code == ZANTH_GET_TIME_DATE) {
        std::tm t = Now();
        char text[64];
        std::snprintf(text, sizeof text, "0;%d;%d;%d;%d;%d;%d;", t.tm_mon + 1, t.tm_mday,
                      t.tm_year + 1900, t.tm_hour, t.tm_min, t.tm_sec);
        return text;
    }
    if (code == ZANTH_GET_CURRENT_TIME_ZONE) return "0;" + CurrentZone() + ";";
    if (code == ZANTH_GET_TZ) return "0;" + TimeZone() + ";";
    if (code == ZANTH_SET_TZ) {
        PayloadReader in(payload);
        std::string tz = in.Text(0, kMaxZone);
        if (!in.Ok()) return kBad;
        std::lock_guard<std::mutex> lock(mutex_);
        tz_ = tz;
        return "0;";
    }
    // Set time: month, day, year, hour, minute, second.
    PayloadReader in(payload);
    std::tm t{};
    t.tm_mon = static_cast<int>(in.Number(0, 1, 12)) - 1;
    t.tm_mday = static_cast<int>(in.Number(1, 1, 31));
    t.tm_year = static_cast<int>(in.Number(2, 1970, 2037)) - 1900;
    t.tm_hour = static_cast<int>(in.Number(3, 0, 23));
    t.tm_min = static_cast<int>(in.Number(4, 0, 59));
    t.tm_sec = static_cast<int>(in.Number(5, 0, 59));
    if (!in.Ok() || t.tm_mday > DaysIn(t.tm_mon + 1, t.tm_year + 1900)) return kBad;
    t.tm_isdst = -1;
    std::time_t wanted = std::mktime(&t);
    if (wanted == static_cast<std::time_t>(-1)) return kBad;
    SetOffset(static_cast<int64_t>(wanted) - static_cast<int64_t>(std::time(nullptr)));
    return "0;";
}

std::tm ControllerClock::Now() const {
    std::time_t now = std::time(nullptr) + static_cast<std::time_t>(Offset());
    std::tm t{};
    localtime_r(&now, &t);
    return t;
}

int64_t ControllerClock::Offset() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return offset_;
}

void ControllerClock::SetOffset(int64_t seconds) {
    std::lock_guard<std::mutex> lock(mutex_);
    offset_ = seconds;
}

std::string ControllerClock::TimeZone() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return tz_;
}

std::string ControllerClock::CurrentZone() const {
    std::string tz = TimeZone();
    std::string zone;
    for (char c : tz) {
        if (std::isalpha(static_cast<unsigned char>(c)) == 0) break;
        zone.push_back(c);
    }
    return zone.empty() ? "UTC" : zone;
}

}  // namespace zanth::sim
