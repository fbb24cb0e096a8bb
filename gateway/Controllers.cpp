#include "gateway/Controllers.h"

#include <cstring>
#include <chrono>
#include <vector>

#include "gateway/Ingest.h"
#include "gateway/LibraryApi.h"
#include "gateway/PayloadCodec.h"

namespace zanthd {

Controllers::Controllers(const LibraryApi& api, Ingest& ingest, std::vector<std::string> valid,
                         bool validAll)
    : api_(api), ingest_(ingest), valid_(std::move(valid)), validAll_(validAll) {
    for (const std::string& mac : valid_) states_[mac] = {mac, true, false, 0, 0};
}

Controllers::~Controllers() { Stop(); }

void Controllers::Start() { thread_ = std::thread([this] { Run(); }); }

void Controllers::Stop() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
}

void Controllers::Run() {
    while (!stop_) {
        Poll();
        for (int i = 0; i < 10 && !stop_; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

void Controllers::Poll() {
    // 20 characters and a comma per controller; grown when the library says it didn't fit.
    static thread_local std::vector<char> buffer(4096);
    int32_t rc;
    while ((rc = api_.GetConnectedControllers(buffer.data(), static_cast<int32_t>(buffer.size()))) == -10006 &&
           buffer.size() < (64u << 20)) {
        buffer.resize(buffer.size() * 2);
    }
    if (rc != 0) return;
    std::set<std::string> now;
    std::string list(buffer.data(), strnlen(buffer.data(), buffer.size()));
    size_t start = 0;
    while (start <= list.size()) {
        size_t comma = list.find(',', start);
        std::string item = list.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        std::string mac = NormalizeMac(item);
        if (!mac.empty()) now.insert(mac);
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    std::vector<Record> changes;
    int64_t t = NowMs();
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const std::string& mac : now) {
            ControllerState& s = states_[mac];
            s.mac = mac;
            s.valid = s.valid || validAll_;
            if (!s.connected) {
                s.connected = true;
                s.connectedSinceMs = t;
                s.lastHeardMs = t;
                Record r;
                r.kind = "connect";
                r.mac = mac;
                r.raw = mac;
                changes.push_back(r);
            }
        }
        for (auto& [mac, s] : states_) {
            if (s.connected && now.count(mac) == 0) {
                s.connected = false;
                Record r;
                r.kind = "disconnect";
                r.mac = mac;
                r.raw = mac;
                changes.push_back(r);
            }
        }
    }
    for (Record& r : changes) ingest_.Submit(std::move(r));
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

size_t Controllers::ConnectedCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    size_t n = 0;
    for (const auto& [mac, s] : states_) n += s.connected ? 1 : 0;
    return n;
}

}  // namespace zanthd
