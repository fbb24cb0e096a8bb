// The gateway transport where this build has none: cpp-httplib comes from Debian's package,
// which the Windows cross build can't use.

#include "tools/cli/Api.h"

namespace zanth::cli {

std::unique_ptr<Transport> MakeGatewayTransport(const GatewayOptions&) {
    throw StartError("this build of zanth has no gateway transport (--gateway): use zanth on Linux, or "
                     "zanthd's REST API directly");
}

}  // namespace zanth::cli
