#pragma once
// What the benchmark programs share: a scratch directory per run, the library's one Master
// loaded in-process, deadline waits, percentiles, tables, process and thread figures from
// getrusage and /proc, and child processes (the zanth-sim program, or a program's own rounds
// run one per process so that each starts from a fresh library and a fresh heap).
//
// Every wait has a deadline; a failure throws Failure, which each program's main turns into a
// message on stderr and exit status 1 after the simulator and the library are stopped.

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace zanth::bench {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};
[[noreturn]] void Fail(const std::string& what);
// Fails with `what` and the result when `result` is not 0.
void Check(int32_t result, const char* what);

double Ms(Clock::duration d);
double Seconds(Clock::duration d);

// ---- The run's directory ----------------------------------------------------------------------

// A fresh directory under `base` (TMPDIR or /tmp when empty) that becomes the working directory,
// HOME and XDG_CONFIG_HOME, so that the library's log, message files and per-user setting land
// there and nowhere else. Removed at the end unless kept.
class Sandbox {
  public:
    explicit Sandbox(const std::string& base, bool keep);
    ~Sandbox();
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;
    const std::string& Dir() const { return dir_; }
    std::string Path(const std::string& name) const { return dir_ + "/" + name; }

  private:
    std::string dir_;
    bool keep_;
};

// ---- The library -----------------------------------------------------------------------------

// Builds the Master (what loading libzanth.so does) after the sandbox is in place, and destroys
// it again; the destructor waits up to ten seconds for the library's threads.
void LoadLibrary();
void UnloadLibrary();
bool LibraryLoaded();

// Loads the library, sets the valid list to ALL and the blocking wait to `waitMs`, opens it on a
// free port and waits until that port listens. Shutdown and unload happen at destruction.
class Host {
  public:
    explicit Host(int32_t waitMs = 5000);
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;
    int Port() const { return port_; }
    // Shutdown and unload now; later calls do nothing.
    void Close();

  private:
    int port_ = 0;
    bool initialized_ = false;
};

int FreePort();
// True when a socket is in LISTEN state on `port` (read from /proc/net/tcp), so that a check
// doesn't itself connect and start a Worker.
bool PortListening(int port);

std::set<std::string> ConnectedMacs();
size_t ConnectedCount();

// Polls `condition` every `poll` until it holds or `timeout` passes; the last answer.
bool WaitFor(const std::function<bool()>& condition, Clock::duration timeout,
             Clock::duration poll = 5ms);

// ---- Statistics and tables --------------------------------------------------------------------

struct Summary {
    size_t n = 0;
    double min = 0, p50 = 0, p90 = 0, p99 = 0, max = 0, mean = 0;
};
// Percentiles by nearest rank.
Summary Summarize(std::vector<double> values);

std::string Fixed(double value, int decimals = 1);

class Table {
  public:
    explicit Table(std::vector<std::string> headers);
    void Row(std::vector<std::string> cells);
    // Columns padded to their widest cell, the first one left-aligned, the rest right-aligned.
    void Print(FILE* out = stdout) const;

  private:
    std::vector<std::string> headers_;
    std::vector<std::vector<std::string>> rows_;
};

// "2 cores (model), Linux release, ext4 at /tmp" and the like, for the header of every report.
std::string MachineLine(const std::string& dir);

// ---- Process and thread figures ---------------------------------------------------------------

struct Usage {
    double cpuSeconds = 0;  // user + system
    long voluntarySwitches = 0;
    long involuntarySwitches = 0;
};
Usage ProcessUsage();  // RUSAGE_SELF: every thread of this process
Usage ThreadUsage();   // RUSAGE_THREAD: the calling thread
// The whole machine's CPU time from /proc/stat, in ticks summed over all cores: what every
// process used, and what the hypervisor took for others (steal), which the figures can't see.
struct SystemTicks {
    double busy = 0;   // user, nice, system, irq, softirq
    double steal = 0;
    double total = 0;  // the above, idle and iowait
};
SystemTicks SystemCpu();
// CPU seconds of a whole process (tid 0) or of one of its threads, from /proc (10 ms ticks).
double ProcCpuSeconds(pid_t pid, pid_t tid = 0);
// A "Name:   value" line of /proc/<pid>/status as a number (kB for the Vm... fields).
long StatusValue(const char* field, pid_t pid = 0);
pid_t CurrentTid();

