#pragma once
// The one way a command reaches a controller, whoever asks: the REST API (/call and the
// resources), the message bus, the gateway's own work (pending card changes, door decisions).
// A call names an export and gives its arguments as JSON; it is checked against the API model
// before anything is sent, then
//  - sent through its Rsp form, the reply taken by the response router and decoded into the
//    blocking form's outputs: calls to different controllers are in flight at the same time;
//  - or, for an export without an Rsp form (or one that in some case isn't answered), run in its
//    blocking form on a worker of its own, one at a time as the library allows, so that it never
//    holds the others up longer than the library itself does;
//  - or, for a local export, answered at once.
// Every call has a deadline: past it the caller hears "timed out" and a late reply is dropped.
// A call made for a client is journaled as an audit record with the client's name before the
// answer is given. A request id makes a repeat harmless: it gets the first answer again.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "gateway/Model.h"

namespace zanthd {

class Ingest;
class Metrics;
class ResponseRouter;

struct CallRequest {
    std::string exportName;
    nlohmann::json args = nlohmann::json::object();
    std::string actor;          // the token's name (or "gateway"); empty: no audit record
    std::string via = "rest";   // where the call came from, for the audit record
    int deadlineMs = 0;         // 0: the gateway's default
    std::string requestId;      // empty: none
    std::string action;         // what the audit record says was done; empty: "call <export>"
};

struct CallAnswer {
    enum class Kind {
        kAnswered,       // the library or the controller answered: `result`
        kBadArgument,    // 400, nothing sent
        kForbidden,      // 403, nothing sent
        kUnknownExport,  // 404, nothing sent
        kNotConnected,   // 503: the controller isn't connected (or not valid); nothing sent
        kBusy,           // 409: a file transfer is under way
        kTimedOut,       // 504: no answer by the deadline; a late one is dropped
        kUnavailable,    // 503: the gateway is stopping
    };
    Kind kind = Kind::kAnswered;
    int status = 200;       // the HTTP status the REST face gives it
    nlohmann::json body;    // what a client is told (see the README and the OpenAPI document)
    CallResult result;      // kAnswered, and the library's refusals
    bool repeat = false;    // the answer of an earlier call with the same request id

    bool Ok() const { return kind == Kind::kAnswered && result.ok; }
};

class CallPath {
  public:
    struct Options {
        CallOptions model;
        int defaultDeadlineMs = 10000;
        int maxDeadlineMs = 300000;
        size_t rememberedIds = 10000;             // request ids kept for repeats ...
        std::chrono::seconds rememberFor{600};    // ... and for how long
    };
    using Done = std::function<void(const CallAnswer&)>;

    CallPath(Options options, ResponseRouter& router, Ingest& ingest, Metrics& metrics);
    ~CallPath();
    void Start();
    // No new calls; the blocking calls queued and not started end as "stopping".
    void Stop();

    // Answers once through `done`, on a gateway thread (the caller's, the router's, the
    // blocking worker's or the journal's): it must return quickly.
    void Call(CallRequest request, Done done);
    CallAnswer CallAndWait(CallRequest request);

    // A call checked but not made (for bulk requests, which check every item first).
    bool Check(const std::string& exportName, const nlohmann::json& args, PreparedCall* out,
               CallAnswer* refusal) const;
    // A call already checked.
    void CallPrepared(const PreparedCall& call, CallRequest request, Done done);

    int DeadlineMs(int requested) const;
    const Options& options() const { return options_; }

  private:
    struct Blocking {
        uint32_t ticket = 0;
        PreparedCall call;
        std::shared_ptr<struct BlockingState> state;
    };
    void Run();
    void Finish(const PreparedCall& call, const CallRequest& request, CallAnswer answer, Done done);
    CallAnswer FromResult(const PreparedCall& call, const CallResult& result, bool local) const;
    // The request id's slot: true when a call with that id was made already (its answer comes
    // to `done` now or once it is in).
    bool Repeated(const CallRequest& request, Done& done);
    void Remember(const CallRequest& request, const CallAnswer& answer);

    const Options options_;
    ResponseRouter& router_;
    Ingest& ingest_;
    Metrics& metrics_;

    std::mutex mutex_;
    std::condition_variable cv_;
    std::deque<Blocking> queue_;
    bool stopping_ = false;
    std::thread worker_;

    struct Remembered {
        std::chrono::steady_clock::time_point at;
        bool done = false;
        CallAnswer answer;
        std::vector<Done> waiting;
    };
    std::mutex idsMutex_;
    std::map<std::string, Remembered> ids_;
};

}  // namespace zanthd
