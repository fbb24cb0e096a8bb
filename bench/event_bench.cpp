// zanth-bench-events: how many events per second the library takes in, with 1, 10 and 100
// simulated controllers each sending events as fast as the protocol lets them (the next event
// leaves as soon as the former one's acknowledgement 67 is in).
//
// Each count runs in a fresh process of its own (this program started again with --child), with
// the simulator on a thread of that process. Over a fixed window it counts:
//   - events stored in ZanthEvents.log (NumberUnreadEvents; nothing reads them, and the ring is
//     made large enough that none is overwritten),
//   - events handed to the SetEventCallback callback,
//   - acknowledgements the controllers received,
// and the CPU time of the library's threads apart from the simulator's loop thread (per-thread
// figures from /proc). After the window the controllers stop, and every event sent must be
// acknowledged, stored and delivered: the figures in the second table.
//
// Then an upload run: one controller holds --upload stored events and alarms (10000 by default)
// that no host has taken, raised while the host was down; the host comes back on the same port,
// the controller reconnects, and the host asks for the current messages. It times the upload
// until every message is in the message files and has reached the event and alarm callbacks.
//
//   zanth-bench-events [--counts 1,10,100] [--window-s 10] [--warmup-s 2] [--upload N]
//                      [--dir D] [--keep]

#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "bench/support/BenchSupport.h"
#include "protocol/Codes.h"
#include "stores/MsgMon.h"
#include "tools/sim/Simulator.h"
#include "tools/sim/families/Upload.h"
#include "zanth.h"

