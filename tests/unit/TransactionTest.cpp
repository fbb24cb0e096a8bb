// The command transaction as a host sees it, with the test standing in for the controller's
// Worker: it takes the record from sendMon and answers through recvMon or responseMon.

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <future>
#include <string>

#include "monitors/CharIntQueueMon.h"
#include "monitors/HandleHashMon.h"
#include "monitors/RecvMon.h"
#include "monitors/ThreadHashMon.h"
#include "support/FakeController.h"
#include "support/Library.h"
#include "zanth.h"

namespace zanth::test {
namespace {

constexpr const char* kMac = "AA:BB:CC";
constexpr uint32_t kStandInThread = 4242;

class TransactionTest : public LibraryTest {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        ASSERT_EQ(SetValidControllers(kMac), 0);
        test::Shared().workerMon->AddWorker(kMac, kStandInThread);
    }

    // The record the method queued for the controller.
    CommandRecord TakeCommand() {
        CommandRecord record{};
        int32_t error = -1;
        EXPECT_TRUE(WaitUntil([&] {
            test::Shared().sendMon->Get(&record, kMac, &error);
            return error == 0;
        }));
        return record;
    }

    // What a Worker does with a reply to a blocking caller.
    static void Reply(const std::string& frame) {
        char slot[kMessageBufferSize] = {};
        std::memcpy(slot, frame.data(), frame.size());
        test::Shared().recvMon->SetBuffer(slot);
    }

