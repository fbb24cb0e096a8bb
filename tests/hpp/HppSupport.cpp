#include "hpp/HppSupport.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

extern char** environ;

namespace zanth::hpptest {

int FreePort() {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) return -1;
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof a;
    int port = -1;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &length) == 0) {
        port = ntohs(a.sin_port);
    }
    ::close(fd);
    return port;
}

bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

SimProcess::SimProcess(const std::vector<std::string>& args) {
    const char* bin = std::getenv("ZANTH_TEST_BIN");
    std::string path = std::string(bin ? bin : ".") + "/zanth-sim";
    if (::access(path.c_str(), X_OK) != 0) return;
    log_ = "zanth-sim-" + std::to_string(::getpid()) + ".log";
    std::vector<std::string> all{path};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& a : all) argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, log_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    pid_t pid = -1;
    if (::posix_spawn(&pid, path.c_str(), &actions, nullptr, argv.data(), environ) == 0) pid_ = pid;
    posix_spawn_file_actions_destroy(&actions);
}

SimProcess::~SimProcess() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGTERM);
    int status = 0;
    bool ended = WaitUntil([&] { return ::waitpid(pid_, &status, WNOHANG) == pid_; },
                           std::chrono::seconds(10));
    if (!ended) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, &status, 0);
    }
}

std::string SimProcess::Output() const {
    std::ifstream in(log_);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

namespace {

Session::Options WithPort(Session::Options o, int port, const std::string& mac) {
    o.port = port;
    if (o.valid.empty()) o.valid = mac;
    return o;
}

}  // namespace

SimulatedSite::SimulatedSite(const std::string& mac, std::vector<std::string> simArgs,
                             Session::Options options)
    : mac_(mac), port_(FreePort()), session_(WithPort(std::move(options), port_, mac)) {
    std::vector<std::string> args{"--port", std::to_string(port_), "--count", "1", "--mac-base",
                                  mac};
    args.insert(args.end(), simArgs.begin(), simArgs.end());
    sim_.emplace(args);
    if (!sim_->Running()) {
        failure_ = "zanth-sim is not built";
        return;
    }
    ready_ = Session::WaitConnected(mac, std::chrono::seconds(20));
    if (!ready_) failure_ = mac + " did not connect to port " + std::to_string(port_) + "\n" + sim_->Output();
}

std::optional<std::string> RspReply(const std::string& rspExport, Args args, uint32_t rspid,
                                    std::chrono::milliseconds timeout) {
    args["rspid"] = static_cast<int64_t>(rspid);
    dynamic::Call queued = dynamic::Invoke(rspExport, args);
    if (!queued.ok) return std::nullopt;
    std::optional<std::string> frame;
    WaitUntil(
        [&] {
            std::optional<lib::GetNextResponseResult> next = lib::GetNextResponse();
            if (next && next->rspid == static_cast<int32_t>(rspid)) frame = next->buffer;
            return frame.has_value();
        },
        timeout);
    return frame;
}

std::string Show(const Outputs& outputs) {
    std::string s = "{";
    for (const auto& [name, value] : outputs) {
        s += " " + name + "=";
        if (const int64_t* i = std::get_if<int64_t>(&value)) {
            s += std::to_string(*i);
        } else if (const std::string* t = std::get_if<std::string>(&value)) {
            s += "\"" + *t + "\"";
        } else {
            s += std::to_string(std::get<Bytes>(value).size()) + " bytes";
        }
    }
    return s + " }";
}

}  // namespace zanth::hpptest
