#include "tools/sim/families/Io.h"

#include <cctype>
#include <cstdio>

#include "protocol/Codes.h"

namespace zanth::sim {
namespace {

const std::string kBad = std::to_string(kResultBadArgument) + ";";

bool IsLimit(std::string_view s) {
    if (s.size() > Io::kMaxLimitDigits) return false;
    for (char c : s) {
        if (std::isxdigit(static_cast<unsigned char>(c)) == 0) return false;
    }
    return true;
}

std::string Value(int value) {
    return "0;" + std::to_string(value) + ";";
}

}  // namespace

bool Io::Handle(FamilyContext& context, int code, std::string_view payload) {
    switch (code) {
        case ZANTH_CMD_INTERFACE_OUTPUT_FUNCTION:
        case ZANTH_CMD_LOCAL_OUTPUT_FUNCTION:
        case ZANTH_CMD_INTERFACE_OUTPUT_FUNCTION_2:
        case ZANTH_CMD_OUTPUT_FUNCTION:
        case ZANTH_GET_LOCAL_OUTPUT_STATE:
        case ZANTH_GET_SAVED_OUTPUTS:
        case ZANTH_DRIVE_SAVED_OUTPUTS:
        case ZANTH_GET_INTERFACE_INPUT_STATUS:
        case ZANTH_GET_LOCAL_INPUT_STATUS:
        case ZANTH_GET_INPUT_STATUS:
        case ZANTH_READ_INTERFACE_ATOD:
        case ZANTH_READ_LOCAL_ATOD:
        case ZANTH_READ_ATOD:
        case ZANTH_GET_LOCAL_ATOD_LIMITS:
        case ZANTH_SET_LOCAL_ATOD_LIMITS:
        case ZANTH_GET_LOCAL_DEBOUNCE:
        case ZANTH_SET_LOCAL_DEBOUNCE:
        case ZANTH_GET_LOCAL_POLL_DELAY:
        case ZANTH_SET_LOCAL_POLL_DELAY:
        case ZANTH_GET_LOCAL_RELAY_TIMER:
        case ZANTH_SET_LOCAL_RELAY_TIMER:
        case ZANTH_GET_LOGICAL_INPUT:
        case ZANTH_SET_LOGICAL_INPUT:
            break;
        default:
            return false;
    }
    std::string answer;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        Expire();
        answer = Answer(code, payload);
    }
    context.Reply(code + 1000, answer);
    return true;
}

