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

// The caller's outputs, one per reply field.
struct CardOutputs {
    int32_t* cardSetId;
    int32_t* noFormat;
    char* cardNumber;
    int32_t cardNumberSize;
    char* pin;
    int32_t pinSize;
    int32_t* accessType;
    uint32_t* uniqueId;
    int32_t* accessGroup[8];
    int32_t* extendedAccess;
    int32_t* passbackExempt;
    int32_t* pinCommands;
    char* startDate;
    int32_t startDateSize;
    char* startTime;
    int32_t startTimeSize;
    char* endDate;
    int32_t endDateSize;
    char* endTime;
    int32_t endTimeSize;
    uint32_t* escortId;
    int32_t* inScheduleElevatorGroup;
    int32_t* outScheduleElevatorGroup;
    int32_t* field7Value;
    int32_t* pinExempt;  // the second method only
    uint32_t* role;      // the second method only, and may be null
};

// A blocking call needs every output it will be written through; the Rsp forms pass none.
bool OutputsPresent(Transaction& t, const CardOutputs& o, bool second) {
    if (!t.Blocking()) return t.Ok();
    t.Present(o.cardNumber, o.pin, o.accessType, o.uniqueId, o.extendedAccess, o.passbackExempt,
              o.pinCommands, o.startDate, o.startTime, o.endDate, o.endTime, o.escortId,
              o.inScheduleElevatorGroup, o.outScheduleElevatorGroup, o.field7Value);
    for (int32_t* group : o.accessGroup) t.Present(group);
    if (second) t.Present(o.pinExempt);
    return t.Ok();
}

// A declared size is honoured before anything is sent: the caller's text must end within it,
// and an empty one, which the trim makes "0", needs two bytes. Nothing is read or written past
// the size. The Rsp forms declare none; their texts must be writable and hold at least two.
bool FitsItsSize(Transaction& t, const char* subject, const char* text, int32_t size) {
    if (!t.Ok() || !t.Blocking()) return t.Ok();
    if (size >= 2 && ::strnlen(text, static_cast<size_t>(size)) < static_cast<size_t>(size))
        return true;
    t.LogLine(kLogError, "[%s] %s does not fit its size of %d bytes", t.Method(), subject,
              static_cast<int>(size));
    t.SetResult(kTooLarge);
    return false;
}

// The reply: its result by the tokeniser, then every ';' a field, empty ones included. A short
// reply is a success and leaves the outputs of the missing fields as they were.
int32_t ReadRecord(Transaction& t, const CardOutputs& o, bool second) {
    t.Fields().ControllerResult();
    if (t.Result() < 0) return t.Result();
    ReplyFields f = t.Fields(FieldWalk::kEveryDelimiter);
    f.Optional().Skip();
    f.Text(o.cardNumber, o.cardNumberSize).Int(o.cardSetId).Int(o.noFormat);
    f.Text(o.pin, o.pinSize).Int(o.accessType).Uint(o.uniqueId).Int(o.field7Value);
    for (int32_t* group : o.accessGroup) f.Int(group);
    f.Int(o.passbackExempt).Skip().Int(o.extendedAccess).Skip().Int(o.pinCommands).Skip();
    f.Stamp(o.startDate, o.startDateSize, o.startTime, o.startTimeSize);
    f.Stamp(o.endDate, o.endDateSize, o.endTime, o.endTimeSize);
    f.Uint(o.escortId).Int(o.inScheduleElevatorGroup).Int(o.outScheduleElevatorGroup);
    if (second) f.Skip().Int(o.pinExempt).Uint(o.role);
    return t.Result();
}

}  // namespace

int32_t Master::GetCardRecord(
    int32_t rspfunc, int32_t rspid, const char* mac, int32_t* cardSetId, int32_t* noFormat,
    char* cardNumber, int32_t cardNumberSize, char* pin, int32_t pinSize, int32_t* accessType,
    uint32_t* uniqueId, int32_t* accessGroup1, int32_t* accessGroup2, int32_t* accessGroup3,
    int32_t* accessGroup4, int32_t* accessGroup5, int32_t* accessGroup6, int32_t* accessGroup7,
    int32_t* accessGroup8, int32_t* extendedAccess, int32_t* passbackExempt, int32_t* pinCommands,
    char* startDate, int32_t startDateSize, char* startTime, int32_t startTimeSize, char* endDate,
    int32_t endDateSize, char* endTime, int32_t endTimeSize, uint32_t* escortId,
    int32_t* inScheduleElevatorGroup, int32_t* outScheduleElevatorGroup, int32_t* field7Value) {
    const CardOutputs o{cardSetId,
                        noFormat,
                        cardNumber,
                        cardNumberSize,
                        pin,
                        pinSize,
                        accessType,
                        uniqueId,
                        {accessGroup1, accessGroup2, accessGroup3, accessGroup4, accessGroup5,
                         accessGroup6, accessGroup7, accessGroup8},
                        extendedAccess,
                        passbackExempt,
                        pinCommands,
                        startDate,
                        startDateSize,
                        startTime,
                        startTimeSize,
                        endDate,
                        endDateSize,
                        endTime,
                        endTimeSize,
                        escortId,
                        inScheduleElevatorGroup,
                        outScheduleElevatorGroup,
                        field7Value,
                        nullptr,
                        nullptr};
    Transaction t(*this, "Master::GetCardRecord", rspfunc, rspid, mac);
    if (!t.Admit()) return t.Result();
    // The selection is read from the caller (and its texts trimmed in place).
    t.Present(cardSetId, noFormat, cardNumber, pin);
    if (!OutputsPresent(t, o, false)) return t.Result();
    t.Check("card set ID", *cardSetId, 0, 2147483647);
    t.Check("no format", *noFormat, 0, 1);
    FitsItsSize(t, "card number", cardNumber, cardNumberSize);
    FitsItsSize(t, "PIN", pin, pinSize);
    if (!t.Ok()) return t.Result();
    MessageUtil::TrimOrZero(pin);
    MessageUtil::TrimOrZero(cardNumber);
    Payload p;
    p.Text(cardNumber).Int(*cardSetId).Int(*noFormat).Text(pin);
    if (!t.Send(ZANTH_GET_CARD_RECORD, p) || !t.Await()) return t.Result();
    if (!t.Expect(ZANTH_GET_CARD_RECORD_RSP)) return t.Result();
    return ReadRecord(t, o, false);
}

