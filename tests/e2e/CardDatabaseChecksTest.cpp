// The argument checks of the card database commands, with the test standing in for the
// controller's Worker: every bound at both ends and just outside, the order of the checks, null
// and too small arguments, and the texts the library may change in the caller's buffers. A
// refused call queues nothing.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "e2e/CardArgs.h"
#include "monitors/HandleHashMon.h"
#include "monitors/RecvMon.h"
#include "monitors/ThreadHashMon.h"
#include "support/FakeController.h"
#include "support/Library.h"

namespace zanth::test {
namespace {

constexpr uint32_t kStandInThread = 4343;

class CardChecksTest : public LibraryTest {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        ASSERT_EQ(SetValidControllers("AA:BB:CC,11:22:33"), 0);
        test::Shared().workerMon->AddWorker(kMac, kStandInThread);
    }

    // The message a call queued, or "" when it queued none.
    static std::string Taken() {
        if (test::Shared().sendMon->CountFor(kMac) == 0) return "";
        CommandRecord record{};
        int32_t error = -1;
        test::Shared().sendMon->Get(&record, kMac, &error);
        return error == 0 ? std::string(record.message) : "";
    }

    // A blocking call served with `reply`; its result.
    template <class Call>
    static int32_t Serve(Call call, const std::string& reply) {
        auto pending = std::async(std::launch::async, call);
        EXPECT_TRUE(WaitUntil([] { return test::Shared().sendMon->CountFor(kMac) > 0; }));
        Taken();
        char slot[kMessageBufferSize] = {};
        std::memcpy(slot, reply.data(), reply.size());
        test::Shared().recvMon->SetBuffer(slot);
        return pending.get();
    }
};

// One bounded argument: the call with a value, its bounds, and the text a refusal logs. A
// bound at the end of the argument's type has no value outside it.
struct Bound {
    const char* text;
    std::function<int32_t(int64_t)> call;
    int64_t low;
    int64_t high;
    bool lowHasOutside = true;
    bool highHasOutside = true;
};

TEST_F(CardChecksTest, EveryBoundAtBothEndsAndJustOutside) {
    auto add = [](std::function<void(AddArgs&, int64_t)> set) {
        return [set](int64_t v) {
            AddArgs a;
            set(a, v);
            return RspAddModCardRecord3(1, kMac, CARD_ADD_ARGS(a), a.pinExempt, a.cardRole);
        };
    };
    auto i32 = [](int64_t v) { return static_cast<int32_t>(v); };
    std::vector<Bound> bounds = {
        {"[Master::AddModCardRecord3] card set ID value must be between 0 and 2147483647",
         add([&](AddArgs& a, int64_t v) { a.cardSetId = i32(v); }), 0, 2147483647, true, false},
        {"[Master::AddModCardRecord3] no format value must be between 0 and 1",
         add([&](AddArgs& a, int64_t v) { a.noFormat = i32(v); }), 0, 1},
        {"[Master::AddModCardRecord3] access type value must be between 1 and 3",
         add([&](AddArgs& a, int64_t v) { a.accessType = i32(v); }), 1, 3},
        {"[Master::AddModCardRecord3] unique ID value must be between 1 and 4294967295",
         add([&](AddArgs& a, int64_t v) { a.uniqueId = static_cast<uint32_t>(v); }), 1, 4294967295,
         true, false},
        {"[Master::AddModCardRecord3] extended access value must be between 0 and 1",
         add([&](AddArgs& a, int64_t v) { a.extendedAccess = i32(v); }), 0, 1},
        {"[Master::AddModCardRecord3] passback exempt value must be between 0 and 1",
         add([&](AddArgs& a, int64_t v) { a.passbackExempt = i32(v); }), 0, 1},
        {"[Master::AddModCardRecord3] pin commands value must be between 0 and 1",
         add([&](AddArgs& a, int64_t v) { a.pinCommands = i32(v); }), 0, 1},
        {"[Master::AddModCardRecord3] pin exempt value must be between 0 and 1",
         add([&](AddArgs& a, int64_t v) { a.pinExempt = i32(v); }), 0, 1},
        {"[Master::AddModCardRecord3] escort ID value must be between 0 and 4294967295",
         add([&](AddArgs& a, int64_t v) { a.escortId = static_cast<uint32_t>(v); }), 0, 4294967295,
         false, false},
        {"[Master::AddModCardRecord3] card role value must be between 0 and 65535",
         add([&](AddArgs& a, int64_t v) { a.cardRole = static_cast<uint16_t>(v); }), 0, 65535,
         false, false},
        {"[Master::AddModCardRecord3] in-schedule elevator group value must be between 0 and 255",
         add([&](AddArgs& a, int64_t v) { a.inSchedule = i32(v); }), 0, 255},
        {"[Master::AddModCardRecord3] out-schedule elevator group value must be between 0 and 255",
         add([&](AddArgs& a, int64_t v) { a.outSchedule = i32(v); }), 0, 255},
        {"[Master::UpdateCardRecord] mode value must be between 1 and 2",
         [](int64_t v) {
             Text n("1"), p("2");
             return RspUpdateCardRecord(1, kMac, static_cast<int32_t>(v), 0, 0, n(), p());
         },
         1, 2},
        {"[Master::UpdateCardRecord] card set ID value must be between 0 and 2147483647",
         [](int64_t v) {
             Text n("1"), p("2");
             return RspDeleteCardRecord(1, kMac, static_cast<int32_t>(v), 0, n(), p());
         },
         0, 2147483647, true, false},
        {"[Master::UpdateCardRecord] no format value must be between 0 and 1",
         [](int64_t v) {
             Text n("1"), p("2");
             return RspUndeleteCardRecord(1, kMac, 0, static_cast<int32_t>(v), n(), p());
         },
         0, 1},
        {"[Master::GetCardRecord] card set ID value must be between 0 and 2147483647",
         [](int64_t v) {
             Text n, p;
             return RspGetCardRecord(1, kMac, static_cast<int32_t>(v), 0, n(), p());
         },
         0, 2147483647, true, false},
        {"[Master::GetCardRecord] no format value must be between 0 and 1",
         [](int64_t v) {
             Text n, p;
             return RspGetCardRecord(1, kMac, 0, static_cast<int32_t>(v), n(), p());
         },
         0, 1},
        {"[Master::GetCardRecord[2] card set ID value must be between 0 and 2147483647",
         [](int64_t v) {
             Text n, p;
             return RspGetCardRecord4(1, kMac, static_cast<int32_t>(v), 0, n(), p());
         },
         0, 2147483647, true, false},
        {"[Master::GetCardRecord[2] no format value must be between 0 and 1",
         [](int64_t v) {
             Text n, p;
             return RspGetCardRecord2(1, kMac, 0, static_cast<int32_t>(v), n(), p());
         },
         0, 1},
        {"[Master::GetCardholderStatus3] unique ID value must be between 1 and 4294967295",
         [](int64_t v) { return RspGetCardholderStatus(1, kMac, static_cast<uint32_t>(v)); }, 1,
         4294967295, true, false},
        {"[Master::ResetCardholderStatus] unique ID value must be between 1 and 4294967295",
         [](int64_t v) { return RspResetOneCardholderStatus(1, kMac, static_cast<uint32_t>(v)); },
         1, 4294967295, true, false},
        {"[Master::ResetCardholderStatus] mode value must be between 1 and 2",
         [](int64_t v) { return RspResetCardholderStatus(1, kMac, static_cast<int32_t>(v), 5); }, 1,
         2},
        {"[Master::ExecuteChangeOverDB] number of cardholders value must be between 1 and 500000",
         [](int64_t v) { return RspExecuteDBChangeover(1, kMac, static_cast<int32_t>(v)); }, 1,
         500000},
    };
    for (int group = 1; group <= 8; ++group) {
        static std::string texts[8];
        texts[group - 1] = "[Master::AddModCardRecord3] access group " + std::to_string(group) +
                           " value must be between 0 and 65535";
        bounds.push_back(
            {texts[group - 1].c_str(),
             add([group, i32](AddArgs& a, int64_t v) { a.groups[group - 1] = i32(v); }), 0, 65535});
    }
    for (const Bound& b : bounds) {
        SCOPED_TRACE(b.text);
        for (int64_t v : {b.low, b.high}) {
            EXPECT_EQ(b.call(v), 0) << v;
            EXPECT_NE(Taken(), "") << v << " is within the bounds and goes out";
        }
        std::vector<int64_t> outside;
        if (b.lowHasOutside) outside.push_back(b.low - 1);
        if (b.highHasOutside) outside.push_back(b.high + 1);
        for (int64_t v : outside) {
            int before = LogCount(b.text);
            EXPECT_EQ(b.call(v), -10002) << v;
            EXPECT_EQ(LogCount(b.text), before + 1) << v;
            EXPECT_EQ(test::Shared().sendMon->CountFor(kMac), 0) << v;
        }
    }
}

TEST_F(CardChecksTest, DatesAndTimesAreCheckedFieldByFieldAndLeftCutWhenRefused) {
    struct Case {
        const char* startDate;
        const char* startTime;
        const char* endDate;
        const char* endTime;
        const char* text;            // the refusal's text, or null for a call that goes out
        const char* startDateAfter;  // what the caller's start date reads afterwards
    };
    const Case cases[] = {
        {"2012/2/31", "0", "0", "0", nullptr, "2012/2/31"},
        {"1901/01/01", "00:00:00", "2037/12/31", "23:59:59", nullptr, "1901/01/01"},
        {"2012/01/02/junk", "0", "0", "0", nullptr, "2012/01/02/junk"},
        {"2038/01/01", "0", "0", "0",
         "[Master::AddModCardRecord] start year must be between 1901 and 2037", "2038"},
        {"1900/01/01", "0", "0", "0",
         "[Master::AddModCardRecord] start year must be between 1901 and 2037", "1900"},
        {"2012/13/01", "0", "0", "0",
         "[Master::AddModCardRecord] start month must be between 1 and 12", "2012"},
        {"2012/00/01", "0", "0", "0",
         "[Master::AddModCardRecord] start month must be between 1 and 12", "2012"},
        {"2012/01/32", "0", "0", "0",
         "[Master::AddModCardRecord] start day must be between 1 and 31", "2012"},
        {"2012/01/00", "0", "0", "0",
         "[Master::AddModCardRecord] start day must be between 1 and 31", "2012"},
        {"2012/01", "0", "0", "0",
         "[Master::AddModCardRecord] Invalid start date, must be in yyyy/mm/dd format or 0",
         "2012"},
        {"", "0", "0", "0",
         "[Master::AddModCardRecord] Invalid start date, must be in yyyy/mm/dd format or 0", ""},
        {"0", "24:00:00", "0", "0",
         "[Master::AddModCardRecord] start hour must be between 0 and 23", "0"},
        {"0", "23:60:00", "0", "0",
         "[Master::AddModCardRecord] start minute must be between 0 and 59", "0"},
        {"0", "23:59:60", "0", "0",
         "[Master::AddModCardRecord] start second must be between 0 and 59", "0"},
        {"0", "-1:00:00", "0", "0",
         "[Master::AddModCardRecord] start hour must be between 0 and 23", "0"},
        {"0", "12:00", "0", "0",
         "[Master::AddModCardRecord] Invalid start time, must be in hh:mm:ss format or 0", "0"},
        {"0", "0", "2012/1", "0",
         "[Master::AddModCardRecord] Invalid end date, must be in yyyy/mm/dd format or 0", "0"},
        {"0", "0", "2037/12/32", "0", "[Master::AddModCardRecord] end day must be between 1 and 31",
         "0"},
        {"0", "0", "0", "1:2",
         "[Master::AddModCardRecord] Invalid end time, must be in hh:mm:ss format or 0", "0"},
        {"0", "0", "0", "00:00:60",
         "[Master::AddModCardRecord] end second must be between 0 and 59", "0"},
        // The first failure is the only one: the start date's refusal hides the end time's.
        {"2012/13/01", "0", "0", "99:00:00",
         "[Master::AddModCardRecord] start month must be between 1 and 12", "2012"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.startDate) + " " + c.startTime + " " + c.endDate + " " +
                     c.endTime);
        AddArgs a;
        a.startDate = Text(c.startDate);
        a.startTime = Text(c.startTime);
        a.endDate = Text(c.endDate);
        a.endTime = Text(c.endTime);
        int before = c.text ? LogCount(c.text) : 0;
        EXPECT_EQ(RspAddModCardRecord(1, kMac, CARD_ADD_ARGS(a)), c.text ? -10002 : 0);
        EXPECT_STREQ(a.startDate(), c.startDateAfter);
        if (c.text) {
            EXPECT_EQ(LogCount(c.text), before + 1);
            EXPECT_EQ(Taken(), "");
        } else {
            EXPECT_NE(Taken(), "");
        }
    }
    EXPECT_EQ(LogCount("end hour must be"), 0);
}

