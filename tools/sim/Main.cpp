// zanth-sim: plays one or many controllers against a host that runs the library.
//
//   zanth-sim --host 127.0.0.1 --port 3001 --count 50 --heartbeat-ms 5000 --event-interval-ms 1000
//   zanth-sim --listen 4001 --count 4          (waits for the host's ContactController)
//   zanth-sim --port 3001 --cards site.csv     (every controller starts with the site's cards)
//   zanth-sim --port 3001 --input 32:0=1       (input 0 of every controller starts on)
//   zanth-sim --port 3001 --pcap sim.pcap      (every frame both ways into a capture file)

#include <pthread.h>
#include <signal.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tools/sim/Capture.h"
#include "tools/sim/Simulator.h"
#include "tools/sim/families/Boards.h"
#include "tools/sim/families/CardDatabase.h"
#include "tools/sim/families/Clock.h"
#include "tools/sim/families/Io.h"
#include "tools/sim/families/Upload.h"

namespace {

using namespace zanth::sim;

struct Options {
    std::string host = "127.0.0.1";
    int port = 0;
    std::optional<int> listenPort;
    int count = 1;
    std::string macBase = "00:00:01";
    std::optional<std::string> seed;
    int heartbeatMs = 0;
    int eventIntervalMs = 0;
    int lookupIntervalMs = 0;
    int alarmIntervalMs = 0;
    bool flatOut = false;
    int durationS = 0;
    int maxConnecting = 16;
    bool quiet = false;
    // CSV files of cards: for every controller (empty MAC) or for one.
    std::vector<std::pair<std::string, std::string>> cards;
    std::optional<int> cardCapacity;
    // Input states to start with: for every controller (empty MAC) or for one.
    struct InputSetting {
        std::string mac;
        int target = 0;
        int input = 0;
        bool on = false;
    };
    std::vector<InputSetting> inputs;
    int clockOffsetS = 0;
    int stored = 0;
    std::optional<int> messageLog;
    // Interface board layouts: for every controller (empty MAC) or for one.
    std::vector<std::pair<std::string, BoardLayout>> boards;
    // Commands answered late, every time: for every controller (empty MAC) or for one.
    struct Late {
        std::string mac;
        int code = 0;
        int ms = 0;
    };
    std::vector<Late> late;
    // A capture of every link, and how its frames are cut into segments.
    std::string pcap;
    PcapOptions pcapOptions;
};

void Usage(FILE* out) {
    std::fprintf(
        out,
        "usage: zanth-sim (--port P [--host H] | --listen P) [options]\n"
        "  --host H               host to connect to (default 127.0.0.1)\n"
        "  --port P               host's port: the controllers connect to it\n"
        "  --listen P             listen instead, on ports P, P+1, ... for ContactController\n"
        "  --count N              number of controllers (default 1)\n"
        "  --mac-base XX:XX:XX    MAC of the first controller; the rest count up from it\n"
        "  --seed S               encrypted links, keyed with seed S\n"
        "  --heartbeat-ms N       a heartbeat every N ms\n"
        "  --event-interval-ms N  an event every N ms\n"
        "  --flat-out             events as fast as the host acknowledges them\n"
        "  --lookup-interval-ms N each controller presents a card at a door every N ms\n"
        "  --alarm-interval-ms N  each controller raises an alarm every N ms\n"
        "  --max-connecting N     connections under way at once (default 16)\n"
        "  --duration-s N         run N seconds; 0 (default) runs until SIGINT or SIGTERM\n"
        "  --cards [MAC=]FILE     preload cards from a CSV file, into every controller or into\n"
        "                         the one with that MAC; may be repeated. The format (one record\n"
        "                         a line, the add command's arguments in order) is described in\n"
        "                         docs/cards-csv.md (share/doc/zanth/cards-csv.md once installed)\n"
        "  --card-capacity N      records each controller's card database holds (default %zu)\n"
        "  --input [MAC:]T:I=S    input I (0-15) of target T (0-31 a board, 32 the controller)\n"
        "                         starts in state S (0 or 1), in every controller or in the one\n"
        "                         with that MAC; may be repeated. Controller inputs 8 and 9\n"
        "                         follow door relays 0 and 1 and can't be set\n"
        "  --clock-offset-s N     each controller's clock starts N seconds off the host's\n"
        "  --stored N             each controller starts with N events and alarms stored but\n"
        "                         not yet delivered, for the host's upload commands\n"
        "  --message-log N        messages each controller's log keeps (default %zu, at most %zu)\n"
        "  --boards [MAC=]LAYOUT  interface boards, into every controller or into the one with\n"
        "                         that MAC; may be repeated. LAYOUT lists the board addresses\n"
        "                         (0 to 31) of chain 0, then after '/' those of chain 1, e.g.\n"
        "                         0,1,5/16 or /3 (default 0,1/16)\n"
        "  --late [MAC=]CODE:MS   answer every command of CODE MS milliseconds late, in every\n"
        "                         controller or in the one with that MAC; may be repeated\n"
        "  --pcap FILE            write every frame sent and received to FILE, a pcap capture\n"
        "                         of TCP segments between the links' real ends\n"
        "  --pcap-split N         cut the captured segments to at most N bytes (1 to %zu),\n"
        "                         so that frames span segments\n"
        "  --pcap-merge N         gather up to N frames of one direction into one segment\n"
        "                         (1 to 1000; default 1, a segment per frame)\n"
        "  --quiet                only the summary at the end\n",
        CardDatabase::kDefaultCapacity, MessageStore::kDefaultCapacity, MessageStore::kMaxCapacity,
        PcapWriter::kMaxSegment);
}

bool ParseInt(const char* text, int low, int high, int* out) {
    char* end = nullptr;
    errno = 0;
    long value = std::strtol(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || value < low || value > high) return false;
    *out = static_cast<int>(value);
    return true;
}

// "[MAC:]target:input=state", as --input takes it.
bool ParseInput(const std::string& text, Options* o) {
    size_t equals = text.rfind('=');
    if (equals == std::string::npos) return false;
    std::string where = text.substr(0, equals);
    size_t second = where.rfind(':');
    size_t first = second == std::string::npos || second == 0 ? std::string::npos
                                                              : where.rfind(':', second - 1);
    if (second == std::string::npos) return false;
    Options::InputSetting in;
    std::string target = where.substr(first == std::string::npos ? 0 : first + 1,
                                      second - (first == std::string::npos ? 0 : first + 1));
    int state = 0;
    if (!ParseInt(target.c_str(), 0, zanth::sim::Io::kController, &in.target) ||
        !ParseInt(where.substr(second + 1).c_str(), 0, zanth::sim::Io::kInputs - 1, &in.input) ||
        !ParseInt(text.substr(equals + 1).c_str(), 0, 1, &state)) {
        return false;
    }
    in.on = state == 1;
    if (first != std::string::npos) {
        in.mac = NormalizeMac(where.substr(0, first));
        if (in.mac.empty()) return false;
    }
    o->inputs.push_back(in);
    return true;
}

// 0 to go on, or the exit code.
int Parse(int argc, char** argv, Options* o) {
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            Usage(stdout);
            return -1;
        }
        if (arg == "--quiet") {
            o->quiet = true;
            continue;
        }
        if (arg == "--flat-out") {
            o->flatOut = true;
            continue;
        }
        if (i + 1 >= argc) {
            std::fprintf(stderr, "zanth-sim: %s needs a value\n", arg.c_str());
            return 2;
        }
        const char* value = argv[++i];
        bool ok = true;
        int number = 0;
        if (arg == "--host") {
            o->host = value;
        } else if (arg == "--port") {
            ok = ParseInt(value, 1, 65535, &o->port);
        } else if (arg == "--listen") {
            ok = ParseInt(value, 1, 65535, &number);
            o->listenPort = number;
        } else if (arg == "--count") {
            ok = ParseInt(value, 1, 100000, &o->count);
        } else if (arg == "--mac-base") {
            o->macBase = value;
            ok = !NormalizeMac(value).empty();
        } else if (arg == "--seed") {
            o->seed = value;
        } else if (arg == "--heartbeat-ms") {
            ok = ParseInt(value, 0, 86400000, &o->heartbeatMs);
        } else if (arg == "--event-interval-ms") {
            ok = ParseInt(value, 0, 86400000, &o->eventIntervalMs);
        } else if (arg == "--lookup-interval-ms") {
            ok = ParseInt(value, 0, 86400000, &o->lookupIntervalMs);
        } else if (arg == "--alarm-interval-ms") {
            ok = ParseInt(value, 0, 86400000, &o->alarmIntervalMs);
        } else if (arg == "--duration-s") {
            ok = ParseInt(value, 0, 31536000, &o->durationS);
        } else if (arg == "--max-connecting") {
            ok = ParseInt(value, 1, 10000, &o->maxConnecting);
        } else if (arg == "--cards") {
            // "MAC=FILE" names one controller; anything else is a file for all of them.
            std::string text = value;
            size_t equals = text.find('=');
            std::string mac =
                equals == std::string::npos ? "" : NormalizeMac(text.substr(0, equals));
            if (mac.empty()) {
                o->cards.emplace_back("", text);
            } else {
                o->cards.emplace_back(mac, text.substr(equals + 1));
            }
            ok = !o->cards.back().second.empty();
        } else if (arg == "--input") {
            ok = ParseInput(value, o);
        } else if (arg == "--clock-offset-s") {
            ok = ParseInt(value, -2000000000, 2000000000, &o->clockOffsetS);
        } else if (arg == "--stored") {
            ok = ParseInt(value, 0, static_cast<int>(MessageStore::kMaxCapacity), &o->stored);
        } else if (arg == "--message-log") {
            ok = ParseInt(value, 1, static_cast<int>(MessageStore::kMaxCapacity), &number);
            o->messageLog = number;
        } else if (arg == "--boards") {
            std::string text = value;
            size_t equals = text.find('=');
            std::string mac =
                equals == std::string::npos ? "" : NormalizeMac(text.substr(0, equals));
            auto layout = Boards::ParseLayout(mac.empty() ? text : text.substr(equals + 1));
            if (layout) o->boards.emplace_back(mac, *layout);
            ok = layout.has_value();
        } else if (arg == "--late") {
            std::string text = value;
            size_t equals = text.find('=');
            Options::Late late;
            late.mac = equals == std::string::npos ? "" : NormalizeMac(text.substr(0, equals));
            std::string rest = equals == std::string::npos ? text : text.substr(equals + 1);
            size_t colon = rest.find(':');
            ok = colon != std::string::npos && (equals == std::string::npos || !late.mac.empty()) &&
                 ParseInt(rest.substr(0, colon).c_str(), 1, 9999, &late.code) &&
                 ParseInt(rest.substr(colon + 1).c_str(), 1, 600000, &late.ms);
            o->late.push_back(late);
        } else if (arg == "--pcap") {
            o->pcap = value;
            ok = !o->pcap.empty();
        } else if (arg == "--pcap-split") {
            ok = ParseInt(value, 1, static_cast<int>(PcapWriter::kMaxSegment), &number);
            o->pcapOptions.splitBytes = static_cast<size_t>(number);
        } else if (arg == "--pcap-merge") {
            ok = ParseInt(value, 1, 1000, &number);
            o->pcapOptions.mergeMessages = static_cast<size_t>(number);
        } else if (arg == "--card-capacity") {
            ok = ParseInt(value, 0, CardDatabase::kMaxChangeover, &number);
            o->cardCapacity = number;
        } else {
            std::fprintf(stderr, "zanth-sim: unknown option %s\n", arg.c_str());
            Usage(stderr);
            return 2;
        }
        if (!ok) {
            std::fprintf(stderr, "zanth-sim: bad value for %s: %s\n", arg.c_str(), value);
            return 2;
        }
    }
    if (o->port == 0 && !o->listenPort) {
        std::fprintf(stderr, "zanth-sim: give --port or --listen\n");
        Usage(stderr);
        return 2;
    }
    if (o->listenPort && *o->listenPort + o->count - 1 > 65535) {
        std::fprintf(stderr, "zanth-sim: %d listening ports from %d run past 65535\n", o->count,
                     *o->listenPort);
        return 2;
    }
    return 0;
}

