#include "gateway/SiteTime.h"

#include <date/tz.h>

#include <cstdio>

namespace zanthd {
namespace {

const date::time_zone* ZoneOf(const void* p) { return static_cast<const date::time_zone*>(p); }

}  // namespace

bool ParseLocalDateTime(const std::string& text, LocalDateTime* out) {
    LocalDateTime t;
    int consumed = 0;
    if (text.size() == 16) {
        if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d%n", &t.year, &t.month, &t.day, &t.hour,
                        &t.minute, &consumed) != 5 || consumed != 16) {
            return false;
        }
    } else if (text.size() == 19) {
        if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%n", &t.year, &t.month, &t.day,
                        &t.hour, &t.minute, &t.second, &consumed) != 6 || consumed != 19) {
            return false;
        }
    } else {
        return false;
    }
    for (char c : text) {
        if (c == '-' || c == ':' || c == 'T' || (c >= '0' && c <= '9')) continue;
        return false;
    }
    date::year_month_day ymd{date::year{t.year}, date::month{static_cast<unsigned>(t.month)},
                             date::day{static_cast<unsigned>(t.day)}};
    if (t.year < 1970 || t.year > 9999 || !ymd.ok() || t.hour > 23 || t.minute > 59 ||
        t.second > 59 || t.hour < 0 || t.minute < 0 || t.second < 0) {
        return false;
    }
    *out = t;
    return true;
}

bool ValidTimeZone(const std::string& name) {
    try {
        return date::locate_zone(name) != nullptr;
    } catch (const std::exception&) {
        return false;
    }
}

SiteClock::SiteClock(const std::string& zone) : name_(zone), zone_(date::locate_zone(zone)) {}

SiteClock::Local SiteClock::ToLocal(int64_t unixMs) const {
    using namespace std::chrono;
    date::sys_time<milliseconds> sys{milliseconds{unixMs}};
    auto local = ZoneOf(zone_)->to_local(sys);
    auto day = date::floor<date::days>(local);
    date::weekday wd(day);
    auto sinceMidnight = duration_cast<seconds>(local - day);
    Local out;
    out.weekday = static_cast<int>((wd.c_encoding() + 6) % 7);
    out.minuteOfDay = static_cast<int>(sinceMidnight.count() / 60);
    date::year_month_day ymd(day);
    char text[96];
    long s = static_cast<long>(sinceMidnight.count()) % 86400;
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02ld:%02ld:%02ld", static_cast<int>(ymd.year()),
                  static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()), s / 3600,
                  (s / 60) % 60, s % 60);
    out.text = text;
    return out;
}

int64_t SiteClock::ToUnixMs(const LocalDateTime& t) const {
    using namespace std::chrono;
    date::local_days day{date::year{t.year} / t.month / t.day};
    date::local_seconds local = day + hours{t.hour} + minutes{t.minute} + seconds{t.second};
    auto info = ZoneOf(zone_)->get_info(local);
    date::sys_seconds sys;
    switch (info.result) {
        case date::local_info::unique:
        case date::local_info::ambiguous:
            // The first occurrence: the offset in force before the clocks went back.
            sys = date::sys_seconds{local.time_since_epoch()} - info.first.offset;
            break;
        case date::local_info::nonexistent:
        default:
            // The skipped hour starts at the jump itself.
            sys = info.second.begin;
            break;
    }
    return duration_cast<milliseconds>(sys.time_since_epoch()).count();
}

}  // namespace zanthd
