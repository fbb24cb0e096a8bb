// Time, time zone and message upload: the frames each form sends and what it makes of the
// replies (with the test standing in for the controller's Worker), the refusals, and one whole
// flow against the simulated controller over loopback.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include "monitors/CharIntQueueMon.h"
#include "monitors/HandleHashMon.h"
#include "monitors/RecvMon.h"
#include "monitors/ThreadHashMon.h"
#include "protocol/Codes.h"
#include "support/FakeController.h"
#include "support/Library.h"
#include "tools/sim/Simulator.h"
#include "tools/sim/families/Clock.h"
#include "tools/sim/families/Upload.h"
#include "zanth.h"

namespace zanth::test {
namespace {

using namespace std::chrono_literals;

constexpr const char* kMac = "AA:BB:CC";
constexpr uint32_t kStandInThread = 4242;
constexpr uint32_t kRspId = 9;
constexpr const char* kUntouched = "untouched";

// Output buffers that each row starts from afresh.
struct Outputs {
    char date[16];
    char time[16];
    char text[64];
    void Reset() {
        for (char* b : {date, time, text}) std::strcpy(b, kUntouched);
    }
};

class TimeUploadTest : public LibraryTest {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        ASSERT_EQ(SetValidControllers(kMac), 0);
        test::Shared().workerMon->AddWorker(kMac, kStandInThread);
    }

    static CommandRecord TakeCommand() {
        CommandRecord record{};
        int32_t error = -1;
        EXPECT_TRUE(WaitUntil([&] {
            test::Shared().sendMon->Get(&record, kMac, &error);
            return error == 0;
        }));
        return record;
    }

    static void Reply(const std::string& frame) {
        char slot[kMessageBufferSize] = {};
        std::memcpy(slot, frame.data(), frame.size());
        test::Shared().recvMon->SetBuffer(slot);
    }

