// The command families every simulated controller has, one line each.

#include "tools/sim/families/Family.h"

namespace zanth::sim {

std::vector<std::unique_ptr<Family>> MakeFamilies(const ControllerConfig& /*config*/) {
    std::vector<std::unique_ptr<Family>> families;
    return families;
}

}  // namespace zanth::sim
