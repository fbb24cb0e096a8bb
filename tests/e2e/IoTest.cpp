// Outputs, inputs and local settings: every export's frame on the wire and its reading of the
// reply (the Rsp forms' replies on the response queue), the argument refusals with nothing sent,
// and a door unlocked, watched and relocked on a simulated controller.

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include "monitors/HandleHashMon.h"
#include "monitors/ThreadHashMon.h"
#include "support/FakeController.h"
#include "support/Library.h"
#include "tools/sim/Simulator.h"
#include "tools/sim/families/Io.h"
#include "zanth.h"

namespace zanth::test {
namespace {

using namespace std::chrono_literals;

constexpr const char* kMac = "AA:BB:CC";

// The caller's outputs, filled with marks before each call so that an untouched one shows.
struct Outputs {
    char text[16];
    int32_t value;
    int32_t status;
    char limits[4][8];
    void Mark() {
        std::memset(text, 0, sizeof text);
        std::memcpy(text, "mark", 5);
        value = -7;
        status = -7;
        for (auto& l : limits) {
            std::memset(l, 0, sizeof l);
            std::memcpy(l, "mark", 5);
        }
    }
};

// One call: the frame it must send, the reply the controller gives, and what the caller gets.
// A row with an rspid is a Rsp form: it returns 0 at once and the reply comes back under rspid.
struct WireRow {
    std::function<int32_t(Outputs&)> call;
    int code;
    std::string payload;
    int replyCode;
    std::string reply;
    int32_t result = 0;
    std::function<void(const Outputs&)> check = nullptr;
    uint32_t rspid = 0;
};

class IoWireTest : public LibraryTest {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        Start(kMac);
        ASSERT_TRUE(controller_.Connect(port_));
        ASSERT_TRUE(controller_.Identify(kMac));
        ASSERT_TRUE(WaitUntil([] {
            char list[64];
            return GetConnectedControllers(list, sizeof list) == 0 && std::strcmp(list, kMac) == 0;
        }));
    }

    void Run(const std::vector<WireRow>& rows) {
        int line = 0;
        for (const WireRow& row : rows) {
            ++line;
            SCOPED_TRACE("row " + std::to_string(line) + ": " + row.payload + " <- " + row.reply);
            Outputs out;
            out.Mark();
            auto pending = std::async(std::launch::async, [&] { return row.call(out); });
            auto request = controller_.ReadFrame();
            ASSERT_TRUE(request);
            EXPECT_EQ(*request, Frame(row.code, row.payload));
            if (row.rspid != 0) {
                EXPECT_EQ(pending.get(), 0);
            }
            ASSERT_TRUE(controller_.SendFrame(row.replyCode, row.reply));
            if (row.rspid == 0) {
                EXPECT_EQ(pending.get(), row.result);
                if (row.check) row.check(out);
                continue;
            }
            int32_t rspid = 0;
            char frame[4117] = {};  // a queued reply is a block of this size
            ASSERT_TRUE(
                WaitUntil([&] { return GetNextResponse(&rspid, frame, sizeof frame) == 0; }));
            EXPECT_EQ(static_cast<uint32_t>(rspid), row.rspid);
            EXPECT_EQ(std::string(frame), Frame(row.replyCode, row.reply));
        }
    }

