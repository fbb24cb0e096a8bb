#pragma once
// One generation of a command that reaches an interface board (targets 0 to 31) or the
// controller itself (target 32): its name in the log texts, its codes and the replies it takes.
// The older generations have a code for the boards and one of the controller's own, which
// carries no target; the newest has one code for every target.

#include <cstdint>

#include "protocol/Payload.h"

namespace zanth {

struct TargetedGeneration {
    const char* method;
    int32_t boardCode;
    int32_t controllerCode;
    int32_t replies[2];

    // The code for `target`, with the target put into the payload where that code carries it.
    int32_t CodeFor(int32_t target, Payload& payload) const {
        if (target == 32 && controllerCode != boardCode) return controllerCode;
        payload.Int(target);
        return boardCode;
    }
};

}  // namespace zanth
