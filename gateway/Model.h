#pragma once
// The call path's model side: an export named by a client, with its arguments as JSON under the
// header's parameter names, checked against the API model (types, bounds, patterns) before
// anything reaches the library; then sent through its Rsp form, or run in its blocking form, and
// its reply decoded into the blocking form's named outputs. zanth.hpp stays inside Model.cpp:
// the rest of zanthd sees only these types. No function here throws.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace zanthd {

// How a prepared call reaches the library.
enum class CallWay {
    kRsp,       // its Rsp form, the reply by the response router
    kBlocking,  // its blocking form, on the gateway's one worker for blocking calls
    kLocal,     // a local export that answers at once (the library's version, its controllers)
};

// A call refused before anything was sent: 400 (an argument; `field` names it), 403 (an export
// the gateway keeps to itself) or 404 (no such export; `suggestions` are the closest names).
struct CallProblem {
    int status = 400;
    std::string error;
    std::string field;
    std::vector<std::string> suggestions;
};

// What a call gave: the result its blocking form would have returned, whether the export's rule
// calls it a success, and the blocking form's outputs (bytes as base64 texts).
struct CallResult {
    int32_t result = 0;
    bool ok = false;
    nlohmann::json outputs = nlohmann::json::object();
};

struct CallOptions {
    // Parameters that name a file on the gateway's host are confined to this folder.
    std::filesystem::path filesDir;
    // The library's own form of a controller's MAC ("XX:XX:XX" as the client gave it
    // normalised); none: the normalised form.
    std::function<std::string(const std::string& mac)> macForm;
    // Whether a controller is connected now, for the calls whose Rsp form can't tell; none:
    // taken as connected.
    std::function<bool(const std::string& mac)> connected;
};

class PreparedCall {
  public:
    struct Impl;
    PreparedCall();
    ~PreparedCall();
    PreparedCall(const PreparedCall&);
    PreparedCall& operator=(const PreparedCall&);

    const std::string& Name() const;  // the export asked for
    const std::string& Mac() const;   // normalised, empty for a local export
    CallWay Way() const;
    // False when the controller sends no reply that the call waits for (an Rsp call answered
    // by its local result).
    bool AwaitsReply() const;
    // The Rsp form's own result says nothing (not even whether the message went out): the caller
    // tells a controller that isn't connected by other means.
    bool SentUnconfirmed() const;
    // The arguments as given, for the audit record: PINs and passwords masked, bytes counted.
    nlohmann::json AuditArgs() const;

    std::shared_ptr<const Impl> impl;
};

// Checks `args` (a JSON object) against the export `name` and prepares the call.
bool PrepareCall(const std::string& name, const nlohmann::json& args, const CallOptions& options,
                 PreparedCall* out, CallProblem* problem);

// The Rsp form with `rspid`: its local result (0: queued, the reply comes to the router).
int32_t SendRsp(const PreparedCall& call, uint32_t rspid);
// A reply frame "CCCC;LLLL;payload" decoded as the blocking form would have read it.
CallResult DecodeReply(const PreparedCall& call, const std::string& frame);
// The blocking or local form, on this thread.
CallResult RunHere(const PreparedCall& call);
// A result that came without outputs (a local refusal).
CallResult ResultOnly(const PreparedCall& call, int32_t result);

// "kNotConnected" for a library result, "ok" for 0; what it means.
std::string ResultName(int32_t result);
std::string ResultMeaning(int32_t result);

// The exports a client may call through the call path (commands and local information).
std::vector<std::string> CallableExports();

// Base64 of bytes and back (false: not base64).
std::string Base64(const std::string& bytes);
bool FromBase64(const std::string& text, std::string* bytes);

}  // namespace zanthd
