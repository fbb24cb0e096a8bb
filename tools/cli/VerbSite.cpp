// The everyday verbs: list, info, time, open.

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <thread>

#include "tools/cli/Platform.h"
#include "tools/cli/Text.h"
#include "tools/cli/Verbs.h"

namespace zanth::cli {
namespace {

Result Must(Transport& t, const std::string& exportName, const Args& args) {
    Result r = t.Call(exportName, args);
    if (!r.ok) Fail(exportName, r);
    return r;
}

std::string Text(const Result& r, const char* output) {
    auto it = r.outputs.find(output);
    if (it == r.outputs.end()) return "";
    if (const std::string* s = std::get_if<std::string>(&it->second)) return *s;
    return Plain(it->second);
}

int64_t Number(const Result& r, const char* output) {
    auto it = r.outputs.find(output);
    if (it == r.outputs.end()) return 0;
    const int64_t* v = std::get_if<int64_t>(&it->second);
    return v ? *v : 0;
}

std::string Stamp(const std::tm& t) {
    char out[80];
    std::snprintf(out, sizeof out, "%04d/%02d/%02d %02d:%02d:%02d", t.tm_year + 1900, t.tm_mon + 1,
                  t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec);
    return out;
}

// The controller's "yyyy/mm/dd" and "h:m:s" as local time; nothing when they don't read so.
std::optional<std::time_t> ControllerTime(const std::string& date, const std::string& time) {
    int y, mo, d, h, mi, s;
    char tail;
    if (std::sscanf(date.c_str(), "%d/%d/%d%c", &y, &mo, &d, &tail) != 3) return std::nullopt;
    if (std::sscanf(time.c_str(), "%d:%d:%d%c", &h, &mi, &s, &tail) != 3) return std::nullopt;
    std::tm t{};
    t.tm_year = y - 1900;
    t.tm_mon = mo - 1;
    t.tm_mday = d;
    t.tm_hour = h;
    t.tm_min = mi;
    t.tm_sec = s;
    t.tm_isdst = -1;
    std::time_t out = std::mktime(&t);
    if (out == static_cast<std::time_t>(-1)) return std::nullopt;
    return out;
}

struct Clock {
    std::string date, time;
    std::time_t host = 0;           // this computer's time when the controller read its clock
    std::optional<int64_t> drift;  // controller less host, in seconds
};

Clock ReadClock(Transport& t, const std::string& mac) {
    using namespace std::chrono;
    auto before = system_clock::now();
    Result r = Must(t, "GetTimeDate", {{"mac", mac}});
    auto after = system_clock::now();
    Clock c;
    c.date = Text(r, "date");
    c.time = Text(r, "time");
    // The controller read its clock somewhere within the round trip: its middle is the best guess.
    auto middle = before + (after - before) / 2;
    c.host = system_clock::to_time_t(time_point_cast<seconds>(middle + milliseconds(500)));
    if (std::optional<std::time_t> at = ControllerTime(c.date, c.time)) {
        c.drift = static_cast<int64_t>(*at) - static_cast<int64_t>(c.host);
    }
    return c;
}

std::string Signed(int64_t v) { return (v > 0 ? "+" : "") + std::to_string(v); }

}  // namespace

int RunList(Context& ctx) {
    std::optional<double> given = ctx.SecondsOption("--for");
    Transport& t = ctx.Reach({});
    // A gateway holds its controllers already: nothing to wait for unless asked.
    double wait = given.value_or(t.ThroughGateway() ? 0.0 : 3.0);
    if (ctx.inv.wait.empty()) {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(static_cast<int64_t>(wait * 1000));
        // Called controllers are all there once each has identified itself.
        size_t called = ctx.inv.contacts.size();
        while (std::chrono::steady_clock::now() < deadline && !platform::Interrupted()) {
            if (called != 0 && t.Connected().size() >= called) break;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
    std::vector<std::string> macs = t.Connected();
    std::sort(macs.begin(), macs.end());
    std::string list;
    for (const std::string& m : macs) {
        ctx.out.Line(m);
        list += (list.empty() ? "" : ",") + JsonString(m);
    }
    ctx.out.Json(JsonObject().AddRaw("controllers", "[" + list + "]").Add("count", static_cast<int64_t>(macs.size())));
    ctx.out.Note(std::to_string(macs.size()) + " controller" + (macs.size() == 1 ? "" : "s") + " connected to " + t.Where());
    return platform::Interrupted() ? kExitInterrupted : kExitOk;
}

int RunInfo(Context& ctx) {
    const std::string& mac = ctx.Arg(0);
    Transport& t = ctx.Reach({mac});
    Result r = Must(t, "ControllerInfo", {{"mac", mac}});
    std::string info = Text(r, "buffer");
    ctx.out.Line(info);
    ctx.out.Json(JsonObject().Add("mac", mac).Add("info", info));
    return kExitOk;
}

int RunTime(Context& ctx) {
    const std::string& mac = ctx.Arg(0);
    Transport& t = ctx.Reach({mac});
    Clock before = ReadClock(t, mac);
    Clock now = before;
    bool set = ctx.Flag("--set");
    std::string setTo;
    if (set) {
        std::tm local = platform::LocalTime(std::time(nullptr));
        char date[48], time[48];
        std::snprintf(date, sizeof date, "%04d/%02d/%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
        std::snprintf(time, sizeof time, "%02d:%02d:%02d", local.tm_hour, local.tm_min, local.tm_sec);
        Must(t, "SetTimeDate", {{"mac", mac}, {"date", std::string(date)}, {"time", std::string(time)}});
        setTo = std::string(date) + " " + time;
        now = ReadClock(t, mac);
    }
    JsonObject o;
    o.Add("mac", mac).Add("date", now.date).Add("time", now.time).Add("host", Stamp(platform::LocalTime(now.host)));
    if (now.drift) o.Add("drift_s", *now.drift);
    o.Add("set", set);
    if (set && before.drift) o.Add("drift_before_s", *before.drift);
    ctx.out.Json(o);
    std::string line = mac + ": " + now.date + " " + now.time + ", this computer " +
                       Stamp(platform::LocalTime(now.host));
    line += now.drift ? ": drift " + Signed(*now.drift) + " s" : ": drift unknown (a date or time that doesn't read)";
    if (set) {
        ctx.out.Line("set to " + setTo + (before.drift ? " (the drift was " + Signed(*before.drift) + " s)" : ""));
    }
    ctx.out.Line(line);
    return kExitOk;
}

int RunOpen(Context& ctx) {
    const std::string& mac = ctx.Arg(0);
    std::optional<int64_t> door = ParseInteger(ctx.Arg(1));
    if (!door || (*door != 0 && *door != 1)) {
        throw UsageError("DOOR is 0 or 1 (the controller's relays), not '" + ctx.Arg(1) + "'", ctx.inv.verb);
    }
    std::optional<int64_t> forMs;
    if (std::optional<double> s = ctx.SecondsOption("--for")) {
        forMs = static_cast<int64_t>(std::llround(*s * 1000));
        if (*forMs < 1 || *forMs > 1320000) {
            throw UsageError("--for wants 0.001 to 1320 seconds", ctx.inv.verb);
        }
    }
    Transport& t = ctx.Reach({mac});
    if (forMs) Must(t, "SetLocalRelayTimer", {{"mac", mac}, {"relay", *door}, {"value", *forMs}});
    Must(t, "CmdOutputFunction3", {{"mac", mac}, {"target", int64_t{32}}, {"bitOrFunctionCode", *door}, {"state", int64_t{1}}});
    int64_t timer = forMs ? *forMs : Number(Must(t, "GetLocalRelayTimer", {{"mac", mac}, {"relay", *door}}), "value");
    ctx.out.Json(JsonObject().Add("mac", mac).Add("door", *door).Add("unlocked", true).Add("relay_timer_ms", timer));
    std::string d = std::to_string(*door);
    if (timer > 0) {
        char seconds[32];
        std::snprintf(seconds, sizeof seconds, "%.3g", static_cast<double>(timer) / 1000.0);
        ctx.out.Line("door " + d + " of " + mac + " unlocked; the controller locks it again after " + seconds +
                     " s (its relay timer)");
    } else {
        ctx.out.Line("door " + d + " of " + mac + " unlocked; its relay timer is 0, so it stays unlocked until "
                     "the relay is switched off: zanth call CmdOutputFunction3 " + mac + " 32 " + d + " 0");
    }
    return kExitOk;
}

}  // namespace zanth::cli
