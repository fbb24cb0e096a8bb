#include "gateway/CallPath.h"

#include <atomic>
#include <future>

#include "gateway/Ingest.h"
#include "gateway/Journal.h"
#include "gateway/Log.h"
#include "gateway/Metrics.h"
#include "gateway/ResponseRouter.h"

namespace zanthd {

using nlohmann::json;

struct BlockingState {
    std::atomic<bool> over{false};  // timed out or stopped: not to be run any more
    CallResult result;
};

namespace {

constexpr int32_t kNotConnected = -10003;
constexpr int32_t kNotValid = -10004;
constexpr int32_t kTerminating = -10001;
constexpr int32_t kBadArgument = -10002;
constexpr int32_t kTransferBusy = -10027;

CallAnswer Refusal(const CallProblem& p) {
    CallAnswer a;
    a.status = p.status;
    a.kind = p.status == 404   ? CallAnswer::Kind::kUnknownExport
             : p.status == 403 ? CallAnswer::Kind::kForbidden
                               : CallAnswer::Kind::kBadArgument;
    a.body = {{"error", p.error}};
    if (!p.field.empty()) a.body["field"] = p.field;
    if (p.status == 404) a.body["suggestions"] = p.suggestions;
    return a;
}

CallAnswer Plain(CallAnswer::Kind kind, int status, const std::string& error) {
    CallAnswer a;
    a.kind = kind;
    a.status = status;
    a.body = {{"error", error}};
    return a;
}

}  // namespace

CallPath::CallPath(Options options, ResponseRouter& router, Ingest& ingest, Metrics& metrics)
    : options_(std::move(options)), router_(router), ingest_(ingest), metrics_(metrics) {}

CallPath::~CallPath() { Stop(); }

void CallPath::Start() {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = false;
    worker_ = std::thread([this] { Run(); });
}

void CallPath::Stop() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    cv_.notify_all();
    if (worker_.joinable()) worker_.join();
}

int CallPath::DeadlineMs(int requested) const {
    if (requested <= 0) return options_.defaultDeadlineMs;
    return std::min(requested, options_.maxDeadlineMs);
}

bool CallPath::Check(const std::string& exportName, const json& args, PreparedCall* out,
                     CallAnswer* refusal) const {
    CallProblem problem;
    if (PrepareCall(exportName, args, options_.model, out, &problem)) return true;
    *refusal = Refusal(problem);
    return false;
}

CallAnswer CallPath::FromResult(const PreparedCall& call, const CallResult& r, bool local) const {
    CallAnswer a;
    a.result = r;
    std::string name = ResultName(r.result);
    json body = {{"export", call.Name()}, {"result", r.result}, {"name", name},
                 {"meaning", ResultMeaning(r.result)}, {"ok", r.ok}};
    if (!call.Mac().empty()) body["mac"] = call.Mac();
    if (r.result == kNotConnected || r.result == kNotValid) {
        a.kind = CallAnswer::Kind::kNotConnected;
        a.status = 503;
        body["error"] = call.Mac() + (r.result == kNotValid ? " is not a valid controller" : " is not connected");
    } else if (local && r.result == kTerminating) {
        a.kind = CallAnswer::Kind::kUnavailable;
        a.status = 503;
        body["error"] = "the library is stopping";
    } else if (local && r.result == kBadArgument) {
        a.kind = CallAnswer::Kind::kBadArgument;
        a.status = 400;
        body["error"] = "the library refused an argument (see its log)";
    } else if (r.result == kTransferBusy) {
        a.kind = CallAnswer::Kind::kBusy;
        a.status = 409;
        body["error"] = "a file transfer is under way";
    } else {
        body["outputs"] = r.outputs;
    }
    a.body = std::move(body);
    return a;
}

void CallPath::Call(CallRequest request, Done done) {
    PreparedCall call;
    CallAnswer refusal;
    if (!Check(request.exportName, request.args, &call, &refusal)) {
        metrics_.Count("zanthd_call_refusals_total", Metrics::Label("status", std::to_string(refusal.status)));
        done(refusal);
        return;
    }
    CallPrepared(call, std::move(request), std::move(done));
}