std::string Counts(const std::map<int, uint64_t>& counts) {
    std::string out;
    for (auto [code, n] : counts) {
        out += " " + std::to_string(code) + "=" + std::to_string(n);
    }
    return out.empty() ? " none" : out;
}

// Fills the controllers' card databases as the options say; false after a message on failure.
bool LoadCards(Simulator& sim, const Options& o) {
    for (size_t i = 0; i < sim.Count(); ++i) {
        auto& cards = sim.At(i).Family<CardDatabase>();
        if (o.cardCapacity) cards.SetCapacity(static_cast<size_t>(*o.cardCapacity));
    }
    for (const auto& [mac, path] : o.cards) {
        Controller* only = nullptr;
        if (!mac.empty() && (only = sim.Find(mac)) == nullptr) {
            std::fprintf(stderr, "zanth-sim: --cards names %s, which is none of the controllers\n",
                         mac.c_str());
            return false;
        }
        for (size_t i = 0; i < sim.Count(); ++i) {
            Controller& c = sim.At(i);
            if (only != nullptr && only != &c) continue;
            std::ifstream in(path);
            if (!in) {
                std::fprintf(stderr, "zanth-sim: cannot read %s\n", path.c_str());
                return false;
            }
            std::string error;
            auto loaded = c.Family<CardDatabase>().LoadCsv(in, &error);
            if (!loaded) {
                std::fprintf(stderr, "zanth-sim: %s: %s\n", path.c_str(), error.c_str());
                return false;
            }
            if (!o.quiet) {
                std::printf("zanth-sim: %s holds %zu cards from %s\n", c.Mac().c_str(), *loaded,
                            path.c_str());
            }
        }
    }
    std::fflush(stdout);
    return true;
}

