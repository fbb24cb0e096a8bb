// File transfer: whole files, single chunks, a file's permission and its removal.

#include "frame/exports/Boundary.h"
#include "zanth.h"

using namespace zanth;

extern "C" {

ZANTH_API int32_t GetFile(const char* mac, const char* controllerPathFile, const char* pcPathFile) {
    return Blocking<&Master::GetFile>(mac, controllerPathFile, pcPathFile);
}
ZANTH_API int32_t RspGetFile(uint32_t rspid, const char* mac, const char* controllerPathFile,
                             const char* pcPathFile) {
    return Deferred<&Master::GetFile>(rspid, mac, controllerPathFile, pcPathFile);
}
ZANTH_API int32_t SendFile(const char* mac, const char* controllerPathFile,
                           const char* pcPathFile) {
    return Blocking<&Master::SendFile>(mac, controllerPathFile, pcPathFile);
}
ZANTH_API int32_t RspSendFile(uint32_t rspid, const char* mac, const char* controllerPathFile,
                              const char* pcPathFile) {
    return Deferred<&Master::SendFile>(rspid, mac, controllerPathFile, pcPathFile);
}
ZANTH_API int32_t GetData(const char* mac, const char* controllerPathFile, char* buffer,
                          int32_t size, int32_t* bytesRead, int32_t* isLast) {
    return Call<&Master::GetData>(mac, controllerPathFile, buffer, size, bytesRead, isLast);
}
ZANTH_API int32_t SendData(const char* mac, const char* controllerPathFile, const char* data,
                           int32_t size, int32_t endOfData) {
    return Call<&Master::SendData>(mac, controllerPathFile, data, size, endOfData);
}
ZANTH_API int32_t RspGetDataFilename(uint32_t rspid, const char* mac,
                                     const char* controllerPathFile) {
    return Call<&Master::RspGetDataFilename>(static_cast<int32_t>(rspid), mac, controllerPathFile);
}
ZANTH_API int32_t RspGetData(uint32_t rspid, const char* mac, const char* controllerPathFile) {
    return Call<&Master::RspGetData>(static_cast<int32_t>(rspid), mac, controllerPathFile);
}
ZANTH_API int32_t RspSendDataFilename(uint32_t rspid, const char* mac,
                                      const char* controllerPathFile) {
    return Call<&Master::RspSendDataFilename>(static_cast<int32_t>(rspid), mac, controllerPathFile);
}
ZANTH_API int32_t RspSendData(uint32_t rspid, const char* mac, const char* controllerPathFile,
                              const char* data, int32_t size, int32_t endOfData) {
    return Call<&Master::RspSendData>(static_cast<int32_t>(rspid), mac, controllerPathFile, data,
                                      size, endOfData);
}
ZANTH_API int32_t FileStatus(const char* mac, int32_t mode, const char* path, char* permission,
                             int32_t size) {
    return Blocking<&Master::FileStatus>(mac, mode, path, permission, size);
}
ZANTH_API int32_t GetFileStatus(const char* mac, const char* path, char* permission, int32_t size) {
    return Blocking<&Master::FileStatus>(mac, 0, path, permission, size);
}
// In mode 1 the permission is only read.
ZANTH_API int32_t SetFileStatus(const char* mac, const char* path, const char* permission) {
    return Blocking<&Master::FileStatus>(mac, 1, path, const_cast<char*>(permission), 0);
}
ZANTH_API int32_t RspFileStatus(uint32_t rspid, const char* mac, int32_t mode, const char* path,
                                const char* permission) {
    return Deferred<&Master::FileStatus>(rspid, mac, mode, path, const_cast<char*>(permission), 0);
}
ZANTH_API int32_t RspGetFileStatus(uint32_t rspid, const char* mac, const char* path) {
    return Deferred<&Master::FileStatus>(rspid, mac, 0, path, static_cast<char*>(nullptr), 0);
}
ZANTH_API int32_t RspSetFileStatus(uint32_t rspid, const char* mac, const char* path,
                                   const char* permission) {
    return Deferred<&Master::FileStatus>(rspid, mac, 1, path, const_cast<char*>(permission), 0);
}
ZANTH_API int32_t ZanthDeleteFile(const char* mac, const char* path) {
    return Blocking<&Master::ZanthDeleteFile>(mac, path);
}
ZANTH_API int32_t RspZanthDeleteFile(uint32_t rspid, const char* mac, const char* path) {
    return Deferred<&Master::ZanthDeleteFile>(rspid, mac, path);
}

}  // extern "C"
