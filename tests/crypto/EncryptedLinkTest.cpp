// Encrypted links end to end over a real socket: the clear identification, the acceptance as
// the first encrypted frame, commands and unsolicited traffic both ways, peers whose seed is not
// the host's, and encrypted headers that arrive in pieces.

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "crypto/EncryptedPeer.h"
#include "protocol/MessageUtil.h"
#include "support/FakeController.h"
#include "support/Library.h"
#include "zanth.h"

namespace zanth::test {
namespace {

constexpr const char* kMac = "AA:BB:CC";
const std::string kEvent = "1;01/02/2024;10:00:00;Door 1 forced open;";
constexpr const char* kDecryptFailed =
    "[Worker::ReadData()] Error decrypting data, error code=-10022";
constexpr const char* kHeaderRead = "[Worker::ReadData()] Header -- numBytes=";

void WriteSeedFile(const std::string& content) {
    std::ofstream out("zanth.txt", std::ios::binary | std::ios::trunc);
    out << content;
}

bool IsConnected(const std::string& mac) {
    char list[256];
    return GetConnectedControllers(list, sizeof list) == 0 && std::string(list) == mac;
}

uint64_t UnreadEvents() {
    uint64_t count = 0;
    NumberUnreadEvents(&count);
    return count;
}

class EncryptedLinkTest : public LibraryTest {
  protected:
    // The host's seed file is written before Initialization, which reads it.
    void StartWithSeeds(const std::string& seedFile) {
        WriteSeedFile(seedFile);
        Start(kMac);
    }

    // Connects and identifies; the acceptance is left unread.
    void Join(EncryptedPeer& peer) {
        ASSERT_TRUE(peer.Connect(port_));
        ASSERT_TRUE(peer.Identify(kMac));
    }

    // Connects, identifies and opens the acceptance.
    void JoinAccepted(EncryptedPeer& peer) {
        Join(peer);
        auto accept = peer.ReadMessage();
        ASSERT_TRUE(accept);
        ASSERT_EQ(*accept, Frame(70));
        ASSERT_TRUE(WaitUntil([] { return IsConnected(kMac); }));
    }

