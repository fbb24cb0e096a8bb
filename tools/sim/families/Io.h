#pragma once
// The controller's hardware as the host reaches it: outputs and inputs of the controller
// (target 32) and of its 32 interface boards (targets 0 to 31), the boards' saved outputs, the
// analogue channels, and the settings of the controller's local hardware.
//
// On the wire (every answer is the command's code + 1000, its first field the result; anything
// unreadable or out of range is answered "-100;"):
//   1  board output, old     "target;output;state;" (0-31) -> 1001 "1;" (this reply's success)
//   47 controller output     "output;state;"               -> 1047 "0;"
//   91 board output          "target;output;state;" (0-31) -> 1091 "0;"
//   94 any output            "target;output;state;" (0-32) -> 1094 "0;"
//   49 local output state    "output;"                     -> 1049 "0;state;"
//   81 saved outputs         "interface;" -> 1081 "0;" and one character per output, to the end
//   82 drive saved outputs   "interface;" -> 1082 "0;"
//   2/48/95 input status     "target;" (48: none, the controller) -> "0;mask;states;"
//   8/53/97 analogue channel "target;channel;" (53: "channel;")   -> "0;value in hex;"
//   54/55 A/D limits         "channel;" / "channel;uh;lh;ul;ll;"    -> "0;uh;lh;ul;ll;" / "0;"
//   83/84 debounce           "input;" / "input;ms;"                 -> "0;ms;" / "0;"
//   85/86 poll delay         "" / "ms;"                             -> "0;ms;" / "0;"
//   56/57 relay timer        "relay;" / "relay;ms;"                 -> "0;ms;" / "0;"
//   15/14 logical input      "number;" / "number;value;"            -> "0;value;" / "0;"
//
// How this controller behaves where the host side leaves it open:
//  - Every target has kOutputs outputs and kInputs inputs. The bit or function code names the
//    output (0 to kOutputs - 1; higher codes are refused), the state is 0 off, 1 on, 2 toggle.
//  - A board remembers the last state the host commanded for each output: that is its saved
//    state, which GetSavedOutputs reads ('0' or '1' per output, output 0 first) and
//    DriveSavedOutputs applies again, after a board lost its outputs (PowerCycleBoard).
//  - The controller's outputs 0 and 1 are the door relays 0 and 1. A relay switched on while
//    its relay timer is set goes off again once the timer has run; its lock monitor, controller
//    input kLockMonitorInput + relay, reads 1 while the relay is on.
//  - Input status: the mask of the inputs that are on (input 0 is bit 0), then the same as
//    '0'/'1' per input, input 0 first. Tests and zanth-sim --input set inputs with SetInput.
//  - Analogue channels read as upper-case hex, 0 until a test sets them with SetAnalogue.
//  - A/D limits are hex texts of at most kMaxLimitDigits digits; an empty limit in a set keeps
//    the limit it stood for. Debounce (inputs 0 to kInputs - 1), poll delay, relay timers and
//    logical inputs read back what was set, or their defaults.
//
// The family has no timer of its own: a relay's due time is checked whenever a command arrives
// or a test reads the state, which is all a host or a test can observe.

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "tools/sim/families/Family.h"

namespace zanth::sim {

class Io final : public Family {
  public:
    using Clock = std::chrono::steady_clock;

    static constexpr int kBoards = 32;
    static constexpr int kController = 32;  // the controller's own target number
    static constexpr int kOutputs = 16;
    static constexpr int kInputs = 16;
    static constexpr int kChannels = 24;
    static constexpr int kLimitChannels = 8;
    static constexpr int kRelays = 2;
    static constexpr int kLockMonitorInput = 8;
    static constexpr size_t kMaxLimitDigits = 8;
    static constexpr int kMaxRelayTimerMs = 1320000;
    static constexpr int kDefaultDebounceMs = 20;
    static constexpr int kDefaultPollDelayMs = 100;

    struct Limits {
        std::string upperHigh = "3FF";
        std::string lowerHigh = "300";
        std::string upperLow = "100";
        std::string lowerLow = "0";
        bool operator==(const Limits&) const = default;
    };

    Io() { debounceMs_.fill(kDefaultDebounceMs); }

    const char* Name() const override { return "outputs and inputs"; }
    bool Handle(FamilyContext& context, int code, std::string_view payload) override;

    // Any thread. False (nothing changed) for a target, input or channel that doesn't exist;
    // a lock monitor input follows its relay and can't be set.
    bool SetInput(int target, int input, bool on);
    bool SetAnalogue(int target, int channel, int value);
    std::optional<bool> Output(int target, int output) const;
    std::optional<bool> Input(int target, int input) const;
    // The board loses its output states (all off); the saved states stay.
    bool PowerCycleBoard(int board);
    std::optional<int> RelayTimer(int relay) const;
    std::optional<Limits> A2DLimits(int channel) const;

  private:
    struct Target {
        std::array<bool, kOutputs> outputs{};
        std::array<bool, kOutputs> saved{};
        std::array<bool, kInputs> inputs{};
        std::array<int, kChannels> analogue{};
    };

    std::string Answer(int code, std::string_view payload);
    std::string DriveOutput(int target, int output, int state);
    std::string InputStatus(int target);
    bool InputOn(int target, int input) const;
    // Switches off the relays whose timer has run out by now.
    void Expire() const;

    mutable std::mutex mutex_;
    // Mutable so that a read can first bring due relay timers up to date.
    mutable std::array<Target, kBoards + 1> targets_{};
    mutable std::array<std::optional<Clock::time_point>, kRelays> relayOffAt_{};
    std::array<int, kRelays> relayTimerMs_{};
    std::array<Limits, kLimitChannels> limits_{};
    std::array<int, kInputs> debounceMs_{};
    int pollDelayMs_ = kDefaultPollDelayMs;
    std::map<int64_t, int> logicalInputs_;
};

}  // namespace zanth::sim
