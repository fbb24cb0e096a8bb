// Host notification: callbacks and the polling of the queues they would drain.

#include "frame/exports/Boundary.h"
#include "monitors/Monitors.h"
#include "zanth.h"

using namespace zanth;

extern "C" {

// The text callbacks: each starts a thread that drains its queue into the callback, with a small
// or (`big`) a large buffer; the export's name is in the log text of a failure to start it.
#define ZANTH_TEXT_CALLBACK(Name, threadName, queue, big)                                          \
    ZANTH_API int32_t Name(ZanthTextCallback callback) {                                           \
        return Call<&Master::SetTextCallback>(#Name, threadName, callback, &Monitors::queue, big); \
    }
ZANTH_TEXT_CALLBACK(SetHereIAmCallback, "hereiam", hereiamMon, false)
ZANTH_TEXT_CALLBACK(SetLookupCallback, "lookup", lookupMon, false)
ZANTH_TEXT_CALLBACK(SetKeyPadDataCallback, "keypad", keyPadMon, false)
ZANTH_TEXT_CALLBACK(SetCommandKeyDataCallback, "cmdkey", cmdKeyMon, false)
ZANTH_TEXT_CALLBACK(SetAlarmCallback, "alarm", alarmMonQueue, false)
ZANTH_TEXT_CALLBACK(SetEventCallback, "event", eventMonQueue, false)
ZANTH_TEXT_CALLBACK(SetPostAccessCallback, "postAccess", postAccessMon, true)
ZANTH_TEXT_CALLBACK(SetSmartCardDataCallback, "smartcard", smartCardMon, true)

ZANTH_API int32_t SetResponseCallback(ZanthResponseCallback callback) {
    return Call<&Master::SetResponseCallback>(callback);
}
ZANTH_API int32_t SetConnectedControllersCallback(ZanthConnectionCallback callback) {
    return Call<&Master::SetConnectedControllersCallback>(callback);
}
ZANTH_API int32_t SetDisconnectedControllersCallback(ZanthConnectionCallback callback) {
    return Call<&Master::SetDisconnectedControllersCallback>(callback);
}

// Queue-only exports: they take no transaction lock. Each polled queue has two, the next text and
// the count.
#define ZANTH_POLLED_QUEUE(NextName, NumberName, queue)                \
    ZANTH_API int32_t NextName(char* buffer, int32_t size) {           \
        return Call<&Master::GetNext>(&Monitors::queue, buffer, size); \
    }                                                                  \
    ZANTH_API int32_t NumberName(int32_t* count) {                     \
        return Call<&Master::GetNumber>(&Monitors::queue, count);      \
    }
ZANTH_POLLED_QUEUE(GetNextHereIAm, GetNumberHereIAm, hereiamMon)
ZANTH_POLLED_QUEUE(GetNextLookup, GetNumberLookups, lookupMon)
ZANTH_POLLED_QUEUE(GetNextPin, GetNumberPin, lookupPinMon)
ZANTH_POLLED_QUEUE(GetNextPostAccess, GetNumberPostAccess, postAccessMon)
ZANTH_POLLED_QUEUE(GetNextKeyPadData, GetNumberKeyPadData, keyPadMon)
ZANTH_POLLED_QUEUE(GetNextCommandKeyData, GetNumberCommandKeyData, cmdKeyMon)
ZANTH_POLLED_QUEUE(GetNextSmartCardData, GetNumberSmartCardData, smartCardMon)
ZANTH_API int32_t GetNextResponse(int32_t* rspid, char* buffer, int32_t size) {
    return Call<&Master::GetNextResponse>(rspid, buffer, size);
}
ZANTH_API int32_t GetNumberResponse(int32_t* count) {
    return Call<&Master::GetNumberResponse>(count);
}

}  // extern "C"
