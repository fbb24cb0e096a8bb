#include "bench/support/BenchSupport.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

#include "frame/Master.h"
#include "frame/exports/Boundary.h"
#include "zanth.h"

namespace zanth {

namespace {
std::unique_ptr<Master> loaded;
}

// The API objects reach the Master through this; the benchmarks build it themselves, after
// their sandbox is in place, where libzanth.so builds it at load.
Master& TheMaster() { return *loaded; }

namespace bench {

void Fail(const std::string& what) { throw Failure(what); }

void Check(int32_t result, const char* what) {
    if (result != 0) Fail(std::string(what) + " returned " + std::to_string(result));
}

double Ms(Clock::duration d) { return std::chrono::duration<double, std::milli>(d).count(); }
double Seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

// ---- Sandbox ----------------------------------------------------------------------------------

Sandbox::Sandbox(const std::string& base, bool keep) : keep_(keep) {
    std::string root = base;
    if (root.empty()) {
        const char* tmp = std::getenv("TMPDIR");
        root = tmp && *tmp ? tmp : "/tmp";
    }
    std::string pattern = root + "/zanth-bench-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        Fail("can't create a directory under " + root + ": " + std::strerror(errno));
    }
    dir_ = pattern;
    std::error_code ec;
    std::filesystem::create_directories(dir_ + "/home/.config", ec);
    if (ec) Fail("can't create " + dir_ + "/home/.config: " + ec.message());
    ::setenv("HOME", (dir_ + "/home").c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", (dir_ + "/home/.config").c_str(), 1);
    if (::chdir(dir_.c_str()) != 0) Fail("can't enter " + dir_ + ": " + std::strerror(errno));
}

Sandbox::~Sandbox() {
    if (keep_ || std::getenv("ZANTH_KEEP_SANDBOX")) {
        std::fprintf(stderr, "bench: kept %s\n", dir_.c_str());
        return;
    }
    if (::chdir("/") != 0) return;
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
}

// ---- The library -----------------------------------------------------------------------------

void LoadLibrary() { loaded = std::make_unique<Master>("master"); }
void UnloadLibrary() { loaded.reset(); }
bool LibraryLoaded() { return loaded != nullptr; }

Host::Host(int32_t waitMs) {
    LoadLibrary();
    Check(SetValidControllers("ALL"), "SetValidControllers(ALL)");
    Check(RecvWaitTime(1, &waitMs), "RecvWaitTime");
    port_ = FreePort();
    Check(Initialization(port_, nullptr, nullptr), "Initialization");
    initialized_ = true;
    // The listener binds on its own thread after Initialization returns; a controller that came
    // earlier would be refused and back off, which would distort every connect figure.
    if (!WaitFor([this] { return PortListening(port_); }, 5s, 2ms)) {
        Fail("the library's listener did not come up on port " + std::to_string(port_));
    }
}

Host::~Host() {
    try {
        Close();
    } catch (...) {
    }
}

void Host::Close() {
    if (initialized_) {
        initialized_ = false;
        Shutdown();
    }
    if (LibraryLoaded()) UnloadLibrary();
}

int FreePort() {
    int s = ::socket(AF_INET, SOCK_STREAM, 0);
    if (s < 0) Fail(std::string("socket: ") + std::strerror(errno));
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = 0;
    socklen_t len = sizeof a;
    if (::bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 ||
        ::getsockname(s, reinterpret_cast<sockaddr*>(&a), &len) != 0) {
        ::close(s);
        Fail(std::string("no free port: ") + std::strerror(errno));
    }
    ::close(s);
    return ntohs(a.sin_port);
}

bool PortListening(int port) {
    for (const char* table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        std::ifstream in(table);
        std::string line;
        std::getline(in, line);  // the column titles
        while (std::getline(in, line)) {
            std::istringstream fields(line);
            std::string slot, local, remote, state;
            fields >> slot >> local >> remote >> state;
            size_t colon = local.rfind(':');
            if (colon == std::string::npos || state != "0A") continue;
            if (std::strtol(local.c_str() + colon + 1, nullptr, 16) == port) return true;
        }
    }
    return false;
}

std::set<std::string> ConnectedMacs() {
    // Nine bytes a MAC with its comma: room for several thousand controllers.
    static thread_local std::vector<char> list(128 * 1024);
    std::set<std::string> macs;
    if (GetConnectedControllers(list.data(), static_cast<int32_t>(list.size())) != 0) return macs;
    std::stringstream in(list.data());
    for (std::string item; std::getline(in, item, ',');) {
        if (!item.empty()) macs.insert(item);
    }
    return macs;
}

size_t ConnectedCount() {
    static thread_local std::vector<char> list(128 * 1024);
    list[0] = '\0';
    if (GetConnectedControllers(list.data(), static_cast<int32_t>(list.size())) != 0) return 0;
    if (list[0] == '\0') return 0;
    return static_cast<size_t>(std::count(list.data(), list.data() + std::strlen(list.data()), ',')) + 1;
}

bool WaitFor(const std::function<bool()>& condition, Clock::duration timeout,
             Clock::duration poll) {
    auto deadline = Clock::now() + timeout;
    while (!condition()) {
        if (Clock::now() >= deadline) return condition();
        std::this_thread::sleep_for(poll);
    }
    return true;
}

// ---- Statistics and tables --------------------------------------------------------------------

Summary Summarize(std::vector<double> values) {
    Summary s;
    s.n = values.size();
    if (values.empty()) return s;
    std::sort(values.begin(), values.end());
    auto rank = [&](double p) {
        size_t k = static_cast<size_t>(std::ceil(p / 100.0 * static_cast<double>(values.size())));
        return values[std::min(values.size() - 1, k == 0 ? 0 : k - 1)];
    };
    s.min = values.front();
    s.max = values.back();
    s.p50 = rank(50);
    s.p90 = rank(90);
    s.p99 = rank(99);
    double total = 0;
    for (double v : values) total += v;
    s.mean = total / static_cast<double>(values.size());
    return s;
}

std::string Fixed(double value, int decimals) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

Table::Table(std::vector<std::string> headers) : headers_(std::move(headers)) {}

void Table::Row(std::vector<std::string> cells) {
    cells.resize(headers_.size());
    rows_.push_back(std::move(cells));
}

void Table::Print(FILE* out) const {
    std::vector<size_t> width(headers_.size(), 0);
    for (size_t c = 0; c < headers_.size(); ++c) width[c] = headers_[c].size();
    for (const auto& row : rows_) {
        for (size_t c = 0; c < row.size(); ++c) width[c] = std::max(width[c], row[c].size());
    }
    auto line = [&](const std::vector<std::string>& cells) {
        std::string text;
        for (size_t c = 0; c < cells.size(); ++c) {
            std::string pad(width[c] - cells[c].size(), ' ');
            text += c == 0 ? cells[c] + pad : "  " + pad + cells[c];
        }
        while (!text.empty() && text.back() == ' ') text.pop_back();
        std::fprintf(out, "%s\n", text.c_str());
    };
    line(headers_);
    std::vector<std::string> rule;
    for (size_t w : width) rule.push_back(std::string(w, '-'));
    line(rule);
    for (const auto& row : rows_) line(row);
    std::fflush(out);
}

namespace {

std::string FileSystemName(const std::string& dir) {
    struct statfs s {};
    if (::statfs(dir.c_str(), &s) != 0) return "unknown file system";
    switch (static_cast<unsigned long>(s.f_type)) {
        case 0xEF53: return "ext2/3/4";
        case 0x01021994: return "tmpfs";
        case 0x58465342: return "xfs";
        case 0x9123683E: return "btrfs";
        case 0x794C7630: return "overlayfs";
        default: {
            char text[48];
            std::snprintf(text, sizeof text, "file system 0x%lx", static_cast<unsigned long>(s.f_type));
            return text;
        }
    }
}

}  // namespace

std::string MachineLine(const std::string& dir) {
    std::string model = "unknown CPU";
    std::ifstream cpu("/proc/cpuinfo");
    for (std::string line; std::getline(cpu, line);) {
        if (line.rfind("model name", 0) == 0) {
            size_t colon = line.find(':');
            if (colon != std::string::npos) model = line.substr(colon + 2);
            break;
        }
    }
    utsname u{};
    ::uname(&u);
    long cores = ::sysconf(_SC_NPROCESSORS_ONLN);
    return std::to_string(cores) + " cores (" + model + "), Linux " + u.release + ", files on " +
           FileSystemName(dir.empty() ? "." : dir) + ", built with " + __VERSION__;
}

// ---- Process and thread figures ---------------------------------------------------------------

namespace {

Usage FromRusage(const rusage& r) {
    Usage u;
    u.cpuSeconds = static_cast<double>(r.ru_utime.tv_sec + r.ru_stime.tv_sec) +
                   static_cast<double>(r.ru_utime.tv_usec + r.ru_stime.tv_usec) / 1e6;
    u.voluntarySwitches = r.ru_nvcsw;
    u.involuntarySwitches = r.ru_nivcsw;
    return u;
}

long ReadLong(const char* path) {
    std::ifstream in(path);
    long value = -1;
    in >> value;
    return in ? value : -1;
}

long SoftLimit(int resource, long unit) {
    rlimit r{};
    if (::getrlimit(resource, &r) != 0) return -1;
    if (r.rlim_cur == RLIM_INFINITY) return -2;
    return static_cast<long>(r.rlim_cur / static_cast<rlim_t>(unit));
}

}  // namespace

Usage ProcessUsage() {
    rusage r{};
    ::getrusage(RUSAGE_SELF, &r);
    return FromRusage(r);
}

Usage ThreadUsage() {
    rusage r{};
    ::getrusage(RUSAGE_THREAD, &r);
    return FromRusage(r);
}

double ProcCpuSeconds(pid_t pid, pid_t tid) {
    std::string path = "/proc/" + (pid == 0 ? std::string("self") : std::to_string(pid));
    if (tid != 0) path += "/task/" + std::to_string(tid);
    std::string text = ReadFile(path + "/stat");
    size_t close = text.rfind(')');
    if (close == std::string::npos) return -1;
    std::istringstream fields(text.substr(close + 2));
    std::vector<std::string> f;
    for (std::string item; fields >> item;) f.push_back(item);
    // After the name: state is field 3, utime field 14 and stime field 15.
    if (f.size() < 13) return -1;
    double ticks = std::strtod(f[11].c_str(), nullptr) + std::strtod(f[12].c_str(), nullptr);
    return ticks / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

SystemTicks SystemCpu() {
    std::ifstream in("/proc/stat");
    std::string name;
    double v[8] = {};
    in >> name;
    for (double& x : v) in >> x;
    SystemTicks t;
    if (!in || name != "cpu") return t;
    // user nice system idle iowait irq softirq steal
    t.busy = v[0] + v[1] + v[2] + v[5] + v[6];
    t.steal = v[7];
    for (double x : v) t.total += x;
    return t;
}

long StatusValue(const char* field, pid_t pid) {
    std::string path = "/proc/" + (pid == 0 ? std::string("self") : std::to_string(pid)) + "/status";
    std::ifstream in(path);
    std::string prefix = std::string(field) + ":";
    for (std::string line; std::getline(in, line);) {
        if (line.rfind(prefix, 0) == 0) return std::strtol(line.c_str() + prefix.size(), nullptr, 10);
    }
    return -1;
}

pid_t CurrentTid() { return static_cast<pid_t>(::syscall(SYS_gettid)); }

Limits ReadLimits() {
    Limits l;
    l.nproc = SoftLimit(RLIMIT_NPROC, 1);
    l.nofile = SoftLimit(RLIMIT_NOFILE, 1);
    l.stackKb = SoftLimit(RLIMIT_STACK, 1024);
    l.threadsMax = ReadLong("/proc/sys/kernel/threads-max");
    l.pidMax = ReadLong("/proc/sys/kernel/pid_max");
    l.maxMapCount = ReadLong("/proc/sys/vm/max_map_count");
    l.somaxconn = ReadLong("/proc/sys/net/core/somaxconn");
    l.synBacklog = ReadLong("/proc/sys/net/ipv4/tcp_max_syn_backlog");
    std::ifstream range("/proc/sys/net/ipv4/ip_local_port_range");
    long low = -1, high = -1;
    if (range >> low >> high) {
        l.portLow = low;
        l.portHigh = high;
    }
    return l;
}

void RaiseOpenFiles(long wanted) {
    rlimit r{};
    if (::getrlimit(RLIMIT_NOFILE, &r) != 0) return;
    if (r.rlim_cur != RLIM_INFINITY && r.rlim_cur >= static_cast<rlim_t>(wanted)) return;
    rlim_t target = static_cast<rlim_t>(wanted);
    if (r.rlim_max != RLIM_INFINITY && target > r.rlim_max) target = r.rlim_max;
    r.rlim_cur = target;
    ::setrlimit(RLIMIT_NOFILE, &r);
}

long RaiseOpenFilesToHard() {
    rlimit r{};
    if (::getrlimit(RLIMIT_NOFILE, &r) != 0) return -1;
    if (r.rlim_cur != r.rlim_max) {
        r.rlim_cur = r.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &r);
    }
    return SoftLimit(RLIMIT_NOFILE, 1);
}

long CountEntries(const std::string& dir) {
    DIR* d = ::opendir(dir.c_str());
    if (d == nullptr) return -1;
    long count = 0;
    while (dirent* e = ::readdir(d)) {
        if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0) ++count;
    }
    ::closedir(d);
    return count;
}

// The listing's own descriptor is among the entries while it reads them.
long OpenFileCount() {
    long n = CountEntries("/proc/self/fd");
    return n > 0 ? n - 1 : n;
}

long TaskCount() { return CountEntries("/proc/self/task"); }

// ---- Child processes --------------------------------------------------------------------------

pid_t Spawn(const std::vector<std::string>& args, const std::string& output) {
    // Everything the child needs is built before the fork: between fork and exec only
    // async-signal-safe calls are allowed in a threaded process.
    std::vector<std::string> copy = args;
    std::vector<char*> argv;
    for (std::string& a : copy) argv.push_back(a.data());
    argv.push_back(nullptr);
    const pid_t parent = ::getpid();
    pid_t pid = ::fork();
    if (pid < 0) Fail(std::string("fork: ") + std::strerror(errno));
    if (pid == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (::getppid() != parent) ::_exit(126);
        if (!output.empty()) {
            int fd = ::open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
            if (fd < 0 || ::dup2(fd, 1) < 0 || ::dup2(fd, 2) < 0) ::_exit(126);
        }
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    return pid;
}

bool ChildRunning(pid_t pid, int* status) {
    int s = 0;
    pid_t got = ::waitpid(pid, &s, WNOHANG);
    if (got == pid) {
        if (status) *status = s;
        return false;
    }
    return got == 0;
}

int WaitExit(pid_t pid, Clock::duration timeout) {
    int status = 0;
    auto deadline = Clock::now() + timeout;
    for (;;) {
        pid_t got = ::waitpid(pid, &status, WNOHANG);
        if (got == pid) break;
        if (got < 0) return -1;
        if (Clock::now() >= deadline) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, &status, 0);
            return -1;
        }
        std::this_thread::sleep_for(10ms);
    }
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    return -1;
}

