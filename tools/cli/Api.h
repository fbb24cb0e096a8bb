#pragma once
// What the verbs need of the library and of its API model, in plain C++ types.
//
// zanth.hpp with its dynamic layer takes long to compile (about 20 s a file under the sanitizers),
// so only two files include it: Model.cpp (the API model: names, parameters, checks, reply
// decoding) and LibraryTransport.cpp (the library itself, loaded at run time). Everything else
// sees this header. The value types are the very types of zanth.hpp (the same std::variant and
// std::map), so nothing is converted between the two.

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace zanth::cli {

using Bytes = std::vector<unsigned char>;
using Value = std::variant<int64_t, std::string, Bytes>;
using Args = std::map<std::string, Value, std::less<>>;
using Outputs = Args;

// An argument that doesn't fit the model; nothing was called. `param` is empty when the export
// as a whole can't be called so.
class ArgError : public std::invalid_argument {
  public:
    ArgError(std::string exportName, std::string param, std::string why)
        : std::invalid_argument((param.empty() ? exportName : exportName + ": " + param) + ": " + why),
          exportName_(std::move(exportName)), param_(std::move(param)), why_(std::move(why)) {}
    const std::string& exportName() const { return exportName_; }
    const std::string& param() const { return param_; }
    const std::string& why() const { return why_; }

  private:
    std::string exportName_, param_, why_;
};

// A name that is no export.
class UnknownName : public std::out_of_range {
  public:
    UnknownName(std::string name, std::vector<std::string> suggestions)
        : std::out_of_range("no export named '" + name + "'"), name_(std::move(name)),
          suggestions_(std::move(suggestions)) {}
    const std::string& name() const { return name_; }
    const std::vector<std::string>& suggestions() const { return suggestions_; }

  private:
    std::string name_;
    std::vector<std::string> suggestions_;
};

// The library could not be loaded or started, or the gateway could not be reached or refused
// the token.
class StartError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// A controller that didn't come within --timeout, or (through a gateway) a command that got no
// answer within the gateway's deadline.
class Timeout : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// A call's result, judged by the export's success rule.
struct Result {
    std::string exportName;
    int32_t code = 0;
    bool ok = false;
    bool empty = false;  // a poll that found nothing
    std::string name, meaning;
    Outputs outputs;
};

// A call that failed by its export's rule, or could not be made; `context` says what was being
// done ("calling 127.0.0.1:4000").
class Failure : public std::runtime_error {
  public:
    Failure(const std::string& context, Result result)
        : std::runtime_error(context + ": " + std::to_string(result.code) + " " + result.name + ": " +
                             result.meaning),
          result_(std::move(result)) {}
    const Result& result() const { return result_; }

  private:
    Result result_;
};

// A reply from the response queue, decoded as its blocking form would have given it.
struct Reply {
    uint32_t rspid = 0;
    std::string frame;
    int32_t replyCode = 0;  // the frame's code (1033, 9980, ...)
    int32_t result = 0;     // what the blocking form would have returned
    bool ok = false;
    bool raw = false;       // a reply without a layout: outputs["payload"] holds its payload
    std::string name, meaning;
    Outputs outputs;
};

// A reply from the response queue: its raw frame, or, through a gateway (which reads the replies
// itself), already decoded.
struct Incoming {
    uint32_t rspid = 0;
    std::string frame;
    std::optional<Reply> decoded;
};

// The API model (Model.cpp).
namespace model {

enum class Kind { kInteger, kCharacter, kText, kBytes };

struct Param {
    std::string name, ctype;
    Kind kind = Kind::kInteger;
    bool input = false;      // a caller gives it, in the mode asked for
    bool output = false;     // it comes back
    bool size = false;       // the size of an output buffer: optional, given by name
    bool rspid = false;      // the tag of a Rsp form's reply
    bool mac = false;
    bool localPath = false;  // a path on this computer's disk
    bool byMode = false;     // in or out by `mode`
    std::string bounds;      // what it must be, for a person ("0 to 32", "a date yyyy/mm/dd")
    int64_t defaultSize = 0;
};

struct Export {
    std::string name, decl, doc, family, familyNotes, form, twin, category, rule, ruleDoc, why;
    bool callable = true;     // not a callback registration
    bool hasMac = false;
    bool rsp = false;         // a Rsp form: its reply comes later under rspid
    bool decodable = false;   // its replies can be decoded
    int modeParam = -1;       // index of `mode`, -1: none
    std::vector<int64_t> modes;
    // A setting that moves the library's own files (the log folder, remembered per user): the
    // command line never changes it, since its data folder is where the library's files belong.
    bool movesOwnFiles = false;
    std::vector<Param> params;
};

// Nothing for an unknown name; `mode` decides which parameters go in or come out.
std::optional<Export> Find(std::string_view name, std::optional<int64_t> mode = {});
std::vector<std::string> Names();
std::vector<std::string> Suggest(std::string_view name, size_t max = 3);
// Throws ArgError (nothing is called) or UnknownName.
void Check(std::string_view name, const Args& args);
// The reply of a Rsp form (or its blocking twin) as the blocking form would have given it.
Reply Decode(std::string_view name, uint32_t rspid, std::string_view frame, const Args& args = {});
std::string ResultName(int32_t code);
std::string ResultMeaning(int32_t code);
std::string LibraryVersion();
size_t ExportCount();

}  // namespace model

// How the command line reaches controllers.
struct Reach {
    int32_t port = 3001;
    bool portGiven = false;
    std::vector<std::string> contacts;  // HOST:PORT, called through ContactController
    std::string valid;                  // the valid list: named MACs, or ALL
    // Connects and disconnects wanted as notices (watch). Their callback thread lives until the
    // library is unloaded, so it is only started when wanted.
    bool linkNotices = false;
    // Through a gateway: the notices after this record of its journal; none: from now on.
    std::optional<int64_t> noticesAfter;
};

// Something a controller sent of its own accord, or a link that came or went.
struct Notice {
    std::string kind;  // event, alarm, lookup, pin, door, keypad, commandkey, hereiam, connect, disconnect
    std::string text;
    int64_t id = 0;        // through a gateway: the record's id in its journal
    std::string decision;  // through a gateway: how it answered a look-up (grant, deny)
    // Not from a controller but about the way to them (a gateway's stream that dropped and
    // resumed): shown as a note, not counted.
    bool remark = false;
};

// A whole file moved to or from a controller by the way to it (a gateway's files resource).
struct FileMove {
    bool complete = false;
    bool interrupted = false;  // Ctrl-C before the transfer to the controller began
    uint64_t bytes = 0;        // moved to or from the controller
    Bytes data;                // fetched: the file
    std::string why;           // what went wrong
};

// The way to the controllers: the library in this process (MakeLibraryTransport), or zanthd's
// REST API where zanthd owns the port (MakeGatewayTransport), with the same calls, the same
// replies and notices.
class Transport {
  public:
    virtual ~Transport() = default;
    // Starts taking controllers (listening, calling the contacts). Throws StartError.
    virtual void Open(const Reach& reach) = 0;
    virtual bool IsOpen() const = 0;
    // Where controllers come in, for messages ("port 3001").
    virtual std::string Where() const = 0;
    virtual std::vector<std::string> Connected() = 0;
    // A blocking or local export by name; throws ArgError or UnknownName before any call.
    virtual Result Call(std::string_view exportName, const Args& args) = 0;
    // A Rsp form by name, with its rspid among the arguments: the result says whether it was
    // queued; its reply comes from NextReply.
    virtual Result Submit(std::string_view rspExport, const Args& args) = 0;
    // The next reply of the response queue; nothing when it is empty.
    virtual std::optional<Incoming> NextReply() = 0;
    // The next notice; nothing when none is waiting.
    virtual std::optional<Notice> NextNotice() = 0;
    // Unread events and alarms kept in the message files since an earlier run; read and
    // dropped. Returns how many of each.
    virtual std::pair<uint64_t, uint64_t> DropBacklog() = 0;

    // Through zanthd rather than the library in this process.
    virtual bool ThroughGateway() const { return false; }
    // A whole file to or from a controller where the way to it moves the chunks itself;
    // nothing where it doesn't, and the verb sends the chunks through Submit. `progress` hears
    // of the bytes moved between this computer and the gateway.
    virtual std::optional<FileMove> PutFile(const std::string& mac, const std::string& remote, const Bytes& data,
                                            const std::function<void(uint64_t)>& progress) {
        (void)mac, (void)remote, (void)data, (void)progress;
        return std::nullopt;
    }
    virtual std::optional<FileMove> GetFile(const std::string& mac, const std::string& remote,
                                            const std::function<void(uint64_t)>& progress) {
        (void)mac, (void)remote, (void)progress;
        return std::nullopt;
    }
};

// Loads the library from `path` (the working directory and the per-user store must already be
// the command line's own). Throws StartError naming the library.
std::unique_ptr<Transport> MakeLibraryTransport(const std::string& path);

struct GatewayOptions {
    std::string url;    // http:// or https://, the host and port, maybe a path before /api/v1
    std::string token;  // the bearer token; empty: none
    std::string ca;     // a PEM file of the CA behind an https gateway's certificate; empty: the system's
};

// zanthd's REST API at `url`; nothing is sent before the first call. Throws StartError where
// this build has no gateway transport.
std::unique_ptr<Transport> MakeGatewayTransport(const GatewayOptions& options);

// Two MACs name the same controller: case and separators don't matter.
bool SameMac(std::string_view a, std::string_view b);

}  // namespace zanth::cli