namespace {

using namespace zanth::bench;
namespace sim = zanth::sim;

// One message per 47 ms turn of a controller's Worker.
constexpr double kModelPerController = 1000.0 / 47.0;

void PrintUsage(FILE* out) {
    std::fprintf(out,
                 "usage: zanth-bench-events [--counts 1,10,100] [--window-s N] [--warmup-s N]\n"
                 "                          [--dir D] [--keep]\n"
                 "  --counts L    controller counts, comma-separated (default 1,10,100)\n"
                 "  --window-s N  counting window (default 10)\n"
                 "  --warmup-s N  flat-out time after all have identified, before the window (default 2)\n"
                 "  --upload N    stored messages of the upload run (default 10000; 0: no upload run)\n"
                 "  --dir D       where the scratch directories go (default $TMPDIR or /tmp)\n"
                 "  --keep        keep them (library log, message files)\n");
}

std::atomic<uint64_t> delivered{0};
std::atomic<uint64_t> alarmsDelivered{0};

int32_t OnEvent(char*) {
    delivered.fetch_add(1, std::memory_order_relaxed);
    return 0;
}

int32_t OnAlarm(char*) {
    alarmsDelivered.fetch_add(1, std::memory_order_relaxed);
    return 0;
}

uint64_t Unread() {
    uint64_t count = 0;
    Check(NumberUnreadEvents(&count), "NumberUnreadEvents");
    return count;
}

uint64_t Acks(const sim::SimulatorTotals& t) {
    auto it = t.acks.find(zanth::ZANTH_MESSAGE_RSP);
    return it == t.acks.end() ? 0 : it->second;
}

uint64_t SentEvents(const sim::SimulatorTotals& t) {
    auto it = t.sent.find(zanth::ZANTH_EVENT_MESSAGE);
    return it == t.sent.end() ? 0 : it->second;
}

// What one write to the message file costs on this disk, single-threaded: the file path's own
// ceiling, apart from the Worker's pace.
double FileMicrosecondsPerRecord() {
    zanth::MsgMon probe("probe", "ProbeEvents.log");
    int32_t error = 0;
    probe.SetLogSize(100000, &error);
    if (error != 0) Fail("the probe message file can't be sized");
    const char* text = "00001;01/01/2024;12:00:00;1;3;1;Access granted;";
    const int records = 5000;
    auto start = Clock::now();
    for (int i = 0; i < records; ++i) {
        probe.WriteMsg(text, static_cast<int32_t>(std::strlen(text)), &error);
        if (error != 0) Fail("the probe message file can't be written");
    }
    return Ms(Clock::now() - start) * 1000.0 / records;
}

// One count of controllers, in this process; its figures go to `resultPath`.
int RunChild(int n, const Args& args, const std::string& resultPath) {
    const int windowS = args.Int("--window-s", 10, 1, 3600);
    const int warmupS = args.Int("--warmup-s", 2, 0, 3600);
    Sandbox sandbox(args.Value("--dir").value_or(""), args.Flag("--keep"));
    Results results;
    results.Put("n", n);
    results.Put("window_s", windowS);

    Host host;
    if (args.Flag("--probe-file")) results.Put("file_us", FileMicrosecondsPerRecord());

    // Room for every event of the run: the identification phase (one controller per 100 ms),
    // the warm-up, the window and the drain, at the model's rate, twice over.
    double seconds = n * 0.1 + warmupS + windowS + 30;
    uint64_t ring = static_cast<uint64_t>(2 * n * kModelPerController * seconds);
    if (ring < 5000) ring = 5000;
    uint64_t sizeArgument = 0;
    uint32_t size32 = static_cast<uint32_t>(ring);
    std::memcpy(&sizeArgument, &size32, sizeof size32);
    Check(EventLogSize(1, &sizeArgument), "EventLogSize");
    Check(SetEventCallback(OnEvent), "SetEventCallback");

    std::atomic<pid_t> simTid{0};
    sim::Simulator simulator;
    // Only to learn which thread is the simulator's, so that its CPU time can be set apart.
    simulator.SetFrameHook([&simTid](const sim::Controller&, sim::Direction, int, std::string_view) {
        if (simTid.load(std::memory_order_relaxed) == 0) simTid = CurrentTid();
    });
    std::vector<sim::Controller*> controllers;
    for (int i = 0; i < n; ++i) {
        sim::ControllerConfig c;
        c.mac = sim::MacPlus("E0:00:00", static_cast<uint32_t>(i));
        c.port = host.Port();
        c.schedule.eventsFlatOut = true;
        controllers.push_back(&simulator.Add(std::move(c)));
    }
    auto start = Clock::now();
    simulator.Start();
    auto connectBudget = std::chrono::milliseconds(30000 + 300 * n);
    if (!simulator.WaitAllIdentified(connectBudget)) {
        Fail(std::to_string(simulator.IdentifiedCount()) + " of " + std::to_string(n) +
             " controllers identified in time");
    }
    if (!WaitFor([n] { return ConnectedCount() == static_cast<size_t>(n); }, 10s, 10ms)) {
        Fail("GetConnectedControllers lists " + std::to_string(ConnectedCount()) + " of " +
             std::to_string(n));
    }
    results.Put("connect_s", Seconds(Clock::now() - start));
    std::this_thread::sleep_for(std::chrono::seconds(warmupS));

    struct Snapshot {
        Clock::time_point when;
        uint64_t stored, delivered, acks;
        std::vector<uint64_t> perController;
        Usage process, main;
        double simCpu;
    };
    auto snapshot = [&] {
        Snapshot s;
        s.when = Clock::now();
        s.stored = Unread();
        s.delivered = delivered.load();
        s.acks = Acks(simulator.Totals());
        for (sim::Controller* c : controllers) {
            s.perController.push_back(c->Stats().Acks(zanth::ZANTH_MESSAGE_RSP));
        }
        s.process = ProcessUsage();
        s.main = ThreadUsage();
        s.simCpu = simTid.load() != 0 ? ProcCpuSeconds(0, simTid.load()) : 0;
        return s;
    };
    Snapshot a = snapshot();
    // The callback's backlog (stored, not yet delivered) sampled through the window: it grows for
    // a second while the callback thread sleeps, then drops at its next pass.
    std::vector<double> backlog;
    auto windowEnd = a.when + std::chrono::seconds(windowS);
    while (Clock::now() < windowEnd) {
        std::this_thread::sleep_for(20ms);
        uint64_t stored = Unread();
        uint64_t done = delivered.load();
        backlog.push_back(stored > done ? static_cast<double>(stored - done) : 0.0);
    }
    Snapshot b = snapshot();

    double dt = Seconds(b.when - a.when);
    results.Put("stored_per_s", static_cast<double>(b.stored - a.stored) / dt);
    results.Put("delivered_per_s", static_cast<double>(b.delivered - a.delivered) / dt);
    results.Put("acks_per_s", static_cast<double>(b.acks - a.acks) / dt);
    double lowest = 1e300, highest = 0;
    for (size_t i = 0; i < controllers.size(); ++i) {
        double rate = static_cast<double>(b.perController[i] - a.perController[i]) / dt;
        lowest = std::min(lowest, rate);
        highest = std::max(highest, rate);
    }
    results.Put("per_ctrl_min", lowest);
    results.Put("per_ctrl_max", highest);
    double simCpu = b.simCpu - a.simCpu;
    double libraryCpu = (b.process.cpuSeconds - a.process.cpuSeconds) -
                        (b.main.cpuSeconds - a.main.cpuSeconds) - simCpu;
    results.Put("lib_cpu_pct", 100.0 * libraryCpu / dt);
    results.Put("sim_cpu_pct", 100.0 * simCpu / dt);
    Summary queued = Summarize(backlog);
    results.Put("backlog_mean", queued.mean);
    results.Put("backlog_max", queued.max);

    // The controllers stop after the event in flight; then everything sent must have come through.
    for (sim::Controller* c : controllers) c->SetSchedule(sim::Schedule{});
    bool settled = WaitFor(
        [&] {
            for (sim::Controller* c : controllers) {
                if (c->Stats().outstandingAcks != 0) return false;
            }
            return delivered.load() >= Unread();
        },
        15s, 20ms);
    sim::SimulatorTotals totals = simulator.Totals();
    results.Put("sent_total", static_cast<double>(SentEvents(totals)));
    results.Put("acked_total", static_cast<double>(Acks(totals)));
    results.Put("stored_total", static_cast<double>(Unread()));
    results.Put("delivered_total", static_cast<double>(delivered.load()));
    results.Put("settled", settled ? "yes" : "no");
    results.Put("reconnects", static_cast<double>(totals.reconnects));
    results.Put("ring", static_cast<double>(ring));

    simulator.Stop();
    host.Close();
    results.Write(resultPath);
    return 0;
}

uint64_t UnreadAlarms() {
    uint64_t count = 0;
    Check(NumberUnreadAlarms(&count), "NumberUnreadAlarms");
    return count;
}

// Sizes both message files for `records` (resizing discards what they held).
void SizeMessageFiles(uint64_t records) {
    uint64_t sizeArgument = 0;
    uint32_t size32 = static_cast<uint32_t>(records);
    std::memcpy(&sizeArgument, &size32, sizeof size32);
    Check(EventLogSize(1, &sizeArgument), "EventLogSize");
    std::memcpy(&sizeArgument, &size32, sizeof size32);
    Check(AlarmLogSize(1, &sizeArgument), "AlarmLogSize");
}

// Library up on `port`, every controller valid.
void StartHost(int port) {
    LoadLibrary();
    Check(SetValidControllers("ALL"), "SetValidControllers(ALL)");
    int32_t waitMs = 5000;
    Check(RecvWaitTime(1, &waitMs), "RecvWaitTime");
    Check(Initialization(port, nullptr, nullptr), "Initialization");
    if (!WaitFor([port] { return PortListening(port); }, 10s, 2ms)) {
        Fail("the library's listener did not come up on port " + std::to_string(port));
    }
}

void StopHost() {
    Shutdown();
    UnloadLibrary();
}

// The upload run, in this process; its figures go to `resultPath`.
int RunUploadChild(int stored, const Args& args, const std::string& resultPath) {
    Sandbox sandbox(args.Value("--dir").value_or(""), args.Flag("--keep"));
    Results results;
    results.Put("stored", stored);
    const int port = FreePort();

    sim::Simulator simulator;
    sim::ControllerConfig config;
    config.mac = "E1:00:00";
    config.port = port;
    config.reconnectMinMs = 50;
    config.reconnectMaxMs = 200;
    sim::Controller& controller = simulator.Add(std::move(config));
    auto& store = controller.Family<sim::MessageStore>();
    store.SetCapacity(static_cast<size_t>(stored) + 100);

    // The host as it ran before: the controller is known and connected.
    StartHost(port);
    simulator.Start();
    if (!controller.WaitIdentified(30s) || !WaitFor([] { return ConnectedCount() == 1; }, 10s)) {
        Fail("the controller did not connect to the first host");
    }
    // The host goes down; what the doors raise meanwhile stays in the controller's log.
    StopHost();
    if (!WaitFor([&] { return !controller.Identified(); }, 10s)) Fail("the link did not end");
    controller.StoreMessages(static_cast<size_t>(stored));

    // The host comes back on its port; the controller finds it again.
    StartHost(port);
    SizeMessageFiles(static_cast<uint64_t>(stored) * 2);
    Check(SetEventCallback(OnEvent), "SetEventCallback");
    Check(SetAlarmCallback(OnAlarm), "SetAlarmCallback");
    if (!controller.WaitIdentified(30s) || !WaitFor([] { return ConnectedCount() == 1; }, 10s)) {
        Fail("the controller did not connect to the restarted host");
    }
    uint64_t bundlesBefore = simulator.Totals().sent[zanth::ZANTH_MESSAGE_BUNDLE];

    const auto total = static_cast<uint64_t>(stored);
    auto start = Clock::now();
    Check(UploadCurrentMsgs("E1:00:00"), "UploadCurrentMsgs");
    double acceptedMs = Ms(Clock::now() - start);
    bool inFiles = WaitFor([&] { return Unread() + UnreadAlarms() >= total; }, 300s, 1ms);
    double filesMs = Ms(Clock::now() - start);
    bool toCallback = WaitFor(
        [&] { return delivered.load() + alarmsDelivered.load() >= total; }, 60s, 1ms);
    double callbackMs = Ms(Clock::now() - start);
    // Every bundle acknowledged: the controller counts none of them current any more.
    bool acked = WaitFor([&] { return store.Counts().current == 0; }, 10s, 5ms);
    std::this_thread::sleep_for(500ms);  // anything beyond the count would show here

    sim::SimulatorTotals totals = simulator.Totals();
    results.Put("bundles",
                static_cast<double>(totals.sent[zanth::ZANTH_MESSAGE_BUNDLE] - bundlesBefore));
    results.Put("accepted_ms", acceptedMs);
    results.Put("files_ms", filesMs);
    results.Put("callback_ms", callbackMs);
    results.Put("in_files", static_cast<double>(Unread() + UnreadAlarms()));
    results.Put("to_callback", static_cast<double>(delivered.load() + alarmsDelivered.load()));
    results.Put("complete", inFiles && toCallback && acked ? "yes" : "no");
    simulator.Stop();
    StopHost();
    results.Write(resultPath);
    return 0;
}

void ReportUpload(const Results& r) {
    double stored = r.Number("stored");
    double bundles = r.Number("bundles");
    // The 1062 is read one turn after the send; then one message, a bundle, per turn.
    double modelMs = (1 + bundles) * 47.0;
    std::printf("\nupload after a host restart: one controller, %.0f stored messages "
                "(4 events to 1 alarm), UploadCurrentMsgs\n", stored);
    Table upload({"stored", "bundles", "per bundle", "accepted ms", "in files ms", "callback ms",
                  "model ms", "msgs/s to file", "in files", "to callback", "lost", "complete"});
    double lost = stored - std::min(r.Number("in_files"), r.Number("to_callback"));
    upload.Row({Fixed(stored, 0), Fixed(bundles, 0), Fixed(bundles > 0 ? stored / bundles : 0, 1),
                Fixed(r.Number("accepted_ms")), Fixed(r.Number("files_ms")),
                Fixed(r.Number("callback_ms")), Fixed(modelMs),
                Fixed(stored / (r.Number("files_ms") / 1000.0), 0), Fixed(r.Number("in_files"), 0),
                Fixed(r.Number("to_callback"), 0), Fixed(lost, 0), r.Text("complete")});
    upload.Print();
    std::printf(
        "model: the Worker reads one message per 47 ms turn, and a bundle is one message: the\n"
        "upload's reply in one turn, then one bundle (as many entries as fit one 4087-byte frame)\n"
        "per turn, so (1 + bundles) x 47 ms until the last is in the files. The callbacks trail\n"
        "the files by up to a second (the callback thread drains its queue, then sleeps 1 s).\n");
    if (lost > 0 || r.Text("complete") != "yes") Fail("the upload run lost messages");
}

int RunParent(const Args& args) {
    std::vector<int> counts = args.IntList("--counts", {1, 10, 100});
    const int windowS = args.Int("--window-s", 10, 1, 3600);
    const int warmupS = args.Int("--warmup-s", 2, 0, 3600);
    Sandbox sandbox(args.Value("--dir").value_or(""), args.Flag("--keep"));
    std::printf("zanth-bench-events: events ingested with every controller flat out, window %d s "
                "after %d s of warm-up\n", windowS, warmupS);
    std::printf("machine: %s\n\n", MachineLine(sandbox.Dir()).c_str());
    std::fflush(stdout);
    RaiseOpenFiles(4 * 1024);

    std::vector<Results> runs;
    for (size_t i = 0; i < counts.size(); ++i) {
        int n = counts[i];
        std::fprintf(stderr, "zanth-bench-events: %d controller(s)...\n", n);
        std::string resultPath = sandbox.Path("result-" + std::to_string(n));
        std::vector<std::string> argv = {SelfProgram(), "--child", std::to_string(n), "--result",
                                         resultPath, "--dir", sandbox.Dir(), "--window-s",
                                         std::to_string(windowS), "--warmup-s",
                                         std::to_string(warmupS)};
        if (i == 0) argv.push_back("--probe-file");
        if (args.Flag("--keep")) argv.push_back("--keep");
        pid_t pid = Spawn(argv);
        auto budget = std::chrono::seconds(120 + windowS + warmupS) + std::chrono::milliseconds(400 * n);
        int status = WaitExit(pid, budget);
        if (status != 0) {
            Fail("the run with " + std::to_string(n) + " controllers failed (status " +
                 std::to_string(status) + ")");
        }
        runs.push_back(Results::Read(resultPath));
    }

    Table rate({"controllers", "stored ev/s", "per ctrl ev/s", "callback ev/s", "acked ev/s",
                "model ev/s", "% of model", "per ctrl min-max", "library CPU %", "sim CPU %"});
    for (const Results& r : runs) {
        double n = r.Number("n");
        double stored = r.Number("stored_per_s");
        double model = n * kModelPerController;
        rate.Row({r.Text("n"), Fixed(stored), Fixed(stored / n, 2), Fixed(r.Number("delivered_per_s")),
                  Fixed(r.Number("acks_per_s")), Fixed(model), Fixed(100.0 * stored / model),
                  Fixed(r.Number("per_ctrl_min"), 2) + "-" + Fixed(r.Number("per_ctrl_max"), 2),
                  Fixed(r.Number("lib_cpu_pct")), Fixed(r.Number("sim_cpu_pct"))});
    }
    rate.Print();

    std::printf("\nevery event of each run, after the controllers stopped:\n");
    Table totals({"controllers", "sent", "acknowledged", "stored in file", "to callback", "lost",
                  "callback backlog mean", "backlog max", "reconnects", "settled"});
    for (const Results& r : runs) {
        double lost = r.Number("sent_total") - r.Number("delivered_total");
        totals.Row({r.Text("n"), Fixed(r.Number("sent_total"), 0), Fixed(r.Number("acked_total"), 0),
                    Fixed(r.Number("stored_total"), 0), Fixed(r.Number("delivered_total"), 0),
                    Fixed(lost, 0), Fixed(r.Number("backlog_mean"), 0),
                    Fixed(r.Number("backlog_max"), 0), Fixed(r.Number("reconnects"), 0),
                    r.Text("settled")});
    }
    totals.Print();
    if (!runs.empty() && runs.front().Has("file_us")) {
        double us = runs.front().Number("file_us");
        std::printf("\nmessage file alone: %.1f us per stored record (open, seek, write, seek, "
                    "write header, close), a ceiling of %.0f records/s on one thread\n",
                    us, 1e6 / us);
    }
    std::printf(
        "\nmodel: a Worker turns on a 47 ms grid and reads at most one message per turn; a\n"
        "flat-out controller sends its next event only when the 67 for the former one is in, and\n"
        "the Worker sends the 67 in the turn that read the event. So each controller delivers at\n"
        "most one event per turn: 1000/47 = 21.3 events/s, whatever the host's speed. The callback\n"
        "trails the file by up to one second (its thread drains the queue, then sleeps 1 s): the\n"
        "backlog, sampled every 20 ms through the window, peaks near one second of events.\n"
        "library CPU = process CPU less the simulator's loop thread and the idle main thread.\n");
    for (const Results& r : runs) {
        double lost = r.Number("stored_total") - r.Number("delivered_total");
        if (lost > 0) {
            // The callback's queue holds 10000 texts and is drained once a second; more than
            // that in one second is dropped from the callback path (the file keeps them).
            Fail(Fixed(lost, 0) + " events with " + r.Text("n") +
                 " controllers are in the message file but never reached the callback");
        }
        if (r.Text("settled") != "yes") Fail("the run with " + r.Text("n") + " controllers did not settle");
    }
    const int upload = args.Int("--upload", 10000, 0, 99000);
    if (upload > 0) {
        std::fprintf(stderr, "zanth-bench-events: upload of %d stored messages...\n", upload);
        std::string resultPath = sandbox.Path("result-upload");
        std::vector<std::string> argv = {SelfProgram(), "--child-upload", std::to_string(upload),
                                         "--result", resultPath, "--dir", sandbox.Dir()};
        if (args.Flag("--keep")) argv.push_back("--keep");
        int status = WaitExit(Spawn(argv), std::chrono::seconds(600));
        if (status != 0) Fail("the upload run failed (status " + std::to_string(status) + ")");
        ReportUpload(Results::Read(resultPath));
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return BenchMain("zanth-bench-events", argc, argv, {"--keep", "--probe-file"}, {"--counts", "--window-s", "--warmup-s", "--dir", "--child",
                      "--result", "--upload", "--child-upload"}, PrintUsage,
                     [](const Args& args) {
                         if (args.Value("--child-upload")) {
                             return RunUploadChild(args.Int("--child-upload", 10000, 1, 99000),
                                                   args, args.Value("--result").value_or("result"));
                         }
                         if (args.Value("--child")) {
                             return RunChild(args.Int("--child", 1, 1, 100000), args,
                                             args.Value("--result").value_or("result"));
                         }
                         return RunParent(args);
                     });
}
