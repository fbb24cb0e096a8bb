// The simulator's own side of the wire, without the library: a scripted host (the test
// harness's fake peer, listening) drives one simulated controller and checks its exact bytes,
// and the payload and frame helpers are checked on their edges.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "protocol/Codes.h"
#include "support/FakeController.h"
#include "support/Library.h"
#include "tools/sim/Payloads.h"
#include "tools/sim/Simulator.h"
#include "tools/sim/WireCodec.h"

namespace zanth::test {
namespace {

using namespace std::chrono_literals;
using sim::ControllerStats;

class ScriptedHostTest : public ::testing::Test {
  protected:
    void SetUp() override { hostPort_ = host_.Listen(); }
    void TearDown() override { sim_.Stop(); }

    // One controller against the scripted host, accepted and identified.
    sim::Controller& Connected(sim::ControllerConfig config = {}) {
        if (config.mac.empty()) config.mac = "AA:BB:CC";
        config.port = hostPort_;
        config.reconnectMinMs = 50;
        config.rebootDelayMs = 300;
        sim::Controller& c = sim_.Add(config);
        sim_.Start();
        EXPECT_TRUE(host_.Accept());
        auto identify = host_.ReadFrame();
        EXPECT_TRUE(identify);
        if (identify) identification_ = *identify;
        host_.SendFrame(ZANTH_ACCEPT_CONNECTION);
        EXPECT_TRUE(c.WaitIdentified(5s));
        return c;
    }

