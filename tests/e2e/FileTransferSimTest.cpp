// Files against the simulated controller over loopback, through the exports: every size around
// the chunk both ways byte for byte, whole and chunk by chunk; status and delete; commands during
// a stream; a transfer the controller gives up or whose link is reset.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "protocol/Codes.h"
#include "support/Library.h"
#include "tools/sim/Simulator.h"
#include "tools/sim/families/Files.h"
#include "zanth.h"

namespace zanth::test {
namespace {

using namespace std::chrono_literals;
using sim::Files;

constexpr const char* kMac = "AA:00:61";
constexpr size_t kChunk = 4086;

std::string Bytes(size_t size, unsigned seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    // Every byte value, NUL and ';' included.
    for (char& b : bytes) b = static_cast<char>(random() & 0xff);
    return bytes;
}

void WriteFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

struct Response {
    int32_t rspid = 0;
    std::string text;
};

class FileTransferSimTest : public LibraryTest {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        Start(kMac);
        sim::ControllerConfig config;
        config.mac = kMac;
        config.port = port_;
        config.reconnectMinMs = 50;
        config.reconnectMaxMs = 200;
        c_ = &sim_.Add(config);
        sim_.Start();
        ASSERT_TRUE(c_->WaitIdentified(10s));
        ASSERT_TRUE(WaitUntil([] {
            char list[64] = {};
            return GetConnectedControllers(list, sizeof list) == 0 && std::strcmp(list, kMac) == 0;
        }));
        int32_t wait = 20000;
        ASSERT_EQ(RecvWaitTime(1, &wait), 0);
    }
    void TearDown() override {
        sim_.Stop();
        LibraryTest::TearDown();
    }

    Response NextResponse() {
        Response r;
        char text[4117] = {};
        if (!WaitUntil([&] { return GetNextResponse(&r.rspid, text, sizeof text) == 0; }, 20s))
            r.text = "none";
        else
            r.text = text;
        return r;
    }

    Files& Store() { return c_->Family<Files>(); }

