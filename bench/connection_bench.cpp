// zanth-bench-connect: how long N controllers take to connect and identify, and what the library
// costs once they are connected and quiet.
//
// Each N runs in a fresh process of its own (this program started again with --child). That
// process holds only the library; the controllers are a zanth-sim process, so the figures below
// are the library's alone:
//   - connect: from the start of zanth-sim until GetConnectedControllers lists all N MACs;
//   - idle: over a window with heartbeats off, the host process's CPU time (getrusage
//     RUSAGE_SELF less the main thread, which only sleeps) as % of one core, and its context
//     switches, which count the threads' wake-ups;
//   - memory: VmRSS of the host process before the controllers come and after, and its thread
//     count and virtual size (each Worker's stack is reserved at the default thread stack size).
//
//   zanth-bench-connect [--counts 10,100 | --full] [--idle-s 10] [--heartbeat-ms 0]

#include <signal.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "bench/support/BenchSupport.h"
#include "zanth.h"

namespace {

using namespace zanth::bench;

// The listener accepts one connection per 100 ms turn.
constexpr double kListenerTurnS = 0.1;
// Wake-ups per second: each Worker every 47 ms, the listener every 100 ms, the reset thread's
// bounded 100 ms wait.
constexpr double kWorkerWakeups = 1000.0 / 47.0;
constexpr double kFixedWakeups = 20.0;

void PrintUsage(FILE* out) {
    std::fprintf(out,
                 "usage: zanth-bench-connect [--counts L | --full] [--idle-s N] [--heartbeat-ms N]\n"
                 "                           [--sim PATH] [--dir D] [--keep]\n"
                 "  --counts L        controller counts, comma-separated (default 10,100)\n"
                 "  --full            10,100,1000 (1000 takes about two minutes to connect)\n"
                 "  --idle-s N        idle window once all are connected (default 10)\n"
                 "  --heartbeat-ms N  heartbeat period of the controllers; 0 (default) for none\n"
                 "  --sim PATH        the zanth-sim program (default: next to this one)\n"
                 "  --dir D           where the scratch directories go (default $TMPDIR or /tmp)\n"
                 "  --keep            keep them (library log, simulator output)\n");
}

// The simulator's summary counts, from its output: "..., 3 reconnects, ... 0 connect failures".
double SummaryCount(const std::string& output, const std::string& what) {
    std::smatch m;
    if (std::regex_search(output, m, std::regex("([0-9]+) " + what))) return std::stod(m[1]);
    return std::nan("");
}

int RunChild(int n, const Args& args, const std::string& resultPath) {
    const int idleS = args.Int("--idle-s", 10, 1, 3600);
    const int heartbeatMs = args.Int("--heartbeat-ms", 0, 0, 86400000);
    Sandbox sandbox(args.Value("--dir").value_or(""), args.Flag("--keep"));
    Results results;
    results.Put("n", n);
    results.Put("idle_s", idleS);

    Host host;
    // The library with its listener and reset threads, before any controller.
    std::this_thread::sleep_for(500ms);
    results.Put("rss_before_kb", static_cast<double>(StatusValue("VmRSS")));
    results.Put("threads_before", static_cast<double>(StatusValue("Threads")));

    std::string simOutput = sandbox.Path("zanth-sim.out");
    std::vector<std::string> argv = {args.Value("--sim").value_or(SiblingProgram("zanth-sim")), "--port",
                                     std::to_string(host.Port()), "--count", std::to_string(n),
                                     "--mac-base", "10:00:00", "--heartbeat-ms",
                                     std::to_string(heartbeatMs), "--quiet"};
    auto start = Clock::now();
    pid_t simPid = Spawn(argv, simOutput);
    struct Stop {
        pid_t pid;
        ~Stop() {
            if (pid > 0) {
                ::kill(pid, SIGTERM);
                WaitExit(pid, 10s);
            }
        }
    } stopSimulator{simPid};

    // From the simulator's start until every MAC is listed; the first and the half on the way.
    double first = -1, half = -1;
    auto budget = std::chrono::seconds(30) + std::chrono::milliseconds(300 * n);
    bool all = WaitFor(
        [&] {
            if (!ChildRunning(simPid)) Fail("zanth-sim ended early:\n" + ReadFile(simOutput));
            size_t count = ConnectedCount();
            double t = Seconds(Clock::now() - start);
            if (count >= 1 && first < 0) first = t;
            if (count * 2 >= static_cast<size_t>(n) && half < 0) half = t;
            return count >= static_cast<size_t>(n);
        },
        budget, 10ms);
    double connectS = Seconds(Clock::now() - start);
    if (!all) {
        Fail(std::to_string(ConnectedCount()) + " of " + std::to_string(n) +
             " controllers listed after " + Fixed(connectS) + " s");
    }
    std::set<std::string> macs = ConnectedMacs();
    if (macs.size() != static_cast<size_t>(n)) {
        Fail("GetConnectedControllers lists " + std::to_string(macs.size()) + " distinct MACs");
    }
    results.Put("connect_s", connectS);
    results.Put("first_s", first);
    results.Put("half_s", half);

    // Settle, then the idle window.
    std::this_thread::sleep_for(2s);
    Usage p0 = ProcessUsage(), m0 = ThreadUsage();
    SystemTicks s0 = SystemCpu();
    double sim0 = ProcCpuSeconds(simPid);
    auto w0 = Clock::now();
    std::this_thread::sleep_for(std::chrono::seconds(idleS));
    Usage p1 = ProcessUsage(), m1 = ThreadUsage();
    SystemTicks s1 = SystemCpu();
    double sim1 = ProcCpuSeconds(simPid);
    double dt = Seconds(Clock::now() - w0);
    double cpu = (p1.cpuSeconds - p0.cpuSeconds) - (m1.cpuSeconds - m0.cpuSeconds);
    long switches = (p1.voluntarySwitches + p1.involuntarySwitches) -
                    (p0.voluntarySwitches + p0.involuntarySwitches) -
                    ((m1.voluntarySwitches + m1.involuntarySwitches) -
                     (m0.voluntarySwitches + m0.involuntarySwitches));
    results.Put("cpu_pct", 100.0 * cpu / dt);
    results.Put("wakeups_per_s", static_cast<double>(switches) / dt);
    results.Put("sim_cpu_pct", 100.0 * (sim1 - sim0) / dt);
    double ticks = s1.total - s0.total;
    if (ticks > 0) {
        results.Put("machine_busy_pct", 100.0 * (s1.busy - s0.busy) / ticks);
        results.Put("steal_pct", 100.0 * (s1.steal - s0.steal) / ticks);
    }
    results.Put("rss_kb", static_cast<double>(StatusValue("VmRSS")));
    results.Put("hwm_kb", static_cast<double>(StatusValue("VmHWM")));
    results.Put("vm_kb", static_cast<double>(StatusValue("VmSize")));
    results.Put("threads", static_cast<double>(StatusValue("Threads")));
    results.Put("still_connected", static_cast<double>(ConnectedCount()));

    // The simulator goes first, so that its summary tells only of the connect and idle phases.
    ::kill(simPid, SIGTERM);
    int status = WaitExit(simPid, 20s);
    stopSimulator.pid = 0;
    if (status != 0) Fail("zanth-sim did not end cleanly (status " + std::to_string(status) + ")");
    std::string summary = ReadFile(simOutput);
    results.Put("sim_reconnects", SummaryCount(summary, "reconnects"));
    results.Put("sim_connect_failures", SummaryCount(summary, "connect failures"));

    auto closing = Clock::now();
    host.Close();
    results.Put("close_s", Seconds(Clock::now() - closing));
    results.Write(resultPath);
    return 0;
}

std::string LimitText(long value) { return value == -2 ? "unlimited" : std::to_string(value); }

int RunParent(const Args& args) {
    std::vector<int> counts =
        args.IntList("--counts", args.Flag("--full") ? std::vector<int>{10, 100, 1000}
                                                     : std::vector<int>{10, 100});
    const int idleS = args.Int("--idle-s", 10, 1, 3600);
    const int heartbeatMs = args.Int("--heartbeat-ms", 0, 0, 86400000);
    const std::string simulator = args.Value("--sim").value_or(SiblingProgram("zanth-sim"));
    if (::access(simulator.c_str(), X_OK) != 0) {
        Fail("no zanth-sim program at " + simulator + " (build the zanth-sim target, or give --sim)");
    }
    Sandbox sandbox(args.Value("--dir").value_or(""), args.Flag("--keep"));
    int largest = 0;
    for (int n : counts) largest = std::max(largest, n);

    std::printf("zanth-bench-connect: connect, identify and idle, controllers in a separate "
                "zanth-sim process, heartbeats %s\n",
                heartbeatMs > 0 ? ("every " + std::to_string(heartbeatMs) + " ms").c_str() : "off");
    std::printf("machine: %s\n", MachineLine(sandbox.Dir()).c_str());
    // Each controller is a thread and a socket here, and a socket in zanth-sim.
    RaiseOpenFiles(largest + 256);
    Limits l = ReadLimits();
    std::printf("limits: ulimit -u %s, threads-max %ld, pid_max %ld, open files %s, "
                "max_map_count %ld, thread stack %s kB\n",
                LimitText(l.nproc).c_str(), l.threadsMax, l.pidMax, LimitText(l.nofile).c_str(),
                l.maxMapCount, LimitText(l.stackKb).c_str());
    long threadsWanted = largest + 16;
    auto tight = [&](long limit) { return limit >= 0 && limit < threadsWanted; };
    if (tight(l.nproc) || tight(l.threadsMax) || tight(l.pidMax)) {
        std::printf("warning: %d controllers need about %ld threads, above a limit above\n",
                    largest, threadsWanted);
    }
    if (l.nofile >= 0 && l.nofile < largest + 64) {
        std::printf("warning: %ld open files allowed, %d controllers need more\n", l.nofile, largest);
    }
    if (l.maxMapCount >= 0 && l.maxMapCount < 2 * threadsWanted + 1000) {
        std::printf("warning: max_map_count %ld is tight for %ld thread stacks\n", l.maxMapCount,
                    threadsWanted);
    }
    std::printf("\n");
    std::fflush(stdout);

    std::vector<Results> runs;
    for (int n : counts) {
        std::fprintf(stderr,
                     "zanth-bench-connect: %d controllers (about %.0f s to connect, then %d s idle)...\n",
                     n, n * kListenerTurnS, idleS);
        std::string resultPath = sandbox.Path("result-" + std::to_string(n));
        std::vector<std::string> argv = {SelfProgram(), "--child", std::to_string(n), "--result",
                                         resultPath, "--dir", sandbox.Dir(), "--idle-s",
                                         std::to_string(idleS), "--heartbeat-ms",
                                         std::to_string(heartbeatMs), "--sim", simulator};
        if (args.Flag("--keep")) argv.push_back("--keep");
        pid_t pid = Spawn(argv);
        auto budget = std::chrono::seconds(120 + idleS) + std::chrono::milliseconds(400 * n);
        int status = WaitExit(pid, budget);
        if (status != 0) {
            Fail("the run with " + std::to_string(n) + " controllers failed (status " +
                 std::to_string(status) + ")");
        }
        runs.push_back(Results::Read(resultPath));
    }

    std::printf("connect and identify (from zanth-sim's start until GetConnectedControllers lists "
                "every MAC):\n");
    Table connect({"controllers", "all listed s", "per controller ms", "model s", "first listed ms",
                   "half listed s", "sim reconnects", "sim connect failures"});
    for (const Results& r : runs) {
        double n = r.Number("n");
        connect.Row({r.Text("n"), Fixed(r.Number("connect_s"), 2),
                     Fixed(1000.0 * r.Number("connect_s") / n, 1), Fixed(n * kListenerTurnS, 1),
                     Fixed(1000.0 * r.Number("first_s"), 0), Fixed(r.Number("half_s"), 2),
                     Fixed(r.Number("sim_reconnects"), 0),
                     Fixed(r.Number("sim_connect_failures"), 0)});
    }
    connect.Print();

    std::printf("\nconnected and idle, window %d s (host process only):\n", idleS);
    Table idle({"controllers", "threads", "CPU % of 1 core", "CPU us/s per ctrl", "wake-ups/s",
                "model wake-ups/s", "RSS before MB", "RSS MB", "RSS per ctrl kB", "peak RSS MB",
                "virtual MB", "still listed", "zanth-sim CPU %", "machine busy %", "steal %"});
    for (const Results& r : runs) {
        double n = r.Number("n");
        double before = r.Number("rss_before_kb"), rss = r.Number("rss_kb");
        idle.Row({r.Text("n"), Fixed(r.Number("threads"), 0), Fixed(r.Number("cpu_pct"), 2),
                  Fixed(1e4 * r.Number("cpu_pct") / n, 1), Fixed(r.Number("wakeups_per_s"), 0),
                  Fixed(n * kWorkerWakeups + kFixedWakeups, 0), Fixed(before / 1024, 1),
                  Fixed(rss / 1024, 1), Fixed((rss - before) / n, 1),
                  Fixed(r.Number("hwm_kb") / 1024, 1), Fixed(r.Number("vm_kb") / 1024, 0),
                  Fixed(r.Number("still_connected"), 0), Fixed(r.Number("sim_cpu_pct"), 2),
                  Fixed(r.Number("machine_busy_pct"), 1), Fixed(r.Number("steal_pct"), 1)});
    }
    idle.Print();
    std::printf(
        "\nmodel: the listener accepts at most one connection per 100 ms turn, so N controllers\n"
        "take about N x 100 ms whatever they do; each then identifies within one or two 47 ms\n"
        "Worker turns. Idle, every Worker wakes each 47 ms (21.3/s) to peek at its socket and\n"
        "look in sendMon; the listener and the reset thread wake ten times a second each.\n"
        "CPU = getrusage(RUSAGE_SELF) less the main thread (which only sleeps) over the window;\n"
        "wake-ups = context switches of the same threads. RSS per controller = (RSS - RSS before\n"
        "the controllers came) / N; virtual size counts each thread's reserved stack.\n"
        "machine busy / steal: all cores together, from /proc/stat (steal is time the hypervisor\n"
        "gave to other guests; a high value makes every figure of that row suspect).\n"
        "Shutdown and unload after the controllers left took:");
    for (const Results& r : runs) {
        std::printf(" %s: %.1f s;", r.Text("n").c_str(), r.Number("close_s"));
    }
    std::printf("\n");
    for (const Results& r : runs) {
        if (r.Number("still_connected") != r.Number("n")) {
            Fail("controllers dropped during the idle window (" + r.Text("n") + " run)");
        }
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return BenchMain("zanth-bench-connect", argc, argv, {"--keep", "--full"}, {"--counts", "--idle-s", "--heartbeat-ms", "--sim", "--dir",
                      "--child", "--result"}, PrintUsage,
                     [](const Args& args) {
                         if (args.Value("--child")) {
                             return RunChild(args.Int("--child", 1, 1, 100000), args,
                                             args.Value("--result").value_or("result"));
                         }
                         return RunParent(args);
                     });
}
