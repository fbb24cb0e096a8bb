#include "gateway/Http.h"

#include <httplib.h>

#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <future>
#include <nlohmann/json.hpp>

#include "gateway/ApiInput.h"
#include "gateway/CallPath.h"
#include "gateway/ConsoleSession.h"
#include "gateway/Controllers.h"
#include "gateway/HttpJson.h"
#include "gateway/OpenApi.h"
#include "gateway/SiteSync.h"
#include "gateway/Ingest.h"
#include "gateway/Journal.h"
#include "gateway/Log.h"
#include "gateway/Metrics.h"
#include "gateway/PayloadCodec.h"
#include "gateway/Rules.h"

namespace zanthd {

using nlohmann::json;

json RecordJson(const Record& r) {
    json j = {{"id", r.id}, {"kind", r.kind}, {"mac", r.mac}, {"received", IsoTime(r.receivedMs)},
              {"received_ms", r.receivedMs}, {"raw", r.raw}};
    json fields = json::parse(r.fields, nullptr, false);
    j["fields"] = fields.is_discarded() ? json::object() : fields;
    if (!r.decision.empty()) j["decision"] = r.decision;
    if (!r.source.empty()) j["source"] = r.source;
    if (r.latencyMs >= 0) j["latency_ms"] = r.latencyMs;
    if (!r.actor.empty()) j["actor"] = r.actor;
    return j;
}

namespace {

json ControllerJson(const ControllerState& s) {
    return {{"mac", s.mac},
            {"valid", s.valid},
            {"connected", s.connected},
            {"last_heard", s.lastHeardMs ? json(IsoTime(s.lastHeardMs)) : json(nullptr)},
            {"connected_since", s.connected ? json(IsoTime(s.connectedSinceMs)) : json(nullptr)}};
}

json CardholderJson(const Cardholder& c) {
    json j = json::parse(ToJson(c.doc));
    j["id"] = c.id;
    return j;
}

json ScheduleJson(const Schedule& s) {
    json j = json::parse(ToJson(s.doc));
    j["id"] = s.id;
    return j;
}

// A path that may carry more than max_body_bytes: a file for the files folder, a bulk card load.
bool IsUpload(const std::string& path) {
    auto segments = [](std::string_view p) {
        std::vector<std::string_view> out;
        for (size_t start = 1; start <= p.size();) {
            size_t slash = p.find('/', start);
            size_t end = slash == std::string_view::npos ? p.size() : slash;
            out.push_back(p.substr(start, end - start));
            start = end + 1;
        }
        return out;
    };
    auto s = segments(path);
    if (s.size() < 4 || s[0] != "api" || s[1] != "v1") return false;
    return (s.size() == 4 && s[2] == "files" && !s[3].empty()) ||
           (s.size() == 5 && s[2] == "controllers" && !s[3].empty() && s[4] == "card-loads");
}

const std::string* Param(const httplib::Request& req, const char* name, std::string* holder) {
    if (!req.has_param(name)) return nullptr;
    *holder = req.get_param_value(name);
    return holder;
}

}  // namespace

HttpApi::HttpApi(HttpContext context)
    : ctx_(std::move(context)),
      auth_(ctx_.config.tokens, ctx_.config.allowAnonymous && IsLoopback(ctx_.config.listenHost),
            ctx_.config.anonymousScope) {}

HttpApi::~HttpApi() { Stop(); }

void HttpApi::Error(httplib::Response& res, const ApiError& e) {
    json j = {{"error", e.message}};
    if (!e.field.empty()) j["field"] = e.field;
    Send(res, e.status, j);
}

bool HttpApi::Authorize(const httplib::Request& req, httplib::Response& res, Scope needed,
                        std::string* actor) {
    std::string header;
    const std::string* auth = nullptr;
    if (req.has_header("Authorization")) {
        header = req.get_header_value("Authorization");
        auth = &header;
    }
    std::string name;
    Scope scope = Scope::None;
    // The console's session cookie stands for a token where no bearer token is given.
    if (auth == nullptr && !SessionAuthorize(req, res, &scope, &name)) return false;
    if (scope == Scope::None) scope = auth_.Check(auth, &name);
    if (scope == Scope::None) {
        res.set_header("WWW-Authenticate", "Bearer realm=\"zanthd\"");
        Send(res, 401, {{"error", auth ? "the token is not known" : "a bearer token is required"}});
        return false;
    }
    if (static_cast<int>(scope) < static_cast<int>(needed)) {
        Send(res, 403, {{"error", "the token \"" + name + "\" is read-only; this needs the operator scope"}});
        return false;
    }
    if (actor) *actor = name;
    return true;
}

bool HttpApi::Audit(const std::string& actor, const std::string& action, const std::string& detail,
                    httplib::Response& res) {
    Record r;
    r.kind = "audit";
    r.raw = action;
    r.fields = detail;
    r.actor = actor;
    auto promise = std::make_shared<std::promise<bool>>();
    auto future = promise->get_future();
    ctx_.ingest.Submit(std::move(r), [promise](bool stored, int64_t) { promise->set_value(stored); });
    if (future.wait_for(std::chrono::seconds(5)) != std::future_status::ready || !future.get()) {
        Send(res, 503, {{"error", "the change is made, but the journal could not take its audit record yet: " +
                                      ctx_.ingest.Problem()}});
        return false;
    }
    return true;
}

bool HttpApi::Start(std::string* error) {
    const Config& c = ctx_.config;
    if (c.Tls()) {
        auto ssl = std::make_unique<httplib::SSLServer>(c.tlsCert.c_str(), c.tlsKey.c_str());
        if (!ssl->is_valid()) {
            *error = "cannot use the TLS certificate " + c.tlsCert.string() + " and key " + c.tlsKey.string();
            return false;
        }
        server_ = std::move(ssl);
    } else {
        server_ = std::make_unique<httplib::Server>();
    }
    int threads = c.threads;
    server_->new_task_queue = [threads] { return new httplib::ThreadPool(static_cast<size_t>(threads)); };
    // Bulk card loads and files may be larger than other bodies: the pre-routing handler holds
    // every other request to max_body_bytes.
    server_->set_payload_max_length(static_cast<size_t>(std::max(c.maxBodyBytes, c.maxUploadBytes)));
    server_->set_keep_alive_max_count(1000);
    // An answer goes out whole at once: no wait for the client's delayed acknowledgement.
    server_->set_tcp_nodelay(true);
    server_->set_read_timeout(10, 0);
    // The server listens with a backlog of five: a hundred clients that connect at once would
    // overflow it, and some would find their connection gone at their first request. The
    // listening socket is kept here and its backlog raised once it listens.
    int listening = -1;
    server_->set_socket_options([&listening](int fd) {
        int yes = 1;
        ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        listening = fd;
    });
    Routes();
    if (!server_->bind_to_port(c.listenHost, c.listenPort)) {
        *error = "cannot listen on " + c.listenHost + ":" + std::to_string(c.listenPort);
        return false;
    }
    if (listening >= 0 && ::listen(listening, SOMAXCONN) != 0) {
        Log(Level::Warn, "http", "the listening backlog stays at five: %s", std::strerror(errno));
    }
    port_ = c.listenPort;
    thread_ = std::thread([this] { server_->listen_after_bind(); });
    return true;
}

void HttpApi::Stop() {
    stopping_ = true;
    ctx_.journal.WakeWaiters();
    if (server_) server_->stop();
    if (thread_.joinable()) thread_.join();
}

namespace {

// A request refused before routing leaves its body unread on the connection, where it would be
// taken for the start of the next request: such a connection is closed after the answer.
httplib::Server::HandlerResponse RefusedUnread(const httplib::Request& req, httplib::Response& res) {
    std::string length = req.get_header_value("Content-Length");
    if ((!length.empty() && length != "0") || req.has_header("Transfer-Encoding")) {
        res.set_header("Connection", "close");
    }
    return httplib::Server::HandlerResponse::Handled;
}

}  // namespace

void HttpApi::Routes() {
    httplib::Server& s = *server_;
    const std::string v1 = "/api/v1";

    s.set_logger([this](const httplib::Request& req, const httplib::Response& res) {
        ctx_.metrics.Count("zanthd_http_requests_total", Metrics::Label("code", std::to_string(res.status)));
        Log(Level::Debug, "http", "%s %s %d", req.method.c_str(), req.path.c_str(), res.status);
    });
    s.set_error_handler([](const httplib::Request&, httplib::Response& res) {
        if (!res.body.empty()) return;
        std::string message = res.status == 413 ? "the body is larger than the gateway takes"
                              : res.status == 404 ? "no such resource"
                              : res.status == 400 ? "the request could not be read"
                              : res.status == 405 ? "the method is not allowed here"
                                                  : "status " + std::to_string(res.status);
        res.set_content(Dump({{"error", message}}) + "\n", "application/json");
    });
    s.set_exception_handler([](const httplib::Request&, httplib::Response& res, std::exception_ptr ep) {
        std::string what = "internal error";
        try {
            if (ep) std::rethrow_exception(ep);
        } catch (const std::exception& e) {
            what = e.what();
        } catch (...) {
        }
        Log(Level::Error, "http", "a handler failed: %s", what.c_str());
        Send(res, 500, {{"error", "internal error"}});
    });
    // Every request is authorised here, before routing, so that no path answers without a token.
    s.set_pre_routing_handler([this](const httplib::Request& req, httplib::Response& res) {
        if (stopping_) {
            Send(res, 503, {{"error", "the gateway is stopping"}});
            return httplib::Server::HandlerResponse::Handled;
        }
        // The readable page of the API holds no data: it asks for a token to read the document.
        if (req.method == "GET" && (req.path == "/docs" || req.path == "/api/v1/docs")) {
            return httplib::Server::HandlerResponse::Unhandled;
        }
        if (ConsolePublic(req)) return httplib::Server::HandlerResponse::Unhandled;
        Scope needed = req.method == "GET" || req.method == "HEAD" ? Scope::Read : Scope::Operator;
        if (!Authorize(req, res, needed, nullptr)) return RefusedUnread(req, res);
        if (req.has_header("Content-Length")) {
            int64_t limit = IsUpload(req.path) ? ctx_.config.maxUploadBytes : ctx_.config.maxBodyBytes;
            auto length = ParseNumber(req.get_header_value("Content-Length"), 0, INT64_MAX);
            if (length && *length > limit) {
                Send(res, 413, {{"error", "the body is larger than the gateway takes here (" + std::to_string(limit) + " bytes)"}});
                return RefusedUnread(req, res);
            }
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });

    auto health = [this](const httplib::Request&, httplib::Response& res) {
        bool ok = ctx_.ingest.Healthy();
        json j = {{"status", ok ? "healthy" : "unhealthy"},
                  {"journal", ok ? "storing" : ctx_.ingest.Problem()},
                  {"journal_last_id", ctx_.journal.LastId()},
                  {"journal_backlog", ctx_.ingest.Backlog()}};
        Send(res, ok ? 200 : 503, j);
    };
    auto ready = [this](const httplib::Request&, httplib::Response& res) {
        bool ok = ctx_.ready() && ctx_.ingest.Healthy();
        Send(res, ok ? 200 : 503, {{"status", ok ? "ready" : "not ready"}});
    };
    auto metrics = [this](const httplib::Request&, httplib::Response& res) {
        res.set_content(ctx_.metrics.Render(), "text/plain; version=0.0.4");
    };
    for (const std::string& prefix : {v1, std::string()}) {
        s.Get(prefix + "/healthz", health);
        s.Get(prefix + "/readyz", ready);
        s.Get(prefix + "/metrics", metrics);
    }

    s.Get(v1 + "/controllers", [this](const httplib::Request&, httplib::Response& res) {
        // What is connected now, from the library; connects and disconnects are in the journal.
        ctx_.controllers.Refresh();
        json list = json::array();
        for (const ControllerState& c : ctx_.controllers.List()) list.push_back(ControllerJson(c));
        Send(res, 200, {{"controllers", list}, {"connected", ctx_.controllers.ConnectedCount()}});
    });
    s.Get(v1 + R"(/controllers/([^/]+))", [this](const httplib::Request& req, httplib::Response& res) {
        std::string mac = NormalizeMac(req.matches[1].str());
        if (mac.empty()) return Error(res, {400, "mac", "a MAC \"XX:XX:XX\""});
        ControllerState c;
        if (!ctx_.controllers.Find(mac, &c)) return Error(res, {404, "mac", "no controller " + mac + " is valid or known"});
        Send(res, 200, ControllerJson(c));
    });
    s.Get(v1 + "/doors", [this](const httplib::Request&, httplib::Response& res) {
        json list = json::array();
        for (const DoorConfig& d : ctx_.config.doors) {
            list.push_back({{"name", d.name}, {"controller", d.controller}, {"door", d.door},
                            {"relay", d.relay}, {"lock_input", d.lockInput}});
        }
        Send(res, 200, {{"doors", list}});
    });

    s.Get(v1 + "/events", [this](const httplib::Request& req, httplib::Response& res) { Events(req, res); });
    s.Get(v1 + "/events/stream", [this](const httplib::Request& req, httplib::Response& res) { Stream(req, res); });

    // Rules.
    s.Get(v1 + "/cardholders", [this](const httplib::Request& req, httplib::Response& res) {
        std::vector<Cardholder> list;
        ApiError e;
        std::string search = req.has_param("search") ? req.get_param_value("search") : "";
        if (search.size() > 200) return Error(res, {400, "search", "at most 200 characters"});
        if (!ctx_.rules.ListCardholders(search, &list, &e)) return Error(res, e);
        json out = json::array();
        for (const Cardholder& c : list) out.push_back(CardholderJson(c));
        Send(res, 200, {{"cardholders", out}});
    });
    s.Get(v1 + R"(/cardholders/([^/]+))", [this](const httplib::Request& req, httplib::Response& res) {
        int64_t id = 0;
        if (!ParseId(req.matches[1].str(), &id)) return Error(res, {400, "id", "a cardholder id, 1 or more"});
        Cardholder c;
        ApiError e;
        if (!ctx_.rules.GetCardholder(id, &c, &e)) return Error(res, e);
        Send(res, 200, CardholderJson(c));
    });
    auto putHolder = [this](const httplib::Request& req, httplib::Response& res, bool create) {
        std::string actor;
        Authorize(req, res, Scope::Operator, &actor);
        int64_t id = 0;
        if (!create && !ParseId(req.matches[1].str(), &id)) return Error(res, {400, "id", "a cardholder id, 1 or more"});
        CardholderInput in;
        ApiError e;
        if (!BodyBounded(req, res)) return;
        if (!ParseCardholder(req.body, &in, &e)) return Error(res, e);
        if (!ctx_.ingest.Healthy()) return Error(res, {503, "", "the journal can't take records now: " + ctx_.ingest.Problem()});
        Cardholder out;
        if (!ctx_.rules.PutCardholder(id, in, &out, &e)) return Error(res, e);
        json body = CardholderJson(out);
        ctx_.sync.PendingChanged();
        if (!Audit(actor, create ? "cardholder added" : "cardholder changed", Dump(body), res)) return;
        Send(res, create ? 201 : 200, body);
    };
    s.Post(v1 + "/cardholders", [putHolder](const httplib::Request& req, httplib::Response& res) { putHolder(req, res, true); });
    s.Put(v1 + R"(/cardholders/([^/]+))", [putHolder](const httplib::Request& req, httplib::Response& res) { putHolder(req, res, false); });
    s.Delete(v1 + R"(/cardholders/([^/]+))", [this](const httplib::Request& req, httplib::Response& res) {
        std::string actor;
        Authorize(req, res, Scope::Operator, &actor);
        int64_t id = 0;
        if (!ParseId(req.matches[1].str(), &id)) return Error(res, {400, "id", "a cardholder id, 1 or more"});
        if (!ctx_.ingest.Healthy()) return Error(res, {503, "", "the journal can't take records now: " + ctx_.ingest.Problem()});
        ApiError e;
        if (!ctx_.rules.DeleteCardholder(id, &e)) return Error(res, e);
        ctx_.sync.PendingChanged();
        if (!Audit(actor, "cardholder removed", Dump({{"id", id}}), res)) return;
        res.status = 204;
    });
    s.Get(v1 + "/schedules", [this](const httplib::Request&, httplib::Response& res) {
        std::vector<Schedule> list;
        ApiError e;
        if (!ctx_.rules.ListSchedules(&list, &e)) return Error(res, e);
        json out = json::array();
        for (const Schedule& sc : list) out.push_back(ScheduleJson(sc));
        Send(res, 200, {{"schedules", out}, {"time_zone", ctx_.config.timeZone}});
    });
    auto putSchedule = [this](const httplib::Request& req, httplib::Response& res, bool create) {
        std::string actor;
        Authorize(req, res, Scope::Operator, &actor);
        int64_t id = 0;
        if (!create && !ParseId(req.matches[1].str(), &id)) return Error(res, {400, "id", "a schedule id, 1 or more"});
        ScheduleInput in;
        ApiError e;
        if (!BodyBounded(req, res)) return;
        if (!ParseSchedule(req.body, &in, &e)) return Error(res, e);
        if (!ctx_.ingest.Healthy()) return Error(res, {503, "", "the journal can't take records now: " + ctx_.ingest.Problem()});
        Schedule out;
        if (!ctx_.rules.PutSchedule(id, in, &out, &e)) return Error(res, e);
        json body = ScheduleJson(out);
        if (!Audit(actor, create ? "schedule added" : "schedule changed", Dump(body), res)) return;
        Send(res, create ? 201 : 200, body);
    };
    s.Post(v1 + "/schedules", [putSchedule](const httplib::Request& req, httplib::Response& res) { putSchedule(req, res, true); });
    s.Put(v1 + R"(/schedules/([^/]+))", [putSchedule](const httplib::Request& req, httplib::Response& res) { putSchedule(req, res, false); });
    s.Delete(v1 + R"(/schedules/([^/]+))", [this](const httplib::Request& req, httplib::Response& res) {
        std::string actor;
        Authorize(req, res, Scope::Operator, &actor);
        int64_t id = 0;
        if (!ParseId(req.matches[1].str(), &id)) return Error(res, {400, "id", "a schedule id, 1 or more"});
        if (!ctx_.ingest.Healthy()) return Error(res, {503, "", "the journal can't take records now: " + ctx_.ingest.Problem()});
        ApiError e;
        if (!ctx_.rules.DeleteSchedule(id, &e)) return Error(res, e);
        if (!Audit(actor, "schedule removed", Dump({{"id", id}}), res)) return;
        res.status = 204;
    });
    s.Get(v1 + "/pending-card-changes", [this](const httplib::Request& req, httplib::Response& res) {
        std::string mac;
        if (req.has_param("mac")) {
            mac = NormalizeMac(req.get_param_value("mac"));
            if (mac.empty()) return Error(res, {400, "mac", "a MAC \"XX:XX:XX\""});
        }
        std::vector<PendingChange> list;
        ApiError e;
        if (!ctx_.rules.ListPending(mac, &list, &e)) return Error(res, e);
        json out = json::array();
        for (const PendingChange& p : list) {
            out.push_back({{"id", p.id}, {"mac", p.mac}, {"op", p.op}, {"card", p.card},
                           {"facility", p.facility ? json(*p.facility) : json(nullptr)},
                           {"cardholder", p.cardholder}, {"created", IsoTime(p.createdMs)},
                           {"last_result", p.lastResult.empty() ? json(nullptr) : json(p.lastResult)}});
        }
        Send(res, 200, {{"pending", out}});
    });

    CallRoutes();
    ResourceRoutes();
    ConsoleRoutes();
    auto document = [this](const httplib::Request&, httplib::Response& res) {
        res.set_content(ctx_.openApi, "application/json");
    };
    auto page = [](const httplib::Request&, httplib::Response& res) {
        res.set_content(OpenApiPage(), "text/html; charset=utf-8");
    };
    for (const std::string& prefix : {v1, std::string()}) {
        s.Get(prefix + "/openapi.json", document);
        s.Get(prefix + "/docs", page);
    }
}

void HttpApi::Events(const httplib::Request& req, httplib::Response& res) {
    std::string a, l, k;
    EventsQuery q;
    ApiError e;
    if (!ParseEventsQuery(Param(req, "after", &a), Param(req, "limit", &l), Param(req, "kind", &k), &q, &e)) {
        return Error(res, e);
    }
    JournalReader reader;
    std::string error;
    if (!reader.Open(ctx_.journal.Path(), &error)) return Error(res, {503, "", "journal: " + error});
    int64_t oldest = reader.OldestId();
    int64_t last = ctx_.journal.LastId();
    if (oldest == 0) oldest = last + 1;
    if (q.after + 1 < oldest && q.after < last) {
        return Send(res, 410, {{"error", "records after " + std::to_string(q.after) + " are no longer kept"},
                               {"field", "after"}, {"oldest_id", oldest}});
    }
    std::vector<Record> records;
    if (!reader.Read(q.after, q.limit, q.kind, &records)) return Error(res, {503, "", "journal: read failed"});
    json list = json::array();
    for (const Record& r : records) list.push_back(RecordJson(r));
    int64_t next = records.empty() ? q.after : records.back().id;
    Send(res, 200, {{"records", list}, {"next_after", next}, {"last_id", last}});
}

void HttpApi::Stream(const httplib::Request& req, httplib::Response& res) {
    std::string a, k;
    EventsQuery q;
    ApiError e;
    // A browser that reconnects sends the last id it saw; it goes before the query's.
    std::string lastEventId = req.get_header_value("Last-Event-ID");
    const std::string* after = Param(req, "after", &a);
    if (!lastEventId.empty()) after = &lastEventId;
    if (!ParseEventsQuery(after, nullptr, Param(req, "kind", &k), &q, &e)) {
        if (e.field == "after" && !lastEventId.empty()) e.field = "Last-Event-ID";
        return Error(res, e);
    }
    if (after == nullptr) q.after = ctx_.journal.LastId();  // no cursor: live from now
    auto reader = std::make_shared<JournalReader>();
    std::string error;
    if (!reader->Open(ctx_.journal.Path(), &error)) return Error(res, {503, "", "journal: " + error});
    int64_t oldest = reader->OldestId();
    int64_t last = ctx_.journal.LastId();
    if (oldest == 0) oldest = last + 1;
    if (q.after + 1 < oldest && q.after < last) {
        return Send(res, 410, {{"error", "records after " + std::to_string(q.after) + " are no longer kept"},
                               {"field", "after"}, {"oldest_id", oldest}});
    }
    res.set_header("Cache-Control", "no-cache");
    res.set_header("X-Accel-Buffering", "no");
    auto cursor = std::make_shared<int64_t>(q.after);
    auto lastWrite = std::make_shared<std::chrono::steady_clock::time_point>(std::chrono::steady_clock::now());
    std::string kind = q.kind;
    // A stream carried by the console's session ends with it.
    std::function<bool()> keep = SessionKeeper(req);
    res.set_chunked_content_provider(
        "text/event-stream",
        [this, reader, cursor, lastWrite, kind, keep](size_t, httplib::DataSink& sink) {
            if (stopping_ || !keep()) {
                sink.done();
                return true;
            }
            std::vector<Record> records;
            if (!reader->Read(*cursor, 500, kind, &records)) return false;
            if (records.empty()) {
                ctx_.journal.WaitBeyond(*cursor, std::chrono::steady_clock::now() + std::chrono::seconds(1));
                if (std::chrono::steady_clock::now() - *lastWrite > std::chrono::seconds(15)) {
                    *lastWrite = std::chrono::steady_clock::now();
                    return sink.write(": keep-alive\n\n", 14);
                }
                // A client that has gone is noticed at the next write.
                return sink.is_writable();
            }
            if (kind.empty() && records.front().id != *cursor + 1) {
                // Retention overtook a slow reader: say so and end, rather than skip silently.
                std::string gone = "event: gone\ndata: {\"oldest_id\":" + std::to_string(records.front().id) + "}\n\n";
                sink.write(gone.data(), gone.size());
                sink.done();
                return true;
            }
            std::string out;
            for (const Record& r : records) {
                out += "id: " + std::to_string(r.id) + "\nevent: " + r.kind + "\ndata: " + Dump(RecordJson(r)) + "\n\n";
            }
            // Under a kind filter the cursor still moves past what was skipped.
            *cursor = records.back().id;
            *lastWrite = std::chrono::steady_clock::now();
            return sink.write(out.data(), out.size());
        });
}

}  // namespace zanthd
