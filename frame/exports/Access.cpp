// Host access decisions: the host's word on a look-up, a PIN request, a post-access message.

#include "frame/exports/Boundary.h"
#include "zanth.h"

using namespace zanth;

extern "C" {

ZANTH_API int32_t RecheckLookupCard(const char* mac, const char* data) {
    return Blocking<&Master::RecheckLookupCard>(mac, data);
}
ZANTH_API int32_t RspRecheckLookupCard(uint32_t rspid, const char* mac, const char* data) {
    return Deferred<&Master::RecheckLookupCard>(rspid, mac, data);
}
ZANTH_API int32_t RequestPin(const char* mac, uint32_t pinValue1, uint32_t pinValue2,
                             uint32_t pinValue3) {
    return Blocking<&Master::RequestPin>(mac, pinValue1, pinValue2, pinValue3);
}
ZANTH_API int32_t RspRequestPin(uint32_t rspid, const char* mac, uint32_t pinValue1,
                                uint32_t pinValue2, uint32_t pinValue3) {
    return Deferred<&Master::RequestPin>(rspid, mac, pinValue1, pinValue2, pinValue3);
}
// No rspfunc: nothing is awaited in either case.
ZANTH_API int32_t SendPostAccessMsg(const char* mac, const char* message) {
    return Call<&Master::SendPostAccessMsg>(mac, message);
}

}  // extern "C"
