// A cardholder's running status: three generations of one read (code 76) that hand on more or
// fewer of the reply's fields, and its reset for one cardholder or all of them.

#include "frame/Master.h"
#include "frame/Transaction.h"
#include "protocol/Codes.h"

namespace zanth {
namespace {

// Sends the read and, for a blocking caller, walks the stamp and the values into `values`. A
// null place in `values` passes over a field that must be there all the same.
int32_t ReadStatus(Transaction& t, uint32_t uniqueId, bool signedId, char* date, int32_t dateSize,
                   char* time, int32_t timeSize, std::initializer_list<int32_t*> values) {
    Payload p;
    signedId ? p.Int(static_cast<int32_t>(uniqueId)) : p.Uint(uniqueId);
    if (!t.Send(ZANTH_GET_CARD_HOLDER_STATUS, p) || !t.Await()) return t.Result();
    if (!t.Expect(ZANTH_GET_CARD_HOLDER_STATUS_RSP)) return t.Result();
    ReplyFields f = t.Fields();
    f.ControllerResult().Stamp(date, dateSize, time, timeSize);
    for (int32_t* value : values) f.Int(value);
    return t.Result();
}

}  // namespace

int32_t Master::GetCardholderStatus(const char* mac, int32_t uniqueId, char* statusDate,
                                    int32_t statusDateSize, char* statusTime,
                                    int32_t statusTimeSize, int32_t* statusValue1,
                                    int32_t* statusValue2, int32_t* statusValue3,
                                    int32_t* statusValue4) {
    Transaction t(*this, "Master::GetCardholderStatus", 0, 0, mac);
    // The test is signed: a unique ID of 2^31 or more fails although the text allows it.
    if (!t.Admit() || !t.Check("unique ID", uniqueId, 1, 4294967295)) return t.Result();
    if (!t.Present(statusDate, statusTime, statusValue1, statusValue2, statusValue3, statusValue4))
        return t.Result();
    // The fourth value is the reply's sixth field; the fifth is passed over.
    return ReadStatus(t, static_cast<uint32_t>(uniqueId), true, statusDate, statusDateSize,
                      statusTime, statusTimeSize,
                      {statusValue1, statusValue2, statusValue3, nullptr, statusValue4});
}

int32_t Master::GetCardholderStatus2(const char* mac, int32_t uniqueId, char* statusDate,
                                     int32_t statusDateSize, char* statusTime,
                                     int32_t statusTimeSize, int32_t* statusValue1,
                                     int32_t* statusValue2, int32_t* statusValue3,
                                     int32_t* statusValue4, int32_t* statusValue5) {
    Transaction t(*this, "Master::GetCardholderStatus2", 0, 0, mac);
    if (!t.Admit() || !t.Check("unique ID", uniqueId, 1, 4294967295)) return t.Result();
    if (!t.Present(statusDate, statusTime, statusValue1, statusValue2, statusValue3, statusValue4,
                   statusValue5))
        return t.Result();
    return ReadStatus(t, static_cast<uint32_t>(uniqueId), true, statusDate, statusDateSize,
                      statusTime, statusTimeSize,
                      {statusValue1, statusValue2, statusValue3, statusValue4, statusValue5});
}

int32_t Master::GetCardholderStatus3(int32_t rspfunc, int32_t rspid, const char* mac,
                                     uint32_t uniqueId, char* statusDate, int32_t statusDateSize,
                                     char* statusTime, int32_t statusTimeSize,
                                     int32_t* statusValue1, int32_t* statusValue2,
                                     int32_t* statusValue3, int32_t* statusValue4,
                                     int32_t* statusValue5, int32_t* statusValue6,
                                     int32_t* statusValue7, int32_t* statusValue8) {
    Transaction t(*this, "Master::GetCardholderStatus3", rspfunc, rspid, mac);
    if (!t.Admit() || !t.Check("unique ID", uniqueId, 1, 4294967295)) return t.Result();
    if (t.Blocking() &&
        !t.Present(statusDate, statusTime, statusValue1, statusValue2, statusValue3, statusValue4,
                   statusValue5, statusValue6, statusValue7, statusValue8))
        return t.Result();
    return ReadStatus(t, uniqueId, false, statusDate, statusDateSize, statusTime, statusTimeSize,
                      {statusValue1, statusValue2, statusValue3, statusValue4, statusValue5,
                       statusValue6, statusValue7, statusValue8});
}

int32_t Master::ResetCardholderStatus(int32_t rspfunc, int32_t rspid, const char* mac, int32_t mode,
                                      uint32_t uniqueId) {
    Transaction t(*this, "Master::ResetCardholderStatus", rspfunc, rspid, mac);
    if (!t.Admit() || !t.Check("mode", mode, 1, 2)) return t.Result();
    if (mode == 1) {
        if (!t.Check("unique ID", uniqueId, 1, 4294967295)) return t.Result();
        if (!t.Send(ZANTH_RESET_CARD_HOLDER_STATUS, Payload().Uint(uniqueId))) return t.Result();
    } else if (!t.Send(ZANTH_RESET_ALL_CARD_HOLDER_STATUS)) {
        return t.Result();
    }
    if (!t.Await()) return t.Result();
    if (!t.Expect(mode == 1 ? ZANTH_RESET_CARD_HOLDER_STATUS_RSP
                            : ZANTH_RESET_ALL_CARD_HOLDER_STATUS_RSP))
        return t.Result();
    return t.BareResult();
}

}  // namespace zanth