CallAnswer CallPath::CallAndWait(CallRequest request) {
    auto promise = std::make_shared<std::promise<CallAnswer>>();
    auto future = promise->get_future();
    // The answer comes by the deadline, but an audit record may then wait for a journal that
    // stopped taking records: the caller is not held for ever.
    auto patience = std::chrono::milliseconds(DeadlineMs(request.deadlineMs)) + std::chrono::seconds(15);
    Call(std::move(request), [promise](const CallAnswer& a) { promise->set_value(a); });
    if (future.wait_for(patience) == std::future_status::ready) return future.get();
    CallAnswer a = Plain(CallAnswer::Kind::kUnavailable, 503,
                         "the command was made, but its audit record waits for the journal, which can't "
                         "take records now: " + ingest_.Problem());
    return a;
}

void CallPath::CallPrepared(const PreparedCall& call, CallRequest request, Done done) {
    // An operator's command is made only while its audit record can be kept.
    if (!request.actor.empty() && call.Way() != CallWay::kLocal && !ingest_.Healthy()) {
        CallAnswer a = Plain(CallAnswer::Kind::kUnavailable, 503,
                             "the journal can't take records now, and every command is journaled: " + ingest_.Problem());
        done(a);
        return;
    }
    if (Repeated(request, done)) return;
    if (call.Way() == CallWay::kLocal) {
        Finish(call, request, FromResult(call, RunHere(call), true), std::move(done));
        return;
    }
    if (call.SentUnconfirmed() && options_.model.connected && !options_.model.connected(call.Mac())) {
        Finish(call, request, FromResult(call, ResultOnly(call, kNotConnected), true), std::move(done));
        return;
    }
    auto deadline = std::chrono::milliseconds(DeadlineMs(request.deadlineMs));
    auto shared = std::make_shared<std::pair<CallRequest, Done>>(std::move(request), std::move(done));
    auto state = std::make_shared<BlockingState>();
    bool awaits = call.AwaitsReply();
    ResponseRouter::Done handler = [this, call, shared, state, deadline, awaits](const CommandResult& r) {
        CallAnswer a;
        switch (r.outcome) {
            case CommandResult::Outcome::Replied:
                if (call.Way() == CallWay::kBlocking) {
                    a = FromResult(call, state->result, false);
                } else if (!awaits) {
                    a = FromResult(call, ResultOnly(call, r.local), true);
                } else {
                    if (LogEnabled(Level::Debug)) {
                        Log(Level::Debug, "commands", "%s to %s: reply %.200s", call.Name().c_str(),
                            call.Mac().c_str(), r.frame.c_str());
                    }
                    a = FromResult(call, DecodeReply(call, r.frame), false);
                }
                break;
            case CommandResult::Outcome::Refused:
                a = FromResult(call, ResultOnly(call, r.local), true);
                break;
            case CommandResult::Outcome::TimedOut:
                state->over = true;
                a = Plain(CallAnswer::Kind::kTimedOut, 504,
                          "no answer from " + call.Mac() + " within " + std::to_string(deadline.count()) +
                              " ms; a reply that comes later is dropped");
                a.body["export"] = call.Name();
                a.body["deadline_ms"] = deadline.count();
                break;
            case CommandResult::Outcome::Stopped:
                state->over = true;
                a = Plain(CallAnswer::Kind::kUnavailable, 503, "the gateway is stopping");
                break;
        }
        Finish(call, shared->first, std::move(a), std::move(shared->second));
    };
    if (call.Way() == CallWay::kBlocking) {
        uint32_t ticket = router_.Open(call.Name(), deadline, std::move(handler));
        if (ticket == 0) return;
        std::lock_guard<std::mutex> lock(mutex_);
        if (stopping_) {
            state->over = true;
            CommandResult stopped;
            stopped.outcome = CommandResult::Outcome::Stopped;
            router_.Complete(ticket, stopped);
            return;
        }
        queue_.push_back({ticket, call, state});
        cv_.notify_one();
        return;
    }
    if (!awaits) {
        // Nothing comes back: the local result is the answer.
        uint32_t ticket = router_.Open(call.Name(), deadline, std::move(handler));
        if (ticket == 0) return;
        CommandResult r;
        r.local = SendRsp(call, ticket);
        r.outcome = CommandResult::Outcome::Replied;
        router_.Complete(ticket, r);
        return;
    }
    router_.Submit(call.Name(), [call](uint32_t rspid) { return SendRsp(call, rspid); }, deadline,
                   std::move(handler));
}