    // Runs a blocking export on its own thread, serves it as the controller, returns its result.
    template <class Call>
    int32_t Serve(Call call, const std::string& reply, std::string* sent = nullptr) {
        auto pending = std::async(std::launch::async, call);
        CommandRecord record = TakeCommand();
        if (sent) *sent = record.message;
        EXPECT_EQ(record.rspfunc, 0);
        Reply(reply);
        return pending.get();
    }
};

TEST_F(TransactionTest, ChecksComeInTheirOrder) {
    // Not valid wins over not connected, which wins over a bad argument; no message goes out.
    EXPECT_EQ(RebootBoard("11:22:33", 99), -10004);
    ASSERT_EQ(SetValidControllers("AA:BB:CC,11:22:33"), 0);
    EXPECT_EQ(RebootBoard("11:22:33", 99), -10003);
    EXPECT_EQ(RebootBoard(kMac, 33), -10002);
    EXPECT_EQ(RebootBoard(kMac, -1), -10002);
    EXPECT_EQ(test::Shared().sendMon->CountFor(kMac), 0);
    EXPECT_TRUE(LogContains("[Master::RebootBoard] target value must be between 0 and 32"));
    EXPECT_EQ(LogCount("[Master::RebootBoard] target value must be between"), 2)
        << "a check that never ran is not logged";
}

TEST_F(TransactionTest, ControllerInfoFramesAndCopiesTheReply) {
    char info[32];
    std::memset(info, 'x', sizeof info);
    std::string sent;
    int32_t rc = Serve([&] { return ControllerInfo("aa:bb:cc", info, sizeof info); },
                       "1079;0020;Zanth;4.2;", &sent);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(sent, "0079;0010;");
    EXPECT_STREQ(info, "Zanth;4.2;");
}

TEST_F(TransactionTest, ControllerInfoTooSmallBufferIsClearedAndRefused) {
    char info[10];
    std::memset(info, 'x', sizeof info);
    // Ten bytes of payload need eleven with the terminator.
    EXPECT_EQ(Serve([&] { return GatewayInfo(kMac, info, sizeof info); }, "1079;0020;Zanth;4.2;"),
              -10006);
    for (char c : info) EXPECT_EQ(c, '\0');
}

TEST_F(TransactionTest, RspFormReturnsAtOnceAndLeavesTheSlotAlone) {
    EXPECT_EQ(RspControllerInfo(77, kMac), 0);
    CommandRecord record = TakeCommand();
    EXPECT_EQ(record.rspfunc, 1);
    EXPECT_EQ(record.rspid, 77);
    EXPECT_STREQ(record.message, "0079;0010;");
    EXPECT_TRUE(test::Shared().recvMon->SlotEmpty());
}

TEST_F(TransactionTest, RebootBoardPayloadsAndReplies) {
    std::string sent;
    EXPECT_EQ(Serve([] { return RebootBoard(kMac, 7); }, "1009;0012;0;", &sent), 0);
    EXPECT_EQ(sent, "0009;0012;7;");
    EXPECT_EQ(Serve([] { return RebootBoard2(kMac, 31); }, "1096;0013;12;", &sent), 12);
    EXPECT_EQ(sent, "0096;0013;31;");
}

TEST_F(TransactionTest, RebootOfTheControllerIsNotAwaited) {
    // No reply comes; the call must return at once with the result of the queueing.
    EXPECT_EQ(RebootBoard(kMac, 32), 0);
    EXPECT_STREQ(TakeCommand().message, "0050;0010;");
    EXPECT_EQ(RebootBoard2(kMac, 32), 0);
    EXPECT_STREQ(TakeCommand().message, "0096;0013;32;");
}

TEST_F(TransactionTest, ControllerResultsAreMapped) {
    EXPECT_EQ(Serve([] { return RebootBoard(kMac, 1); }, "1009;0015;-100;"), -100);
    EXPECT_EQ(Serve([] { return RebootBoard(kMac, 1); }, "1009;0013;-1;"), -10001);
    EXPECT_EQ(Serve([] { return RebootBoard(kMac, 1); }, "1009;0014;-99;"), -10001);
    EXPECT_EQ(Serve([] { return RebootBoard(kMac, 1); }, "1009;0012;5;"), 5);
    EXPECT_TRUE(LogContains("[Master::RebootBoard] rslt=-100"));
}

TEST_F(TransactionTest, EmptyPayloadWhereAResultIsExpected) {
    EXPECT_EQ(Serve([] { return RebootBoard(kMac, 1); }, "1009;0010;"), -10011);
}

TEST_F(TransactionTest, UnexpectedCodesAndProtocolErrors) {
    EXPECT_EQ(Serve([] { return RebootBoard(kMac, 1); }, "1096;0012;0;"), -10010);
    // The record repeats the method's code line, with the raw reply as its second text.
    EXPECT_TRUE(
        LogContains("[Master::RebootBoard] code=1096\n                        1096;0012;0;"));
    EXPECT_EQ(Serve([] { return RebootBoard(kMac, 1); }, "9910;0010;"), -10010);
    EXPECT_TRUE(LogContains("[Master::RebootBoard] Invalid code error, recv:"));
    EXPECT_EQ(Serve([] { return RebootBoard(kMac, 1); }, "9920;0010;"), -10030);
    EXPECT_TRUE(LogContains("[Master::RebootBoard] Unimplemented code error, recv:"));
    // The text that releases a caller when the connection ended.
    EXPECT_EQ(Serve([] { return RebootBoard(kMac, 1); }, "9990;0010;"), -10010);
}

TEST_F(TransactionTest, IncompleteReplyIsNoReply) {
    EXPECT_EQ(Serve([] { return RebootBoard(kMac, 1); }, "1009;0015;0;"), -10005);
}

TEST_F(TransactionTest, WaitTimeZeroGivesUpAndDropsTheController) {
    int32_t wait = 0;
    ASSERT_EQ(RecvWaitTime(1, &wait), 0);
    auto start = std::chrono::steady_clock::now();
    char info[32];
    EXPECT_EQ(ControllerInfo(kMac, info, sizeof info), -10005);
    auto took = std::chrono::steady_clock::now() - start;
    // The drop of the controller's Worker costs five seconds inside the call.
    EXPECT_GE(took, std::chrono::milliseconds(4900));
    EXPECT_EQ(ControllerInfo(kMac, info, sizeof info), -10003) << "the controller reads as gone";
    EXPECT_TRUE(LogContains("[RecvMon::GetBuffer] bufferFull timeout"));
}

TEST_F(TransactionTest, LateReplyIsTakenByTheNextCaller) {
    // A reply parked after its caller gave up stays in the one slot; only the code check of
    // the next caller stands between it and a wrong answer.
    Reply("1079;0015;late;");
    std::string sent;
    EXPECT_EQ(Serve([] { return RebootBoard(kMac, 3); }, "1009;0012;0;", &sent), -10010);
    EXPECT_EQ(sent, "0009;0012;3;");
    // The real reply is now parked for whoever asks next.
    EXPECT_FALSE(test::Shared().recvMon->SlotEmpty());
}

TEST_F(TransactionTest, WaitTimeBoundsAndModes) {
    int32_t value = 600001;
    EXPECT_EQ(RecvWaitTime(1, &value), -10002);
    EXPECT_TRUE(LogContains("[Master::WaitTime] wait time must be between 0 and 600000"));
    value = -1;
    EXPECT_EQ(RecvWaitTime(1, &value), -10002);
    value = 600000;
    EXPECT_EQ(RecvWaitTime(1, &value), 0);
    value = 0;
    EXPECT_EQ(RecvWaitTime(0, &value), 0);
    EXPECT_EQ(value, 600000);
    EXPECT_EQ(RecvWaitTime(2, &value), -10002);
    EXPECT_TRUE(LogContains("[Master::WaitTime] mode value must be between 0 and 1"));
}

TEST_F(TransactionTest, TerminateQueuesTheTerminateCommand) {
    EXPECT_EQ(Terminate(kMac), 0);
    EXPECT_STREQ(TakeCommand().message, "9990;0010;");
    EXPECT_TRUE(LogContains("[Master::Terminate] Invoked"));
    ASSERT_EQ(SetValidControllers("AA:BB:CC,11:22:33"), 0);
    EXPECT_EQ(Terminate("11:22:33"), -10003);
}

TEST_F(TransactionTest, ValidListChangeTerminatesWorkersNoLongerListed) {
    test::Shared().workerMon->AddWorker("11:22:33", kStandInThread + 1);
    ASSERT_EQ(SetValidControllers("11:22:33"), 0);
    EXPECT_STREQ(TakeCommand().message, "9990;0010;");
    EXPECT_EQ(test::Shared().sendMon->CountFor("11:22:33"), 0);
}

TEST_F(TransactionTest, RecheckLookupCardSendsTheTextVerbatim) {
    std::string sent;
    EXPECT_EQ(Serve([] { return RecheckLookupCard(kMac, "1;2"); }, "1075;0012;0;", &sent), 0);
    EXPECT_EQ(sent, "0075;0013;1;2");
    EXPECT_TRUE(LogContains("[Master::RecheckLookupCard] rslt=0"));
}

TEST_F(TransactionTest, RequestPinReturnsZeroWhateverTheReply) {
    std::string sent;
    EXPECT_EQ(Serve([] { return RequestPin(kMac, 1, 22, 333); }, "9910;0010;", &sent), 0);
    EXPECT_EQ(sent, "0100;0019;1;22;333;");
    EXPECT_TRUE(LogContains("[Master::RequestPin] code=9910, data 9910;0010;"));
    EXPECT_EQ(Serve([] { return RequestPin(kMac, 0, 0, 0); }, "1100;0013;-5;"), 0);
}

TEST_F(TransactionTest, SendPostAccessMsgDoesNotWait) {
    EXPECT_EQ(SendPostAccessMsg(kMac, "door;1;"), 0);
    EXPECT_STREQ(TakeCommand().message, "0093;0017;door;1;");
    std::string huge(5000, 'x');
    EXPECT_EQ(SendPostAccessMsg(kMac, huge.c_str()), -10006);
}

TEST_F(TransactionTest, PayloadOfTheLargestFrameGoesAndOneByteMoreNothingIsQueued) {
    // The host's own text is the whole payload: 4087 bytes fill a frame.
    std::string largest(4087, 'x');
    EXPECT_EQ(RspRecheckLookupCard(1, kMac, largest.c_str()), 0);
    EXPECT_EQ(std::strlen(TakeCommand().message), 4097u);
    std::string over = largest + "y";
    EXPECT_EQ(RspRecheckLookupCard(1, kMac, over.c_str()), -10006);
    EXPECT_EQ(SendPostAccessMsg(kMac, over.c_str()), -10006);
    EXPECT_EQ(test::Shared().sendMon->CountFor(kMac), 0);
}

TEST_F(TransactionTest, ChecksCarryTheirMethodsName) {
    EXPECT_EQ(RspRebootBoard2(3, kMac, 33), -10002);
    EXPECT_TRUE(LogContains("[Master::RebootBoard2] target value must be between 0 and 32"));
    EXPECT_EQ(test::Shared().sendMon->CountFor(kMac), 0);
}

TEST_F(TransactionTest, RspRepliesAreTaggedInTheResponseQueue) {
    // What a Worker does with an Rsp reply; the host reads it back whole, framing included.
    const char reply[] = "1075;0012;0;";
    test::Shared().responseMon->Add(31, reply, sizeof reply);
    int32_t count = 0;
    ASSERT_EQ(GetNumberResponse(&count), 0);
    EXPECT_EQ(count, 1);
    int32_t rspid = 0;
    char buffer[64];
    ASSERT_EQ(GetNextResponse(&rspid, buffer, sizeof buffer), 0);
    EXPECT_EQ(rspid, 31);
    EXPECT_STREQ(buffer, reply);
    EXPECT_EQ(GetNextResponse(&rspid, buffer, sizeof buffer), -10009);
}

TEST_F(TransactionTest, PollingWithoutABufferTakesNothing) {
    const char reply[] = "1075;0012;0;";
    test::Shared().responseMon->Add(5, reply, sizeof reply);
    int32_t rspid = 0;
    EXPECT_EQ(GetNextResponse(&rspid, nullptr, 100), -10002);
    EXPECT_EQ(GetNextResponse(nullptr, nullptr, 0), -10002);
    int32_t count = 0;
    ASSERT_EQ(GetNumberResponse(&count), 0);
    EXPECT_EQ(count, 1) << "the reply is still there";
    EXPECT_EQ(GetNextLookup(nullptr, 10), -10002);
    EXPECT_EQ(GetNumberLookups(nullptr), -10002);
}

TEST(LibraryFrame, VersionAndDebugLevel) {
    LoadLibrary();
    char version[16];
    EXPECT_EQ(GetDLLVersion(version, 8), -10006);
    EXPECT_EQ(GetDLLVersion(version, 9), 0);
    EXPECT_STREQ(version, "2.6.0.10");
    int32_t level = 76;
    EXPECT_EQ(DebugLevel(1, &level), -10002);
    EXPECT_EQ(DebugLevel(0, &level), 0);
    EXPECT_EQ(level, 50);
    EXPECT_EQ(DebugLevel(3, &level), -10002);
    UnloadLibrary();
}

TEST(LibraryFrame, InitializationChecksItsPort) {
    LoadLibrary();
    EXPECT_EQ(Initialization(1024, nullptr, nullptr), -10002);
    EXPECT_EQ(Initialization(65536, nullptr, nullptr), -10002);
    EXPECT_TRUE(LogContains("[Master::Initialization] port value must be between 1025 and 65535"));
    EXPECT_EQ(platform::LiveThreadCount(), 0u) << "a refused port starts no thread";
    UnloadLibrary();
}

}  // namespace
}  // namespace zanth::test
