// The library's static objects, built on load in this order and destroyed in reverse on unload.

#include "frame/Master.h"
#include "frame/exports/Boundary.h"
#include "notify/ResetMon.h"

namespace zanth {
namespace {

Master master("master");
// Beside Master, not inside it: it outlives the monitors that a reset rebuilds.
ResetMon reset("resetMon");

}  // namespace

Master& TheMaster() {
    return master;
}

}  // namespace zanth
