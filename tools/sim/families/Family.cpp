#include "tools/sim/families/Family.h"

#include "tools/sim/Controller.h"
#include "tools/sim/Payloads.h"

namespace zanth::sim {

void FamilyContext::Reply(int code, std::string_view payload) {
    controller_.Reply(code, payload);
}

void FamilyContext::ReplyResult(int code, int result) {
    controller_.Reply(code + 1000, std::to_string(result) + ";");
}

void FamilyContext::Flush() {
    controller_.Flush();
}

void FamilyContext::Send(int code, std::string payload, int expectedAck) {
    controller_.Enqueue({code, std::move(payload), expectedAck, false, std::nullopt});
}

void FamilyContext::Send(int code, std::string payload, int expectedAck,
                         std::vector<uint32_t> delivers) {
    controller_.Enqueue(
        {code, std::move(payload), expectedAck, false, std::nullopt, std::move(delivers)});
}

void FamilyContext::ResetLink() {
    controller_.Reset();
}

void FamilyContext::RestartLink() {
    controller_.Reboot();
}

const std::string& FamilyContext::Mac() const {
    return controller_.Mac();
}

const ControllerConfig& FamilyContext::Config() const {
    return controller_.Config();
}

std::optional<int64_t> FieldInRange(std::string_view field, int64_t low, int64_t high) {
    auto value = FieldNumber(field);
    if (!value || *value < low || *value > high) return std::nullopt;
    return value;
}

std::optional<uint32_t> FieldUniqueId(std::string_view field) {
    auto value = FieldInRange(field, INT32_MIN, UINT32_MAX);
    if (!value || *value == 0) return std::nullopt;
    return static_cast<uint32_t>(*value);
}

PayloadReader::PayloadReader(std::string_view payload) : fields_(SplitFields(payload)) {}

int64_t PayloadReader::Number(size_t index, int64_t low, int64_t high) {
    auto value = index < fields_.size() ? FieldInRange(fields_[index], low, high) : std::nullopt;
    if (!value) Fail(index);
    return value.value_or(0);
}

uint32_t PayloadReader::UniqueId(size_t index) {
    auto value = index < fields_.size() ? FieldUniqueId(fields_[index]) : std::nullopt;
    if (!value) Fail(index);
    return value.value_or(0);
}

std::string PayloadReader::Text(size_t index, size_t maxLength) {
    std::string_view field = Raw(index);
    bool printable = true;
    for (char c : field) printable = printable && c >= 0x20 && c < 0x7f;
    if (field.empty() || field.size() > maxLength || !printable) {
        Fail(index);
        return {};
    }
    return std::string(field);
}

void PayloadReader::Fail(size_t index) {
    if (!firstBad_) firstBad_ = index;
}

std::string_view PayloadReader::Raw(size_t index) const {
    return index < fields_.size() ? fields_[index] : std::string_view();
}

}  // namespace zanth::sim
