// Controller administration: reboots, tasks, addressing, login, firmware steps, the error log.

#include "frame/exports/Boundary.h"
#include "zanth.h"

using namespace zanth;

extern "C" {

ZANTH_API int32_t RebootBoard(const char* mac, int32_t target) {
    return Blocking<&Master::RebootBoard>(mac, target);
}
ZANTH_API int32_t RspRebootBoard(uint32_t rspid, const char* mac, int32_t target) {
    return Deferred<&Master::RebootBoard>(rspid, mac, target);
}
ZANTH_API int32_t RebootBoard2(const char* mac, int32_t target) {
    return Blocking<&Master::RebootBoard2>(mac, target);
}
ZANTH_API int32_t RspRebootBoard2(uint32_t rspid, const char* mac, int32_t target) {
    return Deferred<&Master::RebootBoard2>(rspid, mac, target);
}

ZANTH_API int32_t RestartStopTask(const char* mac, int32_t mode, int32_t task) {
    return Blocking<&Master::RestartStopTask>(mac, mode, task);
}
ZANTH_API int32_t RspRestartStopTask(uint32_t rspid, const char* mac, int32_t mode, int32_t task) {
    return Deferred<&Master::RestartStopTask>(rspid, mac, mode, task);
}
ZANTH_API int32_t RestartTask(const char* mac, int32_t task) {
    return Blocking<&Master::RestartStopTask>(mac, 1, task);
}
ZANTH_API int32_t RspRestartTask(uint32_t rspid, const char* mac, int32_t task) {
    return Deferred<&Master::RestartStopTask>(rspid, mac, 1, task);
}
ZANTH_API int32_t StopTask(const char* mac, int32_t task) {
    return Blocking<&Master::RestartStopTask>(mac, 2, task);
}
ZANTH_API int32_t RspStopTask(uint32_t rspid, const char* mac, int32_t task) {
    return Deferred<&Master::RestartStopTask>(rspid, mac, 2, task);
}

ZANTH_API int32_t EnableDHCP(const char* mac, const char* text) {
    return Blocking<&Master::EnableDHCP>(mac, text);
}
ZANTH_API int32_t RspEnableDHCP(uint32_t rspid, const char* mac, const char* text) {
    return Deferred<&Master::EnableDHCP>(rspid, mac, text);
}
ZANTH_API int32_t EnableStaticIP(const char* mac, const char* text1, const char* text2,
                                 const char* text3, const char* text4, const char* text5,
                                 const char* text6, const char* text7, const char* text8) {
    return Blocking<&Master::EnableStaticIP>(mac, text1, text2, text3, text4, text5, text6, text7,
                                             text8);
}
ZANTH_API int32_t RspEnableStaticIP(uint32_t rspid, const char* mac, const char* text1,
                                    const char* text2, const char* text3, const char* text4,
                                    const char* text5, const char* text6, const char* text7,
                                    const char* text8) {
    return Deferred<&Master::EnableStaticIP>(rspid, mac, text1, text2, text3, text4, text5, text6,
                                             text7, text8);
}

ZANTH_API int32_t SetPassword(const char* mac, const char* username, const char* password) {
    return Blocking<&Master::SetPassword>(mac, username, password);
}
ZANTH_API int32_t RspSetPassword(uint32_t rspid, const char* mac, const char* username,
                                 const char* password) {
    return Deferred<&Master::SetPassword>(rspid, mac, username, password);
}

ZANTH_API int32_t FirmwareCommand(const char* mac, uint32_t value) {
    return Blocking<&Master::FirmwareCommand>(mac, value);
}
ZANTH_API int32_t RspFirmwareCommand(uint32_t rspid, const char* mac, uint32_t value) {
    return Deferred<&Master::FirmwareCommand>(rspid, mac, value);
}

ZANTH_API int32_t GetErrorLog(const char* mac, const char* pcPathFile) {
    return Blocking<&Master::GetErrorLog>(mac, pcPathFile);
}
ZANTH_API int32_t RspGetErrorLog(uint32_t rspid, const char* mac, const char* pcPathFile) {
    return Deferred<&Master::GetErrorLog>(rspid, mac, pcPathFile);
}

}  // extern "C"
