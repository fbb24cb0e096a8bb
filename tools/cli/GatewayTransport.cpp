// zanthd's REST API as the command line's way to the controllers, where zanthd owns the port:
//  - a call is POST /call/{export}, which the gateway checks against the same model and sends
//    through the export's Rsp form; the reads that have a resource of their own
//    (ControllerInfo, GetTimeDate, GetCardRecord4) are GETs, which a read-only token may make
//    and which leave no audit record;
//  - Rsp forms submitted by a pipeline (cards load and check) are such calls made by a pool of
//    connections, as many under way as the pipeline keeps queued, so that the gateway queues
//    them for the controller's Worker in turn; their answers are the replies, already decoded;
//  - notices come from the journal's event stream, resumed after the last record when it drops;
//  - files go through the gateway's files folder under a name of their own, removed after.

#include <cctype>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <deque>
#include <mutex>
#include <random>
#include <thread>

#include "tools/cli/GatewayHttp.h"
#include "tools/cli/Platform.h"
#include "tools/cli/Text.h"

namespace zanth::cli {
namespace {

using gateway::Answer;
using gateway::Client;
using gateway::Escape;
using nlohmann::json;

// Longer than the gateway's deadline of a command (10 s) and the wait for its audit record.
constexpr std::chrono::seconds kCallWait{60};
// The stream says something at least every 15 s, even when nothing happens.
constexpr std::chrono::seconds kStreamWait{40};
constexpr size_t kMaxConnections = 64;
constexpr int64_t kBeyondAll = int64_t{1} << 62;  // after every record: the page holds only last_id
constexpr int64_t kLongestTransferMs = 300000;    // the longest deadline a default zanthd allows
constexpr int32_t kTerminating = -10001, kBadArgument = -10002, kNoReply = -10005;

// The kinds of the journal's records that are a controller's notices (not audit or decision).
bool IsNotice(const std::string& kind) {
    for (const char* k : {"event", "alarm", "lookup", "pin", "door", "keypad", "commandkey", "hereiam", "smartcard",
                          "connect", "disconnect"}) {
        if (kind == k) return true;
    }
    return false;
}

json ArgsJson(const Args& args) {
    json j = json::object();
    for (const auto& [name, value] : args) {
        if (name == "rspid") continue;  // the gateway chooses it
        if (const int64_t* i = std::get_if<int64_t>(&value)) {
            j[name] = *i;
        } else if (const std::string* s = std::get_if<std::string>(&value)) {
            j[name] = *s;
        } else {
            j[name] = gateway::Base64(std::get<Bytes>(value));
        }
    }
    return j;
}

// The export whose outputs an answer holds: a Rsp form's are its blocking twin's.
std::optional<model::Export> OutputsOf(std::string_view name) {
    std::optional<model::Export> e = model::Find(name);
    if (e && e->rsp && !e->twin.empty()) {
        if (std::optional<model::Export> twin = model::Find(e->twin)) return twin;
    }
    return e;
}

// The answer's outputs as the library gives them: numbers, texts, and bytes from base64.
Outputs ToOutputs(const json& o, const std::optional<model::Export>& e) {
    Outputs out;
    if (!o.is_object()) return out;
    for (const auto& [name, v] : o.items()) {
        const model::Param* p = nullptr;
        if (e) {
            for (const model::Param& q : e->params) {
                if (q.name == name) p = &q;
            }
        }
        if (v.is_number_unsigned()) {
            out[name] = static_cast<int64_t>(std::min<uint64_t>(v.get<uint64_t>(), INT64_MAX));
        } else if (v.is_number_integer()) {
            out[name] = v.get<int64_t>();
        } else if (v.is_boolean()) {
            out[name] = int64_t{v.get<bool>() ? 1 : 0};
        } else if (v.is_string()) {
            std::string text = v.get<std::string>();
            std::optional<Bytes> bytes = p && p->kind == model::Kind::kBytes ? gateway::FromBase64(text) : std::nullopt;
            if (bytes) {
                out[name] = std::move(*bytes);
            } else {
                out[name] = std::move(text);
            }
        }
    }
    return out;
}

std::string ArgText(const Args& args, const char* name) {
    auto it = args.find(name);
    return it == args.end() ? "" : Plain(it->second);
}

bool OnlyThese(const Args& args, std::initializer_list<const char*> names) {
    for (const auto& [name, value] : args) {
        bool known = false;
        for (const char* n : names) known = known || name == n;
        if (!known) return false;
    }
    return true;
}

Result FromCode(std::string_view name, int32_t code, bool ok) {
    Result r;
    r.exportName = std::string(name);
    r.code = code;
    r.ok = ok;
    r.name = model::ResultName(code);
    r.meaning = model::ResultMeaning(code);
    return r;
}

// The library's result in an answer that has one, or nothing.
std::optional<int32_t> ResultIn(const Answer& a) {
    if (!a.body.is_object() || !a.body.contains("result") || !a.body["result"].is_number_integer()) return std::nullopt;
    return static_cast<int32_t>(a.body["result"].get<int64_t>());
}

// How a call goes to the gateway.
struct Route {
    enum class Read { kCall, kInfo, kTime, kCard };
    std::string method = "POST";
    std::string path;
    std::string body;
    Read read = Read::kCall;
};

// Server-Sent Events, line by line: "id:", "event:" and "data:" fields; an empty line ends an
// event; a line that begins with ':' is a comment (the gateway's keep-alive).
class EventReader {
  public:
    struct Event {
        std::string id, kind, data;
    };
    template <class Dispatch>
    void Feed(const char* bytes, size_t n, Dispatch&& dispatch) {
        buffer_.append(bytes, n);
        size_t start = 0;
        for (size_t end; (end = buffer_.find('\n', start)) != std::string::npos; start = end + 1) {
            std::string_view line(buffer_.data() + start, end - start);
            if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
            if (line.empty()) {
                if (!event_.id.empty() || !event_.kind.empty() || !event_.data.empty()) dispatch(event_);
                event_ = {};
                continue;
            }
            if (line[0] == ':') continue;
            size_t colon = line.find(':');
            std::string_view field = line.substr(0, colon);
            std::string_view value = colon == std::string_view::npos ? "" : line.substr(colon + 1);
            if (!value.empty() && value[0] == ' ') value.remove_prefix(1);
            if (field == "id") {
                event_.id = value;
            } else if (field == "event") {
                event_.kind = value;
            } else if (field == "data") {
                event_.data += (event_.data.empty() ? "" : "\n") + std::string(value);
            }
        }
        buffer_.erase(0, start);
        // A line without an end this long is no event of the gateway's.
        if (buffer_.size() > (1u << 20)) buffer_.clear();
    }

