// Interface boards and the module bus.

#include "frame/exports/Boundary.h"
#include "zanth.h"

using namespace zanth;

extern "C" {

ZANTH_API int32_t DiscoverInterfaces(const char* mac, char* buffer, int32_t size) {
    return Call<&Master::DiscoverInterfaces>(mac, buffer, size);
}
ZANTH_API int32_t DiscoverInterfaces2(const char* mac, char* buffer, int32_t size) {
    return Call<&Master::DiscoverInterfaces2>(mac, buffer, size);
}
ZANTH_API int32_t RspDiscoverInterfaces(uint32_t rspid, const char* mac, int32_t chain) {
    return Call<&Master::RspDiscoverInterfaces>(static_cast<int32_t>(rspid), mac, chain);
}

ZANTH_API int32_t DownloadInterfaceCode(const char* mac, int32_t interface, int32_t mode) {
    return Blocking<&Master::DownloadInterfaceCode>(mac, interface, mode);
}
ZANTH_API int32_t RspDownloadInterfaceCode(uint32_t rspid, const char* mac, int32_t interface,
                                           int32_t mode) {
    return Deferred<&Master::DownloadInterfaceCode>(rspid, mac, interface, mode);
}
ZANTH_API int32_t DownloadInterfaceProgram(const char* mac, int32_t interface) {
    return Blocking<&Master::DownloadInterfaceCode>(mac, interface, 1);
}
ZANTH_API int32_t RspDownloadInterfaceProgram(uint32_t rspid, const char* mac, int32_t interface) {
    return Deferred<&Master::DownloadInterfaceCode>(rspid, mac, interface, 1);
}
ZANTH_API int32_t DownloadInterfaceEEPROM(const char* mac, int32_t interface) {
    return Blocking<&Master::DownloadInterfaceCode>(mac, interface, 2);
}
ZANTH_API int32_t RspDownloadInterfaceEEPROM(uint32_t rspid, const char* mac, int32_t interface) {
    return Deferred<&Master::DownloadInterfaceCode>(rspid, mac, interface, 2);
}

ZANTH_API int32_t ReadInterfaceMemory(const char* mac, int32_t interface, int32_t memoryType,
                                      const char* address, int32_t numberOfBytes, char* data,
                                      int32_t size) {
    return Blocking<&Master::ReadInterfaceMemory>(mac, interface, memoryType, address,
                                                  numberOfBytes, data, size, 'd');
}
ZANTH_API int32_t RspReadInterfaceMemory(uint32_t rspid, const char* mac, int32_t interface,
                                         int32_t memoryType, const char* address,
                                         int32_t numberOfBytes) {
    return Deferred<&Master::ReadInterfaceMemory>(rspid, mac, interface, memoryType, address,
                                                  numberOfBytes, nullptr, 0, 'd');
}
ZANTH_API int32_t ReadInterfaceMemory_2(const char* mac, int32_t interface, int32_t memoryType,
                                        const char* address, int32_t numberOfBytes, char* data,
                                        int32_t size, char outputType) {
    return Blocking<&Master::ReadInterfaceMemory>(mac, interface, memoryType, address,
                                                  numberOfBytes, data, size, outputType);
}
ZANTH_API int32_t RspReadInterfaceMemory_2(uint32_t rspid, const char* mac, int32_t interface,
                                           int32_t memoryType, const char* address,
                                           int32_t numberOfBytes, char outputType) {
    return Deferred<&Master::ReadInterfaceMemory>(rspid, mac, interface, memoryType, address,
                                                  numberOfBytes, nullptr, 0, outputType);
}

ZANTH_API int32_t WriteEEPROM(const char* mac, int32_t interface, const char* address,
                              int32_t numberOfBytes, const char* data, int32_t bIsLastWrite) {
    return Blocking<&Master::WriteEEPROM_IsLastWrite>(mac, interface, address, numberOfBytes, data,
                                                      bIsLastWrite);
}
ZANTH_API int32_t RspWriteEEPROM(uint32_t rspid, const char* mac, int32_t interface,
                                 const char* address, int32_t numberOfBytes, const char* data,
                                 int32_t bIsLastWrite) {
    return Deferred<&Master::WriteEEPROM_IsLastWrite>(rspid, mac, interface, address, numberOfBytes,
                                                      data, bIsLastWrite);
}

ZANTH_API int32_t SetInterfaceInternalID(const char* mac, int32_t interface, const char* id) {
    return Blocking<&Master::SetInterfaceInternalID>(mac, interface, id);
}
ZANTH_API int32_t RspSetInterfaceInternalID(uint32_t rspid, const char* mac, int32_t interface,
                                            const char* id) {
    return Deferred<&Master::SetInterfaceInternalID>(rspid, mac, interface, id);
}
ZANTH_API int32_t SetHardwareID(const char* mac, int32_t interface, const char* id) {
    return Blocking<&Master::SetInterfaceInternalID>(mac, interface, id);
}
ZANTH_API int32_t RspSetHardwareID(uint32_t rspid, const char* mac, int32_t interface,
                                   const char* id) {
    return Deferred<&Master::SetInterfaceInternalID>(rspid, mac, interface, id);
}

ZANTH_API int32_t GetMoxModuleRevs(const char* mac, char* buffer, int32_t size) {
    return Blocking<&Master::GetMoxModuleRevs>(mac, buffer, size);
}
ZANTH_API int32_t RspGetMoxModuleRevs(uint32_t rspid, const char* mac) {
    return Deferred<&Master::GetMoxModuleRevs>(rspid, mac, nullptr, 0);
}
ZANTH_API int32_t GetMoxOperationMode(const char* mac, int32_t* mode) {
    return Blocking<&Master::GetMoxOperationMode>(mac, mode);
}
ZANTH_API int32_t RspGetMoxOperationMode(uint32_t rspid, const char* mac) {
    return Deferred<&Master::GetMoxOperationMode>(rspid, mac, nullptr);
}
ZANTH_API int32_t SetMoxOperationMode(const char* mac, const char* password, int32_t mode) {
    return Blocking<&Master::SetMoxOperationMode>(mac, password, mode);
}
ZANTH_API int32_t RspSetMoxOperationMode(uint32_t rspid, const char* mac, const char* password,
                                         int32_t mode) {
    return Deferred<&Master::SetMoxOperationMode>(rspid, mac, password, mode);
}

}  // extern "C"
