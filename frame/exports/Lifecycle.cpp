#include "frame/exports/Boundary.h"
#include "zanth.h"

using zanth::Guarded;
using zanth::TheMaster;

extern "C" {

ZANTH_API int32_t Initialization(int32_t port, void* parentWindow, void* instance) {
    return Guarded([&] { return TheMaster().Initialization(port, parentWindow, instance); });
}
ZANTH_API int32_t Shutdown(void) {
    return Guarded([&] { return TheMaster().Shutdown(); });
}
ZANTH_API int32_t Terminate(const char* mac) {
    return Guarded([&] { return TheMaster().Terminate(mac); });
}
ZANTH_API int32_t SetValidControllers(const char* list) {
    return Guarded([&] { return TheMaster().SetValidControllers(list); });
}
ZANTH_API int32_t SetValidGateways(const char* list) {
    return Guarded([&] { return TheMaster().SetValidControllers(list); });
}
ZANTH_API int32_t GetValidControllers(char* buffer, int32_t size) {
    return Guarded([&] { return TheMaster().GetValidControllers(buffer, size); });
}
ZANTH_API int32_t GetValidGateways(char* buffer, int32_t size) {
    return Guarded([&] { return TheMaster().GetValidControllers(buffer, size); });
}
ZANTH_API int32_t GetConnectedControllers(char* buffer, int32_t size) {
    return Guarded([&] { return TheMaster().GetConnectedControllers(buffer, size); });
}
ZANTH_API int32_t GetConnectedGateways(char* buffer, int32_t size) {
    return Guarded([&] { return TheMaster().GetConnectedControllers(buffer, size); });
}
ZANTH_API int32_t GetDLLVersion(char* buffer, int32_t size) {
    return Guarded([&] { return TheMaster().GetDLLVersion(buffer, size); });
}
ZANTH_API int32_t DebugLevel(int32_t mode, int32_t* level) {
    return Guarded([&] { return TheMaster().DebugLevel(mode, level); });
}
ZANTH_API int32_t RecvWaitTime(int32_t mode, int32_t* value) {
    return Guarded([&] { return TheMaster().RecvWaitTime(mode, value); });
}
ZANTH_API int32_t ControllerInfo(const char* mac, char* buffer, int32_t size) {
    return Guarded([&] { return TheMaster().GatewayInfo(0, 0, mac, buffer, size); });
}
ZANTH_API int32_t GatewayInfo(const char* mac, char* buffer, int32_t size) {
    return Guarded([&] { return TheMaster().GatewayInfo(0, 0, mac, buffer, size); });
}
ZANTH_API int32_t RspControllerInfo(uint32_t rspid, const char* mac) {
    return Guarded([&] {
        return TheMaster().GatewayInfo(1, static_cast<int32_t>(rspid), mac, nullptr, 0);
    });
}
ZANTH_API int32_t RspGatewayInfo(uint32_t rspid, const char* mac) {
    return Guarded([&] {
        return TheMaster().GatewayInfo(1, static_cast<int32_t>(rspid), mac, nullptr, 0);
    });
}
ZANTH_API int32_t ContactController(const char* iphostname, int32_t port) {
    return Guarded([&] { return TheMaster().ContactGateway(0, 0, iphostname, port); });
}
ZANTH_API int32_t ContactGateway(const char* iphostname, int32_t port) {
    return Guarded([&] { return TheMaster().ContactGateway(0, 0, iphostname, port); });
}
ZANTH_API int32_t RspContactController(uint32_t rspid, const char* iphostname, int32_t port) {
    return Guarded([&] {
        return TheMaster().ContactGateway(1, static_cast<int32_t>(rspid), iphostname, port);
    });
}
ZANTH_API int32_t RspContactGateway(uint32_t rspid, const char* iphostname, int32_t port) {
    return Guarded([&] {
        return TheMaster().ContactGateway(1, static_cast<int32_t>(rspid), iphostname, port);
    });
}
ZANTH_API int32_t RebootBoard(const char* mac, int32_t target) {
    return Guarded([&] { return TheMaster().RebootBoard(0, 0, mac, target); });
}
ZANTH_API int32_t RspRebootBoard(uint32_t rspid, const char* mac, int32_t target) {
    return Guarded([&] {
        return TheMaster().RebootBoard(1, static_cast<int32_t>(rspid), mac, target);
    });
}
ZANTH_API int32_t RebootBoard2(const char* mac, int32_t target) {
    return Guarded([&] { return TheMaster().RebootBoard2(0, 0, mac, target); });
}
ZANTH_API int32_t RspRebootBoard2(uint32_t rspid, const char* mac, int32_t target) {
    return Guarded([&] {
        return TheMaster().RebootBoard2(1, static_cast<int32_t>(rspid), mac, target);
    });
}
ZANTH_API int32_t GetEncryptionDLLVersion(char* buffer, int32_t size) {
    return Guarded([&] { return TheMaster().GetEncryptionDLLVersion(buffer, size); });
}
ZANTH_API int32_t GetLogFilePath(char* path) {
    return Guarded([&] { return TheMaster().GetLogFilePath(path); });
}
ZANTH_API int32_t SetLogFilePath(const char* path) {
    return Guarded([&] { return TheMaster().SetLogFilePath(path); });
}
ZANTH_API int32_t LogFilePath(int32_t mode, char* path) {
    return Guarded([&] { return TheMaster().LogFilePath(mode, path); });
}

}  // extern "C"