TEST_F(CardChecksTest, OrderValidThenConnectedThenArguments) {
    AddArgs a;
    a.accessType = 9;
    EXPECT_EQ(AddModCardRecord("99:99:99", CARD_ADD_ARGS(a)), -10004);
    EXPECT_EQ(AddModCardRecord2("11:22:33", CARD_ADD_ARGS(a), 0), -10003);
    EXPECT_EQ(DeleteCardRecord2("11:22:33", 5), -10003);
    EXPECT_EQ(GetNumberDelRecords("99:99:99", nullptr), -10004);
    EXPECT_EQ(RspSmartCardRawMode(1, "11:22:33", 1, nullptr), -10003);
    EXPECT_EQ(LogCount("access type value must be"), 0) << "no argument is looked at before";
    // Then the first failing argument is the only one logged.
    a.groups[0] = -1;
    EXPECT_EQ(AddModCardRecord(kMac, CARD_ADD_ARGS(a)), -10002);
    EXPECT_EQ(LogCount("[Master::AddModCardRecord] access type value must be between 1 and 3"), 1);
    EXPECT_EQ(LogCount("access group 1 value"), 0);
    // Mode 3 with a bad card set ID logs only the mode, yet the texts are trimmed by then.
    Text number(" 77 "), pin("  ");
    EXPECT_EQ(UpdateCardRecord(kMac, 3, -1, 0, number(), pin()), -10002);
    EXPECT_EQ(LogCount("[Master::UpdateCardRecord] mode value must be between 1 and 2"), 1);
    EXPECT_EQ(LogCount("[Master::UpdateCardRecord] card set ID value"), 0);
    EXPECT_STREQ(number(), "77");
    EXPECT_STREQ(pin(), "0");
    // The first two status generations test the unique ID signed.
    char date[16], time[16];
    int32_t v[5];
    EXPECT_EQ(
        GetCardholderStatus(kMac, 2147483648u, date, 16, time, 16, &v[0], &v[1], &v[2], &v[3]),
        -10002);
    EXPECT_EQ(GetCardholderStatus2(kMac, 0, date, 16, time, 16, &v[0], &v[1], &v[2], &v[3], &v[4]),
              -10002);
    EXPECT_EQ(
        LogCount("[Master::GetCardholderStatus] unique ID value must be between 1 and 4294967295"),
        1);
    EXPECT_EQ(
        LogCount("[Master::GetCardholderStatus2] unique ID value must be between 1 and 4294967295"),
        1);
    EXPECT_EQ(ResetCardholderStatus(kMac, 1, 0), -10002);
    EXPECT_EQ(test::Shared().sendMon->CountFor(kMac), 0);
}

