// The host's word on a card look-up, a PIN request and a post-access message. The library takes
// no decision and reads no field of these messages: it relays them.

#include <cstring>

#include "frame/Master.h"
#include "frame/Transaction.h"
#include "protocol/Codes.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {

int32_t Master::RecheckLookupCard(int32_t rspfunc, int32_t rspid, const char* mac,
                                  const char* data) {
    Transaction t(*this, "Master::RecheckLookupCard", rspfunc, rspid, mac);
    if (!t.Admit()) return t.Result();
    // The host's text goes verbatim: nothing is appended, not even a ';'.
    if (data == nullptr) data = "";
    if (!t.SendPayload(ZANTH_RECHECK_LOOKUP_CARD, data, std::strlen(data))) return t.Result();
    if (!t.Await() || !t.Expect(ZANTH_RECHECK_LOOKUP_CARD_RSP)) return t.Result();
    return t.BareResult();
}

int32_t Master::RequestPin(int32_t rspfunc, int32_t rspid, const char* mac, uint32_t pinValue1,
                           uint32_t pinValue2, uint32_t pinValue3) {
    Transaction t(*this, "Master::RequestPin", rspfunc, rspid, mac);
    if (!t.Admit()) return t.Result();
    if (!t.Send(ZANTH_REQUEST_PIN, "%d;%d;%d;", static_cast<int>(pinValue1),
                static_cast<int>(pinValue2), static_cast<int>(pinValue3)))
        return t.Result();
    if (!t.Await()) return t.Result();
    // Whatever came is only logged: a refusal by the controller doesn't reach the caller.
    FormatText(logText_, sizeof logText_, "[Master::RequestPin] code=%d, data %s", t.Code(),
               t.Reply());
    Log(masterName_, 50, logText_, "", true);
    return t.Result();
}

int32_t Master::SendPostAccessMsg(const char* mac, const char* message) {
    Transaction t(*this, "Master::SendPostAccessMsg", 0, 0, mac);
    if (!t.Admit()) return t.Result();
    // Nobody waits: the controller sends no reply to this one.
    t.Send(ZANTH_POST_ACCESS_MSG_TO_ZANTH, "%s", message ? message : "");
    return t.Result();
}

}  // namespace zanth