  private:
    std::string buffer_;
    Event event_;
};

class GatewayTransport final : public Transport {
  public:
    explicit GatewayTransport(const GatewayOptions& options) : http_(options), client_(http_.NewClient(kCallWait)) {
        // A TLS write to a connection the gateway closed must fail, not end the program.
        std::signal(SIGPIPE, SIG_IGN);
    }

    ~GatewayTransport() override {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stopping_ = true;
            // Ends the stream's request now, rather than at its next keep-alive.
            if (streamClient_ != nullptr) streamClient_->stop();
        }
        cv_.notify_all();
        for (std::thread& t : workers_) t.join();
        if (stream_.joinable()) stream_.join();
    }

    void Open(const Reach& reach) override {
        // Whether the gateway is there, is trusted and takes the token, before any work.
        ControllerList();
        open_ = true;
        if (reach.linkNotices) {
            int64_t after = reach.noticesAfter ? *reach.noticesAfter : LastId();
            stream_ = std::thread([this, after] { Stream(after); });
        }
    }

    bool IsOpen() const override { return open_; }
    std::string Where() const override { return "the gateway at " + http_.Url(); }
    bool ThroughGateway() const override { return true; }

    std::vector<std::string> Connected() override {
        std::vector<std::string> macs;
        for (const json& c : ControllerList()) {
            if (c.is_object() && c.value("connected", false) && c.contains("mac") && c["mac"].is_string()) {
                macs.push_back(c["mac"].get<std::string>());
            }
        }
        return macs;
    }