std::string Io::Answer(int code, std::string_view payload) {
    PayloadReader r(payload);
    // Each command takes exactly its fields; the reads below fail the reader on a bad one.
    auto fields = [&](size_t n) {
        if (r.Count() != n) r.Fail(n);
    };
    switch (code) {
        case ZANTH_CMD_INTERFACE_OUTPUT_FUNCTION:
        case ZANTH_CMD_INTERFACE_OUTPUT_FUNCTION_2:
        case ZANTH_CMD_OUTPUT_FUNCTION: {
            fields(3);
            int target = static_cast<int>(
                r.Number(0, 0, code == ZANTH_CMD_OUTPUT_FUNCTION ? kController : kBoards - 1));
            int output = static_cast<int>(r.Number(1, 0, kOutputs - 1));
            int state = static_cast<int>(r.Number(2, 0, 2));
            if (!r.Ok()) return kBad;
            std::string done = DriveOutput(target, output, state);
            // The oldest board reply counts 1 as success.
            return code == ZANTH_CMD_INTERFACE_OUTPUT_FUNCTION ? "1;" : done;
        }
        case ZANTH_CMD_LOCAL_OUTPUT_FUNCTION: {
            fields(2);
            int output = static_cast<int>(r.Number(0, 0, kOutputs - 1));
            int state = static_cast<int>(r.Number(1, 0, 2));
            return r.Ok() ? DriveOutput(kController, output, state) : kBad;
        }
        case ZANTH_GET_LOCAL_OUTPUT_STATE: {
            fields(1);
            int output = static_cast<int>(r.Number(0, 0, kOutputs - 1));
            if (!r.Ok()) return kBad;
            return Value(targets_[kController].outputs[output] ? 1 : 0);
        }
        case ZANTH_GET_SAVED_OUTPUTS:
        case ZANTH_DRIVE_SAVED_OUTPUTS: {
            fields(1);
            int board = static_cast<int>(r.Number(0, 0, kBoards - 1));
            if (!r.Ok()) return kBad;
            Target& t = targets_[board];
            if (code == ZANTH_DRIVE_SAVED_OUTPUTS) {
                t.outputs = t.saved;
                return "0;";
            }
            std::string answer = "0;";
            for (bool on : t.saved) answer += on ? '1' : '0';
            return answer;
        }
        case ZANTH_GET_INTERFACE_INPUT_STATUS:
        case ZANTH_GET_INPUT_STATUS: {
            fields(1);
            int target = static_cast<int>(
                r.Number(0, 0, code == ZANTH_GET_INPUT_STATUS ? kController : kBoards - 1));
            return r.Ok() ? InputStatus(target) : kBad;
        }
        case ZANTH_GET_LOCAL_INPUT_STATUS:
            fields(0);
            return r.Ok() ? InputStatus(kController) : kBad;
        case ZANTH_READ_INTERFACE_ATOD:
        case ZANTH_READ_LOCAL_ATOD:
        case ZANTH_READ_ATOD: {
            bool local = code == ZANTH_READ_LOCAL_ATOD;
            fields(local ? 1 : 2);
            int target = local ? kController
                               : static_cast<int>(r.Number(
                                     0, 0, code == ZANTH_READ_ATOD ? kController : kBoards - 1));
            int channel = static_cast<int>(r.Number(local ? 0 : 1, 0, kChannels - 1));
            if (!r.Ok()) return kBad;
            char hex[16];
            std::snprintf(hex, sizeof hex, "%X",
                          static_cast<unsigned>(targets_[target].analogue[channel]));
            return std::string("0;") + hex + ";";
        }
        case ZANTH_GET_LOCAL_ATOD_LIMITS: {
            fields(1);
            int channel = static_cast<int>(r.Number(0, 0, kLimitChannels - 1));
            if (!r.Ok()) return kBad;
            const Limits& l = limits_[channel];
            return "0;" + l.upperHigh + ";" + l.lowerHigh + ";" + l.upperLow + ";" + l.lowerLow +
                   ";";
        }
        case ZANTH_SET_LOCAL_ATOD_LIMITS: {
            fields(5);
            int channel = static_cast<int>(r.Number(0, 0, kLimitChannels - 1));
            for (size_t i = 1; i <= 4; ++i) {
                if (!IsLimit(r.Raw(i))) r.Fail(i);
            }
            if (!r.Ok()) return kBad;
            Limits& l = limits_[channel];
            // An empty limit leaves the one in its place as it was.
            std::string* slots[] = {&l.upperHigh, &l.lowerHigh, &l.upperLow, &l.lowerLow};
            for (size_t i = 1; i <= 4; ++i) {
                if (!r.Raw(i).empty()) *slots[i - 1] = std::string(r.Raw(i));
            }
            return "0;";
        }
        case ZANTH_GET_LOCAL_DEBOUNCE: {
            fields(1);
            int input = static_cast<int>(r.Number(0, 0, kInputs - 1));
            return r.Ok() ? Value(debounceMs_[input]) : kBad;
        }
        case ZANTH_SET_LOCAL_DEBOUNCE: {
            fields(2);
            int input = static_cast<int>(r.Number(0, 0, kInputs - 1));
            int ms = static_cast<int>(r.Number(1, 0, 65535));
            if (!r.Ok()) return kBad;
            debounceMs_[input] = ms;
            return "0;";
        }
        case ZANTH_GET_LOCAL_POLL_DELAY:
            fields(0);
            return r.Ok() ? Value(pollDelayMs_) : kBad;
        case ZANTH_SET_LOCAL_POLL_DELAY: {
            fields(1);
            int ms = static_cast<int>(r.Number(0, 0, 60000));
            if (!r.Ok()) return kBad;
            pollDelayMs_ = ms;
            return "0;";
        }
        case ZANTH_GET_LOCAL_RELAY_TIMER: {
            fields(1);
            int relay = static_cast<int>(r.Number(0, 0, kRelays - 1));
            return r.Ok() ? Value(relayTimerMs_[relay]) : kBad;
        }
        case ZANTH_SET_LOCAL_RELAY_TIMER: {
            fields(2);
            int relay = static_cast<int>(r.Number(0, 0, kRelays - 1));
            int ms = static_cast<int>(r.Number(1, 0, kMaxRelayTimerMs));
            if (!r.Ok()) return kBad;
            relayTimerMs_[relay] = ms;
            return "0;";
        }
        case ZANTH_GET_LOGICAL_INPUT: {
            fields(1);
            int64_t number = r.Number(0, 1, INT32_MAX);
            if (!r.Ok()) return kBad;
            auto it = logicalInputs_.find(number);
            return Value(it == logicalInputs_.end() ? 0 : it->second);
        }
        case ZANTH_SET_LOGICAL_INPUT: {
            fields(2);
            int64_t number = r.Number(0, 1, INT32_MAX);
            int value = static_cast<int>(r.Number(1, 0, 1));
            if (!r.Ok()) return kBad;
            logicalInputs_[number] = value;
            return "0;";
        }
        default:
            return kBad;
    }
}

