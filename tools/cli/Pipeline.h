#pragma once
// Streams of Rsp commands, one lane per controller, with a few commands of each lane queued at
// once: a controller's Worker sends one command a turn and takes the next queued one in the turn
// that reads the former's reply, so a lane that always has one more queued puts a command in
// every turn (47 ms), where a blocking caller gets one every second turn. Replies come from the
// response queue and are matched to their command by rspid.

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/cli/Api.h"

namespace zanth::cli {

struct Job {
    std::string exportName;  // the Rsp form
    std::string decodeAs;    // the export whose reply layouts read the reply (empty: exportName)
    Args args;               // everything but rspid, which the pipeline gives
    size_t item = 0;         // the lane's own reference
};

class Lane {
  public:
    explicit Lane(std::string mac) : mac_(std::move(mac)) {}
    virtual ~Lane() = default;
    const std::string& Mac() const { return mac_; }
    // The next command, or nothing: for now (a reply may bring more) or for good.
    virtual std::optional<Job> Next() = 0;
    // The reply to a job, or the result of a job that couldn't be queued.
    virtual void Done(const Job& job, const Reply& reply) = 0;
    // The controller went away; the jobs under way will get no reply.
    virtual void Lost(size_t unanswered) { (void)unanswered; }

    bool lost = false;

  private:
    std::string mac_;
};

struct PipelineEnd {
    bool interrupted = false;  // Ctrl-C: no new commands after it, those under way were awaited
    bool stalled = false;      // no reply came for the stall time
    size_t unanswered = 0;     // commands whose reply never came
};

// Runs the lanes until none has anything more to send and every reply is in. `window` commands
// of a lane are queued or under way at most. `tick` runs often, for a progress bar.
PipelineEnd RunPipeline(Transport& transport, const std::vector<Lane*>& lanes, size_t window,
                        std::chrono::milliseconds stall, const std::function<void()>& tick);

}  // namespace zanth::cli
