#include "tools/cli/Pipeline.h"

#include <map>
#include <thread>

#include "tools/cli/Platform.h"

namespace zanth::cli {
namespace {

struct Flight {
    Lane* lane;
    Job job;
};

uint32_t NextRspid() {
    static uint32_t next = 0;
    if (++next == 0) ++next;  // 0 is left alone: some Rsp forms treat it as no tag
    return next;
}

bool IsIn(const std::vector<std::string>& macs, const std::string& mac) {
    for (const std::string& m : macs) {
        if (SameMac(m, mac)) return true;
    }
    return false;
}

}  // namespace

PipelineEnd RunPipeline(Transport& transport, const std::vector<Lane*>& lanes, size_t window,
                        std::chrono::milliseconds stall, const std::function<void()>& tick) {
    using Clock = std::chrono::steady_clock;
    PipelineEnd end;
    std::map<uint32_t, Flight> flights;
    std::map<Lane*, size_t> queued;
    Clock::time_point lastReply = Clock::now();
    Clock::time_point lastCheck = Clock::now();
    for (;;) {
        end.interrupted = end.interrupted || platform::Interrupted();
        bool submitted = false;
        if (!end.interrupted) {
            for (Lane* lane : lanes) {
                while (!lane->lost && queued[lane] < window) {
                    std::optional<Job> job = lane->Next();
                    if (!job) break;
                    uint32_t rspid = NextRspid();
                    Args args = job->args;
                    args["rspid"] = static_cast<int64_t>(rspid);
                    args["mac"] = lane->Mac();
                    Result r = transport.Submit(job->exportName, args);
                    submitted = true;
                    if (!r.ok) {
                        // Not queued: the lane hears of it at once.
                        Reply refused;
                        refused.rspid = rspid;
                        refused.result = r.code;
                        refused.name = r.name;
                        refused.meaning = r.meaning;
                        lane->Done(*job, refused);
                        continue;
                    }
                    if (flights.empty()) lastReply = Clock::now();
                    ++queued[lane];
                    flights.emplace(rspid, Flight{lane, std::move(*job)});
                }
            }
        }
        bool replied = false;
        while (std::optional<Incoming> in = transport.NextReply()) {
            replied = true;
            lastReply = Clock::now();
            auto it = flights.find(in->rspid);
            if (it == flights.end()) continue;  // a reply no lane waits for any more
            Flight f = std::move(it->second);
            flights.erase(it);
            --queued[f.lane];
            if (in->decoded) {
                f.lane->Done(f.job, *in->decoded);
                continue;
            }
            Args args = f.job.args;
            const std::string& as = f.job.decodeAs.empty() ? f.job.exportName : f.job.decodeAs;
            f.lane->Done(f.job, model::Decode(as, in->rspid, in->frame, args));
        }
        tick();
        if (flights.empty() && !submitted && !replied) break;
        auto now = Clock::now();
        if (!flights.empty() && now - lastReply > stall) {
            end.stalled = true;
            end.unanswered += flights.size();
            break;
        }
        // A controller that went away answers nothing more: its lane ends here.
        if (now - lastCheck > std::chrono::milliseconds(500)) {
            lastCheck = now;
            std::vector<std::string> connected = transport.Connected();
            for (Lane* lane : lanes) {
                if (lane->lost || IsIn(connected, lane->Mac())) continue;
                lane->lost = true;
                size_t dropped = 0;
                for (auto it = flights.begin(); it != flights.end();) {
                    if (it->second.lane == lane) {
                        it = flights.erase(it);
                        ++dropped;
                    } else {
                        ++it;
                    }
                }
                queued[lane] = 0;
                end.unanswered += dropped;
                lane->Lost(dropped);
            }
        }
        if (!replied) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return end;
}

}  // namespace zanth::cli
