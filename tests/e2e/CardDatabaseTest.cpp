// The card database commands over a real link: the exact frame each export sends, and what each
// reply gives the caller (its result and every output) or, for an Rsp form, the response queue.
// Then a whole flow against the simulated controller.

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "e2e/CardArgs.h"
#include "protocol/Codes.h"
#include "support/FakeController.h"
#include "support/Library.h"
#include "tools/sim/Simulator.h"
#include "tools/sim/families/CardDatabase.h"
#include "zanth.h"

namespace zanth::test {
namespace {

using namespace std::chrono_literals;

// A record reply, numbered from the result as field 0, with its fields up to 26, 27 and 29.
const std::string kRecord26 =
    "0;2002;9;1;4321;3;4294967295;17;65535;2;3;4;5;6;7;8;1;x;0;x;1;x;2012/01/02-00:00:00;"
    "2037/12/31-23:59:59;4294967295;255;254;";
const std::string kRecord29 = kRecord26 + "x;1;65535;";

void ExpectRecord(const CardOut& o, bool secondMethod, bool role) {
    EXPECT_STREQ(o.cardNumber, "2002");
    EXPECT_EQ(o.cardSetId, 9);
    EXPECT_EQ(o.noFormat, 1);
    EXPECT_STREQ(o.pin, "4321");
    EXPECT_EQ(o.accessType, 3);
    EXPECT_EQ(o.uniqueId, 4294967295u);
    EXPECT_EQ(o.field7, 17);
    const int32_t groups[8] = {65535, 2, 3, 4, 5, 6, 7, 8};
    for (int i = 0; i < 8; ++i) EXPECT_EQ(o.groups[i], groups[i]) << "group " << i + 1;
    EXPECT_EQ(o.passbackExempt, 1);
    EXPECT_EQ(o.extendedAccess, 0);
    EXPECT_EQ(o.pinCommands, 1);
    EXPECT_STREQ(o.startDate, "2012/01/02");
    EXPECT_STREQ(o.startTime, "00:00:00");
    EXPECT_STREQ(o.endDate, "2037/12/31");
    EXPECT_STREQ(o.endTime, "23:59:59");
    EXPECT_EQ(o.escortId, 4294967295u);
    EXPECT_EQ(o.inSchedule, 255);
    EXPECT_EQ(o.outSchedule, 254);
    EXPECT_EQ(o.pinExempt, secondMethod ? 1 : kUntouched);
    EXPECT_EQ(o.role, role ? 65535u : 1u);
}

// One exchange: the call, the frame it must send, the controller's reply, and what the caller
// gets. A row with an rspid is an Rsp form: it returns 0 at once and the reply frame is expected
// on the response queue under that rspid.
struct Row {
    const char* name;
    std::function<int32_t()> call;
    std::string sent;
    int replyCode;
    std::string reply;
    int32_t result = 0;
    uint32_t rspid = 0;
    std::function<void()> check = [] {};
};

class CardWireTest : public LibraryTest {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        Start(kMac);
        ASSERT_TRUE(c_.Connect(port_));
        ASSERT_TRUE(c_.Identify(kMac));
        ASSERT_TRUE(WaitUntil([] {
            char list[64];
            return GetConnectedControllers(list, sizeof list) == 0 && std::strcmp(list, kMac) == 0;
        }));
    }

    void Run(const Row& row) {
        SCOPED_TRACE(row.name);
        std::thread controller([&] {
            auto request = c_.ReadFrame();
            ASSERT_TRUE(request);
            EXPECT_EQ(*request, row.sent);
            c_.SendFrame(row.replyCode, row.reply);
        });
        EXPECT_EQ(row.call(), row.rspid != 0 ? 0 : row.result);
        controller.join();
        if (row.rspid != 0) {
            int32_t rspid = 0;
            std::vector<char> text(4200, '\0');
            ASSERT_TRUE(WaitUntil([&] { return GetNextResponse(&rspid, text.data(), 4117) == 0; }));
            EXPECT_EQ(static_cast<uint32_t>(rspid), row.rspid);
            EXPECT_EQ(std::string(text.data()), Frame(row.replyCode, row.reply));
        }
        row.check();
    }

