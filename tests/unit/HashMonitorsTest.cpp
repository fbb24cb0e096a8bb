// The hash table and the three monitors that index threads and outbound traffic: the thread
// register, the Worker table and the post box of commands.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "monitors/HandleHashMon.h"
#include "monitors/HandleMon.h"
#include "monitors/HashTable.h"
#include "monitors/ThreadHashMon.h"
#include "monitors/ValidMon.h"
#include "platform/Thread.h"
#include "stores/LogMon.h"
#include "support/Library.h"

namespace zanth {
namespace {

using namespace std::chrono_literals;
using platform::TERM_MSG;
using platform::WM_WORKER_KILL;
using test::LogContains;
using test::LogCount;
using test::LogText;
using test::WaitUntil;

// A library thread that collects its mailbox until it is killed or told TERM_MSG.
class MailboxThread {
  public:
    MailboxThread() {
        EXPECT_EQ(platform::CreateThread(
                      [this] {
                          platform::SetKillHook([this] { hooked_ = true; });
                          ready_ = true;
                          for (;;) {
                              if (platform::ThisThreadKilled()) {
                                  killed_ = true;
                                  break;
                              }
                              uint32_t m = 0;
                              if (platform::PeekThreadMessage(&m)) {
                                  if (m == TERM_MSG) break;
                                  last_ = m;
                              }
                              platform::Sleep(2);
                          }
                          done_ = true;
                      },
                      &id_),
                  0);
        EXPECT_TRUE(WaitUntil([this] { return ready_.load(); }));
    }
    ~MailboxThread() {
        platform::PostThreadMessage(id_, TERM_MSG);
        WaitUntil([this] { return done_.load(); }, 5s);
    }
    platform::ThreadId Id() const { return id_; }
    uint32_t Last() const { return last_; }
    bool Killed() const { return killed_; }
    bool Hooked() const { return hooked_; }

  private:
    platform::ThreadId id_ = 0;
    std::atomic<bool> ready_{false}, killed_{false}, hooked_{false}, done_{false};
    std::atomic<uint32_t> last_{0};
};

// The monitors these tests share, built as the library's context builds them, with a
// trace-level log.
class HashMonTest : public test::TraceLogTest {
  protected:
    void SetUp() override {
        TraceLogTest::SetUp();
        sendMon = new ThreadHashMon("sendMon");
        validMon = new ValidMon("validMon");
        workerMon = new HandleHashMon("workerMon", *sendMon);
    }
    void TearDown() override {
        // Every mailbox thread has ended by now; this joins them.
        EXPECT_TRUE(platform::WaitForLibraryThreads(std::chrono::seconds(5)));
        delete workerMon;
        workerMon = nullptr;
        delete validMon;
        validMon = nullptr;
        delete sendMon;
        sendMon = nullptr;
        TraceLogTest::TearDown();
    }
    ThreadHashMon* sendMon = nullptr;
    ValidMon* validMon = nullptr;
    HandleHashMon* workerMon = nullptr;