std::string SelfProgram() {
    std::error_code ec;
    auto path = std::filesystem::read_symlink("/proc/self/exe", ec);
    if (ec) Fail("can't read /proc/self/exe: " + ec.message());
    return path.string();
}

std::string SiblingProgram(const std::string& name) {
    return std::filesystem::path(SelfProgram()).parent_path().string() + "/" + name;
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

void Results::Put(const std::string& key, const std::string& value) { values_[key] = value; }

void Results::Put(const std::string& key, double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%.9g", value);
    values_[key] = text;
}

void Results::Write(const std::string& path) const {
    std::ofstream out(path, std::ios::trunc);
    for (const auto& [key, value] : values_) out << key << '=' << value << '\n';
    if (!out) Fail("can't write " + path);
}

Results Results::Read(const std::string& path) {
    Results r;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) {
        size_t eq = line.find('=');
        if (eq != std::string::npos) r.values_[line.substr(0, eq)] = line.substr(eq + 1);
    }
    return r;
}

std::string Results::Text(const std::string& key) const {
    auto it = values_.find(key);
    return it == values_.end() ? std::string("?") : it->second;
}

double Results::Number(const std::string& key) const {
    auto it = values_.find(key);
    return it == values_.end() ? std::nan("") : std::strtod(it->second.c_str(), nullptr);
}

