#include "gateway/ConsoleSession.h"

#include <openssl/crypto.h>
#include <openssl/rand.h>

#include <algorithm>
#include <cctype>
#include <stdexcept>

#include "gateway/Auth.h"

namespace zanthd {
namespace {

std::string_view Trim(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
    return s;
}

bool EqualNoCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) {
            return false;
        }
    }
    return true;
}

bool EqualSecret(const std::string& a, const std::string& b) {
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace

std::string RandomHex(size_t bytes) {
    std::string raw(bytes, '\0');
    if (RAND_bytes(reinterpret_cast<unsigned char*>(raw.data()), static_cast<int>(bytes)) != 1) {
        throw std::runtime_error("the random generator failed");
    }
    static const char kHex[] = "0123456789abcdef";
    std::string out;
    for (unsigned char c : raw) {
        out.push_back(kHex[c >> 4]);
        out.push_back(kHex[c & 15]);
    }
    return out;
}

Sessions::Sessions(std::chrono::seconds idle, std::chrono::seconds lifetime, int listenPort, bool tls,
                   size_t maxSessions)
    : idleMs_(std::chrono::duration_cast<std::chrono::milliseconds>(idle).count()),
      lifetimeMs_(std::chrono::duration_cast<std::chrono::milliseconds>(lifetime).count()),
      tls_(tls),
      max_(std::max<size_t>(maxSessions, 1)),
      cookie_(std::string(tls ? "__Host-" : "") + "zanthd_" + std::to_string(listenPort)) {}

std::string Sessions::SetCookie(const Session& s) const {
    return cookie_ + "=" + s.id + "; Path=/; HttpOnly; SameSite=Strict" + (tls_ ? "; Secure" : "");
}

std::string Sessions::ClearCookie() const {
    return cookie_ + "=; Path=/; Max-Age=0; HttpOnly; SameSite=Strict" + (tls_ ? "; Secure" : "");
}

bool Sessions::Expired(const Session& s, int64_t nowMs) const {
    return nowMs - s.usedMs >= idleMs_ || nowMs - s.createdMs >= lifetimeMs_;
}

void Sessions::Sweep(int64_t nowMs) {
    for (auto it = byHash_.begin(); it != byHash_.end();) {
        it = Expired(it->second, nowMs) ? byHash_.erase(it) : std::next(it);
    }
}

Session Sessions::Open(const std::string& name, Scope scope, int64_t nowMs) {
    Session s;
    s.id = RandomHex(32);
    s.csrf = RandomHex(32);
    s.name = name;
    s.scope = scope;
    s.createdMs = nowMs;
    s.usedMs = nowMs;
    std::lock_guard<std::mutex> lock(mutex_);
    Sweep(nowMs);
    while (byHash_.size() >= max_) {
        auto oldest = std::min_element(byHash_.begin(), byHash_.end(), [](const auto& a, const auto& b) {
            return a.second.usedMs < b.second.usedMs;
        });
        byHash_.erase(oldest);
    }
    byHash_[Sha256Hex(s.id)] = s;
    return s;
}

std::string Sessions::IdIn(std::string_view header) const {
    // "a=b; c=d": the first pair of our name is taken (a browser lists the cookie of the most
    // specific path first, and ours is set for the whole host).
    std::string found;
    while (!header.empty()) {
        size_t semi = header.find(';');
        std::string_view pair = Trim(header.substr(0, semi));
        header = semi == std::string_view::npos ? std::string_view() : header.substr(semi + 1);
        size_t eq = pair.find('=');
        if (eq == std::string_view::npos) continue;
        if (Trim(pair.substr(0, eq)) == cookie_) {
            found = std::string(Trim(pair.substr(eq + 1)));
            break;
        }
    }
    // An id is 64 hex digits; anything else can't be one and isn't looked up.
    if (found.size() != 64 || !std::all_of(found.begin(), found.end(), [](char c) {
            return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
        })) {
        return found.empty() ? "" : "-";
    }
    return found;
}

bool Sessions::SameOrigin(std::string_view origin, std::string_view host, bool tls) {
    size_t scheme = origin.find("://");
    if (scheme == std::string_view::npos || host.empty()) return false;
    if (origin.substr(0, scheme) != (tls ? "https" : "http")) return false;
    std::string_view authority = origin.substr(scheme + 3);
    if (authority.find('/') != std::string_view::npos) return false;
    return EqualNoCase(authority, host);
}

bool Sessions::Safe(std::string_view method) {
    return method == "GET" || method == "HEAD" || method == "OPTIONS";
}

CookieVerdict Sessions::Check(const CookieRequest& req, int64_t nowMs, Session* out) {
    std::string id = IdIn(req.cookieHeader);
    if (id.empty()) return CookieVerdict::kNoCookie;
    // The origin first: a foreign page learns nothing about the session, not even that it ended.
    if (!req.origin.empty() && !SameOrigin(req.origin, req.host, tls_)) return CookieVerdict::kForeignOrigin;
    if (req.fetchSite == "cross-site" || req.fetchSite == "same-site") return CookieVerdict::kForeignOrigin;
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = id == "-" ? byHash_.end() : byHash_.find(Sha256Hex(id));
    if (it == byHash_.end()) return CookieVerdict::kUnknown;
    if (Expired(it->second, nowMs)) {
        byHash_.erase(it);
        return CookieVerdict::kUnknown;
    }
    if (!Safe(req.method)) {
        if (req.csrf.empty()) return CookieVerdict::kNoCsrf;
        if (!EqualSecret(req.csrf, it->second.csrf)) return CookieVerdict::kWrongCsrf;
    }
    it->second.usedMs = nowMs;
    *out = it->second;
    return CookieVerdict::kOk;
}

std::optional<Session> Sessions::Peek(const std::string& cookieHeader, int64_t nowMs) const {
    std::string id = IdIn(cookieHeader);
    if (id.empty() || id == "-") return std::nullopt;
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = byHash_.find(Sha256Hex(id));
    if (it == byHash_.end() || Expired(it->second, nowMs)) return std::nullopt;
    return it->second;
}

bool Sessions::Alive(const std::string& id, int64_t nowMs) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = byHash_.find(Sha256Hex(id));
    if (it == byHash_.end() || Expired(it->second, nowMs)) return false;
    it->second.usedMs = nowMs;
    return true;
}

bool Sessions::End(const std::string& id) {
    std::lock_guard<std::mutex> lock(mutex_);
    return byHash_.erase(Sha256Hex(id)) > 0;
}

size_t Sessions::Count() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return byHash_.size();
}

}  // namespace zanthd
