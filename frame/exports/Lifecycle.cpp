// Library frame and lifecycle: start and end, the valid list, settings, the controller's own
// description and outbound contact.

#include "frame/exports/Boundary.h"
#include "zanth.h"

using namespace zanth;

extern "C" {

ZANTH_API int32_t Initialization(int32_t port, void* parentWindow, void* instance) {
    return Call<&Master::Initialization>(port, parentWindow, instance);
}
ZANTH_API int32_t Shutdown(void) {
    return Call<&Master::Shutdown>();
}
ZANTH_API int32_t Terminate(const char* mac) {
    return Call<&Master::Terminate>(mac);
}
ZANTH_API int32_t SetValidControllers(const char* list) {
    return Call<&Master::SetValidControllers>(list);
}
ZANTH_API int32_t SetValidGateways(const char* list) {
    return Call<&Master::SetValidControllers>(list);
}
ZANTH_API int32_t GetValidControllers(char* buffer, int32_t size) {
    return Call<&Master::GetValidControllers>(buffer, size);
}
ZANTH_API int32_t GetValidGateways(char* buffer, int32_t size) {
    return Call<&Master::GetValidControllers>(buffer, size);
}
ZANTH_API int32_t GetDLLVersion(char* buffer, int32_t size) {
    return Call<&Master::GetDLLVersion>(buffer, size);
}
ZANTH_API int32_t DebugLevel(int32_t mode, int32_t* level) {
    return Call<&Master::DebugLevel>(mode, level);
}
ZANTH_API int32_t RecvWaitTime(int32_t mode, int32_t* value) {
    return Call<&Master::RecvWaitTime>(mode, value);
}

ZANTH_API int32_t ControllerInfo(const char* mac, char* buffer, int32_t size) {
    return Blocking<&Master::GatewayInfo>(mac, buffer, size);
}
ZANTH_API int32_t GatewayInfo(const char* mac, char* buffer, int32_t size) {
    return Blocking<&Master::GatewayInfo>(mac, buffer, size);
}
ZANTH_API int32_t RspControllerInfo(uint32_t rspid, const char* mac) {
    return Deferred<&Master::GatewayInfo>(rspid, mac, nullptr, 0);
}
ZANTH_API int32_t RspGatewayInfo(uint32_t rspid, const char* mac) {
    return Deferred<&Master::GatewayInfo>(rspid, mac, nullptr, 0);
}

ZANTH_API int32_t ContactController(const char* iphostname, int32_t port) {
    return Blocking<&Master::ContactGateway>(iphostname, port);
}
ZANTH_API int32_t ContactGateway(const char* iphostname, int32_t port) {
    return Blocking<&Master::ContactGateway>(iphostname, port);
}
ZANTH_API int32_t RspContactController(uint32_t rspid, const char* iphostname, int32_t port) {
    return Deferred<&Master::ContactGateway>(rspid, iphostname, port);
}
ZANTH_API int32_t RspContactGateway(uint32_t rspid, const char* iphostname, int32_t port) {
    return Deferred<&Master::ContactGateway>(rspid, iphostname, port);
}

}  // extern "C"
