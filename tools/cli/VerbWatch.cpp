// zanth watch: what the controllers send of their own accord, as it comes.

#include <cstdio>
#include <map>
#include <thread>

#include "tools/cli/Platform.h"
#include "tools/cli/Text.h"
#include "tools/cli/Verbs.h"

namespace zanth::cli {
namespace {

std::string Now() {
    using namespace std::chrono;
    auto now = system_clock::now();
    std::tm t = platform::LocalTime(system_clock::to_time_t(now));
    auto ms = duration_cast<milliseconds>(now.time_since_epoch()).count() % 1000;
    char out[32];
    std::snprintf(out, sizeof out, "%02d:%02d:%02d.%03d", t.tm_hour, t.tm_min, t.tm_sec, static_cast<int>(ms));
    return out;
}

}  // namespace

int RunWatch(Context& ctx) {
    std::optional<double> seconds = ctx.SecondsOption("--for");
    std::optional<int64_t> count = ctx.IntOption("--count", 1, INT64_MAX);
    std::optional<int64_t> after = ctx.IntOption("--after", 0, INT64_MAX);
    bool gateway = !ctx.inv.gateway.empty();
    if (after && !gateway) {
        throw UsageError("--after names a record of the gateway's journal: it goes with --gateway", ctx.inv.verb);
    }
    if (gateway && ctx.Flag("--backlog")) {
        throw UsageError("--backlog reads the library's message files; through --gateway they are in its "
                         "journal, which --after ID replays",
                         ctx.inv.verb);
    }
    // The backlog goes before the controllers come, so that nothing of this run is dropped.
    Transport& library = ctx.Library();
    if (!ctx.Flag("--backlog")) {
        auto [events, alarms] = library.DropBacklog();
        if (events || alarms) {
            ctx.out.Note("skipped " + std::to_string(events) + " events and " + std::to_string(alarms) +
                         " alarms left unread by earlier runs (--backlog shows them)");
        }
    }
    Transport& t = ctx.Reach({}, true, after);
    ctx.out.Note("watching " + t.Where() + (seconds || count ? "" : "; Ctrl-C stops"));

    auto start = std::chrono::steady_clock::now();
    auto deadline = seconds ? start + std::chrono::milliseconds(static_cast<int64_t>(*seconds * 1000))
                            : std::chrono::steady_clock::time_point::max();
    std::map<std::string, uint64_t> counts;
    uint64_t total = 0;
    while (!platform::Interrupted() && std::chrono::steady_clock::now() < deadline &&
           !(count && total >= static_cast<uint64_t>(*count))) {
        std::optional<Notice> n = t.NextNotice();
        if (!n) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            continue;
        }
        if (n->remark) {
            ctx.out.Note("zanth: " + n->text);
            continue;
        }
        ++counts[n->kind];
        ++total;
        std::string at = Now();
        ctx.out.Line(at + " " + n->kind + std::string(n->kind.size() < 10 ? 10 - n->kind.size() : 1, ' ') + n->text +
                     (n->decision.empty() ? "" : "  -> " + n->decision));
        JsonObject o;
        o.Add("kind", n->kind).Add("text", n->text).Add("time", at);
        if (n->id > 0) o.Add("id", n->id);
        if (!n->decision.empty()) o.Add("decision", n->decision);
        ctx.out.Json(o);
    }
    double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::string summary, json;
    for (const auto& [kind, n] : counts) {
        summary += (summary.empty() ? "" : ", ") + std::to_string(n) + " " + kind;
        json += std::string(json.empty() ? "" : ",") + JsonString(kind) + ":" + std::to_string(n);
    }
    ctx.out.Note("watched " + Duration(took) + ": " + (summary.empty() ? "nothing came" : summary));
    ctx.out.Json(JsonObject()
                     .Add("watched_s", took)
                     .Add("notices", total)
                     .AddRaw("counts", "{" + json + "}")
                     .Add("interrupted", platform::Interrupted()));
    // Ctrl-C is how a watch is ended.
    return kExitOk;
}

}  // namespace zanth::cli
