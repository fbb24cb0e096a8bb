#pragma once
// The REST API (HTTP/1.1, JSON, everything under /api/v1/), on cpp-httplib, with TLS when the
// config names a certificate. Every request needs a bearer token unless the gateway listens on
// loopback and the config allows anonymous requests; writes need the operator scope. Bodies are
// bounded; a malformed or wrong body gets a 4xx with a JSON error that names the field, and
// nothing is changed or sent.

#include <atomic>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "gateway/Auth.h"
#include "gateway/Config.h"

namespace httplib {
class Server;
struct Request;
struct Response;
}  // namespace httplib

namespace zanthd {

class CallPath;
class CardLoads;
class HealthHistory;
class Sessions;
class Controllers;
class Ingest;
class Journal;
class Metrics;
class PayloadCodec;
class RulesStore;
class SiteClock;
class SiteSync;
struct ApiError;
struct CallAnswer;
struct CallRequest;
struct Record;

// A journal record as the API shows it.
nlohmann::json RecordJson(const Record& r);

struct HttpContext {
    const Config& config;
    Journal& journal;
    Ingest& ingest;
    Controllers& controllers;
    RulesStore& rules;
    Metrics& metrics;
    CallPath& calls;
    CardLoads& loads;
    SiteSync& sync;
    const PayloadCodec& codec;
    const SiteClock& clock;
    std::string openApi;          // the OpenAPI document, as served
    std::function<bool()> ready;  // the library is up and listening
    HealthHistory* history = nullptr;  // the health charts' points; none: 404
};

class HttpApi {
  public:
    HttpApi(HttpContext context);
    ~HttpApi();
    // Binds the listening address; false with `error` set when it can't.
    bool Start(std::string* error);
    // Stops taking requests; streams end, requests under way finish.
    void Stop();
    int Port() const { return port_; }

  private:
    void Routes();
    // POST /call/{export} and the resources on the same call path (Resources.cpp).
    void CallRoutes();
    void ResourceRoutes();
    // The token's name of an authorised request.
    std::string Actor(const httplib::Request& req) const;
    // The request's deadline_ms, when it gives one; false (and a 400 sent) when it is bad.
    bool Deadline(const httplib::Request& req, httplib::Response& res, int* ms);
    // A body within max_body_bytes; false (and a 413 sent) when it isn't.
    bool BodyBounded(const httplib::Request& req, httplib::Response& res);
    // The request's body as a JSON object (an empty body: {}); false (and a 400 sent) otherwise.
    bool JsonBody(const httplib::Request& req, httplib::Response& res, nlohmann::json* out);
    // Runs a call for a resource: true when it succeeded (`answer` holds it); otherwise the
    // client has its error: the call's own status, or for a controller's refusal the status its
    // result stands for (404 for an unknown record, ...).
    bool Run(const httplib::Request& req, httplib::Response& res, CallRequest call, CallAnswer* answer);
    void SendAnswer(httplib::Response& res, const CallAnswer& answer);
    bool Authorize(const httplib::Request& req, httplib::Response& res, Scope needed, std::string* actor);
    void Error(httplib::Response& res, const ApiError& e);
    // Stores an audit record for an operator's change and waits for the journal.
    bool Audit(const std::string& actor, const std::string& action, const std::string& detail,
               httplib::Response& res);
    void Events(const httplib::Request& req, httplib::Response& res);
    void Stream(const httplib::Request& req, httplib::Response& res);
    // The site console (ConsoleRoutes.cpp): its page and files, the session that stands for a
    // token in a browser, the site's description, the health history and the journal search.
    void ConsoleRoutes();
    // Requests that need no token: the console's files, logging in and out.
    bool ConsolePublic(const httplib::Request& req) const;
    // A request carried by the console's session cookie: its scope and token name (left as they
    // are without a cookie); false, with the refusal sent, when the cookie or the request is bad.
    bool SessionAuthorize(const httplib::Request& req, httplib::Response& res, Scope* scope, std::string* name);
    // For an event stream: false once the request's session (if it has one) has ended.
    std::function<bool()> SessionKeeper(const httplib::Request& req);

    HttpContext ctx_;
    Auth auth_;
    std::unique_ptr<Sessions> sessions_;
    std::unique_ptr<httplib::Server> server_;
    std::thread thread_;
    std::atomic<bool> stopping_{false};
    int port_ = 0;
};

}  // namespace zanthd
