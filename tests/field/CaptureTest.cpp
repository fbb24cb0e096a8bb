// The simulator's captures: PcapWriter's headers, numbers and segmenting read back from the
// file by a reader of its own, and zanth-sim's wire tap against a scripted host, whose bytes on
// the socket must be exactly the bytes in the capture, on clear and encrypted links.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "protocol/Codes.h"
#include "protocol/MessageUtil.h"
#include "security/Crypto.h"
#include "support/FakeController.h"
#include "support/Library.h"
#include "support/Sandbox.h"
#include "tools/sim/Capture.h"
#include "tools/sim/PcapWriter.h"
#include "tools/sim/Simulator.h"

namespace zanth::test {
namespace {

using namespace std::chrono_literals;
using sim::PcapEndpoint;
using sim::PcapOptions;
using sim::PcapWriter;

constexpr uint8_t kFin = 0x01, kSyn = 0x02, kRst = 0x04, kAck = 0x10;

// One TCP segment of a capture, with what its headers say and whether its checksums hold.
struct Segment {
    uint32_t seconds = 0;
    uint32_t micros = 0;
    std::string etherDst, etherSrc;
    uint32_t ipSrc = 0, ipDst = 0;
    uint16_t portSrc = 0, portDst = 0;
    uint32_t seq = 0, ack = 0;
    uint8_t flags = 0;
    std::string payload;
    bool ipChecksumOk = false;
    bool tcpChecksumOk = false;
};

uint32_t Be16(const std::string& s, size_t at) {
    return (static_cast<uint8_t>(s[at]) << 8) | static_cast<uint8_t>(s[at + 1]);
}
uint32_t Be32(const std::string& s, size_t at) {
    return (Be16(s, at) << 16) | Be16(s, at + 2);
}

uint16_t Checksum(const std::string& bytes, uint32_t sum) {
    for (size_t i = 0; i + 1 < bytes.size(); i += 2) sum += Be16(bytes, i);
    if (bytes.size() % 2) sum += static_cast<uint8_t>(bytes.back()) << 8;
    while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
    return static_cast<uint16_t>(~sum & 0xffff);
}

std::string Hex(const std::string& bytes) {
    std::string out;
    char two[4];
    for (unsigned char c : bytes) {
        std::snprintf(two, sizeof two, "%s%02X", out.empty() ? "" : ":", c);
        out += two;
    }
    return out;
}

// Reads a classic pcap file of Ethernet frames; fails the test on anything else.
std::vector<Segment> ReadPcap(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream all;
    all << in.rdbuf();
    std::string s = all.str();
    std::vector<Segment> out;
    EXPECT_GE(s.size(), 24u);
    if (s.size() < 24) return out;
    uint32_t magic = 0, link = 0;
    std::memcpy(&magic, s.data(), 4);
    std::memcpy(&link, s.data() + 20, 4);
    EXPECT_EQ(magic, 0xa1b2c3d4u);
    EXPECT_EQ(link, 1u);
    size_t at = 24;
    while (at + 16 <= s.size()) {
        uint32_t head[4];
        std::memcpy(head, s.data() + at, 16);
        at += 16;
        EXPECT_EQ(head[2], head[3]);
        EXPECT_LE(at + head[2], s.size());
        if (at + head[2] > s.size()) break;
        std::string p = s.substr(at, head[2]);
        at += head[2];
        Segment g;
        g.seconds = head[0];
        g.micros = head[1];
        g.etherDst = Hex(p.substr(0, 6));
        g.etherSrc = Hex(p.substr(6, 6));
        EXPECT_EQ(Be16(p, 12), 0x0800u);
        size_t ip = 14;
        size_t tcp = ip + 20;
        EXPECT_EQ(Be16(p, ip + 2), p.size() - ip);
        g.ipChecksumOk = Checksum(p.substr(ip, 20), 0) == 0;
        g.ipSrc = Be32(p, ip + 12);
        g.ipDst = Be32(p, ip + 16);
        g.portSrc = static_cast<uint16_t>(Be16(p, tcp));
        g.portDst = static_cast<uint16_t>(Be16(p, tcp + 2));
        g.seq = Be32(p, tcp + 4);
        g.ack = Be32(p, tcp + 8);
        g.flags = static_cast<uint8_t>(p[tcp + 13]);
        g.payload = p.substr(tcp + 20);
        uint32_t pseudo = (g.ipSrc >> 16) + (g.ipSrc & 0xffff) + (g.ipDst >> 16) +
                          (g.ipDst & 0xffff) + 6 + static_cast<uint32_t>(p.size() - tcp);
        g.tcpChecksumOk = Checksum(p.substr(tcp), pseudo) == 0;
        out.push_back(g);
    }
    EXPECT_EQ(at, s.size());
    return out;
}

// The bytes one port sent, in capture order.
std::string SentFrom(const std::vector<Segment>& segments, uint16_t port) {
    std::string out;
    for (const Segment& g : segments)
        if (g.portSrc == port) out += g.payload;
    return out;
}

// Every packet's checksums hold and every data segment's numbers follow on from the one before
// of its side, with the acknowledgement of all the other side has sent.
void ExpectConsistent(const std::vector<Segment>& segments) {
    std::map<uint16_t, uint32_t> next;
    for (size_t i = 0; i < segments.size(); ++i) {
        const Segment& g = segments[i];
        SCOPED_TRACE("packet " + std::to_string(i + 1));
        EXPECT_TRUE(g.ipChecksumOk);
        EXPECT_TRUE(g.tcpChecksumOk);
        if (next.count(g.portSrc)) {
            EXPECT_EQ(g.seq, next[g.portSrc]);
        }
        if ((g.flags & kAck) && next.count(g.portDst)) {
            EXPECT_EQ(g.ack, next[g.portDst]);
        }
        next[g.portSrc] =
            g.seq + static_cast<uint32_t>(g.payload.size()) + ((g.flags & (kSyn | kFin)) ? 1 : 0);
    }
}

PcapEndpoint End(uint32_t ip, uint16_t port, uint8_t last) {
    PcapEndpoint e;
    e.ip = ip;
    e.port = port;
    e.ether = {0x02, 0x5A, 0x37, 0x00, 0x00, last};
    return e;
}

std::string PcapPath(const char* name) {
    return SandboxDir() + name;
}

TEST(PcapWriterTest, HandshakeDataAndCloseCarryNumbersBothSidesAgreeOn) {
    PcapWriter w;
    ASSERT_TRUE(w.Open(PcapPath("a.pcap"), nullptr));
    auto s = w.OpenStream(End(0x7f000001, 40000, 1), End(0x7f000002, 3001, 2));
    w.Send(s, true, "0079;0010;");
    w.Send(s, false, "1079;0014;abc;");
    w.Send(s, true, "0067;0010;");
    w.Close(s, false, false);
    w.Finish();
    ASSERT_FALSE(w.Failed()) << w.Error();

    auto g = ReadPcap(PcapPath("a.pcap"));
    ASSERT_EQ(g.size(), 9u);
    ExpectConsistent(g);
    EXPECT_EQ(g[0].flags, kSyn);
    EXPECT_EQ(g[1].flags, kSyn | kAck);
    EXPECT_EQ(g[1].ack, g[0].seq + 1);
    EXPECT_EQ(g[2].flags, kAck);
    EXPECT_EQ(g[0].portSrc, 40000);
    EXPECT_EQ(g[0].portDst, 3001);
    EXPECT_EQ(g[0].ipSrc, 0x7f000001u);
    EXPECT_EQ(g[0].ipDst, 0x7f000002u);
    EXPECT_EQ(g[0].etherSrc, "02:5A:37:00:00:01");
    EXPECT_EQ(g[0].etherDst, "02:5A:37:00:00:02");
    EXPECT_EQ(g[3].payload, "0079;0010;");
    EXPECT_EQ(g[4].payload, "1079;0014;abc;");
    EXPECT_EQ(g[4].portSrc, 3001);
    EXPECT_EQ(g[5].payload, "0067;0010;");
    // The server ended it: its FIN, the client's FIN, the server's last ACK.
    EXPECT_EQ(g[6].flags, kFin | kAck);
    EXPECT_EQ(g[6].portSrc, 3001);
    EXPECT_EQ(g[7].flags, kFin | kAck);
    EXPECT_EQ(g[7].portSrc, 40000);
    EXPECT_EQ(g[8].flags, kAck);
    EXPECT_EQ(g[8].ack, g[7].seq + 1);
    auto t = w.Totals();
    EXPECT_EQ(t.streams, 1u);
    EXPECT_EQ(t.messages, 3u);
    EXPECT_EQ(t.segments, 3u);
    EXPECT_EQ(t.bytes, 34u);
}

TEST(PcapWriterTest, SplitCutsSegmentsAndMergeGathersOneDirectionUntilTheOtherSpeaks) {
    PcapWriter w(PcapOptions{.splitBytes = 4, .mergeMessages = 3});
    ASSERT_TRUE(w.Open(PcapPath("b.pcap"), nullptr));
    auto s = w.OpenStream(End(0x7f000001, 40001, 1), End(0x7f000001, 3001, 2));
    w.Send(s, true, "0123456789");
    w.Send(s, true, "ab");
    w.Send(s, false, "XY");  // sends the client's two first
    w.Send(s, false, "Z");
    w.Send(s, false, "Q");  // the third of a batch: sent at once
    w.Send(s, true, "c");
    w.Close(s, true, false);  // sends what is gathered before the FIN
    w.Finish();

    auto g = ReadPcap(PcapPath("b.pcap"));
    ExpectConsistent(g);
    std::vector<std::string> data;
    for (size_t i = 3; i < g.size(); ++i)
        if (!g[i].payload.empty()) data.push_back(g[i].payload);
    EXPECT_EQ(data, (std::vector<std::string>{"0123", "4567", "89ab", "XYZQ", "c"}));
    EXPECT_EQ(SentFrom(g, 40001), "0123456789abc");
    EXPECT_EQ(g.back().flags, kAck);
    EXPECT_EQ(w.Totals().segments, 5u);
    EXPECT_EQ(w.Totals().messages, 6u);
}

TEST(PcapWriterTest, ResetIsOneRstAndLaterTrafficOfTheStreamIsDropped) {
    PcapWriter w;
    ASSERT_TRUE(w.Open(PcapPath("c.pcap"), nullptr));
    auto s = w.OpenStream(End(0x7f000001, 40002, 1), End(0x7f000001, 3001, 2));
    w.Send(s, true, "1042;0010;");
    w.Close(s, true, true);
    w.Send(s, true, "late");
    auto second = w.OpenStream(End(0x7f000001, 40003, 1), End(0x7f000001, 3001, 2));
    w.Finish();
    auto g = ReadPcap(PcapPath("c.pcap"));
    ASSERT_EQ(g.size(), 8u);
    EXPECT_EQ(g[4].flags, kRst | kAck);
    EXPECT_EQ(g[4].portSrc, 40002);
    // A new stream starts from numbers of its own.
    EXPECT_NE(g[5].seq, g[0].seq);
    EXPECT_EQ(second, 1u);
}

TEST(PcapWriterTest, TimestampsNeverGoBackEvenIfTheClockDoes) {
    PcapWriter w;
    ASSERT_TRUE(w.Open(PcapPath("d.pcap"), nullptr));
    int64_t micros = 5'000'000;
    w.SetClock([&] {
        micros -= 1000;
        return std::chrono::system_clock::time_point(std::chrono::microseconds(micros));
    });
    auto s = w.OpenStream(End(1, 1, 1), End(2, 2, 2));
    w.Send(s, true, "x");
    w.Finish();
    auto g = ReadPcap(PcapPath("d.pcap"));
    ASSERT_EQ(g.size(), 4u);
    for (const Segment& p : g) {
        EXPECT_EQ(p.seconds, 4u);
        EXPECT_EQ(p.micros, 999000u);
    }
}

TEST(PcapWriterTest, FilesThatCantBeWrittenAreReportedNotIgnored) {
    PcapWriter missing;
    std::string error;
    EXPECT_FALSE(missing.Open(SandboxDir() + "no/such/folder/x.pcap", &error));
    EXPECT_NE(error.find("no/such/folder/x.pcap"), std::string::npos) << error;

    PcapWriter full;
    ASSERT_TRUE(full.Open("/dev/full", &error)) << error;
    auto s = full.OpenStream(End(1, 1, 1), End(2, 2, 2));
    full.Send(s, true, std::string(100000, 'x'));
    full.Finish();
    EXPECT_TRUE(full.Failed());
    EXPECT_NE(full.Error().find("/dev/full"), std::string::npos) << full.Error();
}

// zanth-sim's tap against a scripted host: what the host's socket saw is what the capture holds.
class CaptureTest : public ::testing::Test {
  protected:
    void TearDown() override {
        sim_.Stop();
        capture_.Finish();
    }

