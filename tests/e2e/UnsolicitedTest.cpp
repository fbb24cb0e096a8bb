// What controllers send of their own accord: the acknowledgement of each kind, byte for byte and
// in its order relative to storing, the files and queues it lands in, and the host's answers.

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <future>
#include <string>

#include "monitors/ValidMon.h"
#include "support/FakeController.h"
#include "support/Library.h"
#include "zanth.h"

namespace zanth::test {
namespace {

constexpr const char* kMac = "AA:BB:CC";

class UnsolicitedTest : public LibraryTest {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        Start(kMac);
        ASSERT_TRUE(c_.Connect(port_));
        ASSERT_TRUE(c_.Identify(kMac));
    }

    static std::string NextEvent() {
        char record[200];
        return GetNextEvent(record, sizeof record) == 0 ? std::string(record)
                                                        : std::string("<none>");
    }
    static std::string NextAlarm() {
        char record[200];
        return GetNextAlarm(record, sizeof record) == 0 ? std::string(record)
                                                        : std::string("<none>");
    }

    FakeController c_;
};

TEST_F(UnsolicitedTest, EventsAndAlarmsAreAcknowledgedAndKept) {
    ASSERT_TRUE(c_.SendFrame(1061, "17;11/22/2026;10:00:00;4;1;2;Door forced;"));
    EXPECT_EQ(c_.ReadFrame(), "0067;0010;");
    ASSERT_TRUE(c_.SendFrame(1060, "18;11/22/2026;10:00:01;9;0;1;Tamper;"));
    EXPECT_EQ(c_.ReadFrame(), "0067;0010;");
    ASSERT_TRUE(c_.SendFrame(1069, "hb;"));
    EXPECT_EQ(c_.ReadFrame(), "0069;0010;");

    ASSERT_TRUE(WaitUntil([] {
        uint64_t alarms = 0;
        NumberUnreadAlarms(&alarms);
        return alarms == 2;
    }));
    EXPECT_EQ(NextEvent(), "17;11/22/2026;10:00:00;4;1;2;Door forced;");
    EXPECT_EQ(NextEvent(), "<none>");
    // A heartbeat's payload is kept as an alarm.
    EXPECT_EQ(NextAlarm(), "18;11/22/2026;10:00:01;9;0;1;Tamper;");
    EXPECT_EQ(NextAlarm(), "hb;");
}

TEST_F(UnsolicitedTest, AnEventIsOnDiskBeforeTheCallbackQueueHoldsIt) {
    static std::atomic<int> unreadSeenByCallback{-1};
    ASSERT_EQ(SetEventCallback([](char*) -> int32_t {
                  uint64_t unread = 0;
                  NumberUnreadEvents(&unread);
                  unreadSeenByCallback = static_cast<int>(unread);
                  return 0;
              }),
              0);
    ASSERT_TRUE(c_.SendFrame(1061, "1;event;"));
    EXPECT_EQ(c_.ReadFrame(), "0067;0010;");
    ASSERT_TRUE(WaitUntil([] { return unreadSeenByCallback.load() >= 0; }));
    EXPECT_EQ(unreadSeenByCallback.load(), 1);
}

TEST_F(UnsolicitedTest, BundleIsAcknowledgedOnceAndOnlyEventsAndAlarmsAreKept) {
    ASSERT_TRUE(c_.SendFrame(1065, "1061;e1;x;^1060;a1;^1073;lookup;^1061;e2;^"));
    EXPECT_EQ(c_.ReadFrame(), "0067;0010;");
    EXPECT_TRUE(c_.Silent(300)) << "one acknowledgement for the whole bundle";
    EXPECT_EQ(NextEvent(), "e1;x;");
    EXPECT_EQ(NextEvent(), "e2;");
    EXPECT_EQ(NextAlarm(), "a1;");
    int32_t lookups = -1;
    GetNumberLookups(&lookups);
    EXPECT_EQ(lookups, 0) << "an inner code other than 1060 and 1061 is lost";
}

TEST_F(UnsolicitedTest, RequestsAreQueuedBeforeTheirAcknowledgement) {
    struct Kind {
        int code;
        std::string ack;
        int32_t (*count)(int32_t*);
        int32_t (*next)(char*, int32_t);
    };
    const Kind kinds[] = {
        {1073, "0073;0012;0;", GetNumberLookups, GetNextLookup},
        {1101, "0101;0012;0;", GetNumberPin, GetNextPin},
        {1152, "0152;0012;0;", GetNumberSmartCardData, GetNextSmartCardData},
        {1153, "0153;0012;0;", GetNumberKeyPadData, GetNextKeyPadData},
        {1154, "0154;0012;0;", GetNumberCommandKeyData, GetNextCommandKeyData},
    };
    for (const Kind& k : kinds) {
        std::string payload = "AA:BB:CC;2;" + std::to_string(k.code) + ";";
        ASSERT_TRUE(c_.SendFrame(k.code, payload));
        EXPECT_EQ(c_.ReadFrame(), k.ack) << k.code;
        // The acknowledgement goes out after the payload was queued: no wait needed here.
        int32_t n = 0;
        EXPECT_EQ(k.count(&n), 0);
        EXPECT_EQ(n, 1) << k.code;
        char text[64];
        EXPECT_EQ(k.next(text, sizeof text - 1), 0);
        EXPECT_EQ(std::string(text), payload);
        EXPECT_EQ(k.next(text, sizeof text - 1), -10009);
    }
}

TEST_F(UnsolicitedTest, PostAccessGetsNoAcknowledgement) {
    ASSERT_TRUE(c_.SendFrame(1093, "AA:BB:CC;1;12345;GRANTED;"));
    EXPECT_TRUE(c_.Silent(400));
    char text[64];
    ASSERT_TRUE(WaitUntil([&] { return GetNextPostAccess(text, sizeof text - 1) == 0; }));
    EXPECT_STREQ(text, "AA:BB:CC;1;12345;GRANTED;");
}

TEST_F(UnsolicitedTest, HereIAmCarriesTheHostsTime) {
    ASSERT_TRUE(c_.SendFrame(1080, "AA:BB:CC;10.0.0.5;"));
    EXPECT_EQ(c_.ReadFrame(), "0080;0010;");
    char text[128];
    ASSERT_EQ(GetNextHereIAm(text, sizeof text - 1), 0);
    std::string got = text;
    ASSERT_EQ(got.rfind("AA:BB:CC;10.0.0.5;", 0), 0u);
    std::string stamp = got.substr(std::strlen("AA:BB:CC;10.0.0.5;"));
    // "HH:MM:SS DD/MM/YYYY;"
    ASSERT_EQ(stamp.size(), 20u) << stamp;
    EXPECT_EQ(stamp[2], ':');
    EXPECT_EQ(stamp[8], ' ');
    EXPECT_EQ(stamp[11], '/');
    EXPECT_EQ(stamp.back(), ';');
}

TEST_F(UnsolicitedTest, LookupsComeOldestFirst) {
    ASSERT_TRUE(c_.SendFrame(1073, "first;"));
    EXPECT_EQ(c_.ReadFrame(), "0073;0012;0;");
    ASSERT_TRUE(c_.SendFrame(1073, "second;"));
    EXPECT_EQ(c_.ReadFrame(), "0073;0012;0;");
    int32_t n = 0;
    GetNumberLookups(&n);
    EXPECT_EQ(n, 2);
    char text[32];
    ASSERT_EQ(GetNextLookup(text, sizeof text - 1), 0);
    EXPECT_STREQ(text, "first;");
    ASSERT_EQ(GetNextLookup(text, sizeof text - 1), 0);
    EXPECT_STREQ(text, "second;");
    EXPECT_EQ(GetNextLookup(text, sizeof text - 1), -10009);
}

TEST_F(UnsolicitedTest, TooSmallBufferLosesTheItemButReportsSuccess) {
    ASSERT_TRUE(c_.SendFrame(1073, "12345;"));
    EXPECT_EQ(c_.ReadFrame(), "0073;0012;0;");
    char text[8] = "keep";
    EXPECT_EQ(GetNextLookup(text, 1), 0);
    EXPECT_STREQ(text, "keep");
    EXPECT_TRUE(LogContains("[CharQueueMon::Remove] dataSize (1) insufficent, need 6"));
    EXPECT_EQ(GetNextLookup(text, sizeof text - 1), -10009);
}

TEST_F(UnsolicitedTest, ControllerNoLongerValidIsCutAtItsNextMessage) {
    // Only the list changes here; the terminate command of SetValidControllers is left out so
    // that the Worker's own check is what ends the link.
    test::Shared().validMon->SetList("11:22:33");
    ASSERT_TRUE(c_.SendFrame(1069));
    EXPECT_EQ(c_.ReadFrame(), "9990;0010;");
    EXPECT_TRUE(c_.WaitClosed());
    uint64_t alarms = 0;
    NumberUnreadAlarms(&alarms);
    EXPECT_EQ(alarms, 0u) << "nothing is kept from a controller no longer valid";
}

TEST_F(UnsolicitedTest, EventTooLongForARecordOrTheCallbackIsLostThere) {
    static std::atomic<int> delivered{0};
    ASSERT_EQ(SetEventCallback([](char* text) -> int32_t {
                  if (std::strlen(text) == 140) ++delivered;
                  return 0;
              }),
              0);
    ASSERT_TRUE(c_.SendFrame(1061, std::string(140, 'e')));
    EXPECT_EQ(c_.ReadFrame(), "0067;0010;");
    ASSERT_TRUE(c_.SendFrame(1061, std::string(145, 'f')));
    EXPECT_EQ(c_.ReadFrame(), "0067;0010;");
    ASSERT_TRUE(WaitUntil([] { return LogContains("[MsgMon::WriteMsg] msg is too big"); }));
    uint64_t unread = 0;
    NumberUnreadEvents(&unread);
    EXPECT_EQ(unread, 1u) << "a record longer than 144 bytes is refused whole";
    // The short-text callback takes at most 141 characters: the long event is lost on that path
    // (logged), and the callback is handed the former text once more in its place.
    EXPECT_TRUE(WaitUntil([] { return delivered.load() == 2; }));
    EXPECT_TRUE(LogContains("[CharQueueMon::Remove] dataSize (141) insufficent, need 145"));
}

TEST_F(UnsolicitedTest, RecheckLookupCardRoundTripOverTheWire) {
    ASSERT_TRUE(c_.SendFrame(1073, "AA:BB:CC;1;4242;"));
    EXPECT_EQ(c_.ReadFrame(), "0073;0012;0;");
    char lookup[64];
    ASSERT_EQ(GetNextLookup(lookup, sizeof lookup - 1), 0);
    auto rc = std::async(std::launch::async, [] { return RecheckLookupCard(kMac, "1;4242;1"); });
    EXPECT_EQ(c_.ReadFrame(), "0075;0018;1;4242;1");
    ASSERT_TRUE(c_.SendFrame(1075, "0;"));
    EXPECT_EQ(rc.get(), 0);
    // An answer with a result of the controller's own.
    auto refused = std::async(std::launch::async, [] { return RecheckLookupCard(kMac, "x"); });
    EXPECT_EQ(c_.ReadFrame(), "0075;0011;x");
    ASSERT_TRUE(c_.SendFrame(1075, "-200;"));
    EXPECT_EQ(refused.get(), -200);
}

}  // namespace
}  // namespace zanth::test
