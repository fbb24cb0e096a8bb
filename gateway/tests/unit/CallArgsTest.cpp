// The call path's checks against the API model, and the OpenAPI document against the checks:
// every /call operation of the document must take the arguments its request schema describes,
// and refuse, naming the field, an integer one past the bound the schema states. Nothing here
// loads the library: a prepared call is never made.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "gateway/Model.h"
#include "gateway/OpenApi.h"

namespace zanthd {
namespace {

using nlohmann::json;
namespace fs = std::filesystem;

class CallArgs : public ::testing::Test {
  protected:
    void SetUp() override {
        folder_ = fs::temp_directory_path() / ("zanthd-callargs-" + std::to_string(::getpid()));
        fs::create_directories(folder_ / "files");
        options_.filesDir = folder_ / "files";
    }
    void TearDown() override { fs::remove_all(folder_); }

    bool Prepare(const std::string& name, const json& args, CallProblem* problem, PreparedCall* call = nullptr) {
        PreparedCall ignored;
        return PrepareCall(name, args, options_, call ? call : &ignored, problem);
    }

    fs::path folder_;
    CallOptions options_;
};

// A value the schema takes.
json Sample(const json& s) {
    if (s.contains("enum")) return s["enum"][0];
    if (s.contains("default")) return s["default"];
    if (s["type"] == "integer") return s.value("minimum", json(0));
    if (s.value("format", "") == "byte") return "AAEC";
    if (s.contains("example")) return s["example"];
    if (s.value("description", "").find("files folder") != std::string::npos) return "file.bin";
    if (s.value("maxLength", 0) == 1) return "A";
    std::string p = s.value("pattern", "");
    if (p == "^[0-9A-Fa-f]+$") return "A1";
    if (p == "^[0-9A-Fa-f]*$") return "";
    if (p == "^[0-7]{3}$") return "644";
    if (p.find("/[0-9]") != std::string::npos) return p.find("0|") != std::string::npos ? "0" : "2025/01/02";
    if (p.find(":[0-9]") != std::string::npos) return p.find("0|") != std::string::npos ? "0" : "10:11:12";
    return "x";
}

TEST_F(CallArgs, EveryCommandOfTheDocumentTakesWhatItsSchemaDescribes) {
    json doc = OpenApiDocument("test", "0");
    size_t calls = 0, refusals = 0;
    for (const auto& [path, ops] : doc["paths"].items()) {
        if (path.rfind("/call/", 0) != 0) continue;
        std::string name = path.substr(6);
        const json& schema = ops["post"]["requestBody"]["content"]["application/json"]["schema"];
        json args = json::object();
        for (const auto& field : schema.value("required", json::array())) args[field] = Sample(schema["properties"][field]);
        // A mode decides which of the other parameters are arguments: add what is asked for.
        CallProblem problem;
        bool ok = false;
        for (int round = 0; round < 12 && !(ok = Prepare(name, args, &problem)); ++round) {
            if (problem.error.find("is required") != std::string::npos && schema["properties"].contains(problem.field)) {
                args[problem.field] = Sample(schema["properties"][problem.field]);
            } else if (problem.error.find("is an output") != std::string::npos) {
                args.erase(problem.field);
            } else {
                break;
            }
        }
        ASSERT_TRUE(ok) << name << " " << args.dump() << ": " << problem.error;
        ++calls;
        if (schema["properties"].contains("mode")) continue;
        // One past each bound the schema states is refused, naming the field and the bound.
        for (const auto& [field, s] : schema["properties"].items()) {
            if (s["type"] != "integer" || !s.contains("maximum") || !args.contains(field)) continue;
            int64_t max = s["maximum"];
            if (max == INT64_MAX) continue;
            json wrong = args;
            wrong[field] = max + 1;
            ASSERT_FALSE(Prepare(name, wrong, &problem)) << name << " " << field;
            EXPECT_EQ(problem.status, 400);
            EXPECT_EQ(problem.field, field) << name;
            EXPECT_NE(problem.error.find(std::to_string(max)), std::string::npos) << problem.error;
            ++refusals;
        }
    }
    EXPECT_GT(calls, 220u);
    EXPECT_GT(refusals, 300u);
}

TEST_F(CallArgs, TheWayToTheLibraryFollowsTheModel) {
    auto way = [this](const std::string& name, const json& args, bool* awaits = nullptr) {
        PreparedCall call;
        CallProblem problem;
        EXPECT_TRUE(Prepare(name, args, &problem, &call)) << name << ": " << problem.error;
        if (awaits) *awaits = call.AwaitsReply();
        return call.Way();
    };
    json mac = {{"mac", "00:00:01"}};
    EXPECT_EQ(way("GetTimeDate", mac), CallWay::kRsp);
    EXPECT_EQ(way("RspGetTimeDate", mac), CallWay::kRsp);
    // Out of step: the third generation's Rsp form carries the second's name.
    EXPECT_EQ(way("GetInputStatus3", {{"mac", "00:00:01"}, {"target", 32}}), CallWay::kRsp);
    // No Rsp form, or one that would wait for nothing after a reboot: the blocking form.
    EXPECT_EQ(way("GetInputStatus", {{"mac", "00:00:01"}, {"target", 32}}), CallWay::kBlocking);
    EXPECT_EQ(way("RebootBoard", {{"mac", "00:00:01"}, {"target", 32}}), CallWay::kBlocking);
    bool awaits = true;
    EXPECT_EQ(way("SendPostAccessMsg", {{"mac", "00:00:01"}, {"message", "x"}}, &awaits), CallWay::kBlocking);
    EXPECT_FALSE(awaits);
    EXPECT_EQ(way("FirmwareCommand", {{"mac", "00:00:01"}, {"value", 1}}, &awaits), CallWay::kRsp);
    EXPECT_FALSE(awaits);
    EXPECT_EQ(way("GetDLLVersion", json::object()), CallWay::kLocal);
    EXPECT_EQ(way("GetConnectedControllers", json()), CallWay::kLocal);
    // A MAC in any usual spelling names the controller in its one form.
    PreparedCall call;
    CallProblem problem;
    ASSERT_TRUE(Prepare("GetTimeDate", {{"mac", "c0-00-0a"}}, &problem, &call));
    EXPECT_EQ(call.Mac(), "C0:00:0A");
}

TEST_F(CallArgs, RefusalsSayWhyAndWhatToDo) {
    CallProblem p;
    EXPECT_FALSE(Prepare("GetTimeDat", {{"mac", "00:00:01"}}, &p));
    EXPECT_EQ(p.status, 404);
    ASSERT_FALSE(p.suggestions.empty());
    EXPECT_EQ(p.suggestions[0], "GetTimeDate");
    // Suggestions are among what may be called.
    EXPECT_FALSE(Prepare("Shutdow", {}, &p));
    for (const std::string& s : p.suggestions) EXPECT_NE(s, "Shutdown");
    for (const char* withheld : {"Shutdown", "Terminate", "DebugLevel", "SetLookupCallback", "GetNextPin",
                                 "GetNumberResponse", "NumberUnreadAlarms", "ResetDLL", "RspContactController"}) {
        EXPECT_FALSE(Prepare(withheld, {}, &p)) << withheld;
        EXPECT_EQ(p.status, 403) << withheld;
        EXPECT_NE(p.error.find(withheld), std::string::npos);
    }
    struct Case {
        const char* name;
        json args;
        const char* field;
        const char* words;
    };
    const Case cases[] = {
        {"RebootBoard", {{"mac", "00:00:01"}, {"target", true}}, "target", "must be an integer"},
        {"RebootBoard", {{"mac", "00:00:01"}, {"target", nullptr}}, "target", "must be an integer"},
        {"RebootBoard", {{"mac", "00:00:01"}, {"target", json::array()}}, "target", "must be an integer"},
        {"RebootBoard", {{"mac", "00:00:01"}, {"target", 18446744073709551615ULL}}, "target", "out of range"},
        {"RebootBoard", {{"mac", "00:00:01"}, {"target", -1}}, "target", "0 to 32 (got -1)"},
        {"RebootBoard", {{"mac", 1}, {"target", 1}}, "mac", "text"},
        {"RebootBoard", {{"target", 1}}, "mac", "is required"},
        {"SetTZ", {{"mac", "00:00:01"}, {"tz", "CET;x"}}, "tz", "';'"},
        {"SendData", {{"mac", "00:00:01"}, {"controllerPathFile", "/x"}, {"data", "not base64!"}, {"endOfData", 1}}, "data", "base64"},
        {"SendData", {{"mac", "00:00:01"}, {"controllerPathFile", "/x"}, {"data", 5}, {"endOfData", 1}}, "data", "bytes"},
        {"GetTimeDate", {{"mac", "00:00:01"}, {"date", "x"}}, "date", "output"},
        {"RspGetTimeDate", {{"mac", "00:00:01"}, {"rspid", 3}}, "rspid", "gateway"},
    };
    for (const Case& c : cases) {
        EXPECT_FALSE(Prepare(c.name, c.args, &p)) << c.name << " " << c.args.dump();
        EXPECT_EQ(p.status, 400);
        EXPECT_EQ(p.field, c.field) << c.args.dump();
        EXPECT_NE(p.error.find(c.words), std::string::npos) << p.error;
    }
    EXPECT_FALSE(Prepare("GetTimeDate", json::array(), &p));
    EXPECT_EQ(p.status, 400);
}

TEST_F(CallArgs, LocalPathsStayInTheFilesFolder) {
    json base = {{"mac", "00:00:01"}, {"controllerPathFile", "/data/x"}};
    PreparedCall call;
    CallProblem p;
    json args = base;
    args["pcPathFile"] = "in/side.bin";
    EXPECT_TRUE(Prepare("GetFile", args, &p, &call)) << p.error;
    args["pcPathFile"] = (options_.filesDir / "abs.bin").string();
    EXPECT_TRUE(Prepare("GetFile", args, &p)) << p.error;
    fs::create_symlink(folder_, options_.filesDir / "up");
    for (const std::string& outside : std::vector<std::string>{"../x", "/etc/passwd", "a/../../x", "", ".", "up/x", (folder_ / "x").string()}) {
        args["pcPathFile"] = outside;
        EXPECT_FALSE(Prepare("SendFile", args, &p)) << outside;
        EXPECT_EQ(p.field, "pcPathFile") << outside;
        EXPECT_NE(p.error.find("files folder"), std::string::npos);
    }
    // What the audit record keeps: PINs and passwords masked, bytes counted.
    ASSERT_TRUE(Prepare("SetPassword", {{"mac", "00:00:01"}, {"username", "admin"}, {"password", "secret"}}, &p, &call));
    EXPECT_EQ(call.AuditArgs()["password"], "***");
    EXPECT_EQ(call.AuditArgs()["username"], "admin");
    ASSERT_TRUE(Prepare("SendData", {{"mac", "00:00:01"}, {"controllerPathFile", "/x"}, {"data", "AAECAw=="}, {"endOfData", 1}}, &p, &call));
    EXPECT_EQ(call.AuditArgs()["data"], json({{"bytes", 4}}));
}

TEST(Base64, RoundTripsAndRefusesWhatIsNot) {
    std::string all;
    for (int i = 0; i < 256; ++i) all.push_back(static_cast<char>(i));
    for (size_t n : {0u, 1u, 2u, 3u, 4u, 255u, 256u}) {
        std::string back;
        ASSERT_TRUE(FromBase64(Base64(all.substr(0, n)), &back));
        EXPECT_EQ(back, all.substr(0, n));
    }
    EXPECT_EQ(Base64("foob"), "Zm9vYg==");
    std::string out;
    for (const char* bad : {"Zm9vYg=", "Zm9v=mFy", "Zm9vY===", "Zm9v\nYg==", "Zm9vYg=a", "====", "Zm9%"}) {
        EXPECT_FALSE(FromBase64(bad, &out)) << bad;
    }
}

}  // namespace
}  // namespace zanthd
