// A controller that stops answering, against a scripted controller: the caller is told -10005,
// never a success, and the controller is never left unreachable. A blocking caller's time-out
// ends the link so that the controller calls again; an Rsp command or stream that gets nothing
// within the wait time is answered -10005 by the Worker, its late reply is dropped and the link's
// later commands go on; a link that never identifies is closed.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <future>
#include <iterator>
#include <string>

#include "connection/Worker.h"
#include "monitors/HandleHashMon.h"
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

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::atomic<int> disconnects{0};
int32_t OnDisconnect(char*) {
    ++disconnects;
    return 0;
}

class StalledControllerTest : public LibraryTest {
  protected:
    void Join(FakeController& c, const std::string& mac = kMac) {
        ASSERT_TRUE(c.Connect(port_));
        ASSERT_TRUE(c.Identify(mac));
        ASSERT_TRUE(WaitUntil([&] { return Connected() == mac; }));
    }
    void SetWait(int32_t ms) { ASSERT_EQ(RecvWaitTime(1, &ms), 0); }
    // The next response queued for the host, or "none".
    static std::string NextResponse(int32_t* rspid, milliseconds within = milliseconds(10000)) {
        char text[4117] = {};
        if (!WaitUntil([&] { return GetNextResponse(rspid, text, sizeof text) == 0; }, within))
            return "none";
        return text;
    }
    static int32_t Responses() {
        int32_t n = -1;
        GetNumberResponse(&n);
        return n;
    }
    // The frame's payload, or "" with a failure when the frame isn't of `code`.
    static std::string ExpectFrame(FakeController& c, int code) {
        auto frame = c.ReadFrame();
        if (!frame || frame->size() < 10 || std::stoi(frame->substr(0, 4)) != code) {
            ADD_FAILURE() << "expected code " << code << ", got " << (frame ? *frame : "nothing");
            return "";
        }
        return frame->substr(10);
    }
};

// The caller's time-out (its wait, then the drop step's five seconds) stays; the Worker it gave
// up on closes its link, with the usual disconnect notices, instead of acknowledging heartbeats
// for ever; the controller calls again and is served by a fresh Worker.
TEST_F(StalledControllerTest, TimedOutCallerEndsTheLinkAndTheControllerCallsBack) {
    Start(kMac);
    ASSERT_EQ(SetDisconnectedControllersCallback(OnDisconnect), 0);
    FakeController c;
    Join(c);
    SetWait(1000);
    const auto begun = steady_clock::now();
    auto info = std::async(std::launch::async, [] {
        char text[64] = {};
        return ControllerInfo(kMac, text, sizeof text);
    });
    ASSERT_EQ(c.ReadFrame(), "0079;0010;");
    EXPECT_EQ(info.get(), -10005);
    EXPECT_GE(steady_clock::now() - begun, milliseconds(5900)) << "the drop step's pause stays";
    // The controller still has its link and sends its heartbeat; nobody answers it any more.
    c.SendFrame(1069, "");
    EXPECT_TRUE(c.WaitClosed(5000)) << "the Worker given up on must close its link";
    EXPECT_TRUE(WaitUntil([] { return disconnects.load() == 2; }))
        << "an identified controller's end is told twice, as always";
    EXPECT_TRUE(LogContains("no longer listed after a caller's wait ran out: link to 127.0.0.1:"));
    EXPECT_EQ(Connected(), "");

    FakeController again;
    Join(again);
    auto answered = std::async(std::launch::async, [] {
        char text[64] = {};
        int32_t rc = ControllerInfo(kMac, text, sizeof text);
        return std::make_pair(rc, std::string(text));
    });
    ASSERT_EQ(again.ReadFrame(), "0079;0010;");
    ASSERT_TRUE(again.SendFrame(1079, "Zanth;4.2;AA:BB:CC;"));
    auto [rc, text] = answered.get();
    EXPECT_EQ(rc, 0) << "nothing of the ended link waits in the reply slot";
    EXPECT_EQ(text, "Zanth;4.2;AA:BB:CC;");
}

// An Rsp command that gets no reply within the wait time is answered -10005 under its rspid;
// the command behind it goes out, and the late reply, when it comes, is dropped.
TEST_F(StalledControllerTest, StalledRspCommandIsAnsweredAndTheLinkGoesOn) {
    Start(kMac);
    FakeController c;
    Join(c);
    SetWait(1000);
    ASSERT_EQ(RspControllerInfo(7, kMac), 0);
    ASSERT_EQ(RspRebootBoard(8, kMac, 4), 0);
    ASSERT_EQ(c.ReadFrame(), "0079;0010;");
    const auto sent = steady_clock::now();
    int32_t rspid = 0;
    EXPECT_EQ(NextResponse(&rspid), "0000;0017;-10005;");
    EXPECT_EQ(rspid, 7);
    EXPECT_GE(steady_clock::now() - sent, milliseconds(900));
    ASSERT_EQ(c.ReadFrame(), "0009;0012;4;") << "the next command must not wait for good";
    ASSERT_TRUE(c.SendFrame(1079, "late info;"));
    ASSERT_TRUE(c.SendFrame(1009, "0;"));
    EXPECT_EQ(NextResponse(&rspid), "1009;0012;0;");
    EXPECT_EQ(rspid, 8);
    EXPECT_TRUE(LogContains("ZANTH_CONTROLLER_INFO_RSP came after its caller was answered -10005"));
    EXPECT_EQ(Responses(), 0) << "the late reply reaches no one";
    EXPECT_EQ(Connected(), kMac);
}

