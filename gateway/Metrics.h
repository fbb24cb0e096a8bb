#pragma once
// Counters, gauges and the decision-latency histogram, rendered in Prometheus's text format.
// Every name carries its unit (_total for counts, _seconds, _records).

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace zanthd {

class Metrics {
  public:
    Metrics();
    // Adds to the counter `name` with labels such as `kind="event"` (may be empty).
    void Count(const std::string& name, const std::string& labels, uint64_t n = 1);
    uint64_t Counter(const std::string& name, const std::string& labels) const;
    void ObserveDecision(double seconds);
    // A gauge read when /metrics is asked for.
    void Gauge(const std::string& name, const std::string& help, std::function<double()> read);
    void Help(const std::string& name, const std::string& type, const std::string& help);
    std::string Render() const;

    static std::string Label(const std::string& key, const std::string& value);

  private:
    struct Family {
        std::string type;
        std::string help;
    };
    mutable std::mutex mutex_;
    std::map<std::string, Family> families_;
    std::map<std::string, std::map<std::string, uint64_t>> counters_;
    std::vector<std::pair<std::string, std::function<double()>>> gauges_;
    std::vector<double> bounds_;
    std::vector<uint64_t> buckets_;
    uint64_t decisions_ = 0;
    double decisionSum_ = 0;
};

}  // namespace zanthd
