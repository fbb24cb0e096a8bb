// The dynamic layer without controllers: names and suggestions, every kind of argument check
// (each refused before any call; each accepted one shown to reach the library, which answers a
// MAC outside its valid list with -10004), the local exports by name and by their typed
// wrappers, and the decoding of replies as the description's edge cases give them.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "hpp/HppSupport.h"
#include "zanth.hpp"

namespace zanth::hpptest {
namespace {

using dynamic::Invoke;

const std::string kMac = "C0:00:01";

Args Output3(int64_t target, int64_t code = 0, int64_t state = 1) {
    return {{"mac", kMac}, {"target", target}, {"bitOrFunctionCode", code}, {"state", state}};
}

Args Card(std::initializer_list<std::pair<const std::string, Value>> changes) {
    Args a{{"mac", kMac}, {"cardSetId", int64_t{7}}, {"noFormat", int64_t{0}},
           {"cardNumber", std::string("1001")}, {"pin", std::string("1234")},
           {"accessType", int64_t{1}}, {"uniqueId", int64_t{42}}, {"extendedAccess", int64_t{0}},
           {"passbackExempt", int64_t{0}}, {"pinCommands", int64_t{0}},
           {"startDate", std::string("2024/01/02")}, {"startTime", std::string("0")},
           {"endDate", std::string("2037/12/31")}, {"endTime", std::string("23:59:59")},
           {"escortId", int64_t{0}}, {"inScheduleElevatorGroup", int64_t{0}},
           {"outScheduleElevatorGroup", int64_t{0}}, {"pinExempt", int64_t{0}},
           {"cardRole", int64_t{0}}};
    for (int i = 1; i <= 8; ++i) a["accessGroup" + std::to_string(i)] = int64_t{0};
    for (const auto& c : changes) a[c.first] = c.second;
    return a;
}

// The argument that must be refused, and a word of the refusal.
struct Refusal {
    const char* exportName;
    Args args;
    const char* param;
    const char* why;
};

TEST(HppDynamic, RefusesEachBadArgumentBeforeAnyCall) {
    const std::vector<Refusal> rows = {
        // Bounds at both ends, just outside.
        {"CmdOutputFunction3", Output3(-1), "target", "0 to 32"},
        {"CmdOutputFunction3", Output3(33), "target", "got 33"},
        {"CmdOutputFunction3", Output3(0, 200), "bitOrFunctionCode", "0 to 199"},
        {"CmdOutputFunction3", Output3(0, 0, 3), "state", "0 to 2"},
        {"AddModCardRecord3", Card({{"accessType", int64_t{0}}}), "accessType", "1 to 3"},
        {"AddModCardRecord3", Card({{"accessType", int64_t{4}}}), "accessType", "1 to 3"},
        {"AddModCardRecord3", Card({{"uniqueId", int64_t{0}}}), "uniqueId", "1 to 4294967295"},
        {"AddModCardRecord3", Card({{"uniqueId", int64_t{4294967296}}}), "uniqueId", "got"},
        {"AddModCardRecord3", Card({{"cardRole", int64_t{65536}}}), "cardRole", "0 to 65535"},
        {"AddModCardRecord3", Card({{"accessGroup8", int64_t{65536}}}), "accessGroup8", "65535"},
        {"GetCardholderStatus", {{"mac", kMac}, {"uniqueId", int64_t{2147483648}}}, "uniqueId",
         "1 to 2147483647"},
        {"Initialization", {{"port", int64_t{1024}}}, "port", "1025 to 65535"},
        {"Initialization", {{"port", int64_t{65536}}}, "port", "1025 to 65535"},
        // Texts: patterns, ';' in a field of the message, NUL, emptiness, length.
        {"AddModCardRecord3", Card({{"startDate", std::string("2038/01/01")}}), "startDate",
         "yyyy/mm/dd"},
        {"AddModCardRecord3", Card({{"endTime", std::string("24:00:00")}}), "endTime", "hh:mm:ss"},
        {"AddModCardRecord3", Card({{"cardNumber", std::string("10;01")}}), "cardNumber", "';'"},
        {"AddModCardRecord3", Card({{"pin", std::string("12\0" "34", 5)}}), "pin", "NUL"},
        {"SetTimeDate", {{"mac", kMac}, {"date", std::string("2024/13/01")}, {"time", std::string("8:00:00")}},
         "date", "month 1 to 12"},
        {"SetFileStatus", {{"mac", kMac}, {"path", std::string("/a")}, {"permission", std::string("648")}},
         "permission", "octal"},
        {"ReadInterfaceMemory", {{"mac", kMac}, {"interface", int64_t{0}}, {"memoryType", int64_t{1}},
                                 {"address", std::string("0x10")}, {"numberOfBytes", int64_t{1}}},
         "address", "hexadecimal"},
        {"GetFile", {{"mac", kMac}, {"controllerPathFile", std::string("")}, {"pcPathFile", std::string("x")}},
         "controllerPathFile", "empty"},
        {"GetFile", {{"mac", kMac}, {"controllerPathFile", std::string("/a")}, {"pcPathFile", std::string(256, 'x')}},
         "pcPathFile", "at most 255"},
        {"ControllerInfo", {{"mac", std::string("")}}, "mac", "MAC"},
        // Enumerations.
        {"RestartTask", {{"mac", kMac}, {"task", int64_t{12}}}, "task", "one of"},
        {"ReadInterfaceMemory_2", {{"mac", kMac}, {"interface", int64_t{0}}, {"memoryType", int64_t{1}},
                                   {"address", std::string("10")}, {"numberOfBytes", int64_t{1}},
                                   {"outputType", std::string("x")}},
         "outputType", "one of"},
        // Types.
        {"CmdOutputFunction3", {{"mac", kMac}, {"target", std::string("32")}, {"bitOrFunctionCode", int64_t{0}},
                                {"state", int64_t{1}}},
         "target", "must be an integer"},
        {"ControllerInfo", {{"mac", int64_t{5}}}, "mac", "must be a text"},
        {"SetTZ", {{"mac", kMac}, {"tz", Bytes{1, 2}}}, "tz", "must be a text"},
        // Names, presence and direction.
        {"CmdOutputFunction3", Args{{"mac", kMac}, {"tagret", int64_t{1}}}, "tagret", "did you mean target"},
        {"CmdOutputFunction3", Args{{"mac", kMac}, {"bitOrFunctionCode", int64_t{0}}, {"state", int64_t{1}}},
         "target", "is required"},
        {"ControllerInfo", {{"mac", kMac}, {"buffer", std::string("x")}}, "buffer", "is an output"},
        {"SetTZ", {{"mac", kMac}, {"tz", std::string("UTC")}, {"size", int64_t{4}}}, "size", "no such"},
        // Output sizes the library would refuse, or that would lose what it takes.
        {"GetTimeDate", {{"mac", kMac}, {"dateSize", int64_t{10}}}, "dateSize", "11 to"},
        {"GetNextEvent", {{"size", int64_t{143}}}, "size", "144 to"},
        {"GetNextResponse", {{"size", int64_t{4116}}}, "size", "4117 to"},
        {"GetData", {{"mac", kMac}, {"controllerPathFile", std::string("/a")}, {"size", int64_t{4087}}},
         "size", "1 to 4086"},
        {"SendData", {{"mac", kMac}, {"controllerPathFile", std::string("/a")},
                      {"data", Bytes(4087, 0x41)}, {"endOfData", int64_t{1}}},
         "size", "0 to 4086"},
        {"SendData", {{"mac", kMac}, {"controllerPathFile", std::string("/a")}, {"data", std::string("ab")},
                      {"size", int64_t{2}}, {"endOfData", int64_t{1}}},
         "size", "measured"},
        // Bounds that depend on the mode, and the mode itself.
        {"DebugLevel", {{"mode", int64_t{1}}, {"level", int64_t{76}}}, "level", "0 to 75"},
        {"DebugLevel", {{"mode", int64_t{2}}}, "mode", "one of 0, 1"},
        {"DebugLevel", {{"mode", int64_t{0}}, {"level", int64_t{5}}}, "level", "is an output"},
        {"RecvWaitTime", {{"mode", int64_t{1}}, {"value", int64_t{600001}}}, "value", "0 to 600000"},
        {"EventLogSize", {{"mode", int64_t{1}}, {"value", int64_t{19}}}, "value", "20 to"},
        {"CmdEventLog", {{"mac", kMac}, {"mode", int64_t{6}}, {"value1", int64_t{0}}, {"value2", int64_t{5}}},
         "value1", "1 to 99999"},
        {"CmdEventLog", {{"mac", kMac}, {"mode", int64_t{6}}, {"value1", int64_t{5}}, {"value2", int64_t{100000}}},
         "value2", "1 to 99999"},
        {"CmdEventLog", {{"mac", kMac}, {"mode", int64_t{4}}, {"value1", int64_t{256}}}, "value1", "0 to 255"},
        {"CmdEventLog", {{"mac", kMac}, {"mode", int64_t{3}}}, "mode", "one of"},
        {"SystemTime", {{"mac", kMac}, {"mode", int64_t{1}}, {"date", std::string("2024/1/1")},
                        {"time", std::string("25:00:00")}},
         "time", "hour 0 to 23"},
        {"LocalA2DLimits", {{"mac", kMac}, {"mode", int64_t{1}}, {"adNumber", int64_t{0}}, {"upperHigh", std::string("12G")},
                            {"lowerHigh", std::string("")}, {"upperLow", std::string("")}, {"lowerLow", std::string("")}},
         "upperHigh", "hexadecimal"},
        {"RspFileStatus", {{"rspid", int64_t{0}}, {"mac", kMac}, {"mode", int64_t{0}}, {"path", std::string("/a")}},
         "rspid", "1 to"},
    };
    for (const Refusal& r : rows) {
        SCOPED_TRACE(r.exportName + std::string(" ") + r.param);
        try {
            Invoke(r.exportName, r.args);
            ADD_FAILURE() << "accepted";
        } catch (const ArgumentError& e) {
            EXPECT_EQ(e.param(), r.param) << e.what();
            EXPECT_NE(std::string(e.what()).find(r.why), std::string::npos) << e.what();
            EXPECT_EQ(e.exportName(), r.exportName);
        }
    }
}

TEST(HppDynamic, AcceptsEachBoundItselfAndReachesTheLibrary) {
    // Every row passes the checks; the library then refuses the MAC it has no valid list for.
    const std::vector<std::pair<const char*, Args>> rows = {
        {"CmdOutputFunction3", Output3(0)},
        {"CmdOutputFunction3", Output3(32, 199, 2)},
        {"AddModCardRecord3", Card({{"uniqueId", int64_t{4294967295}}, {"cardRole", int64_t{65535}},
                                    {"startDate", std::string("0")}, {"cardNumber", std::string("")}})},
        {"AddModCardRecord3", Card({{"startDate", std::string("2024/2/31")}, {"startTime", std::string("9:5:0")}})},
        {"GetCardholderStatus3", {{"mac", kMac}, {"uniqueId", int64_t{4294967295}}}},
        {"RestartTask", {{"mac", kMac}, {"task", int64_t{30}}}},
        {"ReadInterfaceMemory_2", {{"mac", kMac}, {"interface", int64_t{31}}, {"memoryType", int64_t{3}},
                                   {"address", std::string("7F")}, {"numberOfBytes", int64_t{8}},
                                   {"outputType", std::string("A")}}},
        // Sent as they stand: ';' belongs to the host's own format here.
        {"RecheckLookupCard", {{"mac", kMac}, {"data", std::string("1;2")}}},
        {"RspSmartCardRawMode", {{"rspid", int64_t{1}}, {"mac", kMac}, {"value", int64_t{2}},
                                 {"data", std::string("AB;CD")}}},
        // A value the mode doesn't read is neither required nor checked.
        {"CmdEventLog", {{"mac", kMac}, {"mode", int64_t{1}}, {"value1", int64_t{-5}}}},
        {"UploadMsgsByMsgID", {{"mac", kMac}, {"start", int64_t{100}}, {"end", int64_t{50}}}},
        {"SetLocalA2DLimits", {{"mac", kMac}, {"adNumber", int64_t{3}}, {"upperHigh", std::string("3FF")},
                               {"lowerHigh", std::string("")}, {"upperLow", std::string("10")},
                               {"lowerLow", std::string("0")}}},
        {"SendData", {{"mac", kMac}, {"controllerPathFile", std::string("/a")},
                      {"data", Bytes(4086, 0)}, {"endOfData", int64_t{1}}}},
        {"GetData", {{"mac", kMac}, {"controllerPathFile", std::string("/a")}, {"size", int64_t{4086}}}},
    };
    for (const auto& [name, args] : rows) {
        SCOPED_TRACE(name);
        dynamic::Call c = Invoke(name, args);
        EXPECT_EQ(c.result, -10004) << c.ResultName();
        EXPECT_FALSE(c.ok);
        EXPECT_EQ(c.ResultName(), "kNotValid");
        EXPECT_TRUE(c.outputs.empty());
    }
}

TEST(HppDynamic, UnknownNamesGetTheClosestNames) {
    auto suggestions = [](const char* name) {
        try {
            dynamic::Get(name);
        } catch (const UnknownExport& e) {
            EXPECT_EQ(e.name(), name);
            return e.suggestions();
        }
        ADD_FAILURE() << name << " was found";
        return std::vector<std::string>{};
    };
    EXPECT_EQ(suggestions("ControlerInfo").front(), "ControllerInfo");
    EXPECT_EQ(suggestions("controllerinfo").front(), "ControllerInfo");
    std::vector<std::string> card = suggestions("GetCardRecord5");
    EXPECT_NE(std::find(card.begin(), card.end(), "GetCardRecord4"), card.end());
    EXPECT_TRUE(suggestions("Xyzzy").empty());
    EXPECT_THROW(Invoke("GetDLLVersio", {}), UnknownExport);
    ASSERT_NE(dynamic::Find("RspCmdOutputFunction2"), nullptr);
    EXPECT_STREQ(dynamic::Find("RspCmdOutputFunction2")->twin, "CmdOutputFunction3");
    // Callbacks are registered through Session, never called by name with a null function.
    try {
        Invoke("SetEventCallback", {});
        ADD_FAILURE() << "SetEventCallback was called";
    } catch (const ArgumentError& e) {
        EXPECT_EQ(e.param(), "");
    }
}

TEST(HppDynamic, LocalExportsByNameGiveTheirOutputs) {
    dynamic::Call version = Invoke("GetDLLVersion", {});
    ASSERT_TRUE(version.ok);
    EXPECT_EQ(std::get<std::string>(version.outputs.at("buffer")), meta::kLibraryVersion);
    EXPECT_EQ(lib::GetDLLVersion(), meta::kLibraryVersion);

    // A mode-dependent pointer: the value set in mode 1 reads back in mode 0.
    ASSERT_TRUE(Invoke("DebugLevel", {{"mode", int64_t{1}}, {"level", int64_t{60}}}).ok);
    dynamic::Call level = Invoke("DebugLevel", {{"mode", int64_t{0}}});
    ASSERT_TRUE(level.ok);
    EXPECT_EQ(std::get<int64_t>(level.outputs.at("level")), 60);
    EXPECT_EQ(lib::DebugLevel(0), 60);
    EXPECT_EQ(lib::RecvWaitTime(1, 1234), 1234);
    EXPECT_EQ(lib::RecvWaitTime(0), 1234);

    // The rings' sizes, read through a 64-bit output.
    dynamic::Call ring = Invoke("EventLogSize", {{"mode", int64_t{0}}});
    ASSERT_TRUE(ring.ok);
    EXPECT_EQ(std::get<int64_t>(ring.outputs.at("value")), 5000);
    EXPECT_EQ(lib::NumberUnreadAlarms(), 0u);

    // Empty queues and files are "nothing", not failures.
    for (const char* poll : {"GetNextLookup", "GetNextPin", "GetNextResponse", "GetNextEvent", "GetNextAlarm"}) {
        SCOPED_TRACE(poll);
        dynamic::Call c = Invoke(poll, {});
        EXPECT_TRUE(c.ok);
        EXPECT_TRUE(c.empty);
        EXPECT_TRUE(c.outputs.empty());
    }
    EXPECT_EQ(Invoke("GetNextEvent", {}).result, -10008);
    EXPECT_EQ(Invoke("GetNextLookup", {}).result, -10009);
    EXPECT_FALSE(lib::GetNextLookup().has_value());
    EXPECT_FALSE(lib::GetNextEvent().has_value());
    EXPECT_EQ(lib::GetNumberLookups(), 0);
    EXPECT_EQ(lib::GetConnectedControllers(), "");
}

TEST(HppDynamic, TypedWrappersThrowTheResultWithItsNameAndMeaning) {
    try {
        lib::ControllerInfo(kMac);
        FAIL() << "ControllerInfo succeeded";
    } catch (const Error& e) {
        EXPECT_EQ(e.code(), -10004);
        EXPECT_EQ(e.name(), "kNotValid");
        EXPECT_EQ(e.meaning(), "the MAC is not in the valid list");
        EXPECT_EQ(e.exportName(), "ControllerInfo");
    }
    // A bound the library itself checks: its -10002 comes back as an Error too.
    EXPECT_THROW(lib::DebugLevel(1, 99), Error);
    // The kinds of value beside the library's own results.
    EXPECT_EQ(ResultName(-5), "controller result");
    EXPECT_EQ(ResultName(10061), "positive");
    // The Rsp form of a status command says nothing, and never throws.
    EXPECT_EQ(lib::RspDeleteSchedule(1, kMac, 7), -1);
    // The rules as the model defines them.
    EXPECT_TRUE(Succeeded(meta::Rule::kController, 5));
    EXPECT_FALSE(Succeeded(meta::Rule::kZero, 5));
    EXPECT_TRUE(Succeeded(meta::Rule::kResultRsp, -1));
    EXPECT_FALSE(Succeeded(meta::Rule::kResultRsp, -10004));
    EXPECT_TRUE(IsEmpty(meta::Rule::kPollFile, -10008));
    EXPECT_FALSE(IsEmpty(meta::Rule::kPoll, -10008));
}

// A frame as the library queues it: code, the whole frame's length, payload.
std::string Frame(int code, const std::string& payload) {
    char header[11];
    std::snprintf(header, sizeof header, "%04d;%04zu;", code, payload.size() + 10);
    return header + payload;
}

// The outputs of GetCardRecord when the reply gives the card and nothing more.
Outputs Record(const std::string& card, int64_t set, int64_t format) {
    Outputs o{{"cardNumber", card}, {"cardSetId", set}, {"noFormat", format}, {"pin", std::string()}};
    for (const char* text : {"startDate", "startTime", "endDate", "endTime"}) o[text] = std::string();
    for (const char* number : {"accessType", "uniqueId", "extendedAccess", "passbackExempt", "pinCommands",
                               "escortId", "inScheduleElevatorGroup", "outScheduleElevatorGroup", "field7Value"})
        o[number] = int64_t{0};
    for (int i = 1; i <= 8; ++i) o["accessGroup" + std::to_string(i)] = int64_t{0};
    return o;
}

struct DecodeRow {
    const char* exportName;
    std::string frame;
    int32_t result;
    Outputs outputs;
    Args args;
};

TEST(HppDynamic, DecodesRepliesAsTheBlockingFormsReadThem) {
    const std::vector<DecodeRow> rows = {
        // Kind status: the one field as sent; any other count, or no number, is -1.
        {"RspDeleteSchedule", Frame(1116, "0;"), 0, {}, {}},
        {"RspDeleteSchedule", Frame(1116, "-5;"), -5, {}, {}},
        {"RspDeleteSchedule", Frame(1116, "0;1;"), -1, {}, {}},
        {"RspDeleteSchedule", Frame(1116, "abc;"), -1, {}, {}},
        // Kind result: counted, not read; strict numbers.
        {"RspGetSchedule", Frame(1116, "-5;a;b;c;d;e;1;2;3;4;5;9;"), 0,
         {{"scheduleText1", std::string("a")}, {"scheduleText2", std::string("b")},
          {"scheduleText3", std::string("c")}, {"scheduleText4", std::string("d")},
          {"scheduleText5", std::string("e")}, {"scheduleValue1", int64_t{1}},
          {"scheduleValue2", int64_t{2}}, {"scheduleValue3", int64_t{3}},
          {"scheduleValue4", int64_t{4}}, {"scheduleValue5", int64_t{5}}}, {}},
        {"RspGetSchedule", Frame(1116, "0;a;b;c;d;e;1;2;3;4;5;"), -1, {}, {}},
        {"RspGetSchedule", Frame(1116, "0;a;b;c;d;e;1;x;3;4;5;9;"), -1, {}, {}},
        {"RspGetSchedule", Frame(1116, "0;a;b;c;d;e;1;;3;4;5;9;"), -1, {}, {}},
        // Cut at '#': the whole payload is the text.
        {"RspGetContactIDCommRecord", Frame(1116, "0;abc;"), 0, {{"commText", std::string("0;abc;")}}, {}},
        {"RspGetContactIDCommRecord", Frame(1116, "0#1"), -1, {}, {}},
        {"RspGetContactIDGroupRecord", Frame(1116, "door;5;3;"), 0,
         {{"groupText", std::string("door")}, {"groupValue", int64_t{5}}}, {}},
        // The old board reply: 1 is success, 0 a failure; the controller's reply reads as usual.
        {"CmdOutputFunction", Frame(1001, "1;"), 0, {}, {}},
        {"CmdOutputFunction", Frame(1001, "0;"), -10001, {}, {}},
        {"CmdOutputFunction", Frame(1047, "0;"), 0, {}, {}},
        {"CmdOutputFunction", Frame(1047, "-100;"), -100, {}, {}},
        // Another code: 9910 and 9920 and anything else.
        {"RspControllerInfo", Frame(9910, "79;"), -10010, {}, {}},
        {"RspControllerInfo", Frame(9920, ""), -10030, {}, {}},
        {"RspControllerInfo", Frame(1019, "0;"), -10010, {}, {}},
        {"RspControllerInfo", Frame(1079, "Zanth 4.1;serial 7"), 0, {{"buffer", std::string("Zanth 4.1;serial 7")}}, {}},
        // A card record cut short is a success with the fields it has.
        {"RspGetCardRecord", Frame(1016, "0;1001;7;1;"), 0, Record("1001", 7, 1), {}},
        // Fields that didn't come stay as they went in, an input-output as the caller gave it.
        {"RspGetCardRecord", Frame(1016, "0;"), 0, Record("2002", 9, 0),
         {{"cardNumber", std::string("2002")}, {"cardSetId", int64_t{9}}}},
        {"RspGetCardRecord4", Frame(1035, "-101;"), -101, {}, {}},
        {"RspGetCardRecord2", Frame(1035, "-5;"), -10001, {}, {}},
        // Missing status fields are an error here.
        {"RspGetCardholderStatus", Frame(1076, "0;0;1;2;3;4;5;"), -10011, {}, {}},
        {"RspGetCardholderStatus", Frame(1076, "0;2024/01/02-08:00:00;1;2;3;4;5;6;7;8;"), 0,
         {{"statusDate", std::string("2024/01/02")}, {"statusTime", std::string("08:00:00")},
          {"statusValue1", int64_t{1}}, {"statusValue2", int64_t{2}}, {"statusValue3", int64_t{3}},
          {"statusValue4", int64_t{4}}, {"statusValue5", int64_t{5}}, {"statusValue6", int64_t{6}},
          {"statusValue7", int64_t{7}}, {"statusValue8", int64_t{8}}}, {}},
        // The later input generations read on only for 0.
        {"RspGetInputStatus2", Frame(1095, "5;"), 5, {{"status", int64_t{0}}, {"buffer", std::string()}}, {}},
        {"RspGetInputStatus2", Frame(1095, "0;7;FF;"), 0, {{"status", int64_t{7}}, {"buffer", std::string("FF")}}, {}},
        // The wire's date and time, reordered and as they stand.
        {"RspGetTimeDate", Frame(1019, "0;12;25;2024;8;30;0;"), 0,
         {{"date", std::string("2024/12/25")}, {"time", std::string("8:30:0")}}, {}},
        {"RspGetTimeDate", Frame(1019, "0;12;25;"), -10011, {}, {}},
        // A mode export: the mode picks the reply it expects.
        {"RspSystemTime", Frame(1046, "0;CET;"), 0, {{"zone", std::string("CET")}}, {{"mode", int64_t{2}}}},
        {"RspSystemTime", Frame(1046, "0;CET;"), -10010, {}, {{"mode", int64_t{0}}}},
        // Newer commands' readings of their own.
        {"RspSetMoxOperationMode", Frame(1098, "-1513;"), -10029, {}, {}},
        {"RspSetMoxOperationMode", Frame(1098, "-1;"), -1, {}, {}},
        {"RspGetMoxModuleRevs", Frame(1109, "0;00:1.2;16:1.3;"), 0, {{"buffer", std::string("00:1.2;16:1.3;")}}, {}},
        {"RspGetMoxModuleRevs", Frame(9910, "109;"), -10030, {}, {}},
        {"RspEnableDHCP", Frame(1110, "0;"), 0, {}, {}},
        {"RspEnableDHCP", Frame(1111, "0;"), -10005, {}, {}},
        {"RspSetPassword", Frame(1102, "-7;"), -7, {}, {}},
        {"RspGetErrorLog", Frame(1090, "0;"), -10014, {}, {}},
        {"RspZanthDeleteFile", Frame(9910, "x;"), -10010, {}, {}},
        {"RspZanthDeleteFile", Frame(1113, "-3;"), -3, {}, {}},
        // The end of a file stream.
        {"RspGetFile", "0000;0012;0;", 0, {}, {}},
        {"RspGetFile", "0000;0017;-10007;", -10007, {}, {}},
        {"RspGetFile", "0000;0029;Connection failure;", -10003, {}, {}},
        {"RspSendFile", "9990;0010;", 9990, {}, {}},
        {"RspSendFile", Frame(9980, "-101;no such file;"), -101, {}, {}},
        // A frame of the library's own.
        {"RspResetThread", Frame(0, "-10004;"), -10004, {}, {}},
        {"RspContactController", Frame(0, "10061;"), 10061, {}, {}},
    };
    for (const DecodeRow& r : rows) {
        SCOPED_TRACE(std::string(r.exportName) + " " + r.frame);
        dynamic::Decoded d = dynamic::DecodeReply(r.exportName, r.frame, r.args);
        EXPECT_EQ(d.result, r.result);
        EXPECT_EQ(d.outputs, r.outputs) << Show(d.outputs);
    }
}

TEST(HppDynamic, RawRepliesAreHandedOverWhole) {
    // A file chunk is binary, measured by its frame's length field.
    std::string chunk("\0\1;\2#", 5);
    dynamic::Decoded d = dynamic::DecodeReply("RspGetData", "1033;0015;" + chunk + "trailing");
    EXPECT_TRUE(d.raw);
    EXPECT_EQ(d.code, 1033);
    EXPECT_EQ(std::get<Bytes>(d.outputs.at("payload")), Bytes(chunk.begin(), chunk.end()));
    d = dynamic::DecodeReply("RspSmartCardRawMode", Frame(1150, "9000;ABCD"));
    EXPECT_TRUE(d.raw);
    EXPECT_EQ(std::get<Bytes>(d.outputs.at("payload")).size(), 9u);
    // Not a frame at all; an export with nothing to decode.
    EXPECT_EQ(dynamic::DecodeReply("RspControllerInfo", "garbage").result, -10024);
    EXPECT_THROW(dynamic::DecodeReply("GetDLLVersion", "0000;0010;"), ArgumentError);
}

}  // namespace
}  // namespace zanth::hpptest
