#include "frame/exports/Boundary.h"
#include "zanth.h"

using zanth::Guarded;
using zanth::TheMaster;

extern "C" {

ZANTH_API int32_t RecheckLookupCard(const char* mac, const char* data) {
    return Guarded([&] { return TheMaster().RecheckLookupCard(0, 0, mac, data); });
}
ZANTH_API int32_t RspRecheckLookupCard(uint32_t rspid, const char* mac, const char* data) {
    return Guarded([&] {
        return TheMaster().RecheckLookupCard(1, static_cast<int32_t>(rspid), mac, data);
    });
}
ZANTH_API int32_t RequestPin(const char* mac, uint32_t pinValue1, uint32_t pinValue2,
                             uint32_t pinValue3) {
    return Guarded(
        [&] { return TheMaster().RequestPin(0, 0, mac, pinValue1, pinValue2, pinValue3); });
}
ZANTH_API int32_t RspRequestPin(uint32_t rspid, const char* mac, uint32_t pinValue1,
                                uint32_t pinValue2, uint32_t pinValue3) {
    return Guarded([&] {
        return TheMaster().RequestPin(1, static_cast<int32_t>(rspid), mac, pinValue1, pinValue2,
                                      pinValue3);
    });
}
ZANTH_API int32_t SendPostAccessMsg(const char* mac, const char* message) {
    return Guarded([&] { return TheMaster().SendPostAccessMsg(mac, message); });
}

}  // extern "C"
