// zanth-captures: makes the example captures of tools/wireshark/captures. It is a host on
// libzanth.so alone: it starts the library, and for each capture one simulated controller
// (zanth-sim --pcap FILE, a process of its own) that it puts through one family of commands,
// then stops the controller, which closes the capture.
//
//   zanth-captures [--sim PATH] [--out DIR] [--port P] [--only NAME,...] [--list]
//
// Run it in a folder of its own: the library keeps its log and message files, and reads the
// seed file zanth.txt that this program writes for the encrypted link, in the folder it was
// started in. The cipher plugin must be on the library search path (LD_LIBRARY_PATH).
// tools/wireshark/make_captures.sh builds everything and runs it that way.

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "zanth.h"

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

const char* const kSeed = "capture-seed-e0a001";

// What a capture's controller is and does, and what the host does with it.
struct Scenario {
    const char* name;
    const char* about;
    const char* mac;
    std::vector<std::string> simArgs;
    std::function<bool(const char* mac)> run;
};

// Waits for a condition with a deadline, polling; false when the time ran out.
bool WaitFor(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
    auto deadline = Clock::now() + timeout;
    while (!condition()) {
        if (Clock::now() >= deadline) return false;
        std::this_thread::sleep_for(20ms);
    }
    return true;
}

bool Connected(const char* mac) {
    char list[4096] = {};
    if (GetConnectedControllers(list, sizeof list) != 0) return false;
    return std::strstr(list, mac) != nullptr;
}

// Says what a call gave and whether that was what was expected.
bool Check(const char* what, int32_t rc, bool ok) {
    std::printf("    %-44s %d%s\n", what, rc, ok ? "" : "  (unexpected)");
    return ok;
}

std::vector<std::string> Fields(const std::string& text) {
    std::vector<std::string> out;
    size_t from = 0;
    for (size_t at; (at = text.find(';', from)) != std::string::npos; from = at + 1) {
        out.push_back(text.substr(from, at - from));
    }
    return out;
}

// The host's answer to the look-ups waiting so far: cards 1001 and 4242 are let in.
int AnswerLookups(int wanted) {
    int answered = 0;
    char text[4200];
    while (answered < wanted) {
        int32_t count = 0;
        if (!WaitFor([&] { return GetNumberLookups(&count) == 0 && count > 0; }, 5s)) break;
        if (GetNextLookup(text, sizeof text - 1) != 0) break;
        // "MAC;door;card;facility;"
        std::vector<std::string> f = Fields(text);
        if (f.size() < 3) break;
        bool grant = f[2] == "1001" || f[2] == "4242";
        std::string answer = f[1] + ";" + f[2] + ";" + (grant ? "1;" : "0;");
        int32_t rc = RecheckLookupCard(f[0].c_str(), answer.c_str());
        std::string what = "RecheckLookupCard " + answer;
        if (!Check(what.c_str(), rc, rc == 0)) break;
        ++answered;
    }
    return answered;
}

// A closing round trip: once its reply is in, the controller has read everything sent before.
bool Settle(const char* mac) {
    char info[256];
    int32_t rc = ControllerInfo(mac, info, sizeof info);
    return Check("ControllerInfo (last exchange)", rc, rc == 0);
}

bool RunEvents(const char* mac) {
    char info[256];
    int32_t rc = ControllerInfo(mac, info, sizeof info);
    bool ok = Check("ControllerInfo", rc, rc == 0);
    rc = RspControllerInfo(7, mac);
    int32_t rspid = 0;
    char reply[4200];
    ok = Check("RspControllerInfo 7", rc, rc == 0) && ok;
    ok = WaitFor([&] { return GetNextResponse(&rspid, reply, sizeof reply) == 0; }, 10s) && ok;
    rc = UploadCurrentMsgs(mac);
    ok = Check("UploadCurrentMsgs (3 stored)", rc, rc == 0) && ok;
    // The stored three, two live events, an alarm and a heartbeat (filed with the alarms).
    uint64_t events = 0;
    uint64_t alarms = 0;
    ok = WaitFor(
             [&] {
                 NumberUnreadEvents(&events);
                 NumberUnreadAlarms(&alarms);
                 return events + alarms >= 7 && alarms >= 2;
             },
             15s) &&
         ok;
    std::printf("    %-44s %llu events, %llu alarms\n", "received",
                static_cast<unsigned long long>(events), static_cast<unsigned long long>(alarms));
    return Settle(mac) && ok;
}

bool RunAccess(const char* mac) {
    bool ok = AnswerLookups(4) == 4;
    int32_t rc = RequestPin(mac, 2, 10, 4);
    ok = Check("RequestPin door 2, 10 s, 4 digits", rc, rc == 0) && ok;
    int32_t count = 0;
    ok = WaitFor([&] { return GetNumberPin(&count) == 0 && count > 0; }, 5s) && ok;
    char pin[256];
    rc = GetNextPin(pin, sizeof pin - 1);
    ok = Check("GetNextPin", rc, rc == 0) && ok;
    // No SendPostAccessMsg here: it gets no answer, and the link takes no further command until
    // some answer comes.
    return Settle(mac) && ok;
}

