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

}  // namespace zanth::sim
