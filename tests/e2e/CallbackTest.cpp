// The host's callbacks: connect and disconnect notices, the text callback threads, the response
// callback, and what replacing a callback does.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "support/FakeController.h"
#include "support/Library.h"
#include "zanth.h"

namespace zanth::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr const char* kMac = "AA:BB:CC";

// What the callbacks saw, in order; callbacks are plain functions, so this is shared.
struct Seen {
    std::mutex lock;
    std::vector<std::string> items;
    std::vector<steady_clock::time_point> times;

    void Add(const std::string& item) {
        std::lock_guard<std::mutex> g(lock);
        items.push_back(item);
        times.push_back(steady_clock::now());
    }
    std::vector<std::string> Items() {
        std::lock_guard<std::mutex> g(lock);
        return items;
    }
    size_t Count() { return Items().size(); }
};

Seen seen;
Seen seenOther;

// Callbacks that only record what they were handed.
int32_t RecordSeen(char* text) {
    seen.Add(text);
    return 0;
}
int32_t RecordSeenOther(char* text) {
    seenOther.Add(text);
    return 0;
}

class CallbackTest : public LibraryTest {
  protected:
    void Join(FakeController& c) {
        ASSERT_TRUE(c.Connect(port_));
        ASSERT_TRUE(c.Identify(kMac));
    }
};

TEST_F(CallbackTest, IdentifiedControllerIsReportedOnceConnectedAndTwiceGone) {
    ASSERT_EQ(SetConnectedControllersCallback([](char* mac) -> int32_t {
                  seen.Add(std::string("+") + mac);
                  return 0;
              }),
              0);
    ASSERT_EQ(SetDisconnectedControllersCallback([](char* mac) -> int32_t {
                  seen.Add(std::string("-") + mac);
                  return 0;
              }),
              0);
    Start(kMac);
    FakeController c;
    Join(c);
    c.Close();
    ASSERT_TRUE(WaitUntil([] { return seen.Count() == 3; }));
    EXPECT_EQ(seen.Items(), (std::vector<std::string>{"+AA:BB:CC", "-AA:BB:CC", "-AA:BB:CC"}));
    // One notice per 200 ms cycle.
    EXPECT_GE(seen.times[2] - seen.times[1], milliseconds(150));
}

TEST_F(CallbackTest, LinkThatNeverIdentifiedIsReportedOnceAsZero) {
    ASSERT_EQ(SetDisconnectedControllersCallback(RecordSeen), 0);
    Start(kMac);
    FakeController c;
    ASSERT_TRUE(c.Connect(port_));
    // Wait until the Listener has handed the link to a Worker before dropping it.
    ASSERT_TRUE(WaitUntil([] { return LogContains("accept connection and add worker thread"); }));
    c.Close();
    ASSERT_TRUE(WaitUntil([] { return seen.Count() == 1; }));
    EXPECT_FALSE(WaitUntil([] { return seen.Count() > 1; }, milliseconds(600)));
    EXPECT_EQ(seen.Items()[0], "0");
}

TEST_F(CallbackTest, NoticesWithoutTheirCallbackAreConsumed) {
    ASSERT_EQ(SetDisconnectedControllersCallback(RecordSeen), 0);
    Start(kMac);
    FakeController c;
    Join(c);
    c.Close();
    ASSERT_TRUE(WaitUntil([] { return seen.Count() == 2; }));
    // The connect notice went first and found no callback: it is gone, not kept for later.
    ASSERT_EQ(SetConnectedControllersCallback(RecordSeenOther), 0);
    EXPECT_FALSE(WaitUntil([] { return seenOther.Count() > 0; }, milliseconds(600)));
}

