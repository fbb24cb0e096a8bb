// RebootBoard and RebootBoard2: restart an interface board (0 to 31) or the controller (32).

#include "frame/Master.h"
#include "frame/Transaction.h"
#include "protocol/Codes.h"

namespace zanth {

int32_t Master::RebootBoard(int32_t rspfunc, int32_t rspid, const char* mac, int32_t target) {
    Transaction t(*this, "Master::RebootBoard", rspfunc, rspid, mac);
    if (!t.Admit() ||
        !t.CheckRange(target, 0, 32, "[Master::RebootBoard] target value must be between %d and %d"))
        return t.Result();
    if (target == 32) {
        // The controller is going down: no reply is awaited, whatever the form of the call.
        t.Send(ZANTH_REBOOT_CONTROLLER);
        return t.Result();
    }
    if (!t.Send(ZANTH_REBOOT_INTERFACE, "%d;", target)) return t.Result();
    if (!t.Await() || !t.Expect(ZANTH_REBOOT_INTERFACE_RSP)) return t.Result();
    return t.BareResult();
}

int32_t Master::RebootBoard2(int32_t rspfunc, int32_t rspid, const char* mac, int32_t target) {
    Transaction t(*this, "Master::RebootBoard2", rspfunc, rspid, mac);
    if (!t.Admit() ||
        !t.CheckRange(target, 0, 32, "[Master::RebootBoard2] target value must be between %d and %d"))
        return t.Result();
    bool wait = t.Send(ZANTH_REBOOT, "%d;", target);
    if (!wait || target == 32) return t.Result();
    if (!t.Await() || !t.Expect(ZANTH_REBOOT_RSP)) return t.Result();
    return t.BareResult();
}

}  // namespace zanth
