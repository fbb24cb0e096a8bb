// Raw and command data for a smart card at a reader. Only the Rsp form exists: the reader's
// answer reaches the host raw by the response queue, and what the card sends of its own accord
// comes unsolicited.

#include "frame/Master.h"
#include "frame/Transaction.h"
#include "protocol/Codes.h"

namespace zanth {

int32_t Master::SmartCardMode(int32_t rspfunc, int32_t rspid, const char* mac, int32_t code,
                              int32_t value, const char* data) {
    Transaction t(*this,
                  code == ZANTH_SMART_CARD_RAW_MODE ? "Master::SmartCardRawMode"
                                                    : "Master::SmartCardCommandMode",
                  rspfunc, rspid, mac);
    if (!t.Admit() || !t.Present(data)) return t.Result();
    // The host's data may end in ';' or not; it never gets a second one.
    t.Send(code, Payload().Int(value).Raw(data).EnsureSeparator());
    return t.Result();
}

}  // namespace zanth
