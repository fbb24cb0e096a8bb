#include "tools/cli/GatewayHttp.h"

#include <httplib.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <cstdio>
#include <filesystem>

#include "tools/cli/Text.h"

namespace zanth::cli::gateway {
namespace {

constexpr int kConnectSeconds = 10;

std::string Seconds(double s) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", s);
    return text;
}

}  // namespace

std::string Answer::Error() const {
    if (body.is_object() && body.contains("error") && body["error"].is_string()) return body["error"];
    std::string t(Trim(text));
    return t.empty() ? "no explanation given" : t.substr(0, 300);
}

Http::Http(GatewayOptions options) : options_(std::move(options)) {
    std::optional<GatewayAddress> a = ParseGatewayUrl(options_.url);
    if (!a) throw StartError("--gateway wants http://HOST:PORT or https://HOST:PORT, not '" + options_.url + "'");
    address_ = *a;
    if (!options_.ca.empty() && !std::filesystem::is_regular_file(options_.ca)) {
        throw StartError("can't read the CA certificate of --ca: " + options_.ca + " is not a file");
    }
}

Client Http::NewClient(std::chrono::seconds readTimeout) const {
    Client client{std::make_unique<httplib::Client>(address_.origin), readTimeout};
    httplib::Client* c = client.http.get();
    c->set_connection_timeout(kConnectSeconds, 0);
    c->set_read_timeout(static_cast<time_t>(readTimeout.count()), 0);
    c->set_write_timeout(30, 0);
    c->set_keep_alive(true);
    if (!options_.token.empty()) c->set_bearer_token_auth(options_.token);
    if (address_.tls) {
        c->enable_server_certificate_verification(true);
        if (!options_.ca.empty()) c->set_ca_cert_path(options_.ca);
    }
    return client;
}

std::string Http::Path(std::string_view api) const { return address_.prefix + "/api/v1" + std::string(api); }

std::string Http::Unreachable(httplib::Client& client, int error, double seconds, double readTimeout) const {
    const std::string at = "the gateway at " + options_.url;
    switch (static_cast<httplib::Error>(error)) {
        case httplib::Error::Connection:
            return "can't reach " + at + ": the connection was refused or failed (is zanthd running there, "
                   "and is the host and port of --gateway right?)";
        case httplib::Error::ConnectionTimeout:
            return "can't reach " + at + ": no connection within " + Seconds(kConnectSeconds) +
                   " s (is the address right, and does a firewall let it through?)";
        case httplib::Error::SSLConnection:
            return "the TLS handshake with " + at + " failed (does it serve https? a gateway without "
                   "tls_cert in its config is reached with http://)";
        case httplib::Error::SSLLoadingCerts:
            return "can't load the CA certificates" + (options_.ca.empty() ? std::string(" of this system")
                                                                           : " of --ca " + options_.ca) +
                   " (a file of PEM certificates)";
        case httplib::Error::SSLServerVerification: {
            long v = client.get_openssl_verify_result();
            if (v == X509_V_OK) {
                return "the certificate of " + at + " doesn't name its host (use the name or address it "
                       "was made for in --gateway)";
            }
            return "the certificate of " + at + " is not trusted: " + X509_verify_cert_error_string(v) +
                   (options_.ca.empty() ? " (give the CA certificate that signed it with --ca FILE)"
                                        : " (is --ca " + options_.ca + " the CA that signed it?)");
        }
        case httplib::Error::Read:
            if (seconds >= readTimeout - 0.5) return "";  // a time-out: the caller's Timeout
            return at + " closed the connection without an answer" +
                   (address_.tls ? std::string() : " (does it want https://?)");
        case httplib::Error::Write:
            return "the connection to " + at + " broke while the request was sent";
        case httplib::Error::Canceled:
            return "the request to " + at + " was cancelled";
        default:
            return "the request to " + at + " failed: " + httplib::to_string(static_cast<httplib::Error>(error));
    }
}

void Http::CheckToken(const Answer& a) const {
    if (a.status == 401) {
        if (options_.token.empty()) {
            throw StartError("the gateway at " + options_.url + " wants a token (401: " + a.Error() +
                             "): give it with --token T or in ZANTH_TOKEN");
        }
        throw StartError("the gateway at " + options_.url + " refused the token (401: " + a.Error() +
                         "): check --token or ZANTH_TOKEN against its [[tokens]] (zanthd --hash-token makes "
                         "a token and its entry)");
    }
    // A 403 for the token's scope, not for the export: the pre-routing check says "the token".
    if (a.status == 403 && a.Error().rfind("the token ", 0) == 0) {
        throw StartError("the gateway at " + options_.url + " refused it: " + a.Error() +
                         "; give --token (or ZANTH_TOKEN) a token of that scope");
    }
}

Answer Http::Take(Client& client, httplib::Result& result, std::chrono::steady_clock::time_point started) const {
    if (!result) {
        double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        double limit = static_cast<double>(client.readTimeout.count());
        std::string why = Unreachable(*client.http, static_cast<int>(result.error()), seconds, limit);
        if (why.empty()) {
            throw Timeout("no answer from the gateway at " + options_.url + " within " + Seconds(limit) + " s");
        }
        throw StartError(why);
    }
    Answer a;
    a.status = result->status;
    a.text = result->body;
    a.body = nlohmann::json::parse(a.text, nullptr, false);
    if (a.body.is_discarded()) a.body = nullptr;
    CheckToken(a);
    return a;
}

Answer Http::Send(Client& client, const std::string& method, const std::string& path,
                  const std::string& body) const {
    auto started = std::chrono::steady_clock::now();
    httplib::Client& c = *client.http;
    httplib::Result r = method == "GET"      ? c.Get(path)
                        : method == "DELETE" ? c.Delete(path)
                        : method == "PUT"    ? c.Put(path, body, "application/json")
                                             : c.Post(path, body, "application/json");
    return Take(client, r, started);
}

std::string Escape(std::string_view text) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : text) {
        bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
                     c == '.' || c == '_' || c == '~';
        if (plain) {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += kHex[c >> 4];
            out += kHex[c & 15];
        }
    }
    return out;
}

std::string Base64(const Bytes& bytes) {
    std::string out(4 * ((bytes.size() + 2) / 3), '\0');
    int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()), bytes.data(), static_cast<int>(bytes.size()));
    out.resize(static_cast<size_t>(n));
    return out;
}

std::optional<Bytes> FromBase64(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    Bytes out(text.size() / 4 * 3);
    int n = EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
    if (n < 0) return std::nullopt;
    // EVP_DecodeBlock counts the padding as zero bytes.
    size_t pad = text.size() >= 2 && text[text.size() - 1] == '=' ? (text[text.size() - 2] == '=' ? 2 : 1) : 0;
    out.resize(static_cast<size_t>(n) - pad);
    return out;
}

}  // namespace zanth::cli::gateway
