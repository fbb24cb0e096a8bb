// Library reset: the whole library, or one controller's Worker, torn down while the process runs.

#include "frame/exports/Boundary.h"
#include "zanth.h"

using namespace zanth;

extern "C" {

ZANTH_API int32_t ResetDLL(void) {
    return Call<&Master::ResetDLL>();
}
ZANTH_API int32_t ResetThread(const char* mac) {
    return Call<&Master::ResetThread>(mac);
}
ZANTH_API int32_t RspResetThread(uint32_t rspid, const char* mac) {
    return Call<&Master::RspResetThread>(static_cast<int32_t>(rspid), mac);
}
ZANTH_API int32_t ResetDLLTime(int32_t mode, int32_t* value) {
    return Call<&Master::ResetDLLTime>(mode, value);
}

}  // extern "C"