    Result Call(std::string_view exportName, const Args& args) override {
        model::Check(exportName, args);
        return Exchange(client_, exportName, args);
    }

    Result Submit(std::string_view rspExport, const Args& args) override {
        model::Check(rspExport, args);
        auto rspid = args.find("rspid");
        Job job{rspid == args.end() ? 0 : static_cast<uint32_t>(std::get<int64_t>(rspid->second)),
                std::string(rspExport), args};
        {
            std::lock_guard<std::mutex> lock(mutex_);
            jobs_.push_back(std::move(job));
            // A connection for each call under way, up to a bound.
            if (workers_.size() - busy_ < jobs_.size() && workers_.size() < kMaxConnections) {
                workers_.emplace_back([this] { Work(); });
            }
        }
        cv_.notify_one();
        return FromCode(rspExport, 0, true);
    }

    std::optional<Incoming> NextReply() override {
        std::lock_guard<std::mutex> lock(mutex_);
        if (fatal_) std::rethrow_exception(fatal_);
        if (replies_.empty()) return std::nullopt;
        Incoming in = std::move(replies_.front());
        replies_.pop_front();
        return in;
    }

    std::optional<Notice> NextNotice() override {
        std::lock_guard<std::mutex> lock(mutex_);
        if (fatal_) std::rethrow_exception(fatal_);
        if (notices_.empty()) return std::nullopt;
        Notice n = std::move(notices_.front());
        notices_.pop_front();
        return n;
    }

    // The gateway has taken the message files' records into its journal: nothing is left here.
    std::pair<uint64_t, uint64_t> DropBacklog() override { return {0, 0}; }

    std::optional<FileMove> PutFile(const std::string& mac, const std::string& remote, const Bytes& data,
                                    const std::function<void(uint64_t)>& progress) override {
        FileMove m;
        Folder file(*this, remote);
        Client up = http_.NewClient(kCallWait);
        auto started = std::chrono::steady_clock::now();
        httplib::Result r = up.http->Put(
            file.path, data.size(),
            [&](size_t offset, size_t length, httplib::DataSink& sink) {
                if (platform::Interrupted()) return false;
                size_t n = std::min<size_t>(length, 64 * 1024);
                sink.write(reinterpret_cast<const char*>(data.data()) + offset, n);
                progress(offset + n);
                return true;
            },
            "application/octet-stream");
        if (!r && r.error() == httplib::Error::Canceled && platform::Interrupted()) {
            m.interrupted = true;
            return m;
        }
        Answer a = http_.Take(up, r, started);
        if (a.status != 201) {
            m.why = "the gateway didn't take the file into its files folder (" + std::to_string(a.status) + ": " +
                    a.Error() + ")";
            return m;
        }
        file.stored = true;
        // One chunk a Worker turn is about 86 KB/s: the deadline allows a quarter of that pace.
        int64_t deadline = std::min<int64_t>(kLongestTransferMs, 30000 + static_cast<int64_t>(data.size()) / 20);
        a = Transfer(mac, "send", file.name, remote, deadline);
        if (a.status == 200) {
            m.complete = true;
            m.bytes = data.size();
        } else {
            m.why = TransferFailure("SendFile", a);
        }
        return m;
    }

