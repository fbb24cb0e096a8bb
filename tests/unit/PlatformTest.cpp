// The platform layer: library threads and their mailboxes, the event and mutex stand-ins,
// socket error numbers, the per-user store and the path query.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <pthread.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "platform/File.h"
#include "platform/Socket.h"
#include "platform/Sync.h"
#include "platform/Thread.h"
#include "platform/UserStore.h"
#include "protocol/MessageUtil.h"
#include "support/Library.h"
#include "support/Sandbox.h"

namespace zanth {
namespace {

using namespace std::chrono_literals;
using test::WaitUntil;
using Clock = std::chrono::steady_clock;

// Starts a library thread and returns its id, failing the test when none could be made.
platform::ThreadId Start(std::function<void()> body, bool suspended = false) {
    platform::ThreadId id = 0;
    EXPECT_EQ(platform::CreateThread(std::move(body), &id, suspended), 0);
    EXPECT_NE(id, 0u);
    return id;
}

#ifdef __linux__
// A library thread started with a stack size runs on a stack of that size (the Workers' 256 KiB
// and one below the system's least, which is raised to it), and one started without runs on the
// system's default.
TEST(LibraryThreads, StackSizeIsTheOneAskedFor) {
    auto stackOf = [](size_t asked) {
        std::atomic<size_t> seen{0};
        platform::ThreadId id = 0;
        EXPECT_EQ(platform::CreateThread(
                      [&] {
                          pthread_attr_t attr;
                          size_t size = 0;
                          if (pthread_getattr_np(pthread_self(), &attr) == 0) {
                              pthread_attr_getstacksize(&attr, &size);
                              pthread_attr_destroy(&attr);
                          }
                          seen = size;
                      },
                      &id, false, asked),
                  0);
        EXPECT_TRUE(WaitUntil([&] { return seen.load() != 0; }));
        EXPECT_TRUE(platform::WaitForLibraryThreads(5s));
        return seen.load();
    };
    EXPECT_EQ(stackOf(256 * 1024), 256u * 1024);
    EXPECT_EQ(stackOf(1024), static_cast<size_t>(PTHREAD_STACK_MIN));
    EXPECT_GT(stackOf(0), 256u * 1024);
}
#endif

TEST(LibraryThreads, PostsReachOnlyLiveMailboxes) {
    EXPECT_FALSE(platform::PostThreadMessage(0, 1105));
    EXPECT_FALSE(platform::PostThreadMessage(0x7FFFFFF0u, 1105));

    std::atomic<uint32_t> received{0};
    std::atomic<platform::ThreadId> seenId{0};
    platform::ThreadId id = Start([&] {
        seenId = platform::CurrentThreadId();
        uint32_t m = 0;
        if (platform::GetThreadMessage(&m) == 1) received = m;
    });
    ASSERT_TRUE(platform::PostThreadMessage(id, 1105));
    ASSERT_TRUE(WaitUntil([&] { return received.load() == 1105; }));
    EXPECT_EQ(seenId.load(), id);
    EXPECT_EQ(platform::CurrentThreadId(), 0u) << "the test's own thread is no library thread";

    // Once the body has returned, the mailbox is gone.
    ASSERT_TRUE(platform::WaitForLibraryThreads(5s));
    EXPECT_FALSE(platform::PostThreadMessage(id, 1103));
}

TEST(LibraryThreads, PeekTakesWithoutWaitingInArrivalOrder) {
    std::atomic<bool> go{false};
    std::atomic<bool> emptyPeekFailed{false};
    std::vector<uint32_t> taken;
    std::atomic<bool> done{false};
    platform::ThreadId id = Start([&] {
        uint32_t m = 0;
        emptyPeekFailed = !platform::PeekThreadMessage(&m);
        while (!go) std::this_thread::yield();
        while (platform::PeekThreadMessage(&m)) taken.push_back(m);
        done = true;
    });
    ASSERT_TRUE(WaitUntil([&] { return emptyPeekFailed.load(); }));
    ASSERT_TRUE(platform::PostThreadMessage(id, 1101));
    ASSERT_TRUE(platform::PostThreadMessage(id, 1106));
    ASSERT_TRUE(platform::PostThreadMessage(id, 1107));
    go = true;
    ASSERT_TRUE(WaitUntil([&] { return done.load(); }));
    EXPECT_EQ(taken, (std::vector<uint32_t>{1101, 1106, 1107}));
    EXPECT_TRUE(platform::WaitForLibraryThreads(5s));

    uint32_t m = 0;
    EXPECT_FALSE(platform::PeekThreadMessage(&m)) << "no mailbox on a foreign thread";
    EXPECT_EQ(platform::GetThreadMessage(&m), -1);
}

TEST(LibraryThreads, SuspendedThreadWaitsForResumeButItsMailboxExists) {
    std::atomic<bool> ran{false};
    std::atomic<uint32_t> first{0};
    platform::ThreadId id = Start(
        [&] {
            ran = true;
            uint32_t m = 0;
            if (platform::PeekThreadMessage(&m)) first = m;
        },
        true);
    ASSERT_TRUE(platform::PostThreadMessage(id, 1105)) << "a post right after creation arrives";
    std::this_thread::sleep_for(150ms);  // bounded: the body must not start on its own
    EXPECT_FALSE(ran.load());
    EXPECT_EQ(platform::LiveThreadCount(), 1u);
    platform::ResumeThread(id);
    ASSERT_TRUE(WaitUntil([&] { return ran.load(); }));
    EXPECT_TRUE(platform::WaitForLibraryThreads(5s));
    EXPECT_EQ(first.load(), 1105u);
    EXPECT_EQ(platform::LiveThreadCount(), 0u);
}

TEST(LibraryThreads, TerminateMarksTheThreadAndRunsItsKillHook) {
    EXPECT_FALSE(platform::TerminateThread(0));
    EXPECT_FALSE(platform::TerminateThread(0x7FFFFFF0u));

    std::atomic<bool> hookRan{false};
    std::atomic<bool> hookSet{false};
    std::atomic<bool> sawKilled{false};
    platform::ThreadId id = Start([&] {
        EXPECT_FALSE(platform::ThisThreadKilled());
        platform::SetKillHook([&] { hookRan = true; });
        hookSet = true;
        while (!platform::ThisThreadKilled()) platform::Sleep(5);
        sawKilled = true;
    });
    ASSERT_TRUE(WaitUntil([&] { return hookSet.load(); }));
    EXPECT_FALSE(platform::ThisThreadKilled()) << "only the marked thread reads as killed";
    ASSERT_TRUE(platform::TerminateThread(id));
    EXPECT_TRUE(hookRan.load()) << "the hook runs inside TerminateThread";
    ASSERT_TRUE(WaitUntil([&] { return sawKilled.load(); }));
    ASSERT_TRUE(platform::WaitForLibraryThreads(5s));
    EXPECT_FALSE(platform::TerminateThread(id)) << "an ended thread can't be terminated";
}

TEST(LibraryThreads, ClearedKillHookIsNotRun) {
    std::atomic<int> hookRuns{0};
    std::atomic<bool> ready{false};
    platform::ThreadId id = Start([&] {
        platform::SetKillHook([&] { ++hookRuns; });
        platform::SetKillHook(nullptr);
        ready = true;
        while (!platform::ThisThreadKilled()) platform::Sleep(5);
    });
    ASSERT_TRUE(WaitUntil([&] { return ready.load(); }));
    ASSERT_TRUE(platform::TerminateThread(id));
    ASSERT_TRUE(platform::WaitForLibraryThreads(5s));
    EXPECT_EQ(hookRuns.load(), 0);
}

TEST(LibraryThreads, UnloadCutsSleepsAndBlockingTakesShort) {
    std::atomic<bool> slept{false};
    std::atomic<int> takeResult{-5};
    Start([&] {
        platform::Sleep(60000);
        slept = true;
    });
    Start([&] {
        uint32_t m = 0;
        takeResult = platform::GetThreadMessage(&m);
    });
    std::this_thread::sleep_for(50ms);  // bounded: neither may end on its own
    EXPECT_FALSE(slept.load());
    EXPECT_EQ(takeResult.load(), -5);
    auto begin = Clock::now();
    platform::BeginUnload();
    EXPECT_TRUE(platform::Unloading());
    ASSERT_TRUE(platform::WaitForLibraryThreads(5s));
    EXPECT_LT(Clock::now() - begin, 2s);
    EXPECT_TRUE(slept.load());
    EXPECT_EQ(takeResult.load(), 0) << "a blocking take reports the unload";

    // A sleep while unloading returns at once; after EndUnload sleeps last again.
    begin = Clock::now();
    platform::Sleep(5000);
    EXPECT_LT(Clock::now() - begin, 1s);
    platform::EndUnload();
    EXPECT_FALSE(platform::Unloading());
    begin = Clock::now();
    platform::Sleep(80);
    EXPECT_GE(Clock::now() - begin, 75ms);
}

TEST(AutoResetEvent, TimedWaitTimesOut) {
    platform::AutoResetEvent event;
    auto begin = Clock::now();
    EXPECT_FALSE(event.Wait(60));
    EXPECT_GE(Clock::now() - begin, 55ms);
    EXPECT_FALSE(event.Wait(0));
}

TEST(AutoResetEvent, SetBeforeWaitIsKeptForOneWait) {
    platform::AutoResetEvent event;
    event.Set();
    event.Set();  // not counted: one signal, one wake
    EXPECT_TRUE(event.Wait(0));
    EXPECT_FALSE(event.Wait(0)) << "the wake clears the signal";
    event.Set();
    event.Reset();
    EXPECT_FALSE(event.Wait(0));
}

TEST(AutoResetEvent, OneSetWakesOneWaiter) {
    platform::AutoResetEvent event;
    std::atomic<int> woken{0};
    std::atomic<int> waiting{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 2; ++i) {
        waiters.emplace_back([&] {
            ++waiting;
            if (event.Wait(10000)) ++woken;
        });
    }
    ASSERT_TRUE(WaitUntil([&] { return waiting.load() == 2; }));
    std::this_thread::sleep_for(50ms);  // bounded: nobody may wake without a Set
    EXPECT_EQ(woken.load(), 0);
    event.Set();
    ASSERT_TRUE(WaitUntil([&] { return woken.load() == 1; }));
    std::this_thread::sleep_for(150ms);  // bounded: the second must stay asleep
    EXPECT_EQ(woken.load(), 1);
    event.Set();
    ASSERT_TRUE(WaitUntil([&] { return woken.load() == 2; }));
    for (auto& t : waiters) t.join();
}

TEST(OwnedTimedMutex, TimedLockFailsWhileAnotherThreadOwnsIt) {
    platform::OwnedTimedMutex mutex;
    std::atomic<bool> held{false};
    std::atomic<bool> release{false};
    std::atomic<bool> foreignUnlock{true};
    std::thread owner([&] {
        mutex.Lock();
        EXPECT_TRUE(mutex.OwnedByMe());
        held = true;
        while (!release) std::this_thread::sleep_for(1ms);
        EXPECT_TRUE(mutex.Unlock());
    });
    ASSERT_TRUE(WaitUntil([&] { return held.load(); }));

    auto begin = Clock::now();
    EXPECT_FALSE(mutex.Lock(60));
    EXPECT_GE(Clock::now() - begin, 55ms);
    EXPECT_FALSE(mutex.Lock(0));
    EXPECT_FALSE(mutex.OwnedByMe());

    // A release by a thread that doesn't own it changes nothing.
    foreignUnlock = mutex.Unlock();
    EXPECT_FALSE(foreignUnlock.load());
    EXPECT_FALSE(mutex.Lock(0)) << "the owner still holds it";

    release = true;
    owner.join();
    EXPECT_TRUE(mutex.Lock(1000));
    EXPECT_TRUE(mutex.OwnedByMe());
    EXPECT_TRUE(mutex.Unlock());
    EXPECT_FALSE(mutex.Unlock()) << "a second release is harmless too";
    EXPECT_TRUE(mutex.Lock(0));
    EXPECT_TRUE(mutex.Unlock());
}

// Socket errors as the rest of the library sees them: Winsock numbers, whatever the system says.
TEST(SocketErrors, SystemNumbersBecomeWinsockNumbers) {
    const struct {
        int system;
        int winsock;
    } kMapping[] = {
        {EWOULDBLOCK, 10035},  {EAGAIN, 10035},      {EINPROGRESS, 10036},  {EALREADY, 10037},
        {ENOTSOCK, 10038},     {EMSGSIZE, 10040},    {EADDRINUSE, 10048},   {EADDRNOTAVAIL, 10049},
        {ENETDOWN, 10050},     {ENETUNREACH, 10051}, {ECONNABORTED, 10053}, {ECONNRESET, 10054},
        {EPIPE, 10054},        {ENOBUFS, 10055},     {EISCONN, 10056},      {ENOTCONN, 10057},
        {ESHUTDOWN, 10058},    {ETIMEDOUT, 10060},   {ECONNREFUSED, 10061}, {EHOSTDOWN, 10064},
        {EHOSTUNREACH, 10065}, {EBADF, 10009},       {EACCES, 10013},       {EFAULT, 10014},
        {EINVAL, 10022},       {EMFILE, 10024},      {EINTR, 10004},        {0, 0},
    };
    for (const auto& row : kMapping) {
        EXPECT_EQ(platform::WinsockError(row.system), row.winsock) << "errno " << row.system;
    }
    EXPECT_STREQ(platform::WinsockErrorName(10061), "Connection refused");
    EXPECT_STREQ(platform::WinsockErrorName(10035), "Resource temporarily unavailable");
    EXPECT_EQ(platform::WinsockErrorName(4242), nullptr);
    uint16_t version = 0;
    EXPECT_EQ(platform::SocketStartup(0x0202, &version), 0);
    EXPECT_EQ(version, 0x0202);
    EXPECT_EQ(platform::SocketCleanup(), 0);
}

TEST(SocketErrors, RealFailuresReportWinsockNumbers) {
    // A port that was free a moment ago: the connect is refused.
    int port = test::FreePort();
    platform::SocketHandle s = platform::OpenTcpSocket();
    ASSERT_NE(s, platform::kInvalidSocket);
    ASSERT_EQ(platform::Connect(s, platform::InetAddr("127.0.0.1"), port), platform::kSocketError);
    int error = platform::LastSocketError();
    EXPECT_EQ(error, 10061);
    char text[128];
    MessageUtil::SocketErrorText(error, text, sizeof text);
    EXPECT_STREQ(text, "Winsock 10061: Connection refused");
    platform::CloseSocket(s);

    // A connected pair: nothing to read yet, then the peer goes and a send fails without SIGPIPE.
    platform::SocketHandle listener = platform::OpenTcpSocket();
    ASSERT_EQ(platform::SetReuseAddress(listener), 0);
    ASSERT_EQ(platform::BindLoopback(listener, 0), 0);
    ASSERT_EQ(platform::Listen(listener, 1), 0);
    platform::SocketHandle client = platform::OpenTcpSocket();
    ASSERT_EQ(
        platform::Connect(client, platform::InetAddr("127.0.0.1"), platform::LocalPort(listener)),
        0);
    ASSERT_TRUE(platform::Readable(listener, 2000));
    platform::SocketHandle server = platform::Accept(listener);
    ASSERT_NE(server, platform::kInvalidSocket);
    ASSERT_EQ(platform::SetNonBlocking(client), 0);
    char byte = 0;
    EXPECT_EQ(platform::Recv(client, &byte, 1, true), platform::kSocketError);
    EXPECT_EQ(platform::LastSocketError(), 10035);

    platform::CloseSocket(server);
    long sent = 0;
    const char chunk[512] = {};
    // The first sends may still be accepted; the reset arrives after the first segment.
    ASSERT_TRUE(WaitUntil([&] {
        sent = platform::Send(client, chunk, sizeof chunk);
        return sent == platform::kSocketError;
    }));
    EXPECT_EQ(platform::LastSocketError(), 10054);
    platform::CloseSocket(client);
    platform::CloseSocket(listener);
}

TEST(SocketAddresses, InetAddrKeepsItsOldMeaning) {
    EXPECT_EQ(platform::InetAddr("127.0.0.1"), htonl(0x7F000001u));
    EXPECT_EQ(platform::InetAddr("255.255.255.255"), platform::kInaddrNone);
    EXPECT_EQ(platform::InetAddr("not an address"), platform::kInaddrNone);
    EXPECT_EQ(platform::InetAddr(nullptr), platform::kInaddrNone);
    int error = -1;
    EXPECT_EQ(platform::ResolveHost("localhost", &error), htonl(0x7F000001u));
    EXPECT_EQ(error, 0);
}

class UserStore : public ::testing::Test {
  protected:
    void SetUp() override {
        const char* xdg = std::getenv("XDG_CONFIG_HOME");
        const char* home = std::getenv("HOME");
        savedXdg_ = xdg ? xdg : "";
        savedHome_ = home ? home : "";
    }
    void TearDown() override {
        ::setenv("XDG_CONFIG_HOME", savedXdg_.c_str(), 1);
        ::setenv("HOME", savedHome_.c_str(), 1);
    }
    std::string savedXdg_, savedHome_;
};

TEST_F(UserStore, PathFollowsXdgConfigHomeThenHome) {
    std::string xdg = test::SandboxDir() + "xdg";
    ::setenv("XDG_CONFIG_HOME", xdg.c_str(), 1);
    EXPECT_EQ(platform::UserValuePath(), xdg + "/Orlan/ZanthDLL/LogFilePath");
    ::setenv("XDG_CONFIG_HOME", "", 1);
    std::string home = test::SandboxDir() + "otherhome";
    ::setenv("HOME", home.c_str(), 1);
    EXPECT_EQ(platform::UserValuePath(), home + "/.config/Orlan/ZanthDLL/LogFilePath");
}

TEST_F(UserStore, MissingIsNoValueAndWritesReadBackWhole) {
    std::string xdg = test::SandboxDir() + "fresh-config";
    ::setenv("XDG_CONFIG_HOME", xdg.c_str(), 1);
    std::string value = "unchanged";
    EXPECT_FALSE(platform::ReadUserValue(&value));
    EXPECT_EQ(value, "unchanged");

    // The folders are created on the first write.
    ASSERT_TRUE(platform::WriteUserValue("/var/log/zanth folder/"));
    ASSERT_TRUE(platform::ReadUserValue(&value));
    EXPECT_EQ(value, "/var/log/zanth folder/");
    struct stat st {};
    ASSERT_EQ(::stat(platform::UserValuePath().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);

    // A shorter value replaces the whole text; nothing of the old one is left behind.
    ASSERT_TRUE(platform::WriteUserValue("/tmp/"));
    ASSERT_TRUE(platform::ReadUserValue(&value));
    EXPECT_EQ(value, "/tmp/");
    size_t files = 0;
    for (auto& entry : std::filesystem::directory_iterator(xdg + "/Orlan/ZanthDLL")) {
        (void)entry;
        ++files;
    }
    EXPECT_EQ(files, 1u) << "no temporary file stays behind";

    // An empty value is a value, unlike a missing one.
    ASSERT_TRUE(platform::WriteUserValue(""));
    value = "x";
    EXPECT_TRUE(platform::ReadUserValue(&value));
    EXPECT_EQ(value, "");
}

TEST_F(UserStore, ValueThatCannotBeStoredIsRefused) {
    // The configuration folder is a file: nothing can be created below it.
    std::string blocker = test::SandboxDir() + "blocker";
    std::ofstream(blocker) << "x";
    ::setenv("XDG_CONFIG_HOME", blocker.c_str(), 1);
    EXPECT_FALSE(platform::WriteUserValue("/tmp/"));
    std::string value;
    EXPECT_FALSE(platform::ReadUserValue(&value));
}

TEST(PathStatus, MapsTheStatusQuery) {
    EXPECT_EQ(platform::PathStatus(test::SandboxDir().c_str()), 0);
    EXPECT_EQ(platform::PathStatus((test::SandboxDir() + "no-such-folder").c_str()), -10025);
    EXPECT_EQ(platform::PathStatus(""), -10025);
    std::string file = test::SandboxDir() + "plain-file";
    std::ofstream(file) << "x";
    EXPECT_EQ(platform::PathStatus(file.c_str()), 0);
    // A path through a file is neither missing nor invalid: any other failure.
    EXPECT_EQ(platform::PathStatus((file + "/below").c_str()), -1);
}

TEST(Files, CurrentDirectoryAndFullPathEndInTheSandbox) {
    EXPECT_EQ(platform::CurrentDirectory(), test::SandboxDir());
    EXPECT_EQ(platform::FullPath("ZanthEvents.log"), test::SandboxDir() + "ZanthEvents.log");
    EXPECT_EQ(platform::FullPath("/abs/name"), "/abs/name");
}

}  // namespace
}  // namespace zanth
