// The bounded FIFO and the four queues built on it: capacity, the empty result, and what a
// destination that is too small costs the caller.

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <string>

#include "monitors/CharIntQueueMon.h"
#include "monitors/CharQueueMon.h"
#include "monitors/ConnDiscQueue.h"
#include "monitors/Queue.h"
#include "monitors/ThreadQueue.h"
#include "stores/LogMon.h"
#include "support/Library.h"

namespace zanth {
namespace {

using test::LogContains;
using test::LogText;

// A diagnostic log of its own, at the trace level, so that the monitors' lines can be read.
class QueueLogTest : public test::TraceLogTest {};

TEST(Queue, FullQueueRefusesTheNewestAndKeepsTheOldestAtTheHead) {
    Queue<int> queue;
    for (int i = 0; i < Queue<int>::kCapacity; ++i) ASSERT_TRUE(queue.Insert(i));
    EXPECT_FALSE(queue.Insert(10000));
    EXPECT_EQ(queue.Length(), 10000);
    ASSERT_NE(queue.Peek(), nullptr);
    EXPECT_EQ(*queue.Peek(), 0);

    int out = -1;
    ASSERT_TRUE(queue.Remove(&out));
    EXPECT_EQ(out, 0);
    EXPECT_TRUE(queue.Insert(10001)) << "one removal makes room for one";
    EXPECT_FALSE(queue.Insert(10002));
    int last = -1;
    while (queue.Remove(&out)) last = out;
    EXPECT_EQ(last, 10001);
    EXPECT_EQ(queue.Length(), 0);
}

TEST(Queue, EmptyQueueAfterTheLastRemovalStartsAfresh) {
    Queue<int> queue;
    int out = 77;
    EXPECT_EQ(queue.Peek(), nullptr);
    EXPECT_FALSE(queue.Remove(&out));
    EXPECT_EQ(out, 77);

    ASSERT_TRUE(queue.Insert(1));
    ASSERT_TRUE(queue.Remove(&out));
    EXPECT_FALSE(queue.HasTail()) << "the tail goes with the last node";
    ASSERT_TRUE(queue.Insert(2));
    ASSERT_TRUE(queue.Insert(3));
    ASSERT_NE(queue.Peek(), nullptr);
    EXPECT_EQ(*queue.Peek(), 2);
    ASSERT_TRUE(queue.Remove(&out));
    EXPECT_EQ(out, 2);
    ASSERT_TRUE(queue.Remove(&out));
    EXPECT_EQ(out, 3);
    EXPECT_FALSE(queue.Remove(&out));
}

TEST(CharQueueMon, AtCapacityTheNewestTextIsLostSilently) {
    CharQueueMon queue("lookupMon");
    for (int i = 0; i < 10001; ++i) queue.Add(std::to_string(i).c_str());
    int32_t length = 0;
    queue.Length(&length);
    EXPECT_EQ(length, 10000);
    char text[16];
    int32_t error = 1;
    queue.Remove(text, sizeof text - 1, &error);
    EXPECT_EQ(error, 0);
    EXPECT_STREQ(text, "0");
    std::string last;
    for (;;) {
        queue.Remove(text, sizeof text - 1, &error);
        if (error != 0) break;
        last = text;
    }
    EXPECT_EQ(error, -10009);
    EXPECT_EQ(last, "9999");
}

TEST_F(QueueLogTest, CharQueueTooSmallDestinationLosesTheItemAndSaysSoInTheLog) {
    CharQueueMon queue("lookupMon");
    char dest[16];
    std::memset(dest, 'Z', sizeof dest);
    int32_t error = 5;
    queue.Remove(dest, 10, &error);
    EXPECT_EQ(error, -10009);
    EXPECT_EQ(dest[0], 'Z') << "an empty queue leaves the destination alone";

    queue.Add("abcde");
    queue.Add("fg");
    error = 5;
    queue.Remove(dest, 1, &error);
    EXPECT_EQ(error, 0) << "the loss reads as success";
    EXPECT_EQ(std::string(dest, sizeof dest), std::string(sizeof dest, 'Z'));
    EXPECT_TRUE(
        LogContains("  lookupMon [CharQueueMon::Remove] dataSize (1) insufficent, need 5\n"));

    queue.Remove(dest, 10, &error);
    EXPECT_EQ(error, 0);
    EXPECT_STREQ(dest, "fg") << "the next call finds the next item";
    int32_t length = -1;
    queue.Length(&length);
    EXPECT_EQ(length, 0);
}

TEST_F(QueueLogTest, CharQueueRefusalIsAnErrorLevelLine) {
    CharQueueMon queue("keyPadMon");
    char dest[8];
    int32_t error = 0;
    LibraryLog()->SetLevel(49);
    queue.Add("abcdef");
    queue.Remove(dest, 2, &error);
    EXPECT_FALSE(LogContains("dataSize (2)"));
    LibraryLog()->SetLevel(50);
    queue.Add("abcdef");
    queue.Remove(dest, 3, &error);
    EXPECT_TRUE(LogContains("keyPadMon [CharQueueMon::Remove] dataSize (3) insufficent, need 6"));
}

TEST(CharQueueMon, TextOfExactlyDataSizeIsCopiedWithItsTerminator) {
    CharQueueMon queue("postAccessMon");
    queue.Add("abcde");
    char dest[8];
    std::memset(dest, 'Z', sizeof dest);
    int32_t error = 1;
    queue.Remove(dest, 5, &error);
    EXPECT_EQ(error, 0);
    EXPECT_STREQ(dest, "abcde");
    EXPECT_EQ(dest[6], 'Z') << "dataSize + 1 bytes at most";

    queue.Add("");
    std::memset(dest, 'Z', sizeof dest);
    queue.Remove(dest, 0, &error);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(dest[0], '\0');
    EXPECT_EQ(dest[1], 'Z');
}

TEST_F(QueueLogTest, CharIntQueueZeroesOnlyDataSizeBytesAndOnlyOnSuccess) {
    CharIntQueueMon queue("responseMon");
    char dest[32];
    std::memset(dest, 'Z', sizeof dest);
    int32_t tag = -1, size = -1, error = 5;

    queue.Remove(&tag, dest, 10, &error, &size);
    EXPECT_EQ(error, -10009);
    EXPECT_EQ(tag, -1);
    EXPECT_EQ(size, -1);

    // A block, not a text: embedded NULs travel too.
    const char block[3] = {'a', '\0', 'c'};
    queue.Add(7, block, 3);
    queue.Remove(&tag, dest, 10, &error, &size);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(tag, 7);
    EXPECT_EQ(size, 3);
    EXPECT_EQ(std::memcmp(dest, block, 3), 0);
    for (int i = 3; i < 10; ++i) EXPECT_EQ(dest[i], '\0') << i;
    for (int i = 10; i < 32; ++i) EXPECT_EQ(dest[i], 'Z') << i;
    EXPECT_TRUE(
        LogContains("responseMon [CharIntQueueMon::Remove()]response dequeued with rspid=7"));

    // Too small: consumed, logged, and tag, size and destination as they were.
    std::memset(dest, 'Z', sizeof dest);
    queue.Add(8, "abcdef", 6);
    queue.Add(9, "gh", 2);
    tag = size = -1;
    queue.Remove(&tag, dest, 4, &error, &size);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(tag, -1);
    EXPECT_EQ(size, -1);
    EXPECT_EQ(std::string(dest, sizeof dest), std::string(sizeof dest, 'Z'));
    EXPECT_TRUE(
        LogContains("responseMon [CharIntQueueMon::Remove] dataSize (4) insufficent, need 6"));
    EXPECT_FALSE(LogContains("rspid=8"));

    // The short form delivers the next one; a block exactly dataSize long fits.
    queue.Remove(&tag, dest, 2, &error);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(tag, 9);
    EXPECT_EQ(std::string(dest, 2), "gh");
    EXPECT_EQ(dest[2], 'Z');
}

TEST_F(QueueLogTest, ConnDiscQueueDeliversTheFlagAndTheTimeOfInsertion) {
    ConnDiscQueue queue("connDiscQueue");
    int32_t error = 99;
    int64_t before = static_cast<int64_t>(std::time(nullptr));
    queue.Add("AA:BB:CC", 1, &error);
    int64_t after = static_cast<int64_t>(std::time(nullptr));
    EXPECT_EQ(error, 0);
    queue.Add("DD:EE:FF", 0, &error);
    queue.Add("11:22:33", 1, &error);

    char dest[32];
    uint8_t connected = 7;
    int64_t time = -1;
    queue.Remove(dest, sizeof dest - 1, &connected, &time, &error);
    EXPECT_EQ(error, 0);
    EXPECT_STREQ(dest, "AA:BB:CC");
    EXPECT_EQ(connected, 1);
    EXPECT_GE(time, before);
    EXPECT_LE(time, after);

    queue.Remove(dest, sizeof dest - 1, &connected, &time, &error);
    EXPECT_STREQ(dest, "DD:EE:FF");
    EXPECT_EQ(connected, 0);

    // Too small: the notice is gone, nothing delivered, the log says why.
    connected = 7;
    time = -1;
    std::strcpy(dest, "keep");
    queue.Remove(dest, 3, &connected, &time, &error);
    EXPECT_EQ(error, 0);
    EXPECT_STREQ(dest, "keep");
    EXPECT_EQ(connected, 7);
    EXPECT_EQ(time, -1);
    EXPECT_TRUE(
        LogContains("connDiscQueue [ConnDiscQueue::Remove] dataSize (3) insufficent, need 8"));

    queue.Remove(dest, sizeof dest - 1, &connected, &time, &error);
    EXPECT_EQ(error, -10009);
    EXPECT_STREQ(dest, "keep");
}

TEST(ThreadQueue, CopiesWholeRecordsInOrder) {
    ThreadQueue queue("0");
    CommandRecord empty{};
    EXPECT_EQ(queue.Remove(&empty), -10009);

    CommandRecord a, b;
    // Every byte patterned, the parts behind the terminators too: the copy is of all 4640.
    auto* pa = reinterpret_cast<unsigned char*>(&a);
    auto* pb = reinterpret_cast<unsigned char*>(&b);
    for (size_t i = 0; i < sizeof a; ++i) {
        pa[i] = static_cast<unsigned char>(i * 7 + 1);
        pb[i] = static_cast<unsigned char>(i * 13 + 5);
    }
    CommandRecord snapshotA = a;
    queue.Add(a);
    queue.Add(b);
    std::memset(&a, 0, sizeof a);  // the queue holds its own copy
    EXPECT_EQ(queue.Count(), 2);

    CommandRecord out;
    std::memset(&out, 0, sizeof out);
    ASSERT_EQ(queue.Remove(&out), 0);
    EXPECT_EQ(std::memcmp(&out, &snapshotA, sizeof out), 0);
    ASSERT_EQ(queue.Remove(&out), 0);
    EXPECT_EQ(std::memcmp(&out, &b, sizeof out), 0);
    EXPECT_EQ(queue.Count(), 0);
    EXPECT_EQ(queue.Remove(&out), -10009);
}

TEST_F(QueueLogTest, EachQueueLogsItsEndUnderItsName) {
    {
        CharQueueMon a("hereiamMon");
        a.Add("left behind");
        CharIntQueueMon b("resetQueue");
        b.Add(1, "x", 1);
        ConnDiscQueue c("connDiscQueue");
        ThreadQueue d("AA:BB:CC");
        d.SetName("DD:EE:FF");
    }
    EXPECT_TRUE(
        LogContains("  hereiamMon [CharQueueMon::~CharQueueMon] CharQueueMon terminated\n"));
    EXPECT_TRUE(LogContains(
        "  resetQueue [CharIntQueueMon::~CharIntQueueMon] CharIntQueueMon terminated\n"));
    EXPECT_TRUE(
        LogContains("  connDiscQueue [ConnDiscQueue::~ConnDiscQueue] ConnDiscQueue terminated\n"));
    EXPECT_TRUE(LogContains("  DD:EE:FF [ThreadQueue::~ThreadQueue] ThreadQueue terminated\n"))
        << "the name set last is the one printed";

    // A trace line: below level 75 it stays out.
    LibraryLog()->SetLevel(50);
    std::string before = LogText();
    { CharQueueMon quiet("quietMon"); }
    EXPECT_EQ(LogText(), before);
}

}  // namespace
}  // namespace zanth