// Sets the inputs the options name; false after a message on failure.
bool SetInputs(Simulator& sim, const Options& o) {
    for (const Options::InputSetting& in : o.inputs) {
        Controller* only = nullptr;
        if (!in.mac.empty() && (only = sim.Find(in.mac)) == nullptr) {
            std::fprintf(stderr, "zanth-sim: --input names %s, which is none of the controllers\n",
                         in.mac.c_str());
            return false;
        }
        for (size_t i = 0; i < sim.Count(); ++i) {
            Controller& c = sim.At(i);
            if (only != nullptr && only != &c) continue;
            if (!c.Family<Io>().SetInput(in.target, in.input, in.on)) {
                std::fprintf(stderr, "zanth-sim: input %d of target %d can't be set\n", in.input,
                             in.target);
                return false;
            }
        }
    }
    return true;
}

// Gives the controllers the board layouts of the options; false after a message on failure.
bool PlaceBoards(Simulator& sim, const Options& o) {
    for (const auto& [mac, layout] : o.boards) {
        if (!mac.empty() && sim.Find(mac) == nullptr) {
            std::fprintf(stderr, "zanth-sim: --boards names %s, which is none of the controllers\n",
                         mac.c_str());
            return false;
        }
        for (size_t i = 0; i < sim.Count(); ++i) {
            Controller& c = sim.At(i);
            if (mac.empty() || c.Mac() == mac) c.Family<Boards>().SetLayout(layout);
        }
    }
    return true;
}

