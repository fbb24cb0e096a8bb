#pragma once
// What the gateway writes into a controller's own memory, so that it holds when the controller
// works alone: the relay timers of its doors (a door opened by the gateway locks again by
// itself), and the cards of the gateway's rules for the doors it serves. A card change for a
// controller that is offline stays pending in the rules database and is written when that
// controller connects; the pending list shows what is still to be written and, where the
// controller refused a change, why. Every write goes through the call path (and is journaled as
// the gateway's own call), one controller at a time on a thread of this object.

#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "gateway/Config.h"

namespace zanthd {

class CallPath;
class Controllers;
class RulesStore;

class SiteSync {
  public:
    SiteSync(const Config& config, Controllers& controllers, RulesStore& rules, CallPath& calls);
    ~SiteSync();
    void Start();
    void Stop();

    // A controller has connected: its relay timers, then its pending card changes.
    void Connected(const std::string& mac);
    // The rules changed: every controller with pending changes that is connected.
    void PendingChanged();
    // The relay timers of the controller's doors, written now unless written since it connected;
    // false when a write failed.
    bool EnsureRelayTimers(const std::string& mac);

  private:
    void Run();
    bool WriteRelayTimers(const std::string& mac);
    void ApplyPending(const std::string& mac);

    const Config& config_;
    Controllers& controllers_;
    RulesStore& rules_;
    CallPath& calls_;

    std::mutex mutex_;
    std::condition_variable cv_;
    std::map<std::string, bool> queue_;  // MAC -> its relay timers too
    bool stop_ = false;
    std::thread thread_;

    std::mutex timersMutex_;
    std::set<std::string> timersWritten_;
};

}  // namespace zanthd
