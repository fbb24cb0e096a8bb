#include "monitors/Globals.h"
#include "frame/exports/Boundary.h"
#include "zanth.h"

using zanth::Guarded;
using zanth::Master;
using zanth::TheMaster;

extern "C" {

ZANTH_API int32_t SetHereIAmCallback(ZanthTextCallback callback) {
    return Guarded([&] {
        return TheMaster().SetTextCallback("SetHereIAmCallback", "hereiam", callback,
                                           zanth::hereiamMon, false);
    });
}
ZANTH_API int32_t SetLookupCallback(ZanthTextCallback callback) {
    return Guarded([&] {
        return TheMaster().SetTextCallback("SetLookupCallback", "lookup", callback,
                                           zanth::lookupMon, false);
    });
}
ZANTH_API int32_t SetKeyPadDataCallback(ZanthTextCallback callback) {
    return Guarded([&] {
        return TheMaster().SetTextCallback("SetKeyPadDataCallback", "keypad", callback,
                                           zanth::keyPadMon, false);
    });
}
ZANTH_API int32_t SetCommandKeyDataCallback(ZanthTextCallback callback) {
    return Guarded([&] {
        return TheMaster().SetTextCallback("SetCommandKeyDataCallback", "cmdkey", callback,
                                           zanth::cmdKeyMon, false);
    });
}
ZANTH_API int32_t SetAlarmCallback(ZanthTextCallback callback) {
    return Guarded([&] {
        return TheMaster().SetTextCallback("SetAlarmCallback", "alarm", callback,
                                           zanth::alarmMonQueue, false);
    });
}
ZANTH_API int32_t SetEventCallback(ZanthTextCallback callback) {
    return Guarded([&] {
        return TheMaster().SetTextCallback("SetEventCallback", "event", callback,
                                           zanth::eventMonQueue, false);
    });
}
ZANTH_API int32_t SetPostAccessCallback(ZanthTextCallback callback) {
    return Guarded([&] {
        return TheMaster().SetTextCallback("SetPostAccessCallback", "postAccess", callback,
                                           zanth::postAccessMon, true);
    });
}
ZANTH_API int32_t SetSmartCardDataCallback(ZanthTextCallback callback) {
    return Guarded([&] {
        return TheMaster().SetTextCallback("SetSmartCardDataCallback", "smartcard", callback,
                                           zanth::smartCardMon, true);
    });
}
ZANTH_API int32_t SetResponseCallback(ZanthResponseCallback callback) {
    return Guarded([&] { return TheMaster().SetResponseCallback(callback); });
}
ZANTH_API int32_t SetConnectedControllersCallback(ZanthConnectionCallback callback) {
    return Guarded([&] { return TheMaster().SetConnectedControllersCallback(callback); });
}
ZANTH_API int32_t SetDisconnectedControllersCallback(ZanthConnectionCallback callback) {
    return Guarded([&] { return TheMaster().SetDisconnectedControllersCallback(callback); });
}

// Queue-only exports: they take no transaction lock.
ZANTH_API int32_t GetNextHereIAm(char* buffer, int32_t size) {
    return Guarded([&] { return Master::GetNext(zanth::hereiamMon, buffer, size); });
}
ZANTH_API int32_t GetNextLookup(char* buffer, int32_t size) {
    return Guarded([&] { return Master::GetNext(zanth::lookupMon, buffer, size); });
}
ZANTH_API int32_t GetNextPin(char* buffer, int32_t size) {
    return Guarded([&] { return Master::GetNext(zanth::lookupPinMon, buffer, size); });
}
ZANTH_API int32_t GetNextPostAccess(char* buffer, int32_t size) {
    return Guarded([&] { return Master::GetNext(zanth::postAccessMon, buffer, size); });
}
ZANTH_API int32_t GetNextKeyPadData(char* buffer, int32_t size) {
    return Guarded([&] { return Master::GetNext(zanth::keyPadMon, buffer, size); });
}
ZANTH_API int32_t GetNextCommandKeyData(char* buffer, int32_t size) {
    return Guarded([&] { return Master::GetNext(zanth::cmdKeyMon, buffer, size); });
}
ZANTH_API int32_t GetNextSmartCardData(char* buffer, int32_t size) {
    return Guarded([&] { return Master::GetNext(zanth::smartCardMon, buffer, size); });
}
ZANTH_API int32_t GetNextResponse(int32_t* rspid, char* buffer, int32_t size) {
    return Guarded([&] { return Master::GetNextResponse(rspid, buffer, size); });
}
ZANTH_API int32_t GetNumberHereIAm(int32_t* count) {
    return Guarded([&] { return Master::GetNumber(zanth::hereiamMon, count); });
}
ZANTH_API int32_t GetNumberLookups(int32_t* count) {
    return Guarded([&] { return Master::GetNumber(zanth::lookupMon, count); });
}
ZANTH_API int32_t GetNumberPin(int32_t* count) {
    return Guarded([&] { return Master::GetNumber(zanth::lookupPinMon, count); });
}
ZANTH_API int32_t GetNumberPostAccess(int32_t* count) {
    return Guarded([&] { return Master::GetNumber(zanth::postAccessMon, count); });
}
ZANTH_API int32_t GetNumberKeyPadData(int32_t* count) {
    return Guarded([&] { return Master::GetNumber(zanth::keyPadMon, count); });
}
ZANTH_API int32_t GetNumberCommandKeyData(int32_t* count) {
    return Guarded([&] { return Master::GetNumber(zanth::cmdKeyMon, count); });
}
ZANTH_API int32_t GetNumberSmartCardData(int32_t* count) {
    return Guarded([&] { return Master::GetNumber(zanth::smartCardMon, count); });
}
ZANTH_API int32_t GetNumberResponse(int32_t* count) {
    return Guarded([&] { return Master::GetNumberResponse(count); });
}

ZANTH_API int32_t GetNextEvent(char* buffer, int32_t size) {
    return Guarded([&] { return TheMaster().GetNextEvent(buffer, size); });
}
ZANTH_API int32_t GetNextAlarm(char* buffer, int32_t size) {
    return Guarded([&] { return TheMaster().GetNextAlarm(buffer, size); });
}
ZANTH_API int32_t NumberUnreadEvents(uint64_t* count) {
    return Guarded([&] { return TheMaster().NumberUnreadEvents(count); });
}
ZANTH_API int32_t NumberUnreadAlarms(uint64_t* count) {
    return Guarded([&] { return TheMaster().NumberUnreadAlarms(count); });
}
ZANTH_API int32_t EventLogSize(int32_t mode, uint64_t* value) {
    return Guarded([&] { return TheMaster().EventLogSize(mode, value); });
}
ZANTH_API int32_t AlarmLogSize(int32_t mode, uint64_t* value) {
    return Guarded([&] { return TheMaster().AlarmLogSize(mode, value); });
}

}  // extern "C"
