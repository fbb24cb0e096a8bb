// The Worker's file streaming against a scripted controller: files of every size around the chunk
// go out and come in byte for byte, the controller's 9980 and a lost link end a stream with their
// results, and commands on the punch-through list pass between chunks while others wait.

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "monitors/RecvMon.h"
#include "monitors/ThreadHashMon.h"
#include "protocol/CommandRecord.h"
#include "protocol/MessageUtil.h"
#include "protocol/Text.h"
#include "support/FakeController.h"
#include "support/Library.h"
#include "support/Net.h"
#include "zanth.h"

namespace zanth::test {
namespace {

constexpr const char* kMac = "AA:BB:CC";
constexpr size_t kChunk = 4086;

std::string Connected() {
    char list[256] = {};
    GetConnectedControllers(list, sizeof list);
    return list;
}

std::string Bytes(size_t size, unsigned seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    // Every byte value, NUL and ';' included: chunks are binary.
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

std::string NextResponse(int32_t* rspid) {
    char text[4117] = {};
    if (!WaitUntil([&] { return GetNextResponse(rspid, text, sizeof text) == 0; })) return "none";
    return text;
}

class FileStreamTest : public LibraryTest {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        Start(kMac);
        ASSERT_TRUE(c_.Connect(port_));
        ASSERT_TRUE(c_.Identify(kMac));
        ASSERT_TRUE(WaitUntil([] { return Connected() == kMac; }));
    }
    // What GetFile and SendFile hand the Worker: the framed request and the two paths.
    void Queue(int code, const std::string& gatewayPath, const std::string& pcPath, int32_t rspid,
               int32_t rspfunc = 1) {
        CommandRecord record{};
        record.rspfunc = rspfunc;
        record.rspid = rspid;
        const std::string payload = gatewayPath + ";";
        MessageUtil util;
        ASSERT_EQ(util.BuildMessage(code, payload.data(), payload.size(), record.message,
                                    kMessageBufferSize),
                  0);
        CopyBounded(record.gatewayPathFile, gatewayPath.c_str(), sizeof record.gatewayPathFile);
        CopyBounded(record.pcPathFile, pcPath.c_str(), sizeof record.pcPathFile);
        test::Shared().sendMon->Put(record, kMac);
    }
    // The frame's payload, or "" when the frame isn't of `code`.
    std::string ExpectFrame(int code) {
        auto frame = c_.ReadFrame();
        if (!frame || frame->size() < 10 || std::stoi(frame->substr(0, 4)) != code) {
            ADD_FAILURE() << "expected code " << code << ", got " << (frame ? *frame : "nothing");
            return "";
        }
        return frame->substr(10);
    }
    FakeController c_;
};

TEST_F(FileStreamTest, FilesOfEverySizeAroundTheChunkRoundTripByteForByte) {
    int32_t rspid = 100;
    for (size_t size : {size_t{0}, size_t{1}, kChunk - 1, kChunk, kChunk + 1, 3 * kChunk}) {
        SCOPED_TRACE(size);
        const std::string content = Bytes(size, static_cast<unsigned>(size));

        // Host to controller: 30, then a 31 per full chunk and a short (maybe empty) 32.
        WriteFile("out.bin", content);
        Queue(30, "/cfg/out.bin", "out.bin", ++rspid);
        EXPECT_EQ(ExpectFrame(30), "/cfg/out.bin;");
        std::string received;
        for (;;) {
            ASSERT_TRUE(c_.SendFrame(1030, "0;"));
            auto frame = c_.ReadFrame();
            ASSERT_TRUE(frame);
            const int code = std::stoi(frame->substr(0, 4));
            received += frame->substr(10);
            if (code == 32) break;
            ASSERT_EQ(code, 31);
            EXPECT_EQ(frame->size() - 10, kChunk);
        }
        EXPECT_EQ(received, content);
        int32_t got = 0;
        EXPECT_EQ(NextResponse(&got), "0000;0012;0;");
        EXPECT_EQ(got, rspid);
        ASSERT_TRUE(c_.SendFrame(1030, "0;"));  // the end chunk's own reply closes the stream

        // Controller to host: 1033 per chunk with a 34 back each time, 1034 for the last.
        Queue(33, "/log/in.bin", "in.bin", ++rspid);
        EXPECT_EQ(ExpectFrame(33), "/log/in.bin;");
        size_t at = 0;
        while (content.size() - at > kChunk) {
            ASSERT_TRUE(c_.SendFrame(1033, content.substr(at, kChunk)));
            at += kChunk;
            EXPECT_EQ(ExpectFrame(34), "");
        }
        ASSERT_TRUE(c_.SendFrame(1034, content.substr(at)));
        EXPECT_EQ(NextResponse(&got), "0000;0012;0;");
        EXPECT_EQ(got, rspid);
        EXPECT_EQ(ReadFile("in.bin"), content);
    }
}

TEST_F(FileStreamTest, BlockingRoadGetsBareDecimalsAndAMissingFileIsNeverAsked) {
    // A local file that can't be opened: -10007, and nothing goes to the controller.
    int32_t wait = 10000;
    ASSERT_EQ(RecvWaitTime(1, &wait), 0);
    Queue(30, "/cfg/x", "no/such/dir/x.bin", 0, 0);
    char slot[4118] = {};
    ASSERT_TRUE(test::Shared().recvMon->GetBuffer(slot, kMac, *test::Shared().workerMon));
    EXPECT_STREQ(slot, "-10007");
    EXPECT_TRUE(c_.Silent(300));
}

TEST_F(FileStreamTest, ControllerErrorEndsTheStreamWithItsResultAndKeepsThePartialFile) {
    Queue(33, "/log/err.bin", "err.bin", 9);
    EXPECT_EQ(ExpectFrame(33), "/log/err.bin;");
    ASSERT_TRUE(c_.SendFrame(1033, std::string(kChunk, 'a')));
    EXPECT_EQ(ExpectFrame(34), "");
    ASSERT_TRUE(c_.SendFrame(9980, "-1204;disk full;"));
    int32_t got = 0;
    // The Rsp road hands the controller's own message on.
    EXPECT_EQ(NextResponse(&got), Frame(9980, "-1204;disk full;"));
    EXPECT_EQ(got, 9);
    EXPECT_EQ(ReadFile("err.bin"), std::string(kChunk, 'a'));
    EXPECT_TRUE(LogContains("[Worker::Run] file transfer error result=-1204 err="));
    // The stream is over: the next command goes straight out.
    ASSERT_EQ(RspControllerInfo(10, kMac), 0);
    EXPECT_EQ(ExpectFrame(79), "");
}

// A 9980 in place of the 1030 that closes a SendFile ends the stream in hand (last chunk to
// idle), so that the link's next stream runs from its start: its first 1030 asks for a chunk.
TEST_F(FileStreamTest, ErrorInPlaceOfTheLastReplyLeavesNothingForTheNextStream) {
    const std::string content = Bytes(10, 10);
    WriteFile("short.bin", content);
    Queue(30, "/cfg/short.bin", "short.bin", 30);
    EXPECT_EQ(ExpectFrame(30), "/cfg/short.bin;");
    ASSERT_TRUE(c_.SendFrame(1030, "0;"));
    EXPECT_EQ(ExpectFrame(32), content);
    int32_t got = 0;
    EXPECT_EQ(NextResponse(&got), "0000;0012;0;");
    ASSERT_TRUE(c_.SendFrame(9980, "-1204;disk full;"));
    EXPECT_EQ(NextResponse(&got), Frame(9980, "-1204;disk full;"));

    Queue(30, "/cfg/again.bin", "short.bin", 31);
    EXPECT_EQ(ExpectFrame(30), "/cfg/again.bin;");
    ASSERT_TRUE(c_.SendFrame(1030, "0;"));
    EXPECT_EQ(ExpectFrame(32), content) << "the next stream sends its chunk";
    EXPECT_EQ(NextResponse(&got), "0000;0012;0;");
    EXPECT_EQ(got, 31);
}

TEST_F(FileStreamTest, LinkResetMidStreamReleasesTheCallerAndLeavesThePartialFile) {
    if (net::UnderWine()) GTEST_SKIP() << "a peer under Wine can't reset its link";
    Queue(33, "/log/cut.bin", "cut.bin", 11);
    EXPECT_EQ(ExpectFrame(33), "/log/cut.bin;");
    ASSERT_TRUE(c_.SendFrame(1033, "first piece"));
    EXPECT_EQ(ExpectFrame(34), "");
    c_.Reset();
    int32_t got = 0;
    EXPECT_EQ(NextResponse(&got), "0000;0029;Connection failure;");
    EXPECT_EQ(got, 11);
    EXPECT_EQ(ReadFile("cut.bin"), "first piece");
    EXPECT_TRUE(WaitUntil([] { return Connected().empty(); }));
}

TEST_F(FileStreamTest, PunchThroughCommandsPassBetweenChunksAndOthersWaitForTheEnd) {
    WriteFile("big.bin", Bytes(3 * kChunk, 3));
    Queue(30, "/fw/big.bin", "big.bin", 20);
    EXPECT_EQ(ExpectFrame(30), "/fw/big.bin;");
    // 79 (controller info) is on the punch-through list; 9 (interface reboot) is not.
    ASSERT_EQ(RspRebootBoard(21, kMac, 4), 0);
    ASSERT_EQ(RspControllerInfo(22, kMac), 0);
    ASSERT_TRUE(WaitUntil([] { return test::Shared().sendMon->CountFor(kMac) == 0; }));
    EXPECT_EQ(ExpectFrame(79), "") << "the punch-through command didn't overtake the stream";
    ASSERT_TRUE(c_.SendFrame(1079, "info;"));
    int32_t got = 0;
    EXPECT_EQ(NextResponse(&got), Frame(1079, "info;"));
    EXPECT_EQ(got, 22);
    for (int code : {31, 31, 31, 32}) {
        ASSERT_TRUE(c_.SendFrame(1030, "0;"));
        ASSERT_EQ(ExpectFrame(code).size(), code == 31 ? kChunk : 0u);
    }
    EXPECT_EQ(NextResponse(&got), "0000;0012;0;");
    EXPECT_TRUE(c_.Silent(200)) << "the queued reboot went out before the stream's end";
    ASSERT_TRUE(c_.SendFrame(1030, "0;"));
    EXPECT_EQ(ExpectFrame(9), "4;");
}

}  // namespace
}  // namespace zanth::test
