// Null output buffers and null texts that would go on the wire, across the exports, with the
// test standing in for the controller's Worker: each is refused with -10002 and nothing is sent.
// A call that does queue something is served a reply, so that a failure here shows what the
// call returned instead of hanging.

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include "monitors/HandleHashMon.h"
#include "monitors/RecvMon.h"
#include "monitors/ThreadHashMon.h"
#include "support/FakeController.h"
#include "support/Library.h"
#include "zanth.h"

namespace zanth::test {
namespace {

constexpr const char* kMac = "AA:BB:CC";
constexpr uint32_t kStandInThread = 4344;

struct Row {
    const char* name;
    std::function<int32_t()> call;
    // The commands whose result is the controller's status give -1 for every failure.
    int32_t expected = -10002;
};

class NullBufferTest : public LibraryTest {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        ASSERT_EQ(SetValidControllers(kMac), 0);
        test::Shared().workerMon->AddWorker(kMac, kStandInThread);
    }

    // The result of `call`, and what it queued ("" for nothing). A call that queues is answered
    // under its code plus 1000 with "0;", or left to return by itself.
    static std::pair<int32_t, std::string> Run(const std::function<int32_t()>& call) {
        auto pending = std::async(std::launch::async, call);
        std::string queued;
        for (;;) {
            if (pending.wait_for(std::chrono::milliseconds(5)) == std::future_status::ready) break;
            if (test::Shared().sendMon->CountFor(kMac) == 0) continue;
            CommandRecord record{};
            int32_t error = -1;
            test::Shared().sendMon->Get(&record, kMac, &error);
            if (error != 0) continue;
            queued += record.message;
            const std::string reply = "1" + std::string(record.message + 1, 3) + ";0012;0;";
            char slot[kMessageBufferSize] = {};
            std::memcpy(slot, reply.data(), reply.size());
            // A blocking call takes it; after an Rsp one it is taken back below.
            test::Shared().recvMon->SetBuffer(slot);
        }
        int32_t rc = pending.get();
        if (!test::Shared().recvMon->SlotEmpty()) {
            char slot[kMessageBufferSize];
            test::Shared().recvMon->GetBuffer(slot, "", *test::Shared().workerMon);
        }
        while (test::Shared().sendMon->CountFor(kMac) > 0) {
            CommandRecord record{};
            int32_t error = -1;
            test::Shared().sendMon->Get(&record, kMac, &error);
            queued += record.message;
        }
        return {rc, queued};
    }

