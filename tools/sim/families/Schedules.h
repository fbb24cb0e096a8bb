#pragma once
// The controller's schedules: five texts and six values each, kept under the first value.
//
// On the wire (every answer goes out as 1116, the one reply code the host's connection knows
// for these commands; a schedule reply of its own number would leave the host's link waiting):
//   125 update  "text1;...;text5;value1;...;value6;"  -> "0;"   (written or replaced)
//   126 get     "scheduleId;"  -> "0;text1;...;text5;value1;...;value5;value6;"
//   127 delete  "scheduleId;"  -> "0;"
// A schedule ID is 1 to kMaxScheduleId; a text is 0 to kMaxText printable characters. An
// unknown ID is answered "-101;", a payload that can't be read "-100;", and a new schedule
// when all kMaxSchedules are taken "-102;".

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "tools/sim/families/Family.h"

namespace zanth::sim {

struct ScheduleRecord {
    std::array<std::string, 5> texts;
    std::array<int32_t, 6> values{};  // values[0] is the schedule's ID
    bool operator==(const ScheduleRecord&) const = default;
};

class Schedules final : public Family {
  public:
    static constexpr int kMaxScheduleId = 255;
    static constexpr size_t kMaxSchedules = 64;
    static constexpr size_t kMaxText = 64;
    // The reply code of every command here.
    static constexpr int kReplyCode = 1116;

    const char* Name() const override { return "schedules"; }
    bool Handle(FamilyContext& context, int code, std::string_view payload) override;

    // Any thread.
    std::optional<ScheduleRecord> Find(int32_t scheduleId) const;
    size_t Count() const;

  private:
    std::string Answer(int code, std::string_view payload);

    mutable std::mutex mutex_;
    std::map<int32_t, ScheduleRecord> schedules_;
};

}  // namespace zanth::sim
