// The library's static objects, built on load in this order and destroyed in reverse on unload.

#include "frame/Master.h"
#include "frame/exports/Boundary.h"

namespace zanth {
namespace {

Master master("master");

}  // namespace

Master& TheMaster() {
    return master;
}

}  // namespace zanth
