// The simulator against the library loaded in this process: whole flows over loopback TCP,
// checked from both ends (what the host's exports report, what the controller received).

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "protocol/Codes.h"
#include "support/FakeController.h"
#include "support/Library.h"
#include "tools/sim/Simulator.h"
#include "zanth.h"

namespace zanth::test {
namespace {

using namespace std::chrono_literals;
using sim::ControllerConfig;
using sim::ControllerStats;
using sim::Simulator;

std::set<std::string> ConnectedMacs() {
    std::vector<char> list(64 * 1024);
    if (GetConnectedControllers(list.data(), static_cast<int32_t>(list.size())) != 0) return {};
    std::set<std::string> macs;
    std::stringstream in(list.data());
    for (std::string item; std::getline(in, item, ',');) {
        if (!item.empty()) macs.insert(item);
    }
    return macs;
}

bool IsConnected(const std::string& mac) {
    return ConnectedMacs().count(mac) != 0;
}

// Polls one of the library's GetNext... queues until it yields an item.
std::string NextItem(const std::function<int32_t(char*, int32_t)>& getNext) {
    std::string item;
    WaitUntil([&] {
        std::vector<char> buffer(4200, '\0');
        if (getNext(buffer.data(), 4117) != 0) return false;
        item = buffer.data();
        return true;
    });
    return item;
}

std::string NextEventRecord(int32_t (*getNext)(char*, int32_t)) {
    std::string record;
    WaitUntil([&] {
        char buffer[145] = {};
        if (getNext(buffer, 144) != 0) return false;
        record.assign(buffer, ::strnlen(buffer, 144));
        return true;
    });
    return record;
}

bool PluginAvailable() {
    void* h = ::dlopen("libzanth_encryption64.so", RTLD_NOW | RTLD_LOCAL);
    if (h == nullptr) return false;
    ::dlclose(h);
    return true;
}

// Runs the zanth-sim program with `args`, its output going to `output`; 0 when it can't start.
pid_t SpawnSimulator(const std::vector<std::string>& args, const char* output) {
    const char* bin = std::getenv("ZANTH_TEST_BIN");
    std::string path = std::string(bin ? bin : ".") + "/zanth-sim";
    if (::access(path.c_str(), X_OK) != 0) return 0;
    std::vector<std::string> all = {path};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& a : all) argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, output, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, output, O_WRONLY | O_CREAT | O_APPEND, 0644);
    pid_t pid = 0;
    int rc = ::posix_spawn(&pid, path.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return rc == 0 ? pid : 0;
}

// The program's exit status, waiting up to `timeout`; killed and -1 when it doesn't end.
int ExitStatus(pid_t pid, std::chrono::milliseconds timeout = 10s) {
    int status = 0;
    if (!WaitUntil([&] { return ::waitpid(pid, &status, WNOHANG) == pid; }, timeout)) {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, &status, 0);
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class SimulatorTest : public LibraryTest {
  protected:
    void TearDown() override {
        sim_.Stop();
        LibraryTest::TearDown();
    }

    ControllerConfig Config(const std::string& mac) const {
        ControllerConfig c;
        c.mac = mac;
        c.port = port_;
        c.reconnectMinMs = 50;
        c.reconnectMaxMs = 500;
        c.rebootDelayMs = 200;
        c.pinDelayMs = 50;
        return c;
    }

    // Adds one controller, starts, and waits until both ends see it identified.
    sim::Controller& Identified(ControllerConfig config) {
        sim::Controller& c = sim_.Add(std::move(config));
        sim_.Start();
        EXPECT_TRUE(c.WaitIdentified(10s));
        EXPECT_TRUE(WaitUntil([&] { return IsConnected(c.Mac()); }));
        return c;
    }

    Simulator sim_;
};

TEST_F(SimulatorTest, ControllersConnectAndIdentify) {
    Start();
    std::vector<sim::Controller*> all;
    for (const char* mac : {"AA:00:01", "aa:00:02", "AA-00-03"})
        all.push_back(&sim_.Add(Config(mac)));
    sim_.Start();
    ASSERT_TRUE(sim_.WaitAllIdentified(10s));
    EXPECT_TRUE(WaitUntil([] {
        return ConnectedMacs() == std::set<std::string>{"AA:00:01", "AA:00:02", "AA:00:03"};
    }));
    for (sim::Controller* c : all) {
        ControllerStats s = c->Stats();
        EXPECT_EQ(s.state, sim::LinkState::Identified);
        EXPECT_FALSE(s.encrypted);
        EXPECT_EQ(s.Sent(ZANTH_IDENTIFY_CONTROLLER), 1u);
        EXPECT_EQ(s.identifications, 1u);
        ASSERT_FALSE(s.ackFrames.empty());
        EXPECT_EQ(s.ackFrames.front(), "0070;0010;");
    }
}

TEST_F(SimulatorTest, TwentyFiveControllersInOneSimulatorAllIdentify) {
    Start();
    std::set<std::string> macs;
    for (uint32_t i = 0; i < 25; ++i) {
        std::string mac = sim::MacPlus("0C:00:F0", i);
        macs.insert(mac);
        sim_.Add(Config(mac));
    }
    sim_.Start();
    // The host takes one connection per 100 ms turn.
    ASSERT_TRUE(sim_.WaitAllIdentified(30s)) << sim_.IdentifiedCount() << " identified";
    EXPECT_TRUE(WaitUntil([&] { return ConnectedMacs() == macs; }));
    sim::SimulatorTotals t = sim_.Totals();
    EXPECT_EQ(t.identified, 25u);
    EXPECT_EQ(t.identifications, 25u);
    EXPECT_EQ(t.reconnects, 0u);
}

TEST_F(SimulatorTest, ControllerInfoRoundTrip) {
    Start("AA:BB:CC");
    ControllerConfig config = Config("AA:BB:CC");
    config.model = "ZN-2200";
    config.firmware = "3.9.1";
    sim::Controller& c = Identified(config);
    char info[256];
    ASSERT_EQ(ControllerInfo("aa:bb:cc", info, sizeof info), 0);
    EXPECT_EQ(std::string(info), sim::ControllerInfoPayload("ZN-2200", "3.9.1", "AA:BB:CC",
                                                            sim::SerialFor("AA:BB:CC")));
    ControllerStats s = c.Stats();
    ASSERT_EQ(s.commands.size(), 1u);
    EXPECT_EQ(s.commands[0].code, ZANTH_CONTROLLER_INFO);
    EXPECT_EQ(s.commands[0].payload, "");
    EXPECT_EQ(s.Sent(ZANTH_CONTROLLER_INFO_RSP), 1u);
}

TEST_F(SimulatorTest, UnknownCommandGivesTheCallerUnexpectedReplyAndTheLinkComesBack) {
    Start();
    ControllerConfig config = Config("AA:00:10");
    config.unsupportedCodes = {ZANTH_CONTROLLER_INFO};
    sim::Controller& c = Identified(config);
    char info[256];
    EXPECT_EQ(ControllerInfo("AA:00:10", info, sizeof info), -10010);
    EXPECT_EQ(c.Stats().Sent(ZANTH_UNKNOWN_COMMAND), 1u);
    // The host closes a link that answered 9910; the controller dials again.
    ASSERT_TRUE(c.WaitUntil([](const ControllerStats& s) { return s.linkDrops >= 1; }, 10s));
    ASSERT_TRUE(c.WaitUntil(
        [](const ControllerStats& s) { return s.identified && s.identifications == 2; }, 10s));
    EXPECT_TRUE(WaitUntil([&] { return IsConnected("AA:00:10"); }));
}

TEST_F(SimulatorTest, EveryUnsolicitedKindGetsTheHostsExactAcknowledgement) {
    Start("AA:00:20");
    sim::Controller& c = Identified(Config("AA:00:20"));
    const std::string mac = "AA:00:20";

    std::string event = c.SendEvent(3, "Access granted");
    std::string alarm = c.SendAlarm(4, "Door forced open");
    sim::MessageRecord e2 = c.MakeRecord(ZANTH_EVENT_MESSAGE, 1, "Door closed", 1, 4);
    sim::MessageRecord a2 = c.MakeRecord(ZANTH_ALARM_MESSAGE, 2, "Tamper", 3, 1);
    c.SendBundle(
        {{ZANTH_EVENT_MESSAGE, sim::MessageText(e2)}, {ZANTH_ALARM_MESSAGE, sim::MessageText(a2)}});
    std::string heartbeat = c.SendHeartbeat();
    std::string lookup = c.SendLookup(1, 4242, 12);
    std::string hereIAm = c.SendHereIAm();
    std::string pin = c.SendPin(2, "9876");
    std::string smart = c.SendSmartCard(1, "04A1B2C3D4");
    std::string keys = c.SendKeyPad(1, "12#");
    std::string key = c.SendCommandKey(2, "F1");
    std::string post = c.SendPostAccess(1, 4242, true);

    const std::vector<std::string> expected = {
        "0070;0010;", "0067;0010;",   "0067;0010;",   "0067;0010;",   "0069;0010;",  "0073;0012;0;",
        "0080;0010;", "0101;0012;0;", "0152;0012;0;", "0153;0012;0;", "0154;0012;0;"};
    ASSERT_TRUE(c.WaitUntil(
        [&](const ControllerStats& s) { return s.ackFrames.size() >= expected.size(); }, 10s));
    // The post-access message, sent last, is answered by nothing: its arrival shows on the host.
    EXPECT_EQ(NextItem(GetNextPostAccess), post);
    ControllerStats s = c.Stats();
    EXPECT_EQ(std::vector<std::string>(s.ackFrames.begin(), s.ackFrames.end()), expected);
    EXPECT_EQ(s.outstandingAcks, 0u);
    EXPECT_EQ(s.unexpectedAcks, 0u);

    // What the host kept is the payload as sent.
    EXPECT_EQ(NextEventRecord(GetNextEvent), event);
    EXPECT_EQ(NextEventRecord(GetNextEvent), sim::MessageText(e2));
    EXPECT_EQ(NextEventRecord(GetNextAlarm), alarm);
    EXPECT_EQ(NextEventRecord(GetNextAlarm), sim::MessageText(a2));
    EXPECT_EQ(NextEventRecord(GetNextAlarm), heartbeat);
    EXPECT_EQ(NextItem(GetNextLookup), lookup);
    EXPECT_EQ(NextItem(GetNextHereIAm).rfind(hereIAm, 0), 0u);
    EXPECT_EQ(NextItem(GetNextPin), pin);
    EXPECT_EQ(NextItem(GetNextSmartCardData), smart);
    EXPECT_EQ(NextItem(GetNextKeyPadData), keys);
    EXPECT_EQ(NextItem(GetNextCommandKeyData), key);
    EXPECT_EQ(lookup, mac + ";1;4242;12;");
}

TEST_F(SimulatorTest, LookupDecisionComesBackAsTheDoorsPostAccessReport) {
    Start("AA:00:30");
    sim::Controller& c = Identified(Config("AA:00:30"));

    std::string granted = c.SendLookup(2, 10001, 5);
    std::string denied = c.SendLookup(3, 10002, 5);
    EXPECT_EQ(NextItem(GetNextLookup), granted);
    EXPECT_EQ(NextItem(GetNextLookup), denied);

    EXPECT_EQ(RecheckLookupCard("AA:00:30", sim::RecheckText(2, 10001, true).c_str()), 0);
    EXPECT_EQ(NextItem(GetNextPostAccess), sim::PostAccessPayload("AA:00:30", 2, 10001, true));
    EXPECT_EQ(RecheckLookupCard("AA:00:30", sim::RecheckText(3, 10002, false).c_str()), 0);
    EXPECT_EQ(NextItem(GetNextPostAccess), sim::PostAccessPayload("AA:00:30", 3, 10002, false));

    // A decision for a look-up that is no longer pending, and one the controller can't read,
    // come back as the controller's own codes.
    EXPECT_EQ(RecheckLookupCard("AA:00:30", sim::RecheckText(2, 10001, true).c_str()), -101);
    EXPECT_EQ(RecheckLookupCard("AA:00:30", "door;card"), -100);
    ControllerStats s = c.Stats();
    EXPECT_EQ(s.Commands(ZANTH_RECHECK_LOOKUP_CARD), 4u);
    EXPECT_EQ(s.Sent(ZANTH_POST_ACCESS_MSG_TO_HOST), 2u);
    int32_t waiting = -1;
    GetNumberPostAccess(&waiting);
    EXPECT_EQ(waiting, 0);
}

TEST_F(SimulatorTest, PinRequestIsFollowedByThePinReport) {
    Start("AA:00:40");
    ControllerConfig config = Config("AA:00:40");
    config.pin = "5150";
    sim::Controller& c = Identified(config);
    EXPECT_EQ(RequestPin("AA:00:40", 3, 30, 4), 0);
    EXPECT_EQ(NextItem(GetNextPin), sim::PinReportPayload("AA:00:40", 3, "5150"));
    ControllerStats s = c.Stats();
    ASSERT_EQ(s.commands.size(), 1u);
    EXPECT_EQ(s.commands[0].code, ZANTH_REQUEST_PIN);
    EXPECT_EQ(s.commands[0].payload, "3;30;4;");
    ASSERT_TRUE(c.WaitAcks(ZANTH_REPORT_PIN_RSP, 1, 5s));
}

TEST_F(SimulatorTest, PostAccessFromTheHostIsRecordedAndNotAnswered) {
    Start("AA:00:41");
    sim::Controller& c = Identified(Config("AA:00:41"));
    EXPECT_EQ(SendPostAccessMsg("AA:00:41", "2;Welcome;"), 0);
    ASSERT_TRUE(c.WaitCommands(ZANTH_POST_ACCESS_MSG_TO_ZANTH, 1, 5s));
    ControllerStats s = c.Stats();
    EXPECT_EQ(s.commands.back().payload, "2;Welcome;");
    // Only the identification went out: the host's message got no answer.
    EXPECT_EQ(s.sent.size(), 1u);
}

TEST_F(SimulatorTest, InterfaceRebootIsAnsweredAndControllerRebootDropsAndReconnects) {
    Start("AA:00:50");
    sim::Controller& c = Identified(Config("AA:00:50"));
    EXPECT_EQ(RebootBoard2("AA:00:50", 5), 0);
    EXPECT_EQ(RebootBoard("AA:00:50", 6), 0);
    EXPECT_EQ(c.Stats().linkDrops, 0u);

    EXPECT_EQ(RebootBoard2("AA:00:50", 32), 0);
    ASSERT_TRUE(c.WaitUntil([](const ControllerStats& s) { return s.linkDrops == 1; }, 10s));
    ASSERT_TRUE(c.WaitUntil(
        [](const ControllerStats& s) { return s.identified && s.identifications == 2; }, 10s));
    EXPECT_TRUE(WaitUntil([] { return IsConnected("AA:00:50"); }));
    ControllerStats s = c.Stats();
    std::vector<std::pair<int, std::string>> commands;
    for (const auto& r : s.commands) commands.emplace_back(r.code, r.payload);
    EXPECT_EQ(commands,
              (std::vector<std::pair<int, std::string>>{
                  {ZANTH_REBOOT, "5;"}, {ZANTH_REBOOT_INTERFACE, "6;"}, {ZANTH_REBOOT, "32;"}}));
    // Back after the reboot, it serves commands again.
    char info[128];
    EXPECT_EQ(ControllerInfo("AA:00:50", info, sizeof info), 0);
}

TEST_F(SimulatorTest, ContactControllerReachesAListeningController) {
    Start();
    ControllerConfig config;
    config.mac = "AA:00:60";
    config.listen = true;
    sim::Controller& c = sim_.Add(config);
    sim_.Start();
    ASSERT_GT(c.ListenPort(), 0);
    ASSERT_TRUE(c.WaitUntil(
        [](const ControllerStats& s) { return s.state == sim::LinkState::Listening; }, 5s));
    EXPECT_EQ(ContactController("127.0.0.1", c.ListenPort()), 0);
    ASSERT_TRUE(c.WaitIdentified(10s));
    EXPECT_TRUE(WaitUntil([] { return IsConnected("AA:00:60"); }));
    ControllerStats s = c.Stats();
    ASSERT_FALSE(s.commands.empty());
    EXPECT_EQ(s.commands.front().code, ZANTH_CONTACT_CONTROLLER);
    char info[128];
    EXPECT_EQ(ControllerInfo("AA:00:60", info, sizeof info), 0);
}

TEST_F(SimulatorTest, ControllerOffTheValidListIsTerminatedAtItsFirstMessage) {
    Start("AA:00:70");
    ControllerConfig config = Config("BB:00:70");
    config.reconnect = false;
    sim::Controller& c = Identified(config);
    c.SendHeartbeat();
    ASSERT_TRUE(c.WaitUntil([](const ControllerStats& s) { return s.terminations == 1; }, 10s));
    ControllerStats s = c.Stats();
    EXPECT_EQ(s.state, sim::LinkState::Stopped);
    EXPECT_EQ(s.Acks(ZANTH_HEART_BEAT_RSP), 0u);
    EXPECT_EQ(s.Commands(ZANTH_TERMINATE), 1u);
    EXPECT_TRUE(WaitUntil([] { return !IsConnected("BB:00:70"); }));
}

TEST_F(SimulatorTest, FlatOutEventsFollowEachAcknowledgement) {
    Start("AA:00:80");
    ControllerConfig config = Config("AA:00:80");
    config.schedule.eventsFlatOut = true;
    sim::Controller& c = Identified(config);
    ASSERT_TRUE(c.WaitAcks(ZANTH_MESSAGE_RSP, 15, 15s));
    // One event is out at a time: the next leaves only when the former's 67 is in.
    ControllerStats s = c.Stats();
    EXPECT_LE(s.outstandingAcks, 1u);
    EXPECT_EQ(s.unexpectedAcks, 0u);
    EXPECT_LE(s.Sent(ZANTH_EVENT_MESSAGE), s.Acks(ZANTH_MESSAGE_RSP) + 1);
    c.SetSchedule({});
    uint64_t unread = 0;
    EXPECT_TRUE(WaitUntil([&] {
        NumberUnreadEvents(&unread);
        return unread >= 15;
    }));
}

TEST_F(SimulatorTest, HeartbeatScheduleKeepsBeating) {
    Start("AA:00:90");
    ControllerConfig config = Config("AA:00:90");
    config.schedule.heartbeatMs = 100;
    sim::Controller& c = Identified(config);
    ASSERT_TRUE(c.WaitAcks(ZANTH_HEART_BEAT_RSP, 4, 10s));
    uint64_t unread = 0;
    EXPECT_TRUE(WaitUntil([&] {
        NumberUnreadAlarms(&unread);
        return unread >= 4;
    }));
}

TEST_F(SimulatorTest, MessagesRaisedBeforeTheLinkIsUpGoOutOnceIdentified) {
    Start("AA:00:95");
    sim::Controller& c = sim_.Add(Config("AA:00:95"));
    std::string first = c.SendEvent(1, "Power restored");
    std::string second = c.SendEvent(1, "Door closed");
    sim_.Start();
    ASSERT_TRUE(c.WaitAcks(ZANTH_MESSAGE_RSP, 2, 10s));
    EXPECT_EQ(NextEventRecord(GetNextEvent), first);
    EXPECT_EQ(NextEventRecord(GetNextEvent), second);
}

TEST_F(SimulatorTest, EncryptedLinkIdentifiesAndCarriesTraffic) {
    if (!PluginAvailable()) GTEST_SKIP() << "no cipher plugin on the library path";
    std::ofstream("zanth.txt") << "02:5A:37:AA:00:A0 Seed-For-A0\n";
    Start("AA:00:A0");
    ControllerConfig config = Config("AA:00:A0");
    config.seed = "Seed-For-A0";
    sim::Controller& c = Identified(config);
    EXPECT_TRUE(c.Stats().encrypted);
    EXPECT_EQ(c.Stats().Sent(ZANTH_IDENTIFY_ENCRYPTED_CONTROLLER), 1u);
    char info[256];
    ASSERT_EQ(ControllerInfo("AA:00:A0", info, sizeof info), 0);
    EXPECT_EQ(std::string(info),
              sim::ControllerInfoPayload(config.model, config.firmware, "AA:00:A0",
                                         sim::SerialFor("AA:00:A0")));
    std::string lookup = c.SendLookup(1, 777, 1);
    EXPECT_EQ(NextItem(GetNextLookup), lookup);
    ASSERT_TRUE(c.WaitAcks(ZANTH_CHECK_CARD_RSP, 1, 5s));
    EXPECT_EQ(c.Stats().ackFrames.back(), "0073;0012;0;");
}

TEST_F(SimulatorTest, EncryptedLinkWithTheWrongSeedNeverReadsTheAcceptance) {
    if (!PluginAvailable()) GTEST_SKIP() << "no cipher plugin on the library path";
    std::ofstream("zanth.txt") << "02:5A:37:AA:00:A1 host-seed\n";
    Start("AA:00:A1");
    ControllerConfig config = Config("AA:00:A1");
    config.seed = "controller-seed";
    config.reconnect = false;
    sim::Controller& c = sim_.Add(config);
    sim_.Start();
    ASSERT_TRUE(c.WaitUntil([](const ControllerStats& s) { return s.protocolErrors >= 1; }, 10s));
    ControllerStats s = c.Stats();
    EXPECT_EQ(s.identifications, 0u);
    EXPECT_FALSE(s.identified);
}

TEST_F(SimulatorTest, ControllerKeepsDiallingUntilTheHostListens) {
    int port = FreePort();
    ControllerConfig config = Config("AA:00:B0");
    config.port = port;
    sim::Controller& c = sim_.Add(config);
    sim_.Start();
    ASSERT_TRUE(c.WaitUntil([](const ControllerStats& s) { return s.connectFailures >= 3; }, 10s));
    EXPECT_FALSE(c.Identified());
    ASSERT_EQ(SetValidControllers("ALL"), 0);
    ASSERT_EQ(Initialization(port, nullptr, nullptr), 0);
    EXPECT_TRUE(c.WaitIdentified(10s));
    EXPECT_TRUE(WaitUntil([] { return IsConnected("AA:00:B0"); }));
}

TEST_F(SimulatorTest, CommandLineProgramRunsControllersAndEndsCleanlyOnSigterm) {
    Start();
    pid_t pid = SpawnSimulator({"--port", std::to_string(port_), "--count", "3", "--mac-base",
                                "cc:00:ff", "--heartbeat-ms", "100", "--quiet"},
                               "sim.out");
    if (pid == 0) GTEST_SKIP() << "zanth-sim is not built";
    bool connected = WaitUntil([] {
        return ConnectedMacs() == std::set<std::string>{"CC:00:FF", "CC:01:00", "CC:01:01"};
    });
    uint64_t alarms = 0;
    bool beating = WaitUntil([&] {
        NumberUnreadAlarms(&alarms);
        return alarms >= 3;
    });
    ::kill(pid, SIGTERM);
    EXPECT_EQ(ExitStatus(pid), 0);
    EXPECT_TRUE(connected);
    EXPECT_TRUE(beating);
    std::string out = ReadWholeFile("sim.out");
    EXPECT_NE(out.find("3 controllers, 3 identified, 3 identifications, 0 reconnects"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find(" 70=3"), std::string::npos) << out;
    EXPECT_TRUE(WaitUntil([] { return ConnectedMacs().empty(); }));
}

TEST_F(SimulatorTest, CommandLineProgramRefusesBadArguments) {
    const std::vector<std::vector<std::string>> bad = {
        {"--count", "3"},  // neither --port nor --listen
        {"--port", "70000"},
        {"--port", "3001", "--count", "x"},
        {"--port", "3001", "--mac-base", "AA:BB"},
        {"--port", "3001", "--bogus", "1"},
        {"--listen", "65535", "--count", "2"},  // runs past the last port
        {"--port", "3001", "--cards", "missing.csv"},
        {"--port", "3001", "--card-capacity", "-1"},
    };
    for (const auto& args : bad) {
        pid_t pid = SpawnSimulator(args, "bad.out");
        if (pid == 0) GTEST_SKIP() << "zanth-sim is not built";
        EXPECT_EQ(ExitStatus(pid), 2) << args[0] << " " << args[1];
    }
}

TEST_F(SimulatorTest, CommandLineProgramServesCardsLoadedFromCsv) {
    std::ofstream("site.csv") << "# two cardholders for every controller\n"
                                 "7,0,1001,1234,1,42,1,2,0,0,0,0,0,8,1,0,1,2012/01/02,0,2037/12/31,"
                                 "0,5,3,4\n"
                                 "7,0,2002,0,2,43,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,1,300\n";
    std::ofstream("extra.csv") << "7,0,3003,0,3,44,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0\n";
    std::ofstream("bad.csv") << "7,0,3003\n";
    FakeController host;
    int hostPort = host.Listen();
    pid_t pid = SpawnSimulator(
        {"--port", std::to_string(hostPort), "--mac-base", "cc:00:01", "--cards", "site.csv",
         "--cards", "CC:00:01=extra.csv", "--card-capacity", "100", "--quiet"},
        "sim.out");
    if (pid == 0) GTEST_SKIP() << "zanth-sim is not built";
    ASSERT_TRUE(host.Accept());
    EXPECT_TRUE(host.ReadFrame());
    host.SendFrame(ZANTH_ACCEPT_CONNECTION);
    host.SendFrame(ZANTH_GET_NUMBER_OF_CARDS);
    EXPECT_EQ(host.ReadFrame(), Frame(ZANTH_GET_NUMBER_OF_CARDS_RSP, "0;3;100;"));
    host.SendFrame(ZANTH_GET_CARD_RECORD_4, "2002;7;0;0;");
    EXPECT_EQ(host.ReadFrame(),
              Frame(ZANTH_GET_CARD_RECORD_4_RSP,
                    "0;2002;7;0;0;2;43;1;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;0;1;300;"));
    ::kill(pid, SIGTERM);
    EXPECT_EQ(ExitStatus(pid), 0);

    // A bad line, or a MAC that names no controller, stops the program before it starts.
    const std::pair<const char*, const char*> refused[] = {
        {"bad.csv", "bad.csv: line 1: expected 24 to 26 fields, found 3"},
        {"DD:00:00=site.csv", "--cards names DD:00:00, which is none of the controllers"},
    };
    for (const auto& [cards, message] : refused) {
        pid = SpawnSimulator({"--port", std::to_string(hostPort), "--cards", cards}, "bad.out");
        ASSERT_NE(pid, 0);
        EXPECT_EQ(ExitStatus(pid), 2) << cards;
        EXPECT_NE(ReadWholeFile("bad.out").find(message), std::string::npos) << cards;
    }
}

}  // namespace
}  // namespace zanth::test
