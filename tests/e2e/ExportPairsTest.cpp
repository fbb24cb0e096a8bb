// Exports that share a method: two names of one function must put the same bytes on the wire and
// give the same result, and the Rsp forms whose numbers are out of step with their plain forms
// must drive their partner's message, not their namesake's.

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include "support/FakeController.h"
#include "support/Library.h"
#include "zanth.h"

namespace zanth::test {
namespace {

constexpr const char* kMac = "AA:BB:CC";

// A call of one export; its caller's outputs are written into `out` as text so that two calls
// can be compared whatever their shapes.
using Call = std::function<int32_t(std::string& out)>;

// What one call did: the frame the controller got, the result, the outputs, and for a Rsp form
// the reply that came back on the response queue.
struct Observed {
    std::string frame;
    int32_t result = 0;
    std::string outputs;
    std::string response;
};

class ExportPairsTest : public LibraryTest {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        Start(kMac);
        ASSERT_TRUE(controller_.Connect(port_));
        ASSERT_TRUE(controller_.Identify(kMac));
        ASSERT_TRUE(WaitUntil([] {
            char list[64];
            return GetConnectedControllers(list, sizeof list) == 0 && std::strcmp(list, kMac) == 0;
        }));
    }

    // Runs one call against the fake controller, which answers the frame's code plus 1000 with
    // `reply`. `rspid` is non-zero for a Rsp form.
    Observed Drive(const Call& call, const std::string& reply, uint32_t rspid) {
        Observed seen;
        auto pending = std::async(std::launch::async, [&] { return call(seen.outputs); });
        auto request = controller_.ReadFrame();
        EXPECT_TRUE(request);
        if (!request) {
            seen.result = pending.get();
            return seen;
        }
        seen.frame = *request;
        int code = std::stoi(request->substr(0, 4));
        EXPECT_TRUE(controller_.SendFrame(code + 1000, reply));
        seen.result = pending.get();
        if (rspid != 0) {
            int32_t got = 0;
            char frame[4117] = {};
            EXPECT_TRUE(WaitUntil([&] { return GetNextResponse(&got, frame, sizeof frame) == 0; }));
            EXPECT_EQ(static_cast<uint32_t>(got), rspid);
            seen.response = frame;
        }
        return seen;
    }

    FakeController controller_;
};

std::string Number(int32_t v) {
    return std::to_string(v) + ";";
}

// Two names of one function, both forms: same frame, same result, same outputs, same response.
TEST_F(ExportPairsTest, AliasedNamesSendTheSameBytesAndGiveTheSameResults) {
    struct Row {
        const char* names;
        Call first;
        Call second;
        std::string reply;
        uint32_t rspid = 0;
    };
    const std::vector<Row> rows = {
        {"ControllerInfo / GatewayInfo",
         [](std::string& o) {
             char b[128] = {};
             int32_t r = ControllerInfo(kMac, b, sizeof b);
             o = b;
             return r;
         },
         [](std::string& o) {
             char b[128] = {};
             int32_t r = GatewayInfo(kMac, b, sizeof b);
             o = b;
             return r;
         },
         "0;2.6;ZANTH-2;"},
        {"RspControllerInfo / RspGatewayInfo",
         [](std::string&) { return RspControllerInfo(41, kMac); },
         [](std::string&) { return RspGatewayInfo(41, kMac); }, "0;2.6;ZANTH-2;", 41},
        {"ExecuteChangeOverDB / ExecuteDBChangeover",
         [](std::string&) { return ExecuteChangeOverDB(kMac, 5000); },
         [](std::string&) { return ExecuteDBChangeover(kMac, 5000); }, "0;"},
        {"ExecuteChangeOverDB / ExecuteDBChangeover, a controller's failure",
         [](std::string&) { return ExecuteChangeOverDB(kMac, 12); },
         [](std::string&) { return ExecuteDBChangeover(kMac, 12); }, "-3;"},
        {"RspExecuteChangeOverDB / RspExecuteDBChangeover",
         [](std::string&) { return RspExecuteChangeOverDB(42, kMac, 7); },
         [](std::string&) { return RspExecuteDBChangeover(42, kMac, 7); }, "0;", 42},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.names);
        Observed a = Drive(row.first, row.reply, row.rspid);
        Observed b = Drive(row.second, row.reply, row.rspid);
        EXPECT_FALSE(a.frame.empty());
        EXPECT_EQ(a.frame, b.frame);
        EXPECT_EQ(a.result, b.result);
        EXPECT_EQ(a.outputs, b.outputs);
        EXPECT_EQ(a.response, b.response);
    }
}

// The names that touch no controller: what one sets the other reads, and both read alike.
TEST_F(ExportPairsTest, AliasedListNamesShareTheirState) {
    char a[128] = {};
    char b[128] = {};
    ASSERT_EQ(SetValidGateways("aa:bb:cc,11:22:33"), 0);
    ASSERT_EQ(GetValidControllers(a, sizeof a), 0);
    ASSERT_EQ(GetValidGateways(b, sizeof b), 0);
    EXPECT_STREQ(a, "11:22:33,AA:BB:CC");
    EXPECT_STREQ(a, b);
    // The same refusal for a buffer too small, by both names.
    EXPECT_EQ(GetValidControllers(a, 4), GetValidGateways(b, 4));
    EXPECT_STREQ(a, b);

    ASSERT_EQ(SetValidControllers(kMac), 0);
    ASSERT_EQ(GetValidGateways(b, sizeof b), 0);
    EXPECT_STREQ(b, kMac);

    ASSERT_EQ(GetConnectedControllers(a, sizeof a), 0);
    ASSERT_EQ(GetConnectedGateways(b, sizeof b), 0);
    EXPECT_STREQ(a, kMac);
    EXPECT_STREQ(a, b);
}