int32_t Master::GetCardRecord2(
    int32_t rspfunc, int32_t rspid, const char* mac, int32_t* cardSetId, int32_t* noFormat,
    char* cardNumber, int32_t cardNumberSize, char* pin, int32_t pinSize, int32_t* accessType,
    uint32_t* uniqueId, int32_t* accessGroup1, int32_t* accessGroup2, int32_t* accessGroup3,
    int32_t* accessGroup4, int32_t* accessGroup5, int32_t* accessGroup6, int32_t* accessGroup7,
    int32_t* accessGroup8, int32_t* extendedAccess, int32_t* passbackExempt, int32_t* pinCommands,
    char* startDate, int32_t startDateSize, char* startTime, int32_t startTimeSize, char* endDate,
    int32_t endDateSize, char* endTime, int32_t endTimeSize, uint32_t* escortId,
    int32_t* inScheduleElevatorGroup, int32_t* outScheduleElevatorGroup, int32_t* field7Value,
    int32_t* pinExempt, uint32_t uniqueid, uint32_t* role) {
    const CardOutputs o{cardSetId,
                        noFormat,
                        cardNumber,
                        cardNumberSize,
                        pin,
                        pinSize,
                        accessType,
                        uniqueId,
                        {accessGroup1, accessGroup2, accessGroup3, accessGroup4, accessGroup5,
                         accessGroup6, accessGroup7, accessGroup8},
                        extendedAccess,
                        passbackExempt,
                        pinCommands,
                        startDate,
                        startDateSize,
                        startTime,
                        startTimeSize,
                        endDate,
                        endDateSize,
                        endTime,
                        endTimeSize,
                        escortId,
                        inScheduleElevatorGroup,
                        outScheduleElevatorGroup,
                        field7Value,
                        pinExempt,
                        role};
    Transaction t(*this, "Master::GetCardRecord[2]", rspfunc, rspid, mac);
    if (!t.Admit()) return t.Result();
    // The unique ID look-up (26) is the protocol's own; no export reaches it, as none passes a
    // non-zero unique ID, but the method keeps it.
    int32_t code = ZANTH_GET_CARD_RECORD_2;
    if (uniqueid != 0) {
        t.LogLine(kLogTrace, "%s",
                  "[Master::GetCardRecord[2,3] is established as GetCardRecord3 by non-default "
                  "uniqueid]");
        code = ZANTH_GET_CARD_RECORD_3;
    } else if (role != nullptr) {
        t.LogLine(kLogTrace, "%s",
                  "[Master::GetCardRecord[2] is established as GetCardRecord4 by uniqueid == 0 "
                  "and non NULL role");
        code = ZANTH_GET_CARD_RECORD_4;
    } else {
        t.LogLine(kLogTrace, "%s",
                  "[Master::GetCardRecord[2] is established as GetCardRecord2 by uniqueid == 0  "
                  "and role == NULL]");
    }
    bool byId = code == ZANTH_GET_CARD_RECORD_3;
    t.Present(cardSetId, noFormat, pin);
    if (!byId) t.Present(cardNumber);
    if (!OutputsPresent(t, o, true)) return t.Result();
    // These texts name the method with a bracket short, and the last one with a single colon.
    t.CheckRange(*cardSetId, 0, 2147483647,
                 "[Master::GetCardRecord[2] card set ID value must be between %d and %d");
    t.CheckRange(*noFormat, 0, 1,
                 "[Master::GetCardRecord[2] no format value must be between 0 and 1");
    t.CheckRange(uniqueid, 0, 4294967295,
                 "[Master:GetCardRecord[2] uniqueid value must be between %d and %u");
    // By unique ID the card number is only written, and the reply's store measures it.
    if (!byId) FitsItsSize(t, "card number", cardNumber, cardNumberSize);
    FitsItsSize(t, "PIN", pin, pinSize);
    if (!t.Ok()) return t.Result();
    MessageUtil::TrimOrZero(pin);
    Payload p;
    if (byId) {
        p.Int(static_cast<int32_t>(uniqueid));
    } else {
        MessageUtil::TrimOrZero(cardNumber);
        p.Text(cardNumber);
    }
    p.Int(*cardSetId).Int(*noFormat).Text(pin);
    if (!t.Send(code, p) || !t.Await()) return t.Result();
    if (!t.ExpectAny({ZANTH_GET_CARD_RECORD_2_RSP, ZANTH_GET_CARD_RECORD_3_RSP,
                      ZANTH_GET_CARD_RECORD_4_RSP}))
        return t.Result();
    return ReadRecord(t, o, true);
}

}  // namespace zanth
