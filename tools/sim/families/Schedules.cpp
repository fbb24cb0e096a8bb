#include "tools/sim/families/Schedules.h"

#include "tools/sim/Payloads.h"

namespace zanth::sim {
namespace {

constexpr int kUpdateSchedule = 125;
constexpr int kGetSchedule = 126;
constexpr int kDeleteSchedule = 127;

std::string ResultText(int result) {
    return std::to_string(result) + ";";
}

bool IsScheduleText(std::string_view text) {
    if (text.size() > Schedules::kMaxText) return false;
    for (char c : text) {
        if (c < 0x20 || c >= 0x7f) return false;
    }
    return true;
}

}  // namespace

bool Schedules::Handle(FamilyContext& context, int code, std::string_view payload) {
    if (code != kUpdateSchedule && code != kGetSchedule && code != kDeleteSchedule) return false;
    std::string answer;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        answer = Answer(code, payload);
    }
    context.Reply(kReplyCode, answer);
    return true;
}

std::string Schedules::Answer(int code, std::string_view payload) {
    PayloadReader in(payload);
    if (code == kUpdateSchedule) {
        ScheduleRecord record;
        for (size_t i = 0; i < record.texts.size(); ++i) {
            if (!IsScheduleText(in.Raw(i))) in.Fail(i);
            record.texts[i] = std::string(in.Raw(i));
        }
        for (size_t i = 0; i < record.values.size(); ++i) {
            record.values[i] = static_cast<int32_t>(in.Number(5 + i, INT32_MIN, INT32_MAX));
        }
        if (in.Count() != 11 || !in.Ok() || record.values[0] < 1 ||
            record.values[0] > kMaxScheduleId) {
            return ResultText(kResultBadArgument);
        }
        if (!schedules_.count(record.values[0]) && schedules_.size() >= kMaxSchedules) {
            return ResultText(kResultStoreFull);
        }
        schedules_[record.values[0]] = record;
        return ResultText(kResultOk);
    }

    auto id = static_cast<int32_t>(in.Number(0, 1, kMaxScheduleId));
    if (in.Count() != 1 || !in.Ok()) return ResultText(kResultBadArgument);
    auto it = schedules_.find(id);
    if (it == schedules_.end()) return ResultText(kResultUnknownRecord);
    if (code == kDeleteSchedule) {
        schedules_.erase(it);
        return ResultText(kResultOk);
    }
    std::string answer = ResultText(kResultOk);
    for (const std::string& text : it->second.texts) answer += text + ";";
    for (int32_t value : it->second.values) answer += std::to_string(value) + ";";
    return answer;
}

std::optional<ScheduleRecord> Schedules::Find(int32_t scheduleId) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = schedules_.find(scheduleId);
    if (it == schedules_.end()) return std::nullopt;
    return it->second;
}

size_t Schedules::Count() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return schedules_.size();
}

}  // namespace zanth::sim
