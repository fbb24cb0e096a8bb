// Input reads: the input status of a board or of the controller, and an analogue channel. The
// older generations split the targets over a board code and a controller code; the newest has
// one code for all.

#include "commands/device/TargetedGeneration.h"
#include "frame/Master.h"
#include "frame/Transaction.h"
#include "protocol/Codes.h"

namespace zanth {
namespace {

constexpr TargetedGeneration kInputStatus{
    "Master::GetInputStatus",
    ZANTH_GET_INTERFACE_INPUT_STATUS,
    ZANTH_GET_LOCAL_INPUT_STATUS,
    {ZANTH_GET_INTERFACE_INPUT_STATUS_RSP, ZANTH_GET_LOCAL_INPUT_STATUS_RSP}};
constexpr TargetedGeneration kInputStatus2{
    "Master::GetInputStatus2",
    ZANTH_GET_INTERFACE_INPUT_STATUS,
    ZANTH_GET_LOCAL_INPUT_STATUS,
    {ZANTH_GET_INTERFACE_INPUT_STATUS_RSP, ZANTH_GET_LOCAL_INPUT_STATUS_RSP}};
constexpr TargetedGeneration kInputStatus3{
    "Master::GetInputStatus3",
    ZANTH_GET_INPUT_STATUS,
    ZANTH_GET_INPUT_STATUS,
    {ZANTH_GET_INPUT_STATUS_RSP, ZANTH_GET_INPUT_STATUS_RSP}};
constexpr TargetedGeneration kA2D{"Master::ReadA2D",
                                  ZANTH_READ_INTERFACE_ATOD,
                                  ZANTH_READ_LOCAL_ATOD,
                                  {ZANTH_READ_INTERFACE_ATOD_RSP, ZANTH_READ_LOCAL_ATOD_RSP}};
constexpr TargetedGeneration kA2D2{"Master::ReadA2D_2",
                                   ZANTH_READ_ATOD,
                                   ZANTH_READ_ATOD,
                                   {ZANTH_READ_ATOD_RSP, ZANTH_READ_ATOD_RSP}};

// Sends an input status request and waits; true when an accepted reply came. The text buffer
// is cleared once the wait is over.
// `status` is the caller's status output where the generation has one (`withStatus`).
bool RequestInputStatus(Transaction& t, const TargetedGeneration& g, int32_t target,
                        bool withStatus, const int32_t* status, char* buffer, int32_t size) {
    if (!t.Admit() || !t.Check("target", target, 0, 32)) return false;
    if (t.Blocking() && (!t.Present(buffer) || (withStatus && !t.Present(status)))) {
        return false;
    }
    Payload p;
    int32_t code = g.CodeFor(target, p);
    if (!t.Send(code, p) || !t.Await({{buffer, size}})) return false;
    return t.ExpectAny({g.replies[0], g.replies[1]});
}

// The later generations read the status and the text only when the controller answered 0; any
// other result reaches the caller mapped, with nothing read.
int32_t ReadInputStatus(Transaction& t, const TargetedGeneration& g, int32_t* rslt, int32_t target,
                        int32_t* status, char* buffer, int32_t size) {
    if (!RequestInputStatus(t, g, target, true, status, buffer, size)) return t.Result();
    ReplyFields fields = t.Fields();
    fields.ControllerResult(rslt);
    if (fields.Ok() && *rslt == 0) fields.Int(status).Text(buffer, size);
    return t.Result();
}

int32_t ReadAnalogue(Transaction& t, const TargetedGeneration& g, int32_t* rslt, int32_t target,
                     int32_t adNumber, char* buffer, int32_t size) {
    if (!t.Admit() || !t.Check("A/D number", adNumber, 0, 23) ||
        !t.Check("target", target, 0, 32)) {
        return t.Result();
    }
    if (t.Blocking() && !t.Present(buffer)) return t.Result();
    Payload p;
    int32_t code = g.CodeFor(target, p);
    p.Int(adNumber);
    // The buffer isn't cleared: it keeps what it held on any failure.
    if (!t.Send(code, p) || !t.Await() || !t.ExpectAny({g.replies[0], g.replies[1]})) {
        return t.Result();
    }
    t.Fields().ControllerResult(rslt).Text(buffer, size);
    return t.Result();
}

}  // namespace

int32_t Master::GetInputStatus(const char* mac, int32_t target, char* buffer, int32_t size) {
    Transaction t(*this, kInputStatus.method, 0, 0, mac);
    if (!RequestInputStatus(t, kInputStatus, target, false, nullptr, buffer, size))
        return t.Result();
    // The first generation reads on for any result from 0 up, and drops the status.
    t.Fields().ControllerResult(&rslt_).Skip().Text(buffer, size);
    return t.Result();
}

int32_t Master::GetInputStatus2(int32_t rspfunc, int32_t rspid, const char* mac, int32_t target,
                                int32_t* status, char* buffer, int32_t size) {
    Transaction t(*this, kInputStatus2.method, rspfunc, rspid, mac);
    return ReadInputStatus(t, kInputStatus2, &rslt_, target, status, buffer, size);
}

int32_t Master::GetInputStatus3(int32_t rspfunc, int32_t rspid, const char* mac, int32_t target,
                                int32_t* status, char* buffer, int32_t size) {
    Transaction t(*this, kInputStatus3.method, rspfunc, rspid, mac);
    return ReadInputStatus(t, kInputStatus3, &rslt_, target, status, buffer, size);
}

int32_t Master::ReadA2D(int32_t rspfunc, int32_t rspid, const char* mac, int32_t target,
                        int32_t adNumber, char* buffer, int32_t size) {
    Transaction t(*this, kA2D.method, rspfunc, rspid, mac);
    return ReadAnalogue(t, kA2D, &rslt_, target, adNumber, buffer, size);
}

int32_t Master::ReadA2D_2(int32_t rspfunc, int32_t rspid, const char* mac, int32_t target,
                          int32_t adNumber, char* buffer, int32_t size) {
    Transaction t(*this, kA2D2.method, rspfunc, rspid, mac);
    return ReadAnalogue(t, kA2D2, &rslt_, target, adNumber, buffer, size);
}

}  // namespace zanth
