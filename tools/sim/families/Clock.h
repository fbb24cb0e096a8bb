#pragma once
// The controller's clock and time zone.
//
// The clock runs as the host's local clock plus an offset: SetTimeDate moves the offset, every
// reading and every stamp on the controller's events, alarms and heartbeats adds it. The
// time-zone text is kept as the host set it (POSIX form, "EST5EDT,M3.2.0,M11.1.0" say) and
// doesn't move the clock; the current zone is its standard zone's name, the letters in front.
//
// On the wire (dates and times without leading zeros):
//   19 get time      ""                                   -> 1019
//   "0;month;day;year;hour;minute;second;" 18 set time      "month;day;year;hour;minute;second;" ->
//   1018 "0;" 46 current zone  ""                                   -> 1046 "0;zone;" 87 get TZ ""
//   -> 1087 "0;tz;" 88 set TZ        "tz;"                                -> 1088 "0;"
// A set with a field missing or out of range (a day the month doesn't have, a year outside 1970
// to 2037) or a zone text that isn't 1 to kMaxZone printable characters is answered "-100;".

#include <cstdint>
#include <ctime>
#include <mutex>
#include <string>
#include <string_view>

#include "tools/sim/families/Family.h"

namespace zanth::sim {

class ControllerClock final : public Family {
  public:
    static constexpr size_t kMaxZone = 63;

    const char* Name() const override { return "clock"; }
    bool Handle(FamilyContext& context, int code, std::string_view payload) override;

    // Any thread.
    std::tm Now() const;
    // Seconds the controller's clock runs ahead of the host's (negative: behind).
    int64_t Offset() const;
    void SetOffset(int64_t seconds);
    std::string TimeZone() const;
    // The standard zone's name of the time-zone text: "EST" of "EST5EDT,...".
    std::string CurrentZone() const;

  private:
    std::string Answer(int code, std::string_view payload);

    mutable std::mutex mutex_;
    int64_t offset_ = 0;
    std::string tz_ = "UTC0";
};

}  // namespace zanth::sim
