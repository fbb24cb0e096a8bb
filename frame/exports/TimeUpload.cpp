// Time and time zone, and message upload: every form lands on SystemTime, SystemTZ or
// CmdEventLog with its mode.

#include "frame/exports/Boundary.h"
#include "zanth.h"

using namespace zanth;

extern "C" {

ZANTH_API int32_t SystemTime(const char* mac, int32_t mode, char* date, int32_t dateSize,
                             char* time, int32_t timeSize, char* zone, int32_t zoneSize) {
    return Blocking<&Master::SystemTime>(mac, mode, date, dateSize, time, timeSize, zone, zoneSize);
}
ZANTH_API int32_t RspSystemTime(uint32_t rspid, const char* mac, int32_t mode, char* date,
                                char* time) {
    return Deferred<&Master::SystemTime>(rspid, mac, mode, date, 0, time, 0, nullptr, 0);
}
ZANTH_API int32_t GetTimeDate(const char* mac, char* date, int32_t dateSize, char* time,
                              int32_t timeSize) {
    return Blocking<&Master::SystemTime>(mac, 0, date, dateSize, time, timeSize, nullptr, 0);
}
ZANTH_API int32_t RspGetTimeDate(uint32_t rspid, const char* mac) {
    return Deferred<&Master::SystemTime>(rspid, mac, 0, nullptr, 0, nullptr, 0, nullptr, 0);
}
ZANTH_API int32_t SetTimeDate(const char* mac, char* date, char* time) {
    return Blocking<&Master::SystemTime>(mac, 1, date, 0, time, 0, nullptr, 0);
}
ZANTH_API int32_t RspSetTimeDate(uint32_t rspid, const char* mac, char* date, char* time) {
    return Deferred<&Master::SystemTime>(rspid, mac, 1, date, 0, time, 0, nullptr, 0);
}
ZANTH_API int32_t GetCurrentTimeZone(const char* mac, char* zone, int32_t zoneSize) {
    return Blocking<&Master::SystemTime>(mac, 2, nullptr, 0, nullptr, 0, zone, zoneSize);
}
ZANTH_API int32_t RspGetCurrentTimeZone(uint32_t rspid, const char* mac) {
    return Deferred<&Master::SystemTime>(rspid, mac, 2, nullptr, 0, nullptr, 0, nullptr, 0);
}

// SystemTZ writes to `tz` only in mode 0; the setting forms hand it the host's text unchanged.
ZANTH_API int32_t SystemTZ(const char* mac, int32_t mode, char* tz, int32_t size) {
    return Blocking<&Master::SystemTZ>(mac, mode, tz, size);
}
ZANTH_API int32_t RspSystemTZ(uint32_t rspid, const char* mac, int32_t mode, char* tz) {
    return Deferred<&Master::SystemTZ>(rspid, mac, mode, tz, 0);
}
ZANTH_API int32_t GetTZ(const char* mac, char* tz, int32_t size) {
    return Blocking<&Master::SystemTZ>(mac, 0, tz, size);
}
ZANTH_API int32_t RspGetTZ(uint32_t rspid, const char* mac) {
    return Deferred<&Master::SystemTZ>(rspid, mac, 0, nullptr, 0);
}
ZANTH_API int32_t SetTZ(const char* mac, const char* tz) {
    return Blocking<&Master::SystemTZ>(mac, 1, const_cast<char*>(tz), 0);
}
ZANTH_API int32_t RspSetTZ(uint32_t rspid, const char* mac, const char* tz) {
    return Deferred<&Master::SystemTZ>(rspid, mac, 1, const_cast<char*>(tz), 0);
}

ZANTH_API int32_t CmdEventLog(const char* mac, int32_t mode, int32_t value1, int32_t value2) {
    return Blocking<&Master::CmdEventLog>(mac, mode, value1, value2);
}
ZANTH_API int32_t RspCmdEventLog(uint32_t rspid, const char* mac, int32_t mode, int32_t value1,
                                 int32_t value2) {
    return Deferred<&Master::CmdEventLog>(rspid, mac, mode, value1, value2);
}
ZANTH_API int32_t UploadCurrentMsgs(const char* mac) {
    return Blocking<&Master::CmdEventLog>(mac, 1, 0, 0);
}
ZANTH_API int32_t RspUploadCurrentMsgs(uint32_t rspid, const char* mac) {
    return Deferred<&Master::CmdEventLog>(rspid, mac, 1, 0, 0);
}
ZANTH_API int32_t UploadAllMsgs(const char* mac) {
    return Blocking<&Master::CmdEventLog>(mac, 2, 0, 0);
}
ZANTH_API int32_t RspUploadAllMsgs(uint32_t rspid, const char* mac) {
    return Deferred<&Master::CmdEventLog>(rspid, mac, 2, 0, 0);
}
ZANTH_API int32_t UploadCurrentMsgsByClassCode(const char* mac, int32_t classCode) {
    return Blocking<&Master::CmdEventLog>(mac, 4, classCode, 0);
}
ZANTH_API int32_t RspUploadCurrentMsgsByClassCode(uint32_t rspid, const char* mac,
                                                  int32_t classCode) {
    return Deferred<&Master::CmdEventLog>(rspid, mac, 4, classCode, 0);
}
ZANTH_API int32_t UploadAllMsgsByClassCode(const char* mac, int32_t classCode) {
    return Blocking<&Master::CmdEventLog>(mac, 5, classCode, 0);
}
ZANTH_API int32_t RspUploadAllMsgsByClassCode(uint32_t rspid, const char* mac, int32_t classCode) {
    return Deferred<&Master::CmdEventLog>(rspid, mac, 5, classCode, 0);
}
ZANTH_API int32_t UploadMsgsByMsgID(const char* mac, int32_t start, int32_t end) {
    return Blocking<&Master::CmdEventLog>(mac, 6, start, end);
}
ZANTH_API int32_t RspUploadMsgsByMsgID(uint32_t rspid, const char* mac, int32_t start,
                                       int32_t end) {
    return Deferred<&Master::CmdEventLog>(rspid, mac, 6, start, end);
}
ZANTH_API int32_t UploadCurrentMsgsByPriority(const char* mac, int32_t priority) {
    return Blocking<&Master::CmdEventLog>(mac, 7, priority, 0);
}
ZANTH_API int32_t RspUploadCurrentMsgsByPriority(uint32_t rspid, const char* mac,
                                                 int32_t priority) {
    return Deferred<&Master::CmdEventLog>(rspid, mac, 7, priority, 0);
}
ZANTH_API int32_t UploadAllMsgsByPriority(const char* mac, int32_t priority) {
    return Blocking<&Master::CmdEventLog>(mac, 8, priority, 0);
}
ZANTH_API int32_t RspUploadAllMsgsByPriority(uint32_t rspid, const char* mac, int32_t priority) {
    return Deferred<&Master::CmdEventLog>(rspid, mac, 8, priority, 0);
}

}  // extern "C"
