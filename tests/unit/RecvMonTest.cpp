// The single reply slot between blocking host calls and the Workers: parked replies, time-outs,
// stalled producers, and the drop of a silent controller's Worker.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <string>
#include <thread>

#include "monitors/HandleHashMon.h"
#include "monitors/RecvMon.h"
#include "monitors/ThreadHashMon.h"
#include "platform/Thread.h"
#include "stores/LogMon.h"
#include "support/Library.h"

namespace zanth {
namespace {

using namespace std::chrono_literals;
using test::LogContains;
using test::WaitUntil;
using Clock = std::chrono::steady_clock;
using platform::TERM_MSG;
using platform::WM_WORKER_KILL;

// A whole slot's worth of a reply: the frame, then a pattern up to the last byte.
std::string Reply(const char* frame, char fill) {
    std::string r(kMessageBufferSize, fill);
    std::memcpy(r.data(), frame, std::strlen(frame));
    return r;
}

bool AllZero(const char* buffer) {
    for (int i = 0; i < kMessageBufferSize; ++i) {
        if (buffer[i] != 0) return false;
    }
    return true;
}

// Waits at most `bound` for a future; the slot's waits must never hang a test.
template <class T>
bool ReadyWithin(std::future<T>& f, std::chrono::milliseconds bound) {
    return f.wait_for(bound) == std::future_status::ready;
}

class RecvMonTest : public test::TraceLogTest {
  protected:
    void SetUp() override {
        TraceLogTest::SetUp();
        sendMon = new ThreadHashMon("sendMon");
        workerMon = new HandleHashMon("workerMon", *sendMon);
        recv_ = new RecvMon("recvMon");
        std::memset(dest_, 0x5A, sizeof dest_);
    }
    void TearDown() override {
        delete recv_;
        delete workerMon;
        delete sendMon;
        TraceLogTest::TearDown();
    }
    void SetWait(int32_t ms) { recv_->SetWaitTime(&ms); }

    ThreadHashMon* sendMon = nullptr;
    HandleHashMon* workerMon = nullptr;
    RecvMon* recv_ = nullptr;
    char dest_[kMessageBufferSize];
};

TEST_F(RecvMonTest, WaitTimeIsKeptAndStartsAtFiveMinutes) {
    int32_t wait = 0;
    recv_->GetWaitTime(&wait);
    EXPECT_EQ(wait, 300000);
    SetWait(1234);
    recv_->GetWaitTime(&wait);
    EXPECT_EQ(wait, 1234);
}

TEST_F(RecvMonTest, ParkedReplyIsTakenWithoutWaiting) {
    SetWait(60000);
    std::string reply = Reply("1079;0015;abcde", 'r');
    ASSERT_TRUE(recv_->SetBuffer(reply.data()));
    EXPECT_FALSE(recv_->SlotEmpty());
    auto begin = Clock::now();
    ASSERT_TRUE(recv_->GetBuffer(dest_, "AA:BB:CC", *workerMon));
    EXPECT_LT(Clock::now() - begin, 1s);
    EXPECT_EQ(std::memcmp(dest_, reply.data(), kMessageBufferSize), 0) << "all 4097 bytes";
    EXPECT_TRUE(recv_->SlotEmpty());
}

TEST_F(RecvMonTest, ReplyArrivingDuringTheWaitIsDelivered) {
    SetWait(10000);
    auto taken = std::async(std::launch::async,
                            [&] { return recv_->GetBuffer(dest_, "AA:BB:CC", *workerMon); });
    EXPECT_FALSE(ReadyWithin(taken, 50ms)) << "nothing to take yet";
    std::string reply = Reply("1079;0012;ok", 'q');
    ASSERT_TRUE(recv_->SetBuffer(reply.data()));
    ASSERT_TRUE(ReadyWithin(taken, 5000ms));
    EXPECT_TRUE(taken.get());
    EXPECT_EQ(std::memcmp(dest_, reply.data(), kMessageBufferSize), 0);
}

TEST_F(RecvMonTest, ZeroWaitWithoutReplyFailsAtOnceWithAZeroBuffer) {
    SetWait(0);
    auto begin = Clock::now();
    EXPECT_FALSE(recv_->GetBuffer(dest_, "AA:BB:CC", *workerMon));
    EXPECT_LT(Clock::now() - begin, 1s);
    EXPECT_TRUE(AllZero(dest_));
    EXPECT_TRUE(LogContains("  recvMon [RecvMon::GetBuffer] bufferFull timeout\n"));
    EXPECT_TRUE(recv_->SlotEmpty());
}

TEST_F(RecvMonTest, TimeOutForAMacWithoutWorkerSkipsTheDrop) {
    workerMon->AddWorker("11:22:33", 7);  // another controller's Worker
    SetWait(100);
    auto begin = Clock::now();
    EXPECT_FALSE(recv_->GetBuffer(dest_, "AA:BB:CC", *workerMon));
    auto took = Clock::now() - begin;
    EXPECT_GE(took, 90ms);
    EXPECT_LT(took, 2s) << "no 5-second pause without a Worker to drop";
    EXPECT_TRUE(AllZero(dest_));
    EXPECT_EQ(workerMon->WorkerThreadOf("11:22:33"), 7u);
}

TEST_F(RecvMonTest, SecondProducerWaitsUntilTheSlotIsEmptied) {
    SetWait(5000);
    std::string first = Reply("1079;0011;1", '1');
    std::string second = Reply("1079;0011;2", '2');
    ASSERT_TRUE(recv_->SetBuffer(first.data()));
    auto producer = std::async(std::launch::async, [&] { return recv_->SetBuffer(second.data()); });
    EXPECT_FALSE(ReadyWithin(producer, 200ms)) << "the slot is full";

    ASSERT_TRUE(recv_->GetBuffer(dest_, "AA:BB:CC", *workerMon));
    EXPECT_EQ(std::memcmp(dest_, first.data(), kMessageBufferSize), 0);
    ASSERT_TRUE(ReadyWithin(producer, 5000ms));
    EXPECT_TRUE(producer.get());
    ASSERT_TRUE(recv_->GetBuffer(dest_, "AA:BB:CC", *workerMon));
    EXPECT_EQ(std::memcmp(dest_, second.data(), kMessageBufferSize), 0);
}

// A library thread standing for a Worker; it records what is posted to it.
class FakeWorker {
  public:
    FakeWorker() {
        platform::CreateThread(
            [this] {
                uint32_t m = 0;
                while (!stop_ && platform::GetThreadMessage(&m) == 1) {
                    if (m == WM_WORKER_KILL) told_ = true;
                    if (m == TERM_MSG) return;
                }
            },
            &id_);
    }
    ~FakeWorker() {
        stop_ = true;
        platform::PostThreadMessage(id_, TERM_MSG);
        platform::WaitForLibraryThreads(5s);
    }
    platform::ThreadId Id() const { return id_; }
    bool Told() const { return told_; }

