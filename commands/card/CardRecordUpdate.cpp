// Deleting and undeleting a card record: one method for all ten exports, choosing among four
// codes by the mode and by whether the record is named by its unique ID or by its card.

#include "frame/Master.h"
#include "frame/Transaction.h"
#include "protocol/Codes.h"
#include "protocol/MessageUtil.h"

namespace zanth {
namespace {

struct UpdateMode {
    int32_t byCard;
    int32_t byUniqueId;
    // Either reply of the mode is taken, whichever form was sent.
    int32_t replies[2];
};

constexpr UpdateMode kDelete{ZANTH_DELETE_CARD_RECORD,
                             ZANTH_DELETE_CARD_RECORD_2,
                             {ZANTH_DELETE_CARD_RECORD_RSP, ZANTH_DELETE_CARD_RECORD_2_RSP}};
constexpr UpdateMode kUndelete{ZANTH_UNDELETE_CARD_RECORD,
                               ZANTH_UNDELETE_CARD_RECORD_2,
                               {ZANTH_UNDELETE_CARD_RECORD_RSP, ZANTH_UNDELETE_CARD_RECORD_2_RSP}};

}  // namespace

int32_t Master::UpdateCardRecord(int32_t rspfunc, int32_t rspid, const char* mac, int32_t mode,
                                 int32_t cardSetId, int32_t noFormat, char* cardNumber, char* pin,
                                 uint32_t uniqueId) {
    Transaction t(*this, "Master::UpdateCardRecord", rspfunc, rspid, mac);
    if (!t.Admit() || !t.Check("uniqueid", uniqueId, 0, 4294967295)) return t.Result();
    // The payload is made before the card arguments are checked, so the texts are trimmed in
    // the caller's buffers even when a check then refuses the call.
    Payload p;
    if (uniqueId != 0) {
        // Signed on the wire: 4294967295 goes out as -1.
        p.Int(static_cast<int32_t>(uniqueId));
    } else {
        if (!t.Present(cardNumber, pin)) return t.Result();
        MessageUtil::TrimOrZero(pin);
        MessageUtil::TrimOrZero(cardNumber);
        p.Int(cardSetId).Int(noFormat).Text(cardNumber).Text(pin);
    }
    t.Check("mode", mode, 1, 2);
    t.Check("card set ID", cardSetId, 0, 2147483647);
    t.Check("no format", noFormat, 0, 1);
    if (!t.Ok()) return t.Result();
    const UpdateMode& m = mode == 1 ? kDelete : kUndelete;
    if (!t.Send(uniqueId != 0 ? m.byUniqueId : m.byCard, p) || !t.Await()) return t.Result();
    if (!t.ExpectAny({m.replies[0], m.replies[1]})) return t.Result();
    return t.BareResult();
}

}  // namespace zanth
