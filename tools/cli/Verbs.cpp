// The table of verbs, and the context every verb runs in: its arguments, and the library loaded
// in the command line's own data folder.

#include "tools/cli/Verbs.h"

#include <cstdint>
#include <cstdlib>
#include <thread>

#include "tools/cli/Platform.h"
#include "tools/cli/Text.h"

namespace zanth::cli {
namespace fs = std::filesystem;

const std::vector<Verb>& Verbs() {
    static const std::vector<Verb> verbs = {
        {"list", "", 0, 0, "the controllers that are connected",
         "Takes controllers (on --port, or through --contact) and lists those that identified\n"
         "themselves within --for seconds, or as soon as every controller of --wait has come.\n"
         "Through --gateway: those connected to the gateway now.",
         {{"--for", "S", "how long to take controllers before listing them (default 3 s; 0 through --gateway)"}},
         RunList},
        {"info", "MAC", 1, 1, "a controller's description (ControllerInfo)", "", {}, RunInfo},
        {"time", "MAC", 1, 1, "a controller's clock and its drift from this computer's clock",
         "The drift is the controller's time less this computer's local time, to the second;\n"
         "the reading itself takes one or two Worker turns (47-94 ms).",
         {{"--set", nullptr, "set the controller's clock to this computer's local time first"}},
         RunTime},
        {"open", "MAC DOOR", 2, 2, "unlock a door: switch its relay on (door 0 or 1)",
         "Door N is the controller's relay N (outputs 0 and 1 of target 32). The controller\n"
         "switches the relay off again once its relay timer has run; with a timer of 0 the\n"
         "door stays unlocked until the relay is switched off\n"
         "(zanth call CmdOutputFunction3 MAC 32 DOOR 0).",
         {{"--for", "S", "set the door's relay timer to S seconds first (0.001 to 1320)"}},
         RunOpen},
        {"cards load", "MAC[,MAC...] FILE", 2, 2, "load the cardholders of a CSV file into controllers",
         "FILE is the cards CSV that zanth-sim --cards reads (docs/cards-csv.md, installed as\n"
         "share/doc/zanth/cards-csv.md): one record a line, the add command's arguments in\n"
         "order; a line of 24, 25 or 26 fields goes out as AddModCardRecord, 2 or 3.\n"
         "Every line is checked against the API model first: a line that doesn't parse is\n"
         "reported with its line number and field, nothing is sent for it, and the rest goes on.\n"
         "The records go out through the Rsp forms, several queued per controller, so that\n"
         "every Worker turn carries one (about 21 records/s per controller); several\n"
         "controllers load at once. Ctrl-C stops after the records under way and says which\n"
         "were loaded. Exit status 4 when a line was bad or a record refused.\n"
         "Through --gateway each record is a call to the gateway, --window of them under way\n"
         "per controller, which the gateway queues in turn: the same pace and reports.",
         {{"--window", "N", "records queued per controller at a time (1 to 64, default 4)"}},
         RunCardsLoad},
        {"cards check", "MAC[,MAC...] FILE", 2, 2,
         "read back every record of a CSV file and report those that differ",
         "Reads each record of FILE back by its card (RspGetCardRecord4) and compares every\n"
         "field the line gives. The controllers can't list their records, so this is how a\n"
         "commissioning is verified. Exit status 4 when a record differs, is missing, or a line\n"
         "is bad.",
         {{"--window", "N", "reads queued per controller at a time (1 to 64, default 4)"}},
         RunCardsCheck},
        {"cards get", "MAC NUMBER", 2, 2, "one cardholder record, by its card number",
         "",
         {{"--card-set", "N", "the card set ID (default 0)"},
          {"--no-format", "N", "the no-format flag, 0 or 1 (default 0)"},
          {"--pin", "PIN", "the PIN (default 0)"}},
         RunCardsGet},
        {"file put", "MAC LOCAL REMOTE", 3, 3, "send a file to a controller",
         "Sends LOCAL to the controller's file REMOTE, chunk by chunk (4086 bytes each, one\n"
         "per Worker turn: about 86 KB/s). Ctrl-C stops after the chunks under way; the\n"
         "controller's file is then left without its last chunk.\n"
         "Through --gateway, LOCAL goes into the gateway's files folder under a name of its own\n"
         "(the progress bar), the gateway sends it and the copy is removed. Ctrl-C stops the\n"
         "upload; a transfer the gateway has begun runs to its end.",
         {}, RunFilePut},
        {"file get", "MAC LOCAL REMOTE", 3, 3, "fetch a controller's file",
         "Fetches the controller's file REMOTE into LOCAL, chunk by chunk. LOCAL is written\n"
         "only once the whole file is in; Ctrl-C stops and leaves LOCAL as it was.\n"
         "Through --gateway, the gateway fetches it into its files folder, then zanth downloads\n"
         "it (the progress bar) and removes the gateway's copy.",
         {}, RunFileGet},
        {"watch", "", 0, 0, "events, alarms, look-ups, door reports and connects as they come",
         "Shows what the controllers send of their own accord until Ctrl-C (exit status 0), --for\n"
         "or --count.\n"
         "Look-ups shown here are not answered: the controller decides by itself.\n"
         "Events and alarms left unread in the data folder's message files by earlier runs are\n"
         "counted and skipped, unless --backlog.\n"
         "Through --gateway: the gateway's event stream, from now or after the journal record of\n"
         "--after (the \"id\" of --json); look-ups show the gateway's decision. A stream that\n"
         "drops is resumed after the last record shown: nothing is missed or shown twice.",
         {{"--for", "S", "stop after S seconds"},
          {"--count", "N", "stop after N notices"},
          {"--backlog", nullptr, "show the unread events and alarms of earlier runs first"},
          {"--after", "ID", "through --gateway: replay the journal after record ID first"}},
         RunWatch},
        {"call", "EXPORT [ARGS...]", 1, SIZE_MAX, "call any export of the library by name",
         "ARGS are the export's inputs in the header's order, or name=value in any order; the\n"
         "sizes of output buffers default to the model's and may be given as name=value.\n"
         "Numbers are decimal or 0x hex; bytes are @FILE, hex:0A0B..., or the text's own bytes.\n"
         "A command to a controller waits for its MAC first. A Rsp form waits for its reply\n"
         "(rspid=1 unless given) and shows it decoded. zanth help EXPORT shows its usage and\n"
         "documentation.\n"
         "Through --gateway: the commands and information exports the gateway offers (it\n"
         "refuses the others with 403); it chooses a Rsp form's rspid and answers with the\n"
         "reply decoded; a path on the gateway's host names a file of its files folder.",
         {}, RunCall},
        {"help", "[COMMAND|EXPORT]", 0, 2, "this help, a command's, or an export's", "", {}, RunHelp},
    };
    return verbs;
}

const Verb* FindVerb(const std::string& name) {
    for (const Verb& v : Verbs()) {
        if (name == v.name) return &v;
    }
    return nullptr;
}

std::vector<std::string> VerbNames() {
    std::vector<std::string> names;
    for (const Verb& v : Verbs()) names.emplace_back(v.name);
    return names;
}

void Fail(const std::string& context, const Result& r) { throw Failure(context, r); }

Context::Context(const Invocation& i, fs::path startDir)
    : inv(i), out(i.json), startDir_(std::move(startDir)) {}

Context::~Context() = default;

std::optional<std::string> Context::Option(const std::string& name) const {
    auto it = inv.options.find(name);
    if (it == inv.options.end()) return std::nullopt;
    return it->second;
}

std::optional<int64_t> Context::IntOption(const std::string& name, int64_t min, int64_t max) const {
    std::optional<std::string> text = Option(name);
    if (!text) return std::nullopt;
    std::optional<int64_t> v = ParseInteger(*text);
    if (!v || *v < min || *v > max) {
        throw UsageError(name + " wants " + std::to_string(min) + " to " + std::to_string(max) +
                             ", not '" + *text + "'",
                         inv.verb);
    }
    return v;
}

std::optional<double> Context::SecondsOption(const std::string& name) const {
    std::optional<std::string> text = Option(name);
    if (!text) return std::nullopt;
    char* end = nullptr;
    double s = std::strtod(text->c_str(), &end);
    if (text->empty() || *end != '\0' || !(s >= 0) || s > 86400.0 * 365) {
        throw UsageError(name + " wants a number of seconds, not '" + *text + "'", inv.verb);
    }
    return s;
}

std::vector<std::string> Context::Macs(const std::string& arg) const {
    std::vector<std::string> macs;
    for (const std::string& m : Split(arg, ',')) {
        std::string mac(Trim(m));
        if (mac.empty()) throw UsageError("'" + arg + "' is not a list of MACs", inv.verb);
        macs.push_back(mac);
    }
    return macs;
}

fs::path Context::LocalPath(const std::string& path) const {
    fs::path p(path);
    return p.is_absolute() ? p : (startDir_ / p).lexically_normal();
}

Transport& Context::Library() {
    if (transport_) return *transport_;
    if (!inv.gateway.empty()) {
        GatewayOptions o;
        o.url = inv.gateway;
        o.token = inv.token;
        if (o.token.empty() && std::getenv("ZANTH_TOKEN")) o.token = std::getenv("ZANTH_TOKEN");
        o.ca = inv.ca.empty() ? "" : LocalPath(inv.ca).string();
        transport_ = MakeGatewayTransport(o);
        return *transport_;
    }
    fs::path dir = inv.dataDir.empty() ? platform::DefaultDataDir() : LocalPath(inv.dataDir);
    // Paths the user gave are taken from where the program started, before it moves.
    std::string given = inv.library;
    if (given.empty() && std::getenv("ZANTH_LIBRARY")) given = std::getenv("ZANTH_LIBRARY");
    if (!given.empty() && !platform::IsBareName(given)) given = LocalPath(given).string();
    try {
        platform::EnterDataDir(dir);
    } catch (const std::exception& e) {
        throw StartError(e.what());
    }
    std::string tried;
    for (const std::string& candidate : platform::LibraryCandidates(given)) {
        if (!platform::IsBareName(candidate) && !fs::exists(candidate)) {
            tried += "\n  " + candidate + ": not there";
            continue;
        }
        try {
            transport_ = MakeLibraryTransport(candidate);
            return *transport_;
        } catch (const StartError& e) {
            tried += "\n  " + std::string(e.what());
        }
    }
    throw StartError("can't load the library:" + tried +
                     "\n  give its path with --library or ZANTH_LIBRARY");
}

Transport& Context::Reach(const std::vector<std::string>& macs, bool linkNotices,
                          std::optional<int64_t> noticesAfter) {
    Transport& t = Library();
    std::vector<std::string> all;
    auto add = [&all](const std::string& mac) {
        for (const std::string& m : all) {
            if (SameMac(m, mac)) return;
        }
        all.push_back(mac);
    };
    for (const std::string& m : macs) add(m);
    for (const std::string& m : inv.wait) add(m);
    if (!t.IsOpen()) {
        cli::Reach r;
        r.contacts = inv.contacts;
        r.portGiven = inv.portGiven;
        r.linkNotices = linkNotices;
        r.noticesAfter = noticesAfter;
        r.port = inv.port;
        if (!inv.portGiven && !inv.contacts.empty()) {
            // Calling out, the library still listens: on a port no one else holds.
            int free = platform::FreePort();
            if (free >= 1025) r.port = free;
        }
        if (!inv.valid.empty()) {
            r.valid = inv.valid;
        } else if (all.empty()) {
            r.valid = "ALL";
        } else {
            for (const std::string& m : all) r.valid += (r.valid.empty() ? "" : ",") + m;
        }
        t.Open(r);
    }
    auto deadline = std::chrono::steady_clock::now() +
                    std::chrono::milliseconds(static_cast<int64_t>(inv.timeout * 1000));
    for (;;) {
        std::vector<std::string> connected = t.Connected();
        std::vector<std::string> missing;
        for (const std::string& m : all) {
            bool in = false;
            for (const std::string& c : connected) in = in || SameMac(c, m);
            if (!in) missing.push_back(m);
        }
        if (missing.empty()) return t;
        if (platform::Interrupted()) throw Interrupted();
        if (std::chrono::steady_clock::now() >= deadline) {
            std::string list;
            for (size_t i = 0; i < missing.size(); ++i) list += (i ? ", " : "") + missing[i];
            char seconds[32];
            std::snprintf(seconds, sizeof seconds, "%g", inv.timeout);
            if (t.ThroughGateway()) {
                throw Timeout(list + " did not connect to " + t.Where() + " within " + seconds +
                              " s (GET /api/v1/controllers lists the controllers it holds)");
            }
            if (inv.contacts.empty()) {
                throw Timeout(list + " did not connect to " +
                              t.Where() + " within " + seconds +
                              " s (is it set to call this computer on that port?)");
            }
            throw Timeout(list + " did not identify itself after the call to " + t.Where() +
                          " within " + seconds + " s");
        }
        // A gateway is asked over the network: less often.
        std::this_thread::sleep_for(std::chrono::milliseconds(t.ThroughGateway() ? 200 : 20));
    }
}

}  // namespace zanth::cli
