// Connections over real loopback sockets: reading across partial frames, one command at a time,
// the ways a link ends and what a waiting caller then gets, identification and takeover.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <string>

#include "monitors/ThreadHashMon.h"
#include "monitors/ValidMon.h"
#include "support/FakeController.h"
#include "support/Library.h"
#include "support/Net.h"
#include "zanth.h"

namespace zanth::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr const char* kMac = "AA:BB:CC";

std::string Connected() {
    char list[256] = {};
    GetConnectedControllers(list, sizeof list);
    return list;
}

class ConnectionTest : public LibraryTest {
  protected:
    // A controller that has identified itself and is listed as connected.
    void Join(FakeController& c, const std::string& mac = kMac) {
        ASSERT_TRUE(c.Connect(port_));
        ASSERT_TRUE(c.Identify(mac));
        ASSERT_TRUE(WaitUntil([&] { return Connected().find(mac) != std::string::npos; }));
    }
    void SetWait(int32_t ms) { ASSERT_EQ(RecvWaitTime(1, &ms), 0); }
};

TEST_F(ConnectionTest, FrameSplitAcrossSegmentsIsDispatchedOnce) {
    Start(kMac);
    FakeController c;
    Join(c);
    auto info = std::async(std::launch::async, [] {
        char text[64] = {};
        int32_t rc = ControllerInfo(kMac, text, sizeof text);
        return std::make_pair(rc, std::string(text));
    });
    ASSERT_EQ(c.ReadFrame(), "0079;0010;");
    // Header in two pieces, then the body in two more.
    ASSERT_TRUE(c.SendInPieces(Frame(1079, "Zanth;4.2;AA:BB:CC;"), {4, 10, 16}));
    auto [rc, text] = info.get();
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(text, "Zanth;4.2;AA:BB:CC;");
    EXPECT_EQ(LogCount("Code = ZANTH_CONTROLLER_INFO_RSP"), 1);
}

TEST_F(ConnectionTest, EndOfStreamBeforeAHeaderEndsTheWorker) {
    Start(kMac);
    FakeController c;
    Join(c);
    c.ShutdownSend();
    EXPECT_TRUE(c.WaitClosed());
    EXPECT_TRUE(WaitUntil([] { return Connected().empty(); }));
    EXPECT_TRUE(LogContains("[Worker::ReadData()] Header -- Zero bytes received"));
}

TEST_F(ConnectionTest, EndOfStreamWithinABodyDropsTheFrameThenEndsTheWorker) {
    Start(kMac);
    FakeController c;
    Join(c);
    ASSERT_TRUE(c.SendRaw("1069;0030;abc"));
    c.ShutdownSend();
    ASSERT_TRUE(WaitUntil([] { return LogContains("[Worker::ReadData()] Zero bytes received"); }));
    // The half frame is dropped unanswered; the next header read meets the end of stream, so the
    // dead link leaves neither a thread nor a socket behind.
    ASSERT_TRUE(WaitUntil([] { return LogContains("Header -- Zero bytes received"); }));
    ASSERT_TRUE(WaitUntil([] { return Connected().empty(); }));
    EXPECT_TRUE(c.WaitClosed(2000));
}

TEST_F(ConnectionTest, SecondCommandWaitsForTheFirstReply) {
    Start(kMac);
    FakeController c;
    Join(c);
    ASSERT_EQ(RspControllerInfo(1, kMac), 0);
    ASSERT_EQ(RspRebootBoard(2, kMac, 4), 0);
    ASSERT_EQ(c.ReadFrame(), "0079;0010;");
    EXPECT_TRUE(c.Silent(400)) << "the second command must wait for the first one's reply";
    ASSERT_TRUE(c.SendFrame(1079, "info;"));
    ASSERT_EQ(c.ReadFrame(), "0009;0012;4;");
    ASSERT_TRUE(c.SendFrame(1009, "0;"));

    // A command's reply travels as a block of the full working size.
    int32_t rspid = 0;
    char reply[4117] = {};
    ASSERT_TRUE(WaitUntil([&] { return GetNextResponse(&rspid, reply, sizeof reply) == 0; }));
    EXPECT_EQ(rspid, 1);
    EXPECT_STREQ(reply, "1079;0015;info;");
    ASSERT_TRUE(WaitUntil([&] { return GetNextResponse(&rspid, reply, sizeof reply) == 0; }));
    EXPECT_EQ(rspid, 2);
    EXPECT_STREQ(reply, "1009;0012;0;");
}

