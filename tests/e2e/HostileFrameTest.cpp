// Frames a hostile or broken peer sends on a clear link: headers that aren't headers, lengths
// beyond the buffers, bodies cut off by a close. None may write outside a buffer (these run under
// AddressSanitizer), each ends only its own link, and a dead link leaves no thread or socket.

#include <dirent.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/FakeController.h"
#include "support/Library.h"
#include "zanth.h"

namespace zanth::test {
namespace {

constexpr const char* kMac = "AA:BB:CC";

std::string Connected() {
    char list[256] = {};
    GetConnectedControllers(list, sizeof list);
    return list;
}

size_t Entries(const char* dir) {
    size_t n = 0;
    if (DIR* d = ::opendir(dir)) {
        while (::readdir(d) != nullptr) ++n;
        ::closedir(d);
    }
    return n;
}
size_t Threads() {
    return Entries("/proc/self/task");
}
size_t Descriptors() {
    return Entries("/proc/self/fd");
}

// Cuts of `bytes` into pieces of `piece` bytes.
std::vector<size_t> Every(size_t piece, size_t total) {
    std::vector<size_t> cuts;
    for (size_t at = piece; at < total; at += piece) cuts.push_back(at);
    return cuts;
}

class HostileFrameTest : public LibraryTest {
  protected:
    void Join(FakeController& c) {
        ASSERT_TRUE(c.Connect(port_));
        ASSERT_TRUE(c.Identify(kMac));
        ASSERT_TRUE(WaitUntil([] { return Connected() == kMac; }));
    }
    // The library still serves a controller after the attack.
    void ExpectStillServing() {
        FakeController good;
        Join(good);
        ASSERT_EQ(RspControllerInfo(7, kMac), 0);
        EXPECT_EQ(good.ReadFrame(), "0079;0010;");
    }
};

TEST_F(HostileFrameTest, HeadersThatAreNotHeadersEndTheLinkWithoutOverrunningABuffer) {
    Start(kMac);
    const std::string flood(20000, 'x');
    struct Case {
        const char* header;
        bool identified;
        size_t piece;  // 0: all at once
        const char* logged;
    };
    const Case cases[] = {
        {"0001;-100;", false, 0, "is not a frame header"},
        {"0011;abcd;", false, 0, "is not a frame header"},
        {"0011;abcd;", true, 0, "is not a frame header"},
        {"0011;abcd;", false, 1000, "is not a frame header"},
        {"0011;abcd;", true, 1000, "is not a frame header"},
        {"007A;0010;", false, 0, "is not a frame header"},
        {"79;0010;xx", false, 0, "is not a frame header"},
        {"0079;0009;", false, 0, "shorter than its header"},
        {"1061;9999;", true, 0, "exceeds the receive buffer"},
        {"1061;4118;", true, 1000, "exceeds the receive buffer"},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(std::string(k.header) + (k.identified ? " identified" : " fresh") + " piece " +
                     std::to_string(k.piece));
        FakeController c;
        if (k.identified) {
            Join(c);
        } else {
            ASSERT_TRUE(c.Connect(port_));
        }
        const std::string bytes = k.header + flood;
        // The peer may be cut off while it still writes; only the library's side matters.
        if (k.piece == 0) {
            c.SendRaw(bytes);
        } else {
            c.SendInPieces(bytes, Every(k.piece, bytes.size()), 20);
        }
        EXPECT_TRUE(c.WaitClosed(10000));
        EXPECT_TRUE(WaitUntil([] { return Connected().empty(); }));
        EXPECT_TRUE(LogContains(k.logged));
    }
    ExpectStillServing();
}

TEST_F(HostileFrameTest, LargestFrameTheBuffersHoldIsStillRead) {
    Start(kMac);
    FakeController c;
    Join(c);
    // 4117 bytes in all: the working size, header included.
    std::string payload(4107, 'e');
    ASSERT_TRUE(c.SendFrame(1061, payload));
    EXPECT_TRUE(c.ReadFrame());  // the event's acknowledgement
    EXPECT_EQ(Connected(), kMac);
}

TEST_F(HostileFrameTest, PeersThatCloseInsideABodyLeaveNoThreadOrSocketBehind) {
    Start(kMac);
    // The first accept starts the Listener's own work; measure after it.
    {
        FakeController warm;
        ASSERT_TRUE(warm.Connect(port_));
        warm.Close();
    }
    ASSERT_TRUE(
        WaitUntil([] { return LogCount("[Worker::~Worker] Worker thread terminated") == 1; }));
    const size_t threads = Threads();
    const size_t fds = Descriptors();
    constexpr int kPeers = 20;
    for (int i = 0; i < kPeers; ++i) {
        FakeController c;
        ASSERT_TRUE(c.Connect(port_));
        ASSERT_TRUE(c.SendRaw("1061;0050;abc"));
        c.Close();
    }
    EXPECT_TRUE(WaitUntil(
        [] { return LogCount("[Worker::~Worker] Worker thread terminated") == kPeers + 1; },
        std::chrono::seconds(30)));
    EXPECT_TRUE(WaitUntil([&] { return Threads() <= threads && Descriptors() <= fds; }))
        << "threads " << Threads() << " (was " << threads << "), descriptors " << Descriptors()
        << " (was " << fds << ")";
}

TEST_F(HostileFrameTest, RepliesThatNoCommandAskedForAreDroppedNotParked) {
    Start(kMac);
    {
        FakeController rogue;
        Join(rogue);
        // Parked in the one reply slot, the second would hold its Worker until a caller came.
        ASSERT_TRUE(rogue.SendFrame(1079, "stale;"));
        ASSERT_TRUE(rogue.SendFrame(1079, "staler;"));
        ASSERT_TRUE(
            WaitUntil([] { return LogCount("reply with no command waiting for it") == 2; }));
        rogue.Close();
        ASSERT_TRUE(WaitUntil([] { return Connected().empty(); }));
    }
    FakeController good;
    Join(good);
    int32_t wait = 5000;
    ASSERT_EQ(RecvWaitTime(1, &wait), 0);
    std::thread controller([&] {
        EXPECT_EQ(good.ReadFrame(), "0079;0010;");
        good.SendFrame(1079, "fresh;");
    });
    char info[64] = {};
    EXPECT_EQ(ControllerInfo(kMac, info, sizeof info), 0);
    EXPECT_STREQ(info, "fresh;");
    controller.join();
}

}  // namespace
}  // namespace zanth::test
