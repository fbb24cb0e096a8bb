// ControllerInfo and GatewayInfo: the controller's own description, as one text.

#include "frame/Master.h"
#include "frame/Transaction.h"
#include "protocol/Codes.h"

namespace zanth {

int32_t Master::GatewayInfo(int32_t rspfunc, int32_t rspid, const char* mac, char* buffer,
                            int32_t size) {
    Transaction t(*this, "Master::GatewayInfo", rspfunc, rspid, mac);
    // The Rsp forms pass no buffer and size 0.
    if (!t.Admit() || !t.PresentBuffer(buffer, size) || !t.Send(ZANTH_CONTROLLER_INFO))
        return t.Result();
    if (!t.Await({{buffer, size}}) || !t.Expect(ZANTH_CONTROLLER_INFO_RSP)) return t.Result();
    t.TakePayload(buffer, size);
    return t.Result();
}

}  // namespace zanth