    sim::Simulator sim_;
    sim::Controller* c_ = nullptr;
};

TEST_F(FileTransferSimTest, FilesOfEverySizeRoundTripWholeAndByChunk) {
    const std::vector<size_t> sizes = {0, 1, kChunk - 1, kChunk, kChunk + 1, 3 * kChunk, 100000};
    for (size_t size : sizes) {
        SCOPED_TRACE(size);
        const std::string content = Bytes(size, static_cast<unsigned>(size) + 1);
        const std::string path = "/data/f" + std::to_string(size);

        // Whole files: out with SendFile, back with GetFile.
        WriteFile("out.bin", content);
        ASSERT_EQ(SendFile(kMac, path.c_str(), "out.bin"), 0);
        // The caller hears of success when the end chunk is out; the store has it at its 1030.
        ASSERT_TRUE(WaitUntil([&] { return Store().Find(path).has_value(); }));
        EXPECT_EQ(Store().Find(path)->bytes, content);
        ASSERT_EQ(GetFile(kMac, path.c_str(), "in.bin"), 0);
        EXPECT_EQ(ReadFile("in.bin"), content);

        // Chunk by chunk through memory, under another name.
        const std::string chunked = path + ".c";
        size_t at = 0;
        do {
            const size_t n = std::min(kChunk, content.size() - at);
            const int32_t last = at + n == content.size() ? 1 : 0;
            ASSERT_EQ(
                SendData(kMac, chunked.c_str(), content.data() + at, static_cast<int32_t>(n), last),
                0);
            at += n;
        } while (at < content.size());
        ASSERT_TRUE(Store().Find(chunked).has_value());
        EXPECT_EQ(Store().Find(chunked)->bytes, content);
        std::string back;
        char buffer[kChunk];
        int32_t bytesRead = 0;
        int32_t isLast = 0;
        do {
            ASSERT_EQ(GetData(kMac, chunked.c_str(), buffer, sizeof buffer, &bytesRead, &isLast),
                      0);
            back.append(buffer, static_cast<size_t>(bytesRead));
        } while (isLast == 0);
        EXPECT_EQ(back, content);
    }
}

// A firmware-sized file: two MiB out with SendFile and back with RspGetFile, byte for byte. At
// one chunk per Worker turn this takes about 25 s each way.
TEST_F(FileTransferSimTest, TwoMegabytesRoundTripByteForByte) {
    const std::string content = Bytes(2u << 20, 2);
    WriteFile("image.bin", content);
    // The blocking caller waits for the whole stream.
    int32_t wait = 120000;
    ASSERT_EQ(RecvWaitTime(1, &wait), 0);
    ASSERT_EQ(SendFile(kMac, "/fw/image.bin", "image.bin"), 0);
    ASSERT_TRUE(WaitUntil([&] { return Store().Find("/fw/image.bin").has_value(); }));
    EXPECT_TRUE(Store().Find("/fw/image.bin")->bytes == content);

    ASSERT_EQ(RspGetFile(77, kMac, "/fw/image.bin", "back.bin"), 0);
    Response r;
    ASSERT_TRUE(WaitUntil(
        [&] {
            char text[4117] = {};
            if (GetNextResponse(&r.rspid, text, sizeof text) != 0) return false;
            r.text = text;
            return true;
        },
        120s));
    EXPECT_EQ(r.rspid, 77);
    EXPECT_EQ(r.text, "0000;0012;0;");
    EXPECT_TRUE(ReadFile("back.bin") == content);
}

TEST_F(FileTransferSimTest, StatusAndDeleteFollowTheStore) {
    Store().Put("/cfg/a.ini", "x=1\n");
    char permission[4] = {};
    EXPECT_EQ(GetFileStatus(kMac, "/cfg/a.ini", permission, sizeof permission), 0);
    EXPECT_STREQ(permission, "644");
    EXPECT_EQ(SetFileStatus(kMac, "/cfg/a.ini", "600"), 0);
    EXPECT_EQ(GetFileStatus(kMac, "/cfg/a.ini", permission, sizeof permission), 0);
    EXPECT_STREQ(permission, "600");
    EXPECT_EQ(Store().Find("/cfg/a.ini")->permission, "600");
    EXPECT_EQ(ZanthDeleteFile(kMac, "/cfg/a.ini"), 0);
    EXPECT_FALSE(Store().Find("/cfg/a.ini"));
    // Gone: the controller's own result for an unknown record.
    EXPECT_EQ(GetFileStatus(kMac, "/cfg/a.ini", permission, sizeof permission),
              sim::kResultUnknownRecord);
    EXPECT_EQ(ZanthDeleteFile(kMac, "/cfg/a.ini"), sim::kResultUnknownRecord);
    EXPECT_EQ(GetFile(kMac, "/cfg/a.ini", "a.ini"), sim::kResultUnknownRecord);
}

TEST_F(FileTransferSimTest, CommandsDuringAStreamPassOnTheListAndWaitOffIt) {
    const std::string content = Bytes(25 * kChunk, 7);
    WriteFile("big.bin", content);
    Store().Put("/log/small", "abc");
    ASSERT_EQ(RspSendFile(1, kMac, "/up/big", "big.bin"), 0);
    ASSERT_TRUE(c_->WaitCommands(ZANTH_SEND_FILE_MORE, 2, 10s));
    // Controller info (79) is on the punch-through list, an interface reboot (9) is not, and a
    // second transfer waits for the first.
    ASSERT_EQ(RspControllerInfo(2, kMac), 0);
    ASSERT_EQ(RspRebootBoard(3, kMac, 3), 0);
    ASSERT_EQ(RspGetFile(4, kMac, "/log/small", "small.bin"), 0);

    std::vector<int32_t> order;
    for (int i = 0; i < 4; ++i) {
        Response r = NextResponse();
        ASSERT_NE(r.text, "none");
        order.push_back(r.rspid);
        if (r.rspid == 1 || r.rspid == 4) {
            EXPECT_EQ(r.text, "0000;0012;0;");
        } else if (r.rspid == 2) {
            EXPECT_EQ(r.text.substr(0, 5), "1079;");
        }
    }
    EXPECT_EQ(order, (std::vector<int32_t>{2, 1, 3, 4}));
    EXPECT_EQ(Store().Find("/up/big")->bytes, content);
    EXPECT_EQ(ReadFile("small.bin"), "abc");

    // On the controller's side: 79 arrived between chunks, 9 and 33 after the end chunk.
    std::vector<int> codes;
    for (const auto& command : c_->Stats().commands) codes.push_back(command.code);
    auto position = [&](int code) {
        return std::find(codes.begin(), codes.end(), code) - codes.begin();
    };
    EXPECT_LT(position(ZANTH_CONTROLLER_INFO), position(ZANTH_SEND_FILE_END));
    EXPECT_GT(position(ZANTH_REBOOT_INTERFACE), position(ZANTH_SEND_FILE_END));
    EXPECT_GT(position(ZANTH_GET_FILE), position(ZANTH_REBOOT_INTERFACE));
}

TEST_F(FileTransferSimTest, AControllerThatGivesUpEndsTheStreamWithItsNumber) {
    const std::string content = Bytes(5 * kChunk, 3);
    Store().Put("/log/five", content);
    Store().FailAtChunk(3, -120, "Disk error");
    EXPECT_EQ(GetFile(kMac, "/log/five", "five.bin"), -120);
    // The partial file stays: the two chunks before the failure.
    EXPECT_EQ(ReadFile("five.bin"), content.substr(0, 2 * kChunk));

    WriteFile("five.bin", content);
    Store().FailAtChunk(2, -121, "No room");
    ASSERT_EQ(RspSendFile(9, kMac, "/up/five", "five.bin"), 0);
    Response r = NextResponse();
    EXPECT_EQ(r.rspid, 9);
    EXPECT_EQ(r.text, "9980;0023;-121;No room;");
    EXPECT_FALSE(Store().Find("/up/five"));
    // The link goes on.
    EXPECT_EQ(GetFile(kMac, "/log/five", "five2.bin"), 0);
    EXPECT_EQ(ReadFile("five2.bin"), content);
}

TEST_F(FileTransferSimTest, AResetLinkReleasesTheCallerAndLeavesThePartialFile) {
    const std::string content = Bytes(6 * kChunk, 5);
    Store().Put("/log/six", content);
    Store().DropAtChunk(4);
    EXPECT_EQ(GetFile(kMac, "/log/six", "six.bin"), -10003);
    EXPECT_EQ(ReadFile("six.bin"), content.substr(0, 3 * kChunk));

    // The controller comes back; a Rsp stream cut the same way hears "Connection failure". The
    // wait is for the new link's acceptance: until then the listed MAC may still be the ending
    // Worker's, which would take the command down with it.
    ASSERT_TRUE(
        c_->WaitUntil([](const sim::ControllerStats& s) { return s.identifications >= 2; }, 15s));
    ASSERT_TRUE(WaitUntil(
        [] {
            char list[64] = {};
            return GetConnectedControllers(list, sizeof list) == 0 && std::strcmp(list, kMac) == 0;
        },
        15s));
    WriteFile("up.bin", content);
    Store().DropAtChunk(2);
    ASSERT_EQ(RspSendFile(5, kMac, "/up/six", "up.bin"), 0);
    Response r = NextResponse();
    EXPECT_EQ(r.rspid, 5);
    EXPECT_EQ(r.text, "0000;0029;Connection failure;");
    EXPECT_FALSE(Store().Find("/up/six"));
}

}  // namespace
}  // namespace zanth::test
