#pragma once
// The command engine's core. It alone calls GetNextResponse: each command goes out through its
// export's Rsp form under an rspid the router hands out, and the reply is given to whoever waits
// for that rspid. Every command has a deadline; past it the waiter hears "timed out" and a reply
// that still comes is dropped. Commands to different controllers are in flight at the same
// time: the library keeps one Worker per controller, and an Rsp call only queues the message.
// Work done elsewhere (a blocking call on the worker of its own) takes a ticket from the router,
// so that it has the same deadline and the same "too late, dropped" as a reply.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace zanthd {

class Library;
class Metrics;

struct CommandResult {
    enum class Outcome { Replied, Refused, TimedOut, Stopped };  // Replied: also a ticket completed
    Outcome outcome = Outcome::Replied;
    int32_t local = 0;   // the Rsp call's own result (non-zero: refused, nothing was sent)
    std::string frame;   // the reply frame "CCCC;LLLL;payload"
    int code = 0;        // the reply's code
    std::string payload;
};

class ResponseRouter {
  public:
    using Send = std::function<int32_t(uint32_t rspid)>;
    using Done = std::function<void(const CommandResult&)>;

    ResponseRouter(Library& library, Metrics& metrics, int pollUs = 1000);
    ~ResponseRouter();
    void Start();
    // Stops taking commands, waits up to `graceMs` for those in flight, then fails the rest
    // with Outcome::Stopped.
    void Stop(int graceMs);

    // Sends a command through `send` (an Rsp export called with the rspid given) and calls
    // `done` once, on the router's thread, with the reply, the refusal, or the time-out.
    void Submit(const std::string& exportName, Send send, std::chrono::milliseconds deadline,
                Done done);
    // The same, waiting on the caller's thread.
    CommandResult Call(const std::string& exportName, Send send, std::chrono::milliseconds deadline);

    // A ticket for work done elsewhere: `done` runs once, with Complete's result or with the
    // time-out or the stop. 0 when the router no longer takes work (`done` has run: Stopped).
    uint32_t Open(const std::string& exportName, std::chrono::milliseconds deadline, Done done);
    // Ends a ticket; false when it had ended already (timed out: the result is dropped).
    bool Complete(uint32_t ticket, const CommandResult& result);

    size_t InFlight() const;

  private:
    struct Waiting {
        std::string exportName;
        std::chrono::steady_clock::time_point deadline;
        Done done;
    };
    void Run();
    void Finish(Waiting& w, const CommandResult& r);
    // Takes the waiter of `rspid` out of the table; false when none waits.
    bool Take(uint32_t rspid, Waiting* w);

    Library& library_;
    Metrics& metrics_;
    const int pollUs_;
    std::thread thread_;
    mutable std::mutex mutex_;
    std::condition_variable cv_;
    std::map<uint32_t, Waiting> waiting_;
    uint32_t nextRspid_ = 1;
    bool accepting_ = true;
    bool stop_ = false;
    // After a time-out the queue is still watched for a while, so that a late reply is taken
    // and dropped rather than left in the library until the next command.
    std::chrono::steady_clock::time_point watchUntil_{};
};

}  // namespace zanthd
