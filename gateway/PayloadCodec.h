#pragma once
// The payload format of the project's controllers, as zanthd reads and writes it. The library
// relays these texts without reading them and adds no identity, so this file is the one place
// where the gateway knows what a controller says. Replace it (PayloadCodec is an interface) for
// controllers that speak otherwise; nothing else in zanthd looks inside a payload.
//
// Every text is ASCII, fields ended by ';'. "MAC" is the controller's short form "XX:XX:XX".
//
// Controller to host, as the gateway takes them from the library:
//   event, alarm   "MAC;msgId;MM/DD/YYYY;HH:MM:SS;class;priority;door;description;"
//                  read from the message files, at most 144 bytes (a record is padded with NULs)
//   heartbeat      "MAC;MM/DD/YYYY;HH:MM:SS;HEARTBEAT;"  filed by the library as an alarm
//   card look-up   "MAC;door;card;facility;"  the controller waits for the host's word
//   PIN report     "MAC;door;pin;"  the PIN typed at a door after the host asked for one
//   door report    "MAC;door;card;GRANTED;" or "MAC;door;card;DENIED;"  what the door did
//
// Host to controller:
//   decision       "door;card;decision;"  (RecheckLookupCard) 1 grants, 0 denies; it answers the
//                  pending look-up of that card at that door, and the controller then reports
//                  what the door did.
//   PIN request    RequestPin(door, seconds, digits): the door's keypad collects a PIN of
//                  `digits` digits within `seconds`; it comes back as a PIN report.
//
// A PIN has no answer of its own: the gateway holds the look-up that wanted it and answers that
// look-up with a decision once the PIN has been checked (or its time has run out).
//
// A controller's own results (the first field of a reply, passed on by the library below -99):
//   -100 bad argument   -101 unknown record   -102 store full   -103 record deleted
//   -104 card in use (by another record)

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zanthd {

// "xx:xx:xx", "XXXXXX" or "xx-xx-xx" as "XX:XX:XX"; empty for anything else.
std::string NormalizeMac(std::string_view mac);

struct ParsedMessage {
    std::string mac;  // empty when the text names none
    std::map<std::string, std::string> fields;
};

struct Lookup {
    std::string mac;
    int door = 0;
    uint32_t card = 0;
    int facility = 0;
};

struct PinReport {
    std::string mac;
    int door = 0;
    std::string pin;
};

// A controller's own negative result: its name and the HTTP status a resource answers it with.
struct ControllerResult {
    std::string name;  // empty: not one the codec knows
    int status = 422;
};

class PayloadCodec {
  public:
    virtual ~PayloadCodec() = default;
    // Events and alarms (heartbeats included); nullopt for a text of another shape, which is
    // still journaled, raw.
    virtual std::optional<ParsedMessage> ParseRecord(std::string_view text) const = 0;
    virtual std::optional<Lookup> ParseLookup(std::string_view text) const = 0;
    virtual std::optional<PinReport> ParsePin(std::string_view text) const = 0;
    virtual std::optional<ParsedMessage> ParseDoorReport(std::string_view text) const = 0;
    virtual std::string DecisionText(const Lookup& lookup, bool grant) const = 0;
    virtual ControllerResult DescribeResult(int32_t result) const = 0;
};

// The format above.
class ZanthPayloadCodec final : public PayloadCodec {
  public:
    std::optional<ParsedMessage> ParseRecord(std::string_view text) const override;
    std::optional<Lookup> ParseLookup(std::string_view text) const override;
    std::optional<PinReport> ParsePin(std::string_view text) const override;
    std::optional<ParsedMessage> ParseDoorReport(std::string_view text) const override;
    std::string DecisionText(const Lookup& lookup, bool grant) const override;
    ControllerResult DescribeResult(int32_t result) const override;
};

// The ';'-ended fields of a text (a trailing field without ';' counts); NULs end the text.
std::vector<std::string_view> SplitFields(std::string_view text);
// A whole decimal number in [low, high]; nothing for anything else.
std::optional<int64_t> ParseNumber(std::string_view text, int64_t low, int64_t high);

}  // namespace zanthd
