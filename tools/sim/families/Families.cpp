// The command families every simulated controller has, one line each.

#include "tools/sim/families/Admin.h"
#include "tools/sim/families/Boards.h"
#include "tools/sim/families/CardDatabase.h"
#include "tools/sim/families/Family.h"
#include "tools/sim/families/SmartCard.h"

namespace zanth::sim {

std::vector<std::unique_ptr<Family>> MakeFamilies(const ControllerConfig& /*config*/) {
    std::vector<std::unique_ptr<Family>> families;
    families.push_back(std::make_unique<CardDatabase>());
    families.push_back(std::make_unique<SmartCard>());
    families.push_back(std::make_unique<Boards>());
    families.push_back(std::make_unique<Admin>());
    return families;
}

}  // namespace zanth::sim
