// What a client can send zanthd, fuzzed: the JSON bodies of the rules API, the events queries,
// ids and MACs from paths, the console's Cookie, Origin and CSRF headers, the call path's
// arguments to every export, with a reply frame for the calls that pass their checks, and a
// request over the message bus (its topic is the input's first line, its body the rest; read with
// and without an HMAC secret). Each parser must answer with a result or a named error,
// never crash, and a body it accepts must read back the same after a round trip through its
// JSON. The library is never loaded: a prepared call is checked and its reply decoded, not made.
//
// For the call path an input "@Export\n{args}\nframe" names its export; any other input is the
// arguments of the export its first byte picks, and the frame is the input itself.

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "gateway/ApiInput.h"
#include "gateway/ConsoleSession.h"
#include "gateway/Model.h"
#include "gateway/MqttRequest.h"
#include "gateway/PayloadCodec.h"

namespace {

std::vector<std::string>& Exports() {
    static std::vector<std::string> names = [] {
        std::vector<std::string> n = zanthd::CallableExports();
        // A few the gateway keeps to itself, and one that doesn't exist.
        for (const char* other : {"Shutdown", "GetNextEvent", "SetEventCallback", "NoSuchExport"}) n.push_back(other);
        return n;
    }();
    return names;
}

zanthd::CallOptions& Options() {
    static zanthd::CallOptions o = [] {
        zanthd::CallOptions options;
        options.filesDir = std::filesystem::temp_directory_path() / ("zanthd-fuzz-" + std::to_string(::getpid())) / "files";
        std::error_code ec;
        std::filesystem::create_directories(options.filesDir, ec);
        return options;
    }();
    return o;
}

void FuzzCall(const std::string& text) {
    std::string name, args, frame;
    if (text.size() > 1 && text[0] == '@') {
        size_t a = text.find('\n');
        size_t b = a == std::string::npos ? std::string::npos : text.find('\n', a + 1);
        name = text.substr(1, a == std::string::npos ? std::string::npos : a - 1);
        args = a == std::string::npos ? "" : text.substr(a + 1, b == std::string::npos ? std::string::npos : b - a - 1);
        frame = b == std::string::npos ? "" : text.substr(b + 1);
    } else if (!text.empty()) {
        name = Exports()[static_cast<unsigned char>(text[0]) % Exports().size()];
        args = text.substr(1);
        frame = text;
    }
    nlohmann::json j = nlohmann::json::parse(args, nullptr, false);
    zanthd::PreparedCall call;
    zanthd::CallProblem problem;
    if (!zanthd::PrepareCall(name, j, Options(), &call, &problem)) {
        bool named = problem.status == 400 || problem.status == 403 || problem.status == 404;
        if (!named || problem.error.empty() || problem.suggestions.size() > 3) std::abort();
        return;
    }
    if (!call.AuditArgs().is_object()) std::abort();
    if (call.Way() != zanthd::CallWay::kRsp) return;
    zanthd::CallResult r = zanthd::DecodeReply(call, frame);
    // A reply that fails its command's rule carries no outputs, as the blocking form writes none.
    if (!r.outputs.is_object() || (!r.ok && !r.outputs.empty())) std::abort();
    // What the client is shown: bytes as base64, texts whatever the controller sent.
    r.outputs.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void FuzzBusRequest(const std::string& text) {
    size_t newline = text.find('\n');
    std::string topic = text.substr(0, newline);
    std::string payload = newline == std::string::npos ? "" : text.substr(newline + 1);
    for (const char* secret : {"", "a-shared-secret-of-the-site"}) {
        zanthd::BusRequestOptions options;
        options.prefix = "zanth/site";
        options.hmacSecret = secret;
        zanthd::BusRequest request;
        zanthd::BusRefusal refusal;
        if (!zanthd::ParseBusRequest(options, topic, payload, 1732450000, &request, &refusal)) {
            if ((refusal.status != 400 && refusal.status != 401) || refusal.error.empty()) std::abort();
            if (!refusal.replyTo.empty() && !zanthd::ValidReplyTopic(options.prefix, refusal.replyTo)) std::abort();
            continue;
        }
        // Only a request that can be answered, on a topic of the gateway's reply level, is taken.
        if (request.id.empty() || request.id.size() > 128 || !zanthd::ValidReplyTopic(options.prefix, request.replyTo) ||
            request.exportName.empty() || request.exportName.find('/') != std::string::npos || !request.args.is_object()) {
            std::abort();
        }
        if (!request.mac.empty() && (zanthd::NormalizeMac(request.mac) != request.mac || request.args["mac"] != request.mac)) {
            std::abort();
        }
        // What it asks goes the call path's way: checked, and refused by name or prepared.
        zanthd::PreparedCall call;
        zanthd::CallProblem problem;
        if (!zanthd::PrepareCall(request.exportName, request.args, Options(), &call, &problem) && problem.error.empty()) {
            std::abort();
        }
    }
}

// The console's session check on headers the input makes up: a cookie that isn't the session's
// never passes, whatever the rest says; one that is passes only as the rules say.
void FuzzSession(const std::string& text) {
    static zanthd::Sessions sessions(std::chrono::seconds(60), std::chrono::seconds(600), 8080, false);
    static const zanthd::Session real = sessions.Open("officer", zanthd::Scope::Operator, 1);
    std::string id = sessions.IdIn(text);
    if (!id.empty() && id != "-" &&
        (id.size() != 64 || id.find_first_not_of("0123456789abcdef") != std::string::npos)) {
        std::abort();
    }
    // The input's lines: method, cookie header, origin, host, Sec-Fetch-Site, CSRF token.
    std::vector<std::string> parts;
    for (size_t start = 0; parts.size() < 6;) {
        size_t nl = text.find('\n', start);
        parts.push_back(text.substr(start, nl == std::string::npos ? std::string::npos : nl - start));
        if (nl == std::string::npos) break;
        start = nl + 1;
    }
    parts.resize(6);
    zanthd::CookieRequest req{parts[0], parts[1], parts[2], parts[3], parts[4], parts[5]};
    zanthd::Session got;
    bool known = sessions.IdIn(req.cookieHeader) == real.id;
    if (sessions.Check(req, 2, &got) == zanthd::CookieVerdict::kOk && !known) std::abort();
    // The same headers with the real session's cookie in front.
    req.cookieHeader = sessions.CookieName() + "=" + real.id + "; " + req.cookieHeader;
    zanthd::CookieVerdict v = sessions.Check(req, 3, &got);
    bool foreign = (!req.origin.empty() && !zanthd::Sessions::SameOrigin(req.origin, req.host, false)) ||
                   req.fetchSite == "cross-site" || req.fetchSite == "same-site";
    bool change = !zanthd::Sessions::Safe(req.method);
    bool expected = !foreign && (!change || req.csrf == real.csrf);
    if ((v == zanthd::CookieVerdict::kOk) != expected) std::abort();
    if (v == zanthd::CookieVerdict::kOk && got.name != "officer") std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    FuzzCall(text);
    FuzzBusRequest(text);
    FuzzSession(text);
    zanthd::ApiError error;
    zanthd::CardholderInput holder;
    if (zanthd::ParseCardholder(text, &holder, &error)) {
        zanthd::CardholderInput again;
        if (!zanthd::ParseCardholder(zanthd::ToJson(holder), &again, &error) ||
            zanthd::ToJson(again) != zanthd::ToJson(holder)) {
            std::abort();
        }
    } else if (error.status < 400 || error.status > 499 || error.message.empty()) {
        std::abort();
    }
    zanthd::ScheduleInput schedule;
    if (zanthd::ParseSchedule(text, &schedule, &error)) {
        zanthd::ScheduleInput again;
        if (!zanthd::ParseSchedule(zanthd::ToJson(schedule), &again, &error)) std::abort();
    }
    // The query's parts: the text cut in three at its first two '&'.
    size_t a = text.find('&');
    size_t b = a == std::string::npos ? std::string::npos : text.find('&', a + 1);
    std::string after = text.substr(0, a);
    std::string limit = a == std::string::npos ? "" : text.substr(a + 1, b == std::string::npos ? std::string::npos : b - a - 1);
    std::string kind = b == std::string::npos ? "" : text.substr(b + 1);
    zanthd::EventsQuery q;
    if (zanthd::ParseEventsQuery(&after, &limit, &kind, &q, &error)) {
        if (q.limit < 1 || q.limit > 1000 || q.after < 0) std::abort();
    }
    int64_t id = 0;
    if (zanthd::ParseId(text, &id) && id < 1) std::abort();
    std::string mac = zanthd::NormalizeMac(text);
    if (!mac.empty() && (mac.size() != 8 || zanthd::NormalizeMac(mac) != mac)) std::abort();
    zanthd::ZanthPayloadCodec codec;
    codec.ParseRecord(text);
    codec.ParseLookup(text);
    codec.ParsePin(text);
    codec.ParseDoorReport(text);
    return 0;
}