TEST_F(CallbackTest, LookupCallbackGetsTheTextAndANegativeReturnEndsThePass) {
    static std::atomic<int> calls{0};
    Start(kMac);
    FakeController c;
    Join(c);
    for (const char* card : {"AA:BB:CC;1;111;", "AA:BB:CC;1;222;", "AA:BB:CC;1;333;"}) {
        ASSERT_TRUE(c.SendFrame(1073, card));
        ASSERT_EQ(c.ReadFrame(), "0073;0012;0;");
    }
    ASSERT_EQ(SetLookupCallback([](char* text) -> int32_t {
                  seen.Add(text);
                  return ++calls == 1 ? -1 : 0;
              }),
              0);
    ASSERT_TRUE(WaitUntil([] { return seen.Count() == 3; }));
    EXPECT_EQ(seen.Items(),
              (std::vector<std::string>{"AA:BB:CC;1;111;", "AA:BB:CC;1;222;", "AA:BB:CC;1;333;"}));
    // The first call ended its pass: the other two came with the next one, about a second later.
    EXPECT_GE(seen.times[1] - seen.times[0], milliseconds(900));
    EXPECT_LT(seen.times[2] - seen.times[1], milliseconds(500));
}

TEST_F(CallbackTest, ReplacingACallbackTakesTwoSecondsAndSilencesTheOldOne) {
    Start(kMac);
    FakeController c;
    Join(c);
    ASSERT_EQ(SetKeyPadDataCallback(RecordSeen), 0);
    ASSERT_TRUE(c.SendFrame(1153, "first;"));
    ASSERT_EQ(c.ReadFrame(), "0153;0012;0;");
    ASSERT_TRUE(WaitUntil([] { return seen.Count() == 1; }));

    auto begun = steady_clock::now();
    ASSERT_EQ(SetKeyPadDataCallback(RecordSeenOther), 0);
    EXPECT_GE(steady_clock::now() - begun, milliseconds(2000));
    ASSERT_TRUE(c.SendFrame(1153, "second;"));
    ASSERT_EQ(c.ReadFrame(), "0153;0012;0;");
    ASSERT_TRUE(WaitUntil([] { return seenOther.Count() == 1; }));
    EXPECT_EQ(seenOther.Items()[0], "second;");
    EXPECT_EQ(seen.Count(), 1u) << "the replaced callback gets nothing after the replacement";
}

TEST_F(CallbackTest, LongTextsArePaddedWithBlanks) {
    static std::string received;
    static std::atomic<bool> done{false};
    Start(kMac);
    FakeController c;
    Join(c);
    ASSERT_EQ(SetPostAccessCallback([](char* text) -> int32_t {
                  received.assign(text, 4117);
                  done = true;
                  return 0;
              }),
              0);
    ASSERT_TRUE(c.SendFrame(1093, "AA:BB:CC;1;55;GRANTED;"));
    ASSERT_TRUE(WaitUntil([] { return done.load(); }));
    EXPECT_EQ(received.substr(0, 22), "AA:BB:CC;1;55;GRANTED;");
    EXPECT_EQ(received.find_first_not_of(' ', 22), std::string::npos);
}

TEST_F(CallbackTest, LookupTooLongForTheCallbackIsLostThereButNotWhenPolled) {
    static std::atomic<int> calls{0};
    Start(kMac);
    FakeController c;
    Join(c);
    std::string longText(142, 'L');
    ASSERT_TRUE(c.SendFrame(1073, longText));
    ASSERT_EQ(c.ReadFrame(), "0073;0012;0;");
    char polled[200];
    ASSERT_EQ(GetNextLookup(polled, sizeof polled - 1), 0);
    EXPECT_EQ(std::string(polled), longText);

    ASSERT_TRUE(c.SendFrame(1073, longText));
    ASSERT_EQ(c.ReadFrame(), "0073;0012;0;");
    ASSERT_EQ(SetLookupCallback([](char* text) -> int32_t {
                  seen.Add(text);
                  ++calls;
                  return 0;
              }),
              0);
    ASSERT_TRUE(WaitUntil([] { return LogContains("dataSize (141) insufficent, need 142"); }));
    ASSERT_TRUE(WaitUntil([] { return calls.load() == 1; }));
    EXPECT_EQ(seen.Items()[0], "") << "nothing good came before, so an empty text stands in";
}