// ContactController and ContactGateway: the same outcome against a closed port, and the same
// invitation to a listening controller.
TEST_F(ExportPairsTest, ContactNamesReachAControllerAlike) {
    int closedPort = 0;
    {
        FakeController gone;
        closedPort = gone.Listen();
        ASSERT_GT(closedPort, 0);
    }
    EXPECT_EQ(ContactController("127.0.0.1", closedPort), ContactGateway("127.0.0.1", closedPort));
    EXPECT_EQ(ContactController("127.0.0.1", 0), ContactGateway("127.0.0.1", 0));

    std::vector<std::string> invitations;
    for (auto contact : {ContactController, ContactGateway}) {
        FakeController called;
        int port = called.Listen();
        ASSERT_GT(port, 0);
        auto pending = std::async(std::launch::async, [&] { return contact("127.0.0.1", port); });
        ASSERT_TRUE(called.Accept());
        EXPECT_EQ(pending.get(), 0);
        auto bytes = called.ReadFrame();
        ASSERT_TRUE(bytes);
        invitations.push_back(*bytes);
    }
    EXPECT_EQ(invitations[0], invitations[1]);
}

// Plain and Rsp forms whose numbers don't match: each Rsp form sends its partner's frame, with
// its reply whole on the response queue.
TEST_F(ExportPairsTest, OutOfStepRspFormsDriveTheirPartnersMessage) {
    struct Row {
        const char* names;
        Call plain;
        Call rsp;
        std::string reply;
        uint32_t rspid;
    };
    auto status = [](auto fn) {
        return [fn](std::string& o) {
            char date[16] = {}, time[16] = {};
            int32_t v[8] = {};
            int32_t r = fn(date, time, v);
            o = std::string(date) + "|" + time;
            for (int32_t x : v) o += "|" + std::to_string(x);
            return r;
        };
    };
    const std::vector<Row> rows = {
        {"CmdOutputFunction2 / RspCmdOutputFunction",
         [](std::string&) { return CmdOutputFunction2(kMac, 32, 3, 1); },
         [](std::string&) { return RspCmdOutputFunction(51, kMac, 32, 3, 1); }, "0;", 51},
        {"CmdOutputFunction2 / RspCmdOutputFunction, a board",
         [](std::string&) { return CmdOutputFunction2(kMac, 4, 3, 1); },
         [](std::string&) { return RspCmdOutputFunction(56, kMac, 4, 3, 1); }, "0;", 56},
        {"CmdOutputFunction3 / RspCmdOutputFunction2",
         [](std::string&) { return CmdOutputFunction3(kMac, 4, 2, 0); },
         [](std::string&) { return RspCmdOutputFunction2(52, kMac, 4, 2, 0); }, "0;", 52},
        {"GetInputStatus2 / RspGetInputStatus",
         [](std::string& o) {
             int32_t s = -7;
             char b[32] = {};
             int32_t r = GetInputStatus2(kMac, 32, &s, b, sizeof b);
             o = Number(s) + b;
             return r;
         },
         [](std::string&) { return RspGetInputStatus(53, kMac, 32); }, "0;7;FF;", 53},
        {"GetInputStatus3 / RspGetInputStatus2",
         [](std::string& o) {
             int32_t s = -7;
             char b[32] = {};
             int32_t r = GetInputStatus3(kMac, 7, &s, b, sizeof b);
             o = Number(s) + b;
             return r;
         },
         [](std::string&) { return RspGetInputStatus2(54, kMac, 7); }, "0;3;0C;", 54},
        {"GetCardholderStatus3 / RspGetCardholderStatus", status([](char* d, char* t, int32_t* v) {
             return GetCardholderStatus3(kMac, 77, d, 16, t, 16, &v[0], &v[1], &v[2], &v[3], &v[4],
                                         &v[5], &v[6], &v[7]);
         }),
         [](std::string&) { return RspGetCardholderStatus(55, kMac, 77); },
         "0;11/22/2026;10:15:00;1;2;3;4;5;6;7;8;", 55},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.names);
        Observed plain = Drive(row.plain, row.reply, 0);
        Observed rsp = Drive(row.rsp, row.reply, row.rspid);
        EXPECT_FALSE(plain.frame.empty());
        EXPECT_EQ(plain.frame, rsp.frame);
        EXPECT_EQ(plain.result, 0) << plain.outputs;
        EXPECT_EQ(rsp.result, 0);
        EXPECT_EQ(rsp.response, Frame(std::stoi(plain.frame.substr(0, 4)) + 1000, row.reply));
    }
}

// CmdOutputFunction has a method of its own: the Rsp form of its name is CmdOutputFunction2's,
// whose board code differs from the first generation's, so the pairing is not an accident of
// every form sending the same message.
TEST_F(ExportPairsTest, RspCmdOutputFunctionIsNotItsNamesakesForm) {
    Observed first = Drive([](std::string&) { return CmdOutputFunction(kMac, 4, 3, 1); }, "0;", 0);
    Observed second =
        Drive([](std::string&) { return RspCmdOutputFunction(60, kMac, 4, 3, 1); }, "0;", 60);
    ASSERT_FALSE(first.frame.empty());
    EXPECT_NE(first.frame.substr(0, 4), second.frame.substr(0, 4));
}

}  // namespace
}  // namespace zanth::test
