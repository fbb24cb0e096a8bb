// Controller administration: reboots.

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

}  // extern "C"