    Outputs out_;
};

struct WireRow {
    const char* what;
    std::function<int32_t(Outputs&)> call;
    std::string sent;  // the payload behind the header
    int code;
    // The controller's answer: code and payload. No code: an Rsp form, which only queues.
    int replyCode;
    std::string reply;
    int32_t result;
    const char* date = kUntouched;
    const char* time = kUntouched;
    const char* text = kUntouched;
};

TEST_F(TimeUploadTest, EveryFormFramesItsModeAndReadsItsReply) {
    auto set = [](const char* date, const char* time) {
        return [d = std::string(date), t = std::string(time)](Outputs&) mutable {
            return SetTimeDate(kMac, d.data(), t.data());
        };
    };
    const std::vector<WireRow> rows = {
        {"get time", [](Outputs& o) { return GetTimeDate(kMac, o.date, 11, o.time, 9); }, "", 19,
         1019, "0;12;25;2024;8;30;0;", 0, "2024/12/25", "8:30:0"},
        {"get time, fields as they stand",
         [](Outputs& o) { return SystemTime(kMac, 0, o.date, 16, o.time, 16, nullptr, 0); }, "", 19,
         1019, "0;01;02;2030;07;08;09;", 0, "2030/01/02", "07:08:09"},
        {"get time, a positive result reads on",
         [](Outputs& o) { return GetTimeDate(kMac, o.date, 11, o.time, 9); }, "", 19, 1019,
         "3;1;2;2030;1;2;3;", 3, "2030/1/2", "1:2:3"},
        {"get time, short after the date: the date stands, the time as far as it came",
         [](Outputs& o) { return GetTimeDate(kMac, o.date, 11, o.time, 9); }, "", 19, 1019,
         "0;12;25;2024;8;", -10011, "2024/12/25", "8"},
        {"get time, date short: nothing touched",
         [](Outputs& o) { return GetTimeDate(kMac, o.date, 11, o.time, 9); }, "", 19, 1019,
         "0;12;25;", -10011},
        {"get time, controller error: nothing touched",
         [](Outputs& o) { return GetTimeDate(kMac, o.date, 11, o.time, 9); }, "", 19, 1019, "-5;",
         -10001},
        {"get time, a date too long for its buffer",
         [](Outputs& o) { return GetTimeDate(kMac, o.date, 11, o.time, 9); }, "", 19, 1019,
         "0;123;25;2024;8;30;0;", -10006},
        {"get time, a time too long for its buffer",
         [](Outputs& o) { return GetTimeDate(kMac, o.date, 11, o.time, 9); }, "", 19, 1019,
         "0;1;2;2024;1000;30;0;", -10006, "2024/1/2", "1000:30"},
        {"get time, another code",
         [](Outputs& o) { return GetTimeDate(kMac, o.date, 11, o.time, 9); }, "", 19, 9910, "19;",
         -10010},
        {"set time, the wire's order", set("2024/2/31", "9:5:0"), "2;31;2024;9;5;0;", 18, 1018,
         "0;", 0},
        {"set time, lowest bounds", set("1901/1/1", "0:0:0"), "1;1;1901;0;0;0;", 18, 1018, "0;", 0},
        {"set time, highest bounds", set("2037/12/31", "23:59:59"), "12;31;2037;23;59;59;", 18,
         1018, "-200;", -200},
        {"set time through the mode",
         [](Outputs&) {
             char d[] = "2025/06/07", t[] = "10:11:12";
             return SystemTime(kMac, 1, d, 0, t, 0, nullptr, 0);
         },
         "06;07;2025;10;11;12;", 18, 1018, "-1;", -10001},
        {"current zone", [](Outputs& o) { return GetCurrentTimeZone(kMac, o.text, 4); }, "", 46,
         1046, "0;EST;", 0, kUntouched, kUntouched, "EST"},
        {"current zone through the mode",
         [](Outputs& o) { return SystemTime(kMac, 2, nullptr, 0, nullptr, 0, o.text, 64); }, "", 46,
         1046, "0;CET;", 0, kUntouched, kUntouched, "CET"},
        {"current zone too long", [](Outputs& o) { return GetCurrentTimeZone(kMac, o.text, 3); },
         "", 46, 1046, "0;EST;", -10006},
        {"current zone missing", [](Outputs& o) { return GetCurrentTimeZone(kMac, o.text, 64); },
         "", 46, 1046, "0;", -10011},
        {"get TZ", [](Outputs& o) { return GetTZ(kMac, o.text, 64); }, "", 87, 1087,
         "0;EST5EDT,M3.2.0,M11.1.0;", 0, kUntouched, kUntouched, "EST5EDT,M3.2.0,M11.1.0"},
        {"get TZ through the mode", [](Outputs& o) { return SystemTZ(kMac, 0, o.text, 4); }, "", 87,
         1087, "0;UTC0;", -10006},
        {"get TZ, controller error", [](Outputs& o) { return GetTZ(kMac, o.text, 64); }, "", 87,
         1087, "-150;", -150},
        {"set TZ", [](Outputs&) { return SetTZ(kMac, "CET-1CEST"); }, "CET-1CEST;", 88, 1088, "0;",
         0},
        {"set TZ through the mode",
         [](Outputs&) {
             char tz[] = "UTC0";
             return SystemTZ(kMac, 1, tz, 0);
         },
         "UTC0;", 88, 1088, "-2;", -10001},
        // The Rsp forms only queue: the reply goes to the response queue under the rspid.
        {"Rsp get time", [](Outputs&) { return RspGetTimeDate(kRspId, kMac); }, "", 19, 0, "", 0},
        {"Rsp get time through the mode, no size check",
         [](Outputs&) { return RspSystemTime(kRspId, kMac, 0, nullptr, nullptr); }, "", 19, 0, "",
         0},
        {"Rsp set time",
         [](Outputs&) {
             char d[] = "2024/01/05", t[] = "1:2:3";
             return RspSetTimeDate(kRspId, kMac, d, t);
         },
         "01;05;2024;1;2;3;", 18, 0, "", 0},
        {"Rsp set time through the mode",
         [](Outputs&) {
             char d[] = "2030/2/3", t[] = "4:5:6";
             return RspSystemTime(kRspId, kMac, 1, d, t);
         },
         "2;3;2030;4;5;6;", 18, 0, "", 0},
        {"Rsp current zone", [](Outputs&) { return RspGetCurrentTimeZone(kRspId, kMac); }, "", 46,
         0, "", 0},
        {"Rsp get TZ", [](Outputs&) { return RspGetTZ(kRspId, kMac); }, "", 87, 0, "", 0},
        {"Rsp set TZ", [](Outputs&) { return RspSetTZ(kRspId, kMac, "EST5"); }, "EST5;", 88, 0, "",
         0},
        {"Rsp TZ through the mode",
         [](Outputs&) {
             char tz[] = "PST8";
             return RspSystemTZ(kRspId, kMac, 1, tz);
         },
         "PST8;", 88, 0, "", 0},
        // Upload: every form, its code and payload; the reply is a bare result on 1062.
        {"upload current", [](Outputs&) { return UploadCurrentMsgs(kMac); }, "", 60, 1062, "0;", 0},
        {"upload all", [](Outputs&) { return UploadAllMsgs(kMac); }, "", 63, 1062, "-7;", -10001},
        {"upload current by class", [](Outputs&) { return UploadCurrentMsgsByClassCode(kMac, 0); },
         "0;", 61, 1062, "0;", 0},
        {"upload all by class", [](Outputs&) { return UploadAllMsgsByClassCode(kMac, 255); },
         "255;", 64, 1062, "0;", 0},
        {"upload by message ID, start above end goes as it is",
         [](Outputs&) { return UploadMsgsByMsgID(kMac, 100, 50); }, "100;50;", 66, 1062, "0;", 0},
        {"upload current by priority",
         [](Outputs&) { return UploadCurrentMsgsByPriority(kMac, 255); }, "255;", 62, 1062, "0;",
         0},
        {"upload all by priority", [](Outputs&) { return UploadAllMsgsByPriority(kMac, 0); }, "0;",
         65, 1062, "-300;", -300},
        {"upload, another code", [](Outputs&) { return UploadAllMsgs(kMac); }, "", 63, 1063, "0;",
         -10010},
        {"CmdEventLog ignores value1 in mode 1",
         [](Outputs&) { return CmdEventLog(kMac, 1, -5, -5); }, "", 60, 1062, "0;", 0},
        {"CmdEventLog mode 6 at both ends", [](Outputs&) { return CmdEventLog(kMac, 6, 1, 99999); },
         "1;99999;", 66, 1062, "0;", 0},
        {"Rsp CmdEventLog", [](Outputs&) { return RspCmdEventLog(kRspId, kMac, 5, 7, -1); }, "7;",
         64, 0, "", 0},
        {"Rsp upload current", [](Outputs&) { return RspUploadCurrentMsgs(kRspId, kMac); }, "", 60,
         0, "", 0},
        {"Rsp upload all", [](Outputs&) { return RspUploadAllMsgs(kRspId, kMac); }, "", 63, 0, "",
         0},
        {"Rsp upload current by class",
         [](Outputs&) { return RspUploadCurrentMsgsByClassCode(kRspId, kMac, 3); }, "3;", 61, 0, "",
         0},
        {"Rsp upload all by class",
         [](Outputs&) { return RspUploadAllMsgsByClassCode(kRspId, kMac, 4); }, "4;", 64, 0, "", 0},
        {"Rsp upload by message ID",
         [](Outputs&) { return RspUploadMsgsByMsgID(kRspId, kMac, 99999, 1); }, "99999;1;", 66, 0,
         "", 0},
        {"Rsp upload current by priority",
         [](Outputs&) { return RspUploadCurrentMsgsByPriority(kRspId, kMac, 2); }, "2;", 62, 0, "",
         0},
        {"Rsp upload all by priority",
         [](Outputs&) { return RspUploadAllMsgsByPriority(kRspId, kMac, 1); }, "1;", 65, 0, "", 0},
    };
    for (const WireRow& row : rows) {
        SCOPED_TRACE(row.what);
        out_.Reset();
        auto pending = std::async(std::launch::async, [&] { return row.call(out_); });
        CommandRecord record = TakeCommand();
        EXPECT_STREQ(record.message, Frame(row.code, row.sent).c_str());
        EXPECT_EQ(record.rspfunc, row.replyCode == 0 ? 1 : 0);
        EXPECT_EQ(record.rspid, row.replyCode == 0 ? static_cast<int32_t>(kRspId) : 0);
        if (row.replyCode != 0) Reply(Frame(row.replyCode, row.reply));
        EXPECT_EQ(pending.get(), row.result);
        EXPECT_STREQ(out_.date, row.date);
        EXPECT_STREQ(out_.time, row.time);
        EXPECT_STREQ(out_.text, row.text);
        EXPECT_TRUE(test::Shared().recvMon->SlotEmpty());
    }
    EXPECT_TRUE(LogContains("[Master::SystemTime] get time code=1019"));
    EXPECT_TRUE(LogContains("[Master::SystemTime] set time code=1018"));
    EXPECT_TRUE(LogContains("[Master::SystemTime] get timezone code=1046"));
    EXPECT_TRUE(LogContains("[Master::SystemTZ] get TZ code=1087"));
    EXPECT_TRUE(LogContains("[Master::SystemTZ] set TZ code=1088"));
    EXPECT_TRUE(LogContains("[Master::CmdEventLog] code=1062"));
    EXPECT_TRUE(LogContains("[Master::CmdEventLog] rslt=-300"));
    EXPECT_TRUE(LogContains("[Master::SystemTime] Invalid code error, recv:"));
}

TEST_F(TimeUploadTest, SetTimeDateCutsTheCallersTextsInPlace) {
    char date[] = "2024/2/31";
    char time[] = "9:5:0";
    auto pending = std::async(std::launch::async, [&] { return SetTimeDate(kMac, date, time); });
    TakeCommand();
    Reply(Frame(1018, "0;"));
    EXPECT_EQ(pending.get(), 0);
    EXPECT_EQ(std::memcmp(date,
                          "2024\0"
                          "2\0"
                          "31",
                          sizeof date),
              0);
    EXPECT_EQ(std::memcmp(time,
                          "9\0"
                          "5\0"
                          "0",
                          sizeof time),
              0);
}

struct Refusal {
    const char* what;
    std::function<int32_t()> call;
    int32_t result;
    const char* log;  // the one line it logs, or null for none
};

TEST_F(TimeUploadTest, RefusalsSendNothing) {
    auto set = [](const char* date, const char* time) {
        return [d = std::string(date), t = std::string(time)]() mutable {
            return SetTimeDate(kMac, d.data(), t.data());
        };
    };
    char date[16], time[16], text[16];
    const std::vector<Refusal> rows = {
        {"mode 3", [&] { return SystemTime(kMac, 3, date, 16, time, 16, text, 16); }, -10002,
         "[Master::SystemTime] mode value must be between 0 and 2"},
        {"mode -1", [&] { return RspSystemTime(1, kMac, -1, date, time); }, -10002,
         "[Master::SystemTime] mode value must be between 0 and 2"},
        {"TZ mode 2", [&] { return SystemTZ(kMac, 2, text, 16); }, -10002,
         "[Master::SystemTZ] mode value must be between 0 and 1"},
        {"date buffer of 10", [&] { return GetTimeDate(kMac, date, 10, time, 9); }, -10006,
         nullptr},
        {"time buffer of 8", [&] { return GetTimeDate(kMac, date, 11, time, 8); }, -10006, nullptr},
        {"null date", [&] { return GetTimeDate(kMac, nullptr, 11, time, 9); }, -10002, nullptr},
        {"null zone", [&] { return GetCurrentTimeZone(kMac, nullptr, 16); }, -10002, nullptr},
        {"null tz out", [&] { return GetTZ(kMac, nullptr, 16); }, -10002, nullptr},
        {"null tz in", [&] { return SetTZ(kMac, nullptr); }, -10002, nullptr},
        {"null set date", [&] { return SetTimeDate(kMac, nullptr, time); }, -10002, nullptr},
        {"null Rsp set time", [&] { return RspSetTimeDate(1, kMac, date, nullptr); }, -10002,
         nullptr},
        {"year 2038", set("2038/01/01", "garbage"), -10002,
         "[Master::SystemTime] year must be between 1901 and 2037"},
        {"year 1900", set("1900/12/31", "0:0:0"), -10002,
         "[Master::SystemTime] year must be between 1901 and 2037"},
        {"month 0", set("2024/0/1", "0:0:0"), -10002,
         "[Master::SystemTime] month must be between 1 and 12"},
        {"month 13", set("2024/13/1", "0:0:0"), -10002,
         "[Master::SystemTime] month must be between 1 and 12"},
        {"day 0", set("2024/1/0", "0:0:0"), -10002,
         "[Master::SystemTime] day must be between 1 and 31"},
        {"day 32", set("2024/1/32", "0:0:0"), -10002,
         "[Master::SystemTime] day must be between 1 and 31"},
        {"date of two parts", set("2024/01", "0:0:0"), -10002,
         "[Master::SystemTime] Invalid date, must be in yyyy/mm/dd format"},
        {"empty date", set("", "0:0:0"), -10002,
         "[Master::SystemTime] Invalid date, must be in yyyy/mm/dd format"},
        {"hour 24", set("2024/1/1", "24:0:0"), -10002,
         "[Master::SystemTime] hour must be between 0 and 23"},
        {"hour -1", set("2024/1/1", "-1:0:0"), -10002,
         "[Master::SystemTime] hour must be between 0 and 23"},
        {"minute 60", set("2024/1/1", "0:60:0"), -10002,
         "[Master::SystemTime] minute must be between 0 and 59"},
        {"second 60", set("2024/1/1", "0:0:60"), -10002,
         "[Master::SystemTime] second must be between 0 and 59"},
        {"time of two parts", set("2024/1/1", "12:30"), -10002,
         "[Master::SystemTime] Invalid time, must be in hh:mm:ss format"},
        {"upload mode 3", [] { return CmdEventLog(kMac, 3, 0, 0); }, -10002,
         "[Master::CmdEventLog] mode value must be 1, 2, 4, 5, 6, 7 or 8"},
        {"upload mode 0", [] { return RspCmdEventLog(1, kMac, 0, 0, 0); }, -10002,
         "[Master::CmdEventLog] mode value must be 1, 2, 4, 5, 6, 7 or 8"},
        {"upload mode 9", [] { return CmdEventLog(kMac, 9, 0, 0); }, -10002,
         "[Master::CmdEventLog] mode value must be 1, 2, 4, 5, 6, 7 or 8"},
        {"class -1", [] { return UploadCurrentMsgsByClassCode(kMac, -1); }, -10002,
         "[Master::CmdEventLog] class code must be between 0 and 255"},
        {"class 256", [] { return RspUploadAllMsgsByClassCode(1, kMac, 256); }, -10002,
         "[Master::CmdEventLog] class code must be between 0 and 255"},
        {"priority -1", [] { return UploadAllMsgsByPriority(kMac, -1); }, -10002,
         "[Master::CmdEventLog] priority must be between 0 and 255"},
        {"priority 256", [] { return RspUploadCurrentMsgsByPriority(1, kMac, 256); }, -10002,
         "[Master::CmdEventLog] priority must be between 0 and 255"},
        {"start 0, end too: only the start", [] { return UploadMsgsByMsgID(kMac, 0, 200000); },
         -10002, "[Master::CmdEventLog] start message ID must be between 1 and 99999"},
        {"start 100000", [] { return UploadMsgsByMsgID(kMac, 100000, 5); }, -10002,
         "[Master::CmdEventLog] start message ID must be between 1 and 99999"},
        {"end 0", [] { return UploadMsgsByMsgID(kMac, 5, 0); }, -10002,
         "[Master::CmdEventLog] end message ID must be between 1 and 99999"},
        {"end 100000", [] { return RspUploadMsgsByMsgID(1, kMac, 5, 100000); }, -10002,
         "[Master::CmdEventLog] end message ID must be between 1 and 99999"},
    };
    for (const Refusal& row : rows) {
        SCOPED_TRACE(row.what);
        std::string before = LogText();
        EXPECT_EQ(row.call(), row.result);
        std::string added = LogText().substr(before.size());
        if (row.log) {
            EXPECT_NE(added.find(row.log), std::string::npos) << added;
            EXPECT_EQ(added.find('\n'), added.rfind('\n')) << "one line only: " << added;
        } else {
            EXPECT_EQ(added, "");
        }
        EXPECT_EQ(test::Shared().sendMon->CountFor(kMac), 0);
    }
}

TEST_F(TimeUploadTest, ValidThenConnectedThenArguments) {
    char date[16], time[16];
    // Unknown: -10004 before the mode is looked at, and nothing logged.
    EXPECT_EQ(SystemTime("11:22:33", 3, date, 16, time, 16, nullptr, 0), -10004);
    EXPECT_EQ(CmdEventLog("11:22:33", 3, 0, 0), -10004);
    EXPECT_FALSE(LogContains("mode value must be"));
    ASSERT_EQ(SetValidControllers("AA:BB:CC,11:22:33"), 0);
    EXPECT_EQ(SystemTZ("11:22:33", 7, nullptr, 0), -10003);
    EXPECT_EQ(GetTimeDate("11:22:33", date, 1, time, 1), -10003);
    EXPECT_EQ(UploadMsgsByMsgID("11:22:33", 0, 0), -10003);
    EXPECT_FALSE(LogContains("must be between"));
    EXPECT_EQ(test::Shared().sendMon->CountFor("11:22:33"), 0);
}

// The library against the simulated controller over loopback.
class TimeUploadFlowTest : public LibraryTest {
  protected:
    void TearDown() override {
        sim_.Stop();
        LibraryTest::TearDown();
    }
    sim::Simulator sim_;
};

std::atomic<int> eventsByCallback{0};
std::atomic<int> alarmsByCallback{0};
int32_t CountEvent(char*) {
    ++eventsByCallback;
    return 0;
}
int32_t CountAlarm(char*) {
    ++alarmsByCallback;
    return 0;
}

uint64_t UnreadEvents() {
    uint64_t n = 0;
    NumberUnreadEvents(&n);
    return n;
}
uint64_t UnreadAlarms() {
    uint64_t n = 0;
    NumberUnreadAlarms(&n);
    return n;
}

TEST_F(TimeUploadFlowTest, ClockZoneAndUploadAgainstTheSimulator) {
    Start("AA:BB:CC");
    ASSERT_EQ(SetEventCallback(CountEvent), 0);
    ASSERT_EQ(SetAlarmCallback(CountAlarm), 0);
    sim::ControllerConfig config;
    config.mac = "AA:BB:CC";
    config.port = port_;
    sim::Controller& c = sim_.Add(config);
    // Raised while no host listened: four events and one alarm of every five.
    uint32_t first = c.StoreMessages(10);
    sim_.Start();
    ASSERT_TRUE(c.WaitIdentified(10s));
    ASSERT_TRUE(WaitUntil([] {
        char list[64] = {};
        return GetConnectedControllers(list, sizeof list) == 0 &&
               std::strcmp(list, "AA:BB:CC") == 0;
    }));

    // The clock: set, read back, and stamped on what the controller raises.
    char date[] = "2030/6/15";
    char time[] = "12:00:00";
    ASSERT_EQ(SetTimeDate(kMac, date, time), 0);
    char readDate[16] = {}, readTime[16] = {};
    ASSERT_EQ(GetTimeDate(kMac, readDate, sizeof readDate, readTime, sizeof readTime), 0);
    EXPECT_STREQ(readDate, "2030/6/15");
    EXPECT_EQ(std::string(readTime).rfind("12:0:", 0), 0u) << readTime;
    char bad[] = "2030/2/30", noon[] = "12:0:0";
    EXPECT_EQ(SetTimeDate(kMac, bad, noon), -100) << "the controller knows February";

    ASSERT_EQ(SetTZ(kMac, "CET-1CEST,M3.5.0,M10.5.0/3"), 0);
    char tz[64] = {}, zone[8] = {};
    ASSERT_EQ(GetTZ(kMac, tz, sizeof tz), 0);
    EXPECT_STREQ(tz, "CET-1CEST,M3.5.0,M10.5.0/3");
    ASSERT_EQ(GetCurrentTimeZone(kMac, zone, sizeof zone), 0);
    EXPECT_STREQ(zone, "CET");

    // An Rsp read: the reply frame comes back under its rspid.
    ASSERT_EQ(RspGetTimeDate(77, kMac), 0);
    int32_t rspid = 0;
    std::vector<char> frame(4200, '\0');
    ASSERT_TRUE(WaitUntil([&] { return GetNextResponse(&rspid, frame.data(), 4117) == 0; }));
    EXPECT_EQ(rspid, 77);
    EXPECT_EQ(std::string(frame.data()).rfind("1019;", 0), 0u) << frame.data();
    EXPECT_NE(std::string(frame.data()).find(";6;15;2030;12;"), std::string::npos);

    // A live event: it carries the controller's clock and is delivered at once.
    std::string live = c.SendEvent(2, "Access granted");
    EXPECT_NE(live.find(";06/15/2030;12:"), std::string::npos) << live;
    ASSERT_TRUE(WaitUntil([] { return UnreadEvents() == 1 && eventsByCallback == 1; }));

    // Current: the ten stored ones, not the live one already acknowledged.
    ASSERT_EQ(UploadCurrentMsgs(kMac), 0);
    ASSERT_TRUE(WaitUntil([] { return UnreadEvents() == 9 && UnreadAlarms() == 2; }));
    ASSERT_TRUE(WaitUntil([] { return eventsByCallback == 9 && alarmsByCallback == 2; }));
    auto& store = c.Family<sim::MessageStore>();
    ASSERT_TRUE(WaitUntil([&] { return store.Counts().current == 0; }));
    EXPECT_EQ(store.Counts().held, 11u);

    // Delivered now: a second current upload sends nothing; all sends all eleven again.
    ASSERT_EQ(UploadCurrentMsgs(kMac), 0);
    ASSERT_EQ(UploadMsgsByMsgID(kMac, static_cast<int32_t>(first), static_cast<int32_t>(first + 2)),
              0);
    ASSERT_TRUE(WaitUntil([] { return UnreadEvents() == 12 && UnreadAlarms() == 2; }));
    ASSERT_EQ(UploadAllMsgsByPriority(kMac, 1), 0);  // the two alarms
    ASSERT_TRUE(WaitUntil([] { return UnreadAlarms() == 4; }));
    ASSERT_EQ(UploadAllMsgs(kMac), 0);
    ASSERT_TRUE(WaitUntil([] { return UnreadEvents() == 21 && UnreadAlarms() == 6; }));
    ASSERT_TRUE(WaitUntil([] { return eventsByCallback == 21 && alarmsByCallback == 6; }, 15s));
    // An uploaded record is the stored text, as it went out live.
    char record[145] = {};
    ASSERT_EQ(GetNextEvent(record, 144), 0);
    EXPECT_EQ(std::string(record), live);
}

}  // namespace
}  // namespace zanth::test
