#pragma once
// The REST API (HTTP/1.1, JSON, everything under /api/v1/), on cpp-httplib, with TLS when the
// config names a certificate. Every request needs a bearer token unless the gateway listens on
// loopback and the config allows anonymous requests; writes need the operator scope. Bodies are
// bounded; a malformed or wrong body gets a 4xx with a JSON error that names the field, and
// nothing is changed or sent.

#include <atomic>
#include <functional>
#include <memory>
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

class Controllers;
class Ingest;
class Journal;
class Metrics;
class RulesStore;
struct ApiError;

struct HttpContext {
    const Config& config;
    Journal& journal;
    Ingest& ingest;
    Controllers& controllers;
    RulesStore& rules;
    Metrics& metrics;
    std::function<bool()> ready;  // the library is up and listening
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
    bool Authorize(const httplib::Request& req, httplib::Response& res, Scope needed, std::string* actor);
    void Error(httplib::Response& res, const ApiError& e);
    // Stores an audit record for an operator's change and waits for the journal.
    bool Audit(const std::string& actor, const std::string& action, const std::string& detail,
               httplib::Response& res);
    void Events(const httplib::Request& req, httplib::Response& res);
    void Stream(const httplib::Request& req, httplib::Response& res);

    HttpContext ctx_;
    Auth auth_;
    std::unique_ptr<httplib::Server> server_;
    std::thread thread_;
    std::atomic<bool> stopping_{false};
    int port_ = 0;
};

}  // namespace zanthd
