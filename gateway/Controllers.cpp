#include "gateway/Controllers.h"

#include <chrono>
#include <nlohmann/json.hpp>
#include <vector>

#include "gateway/Ingest.h"
#include "gateway/Library.h"
#include "gateway/Log.h"
#include "gateway/PayloadCodec.h"

namespace zanthd {

Controllers::Controllers(Library& library, Ingest& ingest, std::vector<std::string> valid, bool validAll)
    : library_(library), ingest_(ingest), valid_(std::move(valid)), validAll_(validAll) {
    for (const std::string& mac : valid_) states_[mac] = {mac, true, false, 0, 0, 0};
}

Controllers::~Controllers() { Stop(); }

void Controllers::Start() {
    stop_ = false;
    thread_ = std::thread([this] { Run(); });
}

void Controllers::Stop() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stop_ = true;
        woken_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable()) thread_.join();
}

void Controllers::Run() {
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(mutex_);
            wake_.wait_for(lock, std::chrono::milliseconds(500), [this] { return woken_; });
            woken_ = false;
            if (stop_) return;
        }
        Refresh();
    }
}

void Controllers::Notice(const std::string& libraryMac, bool connected) {
    std::string mac = NormalizeMac(libraryMac);
    Record r;
    r.kind = connected ? "connect" : "disconnect";
    r.mac = mac;
    r.raw = libraryMac;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!mac.empty()) {
            ControllerState& s = states_[mac];
            s.mac = mac;
            s.valid = s.valid || validAll_;
            ++s.notices;
            if (connected) libraryMacs_[mac] = libraryMac;
        }
        woken_ = true;
    }
    // A worker that ends before it has read its MAC is noticed with whatever its MAC then held.
    r.fields = nlohmann::json({{"notice", connected ? "connected" : "disconnected"},
                               {"mac_known", !mac.empty()}})
                   .dump();
    ingest_.Submit(std::move(r));
    wake_.notify_all();
    // A link that came and went between two looks at the list still gets its connect work; the
    // hook's work is the same however often it runs.
    if (connected && !mac.empty() && hook_) hook_(mac);
}

void Controllers::Refresh() {
    std::lock_guard<std::mutex> one(refreshMutex_);
    std::string list;
    if (!library_.Connected(&list)) return;
    std::map<std::string, std::string> now;  // normalised -> as the library has it
    size_t start = 0;
    while (start <= list.size()) {
        size_t comma = list.find(',', start);
        std::string item = list.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        std::string mac = NormalizeMac(item);
        if (!mac.empty()) now[mac] = item;
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    std::vector<std::string> connected;
    int64_t t = NowMs();
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& [mac, form] : now) {
            ControllerState& s = states_[mac];
            s.mac = mac;
            s.valid = s.valid || validAll_;
            libraryMacs_[mac] = form;
            if (!s.connected) {
                s.connected = true;
                s.connectedSinceMs = t;
                s.lastHeardMs = std::max(s.lastHeardMs, t);
                connected.push_back(mac);
            }
        }
        for (auto& [mac, s] : states_) {
            if (s.connected && now.count(mac) == 0) s.connected = false;
        }
    }
    for (const std::string& mac : connected) {
        Log(Level::Debug, "controllers", "%s is connected", mac.c_str());
        if (hook_) hook_(mac);
    }
}

void Controllers::Heard(const std::vector<Record>& records) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const Record& r : records) {
        if (r.mac.empty() || r.kind == "disconnect" || r.kind == "audit") continue;
        auto it = states_.find(r.mac);
        if (it == states_.end()) continue;  // a controller the library doesn't list
        if (r.receivedMs > it->second.lastHeardMs) it->second.lastHeardMs = r.receivedMs;
    }
}

std::vector<ControllerState> Controllers::List() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<ControllerState> out;
    for (const auto& [mac, s] : states_) out.push_back(s);
    return out;
}

bool Controllers::Find(const std::string& mac, ControllerState* out) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = states_.find(mac);
    if (it == states_.end()) return false;
    *out = it->second;
    return true;
}

bool Controllers::IsConnected(const std::string& mac) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = states_.find(mac);
    return it != states_.end() && it->second.connected;
}

size_t Controllers::ConnectedCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    size_t n = 0;
    for (const auto& [mac, s] : states_) n += s.connected ? 1 : 0;
    return n;
}

std::string Controllers::LibraryMac(const std::string& mac) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = libraryMacs_.find(mac);
    return it == libraryMacs_.end() ? mac : it->second;
}

}  // namespace zanthd
