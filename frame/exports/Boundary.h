#pragma once
// What every export shares: the one Master, and the rule that no exception crosses into the
// host. A failure that would raise (an allocation that fails, say) returns -1.
//
// An export is one line on one of three templates:
//
//     ZANTH_API int32_t RebootBoard(const char* mac, int32_t target) {
//         return Blocking<&Master::RebootBoard>(mac, target);            // Master::X(0, 0, ...)
//     }
//     ZANTH_API int32_t RspRebootBoard(uint32_t rspid, const char* mac, int32_t target) {
//         return Deferred<&Master::RebootBoard>(rspid, mac, target);     // Master::X(1, rspid,
//         ...)
//     }
//     ZANTH_API int32_t GetDLLVersion(char* buffer, int32_t size) {
//         return Call<&Master::GetDLLVersion>(buffer, size);             // anything else
//     }
//
// A Rsp form whose method has output arguments passes nullptr and 0 in their place.

#include <cstdint>
#include <type_traits>
#include <utility>

#include "frame/Master.h"

namespace zanth {

// The library's one Master: a static object in the shared library, the test harness's own in
// the tests.
Master& TheMaster();

template <class Body>
int32_t Guarded(Body&& body) noexcept {
    try {
        return std::forward<Body>(body)();
    } catch (...) {
        return -1;
    }
}

// Any method of Master, or a static one, called with the export's arguments as they are.
template <auto Method, class... Args>
int32_t Call(Args... args) noexcept {
    return Guarded([&]() -> int32_t {
        if constexpr (std::is_member_function_pointer_v<decltype(Method)>) {
            return (TheMaster().*Method)(args...);
        } else {
            return Method(args...);
        }
    });
}

// The plain form X(mac, args...) of a command: it waits for the reply.
template <auto Method, class... Args>
int32_t Blocking(Args... args) noexcept {
    return Guarded([&] { return (TheMaster().*Method)(0, 0, args...); });
}

// The form RspX(rspid, mac, args...): queued only, the reply comes back tagged with rspid. The
// host's unsigned tag travels as the method's signed one, bit for bit.
template <auto Method, class... Args>
int32_t Deferred(uint32_t rspid, Args... args) noexcept {
    return Guarded([&] { return (TheMaster().*Method)(1, static_cast<int32_t>(rspid), args...); });
}

}  // namespace zanth
