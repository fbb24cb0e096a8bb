// The controller's local hardware settings. Each is one method with `mode` 0 to read and 1 to
// set; the two modes send different codes and accept only their own reply.

#include "frame/Master.h"
#include "frame/Transaction.h"
#include "protocol/Codes.h"

namespace zanth {
namespace {

// A bound and the subject its log text names ("<subject> must be between ...").
struct Bound {
    const char* subject;  // null: no check
    int64_t low;
    int64_t high;
};

// One numeric setting: its codes, whether a number (input, relay) goes first in the payload,
// and the bounds of that number and of the value to set.
struct NumericSetting {
    const char* method;
    int32_t readCode;
    int32_t readReply;
    int32_t writeCode;
    int32_t writeReply;
    bool numbered;
    Bound number;
    Bound value;
};

constexpr NumericSetting kDebounce{"Master::LocalDebounce",
                                   ZANTH_GET_LOCAL_DEBOUNCE,
                                   ZANTH_GET_LOCAL_DEBOUNCE_RSP,
                                   ZANTH_SET_LOCAL_DEBOUNCE,
                                   ZANTH_SET_LOCAL_DEBOUNCE_RSP,
                                   true,
                                   {nullptr, 0, 0},
                                   {nullptr, 0, 0}};
constexpr NumericSetting kRelayTimer{
    "Master::LocalRelayTimer",       ZANTH_GET_LOCAL_RELAY_TIMER,
    ZANTH_GET_LOCAL_RELAY_TIMER_RSP, ZANTH_SET_LOCAL_RELAY_TIMER,
    ZANTH_SET_LOCAL_RELAY_TIMER_RSP, true,
    {"relay value", 0, 1},           {"timer duration (ms)", 0, 1320000}};
constexpr NumericSetting kLogicalInput{"Master::LogicalInput",
                                       ZANTH_GET_LOGICAL_INPUT,
                                       ZANTH_GET_LOGICAL_INPUT_RSP,
                                       ZANTH_SET_LOGICAL_INPUT,
                                       ZANTH_SET_LOGICAL_INPUT_RSP,
                                       true,
                                       {"logical number value", 1, 2147483647},
                                       {"logical value", 0, 1}};
constexpr NumericSetting kPollDelay{"Master::LocalPollDelay",
                                    ZANTH_GET_LOCAL_POLL_DELAY,
                                    ZANTH_GET_LOCAL_POLL_DELAY_RSP,
                                    ZANTH_SET_LOCAL_POLL_DELAY,
                                    ZANTH_SET_LOCAL_POLL_DELAY_RSP,
                                    false,
                                    {nullptr, 0, 0},
                                    {nullptr, 0, 0}};

bool CheckBound(Transaction& t, const Bound& b, int64_t value) {
    return b.subject == nullptr || t.CheckBetween(b.subject, value, b.low, b.high);
}

// The checks in their order: the number, then by mode the value to set; a mode other than 0
// or 1 is refused last. `value` is read in mode 1 and written by a blocking read.
bool CheckModeAndValue(Transaction& t, int32_t mode, const int32_t* value, const Bound& bound) {
    if (mode == 1) return t.Present(value) && CheckBound(t, bound, *value);
    if (mode != 0) return t.Check("mode", mode, 0, 1);
    return !t.Blocking() || t.Present(value);
}

int32_t NumericSettingCall(Transaction& t, const NumericSetting& s, int32_t* rslt, int32_t mode,
                           int32_t number, int32_t* value) {
    if (!t.Admit() || !CheckBound(t, s.number, number) ||
        !CheckModeAndValue(t, mode, value, s.value)) {
        return t.Result();
    }
    Payload p;
    if (s.numbered) p.Int(number);
    if (mode == 1) p.Int(*value);
    if (!t.Send(mode == 0 ? s.readCode : s.writeCode, p) || !t.Await() ||
        !t.Expect(mode == 0 ? s.readReply : s.writeReply)) {
        return t.Result();
    }
    if (mode == 1) return t.BareResult();
    t.Fields().ControllerResult(rslt).Int(value);
    return t.Result();
}

}  // namespace

int32_t Master::LocalDebounce(int32_t rspfunc, int32_t rspid, const char* mac, int32_t mode,
                              int32_t number, int32_t* value) {
    Transaction t(*this, kDebounce.method, rspfunc, rspid, mac);
    return NumericSettingCall(t, kDebounce, &rslt_, mode, number, value);
}

int32_t Master::LocalRelayTimer(int32_t rspfunc, int32_t rspid, const char* mac, int32_t mode,
                                int32_t relay, int32_t* value) {
    Transaction t(*this, kRelayTimer.method, rspfunc, rspid, mac);
    return NumericSettingCall(t, kRelayTimer, &rslt_, mode, relay, value);
}

int32_t Master::LogicalInput(int32_t rspfunc, int32_t rspid, const char* mac, int32_t mode,
                             int32_t number, int32_t* value) {
    Transaction t(*this, kLogicalInput.method, rspfunc, rspid, mac);
    return NumericSettingCall(t, kLogicalInput, &rslt_, mode, number, value);
}

int32_t Master::LocalPollDelay(int32_t rspfunc, int32_t rspid, const char* mac, int32_t mode,
                               int32_t* value) {
    Transaction t(*this, kPollDelay.method, rspfunc, rspid, mac);
    return NumericSettingCall(t, kPollDelay, &rslt_, mode, 0, value);
}

int32_t Master::LocalA2DLimits(int32_t rspfunc, int32_t rspid, const char* mac, int32_t mode,
                               int32_t adNumber, char* upperHigh, int32_t upperHighSize,
                               char* lowerHigh, int32_t lowerHighSize, char* upperLow,
                               int32_t upperLowSize, char* lowerLow, int32_t lowerLowSize) {
    Transaction t(*this, "Master::LocalA2DLimits", rspfunc, rspid, mac);
    if (!t.Admit() || !t.Check("A/D number", adNumber, 0, 7)) return t.Result();
    if (mode == 1) {
        if (!t.CheckHex("upper high limit", upperHigh) ||
            !t.CheckHex("lower high limit", lowerHigh) ||
            !t.CheckHex("upper low limit", upperLow) || !t.CheckHex("lower low limit", lowerLow)) {
            return t.Result();
        }
        // An empty limit goes out as an empty field in its place.
        Payload p;
        p.Int(adNumber).Text(upperHigh).Text(lowerHigh).Text(upperLow).Text(lowerLow);
        if (!t.Send(ZANTH_SET_LOCAL_ATOD_LIMITS, p) || !t.Await() ||
            !t.Expect(ZANTH_SET_LOCAL_ATOD_LIMITS_RSP)) {
            return t.Result();
        }
        return t.BareResult();
    }
    if (mode != 0) {
        t.Refuse("[Master::LocalA2DLimits] mode value must be between 0 and 1");
        return t.Result();
    }
    if (t.Blocking() && !t.Present(upperHigh, lowerHigh, upperLow, lowerLow)) return t.Result();
    if (!t.Send(ZANTH_GET_LOCAL_ATOD_LIMITS, Payload().Int(adNumber))) return t.Result();
    if (!t.Await({{upperHigh, upperHighSize},
                  {lowerHigh, lowerHighSize},
                  {upperLow, upperLowSize},
                  {lowerLow, lowerLowSize}}) ||
        !t.Expect(ZANTH_GET_LOCAL_ATOD_LIMITS_RSP)) {
        return t.Result();
    }
    // A limit too long for its buffer stops the reading; the ones before it stay filled.
    t.Fields()
        .ControllerResult(&rslt_)
        .Text(upperHigh, upperHighSize)
        .Text(lowerHigh, lowerHighSize)
        .Text(upperLow, upperLowSize)
        .Text(lowerLow, lowerLowSize);
    return t.Result();
}

}  // namespace zanth
