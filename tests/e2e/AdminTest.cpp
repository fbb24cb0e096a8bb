// Controller administration: the frames each call sends, the loose readings of the newer
// commands' replies, the refusals, the restart of the command task, and whole flows against the
// simulated controller (login, module bus mode, tasks, addressing, firmware steps, error log).

#include "e2e/BoardsWire.h"
#include "frame/exports/Boundary.h"
#include "support/Sandbox.h"
#include "tools/sim/families/Admin.h"

namespace zanth::test {
namespace {

using namespace std::chrono_literals;

std::string LogPath() {
    return SandboxDir() + "errorlog.txt";
}

TEST_F(BoardsWireTest, AdministrationSendsItsFramesAndReadsItsReplies) {
    const std::string logFile = LogPath();
    Run({
        {"RestartTask",
         [] { return RestartTask(kMac, 4); },
         {{"0012;0012;4;", Frame(1012, "0;")}},
         0},
        {"StopTask 30 is accepted",
         [] { return StopTask(kMac, 30); },
         {{"0013;0013;30;", Frame(1013, "-1;")}},
         -10001},
        {"each mode takes its own reply only",
         [] { return RestartStopTask(kMac, 1, 101); },
         {{"0012;0014;101;", Frame(1013, "0;")}},
         -10010},
        {"RspRestartTask",
         [] { return RspRestartTask(31, kMac, 5); },
         {{"0012;0012;5;", Frame(1012, "0;")}},
         0,
         [] {},
         31},
        {"RspStopTask",
         [] { return RspStopTask(32, kMac, 6); },
         {{"0013;0012;6;", Frame(1013, "0;")}},
         0,
         [] {},
         32},
        {"RspRestartStopTask",
         [] { return RspRestartStopTask(33, kMac, 2, 22); },
         {{"0013;0013;22;", Frame(1013, "0;")}},
         0,
         [] {},
         33},

        {"EnableDHCP reads only the code",
         [] { return EnableDHCP(kMac, "on"); },
         {{"0110;0013;on;", Frame(1110, "-5;")}},
         0,
         [] { EXPECT_TRUE(LogContains("[Master::EnabledDHCP] code=1110")); }},
        {"EnableDHCP: another code is no reply",
         [] { return EnableDHCP(kMac, "on"); },
         {{"0110;0013;on;", Frame(1111, "0;")}},
         -10005},
        {"EnableStaticIP: no ';' after the last",
         [] { return EnableStaticIP(kMac, "a", "b", "c", "d", "e", "f", "g", "h"); },
         {{Frame(111, "a;b;c;d;e;f;g;h"), Frame(1111, "0;")}},
         0,
         [] { EXPECT_TRUE(LogContains("[Master::EnableStaticIP] code=1111")); }},
        {"RspEnableDHCP",
         [] { return RspEnableDHCP(34, kMac, "1"); },
         {{"0110;0012;1;", Frame(1110, "0;")}},
         0,
         [] {},
         34},
        {"RspEnableStaticIP",
         [] { return RspEnableStaticIP(35, kMac, "1", "2", "3", "4", "5", "6", "7", "8"); },
         {{Frame(111, "1;2;3;4;5;6;7;8"), Frame(1111, "0;")}},
         0,
         [] {},
         35},

        {"SetPassword: the controller's answer as it stands",
         [] { return SetPassword(kMac, "a", "b"); },
         {{"0102;0013;a;b", Frame(1102, "-1;")}},
         -1,
         [] {
             EXPECT_TRUE(LogContains("[Master::SetPassword] username and password set"));
             EXPECT_TRUE(LogContains("[Master::SetPassword] code=1102, data -1; "));
         }},
        {"SetPassword: another reply leaves 0",
         [] { return SetPassword(kMac, "a", "b"); },
         {{"0102;0013;a;b", Frame(1110, "-7;")}},
         0},
        {"RspSetPassword",
         [] { return RspSetPassword(36, kMac, "user", "pw"); },
         {{"0102;0017;user;pw", Frame(1102, "0;")}},
         0,
         [] {},
         36},

        {"RspFirmwareCommand",
         [] { return RspFirmwareCommand(37, kMac, 4294967295u); },
         {{"0115;0021;4294967295;", Frame(1114, "0;")}},
         0,
         [] {},
         37},

        {"GetErrorLog: empty",
         [&] { return GetErrorLog(kMac, logFile.c_str()); },
         {{"0090;0010;", Frame(1090, "0;")}},
         -10014,
         [] { EXPECT_TRUE(LogContains("[Master::GetErrorLog] The Error Log is empty")); }},
        {"GetErrorLog: a controller failure",
         [&] { return GetErrorLog(kMac, logFile.c_str()); },
         {{"0090;0010;", Frame(1090, "-2;")}},
         -10001},
        {"GetErrorLog: a code of its own",
         [&] { return GetErrorLog(kMac, logFile.c_str()); },
         {{"0090;0010;", Frame(1090, "-150;")}},
         -150},
        {"GetErrorLog: another reply",
         [&] { return GetErrorLog(kMac, logFile.c_str()); },
         {{"0090;0010;", Frame(1091, "2;")}},
         -10010},
        {"GetErrorLog fetches the file",
         [&] { return GetErrorLog(kMac, logFile.c_str()); },
         {{"0090;0010;", Frame(1090, "2;")},
          {Frame(33, "/tmp/errorlog;"), Frame(1034, "one\ntwo\n")}},
         2,
         [&] { EXPECT_EQ(ReadWholeFile(logFile), "one\ntwo\n"); }},
        {"GetErrorLog: the transfer's failure wins",
         [&] { return GetErrorLog(kMac, logFile.c_str()); },
         {{"0090;0010;", Frame(1090, "2;")},
          {Frame(33, "/tmp/errorlog;"), Frame(9980, "-7;no such file;")}},
         -7},
        {"GetErrorLog: a blank local path",
         [] { return GetErrorLog(kMac, ""); },
         {{"0090;0010;", Frame(1090, "3;")}},
         -10002,
         [] { EXPECT_TRUE(LogContains("[Master::GetFile] pcPathFile cannot be blank")); }},
        {"RspGetErrorLog stops after the query",
         [&] { return RspGetErrorLog(38, kMac, "x"); },
         {{"0090;0010;", Frame(1090, "2;")}},
         0,
         [] {},
         38},
    });
    // Nothing more went out: RspGetErrorLog fetched nothing.
    EXPECT_TRUE(c_.Silent(300));
}

// Peer to peer has no export; its methods take any reply and read its first number.
TEST_F(BoardsWireTest, PeerToPeerTakesTheFirstNumberOfAnyReply) {
    Run({
        {"EnableP2P",
         [] { return TheMaster().EnableP2P(0, 0, kMac); },
         {{"0112;0010;", Frame(1112, "0;")}},
         0},
        {"DisableP2P, another code",
         [] { return TheMaster().DisableP2P(0, 0, kMac); },
         {{"0113;0010;", Frame(1079, "-3;x;")}},
         -3},
        {"no number",
         [] { return TheMaster().DisableP2P(0, 0, kMac); },
         {{"0113;0010;", Frame(1112, "x;")}},
         -10010},
    });
}

TEST_F(BoardsWireTest, FirmwareCommandDoesNotWait) {
    EXPECT_EQ(FirmwareCommand(kMac, 7), 0);
    EXPECT_EQ(c_.ReadFrame(), "0115;0012;7;");
}

TEST_F(BoardsWireTest, RestartingTheCommandTaskEndsTheLinkWithoutAReply) {
    EXPECT_EQ(RestartTask(kMac, 9), 0);
    EXPECT_EQ(c_.ReadFrame(), "0012;0012;9;");
    EXPECT_TRUE(c_.WaitClosed());
    EXPECT_TRUE(WaitUntil([] { return StopTask(kMac, 1) == -10003; }));
    EXPECT_TRUE(LogContains("Commtask restart was sent."));
}

TEST_F(BoardsWireTest, RefusedAdministrationCallsLogTheirTextAndSendNothing) {
    struct Refusal {
        const char* name;
        std::function<int32_t()> call;
        int32_t result;
        const char* log;
    };
    const char* taskText =
        "[Master::RestartStopTask] task value must be between 1 and 11, or one of "
        "(20,21,22,99,101)";
    const char* modeText = "[Master::RestartStopTask] mode value must be between 1 and 2";
    const std::vector<Refusal> refusals = {
        {"task 0", [] { return RestartTask(kMac, 0); }, -10002, taskText},
        {"task 12", [] { return StopTask(kMac, 12); }, -10002, taskText},
        {"task 19", [] { return RspRestartTask(1, kMac, 19); }, -10002, taskText},
        {"task 23", [] { return RspStopTask(1, kMac, 23); }, -10002, taskText},
        {"task 32", [] { return RestartStopTask(kMac, 1, 32); }, -10002, taskText},
        {"task 100", [] { return RestartStopTask(kMac, 2, 100); }, -10002, taskText},
        {"task 102", [] { return RspRestartStopTask(1, kMac, 1, 102); }, -10002, taskText},
        {"mode 0", [] { return RestartStopTask(kMac, 0, 1); }, -10002, modeText},
        {"mode 3", [] { return RspRestartStopTask(1, kMac, 3, 101); }, -10002, modeText},
        {"no DHCP text", [] { return EnableDHCP(kMac, nullptr); }, -10002, nullptr},
        {"a static text missing",
         [] { return EnableStaticIP(kMac, "a", "b", "c", "d", "e", "f", "g", nullptr); }, -10002,
         nullptr},
        {"no username", [] { return SetPassword(kMac, nullptr, "b"); }, -10002,
         "[Master::SetPassword] Error in username or password"},
        {"no password", [] { return RspSetPassword(1, kMac, "a", nullptr); }, -10002,
         "[Master::SetPassword] Error in username or password"},
        {"a stranger", [] { return RestartStopTask(kStrangerMac, 9, 0); }, -10004, nullptr},
        {"not connected", [] { return RestartStopTask(kIdleMac, 9, 0); }, -10003, nullptr},
        {"login of a stranger", [] { return SetPassword(kStrangerMac, nullptr, nullptr); }, -10004,
         nullptr},
        {"error log, not connected", [] { return GetErrorLog(kIdleMac, "x"); }, -10003, nullptr},
        {"firmware, not connected", [] { return FirmwareCommand(kIdleMac, 1); }, -10003, nullptr},
    };
    for (const Refusal& r : refusals) {
        SCOPED_TRACE(r.name);
        int before = r.log ? LogCount(r.log) : 0;
        EXPECT_EQ(r.call(), r.result);
        if (r.log) {
            EXPECT_EQ(LogCount(r.log), before + 1);
        }
    }
    // The login's text goes out even for a refused call, but not for one that wasn't admitted.
    EXPECT_EQ(LogCount("[Master::SetPassword] username and password set"), 2);
    EXPECT_EQ(LogCount("Error code = -10002"), 2);
    EXPECT_EQ(LogCount(taskText), 7);
    EXPECT_TRUE(c_.Silent(300));
}

TEST_F(BoardsSimTest, LoginGuardsTheModuleBusAndTheErrorLogComesAsAFile) {
    sim::Controller& c = Identified("AA:00:92");
    const char* mac = "AA:00:92";
    sim::Admin& admin = c.Family<sim::Admin>();
    int32_t mode = -1;

    EXPECT_EQ(SetMoxOperationMode(mac, "wrong", 1), -10029);
    EXPECT_EQ(SetMoxOperationMode(mac, "zanth", 5), -10028);
    EXPECT_EQ(SetMoxOperationMode(mac, "zanth", 2), 0);
    EXPECT_EQ(GetMoxOperationMode(mac, &mode), 0);
    EXPECT_EQ(mode, 2);
    EXPECT_EQ(SetPassword(mac, "admin", "s3cret"), 0);
    EXPECT_EQ(SetPassword(mac, "root", "x"), -101);
    EXPECT_EQ(SetMoxOperationMode(mac, "zanth", 1), -10029);
    EXPECT_EQ(SetMoxOperationMode(mac, "s3cret", 1), 0);
    EXPECT_EQ(admin.MoxMode(), 1);

    EXPECT_EQ(RestartTask(mac, 4), 0);
    EXPECT_EQ(StopTask(mac, 31), 0);
    ASSERT_TRUE(admin.Task(4) && admin.Task(31));
    EXPECT_EQ(admin.Task(4)->restarts, 1u);
    EXPECT_TRUE(admin.Task(31)->stopped);
    EXPECT_EQ(EnableStaticIP(mac, "10.0.0.9", "255.255.255.0", "10.0.0.1", "10.0.0.2", "0", "0",
                             "0", "site"),
              0);
    EXPECT_EQ(admin.StaticAddress(),
              (std::vector<std::string>{"10.0.0.9", "255.255.255.0", "10.0.0.1", "10.0.0.2", "0",
                                        "0", "0", "site"}));
    EXPECT_EQ(EnableDHCP(mac, "1"), 0);
    EXPECT_EQ(admin.Dhcp(), "1");

    // The firmware's answer reaches a Rsp caller by the response queue.
    EXPECT_EQ(RspFirmwareCommand(61, mac, 7), 0);
    int32_t rspid = 0;
    char reply[4200] = {};
    ASSERT_TRUE(WaitUntil([&] { return GetNextResponse(&rspid, reply, sizeof reply) == 0; }));
    EXPECT_EQ(rspid, 61);
    EXPECT_STREQ(reply, "1114;0014;0;7;");
    EXPECT_EQ(admin.FirmwareSteps(), std::vector<uint32_t>{7});

    // The error log: three lines in one chunk, then one of several chunks, then none.
    const std::string path = LogPath();
    EXPECT_EQ(GetErrorLog(mac, path.c_str()), 3);
    EXPECT_EQ(ReadWholeFile(path), admin.ErrorLog());
    std::string big;
    for (int i = 0; i < 400; ++i) big += "2026/02/01 10:00:00 entry " + std::to_string(i) + "\n";
    ASSERT_GT(big.size(), 2 * sim::Admin::kChunkSize);
    admin.SetErrorLog(big);
    EXPECT_EQ(GetErrorLog(mac, path.c_str()), 400);
    EXPECT_EQ(ReadWholeFile(path), big);
    admin.SetErrorLog("");
    EXPECT_EQ(GetErrorLog(mac, path.c_str()), -10014);
}

TEST_F(BoardsSimTest, RestartedCommandTaskComesBackWithItsState) {
    sim::Controller& c = Identified("AA:00:93");
    const char* mac = "AA:00:93";
    EXPECT_EQ(SetPassword(mac, "admin", "after"), 0);
    EXPECT_EQ(RestartTask(mac, 9), 0);
    // The link drops at once, and the controller is back after its restart.
    ASSERT_TRUE(c.WaitUntil([](const sim::ControllerStats& s) { return s.linkDrops == 1; }, 10s));
    ASSERT_TRUE(c.WaitUntil(
        [](const sim::ControllerStats& s) { return s.identified && s.identifications == 2; }, 10s));
    ASSERT_TRUE(c.Family<sim::Admin>().Task(9));
    EXPECT_EQ(c.Family<sim::Admin>().Task(9)->restarts, 1u);
    ASSERT_TRUE(WaitUntil([&] { return SetMoxOperationMode(mac, "after", 0) == 0; }));
    EXPECT_EQ(StopTask(mac, 99), 0);
    ASSERT_TRUE(c.WaitUntil(
        [](const sim::ControllerStats& s) { return s.identified && s.identifications == 3; }, 10s));
    ASSERT_TRUE(c.Family<sim::Admin>().Task(99));
    EXPECT_EQ(c.Family<sim::Admin>().Task(99)->stops, 1u);
}

}  // namespace
}  // namespace zanth::test