    FakeController c_;
};

TEST_F(CardWireTest, EveryExportSendsItsFrameAndReadsItsReply) {
    AddArgs a1;
    a1.cardNumber = Text("  1001 ");
    a1.pin = Text("");
    AddArgs a2;
    a2.uniqueId = 4294967295;
    a2.startDate = Text("0");
    a2.startTime = Text("12:00:00");
    a2.endDate = Text("2012/2/31");
    a2.endTime = Text("0");
    a2.pinExempt = 1;
    AddArgs a3;
    a3.startDate = Text("2012/01/02/junk");
    a3.startTime = Text("01:02:03");
    a3.endTime = Text("22:00:00");
    a3.escortId = 0;
    a3.cardRole = 65535;
    a3.pinExempt = 1;
    const std::string add1 =
        "7;0;1001;0;1;42;1;2;0;0;0;0;0;8;1;0;0;0;0;2012/01/02-00:00:00;2037/12/31-23:59:59;5;3;4;"
        "0;";
    const std::string add2 =
        "7;0;1001;1234;1;4294967295;1;2;0;0;0;0;0;8;1;0;0;0;0;0;2012/2/31-23:59:59;5;3;4;0;1;";
    const std::string add3 =
        "7;0;1001;1234;1;42;1;2;0;0;0;0;0;8;1;0;0;0;0;2012/01/02/junk-01:02:03;"
        "2037/12/31-22:00:00;0;3;4;0;1;65535;";

    CardOut g1, g2, g4, shortReply, refused, small;
    small.cardNumberSize = 4;  // "2002" needs five bytes
    Text delNumber(" 1001"), delPin(""), selNumber(" 2002 "), selPin("");
    char date[16] = "untouched", time[16] = "untouched";
    int32_t v[8] = {kUntouched, kUntouched, kUntouched, kUntouched,
                    kUntouched, kUntouched, kUntouched, kUntouched};
    auto resetValues = [&] {
        for (int32_t& x : v) x = kUntouched;
        std::strcpy(date, "untouched");
        std::strcpy(time, "untouched");
    };
    auto expectValues = [&](std::vector<int32_t> want) {
        for (size_t i = 0; i < want.size(); ++i) EXPECT_EQ(v[i], want[i]) << "value " << i + 1;
    };
    int32_t first = kUntouched, second = kUntouched, count = kUntouched;
    const std::string status = "0;2012/05/06-07:08:09;1;2;3;4;5;6;7;8;";

    const std::vector<Row> rows = {
        // Add and modify: trimming, stamps, the swap of passback exempt and extended access.
        {"AddModCardRecord", [&] { return Add1(a1); }, Frame(21, add1), 1021, "0;", 0, 0,
         [&] {
             EXPECT_STREQ(a1.cardNumber(), "1001");
             EXPECT_STREQ(a1.pin(), "0");
         }},
        {"RspAddModCardRecord", [&] { return RspAddModCardRecord(31, kMac, CARD_ADD_ARGS(a1)); },
         Frame(21, add1), 1021, "-100;", 0, 31},
        {"AddModCardRecord2", [&] { return Add2(a2); }, Frame(24, add2), 1024, "-100;", -100},
        {"RspAddModCardRecord2",
         [&] { return RspAddModCardRecord2(32, kMac, CARD_ADD_ARGS(a2), 1); }, Frame(24, add2),
         1024, "0;", 0, 32},
        {"AddModCardRecord3", [&] { return Add3(a3); }, Frame(27, add3), 1027, "-5;", -10001, 0,
         [&] { EXPECT_STREQ(a3.startDate(), "2012/01/02/junk"); }},
        {"RspAddModCardRecord3",
         [&] { return RspAddModCardRecord3(33, kMac, CARD_ADD_ARGS(a3), 1, 65535); },
         Frame(27, add3), 1027, "0;", 0, 33},
        {"AddModCardRecord2 answered by another code", [&] { return Add2(a2); }, Frame(24, add2),
         1027, "0;", -10010},
        {"AddModCardRecord without a result field", [&] { return Add1(a1); }, Frame(21, add1), 1021,
         "", -10011},

        // Get: selection in, every field out; three accepted replies for the second method.
        {"GetCardRecord", [&] { return Get1(g1); }, Frame(16, "0;7;0;0;"), 1016, kRecord29, 0, 0,
         [&] { ExpectRecord(g1, false, false); }},
        {"GetCardRecord2", [&] { return Get2(g2); }, Frame(25, "0;7;0;0;"), 1026,
         kRecord26 + "x;1;", 0, 0, [&] { ExpectRecord(g2, true, false); }},
        {"GetCardRecord4", [&] { return Get4(g4); }, Frame(35, "0;7;0;0;"), 1035, kRecord29, 0, 0,
         [&] { ExpectRecord(g4, true, true); }},
        {"GetCardRecord4 short reply", [&] { return Get4(shortReply); }, Frame(35, "0;7;0;0;"),
         1025, "0;2002;9;1;4", 0, 0,
         [&] {
             EXPECT_STREQ(shortReply.cardNumber, "2002");
             EXPECT_EQ(shortReply.cardSetId, 9);
             EXPECT_EQ(shortReply.noFormat, 1);
             EXPECT_STREQ(shortReply.pin, "0") << "bytes after the last ';' are no field";
             EXPECT_EQ(shortReply.accessType, kUntouched);
         }},
        {"GetCardRecord2 of a deleted record", [&] { return Get2(refused); }, Frame(25, "0;7;0;0;"),
         1025, "-103;" + kRecord29.substr(2), -103, 0,
         [&] {
             EXPECT_STREQ(refused.cardNumber, "0") << "only the trim touched it";
             EXPECT_EQ(refused.accessType, kUntouched);
         }},
        {"GetCardRecord card number one byte too long", [&] { return Get1(small); },
         Frame(16, "0;7;0;0;"), 1016, kRecord29, -10006, 0,
         [&] {
             EXPECT_STREQ(small.cardNumber, "0");
             EXPECT_EQ(small.cardSetId, 7);
         }},
        {"GetCardRecord4 answered by the add's code", [&] { return Get4(g4); },
         Frame(35, "2002;9;1;4321;"), 1027, "0;", -10010},
        {"RspGetCardRecord",
         [&] { return RspGetCardRecord(41, kMac, 3, 1, selNumber(), selPin()); },
         Frame(16, "2002;3;1;0;"), 1016, kRecord29, 0, 41,
         [&] {
             EXPECT_STREQ(selNumber(), "2002");
             EXPECT_STREQ(selPin(), "0");
         }},
        {"RspGetCardRecord2",
         [&] { return RspGetCardRecord2(42, kMac, 3, 0, selNumber(), selPin()); },
         Frame(25, "2002;3;0;0;"), 1025, kRecord29, 0, 42},
        {"RspGetCardRecord4",
         [&] { return RspGetCardRecord4(43, kMac, 3, 0, selNumber(), selPin()); },
         Frame(35, "2002;3;0;0;"), 1035, kRecord29, 0, 43},

        // Delete, undelete, update: four codes, either reply of the mode.
        {"DeleteCardRecord", [&] { return DeleteCardRecord(kMac, 7, 1, delNumber(), delPin()); },
         Frame(22, "7;1;1001;0;"), 1104, "0;", 0, 0,
         [&] {
             EXPECT_STREQ(delNumber(), "1001");
             EXPECT_STREQ(delPin(), "0");
         }},
        {"RspDeleteCardRecord",
         [&] { return RspDeleteCardRecord(51, kMac, 7, 1, delNumber(), delPin()); },
         Frame(22, "7;1;1001;0;"), 1022, "0;", 0, 51},
        {"DeleteCardRecord2", [&] { return DeleteCardRecord2(kMac, 4294967295u); },
         Frame(104, "-1;"), 1022, "-101;", -101},
        {"RspDeleteCardRecord2", [&] { return RspDeleteCardRecord2(52, kMac, 42); },
         Frame(104, "42;"), 1104, "0;", 0, 52},
        {"UndeleteCardRecord answered as a delete",
         [&] { return UndeleteCardRecord(kMac, 7, 1, delNumber(), delPin()); },
         Frame(23, "7;1;1001;0;"), 1022, "0;", -10010},
        {"RspUndeleteCardRecord",
         [&] { return RspUndeleteCardRecord(53, kMac, 7, 1, delNumber(), delPin()); },
         Frame(23, "7;1;1001;0;"), 1023, "0;", 0, 53},
        {"UndeleteCardRecord2", [&] { return UndeleteCardRecord2(kMac, 42); }, Frame(105, "42;"),
         1023, "0;", 0},
        {"RspUndeleteCardRecord2", [&] { return RspUndeleteCardRecord2(54, kMac, 42); },
         Frame(105, "42;"), 1105, "0;", 0, 54},
        {"UpdateCardRecord", [&] { return UpdateCardRecord(kMac, 2, 7, 0, delNumber(), delPin()); },
         Frame(23, "7;0;1001;0;"), 1105, "-1;", -10001},
        {"RspUpdateCardRecord",
         [&] { return RspUpdateCardRecord(55, kMac, 1, 7, 0, delNumber(), delPin()); },
         Frame(22, "7;0;1001;0;"), 1022, "0;", 0, 55},

        // Cardholder status: the first generation skips the fifth field.
        {"GetCardholderStatus",
         [&] {
             resetValues();
             return GetCardholderStatus(kMac, 42, date, sizeof date, time, sizeof time, &v[0],
                                        &v[1], &v[2], &v[3]);
         },
         Frame(76, "42;"), 1076, status, 0, 0,
         [&] {
             EXPECT_STREQ(date, "2012/05/06");
             EXPECT_STREQ(time, "07:08:09");
             expectValues({1, 2, 3, 5, kUntouched});
         }},
        {"GetCardholderStatus2",
         [&] {
             resetValues();
             return GetCardholderStatus2(kMac, 2147483647, date, sizeof date, time, sizeof time,
                                         &v[0], &v[1], &v[2], &v[3], &v[4]);
         },
         Frame(76, "2147483647;"), 1076, status, 0, 0,
         [&] {
             expectValues({1, 2, 3, 4, 5, kUntouched});
         }},
        {"GetCardholderStatus3",
         [&] {
             resetValues();
             return GetCardholderStatus3(kMac, 2147483648u, date, sizeof date, time, sizeof time,
                                         &v[0], &v[1], &v[2], &v[3], &v[4], &v[5], &v[6], &v[7]);
         },
         Frame(76, "2147483648;"), 1076, status, 0, 0,
         [&] {
             expectValues({1, 2, 3, 4, 5, 6, 7, 8});
         }},
        {"GetCardholderStatus short of a field",
         [&] {
             resetValues();
             return GetCardholderStatus(kMac, 42, date, sizeof date, time, sizeof time, &v[0],
                                        &v[1], &v[2], &v[3]);
         },
         Frame(76, "42;"), 1076, "0;0;1;2;3;4;", -10011, 0,
         [&] {
             EXPECT_STREQ(date, "0");
             EXPECT_STREQ(time, "0");
             expectValues({1, 2, 3, kUntouched});
         }},
        {"GetCardholderStatus3 of a deleted record",
         [&] {
             resetValues();
             return GetCardholderStatus3(kMac, 42, date, sizeof date, time, sizeof time, &v[0],
                                         &v[1], &v[2], &v[3], &v[4], &v[5], &v[6], &v[7]);
         },
         Frame(76, "42;"), 1076, "-103;", -103, 0,
         [&] {
             EXPECT_STREQ(date, "untouched");
             expectValues({kUntouched});
         }},
        {"RspGetCardholderStatus", [&] { return RspGetCardholderStatus(61, kMac, 42); },
         Frame(76, "42;"), 1076, status, 0, 61},
        {"ResetCardholderStatus all", [&] { return ResetCardholderStatus(kMac, 2, 99); }, Frame(78),
         1078, "0;"},
        {"ResetCardholderStatus one answered as all",
         [&] { return ResetCardholderStatus(kMac, 1, 42); }, Frame(77, "42;"), 1078, "0;", -10010},
        {"RspResetCardholderStatus", [&] { return RspResetCardholderStatus(62, kMac, 1, 42); },
         Frame(77, "42;"), 1077, "0;", 0, 62},
        {"ResetOneCardholderStatus", [&] { return ResetOneCardholderStatus(kMac, 4294967295u); },
         Frame(77, "4294967295;"), 1077, "-101;", -101},
        {"RspResetOneCardholderStatus", [&] { return RspResetOneCardholderStatus(63, kMac, 42); },
         Frame(77, "42;"), 1077, "0;", 0, 63},
        {"ResetAllCardholderStatus", [&] { return ResetAllCardholderStatus(kMac); }, Frame(78),
         1078, "0;"},
        {"RspResetAllCardholderStatus", [&] { return RspResetAllCardholderStatus(64, kMac); },
         Frame(78), 1078, "0;", 0, 64},

        // Database maintenance: results are the controller's, counts come by the pointers.
        {"ExecuteChangeOverDB", [&] { return ExecuteChangeOverDB(kMac, 500000); },
         Frame(52, "500000;"), 1052, "0;"},
        {"ExecuteDBChangeover", [&] { return ExecuteDBChangeover(kMac, 1); }, Frame(52, "1;"), 1052,
         "-102;", -102},
        {"RspExecuteChangeOverDB", [&] { return RspExecuteChangeOverDB(71, kMac, 10); },
         Frame(52, "10;"), 1052, "0;", 0, 71},
        {"RspExecuteDBChangeover", [&] { return RspExecuteDBChangeover(72, kMac, 11); },
         Frame(52, "11;"), 1052, "0;", 0, 72},
        {"ExecutePreindexDB", [&] { return ExecutePreindexDB(kMac); }, Frame(107), 1107, "0;"},
        {"RspExecutePreindexDB", [&] { return RspExecutePreindexDB(73, kMac); }, Frame(107), 1107,
         "0;", 0, 73},
        {"ExecuteReloadDB", [&] { return ExecuteReloadDB(kMac); }, Frame(108), 1108, "0;"},
        {"RspExecuteReloadDB", [&] { return RspExecuteReloadDB(74, kMac); }, Frame(108), 1108, "0;",
         0, 74},
        {"GetNumberOfCards", [&] { return GetNumberOfCards(kMac, &first, &second); }, Frame(89),
         1089, "0;120;50000;", 0, 0,
         [&] {
             EXPECT_EQ(first, 120);
             EXPECT_EQ(second, 50000);
         }},
        {"GetNumberOfCards short of a count",
         [&] {
             first = second = kUntouched;
             return GetNumberOfCards(kMac, &first, &second);
         },
         Frame(89), 1089, "0;7;", -10011, 0,
         [&] {
             EXPECT_EQ(first, 7);
             EXPECT_EQ(second, kUntouched);
         }},
        {"RspGetNumberOfCards", [&] { return RspGetNumberOfCards(75, kMac); }, Frame(89), 1089,
         "0;1;2;", 0, 75},
        {"GetNumberDelRecords", [&] { return GetNumberDelRecords(kMac, &count); }, Frame(103), 1103,
         "0;3;", 0, 0, [&] { EXPECT_EQ(count, 3); }},
        {"GetNumberDelRecords refused",
         [&] {
             count = kUntouched;
             return GetNumberDelRecords(kMac, &count);
         },
         Frame(103), 1103, "-200;3;", -200, 0, [&] { EXPECT_EQ(count, kUntouched); }},
        {"RspGetNumberDelRecords", [&] { return RspGetNumberDelRecords(76, kMac); }, Frame(103),
         1103, "0;3;", 0, 76},

        // Smart card modes: one ';' at the end, whether the host gave it or not.
        {"RspSmartCardRawMode", [&] { return RspSmartCardRawMode(81, kMac, 2, "ABCD"); },
         Frame(150, "2;ABCD;"), 1150, "0;2;9000;", 0, 81},
        {"RspSmartCardRawMode with its ';'",
         [&] { return RspSmartCardRawMode(82, kMac, 2, "ABCD;"); }, Frame(150, "2;ABCD;"), 1150,
         "0;2;9000;", 0, 82},
        {"RspSmartCardCommandMode empty", [&] { return RspSmartCardCommandMode(83, kMac, 2, ""); },
         Frame(151, "2;"), 1151, "0;2;", 0, 83},
    };
    for (const Row& row : rows) Run(row);
}

// ---------------------------------------------------------------------------------------------
// Against the simulated controller

class CardFlowTest : public LibraryTest {
  protected:
    void TearDown() override {
        sim_.Stop();
        LibraryTest::TearDown();
    }
    sim::Controller& Connect() {
        Start(kMac);
        sim::ControllerConfig config;
        config.mac = kMac;
        config.port = port_;
        config.reconnectMinMs = 50;
        sim::Controller& c = sim_.Add(config);
        sim_.Start();
        EXPECT_TRUE(c.WaitIdentified(10s));
        EXPECT_TRUE(WaitUntil([] {
            char list[64];
            return GetConnectedControllers(list, sizeof list) == 0 && std::strcmp(list, kMac) == 0;
        }));
        return c;
    }
    sim::Simulator sim_;
};

// A record of its own for each unique ID, every field different from its neighbours'.
AddArgs Cardholder(uint32_t id) {
    AddArgs a;
    a.uniqueId = id;
    a.cardSetId = static_cast<int32_t>(id % 5);
    a.noFormat = static_cast<int32_t>(id % 2);
    a.cardNumber = Text(std::to_string(100000 + id).c_str());
    a.pin = Text(id % 3 == 0 ? "" : std::to_string(id * 7 % 10000).c_str());
    a.accessType = static_cast<int32_t>(1 + id % 3);
    for (int i = 0; i < 8; ++i) a.groups[i] = static_cast<int32_t>((id * (i + 1)) % 65536);
    a.extendedAccess = static_cast<int32_t>(id / 2 % 2);
    a.passbackExempt = static_cast<int32_t>(id / 4 % 2);
    a.pinCommands = static_cast<int32_t>(id / 8 % 2);
    char text[16];
    std::snprintf(text, sizeof text, "%04u/%02u/%02u", 2000 + id % 30, 1 + id % 12, 1 + id % 28);
    a.startDate = Text(id % 10 == 0 ? "0" : text);
    std::snprintf(text, sizeof text, "%02u:%02u:%02u", id % 24, id % 60, (id * 7) % 60);
    a.startTime = Text(id % 4 == 0 ? "0" : text);
    a.endDate = Text("2037/12/31");
    a.endTime = Text(id % 5 == 0 ? "0" : "18:30:00");
    a.escortId = id * 3;
    a.inSchedule = static_cast<int32_t>(id % 256);
    a.outSchedule = static_cast<int32_t>((id + 1) % 256);
    a.pinExempt = static_cast<int32_t>(id / 16 % 2);
    a.cardRole = static_cast<uint16_t>(id * 11 % 65536);
    return a;
}

// Every field of the record as GetCardRecord4 reads it back.
void ExpectReadBack(uint32_t id, CardOut& o) {
    AddArgs a = Cardholder(id);
    SCOPED_TRACE("unique ID " + std::to_string(id));
    EXPECT_EQ(o.cardSetId, a.cardSetId);
    EXPECT_EQ(o.noFormat, a.noFormat);
    EXPECT_STREQ(o.cardNumber, a.cardNumber());
    EXPECT_STREQ(o.pin, a.pin()[0] ? a.pin() : "0");
    EXPECT_EQ(o.accessType, a.accessType);
    EXPECT_EQ(o.uniqueId, id);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(o.groups[i], a.groups[i]);
    EXPECT_EQ(o.extendedAccess, a.extendedAccess);
    EXPECT_EQ(o.passbackExempt, a.passbackExempt);
    EXPECT_EQ(o.pinCommands, a.pinCommands);
    bool noStart = std::strcmp(a.startDate(), "0") == 0;
    EXPECT_STREQ(o.startDate, a.startDate());
    EXPECT_STREQ(o.startTime, noStart                                ? "0"
                              : std::strcmp(a.startTime(), "0") == 0 ? "00:00:00"
                                                                     : a.startTime());
    EXPECT_STREQ(o.endDate, "2037/12/31");
    EXPECT_STREQ(o.endTime, std::strcmp(a.endTime(), "0") == 0 ? "23:59:59" : a.endTime());
    EXPECT_EQ(o.escortId, a.escortId);
    EXPECT_EQ(o.inSchedule, a.inSchedule);
    EXPECT_EQ(o.outSchedule, a.outSchedule);
    EXPECT_EQ(o.pinExempt, a.pinExempt);
    EXPECT_EQ(o.role, a.cardRole);
}

TEST_F(CardFlowTest, HundredsOfCardsLoadedReadBackDeletedAndUndeleted) {
    sim::Controller& controller = Connect();
    constexpr uint32_t kCards = 200;
    // Half by the blocking add, half queued and drained from the response queue.
    for (uint32_t id = 1; id <= kCards; id += 2) {
        AddArgs a = Cardholder(id);
        ASSERT_EQ(Add3(a), 0) << id;
        AddArgs b = Cardholder(id + 1);
        ASSERT_EQ(RspAddModCardRecord3(id + 1, kMac, CARD_ADD_ARGS(b), b.pinExempt, b.cardRole), 0);
    }
    int32_t drained = 0;
    ASSERT_TRUE(WaitUntil(
        [&] {
            int32_t rspid = 0;
            std::vector<char> text(4200);
            int32_t waiting = 0;
            while (GetNumberResponse(&waiting) == 0 && waiting > 0 &&
                   GetNextResponse(&rspid, text.data(), 4117) == 0) {
                EXPECT_STREQ(text.data(), "1027;0012;0;") << rspid;
                ++drained;
            }
            return drained == static_cast<int32_t>(kCards / 2);
        },
        60s));
    int32_t active = 0, capacity = 0;
    ASSERT_EQ(GetNumberOfCards(kMac, &active, &capacity), 0);
    EXPECT_EQ(active, static_cast<int32_t>(kCards));

    for (uint32_t id = 1; id <= kCards; ++id) {
        AddArgs a = Cardholder(id);
        CardOut o;
        o.cardSetId = a.cardSetId;
        o.noFormat = a.noFormat;
        std::strcpy(o.cardNumber, a.cardNumber());
        std::strcpy(o.pin, a.pin());
        ASSERT_EQ(Get4(o), 0) << id;
        ExpectReadBack(id, o);
    }

    // Delete by card, read as deleted, undelete by unique ID, read again; the count follows.
    AddArgs a = Cardholder(7);
    ASSERT_EQ(DeleteCardRecord(kMac, a.cardSetId, a.noFormat, a.cardNumber(), a.pin()), 0);
    int32_t deleted = 0;
    ASSERT_EQ(GetNumberDelRecords(kMac, &deleted), 0);
    EXPECT_EQ(deleted, 1);
    CardOut o;
    o.cardSetId = a.cardSetId;
    std::strcpy(o.cardNumber, a.cardNumber());
    EXPECT_EQ(Get2(o), sim::CardDatabase::kResultRecordDeleted);
    EXPECT_EQ(o.accessType, kUntouched);
    ASSERT_EQ(UndeleteCardRecord2(kMac, 7), 0);
    ASSERT_EQ(GetNumberDelRecords(kMac, &deleted), 0);
    EXPECT_EQ(deleted, 0);
    EXPECT_EQ(Get2(o), 0);
    EXPECT_EQ(o.uniqueId, 7u);

    // A cardholder's status, and its reset.
    ASSERT_TRUE(controller.Family<sim::CardDatabase>().SetStatus(
        9, {"2024/05/06-07:08:09", {1, 2, 3, 4, 5, 6, 7, 8}}));
    char date[16], time[16];
    int32_t v[8] = {};
    ASSERT_EQ(GetCardholderStatus3(kMac, 9, date, sizeof date, time, sizeof time, &v[0], &v[1],
                                   &v[2], &v[3], &v[4], &v[5], &v[6], &v[7]),
              0);
    EXPECT_STREQ(date, "2024/05/06");
    EXPECT_STREQ(time, "07:08:09");
    EXPECT_EQ(v[7], 8);
    ASSERT_EQ(ResetOneCardholderStatus(kMac, 9), 0);
    ASSERT_EQ(GetCardholderStatus(kMac, 9, date, sizeof date, time, sizeof time, &v[0], &v[1],
                                  &v[2], &v[3]),
              0);
    EXPECT_STREQ(date, "0");
    EXPECT_EQ(v[0], 0);

    // An unknown record is the controller's own result, passed through.
    EXPECT_EQ(DeleteCardRecord2(kMac, 999999), sim::kResultUnknownRecord);
    EXPECT_EQ(controller.Family<sim::CardDatabase>().Counts().active, kCards);
}

}  // namespace
}  // namespace zanth::test
