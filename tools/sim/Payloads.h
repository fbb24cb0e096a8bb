#pragma once
// The texts a simulated controller puts on the wire, and the host texts it understands. The
// library relays these payloads without reading them, so this file is where the controller side
// of the conversation is fixed; the demo and the tests build and check texts with it.
//
// Every payload is ASCII, each field ended by ';', no field empty. "MAC" below is the controller's
// own short form "XX:XX:XX" (upper case), the form the host uses to address it; the library adds
// no identity to what it passes on, so every host-facing text carries the MAC itself.
//
// Controller to host
//   1042/1043 identify    "02:5A:37:XX:XX:XX;firmware;"  (the library keeps what follows the
//                         first nine characters of the first field as the MAC)
//   1079 controller info  "model;firmware;MAC;serial;"
//   1061 event, 1060 alarm
//                         "MAC;msgId;MM/DD/YYYY;HH:MM:SS;class;priority;door;description;"
//                         at most 144 bytes (the host keeps 144-byte records; the description is
//                         cut to fit). msgId counts 1 to 99999 per controller, then wraps. The
//                         MAC leads, as in every other host-facing text: a host that reads the
//                         message file learns which controller raised the record.
//   1069 heartbeat        "MAC;MM/DD/YYYY;HH:MM:SS;HEARTBEAT;"  (the host files it as an alarm)
//   1065 bundle           "1061;<event text>^1060;<alarm text>^..."  (texts hold no '^')
//   1073 card look-up     "MAC;door;card;facility;"
//   1101 PIN report       "MAC;door;pin;"
//   1093 post-access      "MAC;door;card;GRANTED;" or "MAC;door;card;DENIED;"
//   1152 smart card data  "MAC;door;hexdata;"
//   1153 key pad data     "MAC;door;keys;"
//   1154 command key      "MAC;door;key;"
//   1080 here-I-am        "MAC;model;firmware;"  (the library appends the host's time)
//   1009, 1096 reboot     "0;"
//   1075 recheck reply    "0;" decision taken; "-100;" unreadable text; "-101;" no look-up of that
//                         card is pending at that door (both reach the caller as they are)
//   1100 PIN request reply "0;" or "-100;" for an unreadable request
//   1062 upload reply     "0;", then the matching stored events and alarms follow as bundles
//   9910 unknown command  "code;"
//
// Host to controller
//   75 RecheckLookupCard  "door;card;decision;"  decision 1 grants, 0 denies. After its 1075 the
//                         controller reports what the door did as a 1093 post-access message.
//   100 RequestPin        "door;seconds;digits;"  the door whose keypad collects the PIN, how long
//                         it waits and how many digits it takes; the PIN follows as 1101.
//   93 post-access        any text; recorded, never answered.
//   60 to 66 upload       as the host frames them: class code, priority or a message-ID range.

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zanth::sim {

// The product line's fixed first three octets, in front of every controller's own three.
inline constexpr std::string_view kMacPrefix = "02:5A:37:";
// The host stores events and alarms in records of this many bytes.
inline constexpr size_t kMessageTextLimit = 144;
// The largest payload one frame carries (a 4097-byte message buffer less the header).
inline constexpr size_t kPayloadLimit = 4087;
inline constexpr uint32_t kMaxMessageId = 99999;

// "xx:xx:xx", "XXXXXX" or "xx-xx-xx" as "XX:XX:XX"; empty when it is not three octets.
std::string NormalizeMac(std::string_view mac);
// The MAC `offset` places after `base` (24-bit arithmetic, wrapping); empty for a bad base.
std::string MacPlus(std::string_view base, uint32_t offset);

// One stored event or alarm.
struct MessageRecord {
    int code = 0;     // 1061 event, 1060 alarm
    std::string mac;  // "XX:XX:XX" of the controller that raised it
    uint32_t msgId = 0;
    std::tm time{};
    int eventClass = 0;
    int priority = 0;
    int door = 0;
    std::string description;
};

std::tm LocalTimeNow();
// The record as its wire text, cut to kMessageTextLimit bytes; ';' and '^' in the description
// become blanks so that the fields and a bundle stay readable.
std::string MessageText(const MessageRecord& record);

std::string IdentifyPayload(std::string_view mac, std::string_view firmware);
std::string ControllerInfoPayload(std::string_view model, std::string_view firmware,
                                  std::string_view mac, std::string_view serial);
// A serial number derived from the MAC, stable per controller.
std::string SerialFor(std::string_view mac);
std::string HeartbeatPayload(std::string_view mac, const std::tm& time);
std::string LookupPayload(std::string_view mac, int door, uint32_t card, int facility);
std::string PinReportPayload(std::string_view mac, int door, std::string_view pin);
std::string PostAccessPayload(std::string_view mac, int door, uint32_t card, bool granted);
std::string SmartCardPayload(std::string_view mac, int door, std::string_view hexData);
std::string KeyPadPayload(std::string_view mac, int door, std::string_view keys);
std::string CommandKeyPayload(std::string_view mac, int door, std::string_view key);
std::string HereIAmPayload(std::string_view mac, std::string_view model, std::string_view firmware);

struct BundleEntry {
    int code = 0;  // 1061 or 1060
    std::string text;
};
// "code;text^" per entry.
std::string BundlePayload(const std::vector<BundleEntry>& entries);

// The host's answer to a look-up, as RecheckLookupCard carries it.
struct RecheckDecision {
    int door = 0;
    uint32_t card = 0;
    bool granted = false;
};
std::string RecheckText(int door, uint32_t card, bool granted);
std::optional<RecheckDecision> ParseRecheck(std::string_view text);

struct PinRequest {
    int door = 0;
    int seconds = 0;
    int digits = 0;
};
std::optional<PinRequest> ParsePinRequest(std::string_view text);

// The ';'-ended fields of a payload; a trailing text without ';' counts as a field too.
std::vector<std::string_view> SplitFields(std::string_view payload);
// A whole decimal field (optional leading '-'); nothing for anything else.
std::optional<int64_t> FieldNumber(std::string_view field);

}  // namespace zanth::sim
