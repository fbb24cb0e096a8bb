// RebootBoard and RebootBoard2: restart an interface board (0 to 31) or the controller (32).

#include "frame/Master.h"
#include "frame/Transaction.h"
#include "protocol/Codes.h"

namespace zanth {

int32_t Master::RebootBoard(int32_t rspfunc, int32_t rspid, const char* mac, int32_t target) {
    Transaction t(*this, "Master::RebootBoard", rspfunc, rspid, mac);
    if (!t.Admit() || !t.Check("target", target, 0, 32)) return t.Result();
    if (target == 32) {
        // The controller is going down: no reply is awaited, whatever the form of the call.
        t.Send(ZANTH_REBOOT_CONTROLLER);
        return t.Result();
    }
    if (!t.Send(ZANTH_REBOOT_INTERFACE, Payload().Int(target))) return t.Result();
    if (!t.Await() || !t.Expect(ZANTH_REBOOT_INTERFACE_RSP)) return t.Result();
    return t.BareResult();
}

int32_t Master::RebootBoard2(int32_t rspfunc, int32_t rspid, const char* mac, int32_t target) {
    Transaction t(*this, "Master::RebootBoard2", rspfunc, rspid, mac);
    if (!t.Admit() || !t.Check("target", target, 0, 32)) return t.Result();
    // Target 32 reboots the controller, which won't answer.
    if (!t.Send(ZANTH_REBOOT, Payload().Int(target)) || target == 32) return t.Result();
    if (!t.Await() || !t.Expect(ZANTH_REBOOT_RSP)) return t.Result();
    return t.BareResult();
}

}  // namespace zanth
