#pragma once
// The gateway's recent health, kept in memory for the console's charts: /metrics gives only the
// present. One point per step (10 s by default) for the last `points` steps (an hour): records
// journaled per second by kind, the door decisions' latency (median, 99th percentile and the
// longest), the journal's lag and the controllers connected. The rates and latencies come from
// what the journal stores (a listener of the journal), the lag and the count from gauges read
// once a second; a point holds the largest lag of its step and the last count. Nothing of it is
// kept across a restart.

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "gateway/Journal.h"

namespace zanthd {

struct HealthPoint {
    int64_t endMs = 0;  // the end of the step
    double seconds = 0;  // the step's length
    std::map<std::string, uint64_t> records;  // by kind
    uint64_t decisions = 0;
    double latencyP50Ms = -1;  // -1: no decision in the step
    double latencyP99Ms = -1;
    double latencyMaxMs = -1;
    double journalLag = 0;
    double connected = 0;
};

class HealthHistory {
  public:
    struct Gauges {
        std::function<double()> journalLag;
        std::function<double()> connected;
    };

    HealthHistory(Gauges gauges, int stepS, int points);
    ~HealthHistory();

    // The journal's listener: counts what was stored.
    void Stored(const std::vector<Record>& records);
    // Reads the gauges (the sampler does so once a second).
    void ReadGauges();
    // Ends the current step as a point at `nowMs`.
    void Close(int64_t nowMs);

    // The sampler thread: gauges each second, a point each step.
    void Start();
    void Stop();

    std::vector<HealthPoint> Points() const;
    // {"step_s", "points": [...]}, oldest first.
    nlohmann::json Json() const;

  private:
    void Run();

    const Gauges gauges_;
    const int stepS_;
    const size_t points_;

    mutable std::mutex mutex_;
    // The step under way.
    std::map<std::string, uint64_t> records_;
    std::vector<double> latencies_;
    uint64_t decisions_ = 0;
    double lagMax_ = 0;
    double connected_ = 0;
    int64_t stepStartMs_ = 0;
    std::deque<HealthPoint> history_;

    std::mutex runMutex_;
    std::condition_variable wake_;
    bool stop_ = false;
    std::thread thread_;
};

// The q-quantile (0 to 1) of `values` by the nearest rank; -1 for none. Reorders `values`.
double Quantile(std::vector<double>& values, double q);

}  // namespace zanthd
