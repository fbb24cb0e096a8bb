// The site console on the REST API: its page and files at / and /console/, the session that
// stands for a token in a browser (/api/v1/session), and what the page reads that other clients
// may read too: the site's description (/api/v1/site), the health history
// (/api/v1/health/history) and a search back through the journal (/api/v1/events/search).
//
// The page is plain HTML, CSS and JavaScript and holds no data: it reads everything through the
// API with the session, so it can do nothing the session's token may not.

#include <httplib.h>

#include <cctype>
#include <fstream>
#include <set>
#include <sstream>

#include "gateway/ApiInput.h"
#include "gateway/ConsoleAssets.h"
#include "gateway/ConsoleHistory.h"
#include "gateway/ConsoleSession.h"
#include "gateway/Http.h"
#include "gateway/HttpJson.h"
#include "gateway/Ingest.h"
#include "gateway/Journal.h"
#include "gateway/Log.h"
#include "gateway/PayloadCodec.h"

namespace zanthd {
namespace {

using nlohmann::json;

// The page's own rules for the browser: its files only, no framing, nothing from elsewhere.
constexpr const char* kPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; connect-src 'self'; "
    "font-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

// A records search reads at most this many ids per request; the answer says where to go on.
constexpr int64_t kSearchSpan = 20000;

void SecurityHeaders(httplib::Response& res) {
    res.set_header("Content-Security-Policy", kPolicy);
    res.set_header("X-Content-Type-Options", "nosniff");
    res.set_header("X-Frame-Options", "DENY");
    res.set_header("Referrer-Policy", "no-referrer");
}

// The controllers the seed file keys (its "default" line keys all of them). The library reads
// the same file, as zanth.txt: a line is a key and a seed, the key "default" or a MAC whose first
// nine characters are passed over.
json Seeds(const std::filesystem::path& file) {
    json out = {{"seed_file", !file.empty()}, {"default", false}, {"controllers", json::array()}};
    if (file.empty()) return out;
    std::ifstream in(file);
    std::string line;
    std::set<std::string> macs;
    while (std::getline(in, line)) {
        std::istringstream words(line);
        std::string key, seed;
        if (!(words >> key)) continue;
        std::string lower;
        for (char c : key) lower.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
        if (lower == "default") {
            out["default"] = true;
        } else if (key.size() > 9) {
            std::string mac = NormalizeMac(key.substr(9));
            if (!mac.empty()) macs.insert(mac);
        }
    }
    for (const std::string& m : macs) out["controllers"].push_back(m);
    return out;
}

bool IsApiSession(const httplib::Request& req) { return req.path == "/api/v1/session"; }

}  // namespace

bool HttpApi::ConsolePublic(const httplib::Request& req) const {
    if (!ctx_.config.consoleEnabled) return false;
    // The page and its files hold no data; logging in and out stand on the session's own checks.
    if (req.method == "GET" && (req.path == "/" || req.path.rfind("/console/", 0) == 0)) return true;
    return IsApiSession(req) && (req.method == "POST" || req.method == "DELETE");
}

namespace {

CookieRequest FromRequest(const httplib::Request& req) {
    return {req.method,
            req.get_header_value("Cookie"),
            req.get_header_value("Origin"),
            req.get_header_value("Host"),
            req.get_header_value("Sec-Fetch-Site"),
            req.get_header_value("X-CSRF-Token")};
}

// Answers a request the session cookie doesn't allow.
void Refuse(httplib::Response& res, CookieVerdict v, const CookieRequest& c, const Sessions& sessions) {
    switch (v) {
        case CookieVerdict::kUnknown:
            res.set_header("Set-Cookie", sessions.ClearCookie());
            return Send(res, 401, {{"error", "the console session has ended: log in again"}, {"session", "ended"}});
        case CookieVerdict::kForeignOrigin:
            return Send(res, 403, {{"error", "a request from another origin (" +
                                                 (c.origin.empty() ? "Sec-Fetch-Site: " + c.fetchSite : c.origin) +
                                                 ") can't use the console's session"}});
        case CookieVerdict::kNoCsrf:
            return Send(res, 403, {{"error", "a change through the console's session needs its X-CSRF-Token header"},
                                   {"field", "X-CSRF-Token"}});
        case CookieVerdict::kWrongCsrf:
            return Send(res, 403, {{"error", "the X-CSRF-Token header is not this session's"}, {"field", "X-CSRF-Token"}});
        case CookieVerdict::kNoCookie:
        case CookieVerdict::kOk:
            return;
    }
}

}  // namespace

bool HttpApi::SessionAuthorize(const httplib::Request& req, httplib::Response& res, Scope* scope,
                               std::string* name) {
    if (!sessions_ || !req.has_header("Cookie")) return true;
    CookieRequest c = FromRequest(req);
    Session s;
    CookieVerdict v = sessions_->Check(c, NowMs(), &s);
    if (v == CookieVerdict::kNoCookie) return true;
    if (v == CookieVerdict::kOk) {
        *scope = s.scope;
        *name = s.name;
        return true;
    }
    Refuse(res, v, c, *sessions_);
    return false;
}

std::function<bool()> HttpApi::SessionKeeper(const httplib::Request& req) {
    if (!sessions_ || req.has_header("Authorization") || !req.has_header("Cookie")) return [] { return true; };
    std::string id = sessions_->IdIn(req.get_header_value("Cookie"));
    if (id.empty()) return [] { return true; };
    Sessions* sessions = sessions_.get();
    return [sessions, id] { return sessions->Alive(id, NowMs()); };
}

void HttpApi::ConsoleRoutes() {
    httplib::Server& s = *server_;
    const std::string v1 = "/api/v1";
    const Config& c = ctx_.config;

    // ---- What any client may read: the site, the health history, the journal searched back ----
    json site = {{"site", c.site}, {"time_zone", c.timeZone}, {"tls", c.Tls()},
                 {"decisions", c.mode == DecisionMode::Webhook ? "webhook" : "rules"},
                 {"seeds", Seeds(c.seedFile)}, {"doors", json::array()}};
    for (const DoorConfig& d : c.doors) {
        site["doors"].push_back({{"name", d.name}, {"controller", d.controller}, {"door", d.door},
                                 {"relay", d.relay}, {"lock_input", d.lockInput}, {"open_ms", d.openMs}});
    }
    s.Get(v1 + "/site", [site](const httplib::Request&, httplib::Response& res) { Send(res, 200, site); });

    s.Get(v1 + "/health/history", [this](const httplib::Request&, httplib::Response& res) {
        if (ctx_.history == nullptr) return Send(res, 404, {{"error", "this gateway keeps no health history"}});
        Send(res, 200, ctx_.history->Json());
    });

    s.Get(v1 + "/events/search", [this](const httplib::Request& req, httplib::Response& res) {
        JournalSearch q;
        int64_t last = ctx_.journal.LastId();
        q.before = last + 1;
        auto number = [&req, &res](const char* key, int64_t low, int64_t high, const std::string& what, int64_t* out) {
            if (!req.has_param(key)) return true;
            auto v = ParseNumber(req.get_param_value(key), low, high);
            if (!v) {
                Send(res, 400, {{"error", std::string(key) + ": " + what}, {"field", key}});
                return false;
            }
            *out = *v;
            return true;
        };
        int64_t limit = 50, door = -1;
        if (!number("before", 1, int64_t{1} << 62, "an id, 1 or more", &q.before) ||
            !number("limit", 1, 500, "1 to 500", &limit) || !number("door", 0, 255, "a door number, 0 to 255", &door)) {
            return;
        }
        q.limit = static_cast<int>(limit);
        q.door = static_cast<int>(door);
        if (req.has_param("kind")) {
            std::string list = req.get_param_value("kind");
            for (size_t start = 0; start <= list.size();) {
                size_t comma = list.find(',', start);
                std::string k = list.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
                if (!k.empty()) {
                    if (!KnownKind(k) && k != "heartbeat") {
                        return Send(res, 400, {{"error", "kind: a comma-separated list of event, alarm, heartbeat, lookup, "
                                                         "door, pin, connect, disconnect, decision, audit"},
                                               {"field", "kind"}});
                    }
                    q.kinds.push_back(k);
                }
                if (comma == std::string::npos) break;
                start = comma + 1;
            }
        }
        if (req.has_param("mac")) {
            q.mac = NormalizeMac(req.get_param_value("mac"));
            if (q.mac.empty()) return Send(res, 400, {{"error", "mac: a MAC \"XX:XX:XX\""}, {"field", "mac"}});
        }
        if (req.has_param("text")) {
            q.text = req.get_param_value("text");
            if (q.text.size() > 200) return Send(res, 400, {{"error", "text: at most 200 characters"}, {"field", "text"}});
        }
        JournalReader reader;
        std::string error;
        if (!reader.Open(ctx_.journal.Path(), &error)) return Send(res, 503, {{"error", "journal: " + error}});
        int64_t oldest = reader.OldestId();
        q.floor = std::max<int64_t>({0, oldest, q.before - kSearchSpan});
        std::vector<Record> records;
        if (!reader.Search(q, &records)) return Send(res, 503, {{"error", "journal: the search failed"}});
        json list = json::array();
        for (const Record& r : records) list.push_back(RecordJson(r));
        // Where the next page starts: below the last record given when the page is full, else
        // below what this request searched, unless it reached the oldest record kept.
        json next = nullptr;
        if (static_cast<int>(records.size()) == q.limit) {
            next = records.back().id;
        } else if (q.floor > std::max<int64_t>(oldest, 1)) {
            next = q.floor;
        }
        Send(res, 200, {{"records", list}, {"next_before", next}, {"searched_from", q.floor},
                        {"last_id", last}, {"oldest_id", oldest}});
    });

    if (!c.consoleEnabled) return;
    sessions_ = std::make_unique<Sessions>(std::chrono::seconds(c.sessionIdleS), std::chrono::seconds(c.sessionMaxS),
                                           c.listenPort, c.Tls());

    // ---- The page and its files ----
    auto serve = [dir = c.consoleDir](const std::string& name, const httplib::Request& req, httplib::Response& res) {
        auto file = FindConsoleFile(name, dir);
        if (!file) return Send(res, 404, {{"error", "no file " + name + " in the console"}});
        SecurityHeaders(res);
        res.set_header("Cache-Control", "no-cache");
        res.set_header("ETag", file->etag);
        if (req.get_header_value("If-None-Match") == file->etag) {
            res.status = 304;
            return;
        }
        res.set_content(file->body, file->type.c_str());
    };
    s.Get("/", [serve](const httplib::Request& req, httplib::Response& res) { serve("index.html", req, res); });
    s.Get(R"(/console/([^/]+))", [serve](const httplib::Request& req, httplib::Response& res) {
        serve(req.matches[1].str(), req, res);
    });

    // ---- The session: a token traded for a cookie ----
    s.Post(v1 + "/session", [this](const httplib::Request& req, httplib::Response& res) {
        // A login from another origin would put the browser in that origin's session.
        std::string origin = req.get_header_value("Origin");
        if (!origin.empty() && !Sessions::SameOrigin(origin, req.get_header_value("Host"), ctx_.config.Tls())) {
            return Send(res, 403, {{"error", "a login from another origin (" + origin + ") is refused"}});
        }
        json body;
        if (!JsonBody(req, res, &body)) return;
        for (const auto& [k, v] : body.items()) {
            if (k != "token") return Send(res, 400, {{"error", k + ": unknown key (expected token)"}, {"field", k}});
        }
        if (!body.contains("token") || !body["token"].is_string() || body["token"].get<std::string>().empty()) {
            return Send(res, 400, {{"error", "token: the bearer token, as zanthd --hash-token printed it"}, {"field", "token"}});
        }
        std::string bearer = "Bearer " + body["token"].get<std::string>();
        std::string name;
        Scope scope = auth_.Check(&bearer, &name);
        Record audit;
        audit.kind = "audit";
        audit.fields = Dump({{"remote", req.remote_addr}, {"via", "console"}});
        if (scope == Scope::None) {
            audit.raw = "console login refused";
            ctx_.ingest.Submit(std::move(audit));
            return Send(res, 401, {{"error", "the token is not known"}, {"field", "token"}});
        }
        Session session = sessions_->Open(name, scope, NowMs());
        audit.raw = "console session opened";
        audit.actor = name;
        ctx_.ingest.Submit(std::move(audit));
        res.set_header("Set-Cookie", sessions_->SetCookie(session));
        res.set_header("Cache-Control", "no-store");
        Send(res, 201, {{"name", name}, {"scope", scope == Scope::Operator ? "operator" : "read"},
                        {"csrf", session.csrf}, {"idle_s", ctx_.config.sessionIdleS},
                        {"expires", IsoTime(session.createdMs + int64_t{ctx_.config.sessionMaxS} * 1000)}});
    });
    s.Get(v1 + "/session", [this](const httplib::Request& req, httplib::Response& res) {
        // Reached with a session or a token (the pre-routing check let it through).
        res.set_header("Cache-Control", "no-store");
        if (!req.has_header("Authorization")) {
            if (auto session = sessions_->Peek(req.get_header_value("Cookie"), NowMs())) {
                return Send(res, 200, {{"name", session->name},
                                       {"scope", session->scope == Scope::Operator ? "operator" : "read"},
                                       {"csrf", session->csrf}, {"via", "session"}, {"idle_s", ctx_.config.sessionIdleS},
                                       {"expires", IsoTime(session->createdMs + int64_t{ctx_.config.sessionMaxS} * 1000)}});
            }
        }
        std::string name = Actor(req);
        std::string header = req.get_header_value("Authorization");
        std::string ignored;
        Scope scope = auth_.Check(req.has_header("Authorization") ? &header : nullptr, &ignored);
        Send(res, 200, {{"name", name}, {"scope", scope == Scope::Operator ? "operator" : "read"},
                        {"csrf", nullptr}, {"via", req.has_header("Authorization") ? "token" : "anonymous"}});
    });
    s.Delete(v1 + "/session", [this](const httplib::Request& req, httplib::Response& res) {
        // Logging out is a change: it takes the session's CSRF token and its own origin, so that
        // no other page can end an operator's session.
        CookieRequest c = FromRequest(req);
        Session session;
        CookieVerdict v = sessions_->Check(c, NowMs(), &session);
        if (v == CookieVerdict::kNoCookie || v == CookieVerdict::kUnknown) {
            res.set_header("Set-Cookie", sessions_->ClearCookie());
            res.status = 204;
            return;
        }
        if (v != CookieVerdict::kOk) return Refuse(res, v, c, *sessions_);
        res.set_header("Set-Cookie", sessions_->ClearCookie());
        sessions_->End(sessions_->IdIn(c.cookieHeader));
        Record audit;
        audit.kind = "audit";
        audit.raw = "console session closed";
        audit.actor = session.name;
        audit.fields = Dump({{"remote", req.remote_addr}, {"via", "console"}});
        ctx_.ingest.Submit(std::move(audit));
        res.status = 204;
    });
}

}  // namespace zanthd
