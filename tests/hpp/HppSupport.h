#pragma once
// What the zanth.hpp tests share: a free loopback port, deadline waits, the zanth-sim program in
// a process of its own, and the reply of a Rsp call taken from the response queue. The tests are
// hosts: they reach the library through zanth.hpp (and zanth.h) only.

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "zanth.hpp"

namespace zanth::hpptest {

// A free TCP port on 127.0.0.1.
int FreePort();

// Polls `condition` every 5 ms until it holds or `timeout` passes.
bool WaitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds timeout = std::chrono::seconds(10));

// The zanth-sim program ($ZANTH_TEST_BIN/zanth-sim), started with `args` and stopped (SIGTERM,
// then SIGKILL) when the object goes, also when a test fails.
class SimProcess {
  public:
    explicit SimProcess(const std::vector<std::string>& args);
    ~SimProcess();
    SimProcess(const SimProcess&) = delete;
    SimProcess& operator=(const SimProcess&) = delete;
    bool Running() const { return pid_ > 0; }
    // What the program wrote to stdout and stderr so far.
    std::string Output() const;

  private:
    pid_t pid_ = -1;
    std::string log_;
};

// A session on a free port with one simulated controller `mac` connected to it; the test skips
// when zanth-sim isn't built.
class SimulatedSite {
  public:
    explicit SimulatedSite(const std::string& mac, std::vector<std::string> simArgs = {},
                           Session::Options options = {});
    const std::string& Mac() const { return mac_; }
    bool Ready() const { return ready_; }
    std::string Failure() const { return failure_; }

  private:
    std::string mac_;
    int port_;
    Session session_;
    std::optional<SimProcess> sim_;
    bool ready_ = false;
    std::string failure_;
};

// Calls the Rsp form `rspExport` with `args` under `rspid`, and returns the reply frame that comes
// back under that rspid (nullopt when the call failed or nothing came within the time).
std::optional<std::string> RspReply(const std::string& rspExport, Args args, uint32_t rspid,
                                    std::chrono::milliseconds timeout = std::chrono::seconds(10));

// A readable form of outputs, for failure messages.
std::string Show(const Outputs& outputs);

}  // namespace zanth::hpptest
