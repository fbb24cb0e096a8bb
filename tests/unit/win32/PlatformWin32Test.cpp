// The Win32 side of the platform layer: Winsock's own error numbers, binary file calls, the
// LogFilePath registry value and plugin loading. The sandbox gives each test process its own
// HKEY_CURRENT_USER.

#include <gtest/gtest.h>

#include <string>

#include "platform/File.h"
#include "platform/Library.h"
#include "platform/Socket.h"
#include "platform/UserStore.h"
#include "support/Library.h"
#include "support/Net.h"
#include "support/Sandbox.h"

// After the platform layer's headers, whose names windows.h would make macros of; Winsock 2
// before windows.h.
// clang-format off
#include <winsock2.h>
#include <windows.h>
// clang-format on

// The platform layer's names, not the system's macros.
#undef CopyFile
#undef DeleteFile
#undef LoadLibrary

namespace zanth::test {
namespace {

struct SocketStack : ::testing::Test {
    void SetUp() override {
        uint16_t version = 0;
        ASSERT_EQ(platform::SocketStartup(0x0202, &version), 0);
        EXPECT_EQ(version, 0x0202);
    }
    void TearDown() override { EXPECT_EQ(platform::SocketCleanup(), 0); }
};

// The numbers the library compares and logs come straight from Winsock, and the table names
// them.
TEST_F(SocketStack, ErrorsAreWinsockNumbers) {
    // A closed port: connection refused.
    int port = FreePort();
    platform::SocketHandle s = platform::OpenTcpSocket();
    ASSERT_NE(s, platform::kInvalidSocket);
    EXPECT_EQ(platform::Connect(s, platform::InetAddr("127.0.0.1"), port), platform::kSocketError);
    EXPECT_EQ(platform::LastSocketError(), 10061);
    EXPECT_STREQ(platform::WinsockErrorName(platform::LastSocketError()), "Connection refused");
    EXPECT_EQ(platform::CloseSocket(s), 0);

    // A port another socket listens on: in use, even though the library asks to reuse addresses.
    net::Fd holder = net::TcpSocket();
    int held = net::Bind(holder, 0, false);
    ASSERT_GT(held, 0);
    ASSERT_TRUE(net::Listen(holder, 1));
    platform::SocketHandle l = platform::OpenTcpSocket();
    ASSERT_EQ(platform::SetReuseAddress(l), 0);
    EXPECT_EQ(platform::BindAny(l, held), platform::kSocketError);
    EXPECT_EQ(platform::LastSocketError(), 10048);
    platform::CloseSocket(l);

    // A non-blocking socket with nothing to read: would block; and a peek leaves the bytes.
    net::Fd client = net::TcpSocket();
    ASSERT_TRUE(net::ConnectLoopback(client, held));
    ASSERT_EQ(net::WaitReadable(holder, 5000), 1);
    platform::SocketHandle accepted = platform::Accept(static_cast<platform::SocketHandle>(holder));
    ASSERT_NE(accepted, platform::kInvalidSocket);
    ASSERT_EQ(platform::SetNonBlocking(accepted), 0);
    char buffer[8];
    EXPECT_EQ(platform::Recv(accepted, buffer, sizeof buffer, false), platform::kSocketError);
    EXPECT_EQ(platform::LastSocketError(), 10035);
    ASSERT_EQ(net::Send(client, "abc", 3), 3);
    ASSERT_TRUE(platform::Readable(accepted, 5000));
    EXPECT_EQ(platform::Recv(accepted, buffer, sizeof buffer, true), 3);
    EXPECT_EQ(platform::Recv(accepted, buffer, sizeof buffer, false), 3);
    EXPECT_EQ(std::string(buffer, 3), "abc");

    // The peer gone with a reset (Wine may report a plain end): a receive reports 10054 or
    // 10053 (or end of stream), never a signal.
    net::CloseWithReset(client);
    ASSERT_TRUE(platform::Readable(accepted, 5000));
    long got = platform::Recv(accepted, buffer, sizeof buffer, false);
    if (got != 0) {
        EXPECT_EQ(got, platform::kSocketError);
        int error = platform::LastSocketError();
        EXPECT_TRUE(error == 10054 || error == 10053) << error;
    }
    platform::CloseSocket(accepted);
    net::Close(holder);
}

TEST_F(SocketStack, AddressTexts) {
    EXPECT_EQ(platform::InetAddr("127.0.0.1"), htonl(INADDR_LOOPBACK));
    EXPECT_EQ(platform::InetAddr("255.255.255.255"), platform::kInaddrNone);
    EXPECT_EQ(platform::InetAddr("no address"), platform::kInaddrNone);
    EXPECT_EQ(platform::InetAddr(nullptr), platform::kInaddrNone);
    int error = -1;
    EXPECT_EQ(platform::ResolveHost("localhost", &error), htonl(INADDR_LOOPBACK));
    EXPECT_EQ(error, 0);
}

// Message files hold exact bytes: no line-end translation, no end-of-file at 0x1A.
TEST(Win32Files, LowLevelCallsAreBinary) {
    const std::string bytes(
        "a\nb\r\nc\x1A"
        "d\0e",
        10);
    int fd = platform::OpenCreateTruncate("binary.dat");
    ASSERT_GE(fd, 0);
    EXPECT_EQ(platform::WriteFile(fd, bytes.data(), bytes.size()), 10);
    EXPECT_EQ(platform::Seek(fd, 2), 2);
    char back[16] = {};
    EXPECT_EQ(platform::ReadFile(fd, back, sizeof back), 8);
    EXPECT_EQ(std::string(back, 8), bytes.substr(2));
    EXPECT_EQ(platform::CloseFile(fd), 0);

    WIN32_FILE_ATTRIBUTE_DATA data{};
    ASSERT_TRUE(::GetFileAttributesExA("binary.dat", GetFileExInfoStandard, &data));
    EXPECT_EQ(data.nFileSizeLow, 10u);

    // A truncating open of an existing file empties it; the read-only open can't write.
    fd = platform::OpenWriteCreateTruncate("binary.dat");
    ASSERT_GE(fd, 0);
    platform::CloseFile(fd);
    fd = platform::OpenReadOnly("binary.dat");
    ASSERT_GE(fd, 0);
    EXPECT_EQ(platform::ReadFile(fd, back, sizeof back), 0);
    EXPECT_EQ(platform::WriteFile(fd, "x", 1), -1);
    platform::CloseFile(fd);

    EXPECT_TRUE(platform::CopyFile("binary.dat", "copy.dat"));
    EXPECT_TRUE(platform::FileExists("copy.dat"));
    EXPECT_TRUE(platform::DeleteFile("copy.dat"));
    EXPECT_FALSE(platform::FileExists("copy.dat"));
    EXPECT_FALSE(platform::DeleteFile("copy.dat"));
    EXPECT_EQ(platform::OpenReadWrite("copy.dat"), -1);
}

TEST(Win32Files, PathsAndStatus) {
    std::string cwd = platform::CurrentDirectory();
    ASSERT_FALSE(cwd.empty());
    EXPECT_EQ(cwd.back(), '\\');
    EXPECT_EQ(cwd, SandboxDir());
    EXPECT_EQ(platform::FullPath("zanth.txt"), cwd + "zanth.txt");
    EXPECT_EQ(platform::FullPath("C:\\site\\zanth.txt"), "C:\\site\\zanth.txt");
    EXPECT_EQ(platform::FullPath("\\\\server\\share\\zanth.txt"), "\\\\server\\share\\zanth.txt");

    EXPECT_EQ(platform::PathStatus(cwd.c_str()), 0);
    EXPECT_EQ(platform::PathStatus((cwd + "no such folder").c_str()), -10025);
}

// The log folder lives in HKEY_CURRENT_USER\Software\Orlan\ZanthDLL, value LogFilePath.
TEST(Win32UserStore, LogFilePathIsARegistryString) {
    std::string value = "unchanged";
    EXPECT_FALSE(platform::ReadUserValue(&value));
    EXPECT_EQ(value, "unchanged");
    EXPECT_EQ(platform::UserValuePath(),
              "HKEY_CURRENT_USER\\Software\\Orlan\\ZanthDLL\\LogFilePath");

    ASSERT_TRUE(platform::WriteUserValue("C:\\zanth logs\\"));
    char stored[64] = {};
    DWORD size = sizeof stored;
    ASSERT_EQ(::RegGetValueA(HKEY_CURRENT_USER, "Software\\Orlan\\ZanthDLL", "LogFilePath",
                             RRF_RT_REG_SZ, nullptr, stored, &size),
              ERROR_SUCCESS);
    EXPECT_STREQ(stored, "C:\\zanth logs\\");
    ASSERT_TRUE(platform::ReadUserValue(&value));
    EXPECT_EQ(value, "C:\\zanth logs\\");

    ASSERT_TRUE(platform::WriteUserValue(""));
    ASSERT_TRUE(platform::ReadUserValue(&value));
    EXPECT_EQ(value, "");

    // A value of another type (a site's hand edit) is no value.
    HKEY key = nullptr;
    ASSERT_EQ(
        ::RegOpenKeyExA(HKEY_CURRENT_USER, "Software\\Orlan\\ZanthDLL", 0, KEY_SET_VALUE, &key),
        ERROR_SUCCESS);
    DWORD number = 7;
    ASSERT_EQ(::RegSetValueExA(key, "LogFilePath", 0, REG_DWORD,
                               reinterpret_cast<const BYTE*>(&number), sizeof number),
              ERROR_SUCCESS);
    ::RegCloseKey(key);
    EXPECT_FALSE(platform::ReadUserValue(&value));
}

TEST(Win32Library, LoadAndLookUp) {
    EXPECT_STREQ(platform::kCipherLibraryFile, "zanth_encryption64.dll");
    EXPECT_EQ(platform::LoadLibrary("no_such_plugin.dll"), nullptr);
    platform::LibraryHandle kernel = platform::LoadLibrary("kernel32.dll");
    ASSERT_NE(kernel, nullptr);
    EXPECT_NE(platform::FindSymbol(kernel, "GetTickCount"), nullptr);
    EXPECT_EQ(platform::FindSymbol(kernel, "zanth_get_version"), nullptr);
    platform::FreeLibrary(kernel);
}

}  // namespace
}  // namespace zanth::test