TEST_F(CardChecksTest, NullArgumentsAreRefusedAndNothingIsSent) {
    AddArgs a;
    CardOut o;
    char date[16], time[16];
    int32_t v[8];
    int32_t n = 0;
    const std::vector<std::pair<const char*, std::function<int32_t()>>> calls = {
        {"add with a null start date",
         [&] {
             return AddModCardRecord(kMac, a.cardSetId, 0, a.cardNumber(), a.pin(), 1, 42, 0, 0, 0,
                                     0, 0, 0, 0, 0, 0, 0, 0, nullptr, a.startTime(), a.endDate(),
                                     a.endTime(), 0, 0, 0);
         }},
        {"add with a null PIN",
         [&] {
             return RspAddModCardRecord3(1, kMac, 0, 0, a.cardNumber(), nullptr, 1, 42, 0, 0, 0, 0,
                                         0, 0, 0, 0, 0, 0, 0, a.startDate(), a.startTime(),
                                         a.endDate(), a.endTime(), 0, 0, 0, 0, 0);
         }},
        {"get with a null card set ID",
         [&] {
             return GetCardRecord(kMac, nullptr, &o.noFormat, o.cardNumber, 24, o.pin, 24,
                                  &o.accessType, &o.uniqueId, &v[0], &v[0], &v[0], &v[0], &v[0],
                                  &v[0], &v[0], &v[0], &v[0], &v[0], &v[0], date, 16, time, 16,
                                  date, 16, time, 16, &o.escortId, &v[0], &v[0], &v[0]);
         }},
        {"get with a null output",
         [&] {
             return GetCardRecord2(kMac, &o.cardSetId, &o.noFormat, o.cardNumber, 24, o.pin, 24,
                                   &o.accessType, &o.uniqueId, &v[0], &v[0], &v[0], &v[0], &v[0],
                                   &v[0], &v[0], &v[0], &v[0], &v[0], &v[0], date, 16, time, 16,
                                   date, 16, nullptr, 16, &o.escortId, &v[0], &v[0], &v[0], &v[1]);
         }},
        {"Rsp get with a null card number",
         [&] { return RspGetCardRecord(1, kMac, 0, 0, nullptr, o.pin); }},
        {"delete by card with a null PIN",
         [&] { return DeleteCardRecord(kMac, 0, 0, o.cardNumber, nullptr); }},
        {"delete by unique ID 0", [&] { return DeleteCardRecord2(kMac, 0); }},
        {"status with a null value",
         [&] {
             return GetCardholderStatus3(kMac, 5, date, 16, time, 16, &v[0], &v[1], &v[2], &v[3],
                                         &v[4], &v[5], &v[6], nullptr);
         }},
        {"status with a null date",
         [&] {
             return GetCardholderStatus(kMac, 5, nullptr, 16, time, 16, &v[0], &v[1], &v[2], &v[3]);
         }},
        {"count with a null output", [&] { return GetNumberOfCards(kMac, &n, nullptr); }},
        {"smart card with null data", [&] { return RspSmartCardCommandMode(1, kMac, 1, nullptr); }},
    };
    for (const auto& [name, call] : calls) {
        EXPECT_EQ(call(), -10002) << name;
        EXPECT_EQ(test::Shared().sendMon->CountFor(kMac), 0) << name;
    }
}

