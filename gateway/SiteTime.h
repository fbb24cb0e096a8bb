#pragma once
// The site's time zone: rules are written in the site's local time (validity windows, schedule
// hours), and evaluated against the instant a card is presented, across DST changes.

#include <cstdint>
#include <string>

namespace zanthd {

struct LocalDateTime {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
};

// "YYYY-MM-DDTHH:MM" or "YYYY-MM-DDTHH:MM:SS"; false for anything else or an impossible date.
bool ParseLocalDateTime(const std::string& text, LocalDateTime* out);
bool ValidTimeZone(const std::string& name);

class SiteClock {
  public:
    explicit SiteClock(const std::string& zone);  // throws for an unknown zone
    struct Local {
        int weekday = 0;  // 0 Monday ... 6 Sunday
        int minuteOfDay = 0;
        std::string text;  // "YYYY-MM-DDTHH:MM:SS"
    };
    Local ToLocal(int64_t unixMs) const;
    // The instant of a local time. A time that the clocks skip (spring forward) counts from the
    // moment of the jump; one that happens twice (fall back) from its first occurrence.
    int64_t ToUnixMs(const LocalDateTime& local) const;
    const std::string& Zone() const { return name_; }

  private:
    std::string name_;
    const void* zone_;  // date::time_zone
};

}  // namespace zanthd