    FakeController controller_;
};

auto Text(const char* expected) {
    return [expected](const Outputs& o) { EXPECT_STREQ(o.text, expected); };
}
auto Value(int32_t expected) {
    return [expected](const Outputs& o) { EXPECT_EQ(o.value, expected); };
}
auto StatusAndText(int32_t status, const char* text) {
    return [status, text](const Outputs& o) {
        EXPECT_EQ(o.status, status);
        EXPECT_STREQ(o.text, text);
    };
}
auto Limits(const char* a, const char* b, const char* c, const char* d) {
    return [=](const Outputs& o) {
        EXPECT_STREQ(o.limits[0], a);
        EXPECT_STREQ(o.limits[1], b);
        EXPECT_STREQ(o.limits[2], c);
        EXPECT_STREQ(o.limits[3], d);
    };
}

int32_t GetLimits(Outputs& o, int32_t ad, int32_t secondSize = 8) {
    return GetLocalA2DLimits(kMac, ad, o.limits[0], 8, o.limits[1], secondSize, o.limits[2], 8,
                             o.limits[3], 8);
}

TEST_F(IoWireTest, OutputCommandsFramesAndReplies) {
    Run({
        // The first generation: the controller has a code of its own, and the two replies read
        // their results differently.
        {[](Outputs&) { return CmdOutputFunction(kMac, 32, 5, 1); }, 47, "5;1;", 1047, "0;", 0},
        {[](Outputs&) { return CmdOutputFunction(kMac, 0, 199, 2); }, 1, "0;199;2;", 1001, "1;", 0},
        {[](Outputs&) { return CmdOutputFunction(kMac, 31, 0, 0); }, 1, "31;0;0;", 1001, "0;",
         -10001},
        {[](Outputs&) { return CmdOutputFunction(kMac, 31, 0, 0); }, 1, "31;0;0;", 1001, "2;", 2},
        {[](Outputs&) { return CmdOutputFunction(kMac, 31, 0, 0); }, 1, "31;0;0;", 1001, "-100;",
         -100},
        // Either reply is taken whichever code went out.
        {[](Outputs&) { return CmdOutputFunction(kMac, 3, 1, 1); }, 1, "3;1;1;", 1047, "7;", 7},
        {[](Outputs&) { return CmdOutputFunction(kMac, 32, 1, 1); }, 47, "1;1;", 1001, "1;", 0},
        {[](Outputs&) { return CmdOutputFunction(kMac, 32, 1, 1); }, 47, "1;1;", 1047, "-99;",
         -10001},
        {[](Outputs&) { return CmdOutputFunction(kMac, 32, 1, 1); }, 47, "1;1;", 1047, "", -10011},
        {[](Outputs&) { return CmdOutputFunction(kMac, 32, 1, 1); }, 47, "1;1;", 1094, "0;",
         -10010},
        // The later generations; their Rsp names are out of step.
        {[](Outputs&) { return CmdOutputFunction2(kMac, 31, 199, 2); }, 91, "31;199;2;", 1091, "0;",
         0},
        {[](Outputs&) { return CmdOutputFunction2(kMac, 32, 0, 0); }, 47, "0;0;", 1047, "-1;",
         -10001},
        {[](Outputs&) { return CmdOutputFunction2(kMac, 32, 0, 0); }, 47, "0;0;", 1001, "1;",
         -10010},
        {[](Outputs&) { return RspCmdOutputFunction(11, kMac, 31, 1, 1); }, 91, "31;1;1;", 1091,
         "0;", 0, nullptr, 11},
        {[](Outputs&) { return CmdOutputFunction3(kMac, 32, 5, 1); }, 94, "32;5;1;", 1094, "0;", 0},
        {[](Outputs&) { return CmdOutputFunction3(kMac, 0, 0, 0); }, 94, "0;0;0;", 1094, "-100;",
         -100},
        {[](Outputs&) { return RspCmdOutputFunction2(12, kMac, 32, 0, 2); }, 94, "32;0;2;", 1094,
         "0;", 0, nullptr, 12},
        // Saved outputs: the text behind the first ';' is not split further.
        {[](Outputs& o) { return GetSavedOutputs(kMac, 4, o.text, sizeof o.text); }, 81, "4;", 1081,
         "0;0101;x;y", 0, Text("0101;x;y")},
        {[](Outputs& o) { return GetSavedOutputs(kMac, 31, o.text, sizeof o.text); }, 81, "31;",
         1081, "3;ab", 3, Text("ab")},
        {[](Outputs& o) { return GetSavedOutputs(kMac, 0, o.text, sizeof o.text); }, 81, "0;", 1081,
         "-100;", -100, Text("")},
        {[](Outputs& o) { return GetSavedOutputs(kMac, 0, o.text, sizeof o.text); }, 81, "0;", 1081,
         "-5;", -10001, Text("")},
        {[](Outputs& o) { return GetSavedOutputs(kMac, 0, o.text, sizeof o.text); }, 81, "0;", 1081,
         "0", -10011, Text("")},
        // The terminator must fit as well.
        {[](Outputs& o) { return GetSavedOutputs(kMac, 0, o.text, 5); }, 81, "0;", 1081, "0;01234",
         -10006, Text("")},
        {[](Outputs& o) { return GetSavedOutputs(kMac, 0, o.text, 6); }, 81, "0;", 1081, "0;01234",
         0, Text("01234")},
        {[](Outputs&) { return RspGetSavedOutputs(13, kMac, 4); }, 81, "4;", 1081, "0;0101", 0,
         nullptr, 13},
        {[](Outputs&) { return DriveSavedOutputs(kMac, 31); }, 82, "31;", 1082, "0;", 0},
        {[](Outputs&) { return DriveSavedOutputs(kMac, 0); }, 82, "0;", 1082, "-3;", -10001},
        {[](Outputs&) { return RspDriveSavedOutputs(14, kMac, 0); }, 82, "0;", 1082, "0;", 0,
         nullptr, 14},
        // A local output's state; the number goes out as the controller takes it, signed.
        {[](Outputs& o) { return LocalFcnCode(kMac, 4294967295u, &o.value); }, 49, "-1;", 1049,
         "0;1;", 0, Value(1)},
        {[](Outputs& o) { return LocalFcnCode(kMac, 2, &o.value); }, 49, "2;", 1049, "0;", -10011,
         Value(-7)},
        {[](Outputs& o) { return LocalFcnCode(kMac, 2, &o.value); }, 49, "2;", 1049, "-100;", -100,
         Value(-7)},
        {[](Outputs&) { return RspLocalFcnCode(15, kMac, 2); }, 49, "2;", 1049, "0;0;", 0, nullptr,
         15},
    });
}

TEST_F(IoWireTest, InputReadsFramesAndReplies) {
    Run({
        {[](Outputs& o) { return GetInputStatus(kMac, 32, o.text, sizeof o.text); }, 48, "", 1048,
         "0;7;FF;", 0, Text("FF")},
        {[](Outputs& o) { return GetInputStatus(kMac, 31, o.text, sizeof o.text); }, 2, "31;", 1002,
         "2;7;AB;", 2, Text("AB")},
        // The first generation needs the status field even when the result is positive.
        {[](Outputs& o) { return GetInputStatus(kMac, 0, o.text, sizeof o.text); }, 2, "0;", 1002,
         "5;", -10011, Text("")},
        {[](Outputs& o) { return GetInputStatus(kMac, 0, o.text, sizeof o.text); }, 2, "0;", 1095,
         "0;7;FF;", -10010, Text("")},
        {[](Outputs& o) { return GetInputStatus2(kMac, 32, &o.status, o.text, sizeof o.text); }, 48,
         "", 1002, "0;7;FF;", 0, StatusAndText(7, "FF")},
        {[](Outputs& o) { return GetInputStatus2(kMac, 0, &o.status, o.text, sizeof o.text); }, 2,
         "0;", 1048, "5;", 5, StatusAndText(-7, "")},
        {[](Outputs& o) { return GetInputStatus2(kMac, 0, &o.status, o.text, sizeof o.text); }, 2,
         "0;", 1048, "-100;", -100, StatusAndText(-7, "")},
        {[](Outputs& o) { return GetInputStatus2(kMac, 0, &o.status, o.text, sizeof o.text); }, 2,
         "0;", 1048, "0;7;", -10011, StatusAndText(7, "")},
        {[](Outputs&) { return RspGetInputStatus(16, kMac, 31); }, 2, "31;", 1002, "0;1;1;", 0,
         nullptr, 16},
        {[](Outputs& o) { return GetInputStatus3(kMac, 32, &o.status, o.text, sizeof o.text); }, 95,
         "32;", 1095, "0;7;FF;", 0, StatusAndText(7, "FF")},
        {[](Outputs& o) { return GetInputStatus3(kMac, 32, &o.status, o.text, 2); }, 95, "32;",
         1095, "0;7;FF;", -10006, StatusAndText(7, "")},
        {[](Outputs& o) { return GetInputStatus3(kMac, 0, &o.status, o.text, sizeof o.text); }, 95,
         "0;", 1048, "0;7;FF;", -10010, StatusAndText(-7, "")},
        {[](Outputs&) { return RspGetInputStatus2(17, kMac, 0); }, 95, "0;", 1095, "0;0;0;", 0,
         nullptr, 17},
        // Analogue channels: the buffer keeps its content on any failure.
        {[](Outputs& o) { return ReadA2D(kMac, 32, 23, o.text, sizeof o.text); }, 53, "23;", 1053,
         "0;1FF;", 0, Text("1FF")},
        {[](Outputs& o) { return ReadA2D(kMac, 0, 0, o.text, sizeof o.text); }, 8, "0;0;", 1008,
         "0;12;", 0, Text("12")},
        {[](Outputs& o) { return ReadA2D(kMac, 31, 1, o.text, sizeof o.text); }, 8, "31;1;", 1053,
         "-100;", -100, Text("mark")},
        {[](Outputs& o) { return ReadA2D(kMac, 31, 1, o.text, sizeof o.text); }, 8, "31;1;", 1008,
         "0;", -10011, Text("mark")},
        {[](Outputs& o) { return ReadA2D(kMac, 31, 1, o.text, 3); }, 8, "31;1;", 1008, "0;1FF;",
         -10006, Text("mark")},
        {[](Outputs&) { return RspReadA2D(18, kMac, 32, 1); }, 53, "1;", 1053, "0;0;", 0, nullptr,
         18},
        {[](Outputs& o) { return ReadA2D_2(kMac, 32, 3, o.text, sizeof o.text); }, 97, "32;3;",
         1097, "0;3FF;", 0, Text("3FF")},
        {[](Outputs& o) { return ReadA2D_2(kMac, 32, 3, o.text, sizeof o.text); }, 97, "32;3;",
         1053, "0;3FF;", -10010, Text("mark")},
        {[](Outputs&) { return RspReadA2D_2(19, kMac, 1, 2); }, 97, "1;2;", 1097, "0;0;", 0,
         nullptr, 19},
    });
}

TEST_F(IoWireTest, LocalSettingsFramesAndReplies) {
    static char limitsToSet[4][8] = {"1", "", "Ab", "4"};
    Run({
        // An empty limit is an empty field in its place.
        {[](Outputs&) { return SetLocalA2DLimits(kMac, 3, "3FF", "", "10", "0"); }, 55,
         "3;3FF;;10;0;", 1055, "0;", 0},
        {[](Outputs&) { return SetLocalA2DLimits(kMac, 0, "abcdef", "0", "9", ""); }, 55,
         "0;abcdef;0;9;;", 1055, "-100;", -100},
        {[](Outputs&) { return SetLocalA2DLimits(kMac, 7, "1", "1", "1", "1"); }, 55, "7;1;1;1;1;",
         1054, "0;", -10010},
        {[](Outputs& o) { return GetLimits(o, 7); }, 54, "7;", 1054, "0;3FF;300;100;0;", 0,
         Limits("3FF", "300", "100", "0")},
        // A limit too long for its buffer stops the reading; the first stays filled.
        {[](Outputs& o) { return GetLimits(o, 0, 3); }, 54, "0;", 1054, "0;3FF;300;100;0;", -10006,
         Limits("3FF", "", "", "")},
        {[](Outputs& o) { return GetLimits(o, 0); }, 54, "0;", 1054, "0;3FF;300;", -10011,
         Limits("3FF", "300", "", "")},
        {[](Outputs& o) { return GetLimits(o, 0); }, 54, "0;", 1054, "-100;", -100,
         Limits("", "", "", "")},
        {[](Outputs& o) {
             return LocalA2DLimits(kMac, 0, 1, o.limits[0], 8, o.limits[1], 8, o.limits[2], 8,
                                   o.limits[3], 8);
         },
         54, "1;", 1054, "0;A;B;C;D;", 0, Limits("A", "B", "C", "D")},
        {[](Outputs&) {
             return LocalA2DLimits(kMac, 1, 1, limitsToSet[0], 8, limitsToSet[1], 8, limitsToSet[2],
                                   8, limitsToSet[3], 8);
         },
         55, "1;1;;Ab;4;", 1055, "0;", 0},
        {[](Outputs&) { return RspLocalA2DLimits(20, kMac, 1, 0, "1", "2", "3", "4"); }, 55,
         "0;1;2;3;4;", 1055, "0;", 0, nullptr, 20},
        {[](Outputs&) {
             return RspLocalA2DLimits(21, kMac, 0, 6, nullptr, nullptr, nullptr, nullptr);
         },
         54, "6;", 1054, "0;1;2;3;4;", 0, nullptr, 21},
        {[](Outputs&) { return RspGetLocalA2DLimits(22, kMac, 2); }, 54, "2;", 1054, "0;1;2;3;4;",
         0, nullptr, 22},
        {[](Outputs&) { return RspSetLocalA2DLimits(23, kMac, 2, "A", "B", "", "D"); }, 55,
         "2;A;B;;D;", 1055, "0;", 0, nullptr, 23},
        // Debounce: neither number nor value is checked.
        {[](Outputs& o) { return GetLocalDebounce(kMac, 5, &o.value); }, 83, "5;", 1083, "0;25;", 0,
         Value(25)},
        {[](Outputs& o) { return GetLocalDebounce(kMac, 5, &o.value); }, 83, "5;", 1083, "0;",
         -10011, Value(-7)},
        {[](Outputs& o) { return GetLocalDebounce(kMac, 5, &o.value); }, 83, "5;", 1084, "0;",
         -10010, Value(-7)},
        {[](Outputs&) { return SetLocalDebounce(kMac, -3, 30); }, 84, "-3;30;", 1084, "0;", 0},
        {[](Outputs&) { return SetLocalDebounce(kMac, 5, 30); }, 84, "5;30;", 1083, "0;30;",
         -10010},
        {[](Outputs& o) {
             o.value = 44;
             return LocalDebounce(kMac, 1, 5, &o.value);
         },
         84, "5;44;", 1084, "-1;", -10001},
        {[](Outputs& o) { return LocalDebounce(kMac, 0, 5, &o.value); }, 83, "5;", 1083, "0;26;", 0,
         Value(26)},
        {[](Outputs&) { return RspLocalDebounce(24, kMac, 1, 5, 40); }, 84, "5;40;", 1084, "0;", 0,
         nullptr, 24},
        {[](Outputs&) { return RspGetLocalDebounce(25, kMac, 5); }, 83, "5;", 1083, "0;40;", 0,
         nullptr, 25},
        {[](Outputs&) { return RspSetLocalDebounce(26, kMac, 5, 1); }, 84, "5;1;", 1084, "0;", 0,
         nullptr, 26},
        // Relay timers, at the ends of their bounds.
        {[](Outputs&) { return SetLocalRelayTimer(kMac, 1, 1320000); }, 57, "1;1320000;", 1057,
         "0;", 0},
        {[](Outputs&) { return SetLocalRelayTimer(kMac, 0, 0); }, 57, "0;0;", 1057, "0;", 0},
        {[](Outputs& o) { return GetLocalRelayTimer(kMac, 0, &o.value); }, 56, "0;", 1056, "0;500;",
         0, Value(500)},
        {[](Outputs& o) { return LocalRelayTimer(kMac, 0, 1, &o.value); }, 56, "1;", 1056, "-200;",
         -200, Value(-7)},
        {[](Outputs&) { return RspLocalRelayTimer(27, kMac, 1, 1, 3000); }, 57, "1;3000;", 1057,
         "0;", 0, nullptr, 27},
        {[](Outputs&) { return RspGetLocalRelayTimer(28, kMac, 1); }, 56, "1;", 1056, "0;3000;", 0,
         nullptr, 28},
        {[](Outputs&) { return RspSetLocalRelayTimer(29, kMac, 0, 250); }, 57, "0;250;", 1057, "0;",
         0, nullptr, 29},
        // Logical inputs.
        {[](Outputs&) { return SetLogicalInput(kMac, 2147483647, 1); }, 14, "2147483647;1;", 1014,
         "0;", 0},
        {[](Outputs&) { return SetLogicalInput(kMac, 1, 0); }, 14, "1;0;", 1014, "0;", 0},
        {[](Outputs& o) { return GetLogicalInput(kMac, 1, &o.value); }, 15, "1;", 1015, "0;1;", 0,
         Value(1)},
        {[](Outputs& o) { return LogicalInput(kMac, 0, 9, &o.value); }, 15, "9;", 1014, "0;",
         -10010, Value(-7)},
        {[](Outputs&) { return RspLogicalInput(30, kMac, 0, 9, 0); }, 15, "9;", 1015, "0;0;", 0,
         nullptr, 30},
        {[](Outputs&) { return RspGetLogicalInput(31, kMac, 9); }, 15, "9;", 1015, "0;0;", 0,
         nullptr, 31},
        {[](Outputs&) { return RspSetLogicalInput(32, kMac, 9, 1); }, 14, "9;1;", 1014, "0;", 0,
         nullptr, 32},
        // The poll delay has no number.
        {[](Outputs& o) { return LocalPollDelay(kMac, 0, &o.value); }, 85, "", 1085, "0;100;", 0,
         Value(100)},
        {[](Outputs& o) { return LocalPollDelay(kMac, 0, &o.value); }, 85, "", 1085, "0;", -10011,
         Value(-7)},
        {[](Outputs& o) {
             o.value = 250;
             return LocalPollDelay(kMac, 1, &o.value);
         },
         86, "250;", 1086, "0;", 0, Value(250)},
        {[](Outputs&) { return RspLocalPollDelay(33, kMac, 1, 50); }, 86, "50;", 1086, "0;", 0,
         nullptr, 33},
        {[](Outputs&) { return RspLocalPollDelay(34, kMac, 0, 0); }, 85, "", 1085, "0;50;", 0,
         nullptr, 34},
    });
}

// The refusals, with a stand-in for the controller's Worker: no socket is needed, since nothing
// may be queued.
class IoRefusalTest : public LibraryTest {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        ASSERT_EQ(SetValidControllers(kMac), 0);
        test::Shared().workerMon->AddWorker(kMac, 4242);
    }
};