// ---- Command line -----------------------------------------------------------------------------

Args::Args(int argc, char** argv, std::set<std::string> flags, std::set<std::string> valued) {
    for (int i = 1; i < argc && error_.empty(); ++i) {
        std::string arg = argv[i];
        std::string name = arg;
        std::optional<std::string> inlineValue;
        size_t eq = arg.find('=');
        if (arg.rfind("--", 0) == 0 && eq != std::string::npos) {
            name = arg.substr(0, eq);
            inlineValue = arg.substr(eq + 1);
        }
        if (flags.count(name) != 0 && !inlineValue) {
            flags_.insert(name);
        } else if (valued.count(name) != 0) {
            if (inlineValue) {
                values_[name] = *inlineValue;
            } else if (i + 1 < argc) {
                values_[name] = argv[++i];
            } else {
                error_ = name + " needs a value";
            }
        } else {
            error_ = "unknown option " + arg;
        }
    }
}

std::optional<std::string> Args::Value(const std::string& name) const {
    auto it = values_.find(name);
    if (it == values_.end()) return std::nullopt;
    return it->second;
}

int Args::Int(const std::string& name, int fallback, int low, int high) const {
    auto text = Value(name);
    if (!text) return fallback;
    char* end = nullptr;
    long value = std::strtol(text->c_str(), &end, 10);
    if (end == text->c_str() || *end != '\0' || value < low || value > high) {
        throw Failure("bad value for " + name + ": " + *text + " (" + std::to_string(low) +
                      " to " + std::to_string(high) + ")");
    }
    return static_cast<int>(value);
}

