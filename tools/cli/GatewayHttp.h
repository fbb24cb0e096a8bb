#pragma once
// zanthd's REST API as the gateway transport reaches it: the address of --gateway, clients for
// it (cpp-httplib with OpenSSL for https, --ca for a private CA, the bearer token), and every way
// a request can fail turned into the command line's errors, each saying what to do.

#include <httplib.h>

#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "tools/cli/Api.h"
#include "tools/cli/CommandLine.h"

namespace zanth::cli::gateway {

struct Answer {
    int status = 0;
    nlohmann::json body;  // the body as JSON; null when it isn't
    std::string text;     // the body as it came

    // The gateway's own words for a refusal ("error" of its JSON body), or the body's text.
    std::string Error() const;
};

// A connection to the gateway (kept alive between requests), for one thread.
struct Client {
    std::unique_ptr<httplib::Client> http;
    std::chrono::seconds readTimeout{0};  // how long an answer may take
};

class Http {
  public:
    // Throws StartError for a URL it can't use or a --ca that isn't a file.
    explicit Http(GatewayOptions options);

    Client NewClient(std::chrono::seconds readTimeout) const;

    // One request; its answer whatever the status. Throws StartError when the gateway can't be
    // reached, isn't trusted or refuses the token (401, or 403 for a read-only token), and
    // Timeout when no answer comes within the client's read timeout.
    Answer Send(Client& client, const std::string& method, const std::string& path,
                const std::string& body = {}) const;
    // The same for a request made on the client directly (a stream, an upload): `started`
    // tells a time-out from a connection that was closed.
    Answer Take(Client& client, httplib::Result& result, std::chrono::steady_clock::time_point started) const;
    // Throws for an answer that says the token isn't good enough.
    void CheckToken(const Answer& answer) const;

    // "/api/v1" + `api` behind the URL's own path.
    std::string Path(std::string_view api) const;
    const std::string& Url() const { return options_.url; }

  private:
    std::string Unreachable(httplib::Client& client, int error, double seconds, double readTimeout) const;

    GatewayOptions options_;
    GatewayAddress address_;
};

// A path segment or query value with everything but letters, digits and -._~ escaped.
std::string Escape(std::string_view text);
std::string Base64(const Bytes& bytes);
std::optional<Bytes> FromBase64(std::string_view text);

}  // namespace zanth::cli::gateway