    sim::Controller& Start(sim::ControllerConfig config) {
        std::string error;
        EXPECT_TRUE(capture_.Open(PcapPath("sim.pcap"), &error)) << error;
        capture_.Attach(sim_);
        config.reconnect = false;
        sim::Controller& c = sim_.Add(std::move(config));
        sim_.Start();
        return c;
    }

    std::vector<Segment> Finish() {
        sim_.Stop();
        capture_.Finish();
        EXPECT_FALSE(capture_.Writer().Failed()) << capture_.Writer().Error();
        auto g = ReadPcap(PcapPath("sim.pcap"));
        ExpectConsistent(g);
        return g;
    }

    sim::Capture capture_;
    sim::Simulator sim_;
};

TEST_F(CaptureTest, ClearLinkHoldsExactlyTheBytesOfBothDirections) {
    FakeController host;
    int port = host.Listen();
    sim::ControllerConfig config;
    config.mac = "AA:BB:CC";
    config.port = port;
    sim::Controller& c = Start(config);
    ASSERT_TRUE(host.Accept());
    auto identify = host.ReadFrame();
    ASSERT_TRUE(identify);
    // Two frames in one write: the capture shows them as the controller read them, one by one.
    std::string fromHost = Frame(ZANTH_ACCEPT_CONNECTION) + Frame(ZANTH_CONTROLLER_INFO);
    ASSERT_TRUE(host.SendRaw(fromHost));
    auto info = host.ReadFrame();
    ASSERT_TRUE(info);
    ASSERT_TRUE(c.WaitIdentified(5s));
    host.Close();
    ASSERT_TRUE(c.WaitUntil([](const sim::ControllerStats& s) { return !s.identified; }, 5s));

    auto g = Finish();
    ASSERT_GE(g.size(), 3u);
    uint16_t controllerPort = g[0].portSrc;
    EXPECT_EQ(g[0].flags, kSyn);
    EXPECT_EQ(g[0].portDst, port);
    EXPECT_EQ(g[0].etherSrc, "02:5A:37:AA:BB:CC");
    EXPECT_EQ(SentFrom(g, controllerPort), *identify + *info);
    EXPECT_EQ(SentFrom(g, static_cast<uint16_t>(port)), fromHost);
    std::vector<std::string> hostSegments;
    for (const Segment& p : g)
        if (p.portSrc == port && !p.payload.empty()) hostSegments.push_back(p.payload);
    EXPECT_EQ(hostSegments, (std::vector<std::string>{"0070;0010;", "0079;0010;"}));
    // The host closed first.
    auto fin = std::find_if(g.begin(), g.end(), [](const Segment& p) { return p.flags & kFin; });
    ASSERT_NE(fin, g.end());
    EXPECT_EQ(fin->portSrc, port);
}

TEST_F(CaptureTest, EncryptedLinkHoldsTheCipherTextTheHostReceived) {
    FakeController host;
    int port = host.Listen();
    sim::ControllerConfig config;
    config.mac = "AA:BB:CD";
    config.port = port;
    config.seed = "capture-test-seed";
    sim::Controller& c = Start(config);
    ASSERT_TRUE(host.Accept());
    auto identify = host.ReadFrame();
    ASSERT_TRUE(identify);
    ASSERT_EQ(identify->substr(0, 5), "1043;");

    // The host's side of the key, as the library makes it, and a sealed acceptance.
    Crypto crypto;
    MessageUtil util(&crypto);
    unsigned char key[32] = {};
    ASSERT_EQ(util.GenerateKey(identify->substr(0, 200).c_str(), "capture-test-seed", key, 32), 0);
    std::vector<char> sealed(8192);
    int32_t cipherLen = 0;
    std::string accept = Frame(ZANTH_ACCEPT_CONNECTION);
    ASSERT_EQ(util.EncryptMessage(accept.data(), static_cast<int32_t>(accept.size()), sealed.data(),
                                  static_cast<int32_t>(sealed.size()), &cipherLen, key),
              0);
    std::string acceptFrame(sealed.data(), static_cast<size_t>(cipherLen) + 5);
    ASSERT_TRUE(host.SendRaw(acceptFrame));
    ASSERT_TRUE(c.WaitIdentified(5s));
    c.SendEvent(3, "Door held open");
    // The event's sealed frame: a 4-digit total length and ';', then that many bytes in all.
    auto header = host.ReadBytes(5);
    ASSERT_TRUE(header);
    int total = std::stoi(header->substr(0, 4));
    auto rest = host.ReadBytes(static_cast<size_t>(total) - 5);
    ASSERT_TRUE(rest);
    c.Reset();
    ASSERT_TRUE(host.WaitClosed());

    auto g = Finish();
    ASSERT_GE(g.size(), 3u);
    uint16_t controllerPort = g[0].portSrc;
    std::string fromController = SentFrom(g, controllerPort);
    EXPECT_EQ(fromController, *identify + *header + *rest);
    EXPECT_EQ(fromController.find("Door held open"), std::string::npos);
    EXPECT_EQ(SentFrom(g, static_cast<uint16_t>(port)), acceptFrame);
    // The controller's reset ends the stream.
    EXPECT_EQ(g.back().flags, kRst | kAck);
    EXPECT_EQ(g.back().portSrc, controllerPort);
}

TEST_F(CaptureTest, ControllerCalledByTheHostIsTheStreamsServer) {
    sim::ControllerConfig config;
    config.mac = "AA:BB:CE";
    config.listen = true;
    sim::Controller& c = Start(config);
    FakeController host;
    ASSERT_TRUE(host.Connect(c.ListenPort()));
    ASSERT_TRUE(host.SendFrame(ZANTH_CONTACT_CONTROLLER));
    auto identify = host.ReadFrame();
    ASSERT_TRUE(identify);
    ASSERT_TRUE(host.SendFrame(ZANTH_ACCEPT_CONNECTION));
    ASSERT_TRUE(c.WaitIdentified(5s));

    auto g = Finish();
    ASSERT_GE(g.size(), 4u);
    EXPECT_EQ(g[0].flags, kSyn);
    EXPECT_EQ(g[0].portDst, c.ListenPort());
    EXPECT_EQ(g[1].etherSrc, "02:5A:37:AA:BB:CE");
    EXPECT_EQ(SentFrom(g, g[0].portSrc),
              Frame(ZANTH_CONTACT_CONTROLLER) + Frame(ZANTH_ACCEPT_CONNECTION));
    EXPECT_EQ(SentFrom(g, static_cast<uint16_t>(c.ListenPort())), *identify);
    // The simulator's stop ends the link from the controller's side.
    auto fin = std::find_if(g.begin(), g.end(), [](const Segment& p) { return p.flags & kFin; });
    ASSERT_NE(fin, g.end());
    EXPECT_EQ(fin->portSrc, c.ListenPort());
}

}  // namespace
}  // namespace zanth::test
