// zanth-bench-connect: how fast controllers get connected and identified, what the library costs
// once they are connected and quiet, and whether connecting and dropping again and again leaves
// anything behind.
//
// Four ways to run:
//   (default)  staggered: zanth-sim keeps 16 connections under way at a time (its own default),
//              as a site whose controllers come up one after the other;
//   --storm    all N controllers call at once, as a whole site after its switch came back;
//   --churn    C cycles of connect, identify and drop, P controllers cycling at a time;
//   --silent   N connections that never identify (silent, or one byte a second each with
//              --drip), held until the library closes them after its 30 s limit: the memory
//              they cost while held and what the process keeps after they are gone, with the
//              allocator's defaults and with MALLOC_ARENA_MAX=2.
//
// Staggered and storm: each N (and each repeat) runs in a fresh process of its own (this program
// started again with --child). That process holds only the library; the controllers are a
// zanth-sim process, so the figures below are the library's alone:
//   - connect: from the start of zanth-sim until GetConnectedControllers lists all N MACs, and
//     for each controller until its MAC is first listed (polled every 10 ms);
//   - idle: over a window with heartbeats off, the host process's CPU time (getrusage
//     RUSAGE_SELF less the main thread, which only sleeps) as % of one core, and its context
//     switches, which count the threads' wake-ups;
//   - memory: VmRSS of the host process before the controllers come and after, its threads,
//     descriptors and virtual size (which counts every thread's reserved stack: 256 KiB for a
//     Worker, the system's default for the others).
//
// Churn: the library runs in this process and the controllers in a child process of their own
// (this program again, with --churn-driver, the simulator in-process there), so that
// /proc/self/fd and /proc/self/task count the library's descriptors and threads alone. The
// cycles run in two halves, and descriptors, threads and memory are read with no controller
// connected at the start, between the halves and at the end: a leak grows from one to the next.
//
//   zanth-bench-connect [--counts 10,100,1000 | --full] [--storm] [--repeat R] [--idle-s 10]
//   zanth-bench-connect --churn [--cycles 10000] [--parallel 50] [--max-s 600]
//   zanth-bench-connect --silent [--peers 2000] [--drip]

#include <arpa/inet.h>
#include <fcntl.h>
#include <malloc.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <regex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "bench/support/BenchSupport.h"
#include "protocol/Codes.h"
#include "tools/sim/Simulator.h"
#include "zanth.h"

