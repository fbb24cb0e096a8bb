// The card database: card records, cardholder status, database maintenance, smart card modes.

#include "frame/exports/Boundary.h"
#include "protocol/Codes.h"
#include "zanth.h"

using namespace zanth;

namespace {

// Any non-null role makes GetCardRecord4 send code 35; a Rsp call returns before anything
// is written through it.
uint32_t rspRole = 47;

// A Rsp get is named by its selection alone, and reads nothing into outputs.
CardRecordOutputs Selection(int32_t& cardSetId, int32_t& noFormat, char* cardNumber, char* pin,
                            uint32_t* role) {
    CardRecordOutputs record;
    record.cardSetId = &cardSetId;
    record.noFormat = &noFormat;
    record.cardNumber.text = cardNumber;
    record.pin.text = pin;
    record.cardRole = role;
    return record;
}

}  // namespace

// The parameters that every generation of a card record's add takes, and the record an add
// fills from them with its generation's own two (0 where it has none).
#define ZANTH_CARD_ADD_PARAMETERS                                                                  \
    int32_t cardSetId, int32_t noFormat, char *cardNumber, char *pin, int32_t accessType,          \
        uint32_t uniqueId, int32_t accessGroup1, int32_t accessGroup2, int32_t accessGroup3,       \
        int32_t accessGroup4, int32_t accessGroup5, int32_t accessGroup6, int32_t accessGroup7,    \
        int32_t accessGroup8, int32_t extendedAccess, int32_t passbackExempt, int32_t pinCommands, \
        char *startDate, char *startTime, char *endDate, char *endTime, uint32_t escortId,         \
        int32_t inScheduleElevatorGroup, int32_t outScheduleElevatorGroup
#define ZANTH_CARD_ADD_RECORD(pinExempt, cardRole)                                             \
    CardRecord {                                                                               \
        cardSetId, noFormat, {cardNumber}, {pin}, accessType, uniqueId,                        \
            {accessGroup1, accessGroup2, accessGroup3, accessGroup4,                           \
             accessGroup5, accessGroup6, accessGroup7, accessGroup8},                          \
            extendedAccess, passbackExempt, pinCommands, {startDate}, {startTime}, {endDate},  \
            {endTime}, escortId, inScheduleElevatorGroup, outScheduleElevatorGroup, pinExempt, \
            cardRole                                                                           \
    }

// The same for a get: the caller's outputs, with the declared sizes of its texts.
#define ZANTH_CARD_GET_PARAMETERS                                                               \
    int32_t *cardSetId, int32_t *noFormat, char *cardNumber, int32_t cardNumberSize, char *pin, \
        int32_t pinSize, int32_t *accessType, uint32_t *uniqueId, int32_t *accessGroup1,        \
        int32_t *accessGroup2, int32_t *accessGroup3, int32_t *accessGroup4,                    \
        int32_t *accessGroup5, int32_t *accessGroup6, int32_t *accessGroup7,                    \
        int32_t *accessGroup8, int32_t *extendedAccess, int32_t *passbackExempt,                \
        int32_t *pinCommands, char *startDate, int32_t startDateSize, char *startTime,          \
        int32_t startTimeSize, char *endDate, int32_t endDateSize, char *endTime,               \
        int32_t endTimeSize, uint32_t *escortId, int32_t *inScheduleElevatorGroup,              \
        int32_t *outScheduleElevatorGroup, int32_t *field7Value
#define ZANTH_CARD_GET_RECORD(pinExempt, role)                                                    \
    CardRecordOutputs {                                                                           \
        cardSetId, noFormat, {cardNumber, cardNumberSize}, {pin, pinSize}, accessType, uniqueId,  \
            {accessGroup1, accessGroup2, accessGroup3, accessGroup4,                              \
             accessGroup5, accessGroup6, accessGroup7, accessGroup8},                             \
            extendedAccess, passbackExempt, pinCommands, {startDate, startDateSize},              \
            {startTime, startTimeSize}, {endDate, endDateSize}, {endTime, endTimeSize}, escortId, \
            inScheduleElevatorGroup, outScheduleElevatorGroup, pinExempt, role, field7Value       \
    }

