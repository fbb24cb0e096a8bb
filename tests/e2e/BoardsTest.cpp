// Interface boards and the module bus: the frames each call sends, how each reply is read, the
// refusals, and a whole flow against the simulated controller's boards.

#include "e2e/BoardsWire.h"
#include "tools/sim/families/Boards.h"

namespace zanth::test {
namespace {

using namespace std::chrono_literals;

char text[64];
int32_t mode = -1;

void Clear() {
    std::memset(text, 'x', sizeof text);
    text[sizeof text - 1] = '\0';
    mode = -1;
}

std::function<void()> TextIs(const char* expected) {
    return [expected] { EXPECT_STREQ(text, expected); };
}

int32_t Discover(int32_t size) {
    Clear();
    return DiscoverInterfaces(kMac, text, size);
}

TEST_F(BoardsWireTest, EachCallSendsItsFrameAndReadsItsReply) {
    const std::string chain0 = "0010;0012;0;";
    const std::string chain1 = "0010;0012;1;";
    Run({
        {"both chains' texts, one behind the other",
         [] { return Discover(sizeof text); },
         {{chain0, Frame(1010, "0;[0:00=0000];")}, {chain1, Frame(1010, "0;[1:16=0000];")}},
         0,
         TextIs("[0:00=0000][1:16=0000]")},
        {"a bare 0 on each chain",
         [] { return Discover(sizeof text); },
         {{chain0, Frame(1010, "0;")}, {chain1, Frame(1010, "0;")}},
         0,
         TextIs("")},
        {"one chain failing is no failure",
         [] {
             Clear();
             return DiscoverInterfaces2(kMac, text, sizeof text);
         },
         {{"0092;0012;0;", Frame(1092, "-5;")}, {"0092;0012;1;", Frame(1092, "0;B;")}},
         0,
         [] {
             EXPECT_STREQ(text, "B");
             EXPECT_TRUE(LogContains("[Master::DiscoverInterfaces2] 0 rslt=-5"));
             EXPECT_TRUE(LogContains("[Master::DiscoverInterfaces2] 1 rslt=0"));
         }},
        {"both failing gives the first, unmapped",
         [] { return Discover(sizeof text); },
         {{chain0, Frame(1010, "3;A;")}, {chain1, Frame(1010, "-7;")}},
         3,
         TextIs("A")},
        {"chain 1 doesn't fit: chain 0's text stays",
         [] { return Discover(5); },
         {{chain0, Frame(1010, "0;ABC;")}, {chain1, Frame(1010, "0;DE;")}},
         -10006,
         TextIs("ABC")},
        {"chain 0 doesn't fit: no second query",
         [] { return Discover(3); },
         {{chain0, Frame(1010, "0;ABC;")}},
         -10006,
         TextIs("")},
        {"chain 0 without a field",
         [] { return Discover(sizeof text); },
         {{chain0, Frame(1010, "")}},
         -10011},
        {"another code on chain 0",
         [] { return Discover(sizeof text); },
         {{chain0, Frame(1092, "0;")}},
         -10010},
        {"RspDiscoverInterfaces: one chain",
         [] { return RspDiscoverInterfaces(71, kMac, 1); },
         {{"0092;0012;1;", Frame(1092, "0;[1:]")}},
         0,
         [] {},
         71},

        {"DownloadInterfaceProgram",
         [] { return DownloadInterfaceProgram(kMac, 3); },
         {{"0003;0012;3;", Frame(1003, "0;")}},
         0},
        {"DownloadInterfaceEEPROM",
         [] { return DownloadInterfaceEEPROM(kMac, 3); },
         {{"0004;0012;3;", Frame(1004, "-1;")}},
         -10001},
        {"each mode takes its own reply only",
         [] { return DownloadInterfaceCode(kMac, 31, 1); },
         {{"0003;0013;31;", Frame(1004, "0;")}},
         -10010},
        {"controller codes below -99 pass",
         [] { return DownloadInterfaceCode(kMac, 0, 2); },
         {{"0004;0012;0;", Frame(1004, "-101;")}},
         -101},
        {"RspDownloadInterfaceCode",
         [] { return RspDownloadInterfaceCode(72, kMac, 2, 2); },
         {{"0004;0012;2;", Frame(1004, "0;")}},
         0,
         [] {},
         72},
        {"RspDownloadInterfaceProgram",
         [] { return RspDownloadInterfaceProgram(73, kMac, 7); },
         {{"0003;0012;7;", Frame(1003, "0;")}},
         0,
         [] {},
         73},
        {"RspDownloadInterfaceEEPROM",
         [] { return RspDownloadInterfaceEEPROM(74, kMac, 8); },
         {{"0004;0012;8;", Frame(1004, "0;")}},
         0,
         [] {},
         74},

        {"ReadInterfaceMemory reads 'd'",
         [] {
             Clear();
             return ReadInterfaceMemory(kMac, 2, 2, "1F", 4, text, sizeof text);
         },
         {{Frame(6, "2;2;1F;4;d;"), Frame(1006, "0;0A0B0C0D;")}},
         0,
         TextIs("0A0B0C0D")},
        {"ReadInterfaceMemory_2 folds 'A'",
         [] {
             Clear();
             return ReadInterfaceMemory_2(kMac, 31, 3, "ff", 8, text, sizeof text, 'A');
         },
         {{Frame(6, "31;3;ff;8;a;"), Frame(1006, "-200;")}},
         -200,
         TextIs("")},
        {"a successful read needs its data",
         [] {
             Clear();
             return ReadInterfaceMemory(kMac, 0, 1, "0", 1, text, sizeof text);
         },
         {{Frame(6, "0;1;0;1;d;"), Frame(1006, "0;")}},
         -10011},
        {"data longer than the buffer",
         [] {
             Clear();
             return ReadInterfaceMemory(kMac, 0, 1, "0", 2, text, 4);
         },
         {{Frame(6, "0;1;0;2;d;"), Frame(1006, "0;ABCD;")}},
         -10006,
         TextIs("")},
        {"RspReadInterfaceMemory",
         [] { return RspReadInterfaceMemory(75, kMac, 1, 1, "A0", 2); },
         {{Frame(6, "1;1;A0;2;d;"), Frame(1006, "0;FFFF;")}},
         0,
         [] {},
         75},
        {"RspReadInterfaceMemory_2",
         [] { return RspReadInterfaceMemory_2(76, kMac, 1, 1, "A0", 2, 'D'); },
         {{Frame(6, "1;1;A0;2;d;"), Frame(1006, "0;FFFF;")}},
         0,
         [] {},
         76},

        {"WriteEEPROM, the last write",
         [] { return WriteEEPROM(kMac, 1, "00A0", 2, "BEEF", 1); },
         {{Frame(7, "1;00A0;2;BEEF;1;"), Frame(1007, "0;")}},
         0,
         [] {
             EXPECT_TRUE(LogContains("[Master::WriteEEPROM] Invoked"));
             EXPECT_TRUE(LogContains("bIsLastWrite : 1"));
         }},
        {"WriteEEPROM, more to come",
         [] { return WriteEEPROM(kMac, 1, "00A2", 1, "01", 0); },
         {{Frame(7, "1;00A2;1;01;0;"), Frame(1007, "-3;")}},
         -10001,
         [] { EXPECT_TRUE(LogContains("bIsLastWrite : 0")); }},
        {"RspWriteEEPROM",
         [] { return RspWriteEEPROM(77, kMac, 4, "0", 1, "AA", 5); },
         {{Frame(7, "4;0;1;AA;1;"), Frame(1007, "0;")}},
         0,
         [] {},
         77},

        {"SetHardwareID",
         [] { return SetHardwareID(kMac, 4, "AB12"); },
         {{Frame(5, "4;AB12;"), Frame(1005, "0;")}},
         0},
        {"SetInterfaceInternalID",
         [] { return SetInterfaceInternalID(kMac, 0, "1"); },
         {{Frame(5, "0;1;"), Frame(1005, "-99;")}},
         -10001},
        {"RspSetHardwareID",
         [] { return RspSetHardwareID(78, kMac, 5, "C"); },
         {{Frame(5, "5;C;"), Frame(1005, "0;")}},
         0,
         [] {},
         78},
        {"RspSetInterfaceInternalID",
         [] { return RspSetInterfaceInternalID(79, kMac, 6, "D"); },
         {{Frame(5, "6;D;"), Frame(1005, "0;")}},
         0,
         [] {},
         79},

        {"GetMoxModuleRevs copies the rest of the reply",
         [] {
             Clear();
             return GetMoxModuleRevs(kMac, text, sizeof text);
         },
         {{"0109;0010;", Frame(1109, "0;00:2.1;16:2.0;")}},
         0,
         [] {
             EXPECT_STREQ(text, "00:2.1;16:2.0;");
             EXPECT_TRUE(LogContains("[Master::GetMoxModuleRevs] Get Mox Module Revs called"));
             EXPECT_TRUE(
                 LogContains("[Master::GetMoxModuleRevs] code=1109, data 0;00:2.1;16:2.0; "));
             EXPECT_TRUE(LogContains("[Master::GetMoxModuleRevs] rslt=0"));
         }},
        {"GetMoxModuleRevs cuts to the buffer",
         [] {
             Clear();
             return GetMoxModuleRevs(kMac, text, 5);
         },
         {{"0109;0010;", Frame(1109, "0;00:2.1;")}},
         0,
         TextIs("00:2")},
        {"GetMoxModuleRevs: a controller result as it stands",
         [] {
             Clear();
             return GetMoxModuleRevs(kMac, text, sizeof text);
         },
         {{"0109;0010;", Frame(1109, "-3;x;")}},
         -3,
         TextIs("")},
        {"GetMoxModuleRevs: another code means no module bus",
         [] {
             Clear();
             return GetMoxModuleRevs(kMac, text, sizeof text);
         },
         {{"0109;0010;", Frame(1099, "0;")}},
         -10030,
         [] {
             EXPECT_TRUE(LogContains("[Master::GetMoxModuleRevs] COMMAND_UNKNOWN_BY_CONTROLLER"));
         }},
        {"GetMoxOperationMode",
         [] {
             Clear();
             return GetMoxOperationMode(kMac, &mode);
         },
         {{"0099;0010;", Frame(1099, "0;2;")}},
         0,
         [] {
             EXPECT_EQ(mode, 2);
             EXPECT_TRUE(LogContains("[Master::GetMoxOperationMode] Get Mox mode called"));
             EXPECT_TRUE(LogContains("[Master::GetMoxOperationMode] code=1099, data 0;2; "));
         }},
        {"GetMoxOperationMode: -1 stays -1",
         [] {
             Clear();
             return GetMoxOperationMode(kMac, &mode);
         },
         {{"0099;0010;", Frame(1099, "-1;")}},
         -1,
         [] { EXPECT_EQ(mode, 0); }},
        {"GetMoxOperationMode needs the mode",
         [] { return GetMoxOperationMode(kMac, &mode); },
         {{"0099;0010;", Frame(1099, "0;")}},
         -10011},
        {"GetMoxOperationMode: another reply leaves 0",
         [] { return GetMoxOperationMode(kMac, &mode); },
         {{"0099;0010;", Frame(1098, "5;")}},
         0},
        {"SetMoxOperationMode",
         [] { return SetMoxOperationMode(kMac, "pw", 1); },
         {{"0098;0014;1;pw", Frame(1098, "0;")}},
         0,
         [] {
             EXPECT_TRUE(LogContains("[Master::SetMoxOperationMode] Mox mode and password set"));
             EXPECT_TRUE(LogContains("[Master::SetMoxOperationMode] rslt=0"));
         }},
        {"SetMoxOperationMode: -1 stays -1",
         [] { return SetMoxOperationMode(kMac, "pw", 1); },
         {{"0098;0014;1;pw", Frame(1098, "-1;")}},
         -1},
        {"SetMoxOperationMode: -1513",
         [] { return SetMoxOperationMode(kMac, "pw", -4); },
         {{"0098;0015;-4;pw", Frame(1098, "-1513;")}},
         -10029},
        {"SetMoxOperationMode: -1512",
         [] { return SetMoxOperationMode(kMac, "", 9); },
         {{"0098;0012;9;", Frame(1098, "-1512;")}},
         -10028},
        {"SetMoxOperationMode: without a field",
         [] { return SetMoxOperationMode(kMac, "p", 0); },
         {{"0098;0013;0;p", Frame(1098, "")}},
         -10011},
        {"SetMoxOperationMode: another reply leaves 0",
         [] { return SetMoxOperationMode(kMac, "p", 0); },
         {{"0098;0013;0;p", Frame(1099, "-1513;")}},
         0},
        {"RspGetMoxModuleRevs",
         [] { return RspGetMoxModuleRevs(80, kMac); },
         {{"0109;0010;", Frame(1109, "0;")}},
         0,
         [] {},
         80},
        {"RspGetMoxOperationMode",
         [] { return RspGetMoxOperationMode(81, kMac); },
         {{"0099;0010;", Frame(1099, "0;1;")}},
         0,
         [] {},
         81},
        {"RspSetMoxOperationMode",
         [] { return RspSetMoxOperationMode(82, kMac, "pw", 2); },
         {{"0098;0014;2;pw", Frame(1098, "0;")}},
         0,
         [] {},
         82},
    });
}

TEST_F(BoardsWireTest, RefusedCallsLogTheirTextAndSendNothing) {
    struct Refusal {
        const char* name;
        std::function<int32_t()> call;
        int32_t result;
        const char* log;  // nullptr: refused without a text
    };
    char buffer[32];
    int32_t value = 0;
    const std::vector<Refusal> refusals = {
        {"chain -1", [] { return RspDiscoverInterfaces(1, kMac, -1); }, -10002,
         "[Master::RspDiscoverInterfaces] chain value must be between 0 and 1"},
        {"chain 2", [] { return RspDiscoverInterfaces(1, kMac, 2); }, -10002,
         "[Master::RspDiscoverInterfaces] chain value must be between 0 and 1"},
        {"discovery without a buffer", [] { return DiscoverInterfaces2(kMac, nullptr, 10); },
         -10002, nullptr},
        {"discovery into size 0", [&] { return DiscoverInterfaces(kMac, buffer, 0); }, -10002,
         nullptr},
        {"interface -1", [] { return DownloadInterfaceProgram(kMac, -1); }, -10002,
         "[Master::DownloadInterfaceCode] interface number must be between 0 and 31"},
        {"interface 32", [] { return RspDownloadInterfaceEEPROM(1, kMac, 32); }, -10002,
         "[Master::DownloadInterfaceCode] interface number must be between 0 and 31"},
        {"download mode 0", [] { return DownloadInterfaceCode(kMac, 1, 0); }, -10002,
         "[Master::DownloadInterfaceCode] mode value must be between 1 and 2"},
        {"download mode 3", [] { return RspDownloadInterfaceCode(1, kMac, 1, 3); }, -10002,
         "[Master::DownloadInterfaceCode] mode value must be between 1 and 2"},
        {"output type first",
         [&] { return ReadInterfaceMemory_2(kMac, 99, 9, "x", 0, buffer, 32, 'b'); }, -10002,
         "[Master::ReadInterfaceMemory] output Type must be 'a' or 'd'"},
        {"read interface 32", [&] { return ReadInterfaceMemory(kMac, 32, 1, "0", 1, buffer, 32); },
         -10002, "[Master::ReadInterfaceMemory] interface number must be between 0 and 31"},
        {"memory type 0", [&] { return ReadInterfaceMemory(kMac, 0, 0, "0", 1, buffer, 32); },
         -10002, "[Master::ReadInterfaceMemory] memory type value must be between 1 and 3"},
        {"memory type 4", [] { return RspReadInterfaceMemory(1, kMac, 0, 4, "0", 1); }, -10002,
         "[Master::ReadInterfaceMemory] memory type value must be between 1 and 3"},
        {"address not hex", [&] { return ReadInterfaceMemory(kMac, 0, 1, "1G", 1, buffer, 32); },
         -10002, "[Master::ReadInterfaceMemory] address must be a hexidecimal value"},
        {"address empty", [&] { return ReadInterfaceMemory(kMac, 0, 1, "", 1, buffer, 32); },
         -10002, "[Master::ReadInterfaceMemory] address must be a hexidecimal value"},
        {"address null", [&] { return ReadInterfaceMemory(kMac, 0, 1, nullptr, 1, buffer, 32); },
         -10002, "[Master::ReadInterfaceMemory] address must be a hexidecimal value"},
        {"read 0 bytes", [&] { return ReadInterfaceMemory(kMac, 0, 1, "0", 0, buffer, 32); },
         -10002, "[Master::ReadInterfaceMemory] number of bytes value must be between 1 and 8"},
        {"read 9 bytes", [] { return RspReadInterfaceMemory_2(1, kMac, 0, 1, "0", 9, 'a'); },
         -10002, "[Master::ReadInterfaceMemory] number of bytes value must be between 1 and 8"},
        {"read without a buffer",
         [] { return ReadInterfaceMemory(kMac, 0, 1, "0", 1, nullptr, 32); }, -10002, nullptr},
        {"write interface 32", [] { return WriteEEPROM(kMac, 32, "0", 1, "AA", 1); }, -10002,
         "[Master::WriteEEPROM_IsLastWrite] interface number must be between 0 and 31"},
        {"write address", [] { return WriteEEPROM(kMac, 0, "0x1", 1, "AA", 1); }, -10002,
         "[Master::WriteEEPROM_IsLastWrite] address must be a hexidecimal value"},
        {"write 9 bytes", [] { return RspWriteEEPROM(1, kMac, 0, "0", 9, "AA", 1); }, -10002,
         "[Master::WriteEEPROM_IsLastWrite] number of bytes value must be between 1 and 8"},
        {"write data not hex", [] { return WriteEEPROM(kMac, 0, "0", 1, "GG", 1); }, -10002,
         "[Master::WriteEEPROM_IsLastWrite] data to be written must be a hexidecimal value"},
        {"write data null", [] { return WriteEEPROM(kMac, 0, "0", 1, nullptr, 1); }, -10002,
         "[Master::WriteEEPROM_IsLastWrite] data to be written must be a hexidecimal value"},
        {"write data short", [] { return WriteEEPROM(kMac, 0, "0", 4, "AB", 0); }, -10002,
         "[Master::WriteEEPROM_IsLastWrite] data to be written must contain at least 4 bytes of "
         "data"},
        {"the ID is checked first", [] { return SetHardwareID(kMac, 99, "zz"); }, -10002,
         "[Master::SetInterfaceInternalID] ID must be a hexidecimal value"},
        {"ID interface 32", [] { return RspSetInterfaceInternalID(1, kMac, 32, "AB"); }, -10002,
         "[Master::SetInterfaceInternalID] interface number must be between 0 and 31"},
        {"no mode output", [] { return GetMoxOperationMode(kMac, nullptr); }, -10002, nullptr},
        {"no revisions buffer", [] { return GetMoxModuleRevs(kMac, nullptr, 10); }, -10002,
         nullptr},
        {"no password", [] { return SetMoxOperationMode(kMac, nullptr, 1); }, -10002,
         "[Master::SetMoxOperationMode] Error in password"},
        // Not valid, then not connected, then the arguments.
        {"a stranger with bad arguments", [] { return DownloadInterfaceCode(kStrangerMac, 40, 9); },
         -10004, nullptr},
        {"not connected with bad arguments",
         [&] { return ReadInterfaceMemory_2(kIdleMac, 0, 1, "0", 1, buffer, 32, 'q'); }, -10003,
         nullptr},
        {"module bus mode of a stranger", [&] { return GetMoxOperationMode(kStrangerMac, &value); },
         -10004, nullptr},
    };
    for (const Refusal& r : refusals) {
        SCOPED_TRACE(r.name);
        int before = r.log ? LogCount(r.log) : 0;
        EXPECT_EQ(r.call(), r.result);
        if (r.log) {
            EXPECT_EQ(LogCount(r.log), before + 1);
        }
    }
    // The refused calls' texts aren't logged for controllers that aren't there.
    EXPECT_EQ(LogCount("output Type must be 'a' or 'd'"), 1);
    EXPECT_EQ(LogCount("[Master::SetMoxOperationMode] Error in password"), 1);
    EXPECT_TRUE(c_.Silent(300));
}

TEST_F(BoardsSimTest, BoardsAreFoundLoadedWrittenAndReadBack) {
    sim::Controller& c = Identified("AA:00:91");
    c.Family<sim::Boards>().SetLayout(*sim::Boards::ParseLayout("0,5/20"));
    const char* mac = "AA:00:91";
    char found[128];
    char data[32];

    EXPECT_EQ(DiscoverInterfaces2(mac, found, sizeof found), 0);
    EXPECT_STREQ(found, "[0:00=0000,05=0000][1:20=0000]");
    EXPECT_EQ(SetHardwareID(mac, 5, "BEEF"), 0);
    EXPECT_EQ(SetInterfaceInternalID(mac, 7, "1"), -101);  // no board 7
    EXPECT_EQ(DiscoverInterfaces(mac, found, sizeof found), 0);
    EXPECT_STREQ(found, "[0:00=0000,05=BEEF][1:20=0000]");

    // A fresh board's program memory is erased until the controller loads it.
    EXPECT_EQ(ReadInterfaceMemory(mac, 5, 1, "0", 8, data, sizeof data), 0);
    EXPECT_STREQ(data, "FFFFFFFFFFFFFFFF");
    EXPECT_EQ(DownloadInterfaceProgram(mac, 5), 0);
    EXPECT_EQ(ReadInterfaceMemory_2(mac, 5, 1, "0", 8, data, sizeof data, 'a'), 0);
    EXPECT_STREQ(data, "ZIB.PROG");
    EXPECT_EQ(DownloadInterfaceEEPROM(mac, 20), 0);
    EXPECT_EQ(ReadInterfaceMemory_2(mac, 20, 2, "4", 6, data, sizeof data, 'A'), 0);
    EXPECT_STREQ(data, "EEPROM");
    EXPECT_EQ(DownloadInterfaceEEPROM(mac, 6), -101);

    // Writes in steps are held until the last one commits them all.
    EXPECT_EQ(WriteEEPROM(mac, 0, "10", 2, "CAFE", 0), 0);
    EXPECT_EQ(ReadInterfaceMemory(mac, 0, 2, "10", 3, data, sizeof data), 0);
    EXPECT_STREQ(data, "FFFFFF");
    EXPECT_EQ(WriteEEPROM(mac, 0, "12", 1, "01", 1), 0);
    EXPECT_EQ(ReadInterfaceMemory(mac, 0, 2, "10", 3, data, sizeof data), 0);
    EXPECT_STREQ(data, "CAFE01");
    // The library lets a short text through; the controller refuses it.
    EXPECT_EQ(WriteEEPROM(mac, 0, "10", 4, "ABCD", 1), -100);
    EXPECT_EQ(ReadInterfaceMemory(mac, 0, 2, "FF", 2, data, sizeof data), -100);

    EXPECT_EQ(GetMoxModuleRevs(mac, data, sizeof data), 0);
    EXPECT_STREQ(data, "00:2.1;05:2.1;20:2.1;");

    // The boards' state outlives a reconnect.
    c.Drop();
    ASSERT_TRUE(
        c.WaitUntil([](const sim::ControllerStats& s) { return s.identifications == 2; }, 10s));
    ASSERT_TRUE(WaitUntil([&] {
        return DiscoverInterfaces(mac, found, sizeof found) == 0 &&
               std::strcmp(found, "[0:00=0000,05=BEEF][1:20=0000]") == 0;
    }));
}

}  // namespace
}  // namespace zanth::test
