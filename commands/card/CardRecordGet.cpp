// Reading one card record back. The record is selected by the caller's card set ID, no-format
// flag, card number and PIN (or, by code 26, by unique ID); the reply's fields are written back
// into the same arguments and the outputs.

#include <cstring>

#include "frame/Master.h"
#include "frame/Transaction.h"
#include "protocol/Codes.h"
#include "protocol/MessageUtil.h"
#include "stores/LogMon.h"

namespace zanth {
namespace {

// What the first generation does and the second does otherwise: its name in the log texts, the
// texts of its two checks, the code it sends by card and the replies it takes, and whether the
// reply carries the second generation's three fields at its end.
struct Generation {
    const char* method;
    const char* cardSetIdText;
    const char* noFormatText;
    int32_t code;
    int32_t replies[3];
    bool second;
};

// Generations 1 and 2, in order. The second's texts name the method with a bracket short.
constexpr Generation kGenerations[] = {
    {"Master::GetCardRecord",
     "[Master::GetCardRecord] card set ID value must be between %d and %d",
     "[Master::GetCardRecord] no format value must be between %d and %d",
     ZANTH_GET_CARD_RECORD,
     {ZANTH_GET_CARD_RECORD_RSP, ZANTH_GET_CARD_RECORD_RSP, ZANTH_GET_CARD_RECORD_RSP},
     false},
    {"Master::GetCardRecord[2]",
     "[Master::GetCardRecord[2] card set ID value must be between %d and %d",
     "[Master::GetCardRecord[2] no format value must be between 0 and 1",
     ZANTH_GET_CARD_RECORD_2,
     {ZANTH_GET_CARD_RECORD_2_RSP, ZANTH_GET_CARD_RECORD_3_RSP, ZANTH_GET_CARD_RECORD_4_RSP},
     true},
};

// The second generation's code: by unique ID (26) or, by card, with a role (35) or without (25).
// The unique ID look-up is the protocol's own; no export reaches it, as none passes a non-zero
// unique ID, but the method keeps it.
int32_t SecondCode(Transaction& t, uint32_t uniqueid, const uint32_t* role) {
    if (uniqueid != 0) {
        t.LogLine(kLogTrace, "%s",
                  "[Master::GetCardRecord[2,3] is established as GetCardRecord3 by non-default "
                  "uniqueid]");
        return ZANTH_GET_CARD_RECORD_3;
    }
    if (role != nullptr) {
        t.LogLine(kLogTrace, "%s",
                  "[Master::GetCardRecord[2] is established as GetCardRecord4 by uniqueid == 0 "
                  "and non NULL role");
        return ZANTH_GET_CARD_RECORD_4;
    }
    t.LogLine(kLogTrace, "%s",
              "[Master::GetCardRecord[2] is established as GetCardRecord2 by uniqueid == 0  "
              "and role == NULL]");
    return ZANTH_GET_CARD_RECORD_2;
}

// A blocking call needs every output it will be written through; the Rsp forms pass none.
bool OutputsPresent(Transaction& t, const CardRecordOutputs& o, bool second) {
    if (!t.Blocking()) return t.Ok();
    t.Present(o.cardNumber.text, o.pin.text, o.accessType, o.uniqueId, o.extendedAccess,
              o.passbackExempt, o.pinCommands, o.startDate.text, o.startTime.text, o.endDate.text,
              o.endTime.text, o.escortId, o.inScheduleElevatorGroup, o.outScheduleElevatorGroup,
              o.field7Value);
    for (int32_t* group : o.accessGroup) t.Present(group);
    if (second) t.Present(o.pinExempt);
    return t.Ok();
}

// A declared size is honoured before anything is sent: the caller's text must end within it,
// and an empty one, which the trim makes "0", needs two bytes. Nothing is read or written past
// the size. The Rsp forms declare none; their texts must be writable and hold at least two.
bool FitsItsSize(Transaction& t, const char* subject, const CardText& text) {
    if (!t.Ok() || !t.Blocking()) return t.Ok();
    if (text.size >= 2 &&
        ::strnlen(text.text, static_cast<size_t>(text.size)) < static_cast<size_t>(text.size))
        return true;
    t.LogLine(kLogError, "[%s] %s does not fit its size of %d bytes", t.Method(), subject,
              static_cast<int>(text.size));
    t.SetResult(kTooLarge);
    return false;
}

// The record, read from the reply into the caller's outputs: its result by the tokeniser, then
// every ';' a field, empty ones included. A short reply is a success and leaves the outputs of
// the missing fields as they were.
int32_t ReadRecord(Transaction& t, const CardRecordOutputs& o, bool second) {
    t.Fields().ControllerResult();
    if (t.Result() < 0) return t.Result();
    ReplyFields f = t.Fields(FieldWalk::kEveryDelimiter);
    f.Optional().Skip();
    f.Text(o.cardNumber.text, o.cardNumber.size).Int(o.cardSetId).Int(o.noFormat);
    f.Text(o.pin.text, o.pin.size).Int(o.accessType).Uint(o.uniqueId).Int(o.field7Value);
    for (int32_t* group : o.accessGroup) f.Int(group);
    f.Int(o.passbackExempt).Skip().Int(o.extendedAccess).Skip().Int(o.pinCommands).Skip();
    f.Stamp(o.startDate.text, o.startDate.size, o.startTime.text, o.startTime.size);
    f.Stamp(o.endDate.text, o.endDate.size, o.endTime.text, o.endTime.size);
    f.Uint(o.escortId).Int(o.inScheduleElevatorGroup).Int(o.outScheduleElevatorGroup);
    if (second) f.Skip().Int(o.pinExempt).Uint(o.cardRole);
    return t.Result();
}

}  // namespace

int32_t Master::GetCardRecord(int32_t rspfunc, int32_t rspid, const char* mac, int32_t generation,
                              const CardRecordOutputs& o, uint32_t uniqueid) {
    const Generation& g = kGenerations[generation - 1];
    Transaction t(*this, g.method, rspfunc, rspid, mac);
    if (!t.Admit()) return t.Result();
    const int32_t code = g.second ? SecondCode(t, uniqueid, o.cardRole) : g.code;
    const bool byId = code == ZANTH_GET_CARD_RECORD_3;
    // The selection is read from the caller (and its texts trimmed in place).
    t.Present(o.cardSetId, o.noFormat);
    if (!byId) t.Present(o.cardNumber.text);
    t.Present(o.pin.text);
    if (!OutputsPresent(t, o, g.second)) return t.Result();
    t.CheckRange(*o.cardSetId, 0, 2147483647, g.cardSetIdText);
    t.CheckRange(*o.noFormat, 0, 1, g.noFormatText);
    // The last of these texts names the method with a single colon.
    if (g.second) {
        t.CheckRange(uniqueid, 0, 4294967295,
                     "[Master:GetCardRecord[2] uniqueid value must be between %d and %u");
    }
    // By unique ID the card number is only written, and the reply's store measures it.
    if (!byId) FitsItsSize(t, "card number", o.cardNumber);
    FitsItsSize(t, "PIN", o.pin);
    if (!t.Ok()) return t.Result();
    MessageUtil::TrimOrZero(o.pin.text);
    Payload p;
    if (byId) {
        p.Int(static_cast<int32_t>(uniqueid));
    } else {
        MessageUtil::TrimOrZero(o.cardNumber.text);
        p.Text(o.cardNumber.text);
    }
    p.Int(*o.cardSetId).Int(*o.noFormat).Text(o.pin.text);
    if (!t.Send(code, p) || !t.Await()) return t.Result();
    if (!t.ExpectAny({g.replies[0], g.replies[1], g.replies[2]})) return t.Result();
    return ReadRecord(t, o, g.second);
}

}  // namespace zanth