std::string Io::DriveOutput(int target, int output, int state) {
    Target& t = targets_[target];
    bool on = state == 2 ? !t.outputs[output] : state == 1;
    t.outputs[output] = on;
    if (target != kController) {
        t.saved[output] = on;
    } else if (output < kRelays) {
        // A relay with a timer set turns itself off again; one switched by hand has no due time.
        relayOffAt_[output].reset();
        if (on && relayTimerMs_[output] > 0) {
            relayOffAt_[output] = Clock::now() + std::chrono::milliseconds(relayTimerMs_[output]);
        }
    }
    return "0;";
}

void Io::Expire() const {
    auto now = Clock::now();
    for (int relay = 0; relay < kRelays; ++relay) {
        if (relayOffAt_[relay] && *relayOffAt_[relay] <= now) {
            targets_[kController].outputs[relay] = false;
            relayOffAt_[relay].reset();
        }
    }
}

bool Io::InputOn(int target, int input) const {
    if (target == kController && input >= kLockMonitorInput &&
        input < kLockMonitorInput + kRelays) {
        return targets_[kController].outputs[input - kLockMonitorInput];
    }
    return targets_[target].inputs[input];
}

std::string Io::InputStatus(int target) {
    uint32_t mask = 0;
    std::string states;
    for (int i = 0; i < kInputs; ++i) {
        bool on = InputOn(target, i);
        if (on) mask |= 1u << i;
        states += on ? '1' : '0';
    }
    return "0;" + std::to_string(mask) + ";" + states + ";";
}

bool Io::SetInput(int target, int input, bool on) {
    if (target < 0 || target > kController || input < 0 || input >= kInputs) return false;
    if (target == kController && input >= kLockMonitorInput &&
        input < kLockMonitorInput + kRelays) {
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    targets_[target].inputs[input] = on;
    return true;
}

bool Io::SetAnalogue(int target, int channel, int value) {
    if (target < 0 || target > kController || channel < 0 || channel >= kChannels || value < 0) {
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    targets_[target].analogue[channel] = value;
    return true;
}

std::optional<bool> Io::Output(int target, int output) const {
    if (target < 0 || target > kController || output < 0 || output >= kOutputs) {
        return std::nullopt;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    Expire();
    return targets_[target].outputs[output];
}

std::optional<bool> Io::Input(int target, int input) const {
    if (target < 0 || target > kController || input < 0 || input >= kInputs) return std::nullopt;
    std::lock_guard<std::mutex> lock(mutex_);
    Expire();
    return InputOn(target, input);
}

bool Io::PowerCycleBoard(int board) {
    if (board < 0 || board >= kBoards) return false;
    std::lock_guard<std::mutex> lock(mutex_);
    targets_[board].outputs = {};
    return true;
}

std::optional<int> Io::RelayTimer(int relay) const {
    if (relay < 0 || relay >= kRelays) return std::nullopt;
    std::lock_guard<std::mutex> lock(mutex_);
    return relayTimerMs_[relay];
}

std::optional<Io::Limits> Io::A2DLimits(int channel) const {
    if (channel < 0 || channel >= kLimitChannels) return std::nullopt;
    std::lock_guard<std::mutex> lock(mutex_);
    return limits_[channel];
}

}  // namespace zanth::sim
