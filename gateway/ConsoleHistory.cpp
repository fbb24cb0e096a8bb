#include "gateway/ConsoleHistory.h"

#include <algorithm>
#include <cmath>

#include "gateway/HttpJson.h"

namespace zanthd {
namespace {

// Latencies kept per step for the percentiles; beyond it a step's decisions are still counted
// and its longest still seen.
constexpr size_t kLatencySamples = 100000;

// `v` to `digits` decimals, as the JSON shows it.
double Round(double v, int digits) {
    double scale = std::pow(10.0, digits);
    return std::round(v * scale) / scale;
}

}  // namespace

double Quantile(std::vector<double>& values, double q) {
    if (values.empty()) return -1;
    size_t rank = static_cast<size_t>(std::ceil(q * static_cast<double>(values.size())));
    size_t index = rank == 0 ? 0 : std::min(rank - 1, values.size() - 1);
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(index), values.end());
    return values[index];
}

HealthHistory::HealthHistory(Gauges gauges, int stepS, int points)
    : gauges_(std::move(gauges)), stepS_(std::max(stepS, 1)), points_(static_cast<size_t>(std::max(points, 1))) {
    stepStartMs_ = NowMs();
}

HealthHistory::~HealthHistory() { Stop(); }

void HealthHistory::Stored(const std::vector<Record>& records) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const Record& r : records) {
        ++records_[r.kind];
        // A look-up's record holds the decision taken on it and how long that took.
        if (r.kind == "lookup" && r.latencyMs >= 0) {
            ++decisions_;
            if (latencies_.size() < kLatencySamples) latencies_.push_back(r.latencyMs);
        }
    }
}

void HealthHistory::ReadGauges() {
    double lag = gauges_.journalLag ? gauges_.journalLag() : 0;
    double connected = gauges_.connected ? gauges_.connected() : 0;
    std::lock_guard<std::mutex> lock(mutex_);
    lagMax_ = std::max(lagMax_, lag);
    connected_ = connected;
}

void HealthHistory::Close(int64_t nowMs) {
    std::lock_guard<std::mutex> lock(mutex_);
    HealthPoint p;
    p.endMs = nowMs;
    p.seconds = std::max(0.001, static_cast<double>(nowMs - stepStartMs_) / 1000.0);
    p.records = std::move(records_);
    p.decisions = decisions_;
    if (!latencies_.empty()) {
        p.latencyMaxMs = *std::max_element(latencies_.begin(), latencies_.end());
        p.latencyP50Ms = Quantile(latencies_, 0.5);
        p.latencyP99Ms = Quantile(latencies_, 0.99);
    }
    p.journalLag = lagMax_;
    p.connected = connected_;
    history_.push_back(std::move(p));
    while (history_.size() > points_) history_.pop_front();
    records_.clear();
    latencies_.clear();
    decisions_ = 0;
    lagMax_ = 0;
    stepStartMs_ = nowMs;
}

void HealthHistory::Start() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stepStartMs_ = NowMs();
    }
    thread_ = std::thread([this] { Run(); });
}

void HealthHistory::Stop() {
    {
        std::lock_guard<std::mutex> lock(runMutex_);
        stop_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable()) thread_.join();
}

void HealthHistory::Run() {
    using Clock = std::chrono::steady_clock;
    auto next = Clock::now() + std::chrono::seconds(1);
    auto stepEnd = Clock::now() + std::chrono::seconds(stepS_);
    std::unique_lock<std::mutex> lock(runMutex_);
    while (!stop_) {
        if (wake_.wait_until(lock, next, [this] { return stop_; })) break;
        lock.unlock();
        ReadGauges();
        if (Clock::now() >= stepEnd) {
            Close(NowMs());
            stepEnd += std::chrono::seconds(stepS_);
        }
        lock.lock();
        next += std::chrono::seconds(1);
    }
}

std::vector<HealthPoint> HealthHistory::Points() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return {history_.begin(), history_.end()};
}

nlohmann::json HealthHistory::Json() const {
    nlohmann::json points = nlohmann::json::array();
    for (const HealthPoint& p : Points()) {
        auto rate = [&p](const char* kind) {
            auto it = p.records.find(kind);
            return Round(it == p.records.end() ? 0.0 : static_cast<double>(it->second) / p.seconds, 2);
        };
        uint64_t all = 0;
        for (const auto& [kind, n] : p.records) all += n;
        auto ms = [](double v) { return v < 0 ? nlohmann::json(nullptr) : nlohmann::json(Round(v, 3)); };
        points.push_back({{"t", IsoTime(p.endMs)},
                          {"t_ms", p.endMs},
                          {"seconds", Round(p.seconds, 3)},
                          {"events_per_s", rate("event")},
                          {"alarms_per_s", rate("alarm")},
                          {"lookups_per_s", rate("lookup")},
                          {"records_per_s", Round(static_cast<double>(all) / p.seconds, 2)},
                          {"decisions", p.decisions},
                          {"decision_p50_ms", ms(p.latencyP50Ms)},
                          {"decision_p99_ms", ms(p.latencyP99Ms)},
                          {"decision_max_ms", ms(p.latencyMaxMs)},
                          {"journal_lag_records", p.journalLag},
                          {"controllers_connected", p.connected}});
    }
    return {{"step_s", stepS_}, {"points_kept", points_}, {"points", points}};
}

}  // namespace zanthd
