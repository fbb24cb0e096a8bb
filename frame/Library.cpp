// The library's one static object, built on load and destroyed on unload: Master, and with it
// the library's context.

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
