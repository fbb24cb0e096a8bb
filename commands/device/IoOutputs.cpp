// Output commands: a bit or function code applied to a target in a state (three generations of
// the protocol, all still answered by some controllers), a board's saved outputs read or driven
// again, and the state of one local output.

#include <cstring>

#include "commands/device/TargetedGeneration.h"
#include "frame/Master.h"
#include "frame/Transaction.h"
#include "protocol/Codes.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {
namespace {

constexpr TargetedGeneration kFirst{
    "Master::CmdOutputFunction",
    ZANTH_CMD_INTERFACE_OUTPUT_FUNCTION,
    ZANTH_CMD_LOCAL_OUTPUT_FUNCTION,
    {ZANTH_CMD_INTERFACE_OUTPUT_FUNCTION_RSP, ZANTH_CMD_LOCAL_OUTPUT_FUNCTION_RSP}};
constexpr TargetedGeneration kSecond{
    "Master::CmdOutputFunction2",
    ZANTH_CMD_INTERFACE_OUTPUT_FUNCTION_2,
    ZANTH_CMD_LOCAL_OUTPUT_FUNCTION,
    {ZANTH_CMD_INTERFACE_OUTPUT_FUNCTION_2_RSP, ZANTH_CMD_LOCAL_OUTPUT_FUNCTION_RSP}};
constexpr TargetedGeneration kThird{"Master::CmdOutputFunction3",
                                    ZANTH_CMD_OUTPUT_FUNCTION,
                                    ZANTH_CMD_OUTPUT_FUNCTION,
                                    {ZANTH_CMD_OUTPUT_FUNCTION_RSP, ZANTH_CMD_OUTPUT_FUNCTION_RSP}};

// Checks, sends and awaits; true when the reply is one the generation accepts.
bool SendOutputFunction(Transaction& t, const TargetedGeneration& g, int32_t target,
                        int32_t bitOrFunctionCode, int32_t state) {
    // The order matters: a bad code hides a bad state, which hides a bad target.
    if (!t.Admit() || !t.Check("bit or function code", bitOrFunctionCode, 0, 199) ||
        !t.Check("state", state, 0, 2) || !t.Check("target", target, 0, 32)) {
        return false;
    }
    Payload p;
    int32_t code = g.CodeFor(target, p);
    p.Int(bitOrFunctionCode).Int(state);
    if (!t.Send(code, p) || !t.Await()) return false;
    return t.ExpectAny({g.replies[0], g.replies[1]});
}

}  // namespace

int32_t Master::CmdOutputFunction(const char* mac, int32_t target, int32_t bitOrFunctionCode,
                                  int32_t state) {
    Transaction t(*this, kFirst.method, 0, 0, mac);
    if (!SendOutputFunction(t, kFirst, target, bitOrFunctionCode, state)) return t.Result();
    int32_t rslt = 0;
    ReplyFields fields = t.Fields();
    if (fields.ControllerResult(&rslt, false).Count() == 0) return t.Result();
    rslt_ = rslt;
    if (t.Code() == ZANTH_CMD_INTERFACE_OUTPUT_FUNCTION_RSP) {
        // The old board reply counts 1 as success and 0 as failure.
        if (rslt == 1) {
            t.SetResult(kOk);
        } else if (rslt <= 0 && rslt >= -99) {
            t.SetResult(kTerminating);
        }
    } else {
        t.SetResult(MapControllerResult(rslt));
    }
    return t.Result();
}

int32_t Master::CmdOutputFunction2(int32_t rspfunc, int32_t rspid, const char* mac, int32_t target,
                                   int32_t bitOrFunctionCode, int32_t state) {
    Transaction t(*this, kSecond.method, rspfunc, rspid, mac);
    if (!SendOutputFunction(t, kSecond, target, bitOrFunctionCode, state)) return t.Result();
    return t.BareResult();
}

int32_t Master::CmdOutputFunction3(int32_t rspfunc, int32_t rspid, const char* mac, int32_t target,
                                   int32_t bitOrFunctionCode, int32_t state) {
    Transaction t(*this, kThird.method, rspfunc, rspid, mac);
    if (!SendOutputFunction(t, kThird, target, bitOrFunctionCode, state)) return t.Result();
    return t.BareResult();
}

int32_t Master::GetSavedOutputs(int32_t rspfunc, int32_t rspid, const char* mac, int32_t interface,
                                char* buffer, int32_t size) {
    Transaction t(*this, "Master::GetSavedOutputs", rspfunc, rspid, mac);
    if (!t.Admit() || !t.CheckBetween("interface number", interface, 0, 31)) return t.Result();
    if (t.Blocking() && !t.Present(buffer)) return t.Result();
    if (!t.Send(ZANTH_GET_SAVED_OUTPUTS, Payload().Int(interface))) return t.Result();
    if (!t.Await({{buffer, size}}) || !t.Expect(ZANTH_GET_SAVED_OUTPUTS_RSP)) return t.Result();
    // The saved outputs are one text to the end of the payload, ';' and all, so only the first
    // ';' is looked for.
    const char* payload = t.ReplyPayload();
    size_t length = ::strnlen(payload, kMessageBufferSize);
    const char* semicolon = static_cast<const char*>(std::memchr(payload, ';', length));
    if (semicolon == nullptr) {
        t.SetResult(kMissingField);
        return t.Result();
    }
    int32_t rslt = DecimalValue(payload, static_cast<size_t>(semicolon - payload));
    rslt_ = rslt;
    t.LogLine(kLogTrace, "[Master::GetSavedOutputs] rslt=%d", rslt);
    t.SetResult(MapControllerResult(rslt));
    if (rslt < 0) return t.Result();
    const char* saved = semicolon + 1;
    size_t savedLength = length - static_cast<size_t>(saved - payload);
    if (size <= 0 || static_cast<size_t>(size) <= savedLength) {
        t.SetResult(kTooLarge);
        return t.Result();
    }
    CopyBounded(buffer, saved, static_cast<size_t>(size));
    return t.Result();
}

int32_t Master::DriveSavedOutputs(int32_t rspfunc, int32_t rspid, const char* mac,
                                  int32_t interface) {
    Transaction t(*this, "Master::DriveSavedOutputs", rspfunc, rspid, mac);
    if (!t.Admit() || !t.CheckBetween("interface number", interface, 0, 31)) return t.Result();
    if (!t.Send(ZANTH_DRIVE_SAVED_OUTPUTS, Payload().Int(interface))) return t.Result();
    if (!t.Await() || !t.Expect(ZANTH_DRIVE_SAVED_OUTPUTS_RSP)) return t.Result();
    return t.BareResult();
}

int32_t Master::LocalFcnCode(int32_t rspfunc, int32_t rspid, const char* mac, uint32_t output,
                             int32_t* value) {
    Transaction t(*this, "Master::LocalFcnCode", rspfunc, rspid, mac);
    if (!t.Admit()) return t.Result();
    if (t.Blocking() && !t.Present(value)) return t.Result();
    // The number goes out as it stands, in the signed form the controllers are sent.
    if (!t.Send(ZANTH_GET_LOCAL_OUTPUT_STATE, Payload().Int(static_cast<int32_t>(output)))) {
        return t.Result();
    }
    if (!t.Await() || !t.Expect(ZANTH_GET_LOCAL_OUTPUT_STATE_RSP)) return t.Result();
    t.Fields().ControllerResult(&rslt_).Int(value);
    return t.Result();
}

}  // namespace zanth