  private:
    platform::ThreadId id_ = 0;
    std::atomic<bool> stop_{false}, told_{false};
};

// The slow path, about five seconds: the silent controller's Worker is told to go and loses its
// entry, and the failed wait frees the slot, throwing away a reply parked meanwhile and letting a
// stalled producer go on.
TEST_F(RecvMonTest, DropOfARegisteredWorkerAndAFailedWaitFreeingTheSlot) {
    FakeWorker silent;
    workerMon->AddWorker("AA:BB:CC", silent.Id());
    workerMon->AddWorker("11:22:33", 99);
    SetWait(0);
    auto begin = Clock::now();
    auto taken = std::async(std::launch::async,
                            [&] { return recv_->GetBuffer(dest_, "aa:bb:cc", *workerMon); });
    ASSERT_TRUE(WaitUntil([&] { return silent.Told(); }, 3s)) << "WM_WORKER_KILL is posted";

    // While the caller sits in the drop step, one reply arrives and a second producer stalls.
    std::string late = Reply("1079;0014;late", 'L');
    std::string next = Reply("1079;0014;next", 'N');
    ASSERT_TRUE(recv_->SetBuffer(late.data()));
    auto producer = std::async(std::launch::async, [&] { return recv_->SetBuffer(next.data()); });
    EXPECT_FALSE(ReadyWithin(producer, 300ms));
    uint8_t flag = 0;
    workerMon->IsConnected("AA:BB:CC", &flag);
    EXPECT_EQ(flag, 1) << "the entry stays for the pause";

    ASSERT_TRUE(ReadyWithin(taken, 10000ms));
    EXPECT_FALSE(taken.get());
    EXPECT_GE(Clock::now() - begin, 4900ms);
    EXPECT_TRUE(AllZero(dest_));
    workerMon->IsConnected("AA:BB:CC", &flag);
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(workerMon->WorkerThreadOf("11:22:33"), 99u) << "only that Worker's entry goes";

    ASSERT_TRUE(ReadyWithin(producer, 5000ms)) << "the failed wait freed the stalled producer";
    EXPECT_TRUE(producer.get());
    SetWait(1000);
    ASSERT_TRUE(recv_->GetBuffer(dest_, "AA:BB:CC", *workerMon));
    EXPECT_EQ(std::memcmp(dest_, next.data(), kMessageBufferSize), 0) << "the late reply was lost";
}

// A controller that identified again during the pause has a new Worker, whose entry stays.
TEST_F(RecvMonTest, DropSparesAWorkerThatReplacedTheSilentOne) {
    FakeWorker silent;
    workerMon->AddWorker("AA:BB:CC", silent.Id());
    SetWait(0);
    auto taken = std::async(std::launch::async,
                            [&] { return recv_->GetBuffer(dest_, "AA:BB:CC", *workerMon); });
    ASSERT_TRUE(WaitUntil([&] { return silent.Told(); }, 3s));
    int32_t error = 0;
    workerMon->RemoveWorker("AA:BB:CC", &error);
    workerMon->AddWorker("AA:BB:CC", 4242);
    // Unloading cuts the pause short; the removal step still follows it.
    platform::BeginUnload();
    ASSERT_TRUE(ReadyWithin(taken, 5000ms));
    platform::EndUnload();
    EXPECT_FALSE(taken.get());
    EXPECT_EQ(workerMon->WorkerThreadOf("AA:BB:CC"), 4242u);
}

}  // namespace
}  // namespace zanth