TEST_F(CardChecksTest, StampsAndTextsNeedRoomForTheirTerminator) {
    const std::string record =
        "1035;0000;0;2002;9;1;4321;3;77;17;1;2;3;4;5;6;7;8;1;0;0;0;1;0;2012/01/"
        "02-00:00:00;0;5;6;7;0;1;9;";
    auto frame = [](std::string f) {
        std::string length = std::to_string(f.size());
        f.replace(5, 4, std::string(4 - length.size(), '0') + length);
        return f;
    };
    struct Case {
        int32_t dateSize, timeSize, numberSize;
        int32_t result;
        const char* startDate;
        const char* endDate;
    };
    const Case cases[] = {
        {11, 9, 5, 0, "2012/01/02", "0"},
        {10, 9, 5, -10006, "untouched", "untouched"},   // the date has no room for its end
        {11, 8, 5, -10006, "2012/01/02", "untouched"},  // the date is written before the time fails
        {2, 2, 5, -10006, "untouched", "untouched"},
        {11, 9, 4, -10006, "untouched", "untouched"},  // the card number one byte short
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.dateSize) + "/" + std::to_string(c.timeSize) + "/" +
                     std::to_string(c.numberSize));
        CardOut o;
        o.stampSize = 0;
        char sd[16] = "untouched", st[16] = "untouched", ed[16] = "untouched", et[16] = "untouched";
        int32_t g[8];
        int32_t rc = Serve(
            [&] {
                return GetCardRecord4(
                    kMac, &o.cardSetId, &o.noFormat, o.cardNumber, c.numberSize, o.pin, 24,
                    &o.accessType, &o.uniqueId, &g[0], &g[1], &g[2], &g[3], &g[4], &g[5], &g[6],
                    &g[7], &o.extendedAccess, &o.passbackExempt, &o.pinCommands, sd, c.dateSize, st,
                    c.timeSize, ed, c.dateSize, et, c.timeSize, &o.escortId, &o.inSchedule,
                    &o.outSchedule, &o.field7, &o.pinExempt, &o.role);
            },
            frame(record));
        EXPECT_EQ(rc, c.result);
        EXPECT_STREQ(sd, c.startDate);
        EXPECT_STREQ(ed, c.endDate);
        if (rc == 0) {
            EXPECT_STREQ(st, "00:00:00");
            EXPECT_STREQ(et, "0");
            EXPECT_EQ(o.role, 9u);
        }
    }
    // The status stamp "0" needs two bytes in both buffers.
    char date[2], time[1];
    int32_t v[4] = {};
    EXPECT_EQ(Serve(
                  [&] {
                      return GetCardholderStatus(kMac, 1, date, 2, time, 1, &v[0], &v[1], &v[2],
                                                 &v[3]);
                  },
                  "1076;0030;0;0;1;2;3;4;5;6;7;8;"),
              -10006);
    EXPECT_EQ(v[0], 0) << "the walk ended at the stamp";
}