    FakeController host_;
    int hostPort_ = 0;
    std::string identification_;
    sim::Simulator sim_;
};

TEST_F(ScriptedHostTest, IdentifiesAndAnswersCommandsInArrivalOrder) {
    sim::ControllerConfig config;
    config.model = "ZN-1";
    config.firmware = "2.0";
    Connected(config);
    EXPECT_EQ(identification_, "1042;0032;02:5A:37:AA:BB:CC;2.0;");
    // Three commands in one write: the answers keep their order.
    ASSERT_TRUE(host_.SendRaw(Frame(79) + Frame(9, "3;") + Frame(42, "7;")));
    EXPECT_EQ(host_.ReadFrame(), Frame(1079, "ZN-1;2.0;AA:BB:CC;ZSAABBCC;"));
    EXPECT_EQ(host_.ReadFrame(), Frame(1009, "0;"));
    EXPECT_EQ(host_.ReadFrame(), Frame(9910, "42;"));
}

TEST_F(ScriptedHostTest, FramesSplitAcrossWritesAreReassembled) {
    sim::Controller& c = Connected();
    ASSERT_TRUE(host_.SendInPieces(Frame(96, "4;") + Frame(79), {1, 7, 11, 14}, 30));
    EXPECT_EQ(host_.ReadFrame(), Frame(1096, "0;"));
    auto info = host_.ReadFrame();
    ASSERT_TRUE(info);
    EXPECT_EQ(info->substr(0, 5), "1079;");
    ControllerStats s = c.Stats();
    ASSERT_EQ(s.commands.size(), 2u);
    EXPECT_EQ(s.commands[0].payload, "4;");
    EXPECT_EQ(s.protocolErrors, 0u);
}

TEST_F(ScriptedHostTest, FaultsReshapeTheAnswersToTheirCode) {
    sim::Controller& c = Connected();
    const std::string info = "ZN-4000;4.21.7;AA:BB:CC;ZSAABBCC;";
    auto usual = [&](int code) { return code == 79 ? Frame(1079, info) : Frame(1009, "0;"); };
    sim::Fault refusedAs9920 = sim::Fault::Error("-7;");
    refusedAs9920.replyCode = ZANTH_UNABLE_TO_PROCESS_COMMAND;
    struct Row {
        const char* what;
        int code;
        const char* payload;
        sim::Fault fault;
        std::optional<std::string> answer;  // nothing: no answer at all
        int lateMs;
    };
    const Row rows[] = {
        {"refused", 9, "3;", sim::Fault::Error("-1;"), Frame(1009, "-1;"), 0},
        {"refused under another code", 9, "3;", refusedAs9920, Frame(9920, "-7;"), 0},
        {"answered under another code", 79, "", sim::Fault::WrongCode(1009), Frame(1009, info), 0},
        {"late", 79, "", sim::Fault::Late(300), Frame(1079, info), 300},
        {"silent", 9, "3;", sim::Fault::Silent(), std::nullopt, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        c.SetFault(row.code, row.fault);
        auto sent = std::chrono::steady_clock::now();
        host_.SendFrame(row.code, row.payload);
        if (row.answer) {
            EXPECT_EQ(host_.ReadFrame(), *row.answer);
            EXPECT_GE(std::chrono::steady_clock::now() - sent,
                      std::chrono::milliseconds(row.lateMs));
        } else {
            EXPECT_TRUE(host_.Silent(300));
        }
        // A fault serves one command: the next of its code is answered as usual.
        host_.SendFrame(row.code, row.payload);
        EXPECT_EQ(host_.ReadFrame(), usual(row.code));
    }
    c.SetFault(9, sim::Fault::Error("-1;").Persistent());
    for (int i = 0; i < 2; ++i) {
        host_.SendFrame(9, "3;");
        EXPECT_EQ(host_.ReadFrame(), Frame(1009, "-1;"));
    }
    c.ClearFault(9);
    host_.SendFrame(9, "3;");
    EXPECT_EQ(host_.ReadFrame(), Frame(1009, "0;"));
    EXPECT_EQ(c.Stats().faults, 7u);
}

TEST_F(ScriptedHostTest, UploadByMessageIdResendsTheStoredEventsAsABundle) {
    sim::Controller& c = Connected();
    std::vector<std::string> events;
    for (const char* d : {"Access granted", "Door held open", "Door closed"}) {
        events.push_back(c.SendEvent(1, d));
        auto frame = host_.ReadFrame();
        ASSERT_TRUE(frame);
        EXPECT_EQ(*frame, Frame(1061, events.back()));
        host_.SendFrame(ZANTH_MESSAGE_RSP);
    }
    ASSERT_TRUE(c.WaitAcks(ZANTH_MESSAGE_RSP, 3, 5s));
    host_.SendFrame(ZANTH_UPLOAD_MSGS_BY_MSG_ID, "2;3;");
    EXPECT_EQ(host_.ReadFrame(), Frame(1062, "0;"));
    EXPECT_EQ(host_.ReadFrame(), Frame(1065, "1061;" + events[1] + "^1061;" + events[2] + "^"));
    // By priority: all three went out with the default priority 3.
    host_.SendFrame(ZANTH_UPLOAD_ALL_MSGS_BY_PRIORITY, "3;");
    EXPECT_EQ(host_.ReadFrame(), Frame(1062, "0;"));
    EXPECT_EQ(host_.ReadFrame(),
              Frame(1065, "1061;" + events[0] + "^1061;" + events[1] + "^1061;" + events[2] + "^"));
    // Nothing matches: the answer alone.
    host_.SendFrame(ZANTH_UPLOAD_ALL_MSGS_BY_CLASS_CODE, "9;");
    EXPECT_EQ(host_.ReadFrame(), Frame(1062, "0;"));
    EXPECT_TRUE(host_.Silent(200));
}

TEST_F(ScriptedHostTest, AcknowledgementsAreMatchedInOrder) {
    sim::Controller& c = Connected();
    c.SendHeartbeat();
    c.SendLookup(1, 55, 0);
    ASSERT_TRUE(host_.ReadFrame());
    ASSERT_TRUE(host_.ReadFrame());
    EXPECT_EQ(c.Stats().outstandingAcks, 2u);
    // A host that answers the look-up before the heartbeat has its answers out of order.
    host_.SendFrame(ZANTH_CHECK_CARD_RSP, "0;");
    host_.SendFrame(ZANTH_HEART_BEAT_RSP);
    ASSERT_TRUE(c.WaitUntil([](const ControllerStats& s) { return s.ackFrames.size() == 3; }, 5s));
    ControllerStats s = c.Stats();
    EXPECT_EQ(s.unexpectedAcks, 1u);
    EXPECT_EQ(s.outstandingAcks, 1u);
    EXPECT_EQ(s.ackFrames[1], "0073;0012;0;");
    // No acknowledgement is itself answered.
    EXPECT_TRUE(host_.Silent(200));
}

TEST_F(ScriptedHostTest, AnUnreadableHostFrameDropsTheLinkAndTheControllerDialsAgain) {
    sim::Controller& c = Connected();
    host_.SendRaw("00X9;0010;");
    ASSERT_TRUE(c.WaitUntil([](const ControllerStats& s) { return s.protocolErrors == 1; }, 5s));
    EXPECT_TRUE(host_.WaitClosed());
    host_.Close();
    ASSERT_TRUE(host_.Accept());
    EXPECT_EQ(host_.ReadFrame(), Frame(1042, "02:5A:37:AA:BB:CC;4.21.7;"));
    EXPECT_EQ(c.Stats().linkDrops, 1u);
}

TEST_F(ScriptedHostTest, DropCutsTheLinkAndTheControllerDialsAgain) {
    sim::Controller& c = Connected();
    c.Drop();
    EXPECT_TRUE(host_.WaitClosed());
    host_.Close();
    ASSERT_TRUE(host_.Accept());
    EXPECT_EQ(host_.ReadFrame(), Frame(1042, "02:5A:37:AA:BB:CC;4.21.7;"));
    host_.SendFrame(ZANTH_ACCEPT_CONNECTION);
    ASSERT_TRUE(c.WaitUntil(
        [](const ControllerStats& s) { return s.identified && s.identifications == 2; }, 5s));
    ControllerStats s = c.Stats();
    EXPECT_EQ(s.linkDrops, 1u);
    EXPECT_EQ(s.Reconnects(), 1u);
}

TEST_F(ScriptedHostTest, RejectionAndTerminationEndTheLink) {
    sim::ControllerConfig config;
    config.mac = "AA:BB:CD";
    config.port = hostPort_;
    config.reconnectMinMs = 50;
    sim::Controller& c = sim_.Add(config);
    sim_.Start();
    ASSERT_TRUE(host_.Accept());
    ASSERT_TRUE(host_.ReadFrame());
    host_.SendFrame(ZANTH_REJECT_CONNECTION);
    EXPECT_TRUE(host_.WaitClosed());
    host_.Close();
    ASSERT_TRUE(c.WaitUntil([](const ControllerStats& s) { return s.rejections == 1; }, 5s));

    ASSERT_TRUE(host_.Accept());
    ASSERT_TRUE(host_.ReadFrame());
    host_.SendFrame(ZANTH_ACCEPT_CONNECTION);
    ASSERT_TRUE(c.WaitIdentified(5s));
    host_.SendFrame(ZANTH_TERMINATE);
    EXPECT_TRUE(host_.WaitClosed());
    ControllerStats s = c.Stats();
    EXPECT_EQ(s.terminations, 1u);
    EXPECT_EQ(s.identifications, 1u);
    EXPECT_EQ(s.Sent(ZANTH_IDENTIFY_CONTROLLER), 2u);
}

TEST_F(ScriptedHostTest, OldRebootCommandGetsNoAnswerAndTheControllerReturnsAfterItsDelay) {
    sim::Controller& c = Connected();
    auto sent = std::chrono::steady_clock::now();
    host_.SendFrame(ZANTH_REBOOT_CONTROLLER);
    // Closed without a byte of answer.
    EXPECT_FALSE(host_.ReadFrame(2000));
    host_.Close();
    ASSERT_TRUE(host_.Accept());
    EXPECT_GE(std::chrono::steady_clock::now() - sent, 300ms);
    ASSERT_TRUE(host_.ReadFrame());
    host_.SendFrame(ZANTH_ACCEPT_CONNECTION);
    ASSERT_TRUE(c.WaitUntil([](const ControllerStats& s) { return s.identifications == 2; }, 5s));
    EXPECT_EQ(c.Stats().Sent(ZANTH_REBOOT_CONTROLLER + 1000), 0u);
}

TEST_F(ScriptedHostTest, TheFrameHookSeesBothDirections) {
    std::mutex lock;
    std::vector<std::string> seen;
    sim_.SetFrameHook([&](const sim::Controller&, sim::Direction d, int, std::string_view frame) {
        std::lock_guard<std::mutex> g(lock);
        seen.push_back((d == sim::Direction::ToHost ? ">" : "<") + std::string(frame));
    });
    Connected();
    // A code no controller knows, so the answer is the controller's own.
    host_.SendFrame(999);
    EXPECT_EQ(host_.ReadFrame(), Frame(9910, "999;"));
    ASSERT_TRUE(WaitUntil([&] {
        std::lock_guard<std::mutex> g(lock);
        return seen.size() == 4;
    }));
    std::lock_guard<std::mutex> g(lock);
    EXPECT_EQ(seen, (std::vector<std::string>{">1042;0035;02:5A:37:AA:BB:CC;4.21.7;", "<0070;0010;",
                                              "<0999;0010;", ">9910;0014;999;"}));
}

// ---------------------------------------------------------------------------------------------
// Payloads and frames

TEST(SimulatorPayloads, MacsAreNormalisedAndCountedIn24Bits) {
    EXPECT_EQ(sim::NormalizeMac("aa-bb-0c"), "AA:BB:0C");
    EXPECT_EQ(sim::NormalizeMac("aabb0c"), "AA:BB:0C");
    EXPECT_EQ(sim::NormalizeMac("AA:BB"), "");
    EXPECT_EQ(sim::NormalizeMac("AA:BB:CC:DD"), "");
    EXPECT_EQ(sim::NormalizeMac("AG:BB:CC"), "");
    EXPECT_EQ(sim::MacPlus("00:00:FF", 1), "00:01:00");
    EXPECT_EQ(sim::MacPlus("FF:FF:FF", 2), "00:00:01");
    EXPECT_EQ(sim::MacPlus("nonsense", 1), "");
}

TEST(SimulatorPayloads, EventTextFitsOneHostRecord) {
    sim::MessageRecord r;
    r.mac = "0A:1B:2C";
    r.msgId = 99999;
    r.time.tm_year = 124;
    r.time.tm_mon = 11;
    r.time.tm_mday = 31;
    r.time.tm_hour = 23;
    r.time.tm_min = 59;
    r.time.tm_sec = 58;
    r.eventClass = 255;
    r.priority = 9;
    r.door = 12;
    r.description = "Door forced;open^now";
    EXPECT_EQ(sim::MessageText(r),
              "0A:1B:2C;99999;12/31/2024;23:59:58;255;9;12;Door forced open now;");
    r.description = std::string(300, 'x');
    std::string text = sim::MessageText(r);
    EXPECT_EQ(text.size(), sim::kMessageTextLimit);
    EXPECT_EQ(text.back(), ';');
    EXPECT_EQ(text.rfind("0A:1B:2C;99999;12/31/2024;23:59:58;255;9;12;xxx", 0), 0u);
    r.description.clear();
    EXPECT_EQ(sim::MessageText(r), "0A:1B:2C;99999;12/31/2024;23:59:58;255;9;12;-;");
}

TEST(SimulatorPayloads, RecheckAndPinRequestTextsAreReadStrictly) {
    auto d = sim::ParseRecheck(sim::RecheckText(2, 4000000000u, true));
    ASSERT_TRUE(d);
    EXPECT_EQ(d->door, 2);
    EXPECT_EQ(d->card, 4000000000u);
    EXPECT_TRUE(d->granted);
    EXPECT_FALSE(sim::ParseRecheck("2;100;0;")->granted);
    for (const char* bad : {"2;100;2;", "2;100", "x;100;1;", "2;-5;1;", "2;100;1x;", "", "2;;1;"}) {
        EXPECT_FALSE(sim::ParseRecheck(bad)) << bad;
    }
    auto p = sim::ParsePinRequest("3;30;-1;");
    ASSERT_TRUE(p);
    EXPECT_EQ(p->door, 3);
    EXPECT_EQ(p->seconds, 30);
    EXPECT_EQ(p->digits, -1);
    EXPECT_FALSE(sim::ParsePinRequest("3;30;"));
    EXPECT_EQ(sim::SplitFields("a;b;tail"), (std::vector<std::string_view>{"a", "b", "tail"}));
}

TEST(SimulatorFrames, ClearStreamIsCutIntoWholeFrames) {
    sim::WireCodec codec;
    std::string plain;
    std::string in = "0079;00";
    EXPECT_EQ(codec.Decode(in, nullptr, plain), sim::WireCodec::Status::NeedMore);
    in += "12;3;0096;0013;32;00";
    EXPECT_EQ(codec.Decode(in, nullptr, plain), sim::WireCodec::Status::Frame);
    EXPECT_EQ(plain, "0079;0012;3;");
    EXPECT_EQ(codec.Decode(in, nullptr, plain), sim::WireCodec::Status::Frame);
    EXPECT_EQ(plain, "0096;0013;32;");
    EXPECT_EQ(codec.Decode(in, nullptr, plain), sim::WireCodec::Status::NeedMore);
    EXPECT_EQ(in, "00");

    for (const char* bad : {"0079;0009;", "0079;00A0;", "0079:0010;", "007 ;0010;"}) {
        std::string stream = bad;
        EXPECT_EQ(codec.Decode(stream, nullptr, plain), sim::WireCodec::Status::Bad) << bad;
    }
    EXPECT_TRUE(sim::ParseClearFrame("0079;0010;"));
    EXPECT_FALSE(sim::ParseClearFrame("0079;0011;"));
    std::string out;
    EXPECT_FALSE(codec.Encode(1061, std::string(sim::kPayloadLimit + 1, 'x'), nullptr, out));
    EXPECT_TRUE(codec.Encode(1061, std::string(sim::kPayloadLimit, 'x'), nullptr, out));
    EXPECT_EQ(out.substr(0, 10), "1061;4097;");
}

TEST(SimulatorFrames, EncryptedFramesCarryWholeClearFrames) {
    void* plugin = ::dlopen("libzanth_encryption64.so", RTLD_NOW | RTLD_LOCAL);
    if (plugin == nullptr) GTEST_SKIP() << "no cipher plugin on the library path";
    ::dlclose(plugin);
    sim::WireCodec codec;
    std::string identify = sim::ClearFrame(1043, sim::IdentifyPayload("AA:BB:CC", "1.0"));
    unsigned char key[sim::kKeySize];
    unsigned char other[sim::kKeySize];
    ASSERT_TRUE(codec.DeriveKey(identify, "seed-1", key));
    ASSERT_TRUE(codec.DeriveKey(identify, "seed-2", other));
    std::string stream;
    ASSERT_TRUE(codec.Encode(1079, "ZN;1.0;AA:BB:CC;", key, stream));
    ASSERT_TRUE(codec.Encode(1009, "0;", key, stream));
    EXPECT_EQ(stream.find("1079;"), std::string::npos);
    std::string plain;
    std::string partial = stream.substr(0, 7);
    EXPECT_EQ(codec.Decode(partial, key, plain), sim::WireCodec::Status::NeedMore);
    std::string copy = stream;
    EXPECT_EQ(codec.Decode(stream, key, plain), sim::WireCodec::Status::Frame);
    EXPECT_EQ(plain, "1079;0026;ZN;1.0;AA:BB:CC;");
    EXPECT_EQ(codec.Decode(stream, key, plain), sim::WireCodec::Status::Frame);
    EXPECT_EQ(plain, "1009;0012;0;");
    EXPECT_TRUE(stream.empty());
    EXPECT_EQ(codec.Decode(copy, other, plain), sim::WireCodec::Status::Bad);
}

}  // namespace
}  // namespace zanth::test