extern "C" {

ZANTH_API int32_t AddModCardRecord(const char* mac, ZANTH_CARD_ADD_PARAMETERS) {
    return Blocking<&Master::AddModCardRecord>(mac, 1, ZANTH_CARD_ADD_RECORD(0, 0));
}
ZANTH_API int32_t RspAddModCardRecord(uint32_t rspid, const char* mac, ZANTH_CARD_ADD_PARAMETERS) {
    return Deferred<&Master::AddModCardRecord>(rspid, mac, 1, ZANTH_CARD_ADD_RECORD(0, 0));
}
ZANTH_API int32_t AddModCardRecord2(const char* mac, ZANTH_CARD_ADD_PARAMETERS, int32_t pinExempt) {
    return Blocking<&Master::AddModCardRecord>(mac, 2, ZANTH_CARD_ADD_RECORD(pinExempt, 0));
}
ZANTH_API int32_t RspAddModCardRecord2(uint32_t rspid, const char* mac, ZANTH_CARD_ADD_PARAMETERS,
                                       int32_t pinExempt) {
    return Deferred<&Master::AddModCardRecord>(rspid, mac, 2, ZANTH_CARD_ADD_RECORD(pinExempt, 0));
}
ZANTH_API int32_t AddModCardRecord3(const char* mac, ZANTH_CARD_ADD_PARAMETERS, int32_t pinExempt,
                                    uint16_t cardRole) {
    return Blocking<&Master::AddModCardRecord>(mac, 3, ZANTH_CARD_ADD_RECORD(pinExempt, cardRole));
}
ZANTH_API int32_t RspAddModCardRecord3(uint32_t rspid, const char* mac, ZANTH_CARD_ADD_PARAMETERS,
                                       int32_t pinExempt, uint16_t cardRole) {
    return Deferred<&Master::AddModCardRecord>(rspid, mac, 3,
                                               ZANTH_CARD_ADD_RECORD(pinExempt, cardRole));
}
ZANTH_API int32_t GetCardRecord(const char* mac, ZANTH_CARD_GET_PARAMETERS) {
    return Blocking<&Master::GetCardRecord>(mac, 1, ZANTH_CARD_GET_RECORD(nullptr, nullptr), 0u);
}
ZANTH_API int32_t RspGetCardRecord(uint32_t rspid, const char* mac, int32_t cardSetId,
                                   int32_t noFormat, char* cardNumber, char* pin) {
    return Deferred<&Master::GetCardRecord>(
        rspid, mac, 1, Selection(cardSetId, noFormat, cardNumber, pin, nullptr), 0u);
}
ZANTH_API int32_t GetCardRecord2(const char* mac, ZANTH_CARD_GET_PARAMETERS, int32_t* pinExempt) {
    return Blocking<&Master::GetCardRecord>(mac, 2, ZANTH_CARD_GET_RECORD(pinExempt, nullptr), 0u);
}
ZANTH_API int32_t RspGetCardRecord2(uint32_t rspid, const char* mac, int32_t cardSetId,
                                    int32_t noFormat, char* cardNumber, char* pin) {
    return Deferred<&Master::GetCardRecord>(
        rspid, mac, 2, Selection(cardSetId, noFormat, cardNumber, pin, nullptr), 0u);
}
ZANTH_API int32_t GetCardRecord4(const char* mac, ZANTH_CARD_GET_PARAMETERS, int32_t* pinExempt,
                                 uint32_t* role) {
    return Blocking<&Master::GetCardRecord>(mac, 2, ZANTH_CARD_GET_RECORD(pinExempt, role), 0u);
}
ZANTH_API int32_t RspGetCardRecord4(uint32_t rspid, const char* mac, int32_t cardSetId,
                                    int32_t noFormat, char* cardNumber, char* pin) {
    return Deferred<&Master::GetCardRecord>(
        rspid, mac, 2, Selection(cardSetId, noFormat, cardNumber, pin, &rspRole), 0u);
}
// DeleteCardRecord and UndeleteCardRecord (modes 1 and 2) by card, their "2" forms by unique
// ID, and the Rsp forms of each.
#define ZANTH_CARD_RECORD_UPDATE(Verb, mode)                                                       \
    ZANTH_API int32_t Verb##CardRecord(const char* mac, int32_t cardSetId, int32_t noFormat,       \
                                       char* cardNumber, char* pin) {                              \
        return Blocking<&Master::UpdateCardRecord>(mac, mode, cardSetId, noFormat, cardNumber,     \
                                                   pin, 0u);                                       \
    }                                                                                              \
    ZANTH_API int32_t Rsp##Verb##CardRecord(uint32_t rspid, const char* mac, int32_t cardSetId,    \
                                            int32_t noFormat, char* cardNumber, char* pin) {       \
        return Deferred<&Master::UpdateCardRecord>(rspid, mac, mode, cardSetId, noFormat,          \
                                                   cardNumber, pin, 0u);                           \
    }                                                                                              \
    ZANTH_API int32_t Verb##CardRecord2(const char* mac, uint32_t uniqueId) {                      \
        return Blocking<&Master::UpdateCardRecord>(mac, mode, 0, 0, nullptr, nullptr, uniqueId);   \
    }                                                                                              \
    ZANTH_API int32_t Rsp##Verb##CardRecord2(uint32_t rspid, const char* mac, uint32_t uniqueId) { \
        return Deferred<&Master::UpdateCardRecord>(rspid, mac, mode, 0, 0, nullptr, nullptr,       \
                                                   uniqueId);                                      \
    }

