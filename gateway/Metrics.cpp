#include "gateway/Metrics.h"

#include <cstdio>
#include <sstream>

namespace zanthd {

Metrics::Metrics()
    : bounds_{0.01, 0.025, 0.05, 0.075, 0.1, 0.15, 0.25, 0.5, 1, 2.5, 5, 10},
      buckets_(bounds_.size(), 0) {
    Help("zanthd_records_total", "counter", "Records stored in the journal, by kind.");
    Help("zanthd_commands_total", "counter",
         "Commands to controllers (and local exports) by export and result name: the library's "
         "result names, ok, positive, controller result, timeout or stopped.");
    Help("zanthd_late_replies_total", "counter",
         "Replies that came after their command's deadline and were dropped.");
    Help("zanthd_decisions_total", "counter", "Door decisions, by source and outcome.");
    Help("zanthd_journal_commits_total", "counter", "Journal transactions committed.");
    Help("zanthd_journal_errors_total", "counter", "Journal transactions that failed.");
    Help("zanthd_http_requests_total", "counter", "HTTP requests, by status code.");
    Help("zanthd_command_timeouts_total", "counter", "Commands that passed their deadline, by export.");
    Help("zanthd_call_refusals_total", "counter",
         "Calls refused before anything was sent (bad argument, withheld or unknown export), by status.");
}

std::string Metrics::Label(const std::string& key, const std::string& value) {
    std::string out = key + "=\"";
    for (char c : value) {
        if (c == '"' || c == '\\') out.push_back('\\');
        if (c == '\n') {
            out += "\\n";
            continue;
        }
        out.push_back(c);
    }
    return out + "\"";
}

void Metrics::Help(const std::string& name, const std::string& type, const std::string& help) {
    std::lock_guard<std::mutex> lock(mutex_);
    families_[name] = {type, help};
}

void Metrics::Count(const std::string& name, const std::string& labels, uint64_t n) {
    std::lock_guard<std::mutex> lock(mutex_);
    counters_[name][labels] += n;
}

uint64_t Metrics::Counter(const std::string& name, const std::string& labels) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = counters_.find(name);
    if (it == counters_.end()) return 0;
    auto inner = it->second.find(labels);
    return inner == it->second.end() ? 0 : inner->second;
}

void Metrics::ObserveDecision(double seconds) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (size_t i = 0; i < bounds_.size(); ++i) {
        if (seconds <= bounds_[i]) ++buckets_[i];
    }
    ++decisions_;
    decisionSum_ += seconds;
}

void Metrics::Gauge(const std::string& name, const std::string& help, std::function<double()> read) {
    std::lock_guard<std::mutex> lock(mutex_);
    families_[name] = {"gauge", help};
    gauges_.emplace_back(name, std::move(read));
}

std::string Metrics::Render() const {
    std::vector<std::pair<std::string, std::function<double()>>> gauges;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        gauges = gauges_;
    }
    // Gauges are read without the lock: they call into other parts of the gateway.
    std::vector<std::pair<std::string, double>> values;
    for (const auto& [name, read] : gauges) values.emplace_back(name, read());

    std::lock_guard<std::mutex> lock(mutex_);
    std::ostringstream out;
    auto header = [&](const std::string& name) {
        auto it = families_.find(name);
        if (it == families_.end()) return;
        out << "# HELP " << name << " " << it->second.help << "\n";
        out << "# TYPE " << name << " " << it->second.type << "\n";
    };
    char number[64];
    for (const auto& [name, value] : values) {
        header(name);
        std::snprintf(number, sizeof number, "%.17g", value);
        out << name << " " << number << "\n";
    }
    for (const auto& [name, series] : counters_) {
        header(name);
        for (const auto& [labels, value] : series) {
            out << name;
            if (!labels.empty()) out << "{" << labels << "}";
            out << " " << value << "\n";
        }
    }
    const std::string h = "zanthd_decision_latency_seconds";
    out << "# HELP " << h
        << " From the look-up taken from the library to the decision handed to it.\n";
    out << "# TYPE " << h << " histogram\n";
    for (size_t i = 0; i < bounds_.size(); ++i) {
        std::snprintf(number, sizeof number, "%g", bounds_[i]);
        out << h << "_bucket{le=\"" << number << "\"} " << buckets_[i] << "\n";
    }
    out << h << "_bucket{le=\"+Inf\"} " << decisions_ << "\n";
    std::snprintf(number, sizeof number, "%.9g", decisionSum_);
    out << h << "_sum " << number << "\n";
    out << h << "_count " << decisions_ << "\n";
    return out.str();
}

}  // namespace zanthd