// `identified` is counted before the links were closed.
void PrintSummary(Simulator& sim, size_t identified, double seconds) {
    SimulatorTotals t = sim.Totals();
    t.identified = identified;
    std::printf(
        "zanth-sim: %zu controllers, %zu identified, %llu identifications, %llu reconnects, "
        "%llu link drops, %llu connect failures, %llu protocol errors, %.1f s\n",
        t.controllers, t.identified, static_cast<unsigned long long>(t.identifications),
        static_cast<unsigned long long>(t.reconnects), static_cast<unsigned long long>(t.linkDrops),
        static_cast<unsigned long long>(t.connectFailures),
        static_cast<unsigned long long>(t.protocolErrors), seconds);
    std::printf("  sent:    %s\n", Counts(t.sent).c_str());
    std::printf("  acks:    %s\n", Counts(t.acks).c_str());
    std::printf("  commands:%s\n", Counts(t.commands).c_str());
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    Options o;
    int rc = Parse(argc, argv, &o);
    if (rc != 0) return rc < 0 ? 0 : rc;

    // The signals are taken by this thread alone: blocked before the loop thread starts, so it
    // inherits the mask, and then awaited below.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    // Declared first, so that it outlives the simulator whose tap writes into it.
    Capture capture(o.pcapOptions);
    Simulator sim(SimulatorOptions{o.maxConnecting});
    if (!o.pcap.empty()) {
        std::string error;
        if (!capture.Open(o.pcap, &error)) {
            std::fprintf(stderr, "zanth-sim: %s\n", error.c_str());
            return 2;
        }
        capture.Attach(sim);
    }
    try {
        for (int i = 0; i < o.count; ++i) {
            ControllerConfig c;
            c.mac = MacPlus(o.macBase, static_cast<uint32_t>(i));
            c.seed = o.seed;
            c.schedule = {o.heartbeatMs, o.eventIntervalMs, o.flatOut};
            if (o.listenPort) {
                c.listen = true;
                c.listenAddress = "0.0.0.0";
                c.listenPort = *o.listenPort + i;
            } else {
                c.host = o.host;
                c.port = o.port;
            }
            Controller& added = sim.Add(std::move(c));
            if (!o.quiet && o.listenPort) {
                std::printf("zanth-sim: %s listens on port %d\n", added.Mac().c_str(),
                            added.ListenPort());
            }
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "zanth-sim: %s\n", e.what());
        return 2;
    }
    // Before the loop starts, so that no host sees a controller with half its cards.
    if (!LoadCards(sim, o) || !SetInputs(sim, o) || !PlaceBoards(sim, o)) return 2;
    for (size_t i = 0; i < sim.Count(); ++i) {
        Controller& c = sim.At(i);
        c.Family<ControllerClock>().SetOffset(o.clockOffsetS);
        if (o.messageLog) c.Family<MessageStore>().SetCapacity(static_cast<size_t>(*o.messageLog));
        c.StoreMessages(static_cast<size_t>(o.stored));
        for (const Options::Late& late : o.late) {
            if (late.mac.empty() || late.mac == c.Mac())
                c.SetFault(late.code, Fault::Late(late.ms).Persistent());
        }
    }

    auto start = std::chrono::steady_clock::now();
    sim.Start();
    auto lastReport = start;
    // Cards presented and alarms raised on a schedule, spread over the controllers so that they
    // don't all come at once. The cards cycle through a few numbers, some of which a host may
    // know and some not.
    constexpr uint32_t kCards[] = {1001, 2001, 3003, 4242};
    using Clock = std::chrono::steady_clock;
    auto nextLookup = start + std::chrono::milliseconds(o.lookupIntervalMs);
    auto nextAlarm = start + std::chrono::milliseconds(o.alarmIntervalMs);
    size_t lookups = 0;
    size_t alarms = 0;
    for (;;) {
        auto now = Clock::now();
        double elapsed = std::chrono::duration<double>(now - start).count();
        if (o.durationS > 0 && elapsed >= o.durationS) break;
        if (o.lookupIntervalMs > 0 && now >= nextLookup) {
            for (size_t i = 0; i < sim.Count(); ++i) {
                size_t n = lookups + i;
                sim.At(i).SendLookup(static_cast<int>(n % 4) + 1, kCards[n % 4]);
            }
            ++lookups;
            nextLookup += std::chrono::milliseconds(o.lookupIntervalMs);
        }
        if (o.alarmIntervalMs > 0 && now >= nextAlarm) {
            for (size_t i = 0; i < sim.Count(); ++i) {
                static const char* const kAlarms[] = {"Door forced open", "Door held open",
                                                      "Reader tamper"};
                sim.At(i).SendAlarm(static_cast<int>((alarms + i) % 4) + 1,
                                    kAlarms[(alarms + i) % 3]);
            }
            ++alarms;
            nextAlarm += std::chrono::milliseconds(o.alarmIntervalMs);
        }
        auto wake = now + std::chrono::seconds(1);
        if (o.lookupIntervalMs > 0 && nextLookup < wake) wake = nextLookup;
        if (o.alarmIntervalMs > 0 && nextAlarm < wake) wake = nextAlarm;
        auto waitNs =
            std::chrono::duration_cast<std::chrono::nanoseconds>(wake - Clock::now()).count();
        if (waitNs < 1000000) waitNs = 1000000;
        timespec wait{static_cast<time_t>(waitNs / 1000000000),
                      static_cast<long>(waitNs % 1000000000)};
        siginfo_t info{};
        int got = sigtimedwait(&stopSignals, &info, &wait);
        if (got == SIGINT || got == SIGTERM) break;
        if (!o.quiet && std::chrono::steady_clock::now() - lastReport >= std::chrono::seconds(5)) {
            lastReport = std::chrono::steady_clock::now();
            SimulatorTotals t = sim.Totals();
            std::printf("zanth-sim: %zu/%zu identified, %llu reconnects\n", t.identified,
                        t.controllers, static_cast<unsigned long long>(t.reconnects));
            std::fflush(stdout);
        }
    }
    size_t identified = sim.IdentifiedCount();
    sim.Stop();
    PrintSummary(sim, identified,
                 std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    if (!o.pcap.empty()) {
        capture.Finish();
        const PcapWriter& w = capture.Writer();
        if (w.Failed()) {
            std::fprintf(stderr, "zanth-sim: capture incomplete: %s\n", w.Error().c_str());
            return 1;
        }
        PcapTotals t = w.Totals();
        std::printf(
            "  capture: %s, %llu links, %llu frames in %llu segments, %llu bytes\n", o.pcap.c_str(),
            static_cast<unsigned long long>(t.streams), static_cast<unsigned long long>(t.messages),
            static_cast<unsigned long long>(t.segments), static_cast<unsigned long long>(t.bytes));
        std::fflush(stdout);
    }
    return 0;
}