void CallPath::Run() {
    for (;;) {
        Blocking job;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            cv_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
            if (queue_.empty()) return;
            job = std::move(queue_.front());
            queue_.pop_front();
            if (stopping_) {
                lock.unlock();
                CommandResult stopped;
                stopped.outcome = CommandResult::Outcome::Stopped;
                router_.Complete(job.ticket, stopped);
                continue;
            }
        }
        // A call whose deadline passed while it waited its turn is not made at all.
        if (job.state->over) continue;
        job.state->result = RunHere(job.call);
        CommandResult done;
        done.outcome = CommandResult::Outcome::Replied;
        if (!router_.Complete(job.ticket, done)) {
            Log(Level::Info, "commands", "%s to %s ended after its deadline; its result is dropped",
                job.call.Name().c_str(), job.call.Mac().c_str());
        }
    }
}

void CallPath::Finish(const PreparedCall& call, const CallRequest& request, CallAnswer answer, Done done) {
    std::string result = answer.kind == CallAnswer::Kind::kTimedOut      ? "timeout"
                         : answer.kind == CallAnswer::Kind::kUnavailable ? "stopped"
                                                                         : ResultName(answer.result.result);
    metrics_.Count("zanthd_commands_total",
                   Metrics::Label("export", call.Name()) + "," + Metrics::Label("result", result));
    if (request.actor.empty() || call.Way() == CallWay::kLocal) {
        Remember(request, answer);
        done(answer);
        return;
    }
    // The audit record is in the journal before the client hears the answer.
    Record r;
    r.kind = "audit";
    r.mac = call.Mac();
    r.actor = request.actor;
    r.raw = request.action.empty() ? "call " + call.Name() : request.action;
    json fields = {{"export", call.Name()}, {"args", call.AuditArgs()}, {"via", request.via},
                   {"status", answer.status}, {"result", result}};
    if (answer.kind == CallAnswer::Kind::kAnswered) fields["ok"] = answer.result.ok;
    if (!request.requestId.empty()) fields["request_id"] = request.requestId;
    r.fields = fields.dump(-1, ' ', false, json::error_handler_t::replace);
    auto shared = std::make_shared<std::pair<CallAnswer, Done>>(std::move(answer), std::move(done));
    ingest_.Submit(std::move(r), [this, shared, request](bool stored, int64_t id) {
        CallAnswer& a = shared->first;
        if (stored) {
            a.body["audit_id"] = id;
        } else {
            a.body["audit_id"] = nullptr;
            a.body["warning"] = "the journal could not take this call's audit record: " + ingest_.Problem();
        }
        Remember(request, a);
        shared->second(a);
    });
}

bool CallPath::Repeated(const CallRequest& request, Done& done) {
    if (request.requestId.empty()) return false;
    std::string key = request.actor + "\n" + request.requestId;
    std::unique_lock<std::mutex> lock(idsMutex_);
    auto now = std::chrono::steady_clock::now();
    // Forget what is too old, and the oldest beyond the bound.
    for (auto it = ids_.begin(); it != ids_.end();) {
        bool old = it->second.done && now - it->second.at > options_.rememberFor;
        it = old ? ids_.erase(it) : std::next(it);
    }
    while (ids_.size() >= options_.rememberedIds) {
        auto oldest = ids_.end();
        for (auto it = ids_.begin(); it != ids_.end(); ++it) {
            if (it->second.done && (oldest == ids_.end() || it->second.at < oldest->second.at)) oldest = it;
        }
        if (oldest == ids_.end()) break;
        ids_.erase(oldest);
    }
    auto it = ids_.find(key);
    if (it == ids_.end()) {
        ids_[key].at = now;
        return false;
    }
    if (!it->second.done) {
        it->second.waiting.push_back(std::move(done));
        return true;
    }
    CallAnswer a = it->second.answer;
    lock.unlock();
    a.repeat = true;
    a.body["repeat"] = true;
    done(a);
    return true;
}

void CallPath::Remember(const CallRequest& request, const CallAnswer& answer) {
    if (request.requestId.empty()) return;
    std::vector<Done> waiting;
    CallAnswer repeat = answer;
    repeat.repeat = true;
    repeat.body["repeat"] = true;
    {
        std::lock_guard<std::mutex> lock(idsMutex_);
        Remembered& r = ids_[request.actor + "\n" + request.requestId];
        r.done = true;
        r.at = std::chrono::steady_clock::now();
        r.answer = answer;
        waiting.swap(r.waiting);
    }
    for (Done& d : waiting) d(repeat);
}

}  // namespace zanthd
