#pragma once
// The command line's grammar: global options anywhere, a verb (one or two words), its
// arguments and its own options. A small parser of our own: it must build with the mingw cross
// compiler, which sees only the headers it is given, and it must give the answers this tool
// promises (the closest names, the verb's usage) in its own words.

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace zanth::cli {

struct Verb;

struct OptionSpec {
    const char* name;   // "--for"
    const char* value;  // "S" for an option with a value, nullptr for a flag
    const char* help;
};

struct Invocation {
    // Global options.
    std::string dataDir;
    std::string library;
    bool json = false;
    int port = 3001;
    bool portGiven = false;
    std::vector<std::string> wait;
    double timeout = 30;
    std::vector<std::string> contacts;
    std::string valid;
    std::string gateway;  // zanthd's URL: the verbs work through it
    std::string token;    // its bearer token (--token; ZANTH_TOKEN is read where it is used)
    std::string ca;       // the CA of an https gateway's certificate
    bool help = false;
    bool version = false;
    // The verb, its words' arguments, and its own options (a flag's value is "").
    const Verb* verb = nullptr;
    std::vector<std::string> args;
    std::map<std::string, std::string> options;
};

// A command line that doesn't parse; `verb` is the verb whose usage to show, if known.
class UsageError : public std::runtime_error {
  public:
    UsageError(const std::string& what, const Verb* verb = nullptr)
        : std::runtime_error(what), verb_(verb) {}
    const Verb* verb() const { return verb_; }

  private:
    const Verb* verb_;
};

Invocation Parse(const std::vector<std::string>& argv);

// A gateway's URL: http:// or https://, a host, maybe a port and a path that leads to its
// /api/v1 (a trailing /api/v1 is taken off).
struct GatewayAddress {
    bool tls = false;
    std::string origin;  // "https://host:port", what a client connects to
    std::string prefix;  // "" or "/site-a": the path before /api/v1
};
std::optional<GatewayAddress> ParseGatewayUrl(const std::string& url);

const std::vector<OptionSpec>& GlobalOptions();

}  // namespace zanth::cli
