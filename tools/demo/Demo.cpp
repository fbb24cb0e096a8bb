// zanth-demo: an access-control host in miniature, on libzanth.so alone. It lists the
// controllers it serves, starts the library, starts simulated controllers (zanth-sim, as separate
// processes: three on clear links and one on an encrypted link), and then does what a host does:
// asks each controller for its description, sends a command in the non-blocking form and reads
// the reply back by polling, decides on the cards presented at the doors, and collects events and
// alarms, by callback and from the message files. It exits 0 when all of that happened.
//
//   zanth-demo --sim path/to/zanth-sim [--port P] [--seconds S]

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "DemoBoards.h"
#include "DemoCards.h"
#include "DemoTime.h"
#include "tools/demo/DemoIo.h"
#include "zanth.h"

extern char** environ;

// The demo's command families, each in its own Demo<Family>.cpp.
bool DemoSchedules(const char* mac);
bool DemoFiles(const char* mac);

namespace {

using Clock = std::chrono::steady_clock;

const char* const kClearMacs[] = {"C0:00:01", "C0:00:02", "C0:00:03"};
const char* const kEncryptedMac = "C0:00:04";
const char* const kSeed = "demo-seed-c00004";
// The cards this site knows; any other is refused at the door.
const std::set<std::string> kKnownCards = {"1001", "2001", "4242"};

std::mutex printLock;
std::mutex lookupLock;
std::deque<std::string> pendingLookups;
std::atomic<int> connected{0};
std::atomic<int> eventsByCallback{0};
std::atomic<int> alarmsByCallback{0};
std::atomic<int> doorReports{0};

// printf under the print lock, checked by the compiler like printf.
__attribute__((format(printf, 1, 2))) void Say(const char* format, ...) {
    std::lock_guard<std::mutex> g(printLock);
    va_list args;
    va_start(args, format);
    std::vprintf(format, args);
    va_end(args);
    std::fflush(stdout);
}

// The callbacks run on the library's threads; they only note and print.
int32_t OnConnected(char* mac) {
    ++connected;
    Say("  [connect]    %s\n", mac);
    return 0;
}

int32_t OnDisconnected(char* mac) {
    Say("  [disconnect] %s\n", mac);
    return 0;
}

int32_t OnEvent(char* text) {
    if (++eventsByCallback <= 4) Say("  [event]      %s\n", text);
    return 0;
}

int32_t OnAlarm(char* text) {
    ++alarmsByCallback;
    // Heartbeats come this way too; only real alarms are shown.
    if (std::strstr(text, "HEARTBEAT") == nullptr) Say("  [alarm]      %s\n", text);
    return 0;
}

// A card at a door: the decision is the host's, made on the main thread.
int32_t OnLookup(char* text) {
    std::lock_guard<std::mutex> g(lookupLock);
    pendingLookups.push_back(text);
    return 0;
}

// The door's report of what followed the decision; the text is padded with blanks.
int32_t OnPostAccess(char* text) {
    std::string report(text, ::strnlen(text, 4117));
    report.erase(report.find_last_not_of(' ') + 1);
    ++doorReports;
    Say("  [door]       %s\n", report.c_str());
    return 0;
}

std::vector<std::string> Fields(const std::string& text) {
    std::vector<std::string> out;
    size_t from = 0;
    for (size_t at; (at = text.find(';', from)) != std::string::npos; from = at + 1) {
        out.push_back(text.substr(from, at - from));
    }
    return out;
}

int FreePort() {
    int s = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_ANY);
    ::bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a);
    socklen_t len = sizeof a;
    ::getsockname(s, reinterpret_cast<sockaddr*>(&a), &len);
    ::close(s);
    return ntohs(a.sin_port);
}

pid_t Spawn(const std::vector<std::string>& args) {
    std::vector<char*> argv;
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    pid_t pid = 0;
    if (::posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) return -1;
    return pid;
}