// A late reply that comes while nothing is awaited is dropped too, and the reply slot is left
// alone: the next blocking call gets its own reply.
TEST_F(StalledControllerTest, LateReplyWithNothingAwaitedIsDropped) {
    Start(kMac);
    FakeController c;
    Join(c);
    SetWait(800);
    ASSERT_EQ(RspGetTZ(3, kMac), 0);
    ASSERT_EQ(c.ReadFrame(), "0087;0010;");
    int32_t rspid = 0;
    EXPECT_EQ(NextResponse(&rspid), "0000;0017;-10005;");
    EXPECT_EQ(rspid, 3);
    ASSERT_TRUE(c.SendFrame(1087, "0;EST5EDT;"));
    ASSERT_TRUE(WaitUntil([] { return LogContains("ZANTH_GET_TZ_RSP came after its caller"); }));
    EXPECT_EQ(Responses(), 0);

    auto info = std::async(std::launch::async, [] {
        char text[64] = {};
        int32_t rc = ControllerInfo(kMac, text, sizeof text);
        return std::make_pair(rc, std::string(text));
    });
    ASSERT_EQ(c.ReadFrame(), "0079;0010;");
    ASSERT_TRUE(c.SendFrame(1079, "info;"));
    auto [rc, text] = info.get();
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(text, "info;");
}

// An Rsp stream whose controller stalls ends after the wait time: its file is closed, its
// caller told -10005, a chunk that comes later is dropped, and the commands behind it go on: a
// command that passed the stream finds its own caller, and a blocking transfer goes out.
TEST_F(StalledControllerTest, StalledRspStreamEndsAndTheLinkGoesOn) {
    Start(kMac);
    FakeController c;
    Join(c);
    SetWait(3000);
    std::ofstream("out.bin", std::ios::binary) << "short file";
    ASSERT_EQ(RspGetFile(5, kMac, "/log/a", "a.bin"), 0);
    EXPECT_EQ(ExpectFrame(c, 33), "/log/a;");
    ASSERT_TRUE(c.SendFrame(1033, "first chunk"));
    EXPECT_EQ(ExpectFrame(c, 34), "");
    const auto stalled = steady_clock::now();
    // The stream's wait was set when its last message went out; what follows waits longer.
    SetWait(10000);
    // On the punch-through list: it passes the stream, and its reply is still to come.
    ASSERT_EQ(RspControllerInfo(6, kMac), 0);
    ASSERT_EQ(c.ReadFrame(), "0079;0010;");
    // Off the list: it waits behind the stream, as does a blocking transfer.
    char errorLog[] = "errors.txt";
    ASSERT_EQ(RspGetErrorLog(9, kMac, errorLog), 0);
    auto send =
        std::async(std::launch::async, [] { return SendFile(kMac, "/cfg/out.bin", "out.bin"); });

    int32_t rspid = 0;
    EXPECT_EQ(NextResponse(&rspid), "0000;0017;-10005;");
    EXPECT_EQ(rspid, 5);
    EXPECT_GE(steady_clock::now() - stalled, milliseconds(2900));
    EXPECT_EQ(ReadFile("a.bin"), "first chunk");
    // The controller's chunk comes too late; then it answers what is asked.
    ASSERT_TRUE(c.SendFrame(1033, "second chunk"));
    ASSERT_TRUE(c.SendFrame(1079, "info;"));
    EXPECT_EQ(NextResponse(&rspid), "1079;0015;info;");
    EXPECT_EQ(rspid, 6);
    ASSERT_EQ(c.ReadFrame(), "0090;0010;");
    ASSERT_TRUE(c.SendFrame(1090, "0;"));
    EXPECT_EQ(NextResponse(&rspid), "1090;0012;0;");
    EXPECT_EQ(rspid, 9);
    EXPECT_EQ(ExpectFrame(c, 30), "/cfg/out.bin;") << "the blocking transfer goes out";
    ASSERT_TRUE(c.SendFrame(1030, "0;"));
    EXPECT_EQ(ExpectFrame(c, 32), "short file");
    EXPECT_EQ(send.get(), 0);
    ASSERT_TRUE(c.SendFrame(1030, "0;"));
    EXPECT_EQ(ReadFile("a.bin"), "first chunk") << "the late chunk is not written";
    EXPECT_TRUE(LogContains("ZANTH_GET_FILE stalled: nothing from the controller"));
    EXPECT_TRUE(LogContains("ZANTH_GET_FILE_MORE came after its caller was answered -10005"));
    EXPECT_EQ(Connected(), kMac);
}