namespace {

using namespace zanth::bench;
namespace sim = zanth::sim;

// What the library does, for the model figures.
constexpr double kListenerTurnS = 0.1;  // the listener takes every pending connection each turn
constexpr double kWorkerTurnS = 0.047;  // a new Worker reads the identification on its first turn
constexpr int kListenBacklog = 4096;    // what the library asks of listen()
// Wake-ups per second of a quiet library: the listener's and the reset thread's 100 ms turns. An
// idle Worker sleeps in poll() on its socket and its wake-up descriptor and adds none.
constexpr double kFixedWakeups = 20.0;
constexpr int kSimConnecting = 16;  // zanth-sim's own default of connections under way

void PrintUsage(FILE* out) {
    std::fprintf(
        out,
        "usage: zanth-bench-connect [--counts L | --full] [--storm] [--repeat R] [--idle-s N]\n"
        "                           [--heartbeat-ms N] [--max-connecting N] [--sim PATH]\n"
        "                           [--dir D] [--keep]\n"
        "       zanth-bench-connect --churn [--cycles C] [--parallel P] [--max-s N] [--dir D]\n"
        "       zanth-bench-connect --silent [--peers N] [--drip] [--dir D] [--keep]\n"
        "  --counts L          controller counts, comma-separated (default 10,100,1000;\n"
        "                      with --storm 1000,5000)\n"
        "  --full              10,100,1000,5000\n"
        "  --storm             every controller calls at once (zanth-sim --max-connecting N)\n"
        "  --max-connecting N  connections zanth-sim keeps under way (default 16; --storm: all)\n"
        "  --repeat R          run each count R times, each in a fresh process (default 1)\n"
        "  --idle-s N          idle window once all are listed (default 10)\n"
        "  --heartbeat-ms N    heartbeat period of the controllers; 0 (default) for none\n"
        "  --churn             connect, identify and drop, over and over\n"
        "  --cycles C          churn cycles in all, in two halves (default 10000)\n"
        "  --parallel P        controllers cycling at the same time (default 50)\n"
        "  --max-s N           churn time bound (default 600): it stops there and says so\n"
        "  --silent            N connections that never identify, until the library closes them\n"
        "  --peers N           how many (default 2000)\n"
        "  --drip              each sends one byte a second instead of nothing\n"
        "  --sim PATH          the zanth-sim program (default: next to this one)\n"
        "  --dir D             where the scratch directories go (default $TMPDIR or /tmp)\n"
        "  --keep              keep them (library log, simulator output)\n");
}

// The simulator's summary counts, from its output: "..., 3 reconnects, ... 0 connect failures".
double SummaryCount(const std::string& output, const std::string& what) {
    std::smatch m;
    if (std::regex_search(output, m, std::regex("([0-9]+) " + what))) return std::stod(m[1]);
    return std::nan("");
}

std::string LimitText(long value) { return value == -2 ? "unlimited" : std::to_string(value); }

// Each Worker holds its socket and its wake-up eventfd; zanth-sim a socket per controller.
long HostFilesNeeded(long n) { return 2 * n + 64; }
long ThreadsNeeded(long n) { return n + 16; }

// Why N controllers can't run on this machine, or empty when they can.
std::string WontFit(long n, const Limits& l) {
    auto below = [](long limit, long wanted) { return limit >= 0 && limit < wanted; };
    long files = HostFilesNeeded(n), threads = ThreadsNeeded(n);
    if (below(l.nofile, files)) {
        return "needs " + std::to_string(files) + " open files (a socket and an eventfd per "
               "controller), the hard limit allows " + std::to_string(l.nofile);
    }
    if (below(l.threadsMax, threads)) {
        return "needs " + std::to_string(threads) + " threads, threads-max is " +
               std::to_string(l.threadsMax);
    }
    if (below(l.pidMax, threads)) {
        return "needs " + std::to_string(threads) + " threads, pid_max is " +
               std::to_string(l.pidMax);
    }
    // Root isn't held to RLIMIT_NPROC.
    if (::geteuid() != 0 && below(l.nproc, threads)) {
        return "needs " + std::to_string(threads) + " threads, ulimit -u is " +
               std::to_string(l.nproc);
    }
    if (below(l.maxMapCount, 2 * threads + 1000)) {
        return "needs about " + std::to_string(2 * threads + 1000) +
               " mappings (a stack and its guard per thread), max_map_count is " +
               std::to_string(l.maxMapCount);
    }
    if (l.portLow > 0 && l.portHigh >= l.portLow && l.portHigh - l.portLow + 1 < n) {
        return "needs " + std::to_string(n) + " local ports, ip_local_port_range has " +
               std::to_string(l.portHigh - l.portLow + 1);
    }
    return "";
}

void PrintLimits(const Limits& l) {
    std::printf("limits: open files %s (soft raised to hard), ulimit -u %s, threads-max %ld, "
                "pid_max %ld, max_map_count %ld, thread stack %s kB\n",
                LimitText(l.nofile).c_str(), LimitText(l.nproc).c_str(), l.threadsMax, l.pidMax,
                l.maxMapCount, LimitText(l.stackKb).c_str());
    std::printf("        listen backlog %d asked, somaxconn %ld, tcp_max_syn_backlog %ld, "
                "local ports %ld-%ld\n",
                kListenBacklog, l.somaxconn, l.synBacklog, l.portLow, l.portHigh);
    long most = l.nofile >= 0 ? (l.nofile - 64) / 2 : 100000;
    auto lower = [&](long limit, long minus) {
        if (limit >= 0) most = std::min(most, limit - minus);
    };
    lower(l.threadsMax, 16);
    lower(l.pidMax, 16);
    if (::geteuid() != 0) lower(l.nproc, 16);
    if (l.maxMapCount >= 0) most = std::min(most, (l.maxMapCount - 1000) / 2 - 16);
    if (l.portLow > 0 && l.portHigh >= l.portLow) lower(l.portHigh - l.portLow + 1, 0);
    std::printf("        at most about %ld controllers fit under these (other processes' threads "
                "and ports count too)\n",
                most);
}

// ---- Staggered and storm: one N in a process of its own ---------------------------------------

std::chrono::milliseconds ChildConnectBudget(long n) {
    return std::chrono::milliseconds(60000 + 150 * n);
}

int RunChild(int n, const Args& args, const std::string& resultPath) {
    const int idleS = args.Int("--idle-s", 10, 1, 3600);
    const int heartbeatMs = args.Int("--heartbeat-ms", 0, 0, 86400000);
    const int maxConnecting = args.Int("--max-connecting", kSimConnecting, 1, 10000);
    Sandbox sandbox(args.Value("--dir").value_or(""), args.Flag("--keep"));
    Results results;
    results.Put("n", n);
    results.Put("idle_s", idleS);
    results.Put("max_connecting", maxConnecting);

    Host host;
    // The library with its listener and reset threads, before any controller.
    std::this_thread::sleep_for(500ms);
    results.Put("rss_before_kb", static_cast<double>(StatusValue("VmRSS")));
    results.Put("threads_before", static_cast<double>(TaskCount()));
    results.Put("fds_before", static_cast<double>(OpenFileCount()));

    std::string simOutput = sandbox.Path("zanth-sim.out");
    std::vector<std::string> argv = {args.Value("--sim").value_or(SiblingProgram("zanth-sim")),
                                     "--port", std::to_string(host.Port()), "--count",
                                     std::to_string(n), "--mac-base", "10:00:00",
                                     "--heartbeat-ms", std::to_string(heartbeatMs),
                                     "--max-connecting", std::to_string(maxConnecting), "--quiet"};
    auto start = Clock::now();
    pid_t simPid = Spawn(argv, simOutput);
    struct Stop {
        pid_t pid;
        ~Stop() {
            if (pid > 0) {
                ::kill(pid, SIGTERM);
                WaitExit(pid, 20s);
            }
        }
    } stopSimulator{simPid};

    // From the simulator's start until every MAC is listed, and when each was listed first. The
    // list is read whole only when its length changed.
    std::unordered_map<std::string, double> firstListed;
    size_t lastCount = 0;
    // A bound, not a target: generous enough for a library that takes one call per turn.
    auto budget = ChildConnectBudget(n);
    bool all = WaitFor(
        [&] {
            if (!ChildRunning(simPid)) Fail("zanth-sim ended early:\n" + ReadFile(simOutput));
            size_t count = ConnectedCount();
            double t = Seconds(Clock::now() - start);
            if (count != lastCount) {
                lastCount = count;
                for (const std::string& mac : ConnectedMacs()) firstListed.emplace(mac, t);
            }
            return count >= static_cast<size_t>(n) && firstListed.size() >= static_cast<size_t>(n);
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
    std::vector<double> perController;
    for (const auto& [mac, t] : firstListed) perController.push_back(t);
    Summary s = Summarize(perController);
    results.Put("connect_s", connectS);
    results.Put("ctrl_min_s", s.min);
    results.Put("ctrl_p50_s", s.p50);
    results.Put("ctrl_p90_s", s.p90);
    results.Put("ctrl_p99_s", s.p99);
    results.Put("ctrl_max_s", s.max);
    results.Put("peak_threads", static_cast<double>(TaskCount()));

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
    results.Put("threads", static_cast<double>(TaskCount()));
    results.Put("fds", static_cast<double>(OpenFileCount()));
    results.Put("still_connected", static_cast<double>(ConnectedCount()));

    // The simulator goes first, so that its summary tells only of the connect and idle phases.
    ::kill(simPid, SIGTERM);
    int status = WaitExit(simPid, 30s);
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

// Rounds of `maxConnecting` connections, each waiting on average half a listener turn and then
// the Worker's first turn, which reads the identification and answers it.
double ConnectModelS(double n, double maxConnecting) {
    double rounds = std::ceil(n / std::max(1.0, std::min(n, maxConnecting)));
    return rounds * (kListenerTurnS / 2 + kWorkerTurnS);
}

double Median(std::vector<double> v) {
    if (v.empty()) return std::nan("");
    std::sort(v.begin(), v.end());
    size_t k = v.size() / 2;
    return v.size() % 2 ? v[k] : (v[k - 1] + v[k]) / 2;
}

int RunParent(const Args& args) {
    const bool storm = args.Flag("--storm");
    std::vector<int> fallback = storm ? std::vector<int>{1000, 5000}
                                      : std::vector<int>{10, 100, 1000};
    if (args.Flag("--full")) fallback = {10, 100, 1000, 5000};
    std::vector<int> counts = args.IntList("--counts", fallback);
    const int repeat = args.Int("--repeat", 1, 1, 100);
    const int idleS = args.Int("--idle-s", 10, 1, 3600);
    const int heartbeatMs = args.Int("--heartbeat-ms", 0, 0, 86400000);
    const std::optional<std::string> connecting = args.Value("--max-connecting");
    if (connecting) args.Int("--max-connecting", kSimConnecting, 1, 10000);
    const std::string simulator = args.Value("--sim").value_or(SiblingProgram("zanth-sim"));
    if (::access(simulator.c_str(), X_OK) != 0) {
        Fail("no zanth-sim program at " + simulator + " (build the zanth-sim target, or give --sim)");
    }
    Sandbox sandbox(args.Value("--dir").value_or(""), args.Flag("--keep"));
    auto maxConnectingFor = [&](int n) {
        if (connecting) return args.Int("--max-connecting", kSimConnecting, 1, 10000);
        return storm ? std::min(n, 10000) : kSimConnecting;
    };

    std::printf("zanth-bench-connect: %s, controllers in a separate zanth-sim process, heartbeats "
                "%s\n",
                storm ? "storm (every controller calls at once)"
                      : "staggered connect (zanth-sim keeps a few connections under way)",
                heartbeatMs > 0 ? ("every " + std::to_string(heartbeatMs) + " ms").c_str() : "off");
    std::printf("machine: %s\n", MachineLine(sandbox.Dir()).c_str());
    // Each controller is a thread, a socket and an eventfd here, and a socket in zanth-sim, which
    // inherits the limit.
    RaiseOpenFilesToHard();
    Limits l = ReadLimits();
    PrintLimits(l);
    std::vector<int> runnable;
    for (int n : counts) {
        std::string why = WontFit(n, l);
        if (why.empty()) {
            runnable.push_back(n);
        } else {
            std::printf("skipped: %d controllers can't run here: %s\n", n, why.c_str());
        }
        long backlog = l.somaxconn >= 0 ? std::min<long>(kListenBacklog, l.somaxconn) : kListenBacklog;
        if (why.empty() && maxConnectingFor(n) > backlog) {
            std::printf("note: %d at once is more than the listen backlog (%ld): the kernel "
                        "drops the rest of the calls and their SYNs come again after 1 s, 3 s, ...\n",
                        n, backlog);
        }
    }
    std::printf("\n");
    std::fflush(stdout);
    if (runnable.empty()) Fail("none of the counts fits the limits above");

    std::vector<Results> runs;
    for (int n : runnable) {
        for (int r = 1; r <= repeat; ++r) {
            int maxConnecting = maxConnectingFor(n);
            std::fprintf(stderr,
                         "zanth-bench-connect: %d controllers, %d at a time%s (model %.1f s to "
                         "connect, then %d s idle)...\n",
                         n, maxConnecting,
                         repeat > 1 ? (", run " + std::to_string(r) + "/" + std::to_string(repeat)).c_str()
                                    : "",
                         ConnectModelS(n, maxConnecting), idleS);
            std::string resultPath = sandbox.Path("result-" + std::to_string(n) + "-" + std::to_string(r));
            std::vector<std::string> argv = {SelfProgram(), "--child", std::to_string(n), "--result",
                                             resultPath, "--dir", sandbox.Dir(), "--idle-s",
                                             std::to_string(idleS), "--heartbeat-ms",
                                             std::to_string(heartbeatMs), "--max-connecting",
                                             std::to_string(maxConnecting), "--sim", simulator};
            if (args.Flag("--keep")) argv.push_back("--keep");
            pid_t pid = Spawn(argv);
            auto budget = ChildConnectBudget(n) + std::chrono::seconds(120 + idleS);
            int status = WaitExit(pid, budget);
            if (status != 0) {
                Fail("the run with " + std::to_string(n) + " controllers failed (status " +
                     std::to_string(status) + ")");
            }
            Results result = Results::Read(resultPath);
            result.Put("run", r);
            runs.push_back(result);
        }
    }

    std::printf("connect and identify (from zanth-sim's start until GetConnectedControllers lists "
                "every MAC; per controller: until its MAC is first listed):\n");
    Table connect({"controllers", "run", "at a time", "all listed s", "model s", "first s",
                   "ctrl p50 s", "ctrl p90 s", "ctrl p99 s", "peak threads", "sim reconnects",
                   "sim connect failures"});
    for (const Results& r : runs) {
        double n = r.Number("n");
        connect.Row({r.Text("n"), r.Text("run"), r.Text("max_connecting"),
                     Fixed(r.Number("connect_s"), 2), Fixed(ConnectModelS(n, r.Number("max_connecting")), 2),
                     Fixed(r.Number("ctrl_min_s"), 2), Fixed(r.Number("ctrl_p50_s"), 2),
                     Fixed(r.Number("ctrl_p90_s"), 2), Fixed(r.Number("ctrl_p99_s"), 2),
                     Fixed(r.Number("peak_threads"), 0), Fixed(r.Number("sim_reconnects"), 0),
                     Fixed(r.Number("sim_connect_failures"), 0)});
    }
    connect.Print();

    std::printf("\nconnected and idle, window %d s (host process only):\n", idleS);
    Table idle({"controllers", "run", "threads", "fds", "CPU % of 1 core", "CPU us/s per ctrl",
                "wake-ups/s", "model wake-ups/s", "RSS before MB", "RSS MB", "RSS per ctrl kB",
                "peak RSS MB", "virtual MB", "still listed", "zanth-sim CPU %", "machine busy %",
                "steal %"});
    for (const Results& r : runs) {
        double n = r.Number("n");
        double before = r.Number("rss_before_kb"), rss = r.Number("rss_kb");
        idle.Row({r.Text("n"), r.Text("run"), Fixed(r.Number("threads"), 0),
                  Fixed(r.Number("fds"), 0), Fixed(r.Number("cpu_pct"), 2),
                  Fixed(1e4 * r.Number("cpu_pct") / n, 2), Fixed(r.Number("wakeups_per_s"), 0),
                  Fixed(kFixedWakeups, 0), Fixed(before / 1024, 1), Fixed(rss / 1024, 1),
                  Fixed((rss - before) / n, 1), Fixed(r.Number("hwm_kb") / 1024, 1),
                  Fixed(r.Number("vm_kb") / 1024, 0), Fixed(r.Number("still_connected"), 0),
                  Fixed(r.Number("sim_cpu_pct"), 2), Fixed(r.Number("machine_busy_pct"), 1),
                  Fixed(r.Number("steal_pct"), 1)});
    }
    idle.Print();

    if (repeat > 1) {
        std::printf("\nover the %d runs of each count:\n", repeat);
        Table spread({"controllers", "runs", "all listed s min", "median", "max", "idle CPU % min",
                      "median", "max", "machine busy % in the max run"});
        for (int n : runnable) {
            std::vector<double> listed, cpu;
            const Results* worst = nullptr;
            for (const Results& r : runs) {
                if (r.Number("n") != n) continue;
                listed.push_back(r.Number("connect_s"));
                cpu.push_back(r.Number("cpu_pct"));
                if (!worst || r.Number("cpu_pct") > worst->Number("cpu_pct")) worst = &r;
            }
            if (!worst) continue;
            spread.Row({std::to_string(n), std::to_string(listed.size()),
                        Fixed(*std::min_element(listed.begin(), listed.end()), 2),
                        Fixed(Median(listed), 2),
                        Fixed(*std::max_element(listed.begin(), listed.end()), 2),
                        Fixed(*std::min_element(cpu.begin(), cpu.end()), 2), Fixed(Median(cpu), 2),
                        Fixed(*std::max_element(cpu.begin(), cpu.end()), 2),
                        Fixed(worst->Number("machine_busy_pct"), 1)});
        }
        spread.Print();
    }

    std::printf(
        "\nmodel: the listener takes every connection pending at each of its 100 ms turns (backlog\n"
        "%d), starting a Worker for each, and a new Worker reads the identification and answers\n"
        "it on its first 47 ms turn. With zanth-sim keeping K connections under way, N take about\n"
        "N/K rounds of (half a listener turn + one Worker turn) = N/K x 97 ms; all at once, one\n"
        "round, plus the time the host needs to start N threads. Idle, a Worker sleeps in poll()\n"
        "on its socket and its eventfd until a message, a command for its MAC, a stop or the\n"
        "library's end wakes it, and then comes back on its 47 ms turn grid: a quiet Worker costs\n"
        "no wake-ups; the listener and the reset thread wake ten times a second each (20/s).\n"
        "CPU = getrusage(RUSAGE_SELF) less the main thread (which only sleeps) over the window;\n"
        "wake-ups = context switches of the same threads. RSS per controller = (RSS - RSS before\n"
        "the controllers came) / N; fds = /proc/self/fd (a socket and an eventfd per Worker);\n"
        "virtual size counts each thread's reserved stack.\n"
        "machine busy / steal: all cores together, from /proc/stat (busy well above the host and\n"
        "zanth-sim columns means other work ran; steal is time the hypervisor gave to other\n"
        "guests): either makes that row suspect.\n"
        "Shutdown and unload after the controllers left took:",
        kListenBacklog);
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

// ---- Churn ------------------------------------------------------------------------------------

// The controllers of the churn run, in a process of their own. Each of P controllers connects,
// identifies and, as soon as the host's acceptance (70) is in, drops its link and calls again
// (the simulator's reconnect after 100 ms), until it has been accepted its share of the cycles;
// then the simulator stops and closes the last links. Stamps are taken on the simulator's loop
// thread by its frame hook.
int RunChurnDriver(const Args& args) {
    const int port = args.Int("--churn-driver", 0, 1, 65535);
    const int cycles = args.Int("--cycles", 10000, 1, 10000000);
    const int parallel = std::min(args.Int("--parallel", 50, 1, 10000), cycles);
    const int maxS = args.Int("--max-s", 600, 1, 86400);
    const std::string resultPath = args.Value("--result").value_or("result");

    struct Slot {
        int quota = 0;
        int done = 0;
        bool dropped = false;
        Clock::time_point sentAt{}, droppedAt{};
    };
    std::vector<Slot> slots(static_cast<size_t>(parallel));
    for (int i = 0; i < parallel; ++i) {
        slots[static_cast<size_t>(i)].quota = cycles / parallel + (i < cycles % parallel ? 1 : 0);
    }
    std::vector<double> identifyMs, cycleMs;  // loop thread until it has stopped
    std::atomic<int> accepted{0}, finished{0};

    sim::Simulator simulator(sim::SimulatorOptions{parallel});
    std::vector<sim::Controller*> controllers;
    std::unordered_map<const sim::Controller*, size_t> index;
    for (int i = 0; i < parallel; ++i) {
        sim::ControllerConfig c;
        c.mac = sim::MacPlus("20:00:00", static_cast<uint32_t>(i));
        c.port = port;
        sim::Controller& added = simulator.Add(std::move(c));
        index.emplace(&added, controllers.size());
        controllers.push_back(&added);
    }
    simulator.SetFrameHook([&](const sim::Controller& c, sim::Direction direction, int code,
                               std::string_view) {
        auto it = index.find(&c);
        if (it == index.end()) return;
        Slot& s = slots[it->second];
        auto now = Clock::now();
        if (direction == sim::Direction::ToHost && code == zanth::ZANTH_IDENTIFY_CONTROLLER) {
            s.sentAt = now;
        } else if (direction == sim::Direction::FromHost && code == zanth::ZANTH_ACCEPT_CONNECTION) {
            identifyMs.push_back(Ms(now - s.sentAt));
            if (s.dropped) cycleMs.push_back(Ms(now - s.droppedAt));
            ++s.done;
            accepted.fetch_add(1);
            if (s.done < s.quota) {
                s.dropped = true;
                s.droppedAt = now;
                controllers[it->second]->Drop();
            } else {
                finished.fetch_add(1);
            }
        }
    });
    auto start = Clock::now();
    simulator.Start();
    bool complete = WaitFor([&] { return finished.load() >= parallel; }, std::chrono::seconds(maxS), 20ms);
    double elapsed = Seconds(Clock::now() - start);
    simulator.Stop();

    sim::SimulatorTotals t = simulator.Totals();
    Results r;
    r.Put("cycles", accepted.load());
    r.Put("complete", complete ? 1 : 0);
    r.Put("elapsed_s", elapsed);
    Summary id = Summarize(identifyMs), cy = Summarize(cycleMs);
    r.Put("identify_p50_ms", id.p50);
    r.Put("identify_p99_ms", id.p99);
    r.Put("identify_max_ms", id.max);
    r.Put("cycle_p50_ms", cy.p50);
    r.Put("cycle_p99_ms", cy.p99);
    r.Put("cycle_max_ms", cy.max);
    r.Put("slow_cycles", static_cast<double>(
                             std::count_if(cycleMs.begin(), cycleMs.end(), [](double ms) { return ms > 1000; })));
    r.Put("connect_failures", static_cast<double>(t.connectFailures));
    r.Put("protocol_errors", static_cast<double>(t.protocolErrors));
    uint64_t rejections = 0;
    for (sim::Controller* c : controllers) rejections += c->Stats().rejections;
    r.Put("rejections", static_cast<double>(rejections));
    r.Write(resultPath);
    return 0;
}

struct Snapshot {
    std::string phase;
    double cycles = 0;
    double seconds = 0;
    long listed = 0;
    long fds = 0;
    long threads = 0;
    long rssKb = 0;
    long vmKb = 0;
};

Snapshot Take(const std::string& phase, double cycles, Clock::time_point start) {
    Snapshot s;
    s.phase = phase;
    s.cycles = cycles;
    s.seconds = Seconds(Clock::now() - start);
    s.listed = static_cast<long>(ConnectedCount());
    s.fds = OpenFileCount();
    s.threads = TaskCount();
    s.rssKb = StatusValue("VmRSS");
    s.vmKb = StatusValue("VmSize");
    return s;
}

int RunChurn(const Args& args) {
    const int cycles = args.Int("--cycles", 10000, 2, 10000000);
    const int parallel = args.Int("--parallel", 50, 1, 10000);
    const int maxS = args.Int("--max-s", 600, 10, 86400);
    RaiseOpenFilesToHard();
    Sandbox sandbox(args.Value("--dir").value_or(""), args.Flag("--keep"));
    std::printf("zanth-bench-connect: churn, %d cycles of connect, identify and drop, %d "
                "controllers at a time, at most %d s\n",
                cycles, parallel, maxS);
    std::printf("machine: %s\n", MachineLine(sandbox.Dir()).c_str());
    Limits l = ReadLimits();
    PrintLimits(l);
    std::string why = WontFit(parallel, l);
    if (!why.empty()) Fail(std::to_string(parallel) + " controllers at a time can't run here: " + why);
    std::printf("\n");
    std::fflush(stdout);

    Host host;
    std::this_thread::sleep_for(500ms);
    auto start = Clock::now();
    auto deadline = start + std::chrono::seconds(maxS);
    std::vector<Snapshot> snapshots{Take("start", 0, start)};
    std::vector<Snapshot> peaks;
    std::vector<Results> halves;
    double done = 0;
    const int half[2] = {cycles / 2, cycles - cycles / 2};
    for (int h = 0; h < 2; ++h) {
        long leftS = std::chrono::duration_cast<std::chrono::seconds>(deadline - Clock::now()).count();
        if (leftS < 1) break;
        std::fprintf(stderr, "zanth-bench-connect: churn half %d, %d cycles...\n", h + 1, half[h]);
        std::string resultPath = sandbox.Path("churn-" + std::to_string(h + 1));
        std::vector<std::string> argv = {SelfProgram(), "--churn-driver", std::to_string(host.Port()),
                                         "--cycles", std::to_string(half[h]), "--parallel",
                                         std::to_string(parallel), "--max-s", std::to_string(leftS),
                                         "--result", resultPath};
        pid_t pid = Spawn(argv, sandbox.Path("churn-driver-" + std::to_string(h + 1) + ".out"));
        // The most the library held while the controllers came and went.
        Snapshot peak;
        peak.phase = "peak in half " + std::to_string(h + 1);
        int status = 0;
        auto hardStop = Clock::now() + std::chrono::seconds(leftS + 30);
        while (ChildRunning(pid, &status)) {
            if (Clock::now() >= hardStop) {
                WaitExit(pid, 0s);
                Fail("the churn driver did not stop within its time bound");
            }
            peak.listed = std::max(peak.listed, static_cast<long>(ConnectedCount()));
            peak.fds = std::max(peak.fds, OpenFileCount());
            peak.threads = std::max(peak.threads, TaskCount());
            peak.rssKb = std::max(peak.rssKb, StatusValue("VmRSS"));
            peak.vmKb = std::max(peak.vmKb, StatusValue("VmSize"));
            std::this_thread::sleep_for(50ms);
        }
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            Fail("the churn driver failed:\n" +
                 ReadFile(sandbox.Path("churn-driver-" + std::to_string(h + 1) + ".out")));
        }
        Results r = Results::Read(resultPath);
        halves.push_back(r);
        done += r.Number("cycles");
        peak.cycles = done;
        peak.seconds = Seconds(Clock::now() - start);
        peaks.push_back(peak);
        // Every link is closed: the Workers see their sockets end and leave.
        if (!WaitFor([] { return ConnectedCount() == 0; }, 30s, 10ms)) {
            Fail(std::to_string(ConnectedCount()) + " controllers still listed 30 s after the churn ended");
        }
        long baseline = snapshots.front().threads;
        WaitFor([&] { return TaskCount() <= baseline; }, 10s, 10ms);
        std::this_thread::sleep_for(1s);
        snapshots.push_back(Take(h == 0 ? "middle" : "end", done, start));
        if (r.Number("complete") == 0) break;
    }

    std::printf("host process with no controller connected, and its peaks while they churned:\n");
    Table state({"phase", "cycles done", "s", "listed", "fds", "threads", "RSS MB", "virtual MB"});
    auto row = [&](const Snapshot& s) {
        state.Row({s.phase, Fixed(s.cycles, 0), Fixed(s.seconds, 1), std::to_string(s.listed),
                   std::to_string(s.fds), std::to_string(s.threads), Fixed(s.rssKb / 1024.0, 1),
                   Fixed(s.vmKb / 1024.0, 0)});
    };
    for (size_t i = 0; i < snapshots.size(); ++i) {
        row(snapshots[i]);
        if (i < peaks.size()) row(peaks[i]);
    }
    state.Print();

    std::printf("\neach half, as the controllers saw it (identify: identification sent -> 70 "
                "received; cycle: drop -> next 70, the simulator calling again after 100 ms):\n");
    Table cyc({"half", "cycles", "s", "cycles/s", "identify p50 ms", "p99", "max", "cycle p50 ms",
               "p99", "max", "cycles > 1 s", "connect failures", "rejections", "protocol errors"});
    for (size_t h = 0; h < halves.size(); ++h) {
        const Results& r = halves[h];
        cyc.Row({std::to_string(h + 1), Fixed(r.Number("cycles"), 0), Fixed(r.Number("elapsed_s"), 1),
                 Fixed(r.Number("cycles") / r.Number("elapsed_s"), 1),
                 Fixed(r.Number("identify_p50_ms"), 0), Fixed(r.Number("identify_p99_ms"), 0),
                 Fixed(r.Number("identify_max_ms"), 0), Fixed(r.Number("cycle_p50_ms"), 0),
                 Fixed(r.Number("cycle_p99_ms"), 0), Fixed(r.Number("cycle_max_ms"), 0),
                 Fixed(r.Number("slow_cycles"), 0), Fixed(r.Number("connect_failures"), 0),
                 Fixed(r.Number("rejections"), 0), Fixed(r.Number("protocol_errors"), 0)});
    }
    cyc.Print();

    const Snapshot& first = snapshots.front();
    const Snapshot& last = snapshots.back();
    std::printf("\nfrom start to %s: fds %+ld, threads %+ld, RSS %+.1f MB", last.phase.c_str(),
                last.fds - first.fds, last.threads - first.threads,
                (last.rssKb - first.rssKb) / 1024.0);
    if (snapshots.size() == 3) {
        std::printf("; from middle to end: fds %+ld, threads %+ld, RSS %+.1f MB",
                    last.fds - snapshots[1].fds, last.threads - snapshots[1].threads,
                    (last.rssKb - snapshots[1].rssKb) / 1024.0);
    }
    std::printf("\n(a leak grows by the half; the first half also warms malloc's arenas up)\n");
    if (done < cycles) {
        std::printf("bounded: stopped at %d s after %.0f of %d cycles\n", maxS, done, cycles);
    }
    auto closing = Clock::now();
    host.Close();
    std::printf("shutdown and unload took %.1f s\n", Seconds(Clock::now() - closing));
    return 0;
}

// ---- Silent storm ----------------------------------------------------------------------------

// The peers of the silent storm, in a process of their own: N connections to the host that never
// identify. Each stays until the library closes it (or --hold-s passes); with --drip each sends
// one byte of a frame that never completes every second. Writes how many connected and how many
// the library closed.
int RunSilentPeers(const Args& args) {
    const int port = args.Int("--silent-peers", 0, 1, 65535);
    const int n = args.Int("--peers", 2000, 1, 100000);
    const int holdS = args.Int("--hold-s", 120, 1, 3600);
    const bool drip = args.Flag("--drip");
    const std::string resultPath = args.Value("--result").value_or("result");
    RaiseOpenFilesToHard();
    std::vector<int> fds;
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = htons(static_cast<uint16_t>(port));
    int failed = 0;
    for (int i = 0; i < n; ++i) {
        int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (fd < 0 || ::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
            if (fd >= 0) ::close(fd);
            ++failed;
            continue;
        }
        ::fcntl(fd, F_SETFL, O_NONBLOCK);
        fds.push_back(fd);
    }
    const std::string frame = "1042;0100;02:5A:37:";
    size_t sent = 0;
    int closed = 0;
    std::vector<bool> open(fds.size(), true);
    auto until = Clock::now() + std::chrono::seconds(holdS);
    auto nextDrip = Clock::now();
    while (closed < static_cast<int>(fds.size()) && Clock::now() < until) {
        if (drip && Clock::now() >= nextDrip) {
            for (size_t i = 0; i < fds.size(); ++i) {
                if (open[i]) ::send(fds[i], &frame[sent % frame.size()], 1, MSG_NOSIGNAL);
            }
            ++sent;
            nextDrip += 1s;
        }
        std::vector<pollfd> polls;
        std::vector<size_t> which;
        for (size_t i = 0; i < fds.size(); ++i) {
            if (!open[i]) continue;
            polls.push_back(pollfd{fds[i], POLLIN, 0});
            which.push_back(i);
        }
        if (::poll(polls.data(), polls.size(), 200) <= 0) continue;
        for (size_t k = 0; k < polls.size(); ++k) {
            if (polls[k].revents == 0) continue;
            char buffer[256];
            if (::recv(polls[k].fd, buffer, sizeof buffer, 0) <= 0) {
                open[which[k]] = false;
                ++closed;
            }
        }
    }
    for (int fd : fds) ::close(fd);
    Results r;
    r.Put("connected", static_cast<double>(fds.size()));
    r.Put("connect_failures", failed);
    r.Put("closed_by_host", closed);
    r.Write(resultPath);
    return 0;
}

// Two silent storms, one after the other, against a library of its own process: memory, threads
// and descriptors with no peer, while the N peers are held, and after the library has closed
// them; then once more after malloc_trim, which hands the allocator's free memory back to the
// system. The second storm shows whether what stayed after the first is kept for reuse or grows.
int RunSilentChild(const Args& args) {
    const int n = args.Int("--silent-child", 2000, 1, 100000);
    const bool drip = args.Flag("--drip");
    const std::string resultPath = args.Value("--result").value_or("result");
    Sandbox sandbox(args.Value("--dir").value_or(""), args.Flag("--keep"));
    RaiseOpenFilesToHard();
    Results r;
    Host host;
    std::this_thread::sleep_for(500ms);
    const long threadsBefore = TaskCount();
    r.Put("rss_before_kb", static_cast<double>(StatusValue("VmRSS")));
    r.Put("threads_before", static_cast<double>(threadsBefore));
    r.Put("fds_before", static_cast<double>(OpenFileCount()));

    for (int storm = 1; storm <= 2; ++storm) {
        const std::string k = std::to_string(storm);
        std::vector<std::string> argv = {SelfProgram(), "--silent-peers", std::to_string(host.Port()),
                                         "--peers", std::to_string(n), "--result",
                                         sandbox.Path("peers-" + k)};
        if (drip) argv.push_back("--drip");
        const auto start = Clock::now();
        pid_t pid = Spawn(argv, sandbox.Path("peers-" + k + ".out"));
        // Every peer has its Worker: the thread count is up by N.
        bool held = WaitFor([&] { return TaskCount() >= threadsBefore + n; }, 60s, 20ms);
        if (!held) Fail("storm " + k + ": not every connection got its Worker");
        std::this_thread::sleep_for(2s);
        r.Put("rss_held_kb_" + k, static_cast<double>(StatusValue("VmRSS")));
        r.Put("threads_held_" + k, static_cast<double>(TaskCount()));
        r.Put("fds_held_" + k, static_cast<double>(OpenFileCount()));
        // The library closes them once its identification limit has passed.
        bool gone = WaitFor([&] { return TaskCount() <= threadsBefore; }, 120s, 50ms);
        if (!gone) Fail("storm " + k + ": the library did not close every silent connection");
        r.Put("gone_after_s_" + k, Seconds(Clock::now() - start));
        int status = WaitExit(pid, 60s);
        if (status != 0) Fail("the silent peers failed:\n" + ReadFile(sandbox.Path("peers-" + k + ".out")));
        Results peers = Results::Read(sandbox.Path("peers-" + k));
        r.Put("connected_" + k, peers.Number("connected"));
        r.Put("closed_by_host_" + k, peers.Number("closed_by_host"));
        std::this_thread::sleep_for(1s);
        r.Put("rss_after_kb_" + k, static_cast<double>(StatusValue("VmRSS")));
        r.Put("threads_after_" + k, static_cast<double>(TaskCount()));
        r.Put("fds_after_" + k, static_cast<double>(OpenFileCount()));
    }
    ::malloc_trim(0);
    r.Put("rss_trimmed_kb", static_cast<double>(StatusValue("VmRSS")));
    host.Close();
    r.Write(resultPath);
    return 0;
}

int RunSilent(const Args& args) {
    const int n = args.Int("--peers", 2000, 1, 100000);
    const bool drip = args.Flag("--drip");
    RaiseOpenFilesToHard();
    Sandbox sandbox(args.Value("--dir").value_or(""), args.Flag("--keep"));
    std::printf("zanth-bench-connect: %d connections that never identify (%s), held until the "
                "library closes them, twice\n",
                n, drip ? "each sends one byte a second" : "silent");
    std::printf("machine: %s\n", MachineLine(sandbox.Dir()).c_str());
    Limits l = ReadLimits();
    PrintLimits(l);
    std::string why = WontFit(n, l);
    if (!why.empty()) Fail(std::to_string(n) + " connections can't be held here: " + why);
    std::printf("\n");
    std::fflush(stdout);

    // The allocator and the threads library read their settings when a process starts: each
    // setting gets a child of its own.
    struct Setting {
        const char* label;
        const char* name;
        const char* value;
    };
    const Setting settings[] = {
        {"glibc defaults", nullptr, nullptr},
        {"MALLOC_ARENA_MAX=2", "MALLOC_ARENA_MAX", "2"},
        {"no thread stack cache", "GLIBC_TUNABLES", "glibc.pthread.stack_cache_size=0"},
    };
    std::vector<std::pair<const Setting*, Results>> runs;
    for (const Setting& setting : settings) {
        if (setting.name) ::setenv(setting.name, setting.value, 1);
        std::fprintf(stderr, "zanth-bench-connect: two storms of %d silent connections, %s (about "
                     "70 s)...\n", n, setting.label);
        std::string resultPath = sandbox.Path("silent-" + std::to_string(runs.size()));
        std::vector<std::string> argv = {SelfProgram(), "--silent-child", std::to_string(n),
                                         "--peers", std::to_string(n), "--result", resultPath,
                                         "--dir", sandbox.Dir()};
        if (drip) argv.push_back("--drip");
        if (args.Flag("--keep")) argv.push_back("--keep");
        pid_t pid = Spawn(argv);
        int status = WaitExit(pid, 400s);
        if (setting.name) ::unsetenv(setting.name);
        if (status != 0) Fail(std::string("the silent storms under ") + setting.label + " failed");
        runs.emplace_back(&setting, Results::Read(resultPath));
    }

    Table t({"setting", "storm", "peers", "closed by host", "closed after s", "RSS before MB",
             "RSS held MB", "per link kB", "threads held", "fds held", "RSS after MB",
             "threads after", "fds after"});
    for (const auto& [setting, r] : runs) {
        const double before = r.Number("rss_before_kb");
        for (int storm = 1; storm <= 2; ++storm) {
            const std::string k = "_" + std::to_string(storm);
            const double heldKb = r.Number("rss_held_kb" + k);
            const double base = storm == 1 ? before : r.Number("rss_after_kb_1");
            t.Row({setting->label, std::to_string(storm), Fixed(r.Number("connected" + k), 0),
                   Fixed(r.Number("closed_by_host" + k), 0), Fixed(r.Number("gone_after_s" + k), 1),
                   Fixed(base / 1024, 1), Fixed(heldKb / 1024, 1),
                   Fixed((heldKb - base) / std::max(1.0, r.Number("connected" + k)), 1),
                   Fixed(r.Number("threads_held" + k), 0), Fixed(r.Number("fds_held" + k), 0),
                   Fixed(r.Number("rss_after_kb" + k) / 1024, 1),
                   Fixed(r.Number("threads_after" + k), 0), Fixed(r.Number("fds_after" + k), 0)});
        }
    }
    t.Print();
    std::printf("\nafter both storms and malloc_trim(0):");
    for (const auto& [setting, r] : runs) {
        std::printf(" %s %.1f MB;", setting->label, r.Number("rss_trimmed_kb") / 1024);
    }
    std::printf(
        "\n\nmodel: each connection gets a Worker thread (256 KiB of reserved stack), its socket\n"
        "and its wake-up eventfd, and its buffers on the heap; the library closes a link that\n"
        "hasn't identified 30 s after it connected, so all are gone about 30 s after the storm.\n"
        "RSS before is VmRSS with no peer (storm 2: after storm 1), held with every peer\n"
        "connected, after once they are gone. glibc keeps what the Workers freed: heap memory\n"
        "that is free but not at the top of its heap, in the main arena and the per-thread arenas\n"
        "(MALLOC_ARENA_MAX bounds how many), and up to 40 MiB of finished threads' stacks for\n"
        "reuse (glibc.pthread.stack_cache_size). A second storm reuses it; malloc_trim(0) hands\n"
        "the free heap memory back.\n");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return BenchMain(
        "zanth-bench-connect", argc, argv,
        {"--keep", "--full", "--storm", "--churn", "--silent", "--drip"},
        {"--counts", "--idle-s", "--heartbeat-ms", "--sim", "--dir", "--child", "--result",
         "--max-connecting", "--repeat", "--cycles", "--parallel", "--max-s", "--churn-driver",
         "--peers", "--silent-child", "--silent-peers", "--hold-s"},
        PrintUsage, [](const Args& args) {
            if (args.Value("--churn-driver")) return RunChurnDriver(args);
            if (args.Value("--silent-peers")) return RunSilentPeers(args);
            if (args.Value("--silent-child")) return RunSilentChild(args);
            if (args.Flag("--silent")) return RunSilent(args);
            if (args.Value("--child")) {
                return RunChild(args.Int("--child", 1, 1, 100000), args,
                                args.Value("--result").value_or("result"));
            }
            if (args.Flag("--churn")) return RunChurn(args);
            return RunParent(args);
        });
}