TEST_F(ConnectionTest, UnknownAndUnableRepliesEndTheLink) {
    Start(kMac);
    for (auto [code, expected] : {std::pair{9910, -10010}, std::pair{9920, -10030}}) {
        FakeController c;
        Join(c);
        auto rc = std::async(std::launch::async, [] { return RebootBoard(kMac, 1); });
        ASSERT_EQ(c.ReadFrame(), "0009;0012;1;");
        ASSERT_TRUE(c.SendFrame(code));
        EXPECT_EQ(rc.get(), expected);
        EXPECT_TRUE(c.WaitClosed());
        ASSERT_TRUE(WaitUntil([] { return Connected().empty(); }));
    }
    EXPECT_TRUE(LogContains("disconnected - Zanth unknown command"));
    EXPECT_TRUE(LogContains("disconnected - Zanth unable to process command"));
}

TEST_F(ConnectionTest, TerminateFromTheControllerLeavesTheCallerToItsWait) {
    Start(kMac);
    FakeController c;
    Join(c);
    SetWait(1500);
    auto begun = steady_clock::now();
    auto rc = std::async(std::launch::async, [] { return RebootBoard(kMac, 1); });
    ASSERT_EQ(c.ReadFrame(), "0009;0012;1;");
    ASSERT_TRUE(c.SendFrame(9990));
    EXPECT_EQ(rc.get(), -10005);
    EXPECT_GE(steady_clock::now() - begun, milliseconds(1400));
    EXPECT_TRUE(c.WaitClosed());
}

TEST_F(ConnectionTest, ResetLinkReleasesABlockedCallerAtOnce) {
    Start(kMac);
    FakeController c;
    Join(c);
    SetWait(60000);
    auto begun = steady_clock::now();
    auto rc = std::async(std::launch::async, [] { return RebootBoard(kMac, 1); });
    ASSERT_EQ(c.ReadFrame(), "0009;0012;1;");
    c.Reset();
    EXPECT_EQ(rc.get(), -10010);
    EXPECT_LT(steady_clock::now() - begun, milliseconds(5000));
    EXPECT_TRUE(WaitUntil([] { return Connected().empty(); }));
    EXPECT_TRUE(
        LogContains("[Worker::~Worker] busy == true....rspfunc == 0  setBuffer() IS called"));
}

TEST_F(ConnectionTest, QueuedRspCommandsAreAnsweredWhenTheLinkEnds) {
    Start(kMac);
    FakeController c;
    Join(c);
    ASSERT_EQ(RspControllerInfo(10, kMac), 0);
    ASSERT_EQ(RspControllerInfo(11, kMac), 0);
    ASSERT_EQ(c.ReadFrame(), "0079;0010;");
    // Let the second record reach the Worker's own queue before the link goes.
    ASSERT_TRUE(WaitUntil([] { return test::Shared().sendMon->CountFor(kMac) == 0; }));
    c.Reset();
    for (int expected : {10, 11}) {
        int32_t rspid = 0;
        char reply[32] = {};
        ASSERT_TRUE(WaitUntil([&] { return GetNextResponse(&rspid, reply, sizeof reply) == 0; }));
        EXPECT_EQ(rspid, expected);
        EXPECT_STREQ(reply, "9990;0010;");
    }
}

TEST_F(ConnectionTest, CommandsQueuedBeforeTheControllerCameBackAreDropped) {
    Start(kMac);
    CommandRecord stale{};
    std::strcpy(stale.message, "0079;0010;");
    test::Shared().sendMon->Put(stale, kMac);
    FakeController c;
    Join(c);
    EXPECT_TRUE(c.Silent(400)) << "the stale command must not go out";
    EXPECT_EQ(test::Shared().sendMon->CountFor(kMac), 0);
}

TEST_F(ConnectionTest, ASecondConnectionOfTheMacTakesOver) {
    Start(kMac);
    FakeController first, second;
    Join(first);
    ASSERT_TRUE(second.Connect(port_));
    ASSERT_TRUE(second.Identify(kMac, 10000)) << "accepted after the former link is dropped";
    EXPECT_TRUE(first.WaitClosed(2000)) << "the replaced link is ended";
    auto rc = std::async(std::launch::async, [] { return RebootBoard(kMac, 2); });
    ASSERT_EQ(second.ReadFrame(), "0009;0012;2;");
    ASSERT_TRUE(second.SendFrame(1009, "0;"));
    EXPECT_EQ(rc.get(), 0);
    EXPECT_EQ(Connected(), kMac);
}

TEST_F(ConnectionTest, ControllerNotValidIsAcceptedThenCutAtItsFirstMessage) {
    Start("11:22:33");
    FakeController c;
    ASSERT_TRUE(c.Connect(port_));
    ASSERT_TRUE(c.Identify(kMac)) << "anyone may identify";
    ASSERT_TRUE(c.SendFrame(1069));
    EXPECT_EQ(c.ReadFrame(), "9990;0010;");
    EXPECT_TRUE(c.WaitClosed());
}