    static void ExpectRefused(const std::vector<Row>& rows) {
        for (const Row& row : rows) {
            auto [rc, queued] = Run(row.call);
            EXPECT_EQ(rc, row.expected) << row.name;
            EXPECT_EQ(queued, "") << row.name;
        }
    }
};

TEST_F(NullBufferTest, ListsVersionsQueuesAndSettings) {
    int32_t rspid = 0;
    char buffer[64];
    ExpectRefused({
        {"GetValidControllers", [] { return GetValidControllers(nullptr, 4200); }},
        {"GetValidGateways", [] { return GetValidGateways(nullptr, 4200); }},
        {"GetConnectedControllers", [] { return GetConnectedControllers(nullptr, 4200); }},
        {"GetConnectedGateways", [] { return GetConnectedGateways(nullptr, 4200); }},
        {"GetDLLVersion", [] { return GetDLLVersion(nullptr, 64); }},
        {"GetEncryptionDLLVersion", [] { return GetEncryptionDLLVersion(nullptr, 64); }},
        {"GetNextHereIAm", [] { return GetNextHereIAm(nullptr, 4200); }},
        {"GetNextLookup", [] { return GetNextLookup(nullptr, 4200); }},
        {"GetNextPin", [] { return GetNextPin(nullptr, 4200); }},
        {"GetNextPostAccess", [] { return GetNextPostAccess(nullptr, 4200); }},
        {"GetNextKeyPadData", [] { return GetNextKeyPadData(nullptr, 4200); }},
        {"GetNextCommandKeyData", [] { return GetNextCommandKeyData(nullptr, 4200); }},
        {"GetNextSmartCardData", [] { return GetNextSmartCardData(nullptr, 4200); }},
        {"GetNextEvent", [] { return GetNextEvent(nullptr, 4200); }},
        {"GetNextAlarm", [] { return GetNextAlarm(nullptr, 4200); }},
        {"GetNextResponse, no rspid", [&] { return GetNextResponse(nullptr, buffer, 64); }},
        {"GetNextResponse, no buffer", [&] { return GetNextResponse(&rspid, nullptr, 4117); }},
        {"GetNumberHereIAm", [] { return GetNumberHereIAm(nullptr); }},
        {"GetNumberLookups", [] { return GetNumberLookups(nullptr); }},
        {"GetNumberPin", [] { return GetNumberPin(nullptr); }},
        {"GetNumberPostAccess", [] { return GetNumberPostAccess(nullptr); }},
        {"GetNumberKeyPadData", [] { return GetNumberKeyPadData(nullptr); }},
        {"GetNumberCommandKeyData", [] { return GetNumberCommandKeyData(nullptr); }},
        {"GetNumberSmartCardData", [] { return GetNumberSmartCardData(nullptr); }},
        {"GetNumberResponse", [] { return GetNumberResponse(nullptr); }},
        {"NumberUnreadEvents", [] { return NumberUnreadEvents(nullptr); }},
        {"NumberUnreadAlarms", [] { return NumberUnreadAlarms(nullptr); }},
        {"EventLogSize", [] { return EventLogSize(0, nullptr); }},
        {"AlarmLogSize", [] { return AlarmLogSize(0, nullptr); }},
        {"DebugLevel", [] { return DebugLevel(0, nullptr); }},
        {"RecvWaitTime", [] { return RecvWaitTime(0, nullptr); }},
        {"ResetDLLTime", [] { return ResetDLLTime(0, nullptr); }},
        {"GetLogFilePath", [] { return GetLogFilePath(nullptr); }},
        {"LogFilePath read", [] { return LogFilePath(0, nullptr); }},
        {"LogFilePath write", [] { return LogFilePath(1, nullptr); }},
        {"SetLogFilePath", [] { return SetLogFilePath(nullptr); }},
        {"ContactController", [] { return ContactController(nullptr, 3001); }},
    });
}

TEST_F(NullBufferTest, ControllerCommandsWithOutputs) {
    char b[64] = {};
    int32_t v[8] = {};
    ExpectRefused({
        {"ControllerInfo", [] { return ControllerInfo(kMac, nullptr, 4200); }},
        {"GatewayInfo", [] { return GatewayInfo(kMac, nullptr, 4200); }},
        {"GetSavedOutputs", [] { return GetSavedOutputs(kMac, 0, nullptr, 64); }},
        {"LocalFcnCode", [] { return LocalFcnCode(kMac, 1, nullptr); }},
        {"GetInputStatus", [] { return GetInputStatus(kMac, 32, nullptr, 64); }},
        {"GetInputStatus2 status", [&] { return GetInputStatus2(kMac, 32, nullptr, b, 64); }},
        {"GetInputStatus2 buffer", [&] { return GetInputStatus2(kMac, 32, &v[0], nullptr, 64); }},
        {"GetInputStatus3 status", [&] { return GetInputStatus3(kMac, 32, nullptr, b, 64); }},
        {"GetInputStatus3 buffer", [&] { return GetInputStatus3(kMac, 32, &v[0], nullptr, 64); }},
        {"ReadA2D", [] { return ReadA2D(kMac, 32, 1, nullptr, 64); }},
        {"ReadA2D_2", [] { return ReadA2D_2(kMac, 32, 1, nullptr, 64); }},
        {"GetLocalA2DLimits",
         [&] { return GetLocalA2DLimits(kMac, 1, nullptr, 8, b, 8, b + 16, 8, b + 32, 8); }},
        {"LocalA2DLimits read",
         [&] { return LocalA2DLimits(kMac, 0, 1, b, 8, b + 16, 8, nullptr, 8, b + 32, 8); }},
        {"GetLocalDebounce", [] { return GetLocalDebounce(kMac, 1, nullptr); }},
        {"LocalDebounce read", [] { return LocalDebounce(kMac, 0, 1, nullptr); }},
        {"GetLocalRelayTimer", [] { return GetLocalRelayTimer(kMac, 1, nullptr); }},
        {"LocalRelayTimer read", [] { return LocalRelayTimer(kMac, 0, 1, nullptr); }},
        {"GetLogicalInput", [] { return GetLogicalInput(kMac, 1, nullptr); }},
        {"LogicalInput read", [] { return LogicalInput(kMac, 0, 1, nullptr); }},
        {"LocalPollDelay read", [] { return LocalPollDelay(kMac, 0, nullptr); }},
        {"DiscoverInterfaces", [] { return DiscoverInterfaces(kMac, nullptr, 64); }},
        {"DiscoverInterfaces2", [] { return DiscoverInterfaces2(kMac, nullptr, 64); }},
        {"ReadInterfaceMemory data",
         [] { return ReadInterfaceMemory(kMac, 0, 0, "0000", 4, nullptr, 64); }},
        {"ReadInterfaceMemory_2 data",
         [] { return ReadInterfaceMemory_2(kMac, 0, 0, "0000", 4, nullptr, 64, 'H'); }},
        {"GetMoxModuleRevs", [] { return GetMoxModuleRevs(kMac, nullptr, 64); }},
        {"GetMoxOperationMode", [] { return GetMoxOperationMode(kMac, nullptr); }},
        {"GetTimeDate date", [&] { return GetTimeDate(kMac, nullptr, 16, b, 16); }},
        {"SystemTime read", [&] { return SystemTime(kMac, 0, b, 16, nullptr, 16, b + 32, 16); }},
        {"GetCurrentTimeZone", [] { return GetCurrentTimeZone(kMac, nullptr, 64); }},
        {"SystemTZ read", [] { return SystemTZ(kMac, 0, nullptr, 64); }},
        {"GetTZ", [] { return GetTZ(kMac, nullptr, 64); }},
        {"FileStatus read", [] { return FileStatus(kMac, 0, "/p", nullptr, 4); }},
        {"GetFileStatus", [] { return GetFileStatus(kMac, "/p", nullptr, 4); }},
        {"GetSchedule",
         [&] {
             return GetSchedule(kMac, 1, b, b + 8, nullptr, b + 24, b + 32, &v[0], &v[1], &v[2],
                                &v[3], &v[4]);
         }},
        {"GetContactIDRecord",
         [&] {
             return GetContactIDRecord(kMac, b, &v[0], &v[1], &v[2], &v[3], &v[4], &v[5], nullptr,
                                       b + 16, b + 32);
         }},
        {"GetContactIDGroupRecord",
         [&] { return GetContactIDGroupRecord(kMac, 1, nullptr, &v[0]); }},
        {"GetContactIDCommRecord", [] { return GetContactIDCommRecord(kMac, 1, nullptr); }},
    });
}

TEST_F(NullBufferTest, ControllerCommandsWithTextsForTheWire) {
    char t[16] = "12:00:00";
    ExpectRefused({
        {"RecheckLookupCard", [] { return RecheckLookupCard(kMac, nullptr); }},
        {"RspRecheckLookupCard", [] { return RspRecheckLookupCard(1, kMac, nullptr); }},
        {"SendPostAccessMsg", [] { return SendPostAccessMsg(kMac, nullptr); }},
        {"GetErrorLog", [] { return GetErrorLog(kMac, nullptr); }},
        {"LocalA2DLimits write",
         [] { return LocalA2DLimits(kMac, 1, 1, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0); }},
        {"SetLocalA2DLimits", [] { return SetLocalA2DLimits(kMac, 1, "1", nullptr, "3", "4"); }},
        {"ReadInterfaceMemory address",
         [] { return ReadInterfaceMemory(kMac, 0, 0, nullptr, 4, nullptr, 0); }},
        {"WriteEEPROM address", [] { return WriteEEPROM(kMac, 0, nullptr, 1, "00", 1); }},
        {"WriteEEPROM data", [] { return WriteEEPROM(kMac, 0, "0000", 1, nullptr, 1); }},
        {"SetInterfaceInternalID", [] { return SetInterfaceInternalID(kMac, 0, nullptr); }},
        {"SetHardwareID", [] { return SetHardwareID(kMac, 0, nullptr); }},
        {"SetMoxOperationMode", [] { return SetMoxOperationMode(kMac, nullptr, 1); }},
        {"EnableDHCP", [] { return EnableDHCP(kMac, nullptr); }},
        {"EnableStaticIP",
         [] { return EnableStaticIP(kMac, "1", "2", nullptr, "4", "5", "6", "7", "8"); }},
        {"SetPassword", [] { return SetPassword(kMac, "user", nullptr); }},
        {"SetTimeDate", [&] { return SetTimeDate(kMac, nullptr, t); }},
        {"RspSetTimeDate", [&] { return RspSetTimeDate(1, kMac, nullptr, t); }},
        {"SystemTime write", [&] { return SystemTime(kMac, 1, nullptr, 0, t, 0, nullptr, 0); }},
        {"SystemTZ write", [] { return SystemTZ(kMac, 1, nullptr, 0); }},
        {"RspSystemTZ write", [] { return RspSystemTZ(1, kMac, 1, nullptr); }},
        {"SetTZ", [] { return SetTZ(kMac, nullptr); }},
        {"RspSetTZ", [] { return RspSetTZ(1, kMac, nullptr); }},
        {"SetFileStatus permission", [] { return SetFileStatus(kMac, "/p", nullptr); }},
        {"SetFileStatus path", [] { return SetFileStatus(kMac, nullptr, "644"); }},
        {"RspSetFileStatus", [] { return RspSetFileStatus(1, kMac, "/p", nullptr); }},
        {"FileStatus read path",
         [] {
             char p[4];
             return FileStatus(kMac, 0, nullptr, p, 4);
         }},
        {"ZanthDeleteFile", [] { return ZanthDeleteFile(kMac, nullptr); }},
        {"RspZanthDeleteFile", [] { return RspZanthDeleteFile(1, kMac, nullptr); }},
        {"GetFile", [] { return GetFile(kMac, nullptr, "local"); }},
        {"RspGetDataFilename", [] { return RspGetDataFilename(1, kMac, nullptr); }},
        {"UpdateSchedule",
         [] { return UpdateSchedule(kMac, "a", nullptr, "c", "d", "e", 1, 2, 3, 4, 5, 6); }, -1},
        {"RspUpdateSchedule",
         [] { return RspUpdateSchedule(1, kMac, "a", "b", "c", "d", nullptr, 1, 2, 3, 4, 5, 6); },
         -1},
        {"UpdateContactIDRecord",
         [] { return UpdateContactIDRecord(kMac, nullptr, 1, 2, 3, 4, 5, 6, 7, "b", "c"); }},
        {"UpdateContactIDGroupRecord",
         [] { return UpdateContactIDGroupRecord(kMac, 1, nullptr, 2); }, -1},
        {"UpdateContactIDCommRecord", [] { return UpdateContactIDCommRecord(kMac, 1, nullptr, 2); },
         -1},
        {"DeleteContactIDCommRecord", [] { return DeleteContactIDCommRecord(kMac, nullptr, 1); },
         -1},
    });
}

}  // namespace
}  // namespace zanth::test
