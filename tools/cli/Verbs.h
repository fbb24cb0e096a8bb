#pragma once
// The verbs of the command line, and what each verb is given to run: its arguments, the output,
// and the way to the controllers.

#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/cli/Api.h"
#include "tools/cli/CommandLine.h"
#include "tools/cli/Output.h"

namespace zanth::cli {

// Exit statuses, as --help and the README list them.
enum Exit : int {
    kExitOk = 0,
    kExitFailed = 1,       // the library or a controller answered with a failure, or a local file failed
    kExitUsage = 2,        // a bad command line or argument: the usage of that command is shown
    kExitTimeout = 3,      // a controller didn't connect within --timeout
    kExitPartial = 4,      // the work ran to its end but some items failed (bad lines, refused or differing records)
    kExitNoLibrary = 5,    // the library couldn't be loaded or started (not found, port taken)
    kExitInterrupted = 130 // Ctrl-C: stopped cleanly, what was done is reported
};

// Ctrl-C while waiting, outside the work that reports what it did.
class Interrupted : public std::runtime_error {
  public:
    Interrupted() : std::runtime_error("interrupted") {}
};

class Context;

struct Verb {
    const char* name;     // "cards load"
    const char* args;     // "MAC[,MAC...] FILE"
    size_t minArgs, maxArgs;
    const char* summary;  // one line
    const char* help;     // the rest of its help
    std::vector<OptionSpec> options;
    int (*run)(Context&);
};

const std::vector<Verb>& Verbs();
const Verb* FindVerb(const std::string& name);
std::vector<std::string> VerbNames();

// Help texts (Help.cpp).
std::string GeneralHelp();
std::string VerbUsage(const Verb& verb);
std::string VerbHelp(const Verb& verb);
// The usage of `call` for one export, and its whole help from the model.
std::string ExportUsage(const model::Export& e);
std::string ExportHelp(const model::Export& e);

class Context {
  public:
    Context(const Invocation& inv, std::filesystem::path startDir);
    ~Context();

    const Invocation& inv;
    const Output out;

    const std::string& Arg(size_t i) const { return inv.args.at(i); }
    size_t ArgCount() const { return inv.args.size(); }
    std::optional<std::string> Option(const std::string& name) const;
    bool Flag(const std::string& name) const { return inv.options.count(name) != 0; }
    // A number option within bounds; UsageError otherwise.
    std::optional<int64_t> IntOption(const std::string& name, int64_t min, int64_t max) const;
    std::optional<double> SecondsOption(const std::string& name) const;
    // MACs in a comma-separated argument.
    std::vector<std::string> Macs(const std::string& arg) const;

    // A path the user gave, made absolute from where the command line was started: the
    // program works in its data folder.
    std::filesystem::path LocalPath(const std::string& path) const;

    // The way to the controllers: the library, loaded on first use once the command line is in
    // its data folder, or the gateway of --gateway.
    Transport& Library();
    // The library, taking controllers (listening, calling --contact), or the gateway, with
    // these MACs and those of --wait connected: Timeout when one doesn't come within --timeout.
    Transport& Reach(const std::vector<std::string>& macs, bool linkNotices = false,
                     std::optional<int64_t> noticesAfter = std::nullopt);

  private:
    std::filesystem::path startDir_;
    std::unique_ptr<Transport> transport_;
};

// The verbs' bodies.
int RunList(Context&);
int RunInfo(Context&);
int RunTime(Context&);
int RunOpen(Context&);
int RunCall(Context&);
int RunHelp(Context&);
int RunCardsLoad(Context&);
int RunCardsCheck(Context&);
int RunCardsGet(Context&);
int RunFilePut(Context&);
int RunFileGet(Context&);
int RunWatch(Context&);

// A failed call as the verbs report it: the result's name and meaning from the model.
[[noreturn]] void Fail(const std::string& context, const Result& r);

}  // namespace zanth::cli
