#include "gateway/ResponseRouter.h"

#include <cstring>
#include <future>
#include <vector>

#include "gateway/LibraryApi.h"
#include "gateway/Log.h"
#include "gateway/Metrics.h"
#include "gateway/PayloadCodec.h"

namespace zanthd {

const char* ResultName(int32_t result) {
    switch (result) {
        case 0: return "ok";
        case -10001: return "kTerminating";
        case -10002: return "kBadArgument";
        case -10003: return "kNotConnected";
        case -10004: return "kNotValid";
        case -10005: return "kNoReply";
        case -10006: return "kTooLarge";
        case -10007: return "kFileError";
        case -10008: return "kNoMessage";
        case -10009: return "kNoEntry";
        case -10010: return "kUnexpectedReply";
        case -10011: return "kMissingField";
        case -10014: return "kErrorLogEmpty";
        case -10015: return "kNoContactThread";
        case -10017: return "kNoTransferResult";
        case -10018: return "kPostFailed";
        case -10021: return "kNoWorker";
        case -10022: return "kCipherFailed";
        case -10023: return "kShortFrame";
        case -10024: return "kBadHeader";
        case -10025: return "kNoSuchPath";
        case -10026: return "kBadLength";
        case -10027: return "kTransferBusy";
        case -10028: return "kModeRefused1512";
        case -10029: return "kModeRefused1513";
        case -10030: return "kCannotProcess";
        default: return result > 0 ? "system" : "controller";
    }
}

ResponseRouter::ResponseRouter(const LibraryApi& api, Metrics& metrics, int pollUs)
    : api_(api), metrics_(metrics), pollUs_(pollUs) {}

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
    std::string result;
    switch (r.outcome) {
        case CommandResult::Outcome::Replied: {
            // A bare result reply's first field, as the blocking form would return it.
            auto fields = SplitFields(r.payload);
            auto value = fields.empty() ? std::nullopt : ParseNumber(fields[0], INT32_MIN, INT32_MAX);
            result = value ? ResultName(static_cast<int32_t>(*value)) : "replied";
            break;
        }
        case CommandResult::Outcome::Refused: result = ResultName(r.local); break;
        case CommandResult::Outcome::TimedOut: result = "timeout"; break;
        case CommandResult::Outcome::Stopped: result = "stopped"; break;
    }
    metrics_.Count("zanthd_commands_total",
                   Metrics::Label("export", w.exportName) + "," + Metrics::Label("result", result));
    if (w.done) w.done(r);
}

void ResponseRouter::Submit(const std::string& exportName, Send send,
                            std::chrono::milliseconds deadline, Done done) {
    uint32_t rspid = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!accepting_) {
            Waiting w{exportName, {}, std::move(done)};
            CommandResult r;
            r.outcome = CommandResult::Outcome::Stopped;
            Finish(w, r);
            return;
        }
        // 0 is the blocking form's tag; an rspid still waiting is skipped.
        do {
            rspid = nextRspid_++;
        } while (rspid == 0 || waiting_.count(rspid) != 0);
        waiting_[rspid] = {exportName, std::chrono::steady_clock::now() + deadline, std::move(done)};
    }
    int32_t local = send(rspid);
    if (local != 0) {
        Waiting w;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            auto it = waiting_.find(rspid);
            if (it == waiting_.end()) return;
            w = std::move(it->second);
            waiting_.erase(it);
        }
        cv_.notify_all();
        CommandResult r;
        r.outcome = CommandResult::Outcome::Refused;
        r.local = local;
        Finish(w, r);
        return;
    }
    cv_.notify_all();
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
    // A reply block is 4117 bytes at most.
    std::vector<char> buffer(4200);
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(mutex_);
            if (stop_) return;
            if (waiting_.empty()) {
                cv_.wait(lock, [&] { return stop_ || !waiting_.empty(); });
                if (stop_) return;
            }
        }
        // Drain what the library holds.
        for (;;) {
            int32_t rspid = 0;
            int32_t rc = api_.GetNextResponse(&rspid, buffer.data(), static_cast<int32_t>(buffer.size()));
            if (rc != 0) break;
            std::string frame(buffer.data(), strnlen(buffer.data(), buffer.size()));
            Waiting w;
            bool found = false;
            {
                std::lock_guard<std::mutex> lock(mutex_);
                auto it = waiting_.find(static_cast<uint32_t>(rspid));
                if (it != waiting_.end()) {
                    w = std::move(it->second);
                    waiting_.erase(it);
                    found = true;
                }
            }
            if (!found) {
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
            cv_.notify_all();
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
