// The circular message file: header, ring arithmetic, record bounds, size changes, recovery of
// damaged files, the host's view through the exports, and a writer killed mid-burst.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "stores/LogMon.h"
#include "stores/MsgMon.h"
#include "support/Library.h"
#include "zanth.h"

namespace zanth {
namespace {

using test::LogContains;
using test::ReadWholeFile;

constexpr const char* kFile = "ZanthEvents.log";

// The header as text (up to its first NUL), and a check that the rest of slot 0 is NUL.
std::string Header(const char* file = kFile) {
    std::string bytes = ReadWholeFile(file);
    if (bytes.size() < 144) return "<short: " + std::to_string(bytes.size()) + ">";
    std::string text(bytes.c_str());
    for (size_t i = text.size(); i < 144; ++i) {
        if (bytes[i] != '\0') return "<not NUL-padded>";
    }
    return text;
}

std::string Slot(int n, const char* file = kFile) {
    std::string bytes = ReadWholeFile(file);
    if (bytes.size() < static_cast<size_t>(n + 1) * 144) return "<missing>";
    return bytes.substr(static_cast<size_t>(n) * 144, 144);
}

void WriteFile(const char* file, const std::string& bytes) {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// A slot's worth of bytes: the text, then NULs.
std::string Padded(const std::string& text) {
    std::string slot = text;
    slot.resize(144, '\0');
    return slot;
}

int32_t Write(MsgMon& mon, const std::string& text) {
    int32_t error = 1;
    mon.WriteMsg(text.data(), static_cast<int32_t>(text.size()), &error);
    return error;
}

// The oldest unread record as text, or "<error>" with the result.
std::string Read(MsgMon& mon, int32_t* error = nullptr) {
    char buffer[200];
    int32_t e = 1;
    mon.GetMsg(buffer, sizeof buffer, &e);
    if (error) *error = e;
    if (e != 0) return "<" + std::to_string(e) + ">";
    return std::string(buffer, strnlen(buffer, 144));
}

uint64_t Unread(MsgMon& mon) {
    uint64_t n = ~0ull;
    mon.GetUnread(&n);
    return n;
}

std::string Record(int n) {
    return "1061;event " + std::to_string(n);
}

class MsgMonTest : public test::TraceLogTest {};

TEST_F(MsgMonTest, NewFileHasTheInitialHeaderAndNothingToRead) {
    MsgMon mon("eventMon", kFile);
    EXPECT_EQ(ReadWholeFile(kFile).size(), 144u);
    EXPECT_EQ(Header(), "5000 144 1 1 0 0");
    int32_t error = 0;
    Read(mon, &error);
    EXPECT_EQ(error, -10008);
    uint64_t size = 0;
    mon.GetLogSize(&size);
    EXPECT_EQ(size, 5000u);
    EXPECT_EQ(Unread(mon), 0u);
}

TEST_F(MsgMonTest, FullRingOverwritesTheOldestAndMovesTheReaderOn) {
    MsgMon mon("eventMon", kFile);
    int32_t error = 1;
    mon.SetLogSize(20, &error);
    ASSERT_EQ(error, 0);
    for (int i = 1; i <= 25; ++i) ASSERT_EQ(Write(mon, Record(i)), 0);
    EXPECT_EQ(Header(), "20 144 6 6 20 20");
    EXPECT_EQ(Unread(mon), 20u);
    EXPECT_EQ(ReadWholeFile(kFile).size(), 21u * 144) << "the file never grows past the ring";

    EXPECT_EQ(Read(mon), Record(6));
    EXPECT_EQ(Header(), "20 144 7 6 20 19") << "a read rewrites the header too";
    for (int i = 7; i <= 25; ++i) EXPECT_EQ(Read(mon), Record(i));
    Read(mon, &error);
    EXPECT_EQ(error, -10008);
    EXPECT_EQ(Header(), "20 144 6 6 20 0") << "read records stay counted in their slots";
}

TEST_F(MsgMonTest, AfterReadingEverythingTheNextRecordIsReadFromItsSlot) {
    MsgMon mon("eventMon", kFile);
    int32_t error = 1;
    mon.SetLogSize(20, &error);
    for (int i = 1; i <= 20; ++i) ASSERT_EQ(Write(mon, Record(i)), 0);
    for (int i = 1; i <= 20; ++i) ASSERT_EQ(Read(mon), Record(i));
    EXPECT_EQ(Header(), "20 144 1 1 20 0");
    ASSERT_EQ(Write(mon, "fresh"), 0);
    EXPECT_EQ(Header(), "20 144 1 2 20 1");
    EXPECT_EQ(Slot(1), Padded("fresh"));
    EXPECT_EQ(Read(mon), "fresh");
}

TEST_F(MsgMonTest, StateSurvivesAReopen) {
    {
        MsgMon mon("eventMon", kFile);
        for (int i = 1; i <= 5; ++i) ASSERT_EQ(Write(mon, Record(i)), 0);
        ASSERT_EQ(Read(mon), Record(1));
    }
    MsgMon again("eventMon", kFile);
    EXPECT_EQ(Unread(again), 4u);
    EXPECT_EQ(Read(again), Record(2));
    ASSERT_EQ(Write(again, Record(6)), 0);
    EXPECT_EQ(Header(), "5000 144 3 7 6 4");
}

TEST_F(MsgMonTest, RecordBoundsOnBothSides) {
    MsgMon mon("eventMon", kFile);
    std::string full(144, 'F');
    full[0] = '1';
    ASSERT_EQ(Write(mon, full), 0);
    EXPECT_EQ(Slot(1), full) << "no room for a terminator, and none is written";

    EXPECT_EQ(Write(mon, std::string(145, 'x')), -10006);
    EXPECT_TRUE(LogContains("eventMon [MsgMon::WriteMsg] msg is too big (ZanthEvents.log)\n"));
    EXPECT_EQ(Unread(mon), 1u) << "a longer record is refused whole";

    char small[143];
    std::memset(small, 'Z', sizeof small);
    int32_t error = 0;
    mon.GetMsg(small, sizeof small, &error);
    EXPECT_EQ(error, -10006);
    EXPECT_TRUE(
        LogContains("eventMon [MsgMon::GetMsg] msg is not large enough (ZanthEvents.log)\n"));
    EXPECT_EQ(small[0], 'Z');
    EXPECT_EQ(Unread(mon), 1u) << "the record stays unread";

    char big[200];
    std::memset(big, 'Z', sizeof big);
    mon.GetMsg(big, sizeof big, &error);
    ASSERT_EQ(error, 0);
    EXPECT_EQ(std::string(big, 144), full);
    for (size_t i = 144; i < sizeof big; ++i) EXPECT_EQ(big[i], '\0') << "zeroed first, at " << i;

    // A short record leaves NULs behind it in a buffer of exactly 144.
    ASSERT_EQ(Write(mon, "ab"), 0);
    char exact[144];
    std::memset(exact, 'Z', sizeof exact);
    mon.GetMsg(exact, sizeof exact, &error);
    ASSERT_EQ(error, 0);
    EXPECT_EQ(std::string(exact, sizeof exact), Padded("ab"));
}

TEST_F(MsgMonTest, ShorterRecordLeavesNothingOfTheSlotsFormerOccupant) {
    MsgMon mon("eventMon", kFile);
    int32_t error = 1;
    mon.SetLogSize(20, &error);
    for (int i = 0; i < 20; ++i) ASSERT_EQ(Write(mon, std::string(144, 'L')), 0);
    ASSERT_EQ(Write(mon, "short"), 0);
    EXPECT_EQ(Slot(1), Padded("short"));
}

TEST_F(MsgMonTest, SizeChangeDiscardsRecordsButTheSameSizeDoesNot) {
    MsgMon mon("eventMon", kFile);
    for (int i = 1; i <= 3; ++i) ASSERT_EQ(Write(mon, Record(i)), 0);
    int32_t error = 1;
    mon.SetLogSize(5000, &error);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(Unread(mon), 3u);
    EXPECT_EQ(Header(), "5000 144 1 4 3 3");

    mon.SetLogSize(30, &error);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(Unread(mon), 0u);
    EXPECT_EQ(ReadWholeFile(kFile).size(), 144u);
    EXPECT_EQ(Header(), "30 144 1 1 0 0");
    mon.SetLogSize(6000, &error);
    EXPECT_EQ(Header(), "6000 144 1 1 0 0") << "up as well as down";
}

TEST_F(MsgMonTest, ShortFileIsReplacedByAnEmptyStore) {
    WriteFile(kFile, std::string(100, '7'));
    MsgMon mon("eventMon", kFile);
    EXPECT_EQ(ReadWholeFile(kFile).size(), 144u);
    EXPECT_EQ(Header(), "5000 144 1 1 0 0");
    EXPECT_EQ(Unread(mon), 0u);
}

TEST_F(MsgMonTest, OtherRecordSizeIsReplacedWhateverItHolds) {
    WriteFile(kFile, Padded("20 128 1 3 2 2") + Padded("one") + Padded("two"));
    MsgMon mon("eventMon", kFile);
    EXPECT_EQ(ReadWholeFile(kFile).size(), 144u);
    EXPECT_EQ(Header(), "5000 144 1 1 0 0");
    uint64_t size = 0;
    mon.GetLogSize(&size);
    EXPECT_EQ(size, 5000u);
}

TEST_F(MsgMonTest, ValidHeaderIsTakenAsItStands) {
    WriteFile(kFile, Padded("20 144 2 4 3 2") + Padded("one") + Padded("two") + Padded("three"));
    MsgMon mon("eventMon", kFile);
    EXPECT_EQ(Unread(mon), 2u);
    EXPECT_EQ(Read(mon), "two");
    EXPECT_EQ(Read(mon), "three");
    EXPECT_EQ(Header(), "20 144 4 4 3 0");
}

TEST_F(MsgMonTest, UnreadableHeaderKeepsTheFileWithInitialValues) {
    std::string records = Padded("one") + Padded("two");
    WriteFile(kFile, Padded("garbage in the header") + records);
    {
        MsgMon mon("eventMon", kFile);
        EXPECT_EQ(Header(), "5000 144 1 1 0 0");
        EXPECT_EQ(ReadWholeFile(kFile).substr(144), records) << "the records stay in their slots";
        int32_t error = 0;
        Read(mon, &error);
        EXPECT_EQ(error, -10008);
    }

    // The scan stops at the first unreadable field; the fields before it count.
    WriteFile(kFile, Padded("30 144 2 x 9 9") + records);
    MsgMon mon("eventMon", kFile);
    EXPECT_EQ(Header(), "30 144 2 1 0 0");
    EXPECT_EQ(ReadWholeFile(kFile).substr(144), records);
}

// A header whose indexes or counts lie outside its own ring is no store: the next write would
// land anywhere in the file or far past its end (slot 2,000,000,000 is 288 GB in). Such a file
// starts again empty, as a short one does. A ring at its very edge is kept.
TEST_F(MsgMonTest, HeaderOutsideItsRingIsReplacedByAnEmptyStore) {
    const std::string records = Padded("one") + Padded("two");
    const char* damaged[] = {
        "5000 144 1 2000000000 0 0",  // write index past the ring
        "5000 144 2000000000 1 0 1",  // read index past the ring
        "20 144 -5 -7 3 3",           // negative indexes
        "20 144 0 1 0 0",             // slot 0 is the header
        "20 144 1 21 0 0",            // one past the last slot
        "20 144 1 1 21 0",            // more entries than slots
        "20 144 1 1 20 21",           // more unread than slots
        "20 144 1 1 0 -1",            // a negative count
        "0 144 1 1 0 0",              // a ring of no slots
        "-20 144 1 1 0 0",            // a negative ring
        "30 144 2 31",                // fields that were read count, even when the scan stops
    };
    for (const char* header : damaged) {
        SCOPED_TRACE(header);
        WriteFile(kFile, Padded(header) + records);
        MsgMon mon("eventMon", kFile);
        EXPECT_EQ(ReadWholeFile(kFile).size(), 144u) << "the old contents go";
        EXPECT_EQ(Header(), "5000 144 1 1 0 0");
        int32_t error = 0;
        Read(mon, &error);
        EXPECT_EQ(error, -10008);
        ASSERT_EQ(Write(mon, "x"), 0);
        EXPECT_EQ(ReadWholeFile(kFile).size(), 2u * 144) << "the write lands in slot 1";
        EXPECT_EQ(Slot(1), Padded("x"));
        EXPECT_EQ(Read(mon), "x");
    }

    // Both indexes on the last slot and both counts at the full ring: a store as it stands.
    WriteFile(kFile, Padded("2 144 2 2 2 2") + records);
    MsgMon mon("eventMon", kFile);
    EXPECT_EQ(Header(), "2 144 2 2 2 2");
    EXPECT_EQ(Read(mon), "two");
    EXPECT_EQ(Read(mon), "one");
}

// The host's view: the exports over the library's own two stores.
class MsgExportTest : public test::LibraryTest {};

TEST_F(MsgExportTest, LogSizeArgumentsAndWidths) {
    int32_t error = 0;
    test::Shared().eventMon->WriteMsg("1061;a", 6, &error);
    ASSERT_EQ(error, 0);

    uint64_t value = ~0ull;
    ASSERT_EQ(EventLogSize(0, &value), 0);
    EXPECT_EQ(value, 5000u) << "mode 0 writes all 8 bytes";

    value = 5000;
    ASSERT_EQ(EventLogSize(1, &value), 0);
    uint64_t unread = ~0ull;
    ASSERT_EQ(NumberUnreadEvents(&unread), 0);
    EXPECT_EQ(unread, 1u) << "the same size keeps the records";

    value = 19;
    EXPECT_EQ(EventLogSize(1, &value), -10002);
    EXPECT_TRUE(
        LogContains("master [Master::EventLogSize] log size must be between 20 and 2147483647\n"));
    EXPECT_EQ(EventLogSize(2, &value), -10002);
    EXPECT_TRUE(LogContains("master [Master::EventLogSize] mode value must be between 0 and 1\n"));
    value = 19;
    EXPECT_EQ(AlarmLogSize(1, &value), -10002);
    EXPECT_TRUE(
        LogContains("master [Master::AlarmLogSize] log size must be between 20 and 2147483647\n"));

    // Mode 1 reads only the low 32 bits of the host's variable.
    value = (0xFFFFFFFFull << 32) | 30u;
    ASSERT_EQ(EventLogSize(1, &value), 0);
    ASSERT_EQ(NumberUnreadEvents(&unread), 0);
    EXPECT_EQ(unread, 0u) << "another size discards the records";
    value = 0;
    ASSERT_EQ(EventLogSize(0, &value), 0);
    EXPECT_EQ(value, 30u);
    uint64_t alarms = 0;
    ASSERT_EQ(AlarmLogSize(0, &alarms), 0);
    EXPECT_EQ(alarms, 5000u) << "the alarm store is separate";
}

TEST_F(MsgExportTest, HostReadsEventsThroughTheExports) {
    char buffer[256];
    EXPECT_EQ(GetNextEvent(buffer, sizeof buffer), -10008);
    int32_t error = 0;
    test::Shared().eventMon->WriteMsg("1061;one", 8, &error);
    test::Shared().alarmMon->WriteMsg("1060;alarm", 10, &error);
    uint64_t unread = ~0ull;
    ASSERT_EQ(NumberUnreadAlarms(&unread), 0);
    EXPECT_EQ(unread, 1u);
    EXPECT_EQ(GetNextEvent(buffer, 143), -10006);
    ASSERT_EQ(GetNextEvent(buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "1061;one");
    ASSERT_EQ(GetNextAlarm(buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "1060;alarm");
    EXPECT_EQ(GetNextAlarm(buffer, sizeof buffer), -10008);
}

// A message file that can't be opened (here a folder stands in its place) is told at level 25,
// and the library loads all the same but refuses every start.
TEST(MsgMonLoad, AMessageFileThatCannotBeOpenedStopsTheLibrary) {
    ASSERT_EQ(::mkdir(kFile, 0755), 0);
    {
        MsgMon mon("eventMon", kFile);
        EXPECT_FALSE(mon.Opened());
    }
    test::LoadLibrary();
    EXPECT_EQ(SetValidControllers("ALL"), 0);
    EXPECT_EQ(Initialization(test::FreePort(), nullptr, nullptr), -10001);
    EXPECT_TRUE(LogContains("eventMon [MsgMon::MsgMon] Error on _open (create) ZanthEvents.log\n"));
    EXPECT_FALSE(LogContains("alarmMon [MsgMon::MsgMon] Error"));
    test::UnloadLibrary();
}

// A writer killed at a random point of a burst. Each record the child finished is reported on a
// pipe; after the kill the reopened store must hold a run of consecutive records that ends with
// the last reported one or the one after it, each exactly as written.
std::string BurstRecord(uint32_t n) {
    char head[24];
    std::snprintf(head, sizeof head, "1061;%08u;", n);
    std::string text = head;
    text.append(n * 7 % (144 - text.size() + 1), static_cast<char>('a' + n % 26));
    return text;
}

TEST(MsgMonCrash, KilledWriterLosesAtMostTheLastRecord) {
    constexpr uint64_t kRing = 20;
    for (int round = 0; round < 60; ++round) {
        std::string file = "Crash" + std::to_string(round) + ".log";
        {
            MsgMon setup("eventMon", file.c_str());
            int32_t error = 1;
            setup.SetLogSize(kRing, &error);
            ASSERT_EQ(error, 0);
        }
        int fds[2];
        ASSERT_EQ(::pipe(fds), 0);
        pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::close(fds[0]);
            MsgMon writer("eventMon", file.c_str());
            for (uint32_t n = 0; n < 10000000; ++n) {
                std::string text = BurstRecord(n);
                int32_t error = 1;
                writer.WriteMsg(text.data(), static_cast<int32_t>(text.size()), &error);
                if (error != 0) ::_exit(3);
                if (::write(fds[1], &n, sizeof n) != sizeof n) ::_exit(4);
            }
            ::_exit(0);
        }
        ::close(fds[1]);
        // Kill somewhere past the first wrap of the ring, at a point that varies.
        const uint32_t killAfter = 60 + static_cast<uint32_t>(round) * 13;
        uint32_t reported = 0;
        bool any = false;
        uint32_t n = 0;
        while (::read(fds[0], &n, sizeof n) == sizeof n) {
            reported = n;
            any = true;
            if (n >= killAfter) break;
        }
        ::kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status)) << "the writer stopped on its own: " << status;
        while (::read(fds[0], &n, sizeof n) == sizeof n) reported = n;
        ::close(fds[0]);
        ASSERT_TRUE(any);

        MsgMon reader("eventMon", file.c_str());
        uint64_t unread = 0;
        reader.GetUnread(&unread);
        ASSERT_GE(unread, kRing - 1) << "round " << round;
        ASSERT_LE(unread, kRing) << "round " << round;
        std::vector<uint32_t> seen;
        for (uint64_t i = 0; i < unread; ++i) {
            char buffer[144];
            int32_t error = 1;
            reader.GetMsg(buffer, sizeof buffer, &error);
            ASSERT_EQ(error, 0) << "round " << round;
            uint32_t got = static_cast<uint32_t>(std::strtoul(buffer + 5, nullptr, 10));
            ASSERT_EQ(std::string(buffer, 144), Padded(BurstRecord(got)))
                << "round " << round << ": a record not as written";
            seen.push_back(got);
        }
        for (size_t i = 1; i < seen.size(); ++i) {
            ASSERT_EQ(seen[i], seen[i - 1] + 1) << "round " << round << ": out of order at " << i;
        }
        ASSERT_FALSE(seen.empty());
        EXPECT_GE(seen.back(), reported) << "round " << round << ": a finished record is missing";
        EXPECT_LE(seen.back(), reported + 1) << "round " << round;
        int32_t error = 0;
        char buffer[144];
        reader.GetMsg(buffer, sizeof buffer, &error);
        EXPECT_EQ(error, -10008);
    }
}

}  // namespace
}  // namespace zanth
