#pragma once
// zanthd as one object: it brings the parts up in order (journal, rules, library, command
// engine, doors, HTTP) and takes them down in the reverse order on a stop signal.

#include <csignal>

#include "gateway/Config.h"

namespace zanthd {

// Runs until SIGTERM or SIGINT (which the caller has blocked in every thread); the exit code.
int RunGateway(const Config& config, const sigset_t& stopSignals);

}  // namespace zanthd