TEST_F(CallbackTest, ResponseCallbackGetsTheReplyUnderItsRspid) {
    static std::atomic<int32_t> rspid{0};
    static std::string text;
    Start(kMac);
    FakeController c;
    Join(c);
    ASSERT_EQ(SetResponseCallback([](ZanthResponse* r) -> int32_t {
                  text = r->text;
                  rspid = r->rspid;
                  return 0;
              }),
              0);
    ASSERT_EQ(RspControllerInfo(55, kMac), 0);
    ASSERT_EQ(c.ReadFrame(), "0079;0010;");
    ASSERT_TRUE(c.SendFrame(1079, "info;"));
    ASSERT_TRUE(WaitUntil([] { return rspid.load() == 55; }));
    EXPECT_EQ(text, "1079;0015;info;");
}

TEST_F(CallbackTest, TooSmallResponseBufferLosesTheReply) {
    Start(kMac);
    FakeController c;
    Join(c);
    ASSERT_EQ(RspControllerInfo(9, kMac), 0);
    ASSERT_EQ(c.ReadFrame(), "0079;0010;");
    ASSERT_TRUE(c.SendFrame(1079, "a reply of some forty bytes, more or less;"));
    int32_t count = 0;
    ASSERT_TRUE(WaitUntil([&] { return GetNumberResponse(&count) == 0 && count == 1; }));
    int32_t rspid = -7;
    char buffer[10];
    EXPECT_EQ(GetNextResponse(&rspid, buffer, sizeof buffer), 0);
    EXPECT_EQ(rspid, -7);
    EXPECT_TRUE(LogContains("[CharIntQueueMon::Remove] dataSize (10) insufficent, need 4117"));
    EXPECT_EQ(GetNextResponse(&rspid, buffer, sizeof buffer), -10009);
}

TEST_F(CallbackTest, RspContactToAClosedPortReportsTheSocketError) {
    Start(kMac);
    int closed = FreePort();
    EXPECT_EQ(RspContactController(12, "127.0.0.1", closed), 0);
    int32_t rspid = 0;
    char reply[4118] = {};
    ASSERT_TRUE(WaitUntil([&] { return GetNextResponse(&rspid, reply, sizeof reply) == 0; }));
    EXPECT_EQ(rspid, 12);
    EXPECT_STREQ(reply, "0000;0016;10061;");
}

TEST_F(CallbackTest, ContactControllerChecksItsArguments) {
    Start(kMac);
    EXPECT_EQ(ContactController("", 3001), -10002);
    EXPECT_TRUE(LogContains("[Worker::ContactGateway] invalid IP address or host name"));
    EXPECT_EQ(ContactController("127.0.0.1", 1024), -10002);
    EXPECT_TRUE(LogContains("[Master::ContactGateway] port value must be between 1025 and 65535"));
    EXPECT_EQ(ContactController("127.0.0.1", FreePort()), 10061);
}

TEST_F(CallbackTest, ContactControllerOpensTheLinkAndTheControllerIdentifies) {
    ASSERT_EQ(SetConnectedControllersCallback(RecordSeen), 0);
    Start(kMac);
    FakeController c;
    int port = c.Listen();
    // A host text of 60 characters is used cut to 50; the address reader stops at the blank.
    std::string longName = "127.0.0.1 " + std::string(50, 'x');
    EXPECT_EQ(ContactController(longName.c_str(), port), 0);
    EXPECT_TRUE(LogContains("iphostname=127.0.0.1 " + std::string(40, 'x') + " port="));
    ASSERT_TRUE(c.Accept());
    EXPECT_EQ(c.ReadFrame(), "0045;0010;");
    ASSERT_TRUE(c.Identify(kMac));
    ASSERT_TRUE(WaitUntil([] { return seen.Count() == 1; }));
    EXPECT_EQ(seen.Items()[0], kMac);
    char list[64];
    ASSERT_EQ(GetConnectedControllers(list, sizeof list), 0);
    EXPECT_STREQ(list, kMac) << "the reserved placeholder is never listed";
}

}  // namespace
}  // namespace zanth::test
