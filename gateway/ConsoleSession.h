#pragma once
// The site console's sessions. A browser can't put a bearer token on an EventSource, so the
// console trades its token for a session: an id in a cookie (HttpOnly, SameSite=Strict, Secure
// under TLS) and a CSRF token that the page sends back in the X-CSRF-Token header of every
// request that changes something. A session carries its token's name and scope and no more;
// it ends when the operator logs out, when it has been idle for `idle`, and `lifetime` after the
// login at the latest.
//
// A cookie rides along on any request the browser makes to this host, even one started by a
// page of another origin (another port of the same host is the same "site", so SameSite alone
// doesn't hold it back). A request carried by the cookie is therefore refused when its Origin
// (or Sec-Fetch-Site) shows another origin, and, when it changes something, unless it carries
// the session's CSRF token.

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "gateway/Config.h"

namespace zanthd {

struct Session {
    std::string id;    // the cookie's value (only its hash is kept)
    std::string csrf;  // the page's header value for changes
    std::string name;  // the token's name, the actor of the session's changes
    Scope scope = Scope::None;
    int64_t createdMs = 0;
    int64_t usedMs = 0;
};

// What a request carried by the session cookie shows of itself.
struct CookieRequest {
    std::string method;
    std::string cookieHeader;  // "a=b; c=d"
    std::string origin;        // empty when absent
    std::string host;          // the Host header
    std::string fetchSite;     // Sec-Fetch-Site, empty when absent
    std::string csrf;          // X-CSRF-Token, empty when absent
};

enum class CookieVerdict {
    kNoCookie,       // no session cookie: the request stands on its bearer token (or none)
    kOk,
    kUnknown,        // no such session, or it has ended: log in again (401)
    kForeignOrigin,  // another origin sent it (403)
    kNoCsrf,         // a change without the CSRF token (403)
    kWrongCsrf,      // a change with another CSRF token (403)
};

class Sessions {
  public:
    Sessions(std::chrono::seconds idle, std::chrono::seconds lifetime, int listenPort, bool tls,
             size_t maxSessions = 1000);

    // The cookie's name: one per listening port, since cookies don't keep ports apart; with TLS
    // the "__Host-" prefix pins it to this host, path / and Secure.
    const std::string& CookieName() const { return cookie_; }
    // The Set-Cookie value that starts a session, and the one that ends it in the browser.
    std::string SetCookie(const Session& s) const;
    std::string ClearCookie() const;

    // A new session for a token's name and scope. When the table is full the session used
    // least recently makes room.
    Session Open(const std::string& name, Scope scope, int64_t nowMs);
    // Checks a request that may carry the cookie; on kOk `out` is its session, now touched.
    CookieVerdict Check(const CookieRequest& req, int64_t nowMs, Session* out);
    // The session of a cookie header, untouched; nothing when there is none or it has ended.
    std::optional<Session> Peek(const std::string& cookieHeader, int64_t nowMs) const;
    // Whether the session with this id still stands; an event stream asks as it goes, and a
    // page that holds one open is in use.
    bool Alive(const std::string& id, int64_t nowMs);
    // Ends the session; false when there was none.
    bool End(const std::string& id);
    size_t Count() const;

    // The session id in a Cookie header, empty when absent.
    std::string IdIn(std::string_view cookieHeader) const;
    // Whether `origin` ("http://host:port") names this server: its scheme (https under TLS)
    // and the Host header's host and port.
    static bool SameOrigin(std::string_view origin, std::string_view host, bool tls);
    // True for the methods that change nothing.
    static bool Safe(std::string_view method);

  private:
    bool Expired(const Session& s, int64_t nowMs) const;
    void Sweep(int64_t nowMs);

    const int64_t idleMs_;
    const int64_t lifetimeMs_;
    const bool tls_;
    const size_t max_;
    std::string cookie_;
    mutable std::mutex mutex_;
    std::map<std::string, Session> byHash_;  // SHA-256 of the id -> the session
};

// Random bytes as lower-case hex (OpenSSL's generator).
std::string RandomHex(size_t bytes);

}  // namespace zanthd