ZANTH_CARD_RECORD_UPDATE(Delete, 1)
ZANTH_CARD_RECORD_UPDATE(Undelete, 2)

#undef ZANTH_CARD_RECORD_UPDATE

ZANTH_API int32_t UpdateCardRecord(const char* mac, int32_t mode, int32_t cardSetId,
                                   int32_t noFormat, char* cardNumber, char* pin) {
    return Blocking<&Master::UpdateCardRecord>(mac, mode, cardSetId, noFormat, cardNumber, pin, 0u);
}
ZANTH_API int32_t RspUpdateCardRecord(uint32_t rspid, const char* mac, int32_t mode,
                                      int32_t cardSetId, int32_t noFormat, char* cardNumber,
                                      char* pin) {
    return Deferred<&Master::UpdateCardRecord>(rspid, mac, mode, cardSetId, noFormat, cardNumber,
                                               pin, 0u);
}
ZANTH_API int32_t GetCardholderStatus(const char* mac, uint32_t uniqueId, char* statusDate,
                                      int32_t statusDateSize, char* statusTime,
                                      int32_t statusTimeSize, int32_t* statusValue1,
                                      int32_t* statusValue2, int32_t* statusValue3,
                                      int32_t* statusValue4) {
    return Call<&Master::GetCardholderStatus>(
        mac, static_cast<int32_t>(uniqueId), statusDate, statusDateSize, statusTime, statusTimeSize,
        statusValue1, statusValue2, statusValue3, statusValue4);
}
ZANTH_API int32_t GetCardholderStatus2(const char* mac, uint32_t uniqueId, char* statusDate,
                                       int32_t statusDateSize, char* statusTime,
                                       int32_t statusTimeSize, int32_t* statusValue1,
                                       int32_t* statusValue2, int32_t* statusValue3,
                                       int32_t* statusValue4, int32_t* statusValue5) {
    return Call<&Master::GetCardholderStatus2>(
        mac, static_cast<int32_t>(uniqueId), statusDate, statusDateSize, statusTime, statusTimeSize,
        statusValue1, statusValue2, statusValue3, statusValue4, statusValue5);
}
ZANTH_API int32_t GetCardholderStatus3(const char* mac, uint32_t uniqueId, char* statusDate,
                                       int32_t statusDateSize, char* statusTime,
                                       int32_t statusTimeSize, int32_t* statusValue1,
                                       int32_t* statusValue2, int32_t* statusValue3,
                                       int32_t* statusValue4, int32_t* statusValue5,
                                       int32_t* statusValue6, int32_t* statusValue7,
                                       int32_t* statusValue8) {
    return Blocking<&Master::GetCardholderStatus3>(
        mac, uniqueId, statusDate, statusDateSize, statusTime, statusTimeSize, statusValue1,
        statusValue2, statusValue3, statusValue4, statusValue5, statusValue6, statusValue7,
        statusValue8);
}
ZANTH_API int32_t RspGetCardholderStatus(uint32_t rspid, const char* mac, uint32_t uniqueId) {
    return Deferred<&Master::GetCardholderStatus3>(rspid, mac, uniqueId, nullptr, 0, nullptr, 0,
                                                   nullptr, nullptr, nullptr, nullptr, nullptr,
                                                   nullptr, nullptr, nullptr);
}
ZANTH_API int32_t ResetCardholderStatus(const char* mac, int32_t mode, uint32_t uniqueId) {
    return Blocking<&Master::ResetCardholderStatus>(mac, mode, uniqueId);
}
ZANTH_API int32_t RspResetCardholderStatus(uint32_t rspid, const char* mac, int32_t mode,
                                           uint32_t uniqueId) {
    return Deferred<&Master::ResetCardholderStatus>(rspid, mac, mode, uniqueId);
}
ZANTH_API int32_t ResetOneCardholderStatus(const char* mac, uint32_t uniqueId) {
    return Blocking<&Master::ResetCardholderStatus>(mac, 1, uniqueId);
}
ZANTH_API int32_t RspResetOneCardholderStatus(uint32_t rspid, const char* mac, uint32_t uniqueId) {
    return Deferred<&Master::ResetCardholderStatus>(rspid, mac, 1, uniqueId);
}
ZANTH_API int32_t ResetAllCardholderStatus(const char* mac) {
    return Blocking<&Master::ResetCardholderStatus>(mac, 2, 0u);
}
ZANTH_API int32_t RspResetAllCardholderStatus(uint32_t rspid, const char* mac) {
    return Deferred<&Master::ResetCardholderStatus>(rspid, mac, 2, 0u);
}
ZANTH_API int32_t ExecuteChangeOverDB(const char* mac, int32_t numberOfCardholders) {
    return Blocking<&Master::ExecuteChangeOverDB>(mac, numberOfCardholders);
}
ZANTH_API int32_t RspExecuteChangeOverDB(uint32_t rspid, const char* mac,
                                         int32_t numberOfCardholders) {
    return Deferred<&Master::ExecuteChangeOverDB>(rspid, mac, numberOfCardholders);
}
ZANTH_API int32_t ExecuteDBChangeover(const char* mac, int32_t numberOfCardholders) {
    return Blocking<&Master::ExecuteChangeOverDB>(mac, numberOfCardholders);
}
ZANTH_API int32_t RspExecuteDBChangeover(uint32_t rspid, const char* mac,
                                         int32_t numberOfCardholders) {
    return Deferred<&Master::ExecuteChangeOverDB>(rspid, mac, numberOfCardholders);
}
ZANTH_API int32_t ExecutePreindexDB(const char* mac) {
    return Blocking<&Master::ExecutePreindexDB>(mac);
}
ZANTH_API int32_t RspExecutePreindexDB(uint32_t rspid, const char* mac) {
    return Deferred<&Master::ExecutePreindexDB>(rspid, mac);
}
ZANTH_API int32_t ExecuteReloadDB(const char* mac) {
    return Blocking<&Master::ExecuteReloadDB>(mac);
}
ZANTH_API int32_t RspExecuteReloadDB(uint32_t rspid, const char* mac) {
    return Deferred<&Master::ExecuteReloadDB>(rspid, mac);
}
ZANTH_API int32_t GetNumberOfCards(const char* mac, int32_t* firstCount, int32_t* secondCount) {
    return Blocking<&Master::GetNumberOfCards>(mac, firstCount, secondCount);
}
ZANTH_API int32_t RspGetNumberOfCards(uint32_t rspid, const char* mac) {
    return Deferred<&Master::GetNumberOfCards>(rspid, mac, nullptr, nullptr);
}
ZANTH_API int32_t GetNumberDelRecords(const char* mac, int32_t* count) {
    return Blocking<&Master::GetNumberDelRecords>(mac, count);
}
ZANTH_API int32_t RspGetNumberDelRecords(uint32_t rspid, const char* mac) {
    return Deferred<&Master::GetNumberDelRecords>(rspid, mac, nullptr);
}
ZANTH_API int32_t RspSmartCardRawMode(uint32_t rspid, const char* mac, int32_t value,
                                      const char* data) {
    return Deferred<&Master::SmartCardMode>(rspid, mac, ZANTH_SMART_CARD_RAW_MODE, value, data);
}
ZANTH_API int32_t RspSmartCardCommandMode(uint32_t rspid, const char* mac, int32_t value,
                                          const char* data) {
    return Deferred<&Master::SmartCardMode>(rspid, mac, ZANTH_SMART_CARD_COMMAND_MODE, value, data);
}

}  // extern "C"

#undef ZANTH_CARD_ADD_PARAMETERS
#undef ZANTH_CARD_ADD_RECORD
#undef ZANTH_CARD_GET_PARAMETERS
#undef ZANTH_CARD_GET_RECORD
