// Monitors and links: the connected list, the cipher plugin's version, the log folder.

#include "frame/exports/Boundary.h"
#include "zanth.h"

using namespace zanth;

extern "C" {

ZANTH_API int32_t GetConnectedControllers(char* buffer, int32_t size) {
    return Call<&Master::GetConnectedControllers>(buffer, size);
}
ZANTH_API int32_t GetConnectedGateways(char* buffer, int32_t size) {
    return Call<&Master::GetConnectedControllers>(buffer, size);
}
ZANTH_API int32_t GetEncryptionDLLVersion(char* buffer, int32_t size) {
    return Call<&Master::GetEncryptionDLLVersion>(buffer, size);
}
ZANTH_API int32_t GetLogFilePath(char* path) {
    return Call<&Master::GetLogFilePath>(path);
}
ZANTH_API int32_t SetLogFilePath(const char* path) {
    return Call<&Master::SetLogFilePath>(path);
}
ZANTH_API int32_t LogFilePath(int32_t mode, char* path) {
    return Call<&Master::LogFilePath>(mode, path);
}

}  // extern "C"
