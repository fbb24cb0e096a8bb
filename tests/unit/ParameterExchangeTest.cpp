// The schedule and Contact ID commands on their common parameter exchange, with the test
// standing in for the controller's Worker: the bytes each export sends, what each kind of
// command returns for a given reply, the field counts, the conversion failure and the wait.

#include <gtest/gtest.h>

#include <algorithm>
#include <boost/any.hpp>
#include <cstring>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include "frame/ParameterList.h"
#include "frame/exports/Boundary.h"
#include "monitors/HandleHashMon.h"
#include "monitors/RecvMon.h"
#include "monitors/ThreadHashMon.h"
#include "support/FakeController.h"
#include "support/Library.h"
#include "zanth.h"

namespace zanth::test {
namespace {

constexpr const char* kMac = "AA:BB:CC";
constexpr uint32_t kStandInThread = 4343;
constexpr size_t kGuard = 32;

// An output text of the documented size, with guard bytes behind it that must stay untouched.
struct OutText {
    std::vector<char> bytes = std::vector<char>(ZANTH_PARAMETER_TEXT_SIZE + kGuard, '~');
    OutText() { std::strcpy(bytes.data(), "untouched"); }
    char* get() { return bytes.data(); }
    std::string str() const { return bytes.data(); }
    bool GuardIntact() const {
        for (size_t i = ZANTH_PARAMETER_TEXT_SIZE; i < bytes.size(); ++i) {
            if (bytes[i] != '~') return false;
        }
        return true;
    }
};

constexpr int32_t kUntouched = 12345;

// Every output a command of this family can have, preset so that a write shows.
struct Outputs {
    OutText text[5];
    int32_t value[7] = {kUntouched, kUntouched, kUntouched, kUntouched,
                        kUntouched, kUntouched, kUntouched};
    std::vector<std::string> Texts(int n) const {
        std::vector<std::string> out;
        for (int i = 0; i < n; ++i) out.push_back(text[i].str());
        return out;
    }
    std::vector<int32_t> Values(int n) const { return {value, value + n}; }
};

class ParameterExchangeTest : public LibraryTest {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        ASSERT_EQ(SetValidControllers("AA:BB:CC,11:22:33"), 0);
        test::Shared().workerMon->AddWorker(kMac, kStandInThread);
    }

    CommandRecord TakeCommand() {
        CommandRecord record{};
        int32_t error = -1;
        EXPECT_TRUE(WaitUntil([&] {
            test::Shared().sendMon->Get(&record, kMac, &error);
            return error == 0;
        }));
        return record;
    }

    // A blocking export on its own thread, answered with `reply` (a whole frame); its result.
    int32_t Serve(const std::function<int32_t()>& call, const std::string& reply,
                  std::string* sent = nullptr) {
        auto pending = std::async(std::launch::async, call);
        CommandRecord record = TakeCommand();
        if (sent) *sent = record.message;
        EXPECT_EQ(record.rspfunc, 0);
        char slot[kMessageBufferSize] = {};
        std::memcpy(slot, reply.data(), std::min(reply.size(), sizeof slot));
        test::Shared().recvMon->SetBuffer(slot);
        return pending.get();
    }

    // The same with the reply given as a payload under the Contact ID reply code.
    int32_t ServePayload(const std::function<int32_t()>& call, const std::string& payload,
                         std::string* sent = nullptr) {
        return Serve(call, Frame(1116, payload), sent);
    }