struct Limits {
    long nproc = -1;        // RLIMIT_NPROC soft limit
    long nofile = -1;       // RLIMIT_NOFILE soft limit
    long stackKb = -1;      // RLIMIT_STACK soft limit, the default size of a thread's stack
    long threadsMax = -1;   // kernel.threads-max
    long pidMax = -1;       // kernel.pid_max
    long maxMapCount = -1;  // vm.max_map_count
    long somaxconn = -1;    // net.core.somaxconn: the most a listen() backlog can be
    long synBacklog = -1;   // net.ipv4.tcp_max_syn_backlog: half-open connections queued
    long portLow = -1;      // net.ipv4.ip_local_port_range: the ports connect() picks from
    long portHigh = -1;
};
Limits ReadLimits();
// Raises the soft limit of open files to at least `wanted` (as far as the hard limit allows).
void RaiseOpenFiles(long wanted);
// Raises it to the hard limit; the soft limit after (-2: unlimited).
long RaiseOpenFilesToHard();
// Entries of a directory such as /proc/self/fd or /proc/self/task, less "." and ".."; -1 when it
// can't be read. For /proc/self/fd the descriptor the listing itself holds is not counted.
long CountEntries(const std::string& dir);
long OpenFileCount();  // /proc/self/fd
long TaskCount();      // /proc/self/task: the threads of this process

// ---- Child processes --------------------------------------------------------------------------

// fork + exec with stdout and stderr to `output` (inherited when empty). The child gets SIGTERM
// if this process dies first.
pid_t Spawn(const std::vector<std::string>& argv, const std::string& output = "");
// The exit status, waiting up to `timeout`; a child that doesn't end is killed and gives -1.
int WaitExit(pid_t pid, Clock::duration timeout);
// True while the child has not exited (reaps it when it has).
bool ChildRunning(pid_t pid, int* status = nullptr);
// A program next to this one (the build puts every program in one bin directory).
std::string SiblingProgram(const std::string& name);
std::string SelfProgram();
std::string ReadFile(const std::string& path);

// A run's figures as "key=value" lines: a child writes them, its parent reads them back.
class Results {
  public:
    void Put(const std::string& key, const std::string& value);
    void Put(const std::string& key, double value);
    void Write(const std::string& path) const;
    static Results Read(const std::string& path);
    bool Has(const std::string& key) const { return values_.count(key) != 0; }
    std::string Text(const std::string& key) const;
    double Number(const std::string& key) const;

  private:
    std::map<std::string, std::string> values_;
};

// ---- Command line -----------------------------------------------------------------------------

class Args {
  public:
    // `flags` take no value; every other "--name" takes one.
    Args(int argc, char** argv, std::set<std::string> flags, std::set<std::string> valued);
    bool Flag(const std::string& name) const { return flags_.count(name) != 0; }
    std::optional<std::string> Value(const std::string& name) const;
    int Int(const std::string& name, int fallback, int low, int high) const;
    std::vector<int> IntList(const std::string& name, std::vector<int> fallback) const;
    // Empty when the command line was good; the complaint otherwise.
    const std::string& Error() const { return error_; }

  private:
    std::set<std::string> flags_;
    std::map<std::string, std::string> values_;
    std::string error_;
};

// The shape of every benchmark's main: parse the command line (usage and exit code 2 on an error,
// usage and 0 on --help), run `body`, and turn an exception into a failure (exit code 1).
int BenchMain(const char* name, int argc, char** argv, std::set<std::string> flags,
              std::set<std::string> valued, void (*usage)(FILE*),
              const std::function<int(const Args&)>& body);

}  // namespace zanth::bench
