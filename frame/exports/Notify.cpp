// Host notification: callbacks and the polling of the queues they would drain.

#include "frame/exports/Boundary.h"
#include "monitors/Monitors.h"
#include "zanth.h"

using namespace zanth;

extern "C" {

ZANTH_API int32_t SetHereIAmCallback(ZanthTextCallback callback) {
    return Call<&Master::SetTextCallback>("SetHereIAmCallback", "hereiam", callback,
                                          &Monitors::hereiamMon, false);
}
ZANTH_API int32_t SetLookupCallback(ZanthTextCallback callback) {
    return Call<&Master::SetTextCallback>("SetLookupCallback", "lookup", callback,
                                          &Monitors::lookupMon, false);
}
ZANTH_API int32_t SetKeyPadDataCallback(ZanthTextCallback callback) {
    return Call<&Master::SetTextCallback>("SetKeyPadDataCallback", "keypad", callback,
                                          &Monitors::keyPadMon, false);
}
ZANTH_API int32_t SetCommandKeyDataCallback(ZanthTextCallback callback) {
    return Call<&Master::SetTextCallback>("SetCommandKeyDataCallback", "cmdkey", callback,
                                          &Monitors::cmdKeyMon, false);
}
ZANTH_API int32_t SetAlarmCallback(ZanthTextCallback callback) {
    return Call<&Master::SetTextCallback>("SetAlarmCallback", "alarm", callback,
                                          &Monitors::alarmMonQueue, false);
}
ZANTH_API int32_t SetEventCallback(ZanthTextCallback callback) {
    return Call<&Master::SetTextCallback>("SetEventCallback", "event", callback,
                                          &Monitors::eventMonQueue, false);
}
ZANTH_API int32_t SetPostAccessCallback(ZanthTextCallback callback) {
    return Call<&Master::SetTextCallback>("SetPostAccessCallback", "postAccess", callback,
                                          &Monitors::postAccessMon, true);
}
ZANTH_API int32_t SetSmartCardDataCallback(ZanthTextCallback callback) {
    return Call<&Master::SetTextCallback>("SetSmartCardDataCallback", "smartcard", callback,
                                          &Monitors::smartCardMon, true);
}
ZANTH_API int32_t SetResponseCallback(ZanthResponseCallback callback) {
    return Call<&Master::SetResponseCallback>(callback);
}
ZANTH_API int32_t SetConnectedControllersCallback(ZanthConnectionCallback callback) {
    return Call<&Master::SetConnectedControllersCallback>(callback);
}
ZANTH_API int32_t SetDisconnectedControllersCallback(ZanthConnectionCallback callback) {
    return Call<&Master::SetDisconnectedControllersCallback>(callback);
}

// Queue-only exports: they take no transaction lock.
ZANTH_API int32_t GetNextHereIAm(char* buffer, int32_t size) {
    return Call<&Master::GetNext>(&Monitors::hereiamMon, buffer, size);
}
ZANTH_API int32_t GetNextLookup(char* buffer, int32_t size) {
    return Call<&Master::GetNext>(&Monitors::lookupMon, buffer, size);
}
ZANTH_API int32_t GetNextPin(char* buffer, int32_t size) {
    return Call<&Master::GetNext>(&Monitors::lookupPinMon, buffer, size);
}
ZANTH_API int32_t GetNextPostAccess(char* buffer, int32_t size) {
    return Call<&Master::GetNext>(&Monitors::postAccessMon, buffer, size);
}
ZANTH_API int32_t GetNextKeyPadData(char* buffer, int32_t size) {
    return Call<&Master::GetNext>(&Monitors::keyPadMon, buffer, size);
}
ZANTH_API int32_t GetNextCommandKeyData(char* buffer, int32_t size) {
    return Call<&Master::GetNext>(&Monitors::cmdKeyMon, buffer, size);
}
ZANTH_API int32_t GetNextSmartCardData(char* buffer, int32_t size) {
    return Call<&Master::GetNext>(&Monitors::smartCardMon, buffer, size);
}
ZANTH_API int32_t GetNextResponse(int32_t* rspid, char* buffer, int32_t size) {
    return Call<&Master::GetNextResponse>(rspid, buffer, size);
}
ZANTH_API int32_t GetNumberHereIAm(int32_t* count) {
    return Call<&Master::GetNumber>(&Monitors::hereiamMon, count);
}
ZANTH_API int32_t GetNumberLookups(int32_t* count) {
    return Call<&Master::GetNumber>(&Monitors::lookupMon, count);
}
ZANTH_API int32_t GetNumberPin(int32_t* count) {
    return Call<&Master::GetNumber>(&Monitors::lookupPinMon, count);
}
ZANTH_API int32_t GetNumberPostAccess(int32_t* count) {
    return Call<&Master::GetNumber>(&Monitors::postAccessMon, count);
}
ZANTH_API int32_t GetNumberKeyPadData(int32_t* count) {
    return Call<&Master::GetNumber>(&Monitors::keyPadMon, count);
}
ZANTH_API int32_t GetNumberCommandKeyData(int32_t* count) {
    return Call<&Master::GetNumber>(&Monitors::cmdKeyMon, count);
}
ZANTH_API int32_t GetNumberSmartCardData(int32_t* count) {
    return Call<&Master::GetNumber>(&Monitors::smartCardMon, count);
}
ZANTH_API int32_t GetNumberResponse(int32_t* count) {
    return Call<&Master::GetNumberResponse>(count);
}

}  // extern "C"