    std::optional<FileMove> GetFile(const std::string& mac, const std::string& remote,
                                    const std::function<void(uint64_t)>& progress) override {
        FileMove m;
        Folder file(*this, remote);
        // The gateway's copy may be left half written by a failed fetch: it is removed anyway.
        file.stored = true;
        Answer a = Transfer(mac, "fetch", file.name, remote, kLongestTransferMs);
        if (a.status != 200) {
            m.why = TransferFailure("GetFile", a);
            return m;
        }
        Client down = http_.NewClient(kCallWait);
        std::string body;
        int status = 0;
        auto started = std::chrono::steady_clock::now();
        httplib::Result r = down.http->Get(
            file.path, httplib::Headers{},
            [&](const httplib::Response& res) {
                status = res.status;
                return true;
            },
            [&](const char* bytes, size_t n) {
                if (platform::Interrupted()) return false;
                body.append(bytes, n);
                if (status == 200) progress(body.size());
                return true;
            });
        if (!r && r.error() == httplib::Error::Canceled && platform::Interrupted()) {
            m.interrupted = true;
            m.bytes = body.size();
            return m;
        }
        Answer got = http_.Take(down, r, started);
        if (status != 200) {
            m.why = "the gateway fetched the file but couldn't hand it over (" + std::to_string(status) + ": " +
                    std::string(Trim(body).substr(0, 300)) + ")";
            return m;
        }
        m.complete = true;
        m.data.assign(body.begin(), body.end());
        m.bytes = m.data.size();
        return m;
    }

  private:
    struct Job {
        uint32_t rspid = 0;
        std::string name;
        Args args;
    };

    // A file of the gateway's files folder for one transfer, under a name no one else uses,
    // removed when the transfer is over.
    struct Folder {
        Folder(GatewayTransport& t, const std::string& remote) : transport(t) {
            std::string base = remote.substr(remote.find_last_of("/\\") == std::string::npos ? 0 : remote.find_last_of("/\\") + 1);
            for (char& c : base) {
                bool plain = std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '_' || c == '-';
                if (!plain) c = '_';
            }
            std::random_device random;
            char tag[16];
            std::snprintf(tag, sizeof tag, "%08x", static_cast<unsigned>(random()));
            name = "zanth-" + std::string(tag) + "-" + (base.empty() ? "file" : base.substr(0, 64));
            path = t.http_.Path("/files/" + name);
        }
        ~Folder() {
            if (!stored) return;
            try {
                Client c = transport.http_.NewClient(kCallWait);
                transport.http_.Send(c, "DELETE", path);
            } catch (const std::exception&) {
                // The copy stays in the files folder; the transfer's own outcome is what counts.
            }
        }
        GatewayTransport& transport;
        std::string name, path;
        bool stored = false;
    };

    json ControllerList() {
        Answer a = http_.Send(client_, "GET", http_.Path("/controllers"));
        if (a.status != 200 || !a.body.is_object() || !a.body.contains("controllers") || !a.body["controllers"].is_array()) {
            throw StartError("the gateway at " + http_.Url() + " answered GET /api/v1/controllers with " +
                             std::to_string(a.status) + ": " + a.Error() + " (is it zanthd, and is the URL of --gateway "
                             "its own?)");
        }
        return a.body["controllers"];
    }

    int64_t LastId() {
        Answer a = http_.Send(client_, "GET", http_.Path("/events?after=" + std::to_string(kBeyondAll) + "&limit=1"));
        if (a.status != 200 || !a.body.is_object() || !a.body.contains("last_id") || !a.body["last_id"].is_number_integer()) {
            throw std::runtime_error("the gateway at " + http_.Url() + " answered GET /api/v1/events with " +
                                     std::to_string(a.status) + ": " + a.Error());
        }
        return a.body["last_id"].get<int64_t>();
    }

