// A Rsp reply decoded by the model's layout gives exactly what the blocking form gives, against
// a simulated controller: one command (or a few) of every reply-layout kind. Each test asks the
// blocking form by name, then its Rsp form under an rspid, takes that reply from the response
// queue and decodes it.

#include <gtest/gtest.h>

#include <string>

#include "hpp/HppSupport.h"
#include "zanth.hpp"

namespace zanth::hpptest {
namespace {

using dynamic::Invoke;

// Skips the test without the simulator, fails it when the controller doesn't come.
#define ZANTH_REQUIRE(site)                                           \
    if (!(site).Ready()) {                                            \
        if ((site).Failure() == "zanth-sim is not built") GTEST_SKIP(); \
        FAIL() << (site).Failure();                                   \
    }

// The arguments of the Rsp form: those of the blocking form's that it takes.
Args RspArgs(const std::string& rsp, const Args& args) {
    const meta::Export& e = dynamic::Get(rsp);
    Args out;
    for (const auto& [name, value] : args) {
        if (dynamic::FindParam(e, name) >= 0) out[name] = value;
    }
    return out;
}

uint32_t nextRspid = 100;

// The blocking call's result and outputs, and the decoded reply of its Rsp form, must agree.
dynamic::Call ExpectSame(const std::string& blocking, const Args& args) {
    SCOPED_TRACE(blocking);
    dynamic::Call b = Invoke(blocking, args);
    const meta::Export& e = dynamic::Get(blocking);
    EXPECT_NE(e.twin, nullptr);
    if (e.twin == nullptr) return b;
    uint32_t rspid = nextRspid++;
    std::optional<std::string> frame = RspReply(e.twin, RspArgs(e.twin, args), rspid);
    EXPECT_TRUE(frame.has_value()) << "no reply under rspid " << rspid;
    if (!frame) return b;
    dynamic::Decoded d = dynamic::DecodeReply(e.twin, *frame, args);
    EXPECT_EQ(d.result, b.result) << *frame;
    EXPECT_EQ(d.ok, b.ok);
    EXPECT_EQ(d.outputs, b.outputs) << "decoded " << Show(d.outputs) << "\nblocking "
                                    << Show(b.outputs) << "\nframe " << *frame;
    return b;
}

CardRecord SampleCard() {
    CardRecord r;
    r.cardSetId = 7;
    r.cardNumber = "1001";
    r.pin = "4321";
    r.accessType = 2;
    r.uniqueId = 3000000000u;  // above 2^31: read back as unsigned
    r.accessGroup1 = 1;
    r.accessGroup2 = 2;
    r.accessGroup8 = 65535;
    r.extendedAccess = 1;
    r.pinCommands = 1;
    r.startDate = "2024/01/02";
    r.startTime = "08:30:00";
    r.endDate = "2037/12/31";
    r.endTime = "17:00:00";
    r.escortId = 4294967295u;
    r.inScheduleElevatorGroup = 3;
    r.outScheduleElevatorGroup = 255;
    r.pinExempt = 1;
    r.cardRole = 300;
    return r;
}

TEST(HppReplyDecode, WholeTextsAndCounts) {
    SimulatedSite site("C0:00:01");
    ZANTH_REQUIRE(site);
    Args mac{{"mac", site.Mac()}};
    dynamic::Call info = ExpectSame("ControllerInfo", mac);  // the whole payload as one text
    ASSERT_TRUE(info.ok);
    EXPECT_FALSE(std::get<std::string>(info.outputs.at("buffer")).empty());
    EXPECT_EQ(std::get<std::string>(info.outputs.at("buffer")), lib::ControllerInfo(site.Mac()));
    ExpectSame("GatewayInfo", mac);
    ExpectSame("GetNumberOfCards", mac);     // the result and two numbers
    ExpectSame("GetNumberDelRecords", mac);  // the result and one number
    ExpectSame("GetTZ", mac);                // the result and one text
    ExpectSame("GetCurrentTimeZone", mac);
    ExpectSame("SetTZ", {{"mac", site.Mac()}, {"tz", std::string("CET-1CEST")}});  // a bare result
    EXPECT_EQ(lib::GetTZ(site.Mac()), "CET-1CEST");
}

TEST(HppReplyDecode, CardRecordsInEveryGeneration) {
    SimulatedSite site("C0:00:02");
    ZANTH_REQUIRE(site);
    const CardRecord card = SampleCard();
    EXPECT_EQ(lib::AddModCardRecord3(site.Mac(), card), 0);
    Args select{{"mac", site.Mac()}, {"cardSetId", int64_t{7}}, {"noFormat", int64_t{0}},
                {"cardNumber", std::string("1001")}, {"pin", std::string("4321")}};
    // Every ';' a field, the stamps split, unsigned numbers, and the later fields by generation.
    dynamic::Call g4 = ExpectSame("GetCardRecord4", select);
    ExpectSame("GetCardRecord2", select);
    ExpectSame("GetCardRecord", select);
    ASSERT_TRUE(g4.ok);

    // The typed wrapper gives the record as it was written, and the decoded reply the same.
    CardRecord read = lib::GetCardRecord4(site.Mac(), 7, 0, "1001", "4321");
    CardRecord expected = card;
    expected.field7Value = read.field7Value;  // the controller's own count of writes
    EXPECT_EQ(read, expected);
    EXPECT_EQ(CardRecordFrom(g4.outputs), read);
    // Generation 2 has no role to read; generation 1 no pin exemption either.
    EXPECT_EQ(lib::GetCardRecord2(site.Mac(), 7, 0, "1001", "4321").cardRole, 0u);
    EXPECT_EQ(lib::GetCardRecord(site.Mac(), 7, 0, "1001", "4321").pinExempt, 0);

    // A record that isn't there: the controller's negative result, no outputs, both ways.
    Args missing = select;
    missing["cardNumber"] = std::string("9999");
    dynamic::Call none = ExpectSame("GetCardRecord4", missing);
    EXPECT_FALSE(none.ok);
    EXPECT_LT(none.result, 0);
    try {
        lib::GetCardRecord4(site.Mac(), 7, 0, "9999", "0");
        ADD_FAILURE() << "an unknown card was read";
    } catch (const Error& e) {
        EXPECT_EQ(e.code(), none.result);
    }

    // The cardholder's status: a stamp and eight values by the tokeniser.
    ExpectSame("GetCardholderStatus3", {{"mac", site.Mac()}, {"uniqueId", int64_t{3000000000}}});
    ExpectSame("GetCardholderStatus3", {{"mac", site.Mac()}, {"uniqueId", int64_t{12345}}});
}

TEST(HppReplyDecode, ClockReadsAsTheBlockingFormWritesIt) {
    SimulatedSite site("C0:00:03");
    ZANTH_REQUIRE(site);
    Args mac{{"mac", site.Mac()}};
    // The clock runs between the calls: the decoded time lies between two blocking reads.
    auto seconds = [](const std::string& t) {
        int h = 0, m = 0, s = 0;
        std::sscanf(t.c_str(), "%d:%d:%d", &h, &m, &s);
        return h * 3600 + m * 60 + s;
    };
    lib::GetTimeDateResult before = lib::GetTimeDate(site.Mac());
    std::optional<std::string> frame = RspReply("RspGetTimeDate", mac, 7);
    lib::GetTimeDateResult after = lib::GetTimeDate(site.Mac());
    ASSERT_TRUE(frame.has_value());
    dynamic::Decoded d = dynamic::DecodeReply("RspGetTimeDate", *frame);
    ASSERT_TRUE(d.ok) << *frame;
    if (before.date != after.date) GTEST_SKIP() << "the day changed during the test";
    EXPECT_EQ(std::get<std::string>(d.outputs.at("date")), before.date);
    int decoded = seconds(std::get<std::string>(d.outputs.at("time")));
    EXPECT_LE(seconds(before.time), decoded);
    EXPECT_LE(decoded, seconds(after.time));
    // Setting the clock: the caller's texts are copied, and the mode export agrees.
    const std::string date = "2030/6/15", time = "12:0:5";
    EXPECT_EQ(lib::SetTimeDate(site.Mac(), date, time), 0);
    EXPECT_EQ(date, "2030/6/15");
    lib::SystemTimeResult now = lib::SystemTime(site.Mac(), 0);
    EXPECT_EQ(now.date, "2030/6/15");
    // The Rsp form of the mode export, decoded with its mode.
    Args zone{{"mac", site.Mac()}, {"mode", int64_t{2}}};
    ExpectSame("SystemTime", zone);
}

TEST(HppReplyDecode, InputsOutputsAndLocalSettings) {
    SimulatedSite site("C0:00:04", {"--input", "32:3=1", "--input", "0:5=1"});
    ZANTH_REQUIRE(site);
    const std::string mac = site.Mac();
    // The status and the text, read only when the controller answers 0.
    ExpectSame("GetInputStatus3", {{"mac", mac}, {"target", int64_t{32}}});
    ExpectSame("GetInputStatus3", {{"mac", mac}, {"target", int64_t{0}}});
    ExpectSame("GetInputStatus2", {{"mac", mac}, {"target", int64_t{0}}});
    ExpectSame("ReadA2D_2", {{"mac", mac}, {"target", int64_t{32}}, {"adNumber", int64_t{4}}});
    ExpectSame("ReadA2D", {{"mac", mac}, {"target", int64_t{1}}, {"adNumber", int64_t{23}}});
    // The settings read back what was set; the set's bare result decodes as well.
    ExpectSame("SetLocalDebounce", {{"mac", mac}, {"number", int64_t{2}}, {"value", int64_t{40}}});
    dynamic::Call debounce = ExpectSame("GetLocalDebounce", {{"mac", mac}, {"number", int64_t{2}}});
    EXPECT_EQ(std::get<int64_t>(debounce.outputs.at("value")), 40);
    EXPECT_EQ(lib::LocalDebounce(mac, 0, 2), 40);
    ExpectSame("LocalRelayTimer", {{"mac", mac}, {"mode", int64_t{1}}, {"relay", int64_t{1}}, {"value", int64_t{5000}}});
    ExpectSame("LocalRelayTimer", {{"mac", mac}, {"mode", int64_t{0}}, {"relay", int64_t{1}}});
    ExpectSame("SetLocalA2DLimits", {{"mac", mac}, {"adNumber", int64_t{3}}, {"upperHigh", std::string("3FF")},
                                     {"lowerHigh", std::string("")}, {"upperLow", std::string("10")},
                                     {"lowerLow", std::string("0")}});
    dynamic::Call limits = ExpectSame("GetLocalA2DLimits", {{"mac", mac}, {"adNumber", int64_t{3}}});
    EXPECT_EQ(std::get<std::string>(limits.outputs.at("upperHigh")), "3FF");
    // A board's saved outputs: everything behind the result as one text.
    EXPECT_EQ(lib::CmdOutputFunction3(mac, 0, 4, 1), 0);
    ExpectSame("CmdOutputFunction3", {{"mac", mac}, {"target", int64_t{0}}, {"bitOrFunctionCode", int64_t{6}},
                                      {"state", int64_t{1}}});
    dynamic::Call saved = ExpectSame("GetSavedOutputs", {{"mac", mac}, {"interface", int64_t{0}}});
    EXPECT_FALSE(std::get<std::string>(saved.outputs.at("buffer")).empty());
    lib::GetSavedOutputsResult typed = lib::GetSavedOutputs(mac, 0);
    EXPECT_EQ(typed.buffer, std::get<std::string>(saved.outputs.at("buffer")));
    EXPECT_EQ(typed.result, saved.result);
    ExpectSame("LocalFcnCode", {{"mac", mac}, {"output", int64_t{0}}});
}

TEST(HppReplyDecode, SchedulesAndContactIdRecords) {
    SimulatedSite site("C0:00:05");
    ZANTH_REQUIRE(site);
    const std::string mac = site.Mac();
    // Kind status: the blocking form's one field, and the Rsp form's -1 that says nothing.
    // The simulated controllers key a schedule by its first value.
    Args schedule{{"mac", mac}, {"scheduleText1", std::string("office")}, {"scheduleText2", std::string("Mo-Fr")},
                  {"scheduleText3", std::string("08:00")}, {"scheduleText4", std::string("17:30")},
                  {"scheduleText5", std::string("")}, {"scheduleValue1", int64_t{7}},
                  {"scheduleValue2", int64_t{2}}, {"scheduleValue3", int64_t{3}},
                  {"scheduleValue4", int64_t{4}}, {"scheduleValue5", int64_t{5}},
                  {"scheduleValue6", int64_t{6}}};
    dynamic::Call update = ExpectSame("UpdateSchedule", schedule);
    EXPECT_EQ(update.result, 0);
    Args rsp = RspArgs("RspUpdateSchedule", schedule);
    rsp["rspid"] = int64_t{1};
    EXPECT_EQ(Invoke("RspUpdateSchedule", rsp).result, -1);
    // Kind result: counted fields in the getline split, strict numbers.
    dynamic::Call got = ExpectSame("GetSchedule", {{"mac", mac}, {"scheduleId", int64_t{7}}});
    ASSERT_TRUE(got.ok);
    EXPECT_EQ(std::get<std::string>(got.outputs.at("scheduleText2")), "Mo-Fr");
    ExpectSame("GetSchedule", {{"mac", mac}, {"scheduleId", int64_t{99}}});  // refused: -1

    ExpectSame("UpdateContactIDRecord", {{"mac", mac}, {"contactText1", std::string("acct")},
                                         {"contactValue1", int64_t{1}}, {"contactValue2", int64_t{2}},
                                         {"contactValue3", int64_t{3}}, {"contactValue4", int64_t{4}},
                                         {"contactValue5", int64_t{5}}, {"contactValue6", int64_t{6}},
                                         {"contactValue7", int64_t{7}}, {"contactText2", std::string("b")},
                                         {"contactText3", std::string("c")}});
    // The key travels in the third value, which the reply overwrites.
    dynamic::Call record = ExpectSame("GetContactIDRecord", {{"mac", mac}, {"contactValue3", int64_t{3}}});
    ASSERT_TRUE(record.ok);
    EXPECT_EQ(std::get<std::string>(record.outputs.at("contactText1")), "acct");
    ExpectSame("UpdateContactIDGroupRecord", {{"mac", mac}, {"groupId", int64_t{4}},
                                              {"groupText", std::string("hall")}, {"groupValue", int64_t{9}}});
    ExpectSame("GetContactIDGroupRecord", {{"mac", mac}, {"groupId", int64_t{4}}});
    ExpectSame("UpdateContactIDCommRecord", {{"mac", mac}, {"commId", int64_t{2}},
                                             {"commText", std::string("555-0100")}, {"commValue", int64_t{65535}}});
    // Cut at '#': the whole payload, semicolons and all.
    dynamic::Call comm = ExpectSame("GetContactIDCommRecord", {{"mac", mac}, {"commId", int64_t{2}}});
    ASSERT_TRUE(comm.ok);
    EXPECT_NE(std::get<std::string>(comm.outputs.at("commText")).find("555-0100"), std::string::npos);
}

TEST(HppReplyDecode, BoardsAndTheModuleBus) {
    SimulatedSite site("C0:00:06", {"--boards", "0,1/16"});
    ZANTH_REQUIRE(site);
    const std::string mac = site.Mac();
    // Everything behind a one-character result, separators and all.
    dynamic::Call revs = ExpectSame("GetMoxModuleRevs", {{"mac", mac}});
    ASSERT_TRUE(revs.ok);
    EXPECT_NE(std::get<std::string>(revs.outputs.at("buffer")).find(';'), std::string::npos);
    ExpectSame("GetMoxOperationMode", {{"mac", mac}});
    // The controller's refusals of a mode keep their own names.
    ExpectSame("SetMoxOperationMode", {{"mac", mac}, {"password", std::string("wrong")}, {"mode", int64_t{1}}});
    ExpectSame("ReadInterfaceMemory", {{"mac", mac}, {"interface", int64_t{1}}, {"memoryType", int64_t{1}},
                                       {"address", std::string("10")}, {"numberOfBytes", int64_t{4}}});
    // The blocking discovery joins both chains' texts; the Rsp form asks one chain a call.
    dynamic::Call both = Invoke("DiscoverInterfaces2", {{"mac", mac}});
    ASSERT_TRUE(both.ok) << both.ResultName();
    std::string joined;
    for (int64_t chain : {0, 1}) {
        std::optional<std::string> frame =
            RspReply("RspDiscoverInterfaces", {{"mac", mac}, {"chain", chain}}, 200 + static_cast<uint32_t>(chain));
        ASSERT_TRUE(frame.has_value());
        dynamic::Decoded d = dynamic::DecodeReply("RspDiscoverInterfaces", *frame);
        ASSERT_TRUE(d.ok) << *frame;
        joined += std::get<std::string>(d.outputs.at("buffer"));
    }
    EXPECT_EQ(joined, std::get<std::string>(both.outputs.at("buffer")));
}

}  // namespace
}  // namespace zanth::hpptest