    // The one terminate command queued for `mac`, or "" when there is none; a second one fails.
    std::string TakeCommand(const char* mac) {
        CommandRecord record;
        std::memset(&record, 'Z', sizeof record);
        int32_t error = 0;
        sendMon->Get(&record, mac, &error);
        if (error != 0) return "";
        EXPECT_EQ(record.rspfunc, 0);
        EXPECT_EQ(record.rspid, 0);
        EXPECT_STREQ(record.gatewayPathFile, "");
        EXPECT_STREQ(record.pcPathFile, "");
        return record.message;
    }
};

TEST(HashTable, SameKeyTwiceKeepsBothAndTheOlderComesFirst) {
    HashTable<std::string> table(19);
    table.Insert("first", 0xAABBCC);
    table.Insert("other", 0xAABBCC + 19);  // same bucket, another key
    table.Insert("second", 0xAABBCC);
    ASSERT_NE(table.Find(0xAABBCC), nullptr);
    EXPECT_EQ(*table.Find(0xAABBCC), "first");
    EXPECT_EQ(table.Count(0xAABBCC), 2);

    std::string out;
    ASSERT_TRUE(table.Remove(0xAABBCC, &out));
    EXPECT_EQ(out, "first");
    ASSERT_TRUE(table.Remove(0xAABBCC, &out));
    EXPECT_EQ(out, "second");
    EXPECT_FALSE(table.Remove(0xAABBCC, &out));
    ASSERT_NE(table.Find(0xAABBCC + 19), nullptr);
    EXPECT_EQ(*table.Find(0xAABBCC + 19), "other");
}

TEST(HashTable, PositionsPopsAndTheDefaultBucketCount) {
    EXPECT_EQ(HashTable<int>(0).BucketCount(), 13);
    EXPECT_EQ(HashTable<int>(-4).BucketCount(), 13);

    HashTable<int> table(19);
    table.Insert(10, 2);
    table.Insert(11, 21);  // bucket 2 as well
    ASSERT_NE(table.At(2, 1), nullptr);
    EXPECT_EQ(*table.At(2, 1), 11);
    ASSERT_NE(table.At(21, 0), nullptr) << "the bucket is taken modulo the count";
    EXPECT_EQ(*table.At(21, 0), 10);
    EXPECT_EQ(table.At(2, 2), nullptr);

    int out = 0;
    volatile int32_t outside = 21;  // kept opaque: the compiler would check the bound itself
    EXPECT_FALSE(table.Pop(outside, &out)) << "pop takes the bucket as it is";
    ASSERT_TRUE(table.Pop(2, &out));
    EXPECT_EQ(out, 10);
    ASSERT_TRUE(table.Pop(2, &out));
    EXPECT_EQ(out, 11);
    EXPECT_FALSE(table.Pop(2, &out));
}

TEST_F(HashMonTest, HandleMonStopBytesAndRemoval) {
    HandleMon handles("handleMon");
    uint8_t flag = 0;
    handles.ShouldStop("lookup", &flag);
    EXPECT_EQ(flag, 1) << "a name never registered is told to stop";

    handles.Add("lookup", 0);
    handles.Add("keypad", 0);
    handles.Add("alarm", 0);
    handles.ShouldStop("lookup", &flag);
    EXPECT_EQ(flag, 0);
    int32_t index = 0;
    handles.SetStop("keypad", 1, &index);
    EXPECT_EQ(index, 1);
    handles.ShouldStop("keypad", &flag);
    EXPECT_EQ(flag, 1);
    handles.ShouldStop("lookup", &flag);
    EXPECT_EQ(flag, 0) << "the stop byte is per thread";
    handles.SetStop("event", 1, &index);
    EXPECT_EQ(index, -10021);
    handles.IsRunning("alarm", &flag);
    EXPECT_EQ(flag, 1);
    handles.IsRunning("Alarm", &flag);
    EXPECT_EQ(flag, 0) << "names compare exactly";

    handles.Remove("lookup", &index);
    EXPECT_EQ(index, 0);
    handles.Remove("alarm", &index);
    EXPECT_EQ(index, 1) << "later entries moved down";
    handles.Remove("alarm", &index);
    EXPECT_EQ(index, -10021);

    // The terminate byte stops everybody.
    handles.ShouldStop("keypad", &flag);
    handles.SetStop("keypad", 0, &index);
    handles.ShouldStop("keypad", &flag);
    EXPECT_EQ(flag, 0);
    handles.SetTerminating(1);
    handles.IsTerminating(&flag);
    EXPECT_EQ(flag, 1);
    handles.ShouldStop("keypad", &flag);
    EXPECT_EQ(flag, 1);
    handles.SetTerminating(0);
    handles.ShouldStop("keypad", &flag);
    EXPECT_EQ(flag, 0);
}

TEST_F(HashMonTest, HandleMonPostsByName) {
    HandleMon handles("handleMon");
    MailboxThread listener;
    handles.Add("reset", 0);
    handles.Add("listener", listener.Id());
    handles.Add("gone", 0x7FFFFFF0u);
    std::string before = LogText();

    int32_t result = 0;
    handles.PostMsgByName("nobody", 1105, &result);
    EXPECT_EQ(result, -10021);
    handles.PostMsgByName("reset", 1105, &result);
    EXPECT_EQ(result, 0) << "a name without a thread is found, and nothing is posted";
    EXPECT_EQ(LogText(), before);

    handles.PostMsgByName("listener", 1105, &result);
    EXPECT_EQ(result, 1);
    EXPECT_TRUE(WaitUntil([&] { return listener.Last() == 1105; }));

    handles.PostMsgByName("gone", 1105, &result);
    EXPECT_EQ(result, -10018);
    EXPECT_TRUE(
        LogContains("handleMon [HandleMon::PostMsgByName] Error on PostThreadMessage gone\n"
                    "                        Error code = "));
}

TEST_F(HashMonTest, UnidentifiedWorkersGrowTheArrayOneEntryEarly) {
    for (uint32_t id = 1; id <= 9; ++id) workerMon->AddUnidentified(id);
    EXPECT_FALSE(LogContains("[HandleHashMon::Increase]"));
    workerMon->AddUnidentified(10);
    EXPECT_TRUE(LogContains("workerMon [HandleHashMon::Increase] size =10, num =9\n"));
    EXPECT_EQ(LogCount(" ii ="), 9);
    EXPECT_EQ(workerMon->UnidentifiedCount(), 10);

    for (uint32_t id = 11; id <= 19; ++id) workerMon->AddUnidentified(id);
    EXPECT_EQ(LogCount("[HandleHashMon::Increase]"), 1) << "the new size is 20";
    workerMon->AddUnidentified(20);
    EXPECT_TRUE(LogContains("[HandleHashMon::Increase] size =20, num =19\n"));

    // Every entry survived the growth, in order.
    int32_t index = 0;
    workerMon->RemoveUnidentified(10, nullptr, &index);
    EXPECT_EQ(index, 9);
    workerMon->RemoveUnidentified(1, nullptr, &index);
    EXPECT_EQ(index, 0);
    workerMon->RemoveUnidentified(20, nullptr, &index);
    EXPECT_EQ(index, 17);
    workerMon->RemoveUnidentified(20, nullptr, &index);
    EXPECT_EQ(index, -10021);
    EXPECT_EQ(workerMon->UnidentifiedCount(), 17);
}

TEST_F(HashMonTest, IdentifiedWorkerLeavesTheAnonymousArray) {
    workerMon->AddUnidentified(5);
    workerMon->AddUnidentified(6);
    workerMon->AddWorker("aa:bb:cc", 5);
    EXPECT_EQ(workerMon->UnidentifiedCount(), 1);
    int32_t index = 0;
    workerMon->RemoveUnidentified(5, nullptr, &index);
    EXPECT_EQ(index, -10021);
    workerMon->RemoveUnidentified(6, nullptr, &index);
    EXPECT_EQ(index, 0);

    // A MAC is its key: case and separators don't matter.
    uint8_t flag = 0;
    for (const char* mac : {"AA:BB:CC", "aabbcc", "AA-BB-CC", "00:aa:bb:cc"}) {
        workerMon->IsConnected(mac, &flag);
        EXPECT_EQ(flag, 1) << mac;
    }
    workerMon->IsConnected("AA:BB:CD", &flag);
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(workerMon->WorkerThreadOf("AABBCC"), 5u);

    // A placeholder leaves the anonymous array alone.
    workerMon->AddUnidentified(7);
    workerMon->AddPlaceholder("0001", 7);
    EXPECT_EQ(workerMon->UnidentifiedCount(), 1);
    workerMon->IsConnected("0001", &flag);
    EXPECT_EQ(flag, 1);
}

TEST_F(HashMonTest, ConnectedListInTableOrderWithoutThePlaceholder) {
    // Keys 2, 1 and 20 (0x14): buckets 2, 1 and 1. The placeholder's key 1 shares bucket 1.
    workerMon->AddWorker("00:00:02", 1);
    workerMon->AddWorker("00:00:01", 2);
    workerMon->AddPlaceholder("0001", 3);
    workerMon->AddWorker("00:00:14", 4);
    char buffer[64];
    int32_t error = 5;
    workerMon->GetConnected(buffer, sizeof buffer, &error);
    EXPECT_EQ(error, 0);
    EXPECT_STREQ(buffer, "00:00:01,00:00:14,00:00:02");

    // Cut after the last whole entry, with the comma, and -10006.
    workerMon->GetConnected(buffer, 12, &error);
    EXPECT_EQ(error, -10006);
    EXPECT_STREQ(buffer, "00:00:01,");

    // An entry needs its length plus three bytes.
    workerMon->GetConnected(buffer, 10, &error);
    EXPECT_EQ(error, -10006);
    EXPECT_STREQ(buffer, "");
    workerMon->GetConnected(buffer, 11, &error);
    EXPECT_EQ(error, -10006);
    EXPECT_STREQ(buffer, "00:00:01,");

    std::memset(buffer, 'Z', sizeof buffer);
    workerMon->GetConnected(buffer, 1, &error);
    EXPECT_EQ(error, -10006);
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_EQ(buffer[1], 'Z');
}

TEST_F(HashMonTest, EmptyTableGivesAnEmptyList) {
    char buffer[8];
    std::memset(buffer, 'Z', sizeof buffer);
    int32_t error = 5;
    workerMon->GetConnected(buffer, sizeof buffer, &error);
    EXPECT_EQ(error, 0);
    EXPECT_STREQ(buffer, "");
    workerMon->AddPlaceholder("0001", 3);
    workerMon->GetConnected(buffer, 1, &error);
    EXPECT_EQ(error, 0) << "the placeholder needs no room";
}

TEST_F(HashMonTest, RemovalTakesTheOlderEntryOrOnlyTheNamedThreads) {
    workerMon->AddWorker("AA:BB:CC", 1);
    workerMon->AddWorker("AA:BB:CC", 2);  // a newer connection of the same controller
    int32_t error = 0;
    workerMon->RemoveWorkerOf("aa:bb:cc", 3, &error);
    EXPECT_EQ(error, -10009);
    workerMon->RemoveWorkerOf("aa:bb:cc", 2, &error);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(workerMon->WorkerThreadOf("AA:BB:CC"), 1u);

    workerMon->AddWorker("AA:BB:CC", 2);
    workerMon->RemoveWorker("AA:BB:CC", &error);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(workerMon->WorkerThreadOf("AA:BB:CC"), 2u) << "the older went first";
    workerMon->RemoveWorker("AA:BB:CC", &error);
    EXPECT_EQ(error, 0);
    workerMon->RemoveWorker("AA:BB:CC", &error);
    EXPECT_EQ(error, -10009);
}

TEST_F(HashMonTest, WorkerPosts) {
    MailboxThread worker;
    workerMon->AddWorker("AA:BB:CC", worker.Id());
    workerMon->AddWorker("DD:EE:FF", 0x7FFFFFF0u);
    std::string before = LogText();

    int32_t result = 7;
    workerMon->PostWorkerMsg("11:22:33", WM_WORKER_KILL, &result);
    EXPECT_EQ(result, -10021);
    EXPECT_EQ(LogText(), before) << "an absent MAC posts nothing and logs nothing";

    workerMon->PostWorkerMsg("aa:bb:cc", WM_WORKER_KILL, &result);
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(WaitUntil([&] { return worker.Last() == WM_WORKER_KILL; }));

    workerMon->PostWorkerMsg("DD:EE:FF", WM_WORKER_KILL, &result);
    EXPECT_EQ(result, -10018);
    EXPECT_TRUE(LogContains(
        "workerMon [HandleHashMon::PostWorkerMsg] Error on PostThreadMessage mac=DD:EE:FF\n"
        "                        Error code = "));
}

TEST_F(HashMonTest, TerminateCommandsGoToEveryOrOnlyTheInvalidMacs) {
    workerMon->AddWorker("AA:BB:01", 1);
    workerMon->AddWorker("AA:BB:02", 2);
    workerMon->AddUnidentified(3);  // no MAC, nothing to address
    workerMon->SendTerminateAll();
    EXPECT_EQ(TakeCommand("AA:BB:01"), "9990;0010;");
    EXPECT_EQ(TakeCommand("AA:BB:02"), "9990;0010;");
    EXPECT_EQ(TakeCommand("AA:BB:01"), "") << "one command per entry";
    EXPECT_EQ(TakeCommand("0"), "");

    validMon->SetList("aa:bb:01");
    workerMon->SendTerminateInvalid(*validMon);
    EXPECT_EQ(TakeCommand("AA:BB:01"), "");
    EXPECT_EQ(TakeCommand("AA:BB:02"), "9990;0010;");
    uint8_t flag = 0;
    workerMon->IsConnected("AA:BB:02", &flag);
    EXPECT_EQ(flag, 1) << "the entry stays until its Worker leaves";

    validMon->SetList("ALL");
    workerMon->SendTerminateInvalid(*validMon);
    EXPECT_EQ(TakeCommand("AA:BB:01"), "");
    EXPECT_EQ(TakeCommand("AA:BB:02"), "");

    // Entry names are never changed by the validity test.
    char buffer[64];
    int32_t error = 0;
    validMon->SetList("");
    workerMon->AddWorker("cc:dd:ee", 4);
    workerMon->SendTerminateInvalid(*validMon);
    EXPECT_EQ(TakeCommand("CC:DD:EE"), "9990;0010;");
    workerMon->GetConnected(buffer, sizeof buffer, &error);
    EXPECT_NE(std::string(buffer).find("cc:dd:ee"), std::string::npos);
}

TEST_F(HashMonTest, ForcedEndsOfWorkers) {
    MailboxThread named, anonymous;
    workerMon->AddWorker("AA:BB:CC", named.Id());
    workerMon->AddUnidentified(anonymous.Id());
    std::string before = LogText();

    workerMon->TerminateByName("11:22:33");
    EXPECT_EQ(LogText(), before) << "an absent MAC does nothing";

    workerMon->TerminateByName("aa:bb:cc");
    EXPECT_TRUE(named.Hooked());
    EXPECT_TRUE(WaitUntil([&] { return named.Killed(); }));
    uint8_t flag = 1;
    workerMon->IsConnected("AA:BB:CC", &flag);
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(LogText(), before);

    // A thread that is gone already: the entry goes, the failure is logged.
    workerMon->AddWorker("DD:EE:FF", 0x7FFFFFF0u);
    workerMon->TerminateByName("DD:EE:FF");
    EXPECT_TRUE(
        LogContains("workerMon [HandleHashMon::TerminateByName] Error on TerminateThread\n"));
    workerMon->IsConnected("DD:EE:FF", &flag);
    EXPECT_EQ(flag, 0);

    // All: the identified are ended, the anonymous only forgotten.
    MailboxThread second;
    workerMon->AddWorker("11:22:33", second.Id());
    workerMon->TerminateAll();
    EXPECT_TRUE(WaitUntil([&] { return second.Killed(); }));
    EXPECT_EQ(workerMon->UnidentifiedCount(), 0);
    std::this_thread::sleep_for(50ms);  // bounded: the anonymous thread must not be killed
    EXPECT_FALSE(anonymous.Killed());
    char buffer[16];
    int32_t error = 0;
    workerMon->GetConnected(buffer, sizeof buffer, &error);
    EXPECT_STREQ(buffer, "");
}

TEST_F(HashMonTest, PostBoxKeepsEachMacsOrderInASharedBucket) {
    // Keys 5 and 132 share bucket 5 of 127.
    const char* a = "00:00:05";
    const char* b = "00:00:84";
    auto put = [this](const char* mac, int n) {
        CommandRecord record{};
        record.rspid = n;
        std::snprintf(record.message, sizeof record.message, "%s #%d", mac, n);
        sendMon->Put(record, mac);
    };
    put(a, 1);
    put(b, 2);
    put(a, 3);
    put(b, 4);
    put(a, 5);
    EXPECT_EQ(sendMon->CountFor(a), 3);
    EXPECT_EQ(sendMon->CountFor("0:0:84"), 2);

    std::vector<int> fromA, fromB;
    CommandRecord out{};
    int32_t error = 0;
    for (;;) {
        sendMon->Get(&out, a, &error);
        if (error != 0) break;
        fromA.push_back(out.rspid);
    }
    EXPECT_EQ(error, -10009);
    for (;;) {
        sendMon->Get(&out, b, &error);
        if (error != 0) break;
        fromB.push_back(out.rspid);
        EXPECT_EQ(std::string(out.message), std::string(b) + " #" + std::to_string(out.rspid));
    }
    EXPECT_EQ(fromA, (std::vector<int>{1, 3, 5}));
    EXPECT_EQ(fromB, (std::vector<int>{2, 4}));
}

TEST_F(HashMonTest, MonitorsLogTheirEnd) {
    delete workerMon;
    workerMon = nullptr;
    delete sendMon;
    sendMon = nullptr;
    { HandleMon handles("handleMon"); }
    EXPECT_TRUE(
        LogContains("workerMon [HandleHashMon::~HandleHashMon] HandleHashMon terminated\n"));
    EXPECT_TRUE(LogContains("sendMon [ThreadHashMon::~ThreadHashMon] ThreadHashMon terminated\n"));
    EXPECT_TRUE(LogContains("handleMon [HandleMon::~HandleMon] HandleMon terminated\n"));
}

}  // namespace
}  // namespace zanth