    Route RouteOf(std::string_view name, const Args& args) const {
        Route r;
        std::string controller = "/controllers/" + Escape(ArgText(args, "mac"));
        if (name == "ControllerInfo" && OnlyThese(args, {"mac"})) {
            r.method = "GET";
            r.path = http_.Path(controller + "/info");
            r.read = Route::Read::kInfo;
        } else if (name == "GetTimeDate" && OnlyThese(args, {"mac"})) {
            r.method = "GET";
            r.path = http_.Path(controller + "/time");
            r.read = Route::Read::kTime;
        } else if ((name == "GetCardRecord4" || name == "RspGetCardRecord4") &&
                   OnlyThese(args, {"mac", "cardSetId", "noFormat", "cardNumber", "pin", "rspid"})) {
            r.method = "GET";
            r.path = http_.Path(controller + "/cards/" + Escape(ArgText(args, "cardSetId")) + "/" +
                                Escape(ArgText(args, "noFormat")) + "/" + Escape(ArgText(args, "cardNumber")) +
                                "?pin=" + Escape(ArgText(args, "pin")));
            r.read = Route::Read::kCard;
        } else {
            r.path = http_.Path("/call/" + Escape(name));
            r.body = ArgsJson(args).dump(-1, ' ', false, json::error_handler_t::replace);
        }
        return r;
    }

    Result Exchange(Client& client, std::string_view name, const Args& args) const {
        Route route = RouteOf(name, args);
        return Interpret(name, route, http_.Send(client, route.method, route.path, route.body));
    }

    // An answer as the library's result, or the error it stands for.
    Result Interpret(std::string_view name, const Route& route, const Answer& a) const {
        const json& b = a.body;
        std::string exportName(name);
        if (a.status == 200 && b.is_object()) {
            if (route.read == Route::Read::kCall) {
                Result r = FromCode(name, static_cast<int32_t>(b.value("result", int64_t{0})), b.value("ok", false));
                r.outputs = ToOutputs(b.value("outputs", json::object()), OutputsOf(name));
                return r;
            }
            Result r = FromCode(name, 0, true);
            if (route.read == Route::Read::kInfo) {
                r.outputs["buffer"] = b.value("info", std::string());
            } else if (route.read == Route::Read::kTime) {
                r.outputs["date"] = b.value("date", std::string());
                r.outputs["time"] = b.value("time", std::string());
            } else {
                json record = b;
                record.erase("mac");
                r.outputs = ToOutputs(record, OutputsOf(name));
            }
            return r;
        }
        if (a.status == 504) throw Timeout(exportName + ": " + a.Error() + " (the gateway's deadline)");
        // The library or the controller answered, and said no (503 for a controller that isn't
        // connected, as the library says it).
        if (std::optional<int32_t> code = ResultIn(a)) return FromCode(name, *code, false);
        std::string why = a.Error();
        switch (a.status) {
            case 400:
                throw ArgError(exportName, "", "the gateway refused an argument (400): " + why);
            case 403:
                throw std::runtime_error("the gateway doesn't take " + exportName + " (403): " + why +
                                         "\n  through --gateway, zanth call takes the commands and information "
                                         "exports the gateway offers (GET /api/v1/call lists them)");
            case 404:
                throw std::runtime_error("the gateway at " + http_.Url() + " has no " + route.method + " " + route.path +
                                         " (404: " + why + "); is it an older zanthd?");
            case 503:
                throw std::runtime_error("the gateway can't take " + exportName + " now (503): " + why);
            default:
                throw std::runtime_error("the gateway answered " + exportName + " with " + std::to_string(a.status) +
                                         ": " + why);
        }
    }

    // One of the pool's connections: the calls of the pipeline, their answers as replies.
    void Work() {
        Client client = http_.NewClient(kCallWait);
        for (;;) {
            Job job;
            {
                std::unique_lock<std::mutex> lock(mutex_);
                cv_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
                if (stopping_) return;
                job = std::move(jobs_.front());
                jobs_.pop_front();
                ++busy_;
            }
            Reply reply = Answered(client, job);
            std::lock_guard<std::mutex> lock(mutex_);
            --busy_;
            replies_.push_back(Incoming{job.rspid, "", std::move(reply)});
        }
    }