bool WaitFor(const std::function<bool()>& condition, std::chrono::seconds timeout) {
    auto deadline = Clock::now() + timeout;
    while (!condition()) {
        if (Clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return true;
}

// Answers the look-ups waiting so far; returns how many it answered.
int AnswerLookups() {
    int answered = 0;
    for (;;) {
        std::string lookup;
        {
            std::lock_guard<std::mutex> g(lookupLock);
            if (pendingLookups.empty()) return answered;
            lookup = pendingLookups.front();
            pendingLookups.pop_front();
        }
        // "MAC;door;card;facility;": the controller names itself in its own message.
        std::vector<std::string> f = Fields(lookup);
        if (f.size() < 3) continue;
        bool grant = kKnownCards.count(f[2]) != 0;
        std::string answer = f[1] + ";" + f[2] + ";" + (grant ? "1;" : "0;");
        int32_t rc = RecheckLookupCard(f[0].c_str(), answer.c_str());
        Say("  [look-up]    %s door %s card %s -> %s (RecheckLookupCard %d)\n", f[0].c_str(),
            f[1].c_str(), f[2].c_str(), grant ? "grant" : "deny", rc);
        if (rc == 0) ++answered;
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::string sim;
    int port = 0;
    int seconds = 12;
    for (int i = 1; i + 1 < argc; i += 2) {
        std::string arg = argv[i];
        if (arg == "--sim") sim = argv[i + 1];
        if (arg == "--port") port = std::atoi(argv[i + 1]);
        if (arg == "--seconds") seconds = std::atoi(argv[i + 1]);
    }
    if (sim.empty()) {
        std::fprintf(stderr,
                     "usage: zanth-demo --sim path/to/zanth-sim [--port P] [--seconds S]\n");
        return 2;
    }
    if (port == 0) port = FreePort();

    char text[4118];
    GetDLLVersion(text, sizeof text);
    Say("libzanth %s, host port %d\n", text, port);
    if (GetEncryptionDLLVersion(text, sizeof text) == 0) Say("cipher plugin: %s\n", text);

    // The encrypted controller's seed, as the site keeps it; read by Initialization.
    std::ofstream("zanth.txt") << "02:5A:37:" << kEncryptedMac << " " << kSeed << "\n";

    SetValidControllers("C0:00:01, C0:00:02, C0:00:03, C0:00:04");
    GetValidControllers(text, sizeof text);
    Say("valid controllers: %s\n", text);
    SetConnectedControllersCallback(OnConnected);
    SetDisconnectedControllersCallback(OnDisconnected);
    SetEventCallback(OnEvent);
    SetAlarmCallback(OnAlarm);
    SetLookupCallback(OnLookup);
    SetPostAccessCallback(OnPostAccess);
    int32_t rc = Initialization(port, nullptr, nullptr);
    if (rc != 0) {
        std::fprintf(stderr, "Initialization failed: %d\n", rc);
        return 1;
    }

    Say("\nstarting 3 simulated controllers on clear links and 1 on an encrypted link\n");
    std::string portText = std::to_string(port);
    pid_t clear =
        Spawn({sim, "--port", portText, "--count", "3", "--mac-base", kClearMacs[0],
               "--heartbeat-ms", "3000", "--event-interval-ms", "1200", "--lookup-interval-ms",
               "2000", "--alarm-interval-ms", "5000", "--clock-offset-s", "-95", "--quiet"});
    pid_t encrypted =
        Spawn({sim, "--port", portText, "--count", "1", "--mac-base", kEncryptedMac, "--seed",
               kSeed, "--event-interval-ms", "1500", "--lookup-interval-ms", "2500", "--quiet"});
    if (clear < 0 || encrypted < 0) {
        std::fprintf(stderr, "could not start %s\n", sim.c_str());
        return 1;
    }

    bool ok = WaitFor([] { return connected.load() >= 4; }, std::chrono::seconds(30));
    GetConnectedControllers(text, sizeof text);
    Say("connected controllers: %s\n\n", text);

    int described = 0;
    std::vector<std::string> macs(std::begin(kClearMacs), std::end(kClearMacs));
    macs.push_back(kEncryptedMac);
    for (const std::string& mac : macs) {
        rc = ControllerInfo(mac.c_str(), text, sizeof text);
        Say("ControllerInfo(%s) = %d  \"%s\"%s\n", mac.c_str(), rc, rc == 0 ? text : "",
            mac == kEncryptedMac ? "  (encrypted link)" : "");
        if (rc == 0) ++described;
    }

    DemoClockCheck(macs);

    // The non-blocking form: the call returns at once and the reply arrives under its rspid.
    rc = RspControllerInfo(501, kClearMacs[1]);
    Say("RspControllerInfo(501, %s) = %d\n", kClearMacs[1], rc);
    int32_t rspid = 0;
    bool replied = WaitFor([&] { return GetNextResponse(&rspid, text, sizeof text) == 0; },
                           std::chrono::seconds(10));
    if (replied) Say("GetNextResponse: rspid %d, reply \"%s\"\n\n", rspid, text);
    ok = DemoSchedules(kClearMacs[2]) && ok;
    if (!DemoIo(kClearMacs[0])) ok = false;

    DemoCards(kClearMacs[0]);
    if (!DemoFiles(kClearMacs[0])) ok = false;

    DemoBoards(kClearMacs[0]);

    Say("serving the doors for %d seconds\n", seconds);
    int answered = 0;
    auto until = Clock::now() + std::chrono::seconds(seconds);
    while (Clock::now() < until) {
        answered += AnswerLookups();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }

    // Events and alarms are also kept in the message files until the host reads them there.
    uint64_t unreadEvents = 0;
    uint64_t unreadAlarms = 0;
    NumberUnreadEvents(&unreadEvents);
    NumberUnreadAlarms(&unreadAlarms);
    Say("\nmessage files: %llu unread events, %llu unread alarms (heartbeats included)\n",
        static_cast<unsigned long long>(unreadEvents),
        static_cast<unsigned long long>(unreadAlarms));
    int readBack = 0;
    char record[145];
    while (GetNextEvent(record, sizeof record) == 0) {
        record[144] = '\0';
        if (++readBack <= 3) Say("  GetNextEvent: %s\n", record);
    }
    Say("  ... %d events read back from ZanthEvents.log\n", readBack);

    Say("\nshutting down\n");
    Shutdown();
    for (pid_t pid : {clear, encrypted}) ::kill(pid, SIGTERM);
    for (pid_t pid : {clear, encrypted}) {
        int status = 0;
        ::waitpid(pid, &status, 0);
    }

    bool success = ok && described == 4 && replied && rspid == 501 && answered > 0 &&
                   doorReports.load() > 0 && eventsByCallback.load() > 0 && readBack > 0;
    Say("\nsummary: %d connected, %d described, Rsp reply %s, %d look-ups decided, %d door "
        "reports, %d events and %d alarms by callback, %d events read back: %s\n",
        connected.load(), described, replied ? "received" : "missing", answered, doorReports.load(),
        eventsByCallback.load(), alarmsByCallback.load(), readBack, success ? "OK" : "FAILED");
    return success ? 0 : 1;
}