TEST_F(IoRefusalTest, BoundsNullsAndTheirOrderSendNothing) {
    char text[16] = {};
    int32_t value = 0;
    int32_t status = 0;
    char limit[8] = {};
    struct Refusal {
        std::function<int32_t()> call;
        const char* log;  // null: no text to check (a null pointer has none)
        int32_t result = -10002;
    };
    const std::vector<Refusal> refusals = {
        // The checks' order: valid, connected, then the arguments.
        {[] { return CmdOutputFunction("11:22:33", 99, 999, 9); }, nullptr, -10004},
        {[] { return CmdOutputFunction(kMac, 0, 200, 0); },
         "[Master::CmdOutputFunction] bit or function code value must be between 0 and 199"},
        {[] { return CmdOutputFunction(kMac, 0, -1, 3); }, nullptr},
        {[] { return CmdOutputFunction(kMac, 33, 0, 3); },
         "[Master::CmdOutputFunction] state value must be between 0 and 2"},
        {[] { return CmdOutputFunction(kMac, -1, 0, 0); },
         "[Master::CmdOutputFunction] target value must be between 0 and 32"},
        {[] { return CmdOutputFunction2(kMac, 33, 0, 0); },
         "[Master::CmdOutputFunction2] target value must be between 0 and 32"},
        {[] { return CmdOutputFunction2(kMac, 33, 200, 0); },
         "[Master::CmdOutputFunction2] bit or function code value must be between 0 and 199"},
        {[] { return RspCmdOutputFunction(1, kMac, 0, 0, -1); },
         "[Master::CmdOutputFunction2] state value must be between 0 and 2"},
        {[] { return CmdOutputFunction3(kMac, 0, 0, 3); },
         "[Master::CmdOutputFunction3] state value must be between 0 and 2"},
        {[] { return RspCmdOutputFunction2(1, kMac, 33, 0, 0); },
         "[Master::CmdOutputFunction3] target value must be between 0 and 32"},
        {[&] { return GetSavedOutputs(kMac, 32, text, sizeof text); },
         "[Master::GetSavedOutputs] interface number must be between 0 and 31"},
        {[] { return RspGetSavedOutputs(1, kMac, -1); }, nullptr},
        {[] { return GetSavedOutputs(kMac, 0, nullptr, 16); }, nullptr},
        {[] { return DriveSavedOutputs(kMac, 32); },
         "[Master::DriveSavedOutputs] interface number must be between 0 and 31"},
        {[] { return RspDriveSavedOutputs(1, kMac, -1); }, nullptr},
        {[] { return LocalFcnCode(kMac, 0, nullptr); }, nullptr},
        {[&] { return GetInputStatus(kMac, 33, text, sizeof text); },
         "[Master::GetInputStatus] target value must be between 0 and 32"},
        {[] { return GetInputStatus(kMac, 0, nullptr, 16); }, nullptr},
        {[&] { return GetInputStatus2(kMac, -1, &status, text, sizeof text); },
         "[Master::GetInputStatus2] target value must be between 0 and 32"},
        {[&] { return GetInputStatus2(kMac, 0, nullptr, text, sizeof text); }, nullptr},
        {[] { return RspGetInputStatus2(1, kMac, 33); },
         "[Master::GetInputStatus3] target value must be between 0 and 32"},
        {[&] { return GetInputStatus3(kMac, 0, &status, nullptr, 16); }, nullptr},
        // The channel is checked before the target.
        {[&] { return ReadA2D(kMac, 33, 24, text, sizeof text); },
         "[Master::ReadA2D] A/D number value must be between 0 and 23"},
        {[&] { return ReadA2D(kMac, 33, 0, text, sizeof text); },
         "[Master::ReadA2D] target value must be between 0 and 32"},
        {[] { return RspReadA2D_2(1, kMac, 0, -1); },
         "[Master::ReadA2D_2] A/D number value must be between 0 and 23"},
        {[] { return ReadA2D_2(kMac, -1, 0, nullptr, 16); },
         "[Master::ReadA2D_2] target value must be between 0 and 32"},
        {[] { return ReadA2D_2(kMac, 0, 0, nullptr, 16); }, nullptr},
        {[] { return SetLocalA2DLimits(kMac, 8, "12G", "", "", ""); },
         "[Master::LocalA2DLimits] A/D number value must be between 0 and 7"},
        {[] { return SetLocalA2DLimits(kMac, 3, "12G", "", "", ""); },
         "[Master::LocalA2DLimits] upper high limit must be a hexidecimal value"},
        {[] { return SetLocalA2DLimits(kMac, 3, "", "x", "", ""); },
         "[Master::LocalA2DLimits] lower high limit must be a hexidecimal value"},
        {[] { return RspSetLocalA2DLimits(1, kMac, 3, "", "", " 1", ""); },
         "[Master::LocalA2DLimits] upper low limit must be a hexidecimal value"},
        {[] { return RspLocalA2DLimits(1, kMac, 1, 3, "", "", "", "-1"); },
         "[Master::LocalA2DLimits] lower low limit must be a hexidecimal value"},
        {[] { return SetLocalA2DLimits(kMac, 3, "1", nullptr, "1", "1"); }, nullptr},
        {[&] { return LocalA2DLimits(kMac, 2, 0, limit, 8, limit, 8, limit, 8, limit, 8); },
         "[Master::LocalA2DLimits] mode value must be between 0 and 1"},
        {[&] { return GetLocalA2DLimits(kMac, -1, limit, 8, limit, 8, limit, 8, limit, 8); },
         nullptr},
        {[&] { return GetLocalA2DLimits(kMac, 0, limit, 8, nullptr, 8, limit, 8, limit, 8); },
         nullptr},
        {[&] { return LocalDebounce(kMac, 2, 0, &value); },
         "[Master::LocalDebounce] mode value must be between 0 and 1"},
        {[] { return GetLocalDebounce(kMac, 0, nullptr); }, nullptr},
        {[] { return LocalDebounce(kMac, 1, 0, nullptr); }, nullptr},
        {[] { return RspLocalPollDelay(1, kMac, -1, 0); },
         "[Master::LocalPollDelay] mode value must be between 0 and 1"},
        {[] { return LocalPollDelay(kMac, 0, nullptr); }, nullptr},
        // The relay comes first, then the mode's own check.
        {[&] { return LocalRelayTimer(kMac, 3, 2, &value); },
         "[Master::LocalRelayTimer] relay value must be between 0 and 1"},
        {[] { return SetLocalRelayTimer(kMac, -1, 0); }, nullptr},
        {[] { return SetLocalRelayTimer(kMac, 1, 1320001); },
         "[Master::LocalRelayTimer] timer duration (ms) must be between 0 and 1320000"},
        {[] { return RspSetLocalRelayTimer(1, kMac, 0, -1); }, nullptr},
        {[&] { return LocalRelayTimer(kMac, 3, 0, &value); },
         "[Master::LocalRelayTimer] mode value must be between 0 and 1"},
        {[] { return SetLogicalInput(kMac, 0, 1); },
         "[Master::LogicalInput] logical number value must be between 1 and 2147483647"},
        {[] { return SetLogicalInput(kMac, 1, 2); },
         "[Master::LogicalInput] logical value must be between 0 and 1"},
        {[] { return RspSetLogicalInput(1, kMac, 1, -1); }, nullptr},
        {[&] { return LogicalInput(kMac, -1, 1, &value); },
         "[Master::LogicalInput] mode value must be between 0 and 1"},
        {[] { return GetLogicalInput(kMac, 1, nullptr); }, nullptr},
    };
    for (size_t i = 0; i < refusals.size(); ++i) {
        const Refusal& r = refusals[i];
        int before = r.log ? LogCount(r.log) : 0;
        EXPECT_EQ(r.call(), r.result) << "refusal " << i;
        if (r.log) {
            EXPECT_EQ(LogCount(r.log), before + 1) << r.log;
        }
    }
    // A check that didn't run logs nothing: a bad state hides a bad target.
    EXPECT_EQ(LogCount("[Master::CmdOutputFunction] target value"), 1);
    EXPECT_EQ(LogCount("[Master::ReadA2D] target value"), 1);
    EXPECT_EQ(test::Shared().sendMon->CountFor(kMac), 0);
    // Not connected comes before the arguments.
    ASSERT_EQ(SetValidControllers("AA:BB:CC,11:22:33"), 0);
    EXPECT_EQ(CmdOutputFunction3("11:22:33", 99, 999, 9), -10003);
    EXPECT_EQ(SetLocalRelayTimer("11:22:33", 9, -1), -10003);
}