    Reply Answered(Client& client, const Job& job) {
        Reply reply;
        reply.rspid = job.rspid;
        auto set = [&reply](const Result& r) {
            reply.result = r.code;
            reply.ok = r.ok;
            reply.name = r.name;
            reply.meaning = r.meaning;
        };
        try {
            Result r = Exchange(client, job.name, job.args);
            set(r);
            reply.outputs = std::move(r.outputs);
        } catch (const StartError& e) {
            // The gateway is gone or refuses the token: the verb ends with it.
            std::lock_guard<std::mutex> lock(mutex_);
            if (!fatal_) fatal_ = std::current_exception();
            set(FromCode(job.name, kTerminating, false));
            reply.meaning = e.what();
        } catch (const Timeout& e) {
            set(FromCode(job.name, kNoReply, false));
            reply.meaning = e.what();
        } catch (const ArgError& e) {
            set(FromCode(job.name, kBadArgument, false));
            reply.meaning = e.what();
        } catch (const std::exception& e) {
            set(FromCode(job.name, kTerminating, false));
            reply.meaning = e.what();
        }
        return reply;
    }

    Answer Transfer(const std::string& mac, const char* way, const std::string& name, const std::string& remote,
                    int64_t deadlineMs) {
        Client c = http_.NewClient(std::chrono::seconds(deadlineMs / 1000 + 30));
        std::string path = http_.Path("/controllers/" + Escape(mac) + "/files/" + way);
        std::string body = json{{"file", name}, {"path", remote}}.dump();
        Answer a = http_.Send(c, "POST", path + "?deadline_ms=" + std::to_string(deadlineMs), body);
        if (a.status == 400 && a.body.is_object() && a.body.value("field", std::string()) == "deadline_ms") {
            // A gateway whose longest deadline is shorter: its own default then.
            a = http_.Send(c, "POST", path, body);
        }
        if (a.status == 504) throw Timeout(std::string(way) + " " + remote + ": " + a.Error() + " (the gateway's deadline)");
        return a;
    }

    static std::string TransferFailure(const std::string& exportName, const Answer& a) {
        if (std::optional<int32_t> code = ResultIn(a)) {
            return exportName + ": " + std::to_string(*code) + " " + model::ResultName(*code) + ": " +
                   model::ResultMeaning(*code);
        }
        return "the gateway answered " + std::to_string(a.status) + ": " + a.Error();
    }

    bool Stopping() {
        std::lock_guard<std::mutex> lock(mutex_);
        return stopping_;
    }

    void Push(Notice n) {
        std::lock_guard<std::mutex> lock(mutex_);
        notices_.push_back(std::move(n));
    }

    void Remark(std::string text) {
        Notice n;
        n.text = std::move(text);
        n.remark = true;
        Push(std::move(n));
    }

