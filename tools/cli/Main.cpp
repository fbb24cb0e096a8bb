// zanth: the command line of libzanth. See GeneralHelp (Help.cpp) for what it does.

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "tools/cli/Platform.h"
#include "tools/cli/Text.h"
#include "tools/cli/Verbs.h"

namespace {

using namespace zanth::cli;

// Reports a failure on stderr (and as a JSON object with --json) and gives its exit status.
int Report(const Output& out, int status, const std::string& message, const std::string& usage = "",
           const Result* result = nullptr) {
    std::string text = "zanth: " + message;
    if (!usage.empty()) text += "\n" + usage;
    if (!text.empty() && text.back() == '\n') text.pop_back();
    out.Note(text);
    JsonObject o;
    o.Add("error", message).Add("exit", status);
    if (result != nullptr) {
        o.Add("result", static_cast<int64_t>(result->code)).Add("name", result->name).Add("meaning", result->meaning);
    }
    out.Json(o);
    return status;
}

std::string UsageOf(const Invocation& inv, const std::string& exportName) {
    if (!exportName.empty() && inv.verb && std::string(inv.verb->name) == "call") {
        if (auto e = model::Find(exportName)) return ExportUsage(*e);
    }
    return inv.verb ? VerbUsage(*inv.verb) : "";
}

int Run(Context& ctx) {
    const Invocation& inv = ctx.inv;
    try {
        return inv.verb->run(ctx);
    } catch (const UsageError& e) {
        return Report(ctx.out, kExitUsage, e.what(), e.verb() ? VerbUsage(*e.verb()) : UsageOf(inv, ""));
    } catch (const ArgError& e) {
        return Report(ctx.out, kExitUsage, e.what(), UsageOf(inv, e.exportName()));
    } catch (const UnknownName& e) {
        return Report(ctx.out, kExitUsage, e.what() + DidYouMean(e.suggestions()),
                      "zanth help exports lists them all");
    } catch (const StartError& e) {
        return Report(ctx.out, kExitNoLibrary, e.what());
    } catch (const Timeout& e) {
        return Report(ctx.out, kExitTimeout, e.what());
    } catch (const Interrupted&) {
        return Report(ctx.out, kExitInterrupted, "interrupted before the work began; nothing was done");
    } catch (const Failure& e) {
        return Report(ctx.out, kExitFailed, e.what(), "", &e.result());
    } catch (const std::exception& e) {
        return Report(ctx.out, kExitFailed, e.what());
    }
}

}  // namespace

int main(int argc, char** argv) {
    platform::CatchInterrupts();
    std::vector<std::string> args(argv + 1, argv + argc);
    std::error_code ec;
    std::filesystem::path start = std::filesystem::current_path(ec);
    bool json = false;
    for (const std::string& a : args) json = json || a == "--json";

    Invocation inv;
    try {
        inv = Parse(args);
    } catch (const UsageError& e) {
        return Report(Output(json), kExitUsage, e.what(),
                      e.verb() ? VerbUsage(*e.verb()) : "zanth --help lists the commands and options");
    }
    if (inv.version) {
        std::printf("zanth %s (API model of libzanth %s, %zu exports)\n", ZANTH_CLI_VERSION,
                    model::LibraryVersion().c_str(), model::ExportCount());
        return kExitOk;
    }
    if (inv.verb == nullptr) {
        std::fputs(GeneralHelp().c_str(), inv.help ? stdout : stderr);
        return inv.help ? kExitOk : kExitUsage;
    }
    Context ctx(inv, start);
    if (inv.help) {
        // zanth COMMAND --help, and zanth call EXPORT --help.
        if (std::string(inv.verb->name) == "call" || std::string(inv.verb->name) == "help") {
            return RunHelp(ctx);
        }
        std::fputs(VerbHelp(*inv.verb).c_str(), stdout);
        return kExitOk;
    }
    return Run(ctx);
}
