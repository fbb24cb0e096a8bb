#pragma once
// Which controllers are connected and when each was last heard from.
//
// Connects and disconnects come from the library's connect and disconnect notices: every notice
// is journaled, in the order the library gives them, so that a link that comes and goes between
// two looks is on record too. The library delivers one notice per 200 ms, so on a site that comes
// up at once they lag; what is connected *now* is read from GetConnectedControllers, on each
// notice, every half second, and when a client asks. A controller that turns up connected there,
// or whose connect notice comes, calls the connect hook (the gateway's work on a controller that
// has just connected: relay timers, pending card changes; the same however often it runs). "Heard from" follows every journaled record
// that names a controller.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "gateway/Journal.h"

namespace zanthd {

class Library;
class Ingest;

struct ControllerState {
    std::string mac;
    bool valid = false;
    bool connected = false;
    int64_t lastHeardMs = 0;  // 0: never
    int64_t connectedSinceMs = 0;
    uint64_t notices = 0;     // connect and disconnect notices journaled
};

class Controllers {
  public:
    using Hook = std::function<void(const std::string& mac)>;

    Controllers(Library& library, Ingest& ingest, std::vector<std::string> valid, bool validAll);
    ~Controllers();
    // Called with a controller's MAC when it has connected; it must return quickly.
    void OnConnect(Hook hook) { hook_ = std::move(hook); }
    void Start();
    void Stop();

    // A notice from the library's notice thread.
    void Notice(const std::string& libraryMac, bool connected);
    void Heard(const std::vector<Record>& records);
    // Reads GetConnectedControllers now and brings the states up to date.
    void Refresh();

    std::vector<ControllerState> List() const;
    bool Find(const std::string& mac, ControllerState* out) const;
    bool IsConnected(const std::string& mac) const;
    size_t ConnectedCount() const;
    // The MAC as the library knows the controller (as it identified itself); `mac` itself for
    // one it hasn't seen.
    std::string LibraryMac(const std::string& mac) const;

  private:
    void Run();

    Library& library_;
    Ingest& ingest_;
    const std::vector<std::string> valid_;
    const bool validAll_;
    Hook hook_;
    mutable std::mutex mutex_;
    std::map<std::string, ControllerState> states_;
    std::map<std::string, std::string> libraryMacs_;
    std::mutex refreshMutex_;  // one refresh at a time, so that hooks run once per connection
    std::condition_variable wake_;
    bool woken_ = false;
    std::thread thread_;
    std::atomic<bool> stop_{false};
};

}  // namespace zanthd
