// The file transfer commands on the wire, against a scripted controller: each call's exact
// frames, the replies' results and outputs on both roads, the chunked transfer state between
// calls, and the refusals that send nothing.

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "support/FakeController.h"
#include "support/Library.h"
#include "zanth.h"

namespace zanth::test {
namespace {

using namespace std::string_literals;

std::string Frame(int code, const std::string& payload) {
    char header[16];
    std::snprintf(header, sizeof header, "%04d;%04d;", code, static_cast<int>(payload.size() + 10));
    return header + payload;
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// One exchange on the wire: the frame the library must send, and the controller's answer.
struct Exchange {
    std::string sent;
    std::optional<std::string> answer;
};

// One call: what goes out, what comes back, and what the caller sees.
struct Step {
    const char* name;
    std::function<int32_t()> call;
    std::vector<Exchange> wire;
    int32_t result;
    std::function<void()> check = [] {};
    // Non-zero: the last answer must reach the response queue whole, under this rspid.
    int32_t rspid = 0;
    // The library ends the link after this step.
    bool closes = false;
};

// What every chunk call shares: the outputs of the last GetData.
char buffer[8];
int32_t bytesRead = -1;
int32_t isLast = -1;
char permission[8];

class FileTransferTest : public LibraryTest {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        Start("AA:00:01,AA:00:02,AA:00:03,AA:00:04,AA:00:05,AA:00:06,11:22:33");
        int32_t wait = 3000;
        ASSERT_EQ(RecvWaitTime(1, &wait), 0);
    }

    // A scripted controller identified under `mac`, one per scenario: a transfer refused with
    // -10006 leaves its link waiting for a reply that never comes.
    void Connect(const char* mac) {
        c_.Close();
        ASSERT_TRUE(c_.Connect(port_));
        ASSERT_TRUE(c_.Identify(mac));
        ASSERT_TRUE(WaitUntil([&] {
            char list[256] = {};
            GetConnectedControllers(list, sizeof list);
            return std::strstr(list, mac) != nullptr;
        }));
    }

    void Run(const std::vector<Step>& steps) {
        for (const Step& s : steps) {
            SCOPED_TRACE(s.name);
            auto result = std::async(std::launch::async, s.call);
            for (const Exchange& e : s.wire) {
                auto frame = c_.ReadFrame(2000);
                ASSERT_TRUE(frame) << "nothing sent, expected " << e.sent;
                EXPECT_EQ(*frame, e.sent);
                if (e.answer) {
                    ASSERT_TRUE(c_.SendRaw(*e.answer));
                }
            }
            ASSERT_EQ(result.wait_for(std::chrono::seconds(10)), std::future_status::ready);
            EXPECT_EQ(result.get(), s.result);
            if (s.rspid != 0) {
                int32_t rspid = 0;
                char text[4117] = {};
                ASSERT_TRUE(
                    WaitUntil([&] { return GetNextResponse(&rspid, text, sizeof text) == 0; }));
                EXPECT_EQ(rspid, s.rspid);
                EXPECT_EQ(std::string(text, s.wire.back().answer->size()), *s.wire.back().answer);
            }
            s.check();
            if (s.closes) {
                EXPECT_TRUE(c_.WaitClosed());
                continue;
            }
            // Nothing more went out than the table says.
            EXPECT_TRUE(c_.Silent(s.wire.empty() ? 150 : 30));
        }
    }

    FakeController c_;
};

const char* kMac = "AA:00:01";

TEST_F(FileTransferTest, WholeFilesGoThroughTheWorkersStreamOnBothRoads) {
    Connect(kMac);
    { std::ofstream("up.txt", std::ios::binary) << "xyz"; }
    Run({
        {"RspGetFile ends with a code-0 frame under its rspid",
         [] { return RspGetFile(7, kMac, "/a/log.txt", "got.bin"); },
         {{Frame(33, "/a/log.txt;"), Frame(1034, "hel\0lo"s)}},
         0,
         [] {
             int32_t rspid = 0;
             char text[64] = {};
             ASSERT_TRUE(
                 WaitUntil([&] { return GetNextResponse(&rspid, text, sizeof text) == 0; }));
             EXPECT_EQ(rspid, 7);
             EXPECT_STREQ(text, "0000;0012;0;");
             EXPECT_EQ(ReadFile("got.bin"), "hel\0lo"s);
         }},
        {"GetFile asks for each further chunk and returns 0 at the last",
         [] { return GetFile(kMac, "/a/log.txt", "got2.bin"); },
         {{Frame(33, "/a/log.txt;"), Frame(1033, "ab")}, {"0034;0010;", Frame(1034, "cd")}},
         0,
         [] { EXPECT_EQ(ReadFile("got2.bin"), "abcd"); }},
        {"SendFile returns 0 once the end chunk is out",
         [] { return SendFile(kMac, "/a/up.txt", "up.txt"); },
         {{Frame(30, "/a/up.txt;"), Frame(1030, "0;")}, {"0032;0013;xyz", Frame(1030, "0;")}},
         0},
        {"RspSendFile of a missing local file: -10007 framed, nothing sent",
         [] { return RspSendFile(8, kMac, "/a/none", "no/such/file"); },
         {},
         0,
         [] {
             int32_t rspid = 0;
             char text[64] = {};
             ASSERT_TRUE(
                 WaitUntil([&] { return GetNextResponse(&rspid, text, sizeof text) == 0; }));
             EXPECT_EQ(rspid, 8);
             EXPECT_STREQ(text, "0000;0017;-10007;");
         }},
        {"GetFile's 9980 returns the controller's own number",
         [] { return GetFile(kMac, "/a/x", "x.bin"); },
         {{Frame(33, "/a/x;"), Frame(9980, "-120;Disk gone;")}},
         -120,
         [] { EXPECT_TRUE(LogContains("[Worker::Run] file transfer error result=-120 err=")); }},
        {"blank controller path",
         [] { return GetFile(kMac, "", "x.bin"); },
         {},
         -10002,
         [] { EXPECT_TRUE(LogContains("[Master::GetFile] controllerPathFile cannot be blank")); }},
        {"blank local path",
         [] { return GetFile(kMac, "/a/x", nullptr); },
         {},
         -10002,
         [] { EXPECT_TRUE(LogContains("[Master::GetFile] pcPathFile cannot be blank")); }},
        {"SendFile's own texts",
         [] { return SendFile(kMac, nullptr, "x"); },
         {},
         -10002,
         [] { EXPECT_TRUE(LogContains("[Master::SendFile] controllerPathFile cannot be blank")); }},
        {"SendFile blank local path",
         [] { return SendFile(kMac, "/a/x", ""); },
         {},
         -10002,
         [] { EXPECT_TRUE(LogContains("[Master::SendFile] pcPathFile cannot be blank")); }},
        {"a local path too long for the Worker's record",
         [] { return SendFile(kMac, "/a/x", std::string(256, 'p').c_str()); },
         {},
         -10002},
        // Last: the controller ends the link after 9910, and the raw reply's number stands.
        {"an unknown-command reply is read as a positive number",
         [] { return GetFile(kMac, "/a/y", "y.bin"); },
         {{Frame(33, "/a/y;"), Frame(9910, "33;")}},
         9910,
         [] {},
         0,
         true},
    });
}

TEST_F(FileTransferTest, BlockingChunksKeepOneTransferOpenBetweenCalls) {
    Connect(kMac);
    auto get = [](const char* path, int32_t size = sizeof buffer) {
        return [=] { return GetData(kMac, path, buffer, size, &bytesRead, &isLast); };
    };
    auto got = [](const std::string& bytes, int32_t last) {
        return [=] {
            EXPECT_EQ(std::string(buffer, static_cast<size_t>(bytesRead)), bytes);
            EXPECT_EQ(isLast, last);
        };
    };
    const std::string full4086(4086, 'F');
    Run({
        {"the first GetData asks for the file; a binary chunk comes whole",
         get("/f"),
         {{"0033;0013;/f;", Frame(1033, "a\0;c"s)}},
         0,
         got("a\0;c"s, 0)},
        {"the same path asks for the next chunk",
         get("/f"),
         {{"0034;0010;", Frame(1034, "")}},
         0,
         got("", 1)},
        {"after the last chunk the path starts anew",
         get("/f"),
         {{"0033;0013;/f;", Frame(1033, "12345678")}},
         0,
         got("12345678", 0)},
        {"another path while one is open: -10027, nothing sent",
         get("/g"),
         {},
         -10027,
         [] {
             EXPECT_TRUE(
                 LogContains("[-10027][Master::GetData] Data Transfer In-Progress: "
                             "controllerPathFile=/g != filename=/f in previous call"));
         }},
        {"the refusal closed the open one: the new path starts",
         get("/g"),
         {{"0033;0013;/g;", Frame(9980, "-5;Disk gone;")}},
         -5,
         [] {
             EXPECT_TRUE(LogContains("[Master::GetData] rslt=-5"));
             EXPECT_TRUE(LogContains("[Master::GetData] file transfer error, rslt=-5 err="));
         }},
        {"9980 without a result", get("/g"), {{"0033;0013;/g;", Frame(9980, "")}}, -10017},
        {"another reply", get("/g"), {{"0033;0013;/g;", Frame(1079, "x;")}}, -10010},
        {"null outputs are refused",
         [] { return GetData(kMac, "/g", buffer, 8, nullptr, &isLast); },
         {},
         -10002},
        {"blank path",
         get(""),
         {},
         -10002,
         [] { EXPECT_TRUE(LogContains("[Master::GetData] controllerPathFile cannot be blank")); }},

        {"the first SendData opens the file, then sends the chunk",
         [] { return SendData(kMac, "/u", "a\0b", 3, 0); },
         {{"0030;0013;/u;", Frame(1030, "0;")}, {"0031;0013;a\0b"s, Frame(1030, "0;")}},
         0},
        {"the next one for the same path is one chunk",
         [] { return SendData(kMac, "/u", "cd", 2, 1); },
         {{"0032;0012;cd", Frame(1030, "0;")}},
         0},
        {"end of data on the first call: opening, then the end chunk",
         [] { return SendData(kMac, "/v", "", 0, 1); },
         {{"0030;0013;/v;", Frame(1030, "0;")}, {"0032;0010;", Frame(1030, "0;")}},
         0},
        {"a full chunk of 4086 goes out",
         [&] { return SendData(kMac, "/u", full4086.data(), 4086, 0); },
         {{"0030;0013;/u;", Frame(1030, "0;")}, {Frame(31, full4086), Frame(1030, "0;")}},
         0},
        {"another path while /u is open",
         [] { return SendData(kMac, "/w", "x", 1, 0); },
         {},
         -10027,
         [] {
             EXPECT_TRUE(
                 LogContains("[-10027][Master::SendData] Data Transfer In-Progress: "
                             "gatewayPathFile=/w != filename=/u in previous call"));
         }},
        {"end of data outside 0 and 1",
         [] { return SendData(kMac, "/w", "x", 1, 2); },
         {},
         -10002,
         [] {
             EXPECT_TRUE(
                 LogContains("[Master::SendData] end of data value must be between 0 and 1"));
         }},
        {"a negative size", [] { return SendData(kMac, "/w", "x", -1, 0); }, {}, -10002},
        {"the controller refuses the opening",
         [] { return SendData(kMac, "/w", "x", 1, 0); },
         {{"0030;0013;/w;", Frame(9980, "-120;Full;")}},
         -120,
         [] { EXPECT_TRUE(LogContains("[Master::SendData] file transfer error rslt=-120 err=")); }},
        {"a chunk's reply of another code",
         [] { return SendData(kMac, "/w", "x", 1, 1); },
         {{"0030;0013;/w;", Frame(1030, "0;")}, {"0032;0011;x", Frame(1079, "0;")}},
         -10010},
    });
}

TEST_F(FileTransferTest, OversizeChunksTellTheControllerToGiveUp) {
    // Each refusal leaves its link waiting for a reply, so each gets a controller of its own.
    const std::string big(4087, 'B');
    struct Row {
        const char* mac;
        Step step;
    };
    std::vector<Row> rows = {
        {"AA:00:02",
         {"GetData with a buffer one byte short",
          [] { return GetData("AA:00:02", "/f", buffer, 3, &bytesRead, &isLast); },
          {{"0033;0013;/f;", Frame(1034, "abcd")}, {"9980;0039;-10007;File buffer too small;", {}}},
          -10006,
          [] {
              EXPECT_TRUE(LogContains("[Master::GetData] Error: fileDataSize=3 < size of data=4"));
              EXPECT_EQ(std::string(buffer, 3), std::string(3, '\0'));
          }}},
        {"AA:00:03",
         {"SendData of 4087 bytes",
          [&] { return SendData("AA:00:03", "/u", big.data(), 4087, 1); },
          {{"0030;0013;/u;", Frame(1030, "0;")}, {"9980;0039;-10007;File buffer too large;", {}}},
          -10006,
          [] {
              EXPECT_TRUE(LogContains("[Master::SendData] Error: fileDataSize=4087 > MAX=4086"));
          }}},
        {"AA:00:04",
         {"RspSendData of 4087 bytes",
          [&] { return RspSendData(9, "AA:00:04", "/u", big.data(), 4087, 0); },
          {{"9980;0039;-10007;File buffer too large;", {}}},
          -10006,
          [] {
              EXPECT_TRUE(LogContains("[Master::RspSendData] Error: fileDataSize=4087 > MAX=4086"));
          }}},
    };
    for (const Row& row : rows) {
        Connect(row.mac);
        Run({row.step});
    }
}

TEST_F(FileTransferTest, RspChunkFormsQueueEachStepAndTheRepliesComeBackWhole) {
    Connect(kMac);
    Run({
        {"RspGetDataFilename",
         [] { return RspGetDataFilename(11, kMac, "/f"); },
         {{"0033;0013;/f;", Frame(1033, "ab")}},
         0,
         [] { EXPECT_TRUE(LogContains("[Master::RspGetDataFilename] gatewayPathFile=/f")); },
         11},
        {"RspGetData: a binary chunk reaches the queue whole",
         [] { return RspGetData(12, kMac, "/f"); },
         {{"0034;0010;", Frame(1034, "c\0d"s)}},
         0,
         [] {},
         12},
        {"RspSendDataFilename",
         [] { return RspSendDataFilename(13, kMac, "/u"); },
         {{"0030;0013;/u;", Frame(1030, "0;")}},
         0,
         [] { EXPECT_TRUE(LogContains("[Master::RspSendDataFilename] gatewayPathFile=/u")); },
         13},
        {"RspSendData, more to follow",
         [] { return RspSendData(14, kMac, "/u", "x\0y", 3, 0); },
         {{"0031;0013;x\0y"s, Frame(1030, "0;")}},
         0,
         [] {},
         14},
        {"RspSendData, the end",
         [] { return RspSendData(15, kMac, "/u", "", 0, 1); },
         {{"0032;0010;", Frame(9980, "-7;No room;")}},
         0,
         [] {},
         15},
        {"RspSendData end of data 5",
         [] { return RspSendData(16, kMac, "/u", "", 0, 5); },
         {},
         -10002,
         [] {
             EXPECT_TRUE(
                 LogContains("[Master::RspSendData] end of data value must be between 0 and 1"));
         }},
        {"RspGetData blank",
         [] { return RspGetData(17, kMac, ""); },
         {},
         -10002,
         [] {
             EXPECT_TRUE(LogContains("[Master::RspGetData] controllerPathFile cannot be blank"));
         }},
        {"RspSendDataFilename blank",
         [] { return RspSendDataFilename(18, kMac, nullptr); },
         {},
         -10002,
         [] {
             EXPECT_TRUE(
                 LogContains("[Master::RspSendDataFilename] controllerPathFile cannot be blank"));
         }},
    });
}

TEST_F(FileTransferTest, StatusAndDeleteReadTheirRepliesAsDescribed) {
    Connect(kMac);
    auto status = [](int32_t size) {
        return [=] { return GetFileStatus(kMac, "/f", permission, size); };
    };
    Run({
        {"GetFileStatus",
         status(4),
         {{"0028;0013;/f;", Frame(1028, "0;644;")}},
         0,
         [] { EXPECT_STREQ(permission, "644"); }},
        {"a buffer of 3 for three digits",
         status(3),
         {{"0028;0013;/f;", Frame(1028, "0;644;")}},
         -10006},
        {"the controller's -5", status(4), {{"0028;0013;/f;", Frame(1028, "-5;")}}, -10001},
        {"the controller's -101 passes",
         status(4),
         {{"0028;0013;/f;", Frame(1028, "-101;")}},
         -101},
        {"no permission field", status(4), {{"0028;0013;/f;", Frame(1028, "0;")}}, -10011},
        {"the reply of the other mode", status(4), {{"0028;0013;/f;", Frame(1029, "0;")}}, -10010},
        {"FileStatus mode 0 is the same",
         [] { return FileStatus(kMac, 0, "/f", permission, sizeof permission); },
         {{"0028;0013;/f;", Frame(1028, "0;600;")}},
         0,
         [] { EXPECT_STREQ(permission, "600"); }},
        {"SetFileStatus",
         [] { return SetFileStatus(kMac, "/f", "644"); },
         {{"0029;0017;/f;644;", Frame(1029, "0;")}},
         0,
         [] { EXPECT_TRUE(LogContains("[Master::FileStatus] gatewayPathFile=/f")); }},
        {"an octal digit beyond 7",
         [] { return SetFileStatus(kMac, "/f", "648"); },
         {},
         -10002,
         [] {
             EXPECT_TRUE(
                 LogContains("[Master::FileStatus] permission must be 3-digit octal number"));
         }},
        {"two digits",
         [] { return SetFileStatus(kMac, "/f", "64"); },
         {},
         -10002,
         [] { EXPECT_TRUE(LogContains("[Master::FileStatus] permission must contain 3 digits")); }},
        {"no permission", [] { return SetFileStatus(kMac, "/f", nullptr); }, {}, -10002},
        {"mode 2",
         [] { return FileStatus(kMac, 2, "/f", permission, 8); },
         {},
         -10002,
         [] {
             EXPECT_TRUE(LogContains("[Master::FileStatus] mode value must be between 0 and 1"));
         }},
        {"GetFileStatus without a buffer",
         [] { return GetFileStatus(kMac, "/f", nullptr, 4); },
         {},
         -10002},
        {"RspSetFileStatus",
         [] { return RspSetFileStatus(21, kMac, "/f", "600"); },
         {{"0029;0017;/f;600;", Frame(1029, "0;")}},
         0,
         [] {},
         21},
        {"RspGetFileStatus",
         [] { return RspGetFileStatus(22, kMac, "/f"); },
         {{"0028;0013;/f;", Frame(1028, "0;600;")}},
         0,
         [] {},
         22},
        {"RspFileStatus mode 1",
         [] { return RspFileStatus(23, kMac, 1, "/f", "755"); },
         {{"0029;0017;/f;755;", Frame(1029, "0;")}},
         0,
         [] {},
         23},

        {"ZanthDeleteFile",
         [] { return ZanthDeleteFile(kMac, "/f"); },
         {{"0114;0013;/f;", Frame(1113, "0;")}},
         0},
        {"a negative result stands unmapped",
         [] { return ZanthDeleteFile(kMac, "/f"); },
         {{"0114;0013;/f;", Frame(1113, "-3;")}},
         -3},
        {"the first number of any reply",
         [] { return ZanthDeleteFile(kMac, "/f"); },
         {{"0114;0013;/f;", Frame(1079, "7;")}},
         7},
        {"a reply without a number",
         [] { return ZanthDeleteFile(kMac, "/f"); },
         {{"0114;0013;/f;", Frame(1113, "")}},
         -10010},
        {"RspZanthDeleteFile",
         [] { return RspZanthDeleteFile(31, kMac, "/f"); },
         {{"0114;0013;/f;", Frame(1113, "0;")}},
         0,
         [] {},
         31},
    });
}

TEST_F(FileTransferTest, ChecksComeInOrderValidConnectedThenArguments) {
    struct Row {
        const char* name;
        std::function<int32_t(const char*)> call;
    };
    const std::vector<Row> rows = {
        {"GetFile", [](const char* m) { return GetFile(m, "", ""); }},
        {"RspSendFile", [](const char* m) { return RspSendFile(1, m, "", ""); }},
        {"GetData", [](const char* m) { return GetData(m, "", buffer, 8, nullptr, nullptr); }},
        {"SendData", [](const char* m) { return SendData(m, "", nullptr, -1, 9); }},
        {"RspGetDataFilename", [](const char* m) { return RspGetDataFilename(1, m, ""); }},
        {"RspSendData", [](const char* m) { return RspSendData(1, m, "", nullptr, 5000, 9); }},
        {"SetFileStatus", [](const char* m) { return SetFileStatus(m, "/f", "9"); }},
        {"RspFileStatus", [](const char* m) { return RspFileStatus(1, m, 7, "/f", nullptr); }},
    };
    Connect(kMac);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.call("99:99:99"), -10004);
        EXPECT_EQ(row.call("11:22:33"), -10003);
        EXPECT_EQ(row.call(kMac), -10002);
    }
    EXPECT_EQ(ZanthDeleteFile("99:99:99", nullptr), -10004);
    EXPECT_EQ(RspZanthDeleteFile(1, "11:22:33", nullptr), -10003);
    EXPECT_TRUE(c_.Silent(150));
    // GetData clears the caller's buffer before any test.
    std::memset(buffer, 'x', sizeof buffer);
    EXPECT_EQ(GetData("99:99:99", "/f", buffer, 4, &bytesRead, &isLast), -10004);
    EXPECT_EQ(std::string(buffer, 4), std::string(4, '\0'));
    EXPECT_EQ(buffer[4], 'x');
}

}  // namespace
}  // namespace zanth::test