bool RunCards(const char* mac) {
    char number1[16] = " 1001 ", pin1[16] = "4711", start1[16] = "2024/01/01",
         end1[16] = "2030/12/31";
    char number2[16] = "2001", pin2[16] = "", start2[16] = "2024/06/01", end2[16] = "0";
    char anyTime[] = "0", opening[] = "07:30:00", anyTime2[] = "0";
    int32_t rc = AddModCardRecord(mac, 1, 0, number1, pin1, 1, 9001, 1, 2, 0, 0, 0, 0, 0, 0, 0, 0,
                                  0, start1, anyTime, end1, anyTime2, 0, 0, 0);
    bool ok = Check("AddModCardRecord 9001", rc, rc == 0);
    rc = AddModCardRecord3(mac, 1, 0, number2, pin2, 2, 9002, 3, 0, 0, 0, 0, 0, 0, 7, 1, 0, 1,
                           start2, opening, end2, anyTime, 9001, 4, 5, 1, 12);
    ok = Check("AddModCardRecord3 9002", rc, rc == 0) && ok;

    int32_t cardSetId = 1, noFormat = 0, accessType = 0, groups[8] = {}, extended = 0, passback = 0,
            pinCommands = 0, inGroup = 0, outGroup = 0, field7 = 0, pinExempt = 0;
    uint32_t uniqueId = 0, escortId = 0, role = 0;
    char number[16] = "2001", pin[16] = "", startDate[16], startTime[16], endDate[16], endTime[16];
    auto read = [&] {
        std::strcpy(number, "2001");
        return GetCardRecord4(mac, &cardSetId, &noFormat, number, sizeof number, pin, sizeof pin,
                              &accessType, &uniqueId, &groups[0], &groups[1], &groups[2],
                              &groups[3], &groups[4], &groups[5], &groups[6], &groups[7], &extended,
                              &passback, &pinCommands, startDate, sizeof startDate, startTime,
                              sizeof startTime, endDate, sizeof endDate, endTime, sizeof endTime,
                              &escortId, &inGroup, &outGroup, &field7, &pinExempt, &role);
    };
    rc = read();
    ok = Check("GetCardRecord4 2001", rc, rc == 0 && uniqueId == 9002) && ok;
    rc = DeleteCardRecord2(mac, 9002);
    ok = Check("DeleteCardRecord2 9002", rc, rc == 0) && ok;
    rc = read();
    ok = Check("GetCardRecord4 2001 (deleted)", rc, rc < 0) && ok;
    int32_t deleted = 0;
    rc = GetNumberDelRecords(mac, &deleted);
    ok = Check("GetNumberDelRecords", rc, rc == 0 && deleted == 1) && ok;
    rc = UndeleteCardRecord2(mac, 9002);
    ok = Check("UndeleteCardRecord2 9002", rc, rc == 0) && ok;
    int32_t active = 0, capacity = 0;
    rc = GetNumberOfCards(mac, &active, &capacity);
    ok = Check("GetNumberOfCards", rc, rc == 0 && active == 2) && ok;
    return ok;
}

bool RunDevice(const char* mac) {
    int32_t rc = CmdOutputFunction3(mac, 32, 0, 1);
    bool ok = Check("CmdOutputFunction3 relay 0 on", rc, rc == 0);
    int32_t status = 0;
    char inputs[256];
    rc = GetInputStatus3(mac, 32, &status, inputs, sizeof inputs);
    ok = Check("GetInputStatus3 controller", rc, rc == 0) && ok;
    rc = CmdOutputFunction3(mac, 32, 0, 0);
    ok = Check("CmdOutputFunction3 relay 0 off", rc, rc == 0) && ok;
    char date[32], time[32];
    rc = GetTimeDate(mac, date, sizeof date, time, sizeof time);
    ok = Check("GetTimeDate", rc, rc == 0) && ok;
    char newDate[] = "2024/06/01", newTime[] = "12:00:00";
    rc = SetTimeDate(mac, newDate, newTime);
    ok = Check("SetTimeDate 2024/06/01 12:00:00", rc, rc == 0) && ok;
    char boards[512];
    rc = DiscoverInterfaces2(mac, boards, sizeof boards);
    ok = Check("DiscoverInterfaces2", rc, rc == 0) && ok;
    return ok;
}