std::vector<int> Args::IntList(const std::string& name, std::vector<int> fallback) const {
    auto text = Value(name);
    if (!text) return fallback;
    std::vector<int> out;
    std::stringstream in(*text);
    for (std::string item; std::getline(in, item, ',');) {
        char* end = nullptr;
        long value = std::strtol(item.c_str(), &end, 10);
        if (item.empty() || *end != '\0' || value < 1 || value > 100000) {
            throw Failure("bad value for " + name + ": " + *text);
        }
        out.push_back(static_cast<int>(value));
    }
    if (out.empty()) throw Failure("bad value for " + name + ": " + *text);
    return out;
}

int BenchMain(const char* name, int argc, char** argv, std::set<std::string> flags,
              std::set<std::string> valued, void (*usage)(FILE*),
              const std::function<int(const Args&)>& body) {
    flags.insert("--help");
    Args args(argc, argv, std::move(flags), std::move(valued));
    if (!args.Error().empty()) {
        std::fprintf(stderr, "%s: %s\n", name, args.Error().c_str());
        usage(stderr);
        return 2;
    }
    if (args.Flag("--help")) {
        usage(stdout);
        return 0;
    }
    try {
        return body(args);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s: FAILED: %s\n", name, e.what());
        return 1;
    }
}

}  // namespace bench
}  // namespace zanth
