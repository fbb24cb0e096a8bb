// The command families every simulated controller has, one line each.

#include "tools/sim/families/Admin.h"
#include "tools/sim/families/Boards.h"
#include "tools/sim/families/CardDatabase.h"
#include "tools/sim/families/Clock.h"
#include "tools/sim/families/ContactId.h"
#include "tools/sim/families/Family.h"
#include "tools/sim/families/Files.h"
#include "tools/sim/families/Io.h"
#include "tools/sim/families/Schedules.h"
#include "tools/sim/families/SmartCard.h"
#include "tools/sim/families/Upload.h"

namespace zanth::sim {

std::vector<std::unique_ptr<Family>> MakeFamilies(const ControllerConfig& /*config*/) {
    std::vector<std::unique_ptr<Family>> families;
    families.push_back(std::make_unique<CardDatabase>());
    families.push_back(std::make_unique<SmartCard>());
    families.push_back(std::make_unique<Schedules>());
    families.push_back(std::make_unique<ContactId>());
    families.push_back(std::make_unique<Io>());
    families.push_back(std::make_unique<ControllerClock>());
    families.push_back(std::make_unique<MessageStore>());
    families.push_back(std::make_unique<Boards>());
    families.push_back(std::make_unique<Admin>());
    // After Admin, which serves its error log through the same transfer codes.
    families.push_back(std::make_unique<Files>());
    return families;
}

}  // namespace zanth::sim