    // Sends `bytes` and waits until the Worker has taken them with one header read.
    void SendOneHeaderRead(EncryptedPeer& peer, const std::string& bytes) {
        const int before = LogCount(kHeaderRead);
        ASSERT_TRUE(peer.Link().SendRaw(bytes));
        ASSERT_TRUE(WaitUntil([&] { return LogCount(kHeaderRead) > before; }))
            << "the Worker never read " << bytes.size() << " header bytes";
    }
};

TEST_F(EncryptedLinkTest, AcceptanceIsTheFirstEncryptedFrameAndNotAClearOne) {
    StartWithSeeds("02:5A:37:AA:BB:CC sesame\n");
    EncryptedPeer peer("sesame");
    Join(peer);
    auto raw = peer.ReadRaw();
    ASSERT_TRUE(raw);
    MessageUtil util;
    EXPECT_FALSE(util.IsCompleteMessage(raw->data(), static_cast<long>(raw->size())));
    EXPECT_EQ(raw->find(Frame(70)), std::string::npos);
    EXPECT_TRUE(MessageUtil::IsCompleteEncrypted(raw->data(), static_cast<long>(raw->size())));
    auto accept = peer.Open(*raw);
    ASSERT_TRUE(accept);
    EXPECT_EQ(*accept, Frame(70));
    EXPECT_TRUE(WaitUntil([] { return IsConnected(kMac); }));
    EXPECT_FALSE(LogContains("[SeedHashMon::Get]")) << "the MAC is on file";
}

TEST_F(EncryptedLinkTest, CommandReplyAndEventTravelEncryptedBothWays) {
    StartWithSeeds("02:5A:37:11:11:11 other\n02:5A:37:AA:BB:CC sesame\n");
    EncryptedPeer peer("sesame");
    JoinAccepted(peer);

    std::string request;
    std::thread controller([&] {
        auto raw = peer.ReadRaw();
        ASSERT_TRUE(raw);
        EXPECT_EQ(raw->find(Frame(79)), std::string::npos) << "the command went out in clear";
        auto opened = peer.Open(*raw);
        ASSERT_TRUE(opened);
        request = *opened;
        peer.SendMessage(1079, "Zanth;4.2;AA:BB:CC;");
    });
    char info[64] = {};
    EXPECT_EQ(ControllerInfo("aa:bb:cc", info, sizeof info), 0);
    controller.join();
    EXPECT_EQ(request, Frame(79));
    EXPECT_STREQ(info, "Zanth;4.2;AA:BB:CC;");

    ASSERT_TRUE(peer.SendMessage(1061, kEvent));
    auto ack = peer.ReadMessage();
    ASSERT_TRUE(ack);
    EXPECT_EQ(*ack, Frame(67));
    ASSERT_TRUE(WaitUntil([] { return UnreadEvents() == 1; }));
    char event[200] = {};
    ASSERT_EQ(GetNextEvent(event, sizeof event), 0);
    EXPECT_EQ(std::string(event), kEvent);
}

TEST_F(EncryptedLinkTest, MacNotOnFileUsesTheDefaultSeedSilently) {
    StartWithSeeds("02:5A:37:11:11:11 other\ndefault sesame\n");
    EncryptedPeer peer("sesame");
    JoinAccepted(peer);
    EXPECT_FALSE(LogContains("[SeedHashMon::Get]"));
}

TEST_F(EncryptedLinkTest, WithoutSeedFileTheLinkIsKeyedWithTheEmptySeed) {
    Start(kMac);
    EXPECT_TRUE(LogContains("[SeedHashMon::Load] Error opening"));
    EncryptedPeer peer("");
    JoinAccepted(peer);
    EXPECT_TRUE(
        LogContains("[SeedHashMon::Get] MAC Address 02:5A:37:AA:BB:CC not found in zanth.txt"));
}

TEST_F(EncryptedLinkTest, PeerWithAnotherSeedGetsNoReplyAccepted) {
    StartWithSeeds("02:5A:37:AA:BB:CC sesame\n");
    EncryptedPeer peer("guess");
    Join(peer);
    auto accept = peer.ReadRaw();
    ASSERT_TRUE(accept);
    EXPECT_FALSE(peer.Open(*accept)) << "the acceptance opened under another seed";
    ASSERT_TRUE(WaitUntil([] { return IsConnected(kMac); }));

    int32_t wait = 1500;
    ASSERT_EQ(RecvWaitTime(1, &wait), 0);
    std::thread controller([&] {
        auto raw = peer.ReadRaw();
        ASSERT_TRUE(raw);
        EXPECT_FALSE(peer.Open(*raw)) << "the command opened under another seed";
        peer.SendMessage(1079, "Zanth;4.2;AA:BB:CC;");
    });
    char info[64] = {};
    EXPECT_EQ(ControllerInfo(kMac, info, sizeof info), -10005);
    controller.join();
    EXPECT_TRUE(LogContains(kDecryptFailed));
    EXPECT_STREQ(info, "");
}

TEST_F(EncryptedLinkTest, PeerWithAnotherSeedGetsNoEventStored) {
    StartWithSeeds("02:5A:37:AA:BB:CC sesame\n");
    EncryptedPeer peer("guess");
    Join(peer);
    ASSERT_TRUE(peer.ReadRaw());
    ASSERT_TRUE(peer.SendMessage(1061, kEvent));
    ASSERT_TRUE(WaitUntil([] { return LogContains(kDecryptFailed); }));
    EXPECT_EQ(UnreadEvents(), 0u);
    char event[200];
    EXPECT_EQ(GetNextEvent(event, sizeof event), -10008);
    EXPECT_TRUE(peer.Link().Silent(300)) << "a frame that did not open was acknowledged";
}

TEST_F(EncryptedLinkTest, HeaderInTwoPiecesIsAssembled) {
    StartWithSeeds("default sesame\n");
    EncryptedPeer peer("sesame");
    JoinAccepted(peer);
    const std::string frame = peer.Seal(Frame(1061, kEvent));
    ASSERT_GT(frame.size(), 5u);
    SendOneHeaderRead(peer, frame.substr(0, 3));
    ASSERT_TRUE(peer.Link().SendRaw(frame.substr(3)));
    auto ack = peer.ReadMessage();
    ASSERT_TRUE(ack);
    EXPECT_EQ(*ack, Frame(67));
    EXPECT_TRUE(LogContains(std::string(kHeaderRead) + "2 recv:"))
        << "the rest of the header came whole";
    ASSERT_TRUE(WaitUntil([] { return UnreadEvents() == 1; }));
    char event[200] = {};
    ASSERT_EQ(GetNextEvent(event, sizeof event), 0);
    EXPECT_EQ(std::string(event), kEvent);
}

TEST_F(EncryptedLinkTest, HeaderInThreePiecesLosesTheCountAndIsNotDispatched) {
    StartWithSeeds("default sesame\n");
    EncryptedPeer peer("sesame");
    JoinAccepted(peer);
    const std::string frame = peer.Seal(Frame(1061, kEvent));
    ASSERT_GT(frame.size(), 5u);
    SendOneHeaderRead(peer, frame.substr(0, 1));
    SendOneHeaderRead(peer, frame.substr(1, 1));
    SendOneHeaderRead(peer, frame.substr(2, 3));
    ASSERT_TRUE(peer.Link().SendRaw(frame.substr(5)));
    // End of stream behind the frame: once the Worker reads it, every byte before it has been
    // through its hands, whichever way the lost count sent them.
    ASSERT_TRUE(peer.Link().ShutdownSend());
    ASSERT_TRUE(WaitUntil([] {
        return LogContains("Zero bytes received") || LogContains("exceeds the receive buffer") ||
               LogContains("is not a frame header") || LogContains("shorter than its header");
    }));
    EXPECT_EQ(UnreadEvents(), 0u);
    EXPECT_FALSE(peer.ReadRaw(300)) << "the event was acknowledged";
}

TEST_F(EncryptedLinkTest, HeaderThatIsNotAHeaderEndsTheLinkWithoutOverrunningABuffer) {
    const std::string flood(20000, 'x');
    for (size_t piece : {size_t{0}, size_t{1000}}) {
        SCOPED_TRACE(piece);
        if (piece == 0) StartWithSeeds("default sesame\n");
        EncryptedPeer peer("sesame");
        JoinAccepted(peer);
        const std::string bytes = "abcd;" + flood;
        if (piece == 0) {
            peer.Link().SendRaw(bytes);
        } else {
            std::vector<size_t> cuts;
            for (size_t at = piece; at < bytes.size(); at += piece) cuts.push_back(at);
            peer.Link().SendInPieces(bytes, cuts, 20);
        }
        EXPECT_TRUE(peer.Link().WaitClosed(10000));
        EXPECT_TRUE(WaitUntil([] { return !IsConnected(kMac); }));
        EXPECT_TRUE(LogContains("is not a frame header"));
    }
}

TEST_F(EncryptedLinkTest, FrameThatFailsToDecryptCostsThatFrameAlone) {
    StartWithSeeds("default sesame\n");
    EncryptedPeer peer("sesame");
    JoinAccepted(peer);
    // A well-formed header over cipher text that doesn't authenticate, then a good event.
    ASSERT_TRUE(peer.Link().SendRaw("0045;" + std::string(40, 'z')));
    ASSERT_TRUE(WaitUntil([] { return LogContains(kDecryptFailed); }));
    ASSERT_TRUE(peer.SendMessage(1061, kEvent));
    auto ack = peer.ReadMessage();
    ASSERT_TRUE(ack) << "the link went deaf after one bad frame";
    EXPECT_EQ(*ack, Frame(67));
    EXPECT_TRUE(WaitUntil([] { return UnreadEvents() == 1; }));
    EXPECT_TRUE(IsConnected(kMac));
}

TEST_F(EncryptedLinkTest, ControllersWithTheirOwnSeedsShareTheHost) {
    WriteSeedFile("02:5A:37:AA:BB:CC sesame\n02:5A:37:DD:EE:FF open\n");
    Start("AA:BB:CC,DD:EE:FF");
    EncryptedPeer first("sesame"), second("open");
    ASSERT_TRUE(first.Connect(port_));
    ASSERT_TRUE(second.Connect(port_));
    ASSERT_TRUE(first.Identify("AA:BB:CC"));
    ASSERT_TRUE(second.Identify("DD:EE:FF"));
    for (EncryptedPeer* peer : {&first, &second}) {
        auto accept = peer->ReadMessage();
        ASSERT_TRUE(accept);
        EXPECT_EQ(*accept, Frame(70));
    }
    ASSERT_TRUE(first.SendMessage(1061, "1;from first;"));
    ASSERT_TRUE(second.SendMessage(1061, "2;from second;"));
    for (EncryptedPeer* peer : {&first, &second}) {
        auto ack = peer->ReadMessage();
        ASSERT_TRUE(ack);
        EXPECT_EQ(*ack, Frame(67));
    }
    ASSERT_TRUE(WaitUntil([] { return UnreadEvents() == 2; }));
    EXPECT_FALSE(LogContains("Error decrypting"));
}

}  // namespace
}  // namespace zanth::test