    // The journal's event stream from record `after` on, resumed after the last record taken
    // whenever it drops, until the transport is stopped.
    void Stream(int64_t after) {
        Client client = http_.NewClient(kStreamWait);
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (stopping_) return;
            streamClient_ = client.http.get();
        }
        auto backoff = std::chrono::milliseconds(200);
        bool dropped = false;
        while (!Stopping()) {
            EventReader reader;
            int status = 0;
            std::string refusal;
            bool gone = false;
            auto started = std::chrono::steady_clock::now();
            httplib::Result r = client.http->Get(
                http_.Path("/events/stream?after=" + std::to_string(after)), httplib::Headers{},
                [&](const httplib::Response& res) {
                    status = res.status;
                    if (status == 200 && dropped) {
                        Remark("resumed the gateway's event stream after record " + std::to_string(after));
                        dropped = false;
                        backoff = std::chrono::milliseconds(200);
                    }
                    return true;
                },
                [&](const char* bytes, size_t n) {
                    if (Stopping()) return false;
                    if (status != 200) {
                        refusal.append(bytes, std::min(n, 4096 - std::min<size_t>(refusal.size(), 4096)));
                        return true;
                    }
                    reader.Feed(bytes, n, [&](const EventReader::Event& e) { gone = TakeEvent(e, &after) || gone; });
                    return true;
                });
            if (Stopping()) break;
            std::string why;
            if (gone || status == 410) {
                if (status == 410) Skip(json::parse(refusal, nullptr, false), &after);
                continue;
            }
            if (status == 200) {
                why = "the gateway ended it";
            } else if (status != 0) {
                Answer a{status, json::parse(refusal, nullptr, false), refusal};
                try {
                    http_.CheckToken(a);
                } catch (const StartError&) {
                    std::lock_guard<std::mutex> lock(mutex_);
                    fatal_ = std::current_exception();
                    break;
                }
                why = "it answered " + std::to_string(status) + ": " + a.Error();
            } else {
                try {
                    http_.Take(client, r, started);
                } catch (const std::exception& e) {
                    why = e.what();
                }
            }
            if (!dropped) {
                Remark("the gateway's event stream dropped (" + why + "); resuming after record " +
                       std::to_string(after));
                dropped = true;
            }
            std::unique_lock<std::mutex> lock(mutex_);
            cv_.wait_for(lock, backoff, [this] { return stopping_; });
            backoff = std::min<std::chrono::milliseconds>(backoff * 2, std::chrono::seconds(5));
        }
        std::lock_guard<std::mutex> lock(mutex_);
        streamClient_ = nullptr;
    }

    // An event of the stream: a notice when it is one. True when the journal no longer holds
    // what follows `after` ("gone"): the stream is then taken up again at its oldest record.
    bool TakeEvent(const EventReader::Event& e, int64_t* after) {
        if (e.kind == "gone") {
            Skip(json::parse(e.data, nullptr, false), after);
            return true;
        }
        std::optional<int64_t> id = ParseInteger(e.id);
        if (!id || *id <= *after) return false;
        *after = *id;
        if (!IsNotice(e.kind)) return false;
        json record = json::parse(e.data, nullptr, false);
        if (!record.is_object()) return false;
        Notice n;
        n.kind = e.kind;
        n.id = *id;
        n.text = record.value("raw", std::string());
        // Door reports and smart-card data come padded with blanks.
        n.text.erase(n.text.find_last_not_of(' ') + 1);
        if (e.kind == "lookup" || e.kind == "pin") n.decision = record.value("decision", std::string());
        Push(std::move(n));
        return false;
    }

    void Skip(const json& body, int64_t* after) {
        int64_t oldest = body.is_object() && body.contains("oldest_id") && body["oldest_id"].is_number_integer()
                             ? body["oldest_id"].get<int64_t>()
                             : *after + 1;
        if (oldest > *after + 1) {
            Remark("the gateway's journal no longer holds records " + std::to_string(*after + 1) + " to " +
                   std::to_string(oldest - 1) + ": going on from record " + std::to_string(oldest));
        }
        *after = std::max(*after, oldest - 1);
    }

    const gateway::Http http_;
    Client client_;  // the main thread's
    bool open_ = false;

    std::mutex mutex_;
    std::condition_variable cv_;
    bool stopping_ = false;
    std::exception_ptr fatal_;
    std::deque<Job> jobs_;
    std::deque<Incoming> replies_;
    std::vector<std::thread> workers_;
    size_t busy_ = 0;
    std::deque<Notice> notices_;
    std::thread stream_;
    httplib::Client* streamClient_ = nullptr;
};

}  // namespace

std::unique_ptr<Transport> MakeGatewayTransport(const GatewayOptions& options) {
    return std::make_unique<GatewayTransport>(options);
}

}  // namespace zanth::cli
