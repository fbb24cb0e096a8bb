// Library and thread resets against scripted controllers: what each export returns, what the
// controllers see, the blank valid list afterwards, and the library starting again.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>

#include "support/FakeController.h"
#include "support/Library.h"
#include "zanth.h"

namespace zanth::test {
namespace {

using Clock = std::chrono::steady_clock;
constexpr const char* kMac = "AA:BB:CC";

std::string Connected() {
    char list[256] = {};
    GetConnectedControllers(list, sizeof list);
    return list;
}

class ResetTest : public LibraryTest {
  protected:
    void Join(FakeController& c, const std::string& mac = kMac) {
        ASSERT_TRUE(c.Connect(port_));
        ASSERT_TRUE(c.Identify(mac));
        ASSERT_TRUE(WaitUntil([&] { return Connected().find(mac) != std::string::npos; }));
    }
    double SecondsOf(const std::function<void()>& call) {
        auto start = Clock::now();
        call();
        return std::chrono::duration<double>(Clock::now() - start).count();
    }
};

TEST_F(ResetTest, BeforeInitializationEveryResetFailsToPostAtOnce) {
    EXPECT_EQ(ResetDLL(), -10018);
    EXPECT_EQ(ResetThread(kMac), -10018);
    EXPECT_EQ(RspResetThread(3, kMac), -10018);
}

TEST_F(ResetTest, ResetTimeBoundsAndModes) {
    int32_t value = 0;
    EXPECT_EQ(ResetDLLTime(0, &value), 0);
    EXPECT_EQ(value, 300000);
    struct Case {
        int32_t mode, value, result;
        const char* logged;
    };
    const Case cases[] = {
        {1, 0, 0, nullptr},
        {1, 600000, 0, nullptr},
        {1, -1, -10002, "[Master::ResetDLLTime] reset time must be between 0 and 600000"},
        {1, 600001, -10002, "[Master::ResetDLLTime] reset time must be between 0 and 600000"},
        {2, 5, -10002, "[Master::ResetDLLTime] mode value must be between 0 and 1"},
        {-1, 5, -10002, "[Master::ResetDLLTime] mode value must be between 0 and 1"},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(std::to_string(k.mode) + " " + std::to_string(k.value));
        int32_t v = k.value;
        EXPECT_EQ(ResetDLLTime(k.mode, &v), k.result);
        if (k.logged) {
            EXPECT_TRUE(LogContains(k.logged));
        }
        if (k.result == 0) {
            int32_t read = -5;
            ASSERT_EQ(ResetDLLTime(0, &read), 0);
            EXPECT_EQ(read, k.value);
        }
    }
    EXPECT_EQ(ResetDLLTime(1, nullptr), -10002);
}

TEST_F(ResetTest, ResetThreadForConnectedUnconnectedAndInvalidControllers) {
    Start("AA:BB:CC,11:22:33");
    FakeController c;
    Join(c);
    EXPECT_EQ(ResetThread("11:22:33"), -10003);  // valid, never connected
    EXPECT_EQ(ResetThread("99:99:99"), -10004);  // not in the list
    EXPECT_EQ(ResetThread(kMac), 0);
    EXPECT_EQ(c.ReadFrame(), "9990;0010;");
    EXPECT_TRUE(c.WaitClosed());
    EXPECT_TRUE(WaitUntil([] { return Connected().empty(); }));
    EXPECT_TRUE(
        WaitUntil([] { return LogContains("[Reset::ResetThread] Complete Reset Thread"); }));
}

// The blocking wait takes its lock only to enter each one-second step, so the reset thread's
// three takes of it never wait for a step: a controller with nothing to end is answered at once,
// and one that is ended after the reset thread's one-second pause.
TEST_F(ResetTest, ResetThreadAnswersWithoutWaitingForTheWaitsSteps) {
    Start("AA:BB:CC,11:22:33");
    for (int round = 0; round < 3; ++round) {
        const double unconnected = SecondsOf([] { EXPECT_EQ(ResetThread("11:22:33"), -10003); });
        const double invalid = SecondsOf([] { EXPECT_EQ(ResetThread("99:99:99"), -10004); });
        EXPECT_LT(unconnected, 0.6);
        EXPECT_LT(invalid, 0.6);
    }
    FakeController c;
    Join(c);
    const double took = SecondsOf([] { EXPECT_EQ(ResetThread(kMac), 0); });
    EXPECT_GE(took, 0.9) << "the reset thread's pause before the forced end stays";
    EXPECT_LT(took, 1.9);
    EXPECT_TRUE(c.WaitClosed());
}

TEST_F(ResetTest, RspResetThreadAnswersOnTheResponseQueue) {
    Start(kMac);
    FakeController c;
    Join(c);
    EXPECT_EQ(RspResetThread(41, "99:99:99"), 0);
    EXPECT_EQ(RspResetThread(42, "11:22:33"), 0);
    EXPECT_EQ(RspResetThread(43, kMac), 0);
    struct Expected {
        int32_t rspid;
        const char* text;
    };
    for (Expected e : {Expected{41, "0000;0017;-10004;"}, Expected{42, "0000;0017;-10004;"},
                       Expected{43, "0000;0012;0;"}}) {
        int32_t rspid = 0;
        char text[4117] = {};
        ASSERT_TRUE(WaitUntil([&] { return GetNextResponse(&rspid, text, sizeof text) == 0; }));
        EXPECT_EQ(rspid, e.rspid);
        EXPECT_STREQ(text, e.text);
    }
    EXPECT_TRUE(c.WaitClosed());
}

TEST_F(ResetTest, FullResetEndsEverythingAndTheLibraryStartsAgainOnANewValidList) {
    Start(kMac);
    FakeController c;
    Join(c);
    const double took = SecondsOf([] { EXPECT_EQ(ResetDLL(), 0); });
    EXPECT_GE(took, 7.0) << "the reset's pauses are its design";
    EXPECT_EQ(c.ReadFrame(), "9990;0010;");
    EXPECT_TRUE(c.WaitClosed());
    // The reset thread signals the caller first and logs its end after.
    EXPECT_TRUE(WaitUntil([] { return LogContains("[Reset::ResetDLL] Complete Reset DLL"); }));
    EXPECT_EQ(Connected(), "");
    char valid[64] = {};
    ASSERT_EQ(GetValidControllers(valid, sizeof valid), 0);
    EXPECT_EQ(std::string(valid).find(kMac), std::string::npos);

    // Initialization works again once the reset thread has ended (-10001 until then).
    int32_t rc = -1;
    ASSERT_TRUE(WaitUntil([&] {
        rc = Initialization(port_, nullptr, nullptr);
        EXPECT_TRUE(rc == 0 || rc == -10001) << rc;
        return rc == 0;
    }));
    // Nobody is valid: a controller that identifies is cut at its first message.
    FakeController refused;
    ASSERT_TRUE(refused.Connect(port_));
    ASSERT_TRUE(refused.Identify(kMac));
    ASSERT_TRUE(refused.SendFrame(1061, "1;event;"));
    EXPECT_EQ(refused.ReadFrame(), "9990;0010;");
    EXPECT_TRUE(refused.WaitClosed());

    ASSERT_EQ(SetValidControllers(kMac), 0);
    FakeController again;
    Join(again);
    ASSERT_EQ(RspControllerInfo(5, kMac), 0);
    EXPECT_EQ(again.ReadFrame(), "0079;0010;");
}

TEST_F(ResetTest, ResetTimeOfZeroReturnsEarlyWhileTheResetGoesOn) {
    Start(kMac);
    int32_t zero = 0;
    ASSERT_EQ(ResetDLLTime(1, &zero), 0);
    const double took = SecondsOf([] { EXPECT_EQ(ResetDLL(), 0); });
    EXPECT_LT(took, 5.0);
    EXPECT_TRUE(LogContains("[ResetMon::WaitForResetDLLEvent] resetDLLEvent timeout"));
    EXPECT_TRUE(WaitUntil([] { return LogContains("[Reset::ResetDLL] Complete Reset DLL"); },
                          std::chrono::seconds(15)));
}

TEST_F(ResetTest, CallbacksEndWithAResetAndCanBeRegisteredAgain) {
    static std::atomic<int> events{0};
    auto onEvent = [](char*) -> int32_t {
        ++events;
        return 0;
    };
    Start(kMac);
    ASSERT_EQ(SetEventCallback(onEvent), 0);
    ASSERT_EQ(ResetDLL(), 0);
    EXPECT_TRUE(WaitUntil([] { return LogContains("[Reset::~Reset] reset thread terminated"); }));
    ASSERT_TRUE(WaitUntil([&] { return Initialization(port_, nullptr, nullptr) == 0; }));
    ASSERT_EQ(SetValidControllers(kMac), 0);
    ASSERT_EQ(SetEventCallback(onEvent), 0);
    FakeController c;
    Join(c);
    ASSERT_TRUE(c.SendFrame(1061, "1;after the reset;"));
    EXPECT_TRUE(WaitUntil([] { return events.load() == 1; }));
}

}  // namespace
}  // namespace zanth::test