bool RunFiles(const char* mac) {
    // Two chunks out (4086 bytes and the rest) and the same two back.
    std::string text;
    for (int line = 1; text.size() < 5000; ++line) {
        char row[64];
        std::snprintf(row, sizeof row, "door %02d opens 07:30, closes 18:00, line %04d\n",
                      line % 16, line);
        text += row;
    }
    text.resize(5000);
    std::ofstream("schedule.txt", std::ios::binary) << text;
    int32_t rc = SendFile(mac, "/etc/doors/schedule.txt", "schedule.txt");
    bool ok = Check("SendFile 5000 bytes", rc, rc == 0);
    rc = GetFile(mac, "/etc/doors/schedule.txt", "schedule-back.txt");
    ok = Check("GetFile", rc, rc == 0) && ok;
    std::ifstream back("schedule-back.txt", std::ios::binary);
    std::stringstream got;
    got << back.rdbuf();
    ok = Check("file back byte for byte", 0, got.str() == text) && ok;
    char permission[8];
    rc = GetFileStatus(mac, "/etc/doors/schedule.txt", permission, sizeof permission);
    ok = Check("GetFileStatus", rc, rc == 0) && ok;
    rc = ZanthDeleteFile(mac, "/etc/doors/schedule.txt");
    ok = Check("ZanthDeleteFile", rc, rc == 0) && ok;
    return Settle(mac) && ok;
}

bool RunEncrypted(const char* mac) {
    char info[256];
    int32_t rc = ControllerInfo(mac, info, sizeof info);
    bool ok = Check("ControllerInfo", rc, rc == 0);
    uint64_t events = 0;
    ok = WaitFor([&] { return NumberUnreadEvents(&events) == 0 && events >= 1; }, 10s) && ok;
    ok = AnswerLookups(1) == 1 && ok;
    return Settle(mac) && ok;
}

bool RunReassembly(const char* mac) {
    // Bursts: the upload's answer and its bundles back to back, look-ups and their reports,
    // and the host's acknowledgements of them.
    int32_t rc = UploadAllMsgs(mac);
    bool ok = Check("UploadAllMsgs (6 stored)", rc, rc == 0);
    ok = AnswerLookups(2) == 2 && ok;
    uint64_t events = 0;
    ok = WaitFor([&] { return NumberUnreadEvents(&events) == 0 && events >= 4; }, 10s) && ok;
    return Settle(mac) && ok;
}

std::vector<Scenario> Scenarios() {
    return {
        {"events",
         "identification, ControllerInfo, heartbeats, events, alarms, an upload's bundles",
         "E0:A0:01",
         {"--heartbeat-ms", "700", "--event-interval-ms", "400", "--alarm-interval-ms", "900",
          "--stored", "3"},
         RunEvents},
        {"access",
         "card look-ups and the host's decisions, what the doors did, a PIN",
         "E0:A0:02",
         {"--lookup-interval-ms", "250"},
         RunAccess},
        {"cards",
         "card records added, read, deleted, undeleted and counted",
         "E0:A0:03",
         {},
         RunCards},
        {"device",
         "a door relay, the inputs, the clock and the interface boards",
         "E0:A0:04",
         {},
         RunDevice},
        {"files",
         "a file sent and fetched back in chunks, its permission, its removal",
         "E0:A0:05",
         {},
         RunFiles},
        {"encrypted",
         "an encrypted link: identification in clear, then cipher text only",
         "E0:A0:06",
         {"--seed", kSeed, "--event-interval-ms", "300", "--lookup-interval-ms", "400"},
         RunEncrypted},
        {"reassembly",
         "frames cut across segments of at most 40 bytes and up to four frames in one",
         "E0:A0:07",
         {"--pcap-split", "40", "--pcap-merge", "4", "--stored", "6", "--lookup-interval-ms", "300",
          "--event-interval-ms", "350"},
         RunReassembly},
    };
}

pid_t Spawn(const std::vector<std::string>& args, const std::string& output) {
    std::vector<char*> argv;
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    pid_t pid = 0;
    int rc = ::posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return rc == 0 ? pid : -1;
}

// The simulator's last lines: its summary, with the capture's totals.
std::string CaptureLine(const std::string& path) {
    std::ifstream in(path);
    std::string line;
    std::string capture;
    while (std::getline(in, line)) {
        if (line.find("capture:") != std::string::npos) capture = line;
    }
    return capture;
}

// Empties the queues of what the controllers of earlier captures sent.
void Drain() {
    char text[4200];
    int32_t rspid = 0;
    auto empty = [](const std::function<int32_t()>& next) {
        while (next() == 0) continue;
    };
    empty([&] { return GetNextLookup(text, sizeof text - 1); });
    empty([&] { return GetNextPin(text, sizeof text - 1); });
    empty([&] { return GetNextPostAccess(text, sizeof text - 1); });
    empty([&] { return GetNextResponse(&rspid, text, sizeof text); });
    empty([&] { return GetNextEvent(text, sizeof text); });
    empty([&] { return GetNextAlarm(text, sizeof text); });
}

