#include "gateway/ResponseRouter.h"

#include <cstring>
#include <future>
#include <vector>

#include "gateway/Library.h"
#include "gateway/Log.h"
#include "gateway/Metrics.h"
#include "gateway/PayloadCodec.h"

namespace zanthd {

ResponseRouter::ResponseRouter(Library& library, Metrics& metrics, int pollUs)
    : library_(library), metrics_(metrics), pollUs_(pollUs) {}

ResponseRouter::~ResponseRouter() { Stop(0); }

void ResponseRouter::Start() { thread_ = std::thread([this] { Run(); }); }

void ResponseRouter::Stop(int graceMs) {
    if (!thread_.joinable()) return;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(graceMs);
    {
        std::unique_lock<std::mutex> lock(mutex_);
        accepting_ = false;
        cv_.wait_until(lock, deadline, [&] { return waiting_.empty(); });
        stop_ = true;
    }
    cv_.notify_all();
    thread_.join();
    std::map<uint32_t, Waiting> left;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        left.swap(waiting_);
    }
    for (auto& [rspid, w] : left) {
        CommandResult r;
        r.outcome = CommandResult::Outcome::Stopped;
        Finish(w, r);
    }
}

size_t ResponseRouter::InFlight() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return waiting_.size();
}

void ResponseRouter::Finish(Waiting& w, const CommandResult& r) {
    if (r.outcome == CommandResult::Outcome::TimedOut) {
        metrics_.Count("zanthd_command_timeouts_total", Metrics::Label("export", w.exportName));
    }
    if (w.done) w.done(r);
}

bool ResponseRouter::Take(uint32_t rspid, Waiting* w) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = waiting_.find(rspid);
        if (it == waiting_.end()) return false;
        *w = std::move(it->second);
        waiting_.erase(it);
    }
    cv_.notify_all();
    return true;
}

uint32_t ResponseRouter::Open(const std::string& exportName, std::chrono::milliseconds deadline, Done done) {
    uint32_t rspid = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (accepting_) {
            // 0 is the blocking form's tag; an rspid still waiting is skipped.
            do {
                rspid = nextRspid_++;
            } while (rspid == 0 || waiting_.count(rspid) != 0);
            waiting_[rspid] = {exportName, std::chrono::steady_clock::now() + deadline, std::move(done)};
        }
    }
    if (rspid == 0) {
        Waiting w{exportName, {}, std::move(done)};
        CommandResult r;
        r.outcome = CommandResult::Outcome::Stopped;
        Finish(w, r);
        return 0;
    }
    cv_.notify_all();
    return rspid;
}

bool ResponseRouter::Complete(uint32_t ticket, const CommandResult& result) {
    Waiting w;
    if (!Take(ticket, &w)) {
        metrics_.Count("zanthd_late_replies_total", "");
        return false;
    }
    Finish(w, result);
    return true;
}

void ResponseRouter::Submit(const std::string& exportName, Send send,
                            std::chrono::milliseconds deadline, Done done) {
    uint32_t rspid = Open(exportName, deadline, std::move(done));
    if (rspid == 0) return;
    int32_t local = send(rspid);
    if (local != 0) {
        Waiting w;
        if (!Take(rspid, &w)) return;
        CommandResult r;
        r.outcome = CommandResult::Outcome::Refused;
        r.local = local;
        Finish(w, r);
    }
}

CommandResult ResponseRouter::Call(const std::string& exportName, Send send,
                                   std::chrono::milliseconds deadline) {
    auto promise = std::make_shared<std::promise<CommandResult>>();
    auto future = promise->get_future();
    Submit(exportName, std::move(send), deadline,
           [promise](const CommandResult& r) { promise->set_value(r); });
    return future.get();
}

void ResponseRouter::Run() {
    std::string frame;
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(mutex_);
            if (stop_) return;
            if (waiting_.empty() && std::chrono::steady_clock::now() >= watchUntil_) {
                cv_.wait(lock, [&] { return stop_ || !waiting_.empty(); });
                if (stop_) return;
            }
        }
        // Drain what the library holds.
        for (;;) {
            int32_t rspid = 0;
            if (!library_.NextResponse(&rspid, &frame)) break;
            Waiting w;
            if (!Take(static_cast<uint32_t>(rspid), &w)) {
                metrics_.Count("zanthd_late_replies_total", "");
                Log(Level::Debug, "commands", "reply for rspid %d dropped: nobody waits for it", rspid);
                continue;
            }
            CommandResult r;
            r.frame = frame;
            auto fields = SplitFields(frame);
            if (fields.size() >= 2) {
                r.code = static_cast<int>(ParseNumber(fields[0], 0, 9999).value_or(0));
                size_t second = frame.find(';', frame.find(';') + 1);
                r.payload = frame.substr(second + 1);
            }
            Finish(w, r);
        }
        // Deadlines.
        std::vector<Waiting> expired;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            auto now = std::chrono::steady_clock::now();
            for (auto it = waiting_.begin(); it != waiting_.end();) {
                if (it->second.deadline <= now) {
                    expired.push_back(std::move(it->second));
                    it = waiting_.erase(it);
                    watchUntil_ = now + std::chrono::minutes(1);
                } else {
                    ++it;
                }
            }
        }
        for (Waiting& w : expired) {
            CommandResult r;
            r.outcome = CommandResult::Outcome::TimedOut;
            Finish(w, r);
        }
        if (!expired.empty()) cv_.notify_all();
        std::this_thread::sleep_for(std::chrono::microseconds(pollUs_));
    }
}

}  // namespace zanthd
