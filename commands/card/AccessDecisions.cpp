// The host's word on a card look-up, a PIN request and a post-access message. The library takes
// no decision and reads no field of these messages: it relays them.

#include "frame/Master.h"
#include "frame/Transaction.h"
#include "protocol/Codes.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {

int32_t Master::RecheckLookupCard(int32_t rspfunc, int32_t rspid, const char* mac,
                                  const char* data) {
    Transaction t(*this, "Master::RecheckLookupCard", rspfunc, rspid, mac);
    if (!t.Admit() || !t.Present(data)) return t.Result();
    // The host's text goes verbatim: nothing is appended, not even a ';'.
    if (!t.Send(ZANTH_RECHECK_LOOKUP_CARD, Payload().Raw(data))) return t.Result();
    if (!t.Await() || !t.Expect(ZANTH_RECHECK_LOOKUP_CARD_RSP)) return t.Result();
    return t.BareResult();
}

int32_t Master::RequestPin(int32_t rspfunc, int32_t rspid, const char* mac, uint32_t pinValue1,
                           uint32_t pinValue2, uint32_t pinValue3) {
    Transaction t(*this, "Master::RequestPin", rspfunc, rspid, mac);
    if (!t.Admit()) return t.Result();
    // The values go out signed, as the controllers have always been sent them.
    Payload p;
    p.Int(static_cast<int32_t>(pinValue1))
        .Int(static_cast<int32_t>(pinValue2))
        .Int(static_cast<int32_t>(pinValue3));
    if (!t.Send(ZANTH_REQUEST_PIN, p) || !t.Await()) return t.Result();
    // Whatever came is only logged: a refusal by the controller doesn't reach the caller.
    FormatText(logText_, sizeof logText_, "[Master::RequestPin] code=%d, data %s", t.Code(),
               t.Reply());
    Log(masterName_, kLogError, logText_, "", true);
    return t.Result();
}

int32_t Master::SendPostAccessMsg(const char* mac, const char* message) {
    Transaction t(*this, "Master::SendPostAccessMsg", 0, 0, mac);
    if (!t.Admit() || !t.Present(message)) return t.Result();
    // Nobody waits: the controller sends no reply to this one.
    t.Send(ZANTH_POST_ACCESS_MSG_TO_ZANTH, Payload().Raw(message));
    return t.Result();
}

}  // namespace zanth