TEST_F(ConnectionTest, IdentificationWithoutAMacIsRejected) {
    Start(kMac);
    FakeController c;
    ASSERT_TRUE(c.Connect(port_));
    ASSERT_TRUE(c.SendFrame(1042, ";;"));
    EXPECT_EQ(c.ReadFrame(), "0071;0010;");
    EXPECT_TRUE(c.WaitClosed());
}

TEST_F(ConnectionTest, FrameLongerThanTheBuffersIsRefused) {
    Start(kMac);
    FakeController c;
    Join(c);
    ASSERT_TRUE(c.SendRaw("1061;9999;" + std::string(5000, 'x')));
    EXPECT_TRUE(c.WaitClosed());
    EXPECT_TRUE(LogContains("exceeds the receive buffer"));
    EXPECT_TRUE(WaitUntil([] { return Connected().empty(); }));
}

TEST_F(ConnectionTest, GarbageCodeEndsTheLink) {
    Start(kMac);
    FakeController c;
    Join(c);
    ASSERT_TRUE(c.SendRaw("0000;0010;"));
    EXPECT_TRUE(c.WaitClosed());
    EXPECT_TRUE(LogContains("disconnected - received invalid code"));
}

TEST_F(ConnectionTest, ControllerVanishingWhileTheHostSendsRaisesNoSignal) {
    Start(kMac);
    FakeController c;
    Join(c);
    // The controller sends a burst and is gone: the library acknowledges each heartbeat, one per
    // turn, into a closed socket. A SIGPIPE would kill this test process.
    std::string burst;
    for (int i = 0; i < 6; ++i) burst += Frame(1069, "hb;");
    ASSERT_TRUE(c.SendRaw(burst));
    c.Close();
    EXPECT_TRUE(WaitUntil([] { return Connected().empty(); }));
}

TEST_F(ConnectionTest, TwoConnectionsAtOnceAreBothAccepted) {
    Start("ALL");
    FakeController a, b;
    ASSERT_TRUE(a.Connect(port_));
    ASSERT_TRUE(b.Connect(port_));
    ASSERT_TRUE(a.Identify("00:00:01"));
    ASSERT_TRUE(b.Identify("00:00:02"));
    EXPECT_TRUE(WaitUntil([] { return Connected().size() == std::strlen("00:00:01,00:00:02"); }));
}

TEST_F(ConnectionTest, PortInUseStopsTheLibrary) {
    port_ = FreePort();
    net::Fd blocker = net::TcpSocket();
    ASSERT_EQ(net::Bind(blocker, port_, false), port_);
    ASSERT_TRUE(net::Listen(blocker, 1));
    // Initialization has returned before the listener finds the port taken.
    EXPECT_EQ(Initialization(port_, nullptr, nullptr), 0);
    EXPECT_TRUE(WaitUntil([] { return test::Shared().Terminating(); }));
    EXPECT_TRUE(LogContains("[Listener::Listener] Error on bind"));
    EXPECT_TRUE(LogContains("Winsock 10048: Address already in use"));
    EXPECT_EQ(Initialization(port_, nullptr, nullptr), -10001);
    net::Close(blocker);
}

TEST_F(ConnectionTest, ShutdownTerminatesControllersAndTheLibraryStartsAgain) {
    Start(kMac);
    FakeController c;
    Join(c);
    auto begun = steady_clock::now();
    EXPECT_EQ(Shutdown(), 0);
    EXPECT_GE(steady_clock::now() - begun, milliseconds(950));
    // The terminate byte is set before the terminate commands are queued: a Worker that sees
    // the byte first leaves without sending one. Either way the link ends.
    auto last = c.ReadFrame(2000);
    if (last) {
        EXPECT_EQ(*last, "9990;0010;");
    }
    EXPECT_TRUE(c.WaitClosed());
    ASSERT_TRUE(WaitUntil([] { return !test::Shared().Terminating(); }));
    int port = FreePort();
    EXPECT_EQ(Initialization(port, nullptr, nullptr), 0);
    FakeController again;
    ASSERT_TRUE(again.Connect(port));
    EXPECT_TRUE(again.Identify(kMac));
}

TEST_F(ConnectionTest, SecondInitializationMovesTheListener) {
    Start(kMac);
    int other = FreePort();
    auto begun = steady_clock::now();
    EXPECT_EQ(Initialization(other, nullptr, nullptr), 0);
    EXPECT_GE(steady_clock::now() - begun, milliseconds(3900)) << "2 s per running thread";
    FakeController c;
    ASSERT_TRUE(c.Connect(other));
    EXPECT_TRUE(c.Identify(kMac));
}

TEST_F(ConnectionTest, ValidListChangeEndsAConnectedController) {
    Start(kMac);
    FakeController c;
    Join(c);
    ASSERT_EQ(SetValidControllers("11:22:33"), 0);
    EXPECT_EQ(c.ReadFrame(), "9990;0010;");
    EXPECT_TRUE(c.WaitClosed());
}

}  // namespace
}  // namespace zanth::test
