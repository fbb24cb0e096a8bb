#pragma once
// What every export shares: the one Master, and the rule that no exception crosses into the
// host. A failure that would raise (a reply field that isn't a number, an allocation that
// fails) returns -1.

#include <cstdint>
#include <utility>

#include "frame/Master.h"

namespace zanth {

// The library's one Master: a static object in the shared library, the test harness's own in
// the tests.
Master& TheMaster();

template <class Call>
int32_t Guarded(Call&& call) noexcept {
    try {
        return std::forward<Call>(call)();
    } catch (...) {
        return -1;
    }
}

}  // namespace zanth