// The door flow against a simulated controller over loopback.
class IoSimTest : public LibraryTest {
  protected:
    void TearDown() override {
        sim_.Stop();
        LibraryTest::TearDown();
    }

    sim::Io& Start() {
        LibraryTest::Start(kMac);
        sim::ControllerConfig config;
        config.mac = kMac;
        config.port = port_;
        config.reconnectMinMs = 50;
        controller_ = &sim_.Add(config);
        sim_.Start();
        EXPECT_TRUE(controller_->WaitIdentified(10s));
        EXPECT_TRUE(WaitUntil([] {
            char list[64];
            return GetConnectedControllers(list, sizeof list) == 0 && std::strcmp(list, kMac) == 0;
        }));
        return controller_->Family<sim::Io>();
    }

    sim::Simulator sim_;
    sim::Controller* controller_ = nullptr;
};

TEST_F(IoSimTest, DoorUnlocksAndRelocksAndSettingsReadBack) {
    sim::Io& io = Start();
    int32_t value = -1;
    int32_t status = -1;
    char text[32];

    // The relay timer reads back, and a driven relay turns itself off once it has run.
    ASSERT_EQ(SetLocalRelayTimer(kMac, 0, 300), 0);
    ASSERT_EQ(GetLocalRelayTimer(kMac, 0, &value), 0);
    EXPECT_EQ(value, 300);
    ASSERT_EQ(CmdOutputFunction3(kMac, 32, 0, 1), 0);
    ASSERT_EQ(LocalFcnCode(kMac, 0, &value), 0);
    EXPECT_EQ(value, 1);
    // The lock monitor, input 8, shows the door unlocked.
    ASSERT_EQ(GetInputStatus3(kMac, 32, &status, text, sizeof text), 0);
    EXPECT_EQ(status, 1 << 8);
    EXPECT_STREQ(text, "0000000010000000");
    EXPECT_TRUE(WaitUntil(
        [&] { return GetInputStatus2(kMac, 32, &status, text, sizeof text) == 0 && status == 0; },
        5s));
    ASSERT_EQ(LocalFcnCode(kMac, 0, &value), 0);
    EXPECT_EQ(value, 0);
    // Relay 1 has no timer: it stays on until switched off, here by the older generations.
    ASSERT_EQ(CmdOutputFunction(kMac, 32, 1, 1), 0);
    EXPECT_EQ(io.Output(32, 1), true);
    ASSERT_EQ(CmdOutputFunction2(kMac, 32, 1, 2), 0);
    EXPECT_EQ(io.Output(32, 1), false);

    // A board's outputs: the commanded states are saved and driven again after a power loss.
    ASSERT_EQ(CmdOutputFunction(kMac, 3, 5, 1), 0);
    ASSERT_EQ(CmdOutputFunction2(kMac, 3, 0, 1), 0);
    ASSERT_EQ(GetSavedOutputs(kMac, 3, text, sizeof text), 0);
    EXPECT_STREQ(text, "1000010000000000");
    ASSERT_TRUE(io.PowerCycleBoard(3));
    EXPECT_EQ(io.Output(3, 5), false);
    ASSERT_EQ(DriveSavedOutputs(kMac, 3), 0);
    EXPECT_EQ(io.Output(3, 5), true);
    // An output the board doesn't have is the controller's refusal.
    EXPECT_EQ(CmdOutputFunction3(kMac, 3, 199, 1), -100);

    // Inputs and analogue channels as the simulator sets them.
    ASSERT_TRUE(io.SetInput(7, 2, true));
    ASSERT_EQ(GetInputStatus(kMac, 7, text, sizeof text), 0);
    EXPECT_STREQ(text, "0010000000000000");
    ASSERT_TRUE(io.SetAnalogue(32, 4, 0x1FF));
    ASSERT_EQ(ReadA2D(kMac, 32, 4, text, sizeof text), 0);
    EXPECT_STREQ(text, "1FF");
    ASSERT_TRUE(io.SetAnalogue(9, 23, 17));
    ASSERT_EQ(ReadA2D_2(kMac, 9, 23, text, sizeof text), 0);
    EXPECT_STREQ(text, "11");

    // Settings read back what was set; an empty limit keeps the one in its place.
    char limits[4][8];
    ASSERT_EQ(SetLocalA2DLimits(kMac, 3, "3FE", "", "10", "0"), 0);
    ASSERT_EQ(GetLocalA2DLimits(kMac, 3, limits[0], 8, limits[1], 8, limits[2], 8, limits[3], 8),
              0);
    EXPECT_STREQ(limits[0], "3FE");
    EXPECT_STREQ(limits[1], "300");
    EXPECT_STREQ(limits[2], "10");
    ASSERT_EQ(SetLocalDebounce(kMac, 4, 35), 0);
    ASSERT_EQ(GetLocalDebounce(kMac, 4, &value), 0);
    EXPECT_EQ(value, 35);
    EXPECT_EQ(SetLocalDebounce(kMac, 99, 35), -100);
    value = 250;
    ASSERT_EQ(LocalPollDelay(kMac, 1, &value), 0);
    value = 0;
    ASSERT_EQ(LocalPollDelay(kMac, 0, &value), 0);
    EXPECT_EQ(value, 250);
    ASSERT_EQ(SetLogicalInput(kMac, 2147483647, 1), 0);
    ASSERT_EQ(GetLogicalInput(kMac, 2147483647, &value), 0);
    EXPECT_EQ(value, 1);

    // The state outlives the link.
    controller_->Drop();
    ASSERT_TRUE(controller_->WaitUntil(
        [](const sim::ControllerStats& s) { return s.linkDrops == 1 && s.identified; }, 10s));
    ASSERT_TRUE(WaitUntil([&] { return GetLocalRelayTimer(kMac, 0, &value) == 0; }, 10s));
    EXPECT_EQ(value, 300);
}

}  // namespace
}  // namespace zanth::test
