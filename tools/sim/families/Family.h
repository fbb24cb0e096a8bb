#pragma once
// A family of controller commands in the simulator: the state a controller keeps for those
// commands and its answers to them. Each controller owns one instance of every family, made by
// MakeFamilies when the controller is added, so the state lives as long as the simulator and
// survives the controller's reconnects and reboots.
//
// Handle runs on the simulator's loop thread. Tests and the zanth-sim program read and change a
// family's state from other threads through the family's own typed accessors
// (controller.Family<CardDatabase>().Find(7)), so each family guards its state with its own
// mutex, and Handle takes it too.
//
// Adding a family: write families/<Name>.{h,cpp} with a class derived from Family, and add one
// line for it to MakeFamilies in families/Families.cpp. Nothing else changes: the controller
// offers every command that its built-in cases don't answer to the families in list order, and
// a code no family takes is answered 9910 "code;".

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zanth::sim {

class Controller;
struct ControllerConfig;

// The controller's own negative results, shared by the families. All lie at -100 and below,
// where the host library hands them to its caller unchanged.
inline constexpr int kResultOk = 0;
inline constexpr int kResultBadArgument = -100;    // unreadable payload or a value out of range
inline constexpr int kResultUnknownRecord = -101;  // no record under that key
inline constexpr int kResultStoreFull = -102;      // no room for another record

// What a family may do with the controller while it handles one command.
class FamilyContext {
  public:
    explicit FamilyContext(Controller& controller) : controller_(controller) {}

    // Queues an answer to the host; it goes out when the command is done, or at Flush.
    void Reply(int code, std::string_view payload);
    // The usual answer to `code` (code + 1000) with a bare result, "rslt;".
    void ReplyResult(int code, int result);
    void Flush();
    // An unsolicited message, with the host's acknowledgement it expects (0: none). It waits
    // for the link if the controller isn't identified.
    void Send(int code, std::string payload, int expectedAck);
    // The same, and the acknowledgement delivers these stored messages (families/Upload.h).
    void Send(int code, std::string payload, int expectedAck, std::vector<uint32_t> delivers);
    // Resets the link once the command in hand is done, as a controller that crashes would.
    void ResetLink();

    // The controller's command task restarts: the link goes down at once, as in a reboot, and
    // comes back after the reboot delay. Nothing more is answered on the old link.
    void RestartLink();

    const std::string& Mac() const;
    const ControllerConfig& Config() const;

  private:
    Controller& controller_;
};

class Family {
  public:
    virtual ~Family() = default;
    // For logs and the zanth-sim summary.
    virtual const char* Name() const = 0;
    // Answers `code` and returns true, or returns false for a code that isn't this family's.
    // `payload` is whatever the host sent: every field is checked before it is used, and a
    // payload that can't be read is answered with the command's negative result.
    virtual bool Handle(FamilyContext& context, int code, std::string_view payload) = 0;
};

// One of each family, in the order they are offered commands.
std::vector<std::unique_ptr<Family>> MakeFamilies(const ControllerConfig& config);

// Field readers for the families' parsers: a whole decimal field within [low, high], or nothing.
std::optional<int64_t> FieldInRange(std::string_view field, int64_t low, int64_t high);
// A unique ID as hosts send it: "%u", or "%d" of the same 32 bits (4294967295 as "-1"). Zero
// and anything outside 32 bits give nothing.
std::optional<uint32_t> FieldUniqueId(std::string_view field);

// Reads a payload's ';'-ended fields by position. A field that is missing or out of its bounds
// makes the whole reading fail (Ok() false) and reads as 0 or "", so a parser takes every field
// in one pass and checks once at the end.
class PayloadReader {
  public:
    explicit PayloadReader(std::string_view payload);

    size_t Count() const { return fields_.size(); }
    bool Ok() const { return !firstBad_; }
    // The position of the first field that failed, if one did.
    std::optional<size_t> FirstBad() const { return firstBad_; }
    // Fails the reading at `index`; for checks of the parser's own.
    void Fail(size_t index);

    int64_t Number(size_t index, int64_t low, int64_t high);
    uint32_t UniqueId(size_t index);
    // A text of 1 to `maxLength` printable characters.
    std::string Text(size_t index, size_t maxLength);
    // The field as it stands, empty when missing (doesn't fail).
    std::string_view Raw(size_t index) const;

  private:
    std::vector<std::string_view> fields_;
    std::optional<size_t> firstBad_;
};

}  // namespace zanth::sim
