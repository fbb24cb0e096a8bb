#pragma once
// Everything the library's life owns, in one place: the diagnostic log, the message files, every
// monitor, the seed table, the connect notices' thread and the reset meeting point. Master builds
// it at load and takes it down at unload, each in a fixed order (Master.cpp); nothing of it is
// global. Each thread is handed the part it uses: a Worker and the Listener the monitors and the
// seed table, the Reset thread the monitors and resetMon, a callback thread its queue and
// handleMon.

#include <memory>

#include "monitors/Monitors.h"
#include "notify/ConnDiscController.h"
#include "notify/ResetMon.h"
#include "security/SeedHashMon.h"
#include "stores/LogMon.h"

namespace zanth {

struct Context : Monitors {
    std::unique_ptr<LogMon> logmon;
    std::unique_ptr<SeedHashMon> seedMon;
    std::unique_ptr<ConnDiscController> connDiscController;
    std::unique_ptr<ResetMon> resetMon;
};

}  // namespace zanth