bool Make(const Scenario& s, const std::string& sim, const std::string& out, int port) {
    std::printf("capture %s: %s\n", s.name, s.about);
    Drain();
    std::fflush(stdout);
    std::string file = out + "/" + s.name + ".pcap";
    std::string log = std::string(s.name) + ".sim.txt";
    // The duration bounds the controller's life should this program be stopped before it.
    std::vector<std::string> args = {
        sim,      "--port", std::to_string(port), "--mac-base", s.mac,
        "--pcap", file,     "--duration-s",       "120",        "--quiet"};
    args.insert(args.end(), s.simArgs.begin(), s.simArgs.end());
    pid_t pid = Spawn(args, log);
    if (pid < 0) {
        std::fprintf(stderr, "zanth-captures: cannot start %s\n", sim.c_str());
        return false;
    }
    bool ok = WaitFor([&] { return Connected(s.mac); }, 20s);
    if (!ok) std::printf("    %s did not connect\n", s.mac);
    if (ok) ok = s.run(s.mac);
    ::kill(pid, SIGTERM);
    int status = 0;
    ::waitpid(pid, &status, 0);
    bool exited = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (!exited)
        std::printf("    zanth-sim ended badly (status %d); see %s\n", status, log.c_str());
    // The library sees the link end; the next capture's controller is another one.
    WaitFor([&] { return !Connected(s.mac); }, 10s);
    std::string tail = CaptureLine(log);
    std::printf("  %s%s\n", tail.empty() ? "no capture summary" : tail.c_str() + 2,
                ok && exited ? "" : "  FAILED");
    std::fflush(stdout);
    return ok && exited && !tail.empty();
}

}  // namespace

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    std::string self = fs::canonical("/proc/self/exe").string();
    std::string seedFile = std::string("02:5A:37:E0:A0:06 ") + kSeed + "\n";
    std::string sim = fs::path(self).parent_path().string() + "/zanth-sim";
    std::string out = "tools/wireshark/captures";
    int port = 3001;
    std::string only;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--list") {
            for (const Scenario& s : Scenarios()) std::printf("%-12s %s\n", s.name, s.about);
            return 0;
        }
        if (i + 1 >= argc) {
            std::fprintf(stderr,
                         "usage: zanth-captures [--sim PATH] [--out DIR] [--port P] "
                         "[--only NAME,...] [--list]\n");
            return 2;
        }
        std::string value = argv[++i];
        if (arg == "--sim") {
            sim = value;
        } else if (arg == "--out") {
            out = value;
        } else if (arg == "--port") {
            port = std::atoi(value.c_str());
        } else if (arg == "--only") {
            only = "," + value + ",";
        } else {
            std::fprintf(stderr, "zanth-captures: unknown option %s\n", arg.c_str());
            return 2;
        }
    }
    sim = fs::absolute(sim).string();
    fs::create_directories(out);
    out = fs::absolute(out).string();
    // A host's own seed file is never overwritten.
    if (fs::exists("zanth.txt")) {
        std::ifstream in("zanth.txt");
        std::stringstream held;
        held << in.rdbuf();
        if (held.str() != seedFile) {
            std::fprintf(stderr,
                         "zanth-captures: this folder has a zanth.txt of its own; run the program "
                         "in an empty folder\n");
            return 2;
        }
    }

    std::vector<Scenario> chosen;
    std::string valid;
    for (const Scenario& s : Scenarios()) {
        if (!only.empty() && only.find("," + std::string(s.name) + ",") == std::string::npos)
            continue;
        chosen.push_back(s);
        valid += std::string(valid.empty() ? "" : ",") + s.mac;
    }
    if (chosen.empty()) {
        std::fprintf(stderr, "zanth-captures: no capture is named %s (see --list)\n", only.c_str());
        return 2;
    }
    // Read by Initialization: the encrypted capture's controller and its seed.
    std::ofstream("zanth.txt") << seedFile;
    SetValidControllers(valid.c_str());
    int32_t rc = Initialization(port, nullptr, nullptr);
    if (rc != 0) {
        std::fprintf(stderr, "zanth-captures: Initialization on port %d gave %d%s\n", port, rc,
                     rc > 0 ? " (is the port in use? choose another with --port)" : "");
        return 1;
    }
    int wait = 20000;
    RecvWaitTime(1, &wait);

    int made = 0;
    for (const Scenario& s : chosen) {
        if (Make(s, sim, out, port)) ++made;
    }
    Shutdown();
    int total = static_cast<int>(chosen.size());
    std::printf("zanth-captures: %d of %d captures made in %s, host port %d\n", made, total,
                out.c_str(), port);
    if (made != total) {
        std::printf("zanth-captures: the library's log and the simulator's output are in %s\n",
                    fs::current_path().c_str());
    }
    return made == total ? 0 : 1;
}