// A declared size is never read or written past. The texts below live in heap blocks of exactly
// their declared size, so the address sanitizer sees a single byte too many: an empty text with
// room for less than "0" and its end, or a text that doesn't end within its size, is refused
// with -10006 before anything is sent, and its bytes stay as they were.
TEST_F(CardChecksTest, DeclaredSizesAreNeverReadOrWrittenPast) {
    CardOut o;
    using Get = std::function<int32_t(char*, int32_t, char*, int32_t)>;
    const std::pair<const char*, Get> gets[] = {
        {"GetCardRecord",
         [&](char* number, int32_t numberSize, char* pin, int32_t pinSize) {
             return GetCardRecord(
                 kMac, &o.cardSetId, &o.noFormat, number, numberSize, pin, pinSize, &o.accessType,
                 &o.uniqueId, &o.groups[0], &o.groups[1], &o.groups[2], &o.groups[3], &o.groups[4],
                 &o.groups[5], &o.groups[6], &o.groups[7], &o.extendedAccess, &o.passbackExempt,
                 &o.pinCommands, o.startDate, 16, o.startTime, 16, o.endDate, 16, o.endTime, 16,
                 &o.escortId, &o.inSchedule, &o.outSchedule, &o.field7);
         }},
        {"GetCardRecord2",
         [&](char* number, int32_t numberSize, char* pin, int32_t pinSize) {
             return GetCardRecord2(
                 kMac, &o.cardSetId, &o.noFormat, number, numberSize, pin, pinSize, &o.accessType,
                 &o.uniqueId, &o.groups[0], &o.groups[1], &o.groups[2], &o.groups[3], &o.groups[4],
                 &o.groups[5], &o.groups[6], &o.groups[7], &o.extendedAccess, &o.passbackExempt,
                 &o.pinCommands, o.startDate, 16, o.startTime, 16, o.endDate, 16, o.endTime, 16,
                 &o.escortId, &o.inSchedule, &o.outSchedule, &o.field7, &o.pinExempt);
         }},
        {"GetCardRecord4",
         [&](char* number, int32_t numberSize, char* pin, int32_t pinSize) {
             return GetCardRecord4(
                 kMac, &o.cardSetId, &o.noFormat, number, numberSize, pin, pinSize, &o.accessType,
                 &o.uniqueId, &o.groups[0], &o.groups[1], &o.groups[2], &o.groups[3], &o.groups[4],
                 &o.groups[5], &o.groups[6], &o.groups[7], &o.extendedAccess, &o.passbackExempt,
                 &o.pinCommands, o.startDate, 16, o.startTime, 16, o.endDate, 16, o.endTime, 16,
                 &o.escortId, &o.inSchedule, &o.outSchedule, &o.field7, &o.pinExempt, &o.role);
         }},
    };
    // A text of `size` bytes, all of them `content` (no terminator unless `content` is empty).
    auto block = [](int32_t size, const char* content) {
        auto b = std::make_unique<char[]>(static_cast<size_t>(std::max(size, 1)));
        std::memset(b.get(), 0, static_cast<size_t>(std::max(size, 1)));
        std::memcpy(b.get(), content, std::strlen(content));
        return b;
    };
    struct Case {
        const char* what;
        int32_t numberSize;
        const char* number;
        int32_t pinSize;
        const char* pin;
    };
    const Case cases[] = {
        {"empty card number in one byte", 1, "", 8, "1234"},
        {"empty PIN in one byte", 8, "1001", 1, ""},
        {"card number of size 0", 0, "", 8, "1234"},
        {"PIN of size 0", 8, "1001", 0, ""},
        {"card number filling its size", 4, "1001", 8, "1234"},
        {"PIN filling its size", 8, "1001", 4, "1234"},
    };
    for (const auto& [name, get] : gets) {
        for (const Case& c : cases) {
            SCOPED_TRACE(std::string(name) + ": " + c.what);
            auto number = block(c.numberSize, c.number);
            auto pin = block(c.pinSize, c.pin);
            EXPECT_EQ(get(number.get(), c.numberSize, pin.get(), c.pinSize), -10006);
            EXPECT_EQ(Taken(), "") << "nothing is sent";
            EXPECT_EQ(std::string(number.get(), std::strlen(c.number)), c.number);
            EXPECT_EQ(std::string(pin.get(), std::strlen(c.pin)), c.pin);
        }
        // Two bytes hold "0" and its end: empty texts go out as "0".
        SCOPED_TRACE(name);
        auto number = block(2, "");
        auto pin = block(2, "");
        auto pending =
            std::async(std::launch::async, [&] { return get(number.get(), 2, pin.get(), 2); });
        ASSERT_TRUE(WaitUntil([] { return test::Shared().sendMon->CountFor(kMac) > 0; }));
        const std::string sent = Taken();
        EXPECT_EQ(sent.substr(4), Frame(25, "0;7;0;0;").substr(4));
        char slot[kMessageBufferSize] = {};
        // The controller's own refusal under the reply code of what was sent.
        const std::string refused = "1" + sent.substr(1, 3) + ";0015;-100;";
        std::memcpy(slot, refused.data(), refused.size());
        test::Shared().recvMon->SetBuffer(slot);
        EXPECT_EQ(pending.get(), -100);
        EXPECT_STREQ(number.get(), "0");
        EXPECT_STREQ(pin.get(), "0");
    }
    EXPECT_TRUE(
        LogContains("[Master::GetCardRecord] card number does not fit its size of 1 bytes"));
    EXPECT_TRUE(LogContains("[Master::GetCardRecord[2]] PIN does not fit its size of 0 bytes"));
}

TEST_F(CardChecksTest, SelectionOfTheGetCodeIsTraced) {
    Text n, p;
    EXPECT_EQ(RspGetCardRecord4(1, kMac, 0, 0, n(), p()), 0);
    EXPECT_EQ(Taken(), Frame(35, "0;0;0;0;"));
    EXPECT_EQ(RspGetCardRecord2(1, kMac, 0, 0, n(), p()), 0);
    EXPECT_EQ(Taken(), Frame(25, "0;0;0;0;"));
    EXPECT_TRUE(
        LogContains("[Master::GetCardRecord[2] is established as GetCardRecord4 by uniqueid == 0 "
                    "and non NULL role"));
    EXPECT_TRUE(
        LogContains("[Master::GetCardRecord[2] is established as GetCardRecord2 by uniqueid == 0  "
                    "and role == NULL]"));
    // A blocking GetCardRecord4 without a place for the role sends code 25.
    CardOut o;
    EXPECT_EQ(Serve([&] { return GetCardRecord4(kMac, CARD_GET_ARGS(o), &o.pinExempt, nullptr); },
                    "1025;0012;0;"),
              0);
    EXPECT_EQ(LogCount("established as GetCardRecord2"), 2);
}

}  // namespace
}  // namespace zanth::test