    Outputs o_;
};

// One export called once: the frame it must send, the reply it gets (none for a Rsp form, whose
// record must carry rspfunc 1 and its rspid), what it must return and what its outputs read.
struct WireRow {
    const char* name;
    std::function<int32_t(Outputs&)> call;
    std::string sent;
    std::string replyPayload;  // blocking forms only
    int32_t expected;
    uint32_t rspid = 0;  // non-zero: a Rsp form
    std::function<void(const Outputs&)> check = [](const Outputs&) {};
};

TEST_F(ParameterExchangeTest, EveryExportSendsItsFrameAndReturnsByItsKind) {
    const std::vector<WireRow> rows = {
        // Schedules.
        {"UpdateSchedule",
         [](Outputs&) {
             return UpdateSchedule(kMac, "a", "bb", "c c", "d", "e", 1, -2, 3, 4, 5, 2147483647);
         },
         Frame(125, "a;bb;c c;d;e;1;-2;3;4;5;2147483647;"), "0;", 0},
        {"UpdateSchedule empty texts, result passed unmapped",
         [](Outputs&) { return UpdateSchedule(kMac, "", "", "", "", "", 1, 2, 3, 4, 5, 6); },
         Frame(125, ";;;;;1;2;3;4;5;6;"), "-5;", -5},
        {"RspUpdateSchedule",
         [](Outputs&) {
             return RspUpdateSchedule(41, kMac, "a", "b", "c", "d", "e", 1, 2, 3, 4, 5, 6);
         },
         Frame(125, "a;b;c;d;e;1;2;3;4;5;6;"), "", -1, 41},
        {"GetSchedule, the controller's negative result is not read",
         [](Outputs& o) {
             return GetSchedule(kMac, 7, o.text[0].get(), o.text[1].get(), o.text[2].get(),
                                o.text[3].get(), o.text[4].get(), &o.value[0], &o.value[1],
                                &o.value[2], &o.value[3], &o.value[4]);
         },
         Frame(126, "7;"), "-5;t1;;t 3;t4;t5;10;-20;30;40;50;99;", 0, 0,
         [](const Outputs& o) {
             EXPECT_EQ(o.Texts(5), (std::vector<std::string>{"t1", "", "t 3", "t4", "t5"}));
             EXPECT_EQ(o.Values(5), (std::vector<int32_t>{10, -20, 30, 40, 50}));
         }},
        {"RspGetSchedule", [](Outputs&) { return RspGetSchedule(42, kMac, -7); }, Frame(126, "-7;"),
         "", -1, 42},
        {"DeleteSchedule", [](Outputs&) { return DeleteSchedule(kMac, 7); }, Frame(127, "7;"), "0;",
         0},
        {"RspDeleteSchedule", [](Outputs&) { return RspDeleteSchedule(43, kMac, 7); },
         "0127;0012;7;", "", -1, 43},
        // Contact ID records: the update and the delete give only the exchange's result.
        {"UpdateContactIDRecord, the controller's refusal doesn't reach the caller",
         [](Outputs&) {
             return UpdateContactIDRecord(kMac, "t1", 1, 2, 3, 4, 5, 6, 7, "t2", "t3");
         },
         Frame(116, "t1;1;2;3;4;5;6;7;t2;t3;"), "-101;", 0},
        {"RspUpdateContactIDRecord",
         [](Outputs&) {
             return RspUpdateContactIDRecord(44, kMac, "", -1, 0, 9, 0, 0, 0, 0, "", "");
         },
         Frame(116, ";-1;0;9;0;0;0;0;;;"), "", 0, 44},
        {"GetContactIDRecord, the key is overwritten",
         [](Outputs& o) {
             o.value[2] = 501;
             return GetContactIDRecord(kMac, o.text[0].get(), &o.value[0], &o.value[1], &o.value[2],
                                       &o.value[3], &o.value[4], &o.value[5], &o.value[6],
                                       o.text[1].get(), o.text[2].get());
         },
         Frame(117, "501;"), "fire;1;130;502;4;5;6;-7;zone;hall;", 0, 0,
         [](const Outputs& o) {
             EXPECT_EQ(o.Texts(3), (std::vector<std::string>{"fire", "zone", "hall"}));
             EXPECT_EQ(o.Values(7), (std::vector<int32_t>{1, 130, 502, 4, 5, 6, -7}));
         }},
        {"RspGetContactIDRecord", [](Outputs&) { return RspGetContactIDRecord(45, kMac, 501); },
         Frame(117, "501;"), "", -1, 45},
        {"DeleteContactIDRecord, any reply",
         [](Outputs&) { return DeleteContactIDRecord(kMac, 5); }, Frame(118, "5;"), "-101;", 0},
        {"RspDeleteContactIDRecord", [](Outputs&) { return RspDeleteContactIDRecord(46, kMac, 5); },
         Frame(118, "5;"), "", 0, 46},
        // Group records: number first from the host, text first on the wire.
        {"UpdateContactIDGroupRecord",
         [](Outputs&) { return UpdateContactIDGroupRecord(kMac, 4, "grp", 9); },
         Frame(119, "grp;4;9;"), "-7;", -7},
        {"RspUpdateContactIDGroupRecord",
         [](Outputs&) { return RspUpdateContactIDGroupRecord(47, kMac, 4, "grp", 9); },
         Frame(119, "grp;4;9;"), "", -1, 47},
        {"GetContactIDGroupRecord, the third field is dropped",
         [](Outputs& o) { return GetContactIDGroupRecord(kMac, 4, o.text[0].get(), &o.value[0]); },
         Frame(121, "4;"), "grp;9;77;", 0, 0,
         [](const Outputs& o) {
             EXPECT_EQ(o.text[0].str(), "grp");
             EXPECT_EQ(o.Values(2), (std::vector<int32_t>{9, kUntouched}));
         }},
        {"RspGetContactIDGroupRecord",
         [](Outputs&) { return RspGetContactIDGroupRecord(48, kMac, 4); }, Frame(121, "4;"), "", -1,
         48},
        {"DeleteContactIDGroupRecord", [](Outputs&) { return DeleteContactIDGroupRecord(kMac, 4); },
         Frame(120, "4;"), "0;", 0},
        {"RspDeleteContactIDGroupRecord",
         [](Outputs&) { return RspDeleteContactIDGroupRecord(49, kMac, 4); }, Frame(120, "4;"), "",
         -1, 49},
        // Communication records.
        {"UpdateContactIDCommRecord, the 16-bit value",
         [](Outputs&) { return UpdateContactIDCommRecord(kMac, 3, "dial", 65535); },
         Frame(122, "3;dial;65535;"), "0;", 0},
        {"RspUpdateContactIDCommRecord",
         [](Outputs&) { return RspUpdateContactIDCommRecord(50, kMac, 3, "dial", 0); },
         Frame(122, "3;dial;0;"), "", -1, 50},
        {"GetContactIDCommRecord takes the payload whole",
         [](Outputs& o) { return GetContactIDCommRecord(kMac, 3, o.text[0].get()); },
         Frame(123, "3;"), "0;abc;", 0, 0,
         [](const Outputs& o) { EXPECT_EQ(o.text[0].str(), "0;abc;"); }},
        {"GetContactIDCommRecord, a '#' splits the reply",
         [](Outputs& o) { return GetContactIDCommRecord(kMac, 3, o.text[0].get()); },
         Frame(123, "3;"), "0#1", -1, 0,
         [](const Outputs& o) { EXPECT_EQ(o.text[0].str(), "untouched"); }},
        {"RspGetContactIDCommRecord",
         [](Outputs&) { return RspGetContactIDCommRecord(51, kMac, 3); }, Frame(123, "3;"), "", -1,
         51},
        {"DeleteContactIDCommRecord, text first from the host, number first on the wire",
         [](Outputs&) { return DeleteContactIDCommRecord(kMac, "dial", 3); }, Frame(124, "3;dial;"),
         "0;", 0},
        {"RspDeleteContactIDCommRecord",
         [](Outputs&) { return RspDeleteContactIDCommRecord(52, kMac, "dial", 3); },
         Frame(124, "3;dial;"), "", -1, 52},
    };
    for (const WireRow& row : rows) {
        SCOPED_TRACE(row.name);
        Outputs o;
        if (row.rspid == 0) {
            std::string sent;
            EXPECT_EQ(ServePayload([&] { return row.call(o); }, row.replyPayload, &sent),
                      row.expected);
            EXPECT_EQ(sent, row.sent);
        } else {
            EXPECT_EQ(row.call(o), row.expected);
            CommandRecord record = TakeCommand();
            EXPECT_EQ(record.rspfunc, 1);
            EXPECT_EQ(static_cast<uint32_t>(record.rspid), row.rspid);
            EXPECT_EQ(std::string(record.message), row.sent);
            EXPECT_TRUE(test::Shared().recvMon->SlotEmpty());
        }
        row.check(o);
        for (const OutText& t : o.text) EXPECT_TRUE(t.GuardIntact());
    }
    // This path writes no log text of its own.
    EXPECT_FALSE(LogContains("[Master::ExchangeParameters]"));
}

// Replies that don't have the expected number of fields, error messages included: a `status`
// command gives -1, a `result` command -1, and no output is written.
TEST_F(ParameterExchangeTest, RepliesOfTheWrongLengthFailByCount) {
    auto getSchedule = [this] {
        return GetSchedule(kMac, 7, o_.text[0].get(), o_.text[1].get(), o_.text[2].get(),
                           o_.text[3].get(), o_.text[4].get(), &o_.value[0], &o_.value[1],
                           &o_.value[2], &o_.value[3], &o_.value[4]);
    };
    auto getRecord = [this] {
        return GetContactIDRecord(kMac, o_.text[0].get(), &o_.value[0], &o_.value[1], &o_.value[2],
                                  &o_.value[3], &o_.value[4], &o_.value[5], &o_.value[6],
                                  o_.text[1].get(), o_.text[2].get());
    };
    auto getGroup = [this] {
        return GetContactIDGroupRecord(kMac, 4, o_.text[0].get(), &o_.value[0]);
    };
    auto deleteSchedule = [] { return DeleteSchedule(kMac, 7); };
    struct Row {
        std::function<int32_t()> call;
        std::string reply;  // whole frame
    };
    const std::vector<Row> rows = {
        {getSchedule, Frame(1116, "0;a;b;c;d;e;1;2;3;4;5;")},      // 11 fields
        {getSchedule, Frame(1116, "0;a;b;c;d;e;1;2;3;4;5;6;7;")},  // 13
        {getSchedule, Frame(1116, "-101;")},                       // a refusal
        {getSchedule, Frame(9910, "")},                            // not even a reply
        {getRecord, Frame(1116, "t;1;2;3;4;5;6;7;t2;")},           // 9
        {getRecord, Frame(1116, "t;1;2;3;4;5;6;7;t2;t3;x;")},      // 11
        {getGroup, Frame(1116, "g;1;")},
        {getGroup, Frame(1116, "g;1;2;3")},  // a field after the last ';'
        {deleteSchedule, Frame(1116, "0;1;")},
        {deleteSchedule, Frame(1116, "")},
        {deleteSchedule, Frame(9920, "")},
    };
    for (size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(rows[i].reply);
        EXPECT_EQ(Serve(rows[i].call, rows[i].reply), -1);
    }
    for (const OutText& t : o_.text) EXPECT_EQ(t.str(), "untouched");
    EXPECT_EQ(o_.Values(7), std::vector<int32_t>(7, kUntouched));
    // The exceptions of the family answer as if all went well.
    EXPECT_EQ(ServePayload([] { return DeleteContactIDRecord(kMac, 1); }, "0;1;2;"), 0);
    EXPECT_EQ(Serve([] { return DeleteContactIDRecord(kMac, 1); }, Frame(9910)), 0);
    EXPECT_EQ(
        ServePayload([] { return UpdateContactIDRecord(kMac, "", 0, 0, 0, 0, 0, 0, 0, "", ""); },
                     "0;1;"),
        0);
}

// A field that must become an integer and isn't one: the export returns -1, the host goes on,
// the next command (from another thread) still gets the transaction, and the outputs ahead of
// the failing field are the only ones written.
TEST_F(ParameterExchangeTest, ConversionFailureOnEachConvertingCommand) {
    struct Row {
        const char* name;
        std::function<int32_t(Outputs&)> call;
        std::string payload;
        std::function<void(const Outputs&)> check = [](const Outputs&) {};
    };
    const std::vector<Row> rows = {
        {"UpdateSchedule",
         [](Outputs&) { return UpdateSchedule(kMac, "", "", "", "", "", 1, 2, 3, 4, 5, 6); },
         "ok;"},
        {"DeleteSchedule, an empty field", [](Outputs&) { return DeleteSchedule(kMac, 1); }, ";"},
        {"GetSchedule, the leading result",
         [](Outputs& o) {
             return GetSchedule(kMac, 7, o.text[0].get(), o.text[1].get(), o.text[2].get(),
                                o.text[3].get(), o.text[4].get(), &o.value[0], &o.value[1],
                                &o.value[2], &o.value[3], &o.value[4]);
         },
         "x;a;b;c;d;e;1;2;3;4;5;6;",
         [](const Outputs& o) { EXPECT_EQ(o.text[0].str(), "untouched"); }},
        {"GetSchedule, the second value",
         [](Outputs& o) {
             return GetSchedule(kMac, 7, o.text[0].get(), o.text[1].get(), o.text[2].get(),
                                o.text[3].get(), o.text[4].get(), &o.value[0], &o.value[1],
                                &o.value[2], &o.value[3], &o.value[4]);
         },
         "0;a;b;c;d;e;1;2x;3;4;5;6;",
         [](const Outputs& o) {
             EXPECT_EQ(o.Texts(5), (std::vector<std::string>{"a", "b", "c", "d", "e"}));
             EXPECT_EQ(o.Values(5),
                       (std::vector<int32_t>{1, kUntouched, kUntouched, kUntouched, kUntouched}));
         }},
        {"GetSchedule, an empty value and an empty last field",
         [](Outputs& o) {
             return GetSchedule(kMac, 7, o.text[0].get(), o.text[1].get(), o.text[2].get(),
                                o.text[3].get(), o.text[4].get(), &o.value[0], &o.value[1],
                                &o.value[2], &o.value[3], &o.value[4]);
         },
         "0;a;b;c;d;e;1;2;3;4;5;;",
         [](const Outputs& o) {
             EXPECT_EQ(o.Values(5), (std::vector<int32_t>{1, 2, 3, 4, 5}));
         }},
        {"UpdateContactIDRecord, otherwise always 0",
         [](Outputs&) { return UpdateContactIDRecord(kMac, "", 0, 0, 0, 0, 0, 0, 0, "", ""); },
         "abc;"},
        {"GetContactIDRecord, out of range",
         [](Outputs& o) {
             o.value[2] = 9;
             return GetContactIDRecord(kMac, o.text[0].get(), &o.value[0], &o.value[1], &o.value[2],
                                       &o.value[3], &o.value[4], &o.value[5], &o.value[6],
                                       o.text[1].get(), o.text[2].get());
         },
         "t;1;2;3;99999999999;5;6;7;t2;t3;",
         [](const Outputs& o) {
             EXPECT_EQ(o.text[0].str(), "t");
             EXPECT_EQ(o.Values(5), (std::vector<int32_t>{1, 2, 3, kUntouched, kUntouched}));
             EXPECT_EQ(o.text[1].str(), "untouched");
         }},
        {"UpdateContactIDGroupRecord",
         [](Outputs&) { return UpdateContactIDGroupRecord(kMac, 1, "g", 2); }, " 0;"},
        {"GetContactIDGroupRecord, the dropped key field still converts",
         [](Outputs& o) { return GetContactIDGroupRecord(kMac, 4, o.text[0].get(), &o.value[0]); },
         "g;9;z;",
         [](const Outputs& o) {
             EXPECT_EQ(o.text[0].str(), "g");
             EXPECT_EQ(o.value[0], 9);
         }},
        {"DeleteContactIDGroupRecord", [](Outputs&) { return DeleteContactIDGroupRecord(kMac, 4); },
         "0.5;"},
        {"UpdateContactIDCommRecord",
         [](Outputs&) { return UpdateContactIDCommRecord(kMac, 1, "c", 2); }, "-;"},
        {"DeleteContactIDCommRecord",
         [](Outputs&) { return DeleteContactIDCommRecord(kMac, "c", 1); }, "1e3;"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Outputs o;
        EXPECT_EQ(ServePayload([&] { return row.call(o); }, row.payload), -1);
        row.check(o);
    }
    // The walk left the transaction usable: a good reply is read as usual afterwards.
    EXPECT_EQ(ServePayload([] { return DeleteSchedule(kMac, 1); }, "3;"), 3);
}

TEST_F(ParameterExchangeTest, RefusalsAndTheirOrderSendNothing) {
    char text[ZANTH_PARAMETER_TEXT_SIZE];
    int32_t value = 0;
    const std::string huge(5000, 'h');
    // Not valid, then not connected: the `status` kind hides both behind -1.
    for (const char* mac : {"44:55:66", "11:22:33"}) {
        SCOPED_TRACE(mac);
        bool valid = std::strcmp(mac, "11:22:33") == 0;
        int32_t admission = valid ? -10003 : -10004;
        EXPECT_EQ(DeleteSchedule(mac, 7), -1);
        EXPECT_EQ(RspDeleteSchedule(1, mac, 7), -1);
        EXPECT_EQ(UpdateContactIDGroupRecord(mac, 1, "g", 1), -1);
        EXPECT_EQ(GetContactIDCommRecord(mac, 1, text), admission);
        EXPECT_EQ(RspGetContactIDRecord(2, mac, 1), admission);
        EXPECT_EQ(UpdateContactIDRecord(mac, "", 0, 0, 0, 0, 0, 0, 0, "", ""), admission);
        EXPECT_EQ(RspDeleteContactIDRecord(3, mac, 1), admission);
        // The MAC is tested before the arguments.
        EXPECT_EQ(GetContactIDCommRecord(mac, 1, nullptr), admission);
        EXPECT_EQ(UpdateContactIDRecord(mac, nullptr, 0, 0, 0, 0, 0, 0, 0, "", ""), admission);
    }
    // Null texts and outputs, and a text too long for a message.
    EXPECT_EQ(GetContactIDCommRecord(kMac, 1, nullptr), -10002);
    EXPECT_EQ(GetContactIDGroupRecord(kMac, 1, text, nullptr), -10002);
    EXPECT_EQ(GetContactIDRecord(kMac, text, &value, &value, nullptr, &value, &value, &value,
                                 &value, text, text),
              -10002);
    EXPECT_EQ(GetSchedule(kMac, 1, text, text, nullptr, text, text, &value, &value, &value, &value,
                          &value),
              -10002);
    EXPECT_EQ(UpdateContactIDRecord(kMac, "", 0, 0, 0, 0, 0, 0, 0, nullptr, ""), -10002);
    EXPECT_EQ(UpdateContactIDRecord(kMac, huge.c_str(), 0, 0, 0, 0, 0, 0, 0, "", ""), -10006);
    EXPECT_EQ(UpdateSchedule(kMac, "", "", nullptr, "", "", 1, 2, 3, 4, 5, 6), -1);
    EXPECT_EQ(RspUpdateContactIDCommRecord(4, kMac, 1, huge.c_str(), 1), -1);
    EXPECT_EQ(test::Shared().sendMon->CountFor(kMac), 0);
    EXPECT_EQ(test::Shared().sendMon->CountFor("11:22:33"), 0);
}

// A reply as long as a message can be lands whole in a buffer of the documented size and not a
// byte beyond it.
TEST_F(ParameterExchangeTest, LongestReplyFitsTheDocumentedBuffer) {
    const std::string longest(kMessageBufferSize - kClearHeaderSize, 'L');
    std::string sent;
    EXPECT_EQ(ServePayload([this] { return GetContactIDCommRecord(kMac, 3, o_.text[0].get()); },
                           longest, &sent),
              0);
    EXPECT_EQ(o_.text[0].str(), longest);
    EXPECT_TRUE(o_.text[0].GuardIntact());
    // A frame that claims more than it brings isn't a reply: nothing is written.
    EXPECT_EQ(Serve([this] { return GetContactIDCommRecord(kMac, 3, o_.text[1].get()); },
                    "1116;9999;" + longest),
              -1);
    EXPECT_EQ(o_.text[1].str(), "untouched");
}

// No reply within the wait time: the reply list stays empty. A `result` command gives -1 by
// count, the record update still 0. Each wait drops the controller; the test brings it back.
TEST_F(ParameterExchangeTest, TimeOutOfTheReplySlot) {
    int32_t wait = 0;
    ASSERT_EQ(RecvWaitTime(1, &wait), 0);
    EXPECT_EQ(GetSchedule(kMac, 1, o_.text[0].get(), o_.text[1].get(), o_.text[2].get(),
                          o_.text[3].get(), o_.text[4].get(), &o_.value[0], &o_.value[1],
                          &o_.value[2], &o_.value[3], &o_.value[4]),
              -1);
    EXPECT_EQ(o_.text[0].str(), "untouched");
    EXPECT_EQ(DeleteContactIDRecord(kMac, 1), -10003) << "the wait dropped the controller";
    test::Shared().workerMon->AddWorker(kMac, kStandInThread);
    EXPECT_EQ(UpdateContactIDRecord(kMac, "", 0, 0, 0, 0, 0, 0, 0, "", ""), 0);
    EXPECT_EQ(test::Shared().sendMon->CountFor(kMac), 2);
    EXPECT_FALSE(LogContains("[Master::ExchangeParameters]"));
}

// The common pieces on their own: how a reply is cut, and the held types of the lists.
TEST_F(ParameterExchangeTest, ReplyCuttingAndTheListTypes) {
    Master& m = TheMaster();
    struct Cut {
        std::string payload;
        char delimiter;
        std::vector<std::string> fields;
    };
    const std::vector<Cut> cuts = {
        {"a;b;", ';', {"a", "b"}},   {"a;;b", ';', {"a", "", "b"}}, {";", ';', {""}}, {"", ';', {}},
        {"0;abc;", '#', {"0;abc;"}}, {"0#1#", '#', {"0", "1"}},
    };
    for (const Cut& c : cuts) {
        SCOPED_TRACE(c.payload);
        ReplyList reply;
        EXPECT_EQ(
            ServePayload(
                [&] { return m.ExchangeParameters(0, 0, kMac, 126, {1}, reply, c.delimiter); },
                c.payload),
            0);
        EXPECT_EQ(reply, c.fields);
    }

    // A request value of another type ends the walk: -1 and nothing goes out.
    ReplyList reply;
    EXPECT_EQ(m.ExchangeParameters(0, 0, kMac, 126, {1, 2.5}, reply, ';'), -1);
    EXPECT_EQ(m.ExchangeParameters(1, 9, kMac, 126, {std::string("s")}, reply, ';'), -1);
    EXPECT_EQ(test::Shared().sendMon->CountFor(kMac), 0);
    // unsigned short goes out as a number, and only as a request.
    std::string sent;
    EXPECT_EQ(ServePayload(
                  [&] {
                      return m.ExchangeParameters(0, 0, kMac, 122,
                                                  {static_cast<unsigned short>(65535)}, reply, ';');
                  },
                  "", &sent),
              0);
    EXPECT_EQ(sent, Frame(122, "65535;"));

    // The store: int passes its field, an unusable type makes -1 but the walk goes on.
    int number = 0;
    char text[ZANTH_PARAMETER_TEXT_SIZE] = "";
    ParameterList outputs{static_cast<unsigned short>(1), 0, &number, text, 1.5};
    EXPECT_EQ(m.StoreReplyFields({"1", "x", "42", "t", "2"}, outputs), -1);
    EXPECT_EQ(number, 42);
    EXPECT_STREQ(text, "t");
    EXPECT_EQ(m.StoreReplyFields({"1", "x", "43", "u"}, outputs), -1) << "by count";
    EXPECT_EQ(number, 42);
    EXPECT_EQ(m.StoreReplyFields({"x", "-7", "v"}, {0, &number, text}), 0);
    EXPECT_EQ(number, -7);
    EXPECT_STREQ(text, "v");
}

}  // namespace
}  // namespace zanth::test
