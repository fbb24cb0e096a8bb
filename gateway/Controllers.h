#pragma once
// Which controllers are connected and when each was last heard from. Connects and disconnects
// are found by comparing GetConnectedControllers every half second (a notice thread delivers one
// change per 200 ms, too slow for a site that comes up at once), and journaled; "heard from"
// follows every journaled record that names a controller.

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "gateway/Journal.h"

namespace zanthd {

struct LibraryApi;
class Ingest;

struct ControllerState {
    std::string mac;
    bool valid = false;
    bool connected = false;
    int64_t lastHeardMs = 0;  // 0: never
    int64_t connectedSinceMs = 0;
};

class Controllers {
  public:
    Controllers(const LibraryApi& api, Ingest& ingest, std::vector<std::string> valid, bool validAll);
    ~Controllers();
    void Start();
    void Stop();
    void Heard(const std::vector<Record>& records);
    std::vector<ControllerState> List() const;
    bool Find(const std::string& mac, ControllerState* out) const;
    size_t ConnectedCount() const;

  private:
    void Run();
    void Poll();

    const LibraryApi& api_;
    Ingest& ingest_;
    const std::vector<std::string> valid_;
    const bool validAll_;
    mutable std::mutex mutex_;
    std::map<std::string, ControllerState> states_;
    std::thread thread_;
    std::atomic<bool> stop_{false};
};

}  // namespace zanthd