// A blocking stream that gets no answer is no success: -10005 after the wait (and the drop
// step), for both directions.
TEST_F(StalledControllerTest, BlockingTransferWithNoAnswerIsNoReply) {
    Start(kMac);
    std::ofstream("out.bin", std::ios::binary) << "payload";
    SetWait(1000);
    for (int code : {30, 33}) {
        SCOPED_TRACE(code);
        FakeController c;
        Join(c);
        auto rc = std::async(std::launch::async, [code] {
            return code == 30 ? SendFile(kMac, "/cfg/x", "out.bin")
                              : GetFile(kMac, "/log/x", "in.bin");
        });
        EXPECT_EQ(ExpectFrame(c, code), code == 30 ? "/cfg/x;" : "/log/x;");
        EXPECT_EQ(rc.get(), -10005);
        EXPECT_TRUE(c.WaitClosed(5000));
        ASSERT_TRUE(WaitUntil([] { return Connected().empty(); }));
    }
}

// A 9980 never means success: a first field that isn't a number gives -10017, on the stream
// and on the chunk calls alike; a number still passes as the controller's own.
TEST_F(StalledControllerTest, TransferErrorWithoutANumberIsNoSuccess) {
    Start(kMac);
    FakeController c;
    Join(c);
    SetWait(5000);
    struct Case {
        const char* payload;
        int32_t result;
    };
    for (const Case& k : {Case{"abc;", -10017}, Case{"#;#;", -10017}, Case{"12abc;x;", -10017},
                          Case{"-3;no space;", -3}}) {
        SCOPED_TRACE(k.payload);
        auto rc = std::async(std::launch::async, [] { return GetFile(kMac, "/log/x", "in.bin"); });
        EXPECT_EQ(ExpectFrame(c, 33), "/log/x;");
        ASSERT_TRUE(c.SendFrame(1033, "part"));
        EXPECT_EQ(ExpectFrame(c, 34), "");
        ASSERT_TRUE(c.SendFrame(9980, k.payload));
        EXPECT_EQ(rc.get(), k.result);

        auto data = std::async(std::launch::async, [] {
            char buffer[64];
            int32_t read = 0, last = 0;
            return GetData(kMac, "/log/y", buffer, sizeof buffer, &read, &last);
        });
        EXPECT_EQ(ExpectFrame(c, 33), "/log/y;");
        ASSERT_TRUE(c.SendFrame(9980, k.payload));
        EXPECT_EQ(data.get(), k.result);
    }
}

// A peer that connects and never identifies is closed once the identification time has passed,
// with a log line that names it; one that drips bytes is no exception. A controller that has
// identified stays.
TEST_F(StalledControllerTest, LinkThatNeverIdentifiesIsClosedWithItsAddress) {
    identifyLimitMilliseconds = 1500;
    Start(kMac);
    FakeController silent, dripping, real;
    ASSERT_TRUE(silent.Connect(port_));
    ASSERT_TRUE(dripping.Connect(port_));
    Join(real);
    const auto begun = steady_clock::now();
    // One byte of a frame that never completes, every 300 ms, until the link is closed.
    auto drip = std::async(std::launch::async, [&dripping] {
        for (char b : std::string("1042;0100;02:5A:37:")) {
            if (!dripping.SendRaw(std::string(1, b))) return;
            if (net::WaitReadable(dripping.Fd(), 300) != 0) return;
        }
    });
    EXPECT_TRUE(silent.WaitClosed(6000));
    EXPECT_TRUE(dripping.WaitClosed(6000));
    drip.get();
    EXPECT_GE(steady_clock::now() - begun, milliseconds(1400));
    EXPECT_EQ(LogCount("did not identify within 1500 ms: link closed"), 2);
    EXPECT_TRUE(LogContains("[Worker::Run] 127.0.0.1:"));
    EXPECT_TRUE(WaitUntil([] { return test::Shared().workerMon->UnidentifiedCount() == 0; }));
    EXPECT_TRUE(real.Silent(500)) << "an identified controller is left alone";
    EXPECT_EQ(Connected(), kMac);
}

// The limit itself, in real time: half a minute.
TEST_F(StalledControllerTest, IdentificationTimeIsThirtySeconds) {
    Start(kMac);
    FakeController peer;
    ASSERT_TRUE(peer.Connect(port_));
    const auto begun = steady_clock::now();
    EXPECT_TRUE(peer.WaitClosed(40000));
    const auto took = steady_clock::now() - begun;
    EXPECT_GE(took, milliseconds(29500));
    EXPECT_LE(took, milliseconds(36000));
    EXPECT_TRUE(LogContains("did not identify within 30000 ms: link closed"));
}

}  // namespace
}  // namespace zanth::test
