// The message bus's pure parts: a request read and checked (its topic, its body, its HMAC and
// time window), the memory of request ids, the topics and payloads of journal records, and the
// [mqtt] section of the config.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "gateway/CallPath.h"
#include "gateway/Config.h"
#include "gateway/MqttBus.h"
#include "gateway/MqttRequest.h"
#include "gateway/PayloadCodec.h"

namespace zanthd {
namespace {

using nlohmann::json;

constexpr const char* kSecret = "a-shared-secret-of-the-site";
constexpr int64_t kNow = 1732450000;
const std::string kTopic = "zanth/lobby/00:00:01/call/CmdOutputFunction3";
const std::string kReply = "zanth/lobby/reply/ops/1";

BusRequestOptions Options(const std::string& secret = "") {
    BusRequestOptions o;
    o.prefix = "zanth/lobby";
    o.hmacSecret = secret;
    o.hmacWindowS = 30;
    return o;
}

json Signed(json request, int64_t ts, const std::string& topic = kTopic, const std::string& secret = kSecret) {
    request["ts"] = ts;
    json args = request.contains("args") ? request["args"] : json::object();
    request["hmac"] = HmacSha256Hex(secret, SigningText(request["id"], ts, topic, request["reply_to"], args));
    return request;
}

TEST(MqttHmac, MatchesTheStandardVectorAndCoversEveryPart) {
    // RFC 4231, test case 2.
    EXPECT_EQ(HmacSha256Hex("Jefe", "what do ya want for nothing?"),
              "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
    // The text signed: id, time, topic, reply topic and the arguments as compact sorted JSON.
    json args = {{"state", 1}, {"target", 32}, {"bitOrFunctionCode", 0}};
    EXPECT_EQ(SigningText("r1", kNow, kTopic, kReply, args),
              "r1\n1732450000\n" + kTopic + "\n" + kReply + "\n{\"bitOrFunctionCode\":0,\"state\":1,\"target\":32}");
}

TEST(MqttHmac, SignedRequestsAreTakenWithinTheWindowAndRefusedOtherwise) {
    json base = {{"id", "r1"}, {"reply_to", kReply}, {"args", {{"target", 32}, {"bitOrFunctionCode", 0}, {"state", 1}}}};
    BusRequest r;
    BusRefusal no;
    for (int64_t skew : {-30, 0, 30}) {
        EXPECT_TRUE(ParseBusRequest(Options(kSecret), kTopic, Signed(base, kNow + skew).dump(), kNow, &r, &no))
            << skew << ": " << no.error;
    }
    struct Case {
        const char* what;
        json request;
        std::string topic;
        const char* field;
    };
    json changed = Signed(base, kNow);
    changed["args"]["bitOrFunctionCode"] = 1;
    json otherReply = Signed(base, kNow);
    otherReply["reply_to"] = "zanth/lobby/reply/eve/1";
    json upper = Signed(base, kNow);
    std::string hex = upper["hmac"];
    for (char& c : hex) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    upper["hmac"] = hex;
    EXPECT_TRUE(ParseBusRequest(Options(kSecret), kTopic, upper.dump(), kNow, &r, &no)) << "hex in capitals";
    json unsignedRequest = base;
    json noHmac = base;
    noHmac["ts"] = kNow;
    json stringTime = Signed(base, kNow);
    stringTime["ts"] = std::to_string(kNow);
    std::vector<Case> cases = {
        {"unsigned", unsignedRequest, kTopic, "ts"},
        {"no hmac", noHmac, kTopic, "hmac"},
        {"a time as text", stringTime, kTopic, "ts"},
        {"a wrong secret", Signed(base, kNow, kTopic, "another-secret-of-16+"), kTopic, "hmac"},
        {"arguments changed", changed, kTopic, "hmac"},
        {"reply topic changed", otherReply, kTopic, "hmac"},
        {"another controller", Signed(base, kNow), "zanth/lobby/00:00:02/call/CmdOutputFunction3", "hmac"},
        {"another export", Signed(base, kNow), "zanth/lobby/00:00:01/call/RebootBoard", "hmac"},
        {"31 s old", Signed(base, kNow - 31), kTopic, "ts"},
        {"31 s ahead", Signed(base, kNow + 31), kTopic, "ts"},
    };
    for (const Case& c : cases) {
        BusRefusal refusal;
        EXPECT_FALSE(ParseBusRequest(Options(kSecret), c.topic, c.request.dump(), kNow, &r, &refusal)) << c.what;
        EXPECT_EQ(refusal.status, 401) << c.what;
        EXPECT_EQ(refusal.field, c.field) << c.what << ": " << refusal.error;
        // Refused, but answered: the id and the reply topic are known.
        EXPECT_EQ(refusal.id, c.request["id"]) << c.what;
        EXPECT_EQ(refusal.replyTo, c.request["reply_to"]) << c.what;
    }
    // Without a secret, a request needs no signature and a stale one passes.
    EXPECT_TRUE(ParseBusRequest(Options(), kTopic, Signed(base, kNow - 3600).dump(), kNow, &r, &no));
}

TEST(MqttRequest, TakesTheControllerFromTheTopicAndChecksTheBody) {
    BusRequest r;
    BusRefusal refusal;
    ASSERT_TRUE(ParseBusRequest(Options(), "zanth/lobby/000001/call/GetTimeDate",
                                R"({"id":"a","reply_to":"zanth/lobby/reply/x","deadline_ms":2500})", kNow, &r, &refusal))
        << refusal.error;
    EXPECT_EQ(r.exportName, "GetTimeDate");
    EXPECT_EQ(r.mac, "00:00:01");
    EXPECT_EQ(r.args, json({{"mac", "00:00:01"}}));
    EXPECT_EQ(r.deadlineMs, 2500);
    ASSERT_TRUE(ParseBusRequest(Options(), "zanth/lobby/gateway/call/GetDLLVersion",
                                R"({"id":"b","reply_to":"zanth/lobby/reply/x","args":{}})", kNow, &r, &refusal));
    EXPECT_EQ(r.mac, "");
    EXPECT_EQ(r.args, json::object());
    // The same controller named in the arguments in another form is fine.
    EXPECT_TRUE(ParseBusRequest(Options(), "zanth/lobby/00:00:01/call/GetTimeDate",
                                R"({"id":"c","reply_to":"zanth/lobby/reply/x","args":{"mac":"00-00-01"}})", kNow, &r,
                                &refusal));

    struct Case {
        std::string topic, body;
        int status;
        std::string field;
        bool answerable;  // the refusal names the request's reply topic
    };
    const std::string t = "zanth/lobby/00:00:01/call/GetTimeDate";
    const std::string ok = R"("reply_to":"zanth/lobby/reply/x")";
    std::vector<Case> cases = {
        {t, "{not json", 400, "", false},
        {t, "[1,2]", 400, "", false},
        {t, R"({"id":"a"})", 400, "reply_to", false},
        {t, R"({"id":"a","reply_to":"zanth/lobby/00:00:01/event"})", 400, "reply_to", false},
        {t, R"({"id":"a","reply_to":"zanth/lobby/reply/"})", 400, "reply_to", false},
        {t, R"({"id":"a","reply_to":"zanth/lobby/reply/+"})", 400, "reply_to", false},
        {t, R"({"id":"a","reply_to":"zanth/other/reply/x"})", 400, "reply_to", false},
        {t, "{" + ok + "}", 400, "id", true},
        {t, R"({"id":7,)" + ok + "}", 400, "id", true},
        {t, R"({"id":"",)" + ok + "}", 400, "id", true},
        {t, R"({"id":")" + std::string(129, 'x') + "\"," + ok + "}", 400, "id", true},
        {t, R"({"id":"a","args":[],)" + ok + "}", 400, "args", true},
        {t, R"({"id":"a","arg":{},)" + ok + "}", 400, "arg", true},
        {t, R"({"id":"a","deadline_ms":0,)" + ok + "}", 400, "deadline_ms", true},
        {t, R"({"id":"a","args":{"mac":"00:00:02"},)" + ok + "}", 400, "mac", true},
        {t, R"({"id":"a","args":{"mac":5},)" + ok + "}", 400, "mac", true},
        {"zanth/lobby/zz/call/GetTimeDate", R"({"id":"a",)" + ok + "}", 400, "mac", true},
        {"zanth/lobby/00:00:01/call/", R"({"id":"a",)" + ok + "}", 400, "topic", false},
        {"zanth/lobby/00:00:01/ask/GetTimeDate", R"({"id":"a",)" + ok + "}", 400, "topic", false},
        {"zanth/other/00:00:01/call/GetTimeDate", R"({"id":"a",)" + ok + "}", 400, "topic", false},
    };
    for (const Case& c : cases) {
        EXPECT_FALSE(ParseBusRequest(Options(), c.topic, c.body, kNow, &r, &refusal)) << c.topic << " " << c.body;
        EXPECT_EQ(refusal.status, c.status) << c.body;
        EXPECT_EQ(refusal.field, c.field) << c.body << ": " << refusal.error;
        EXPECT_FALSE(refusal.error.empty());
        EXPECT_EQ(!refusal.replyTo.empty(), c.answerable) << c.body;
    }
}

TEST(MqttRequest, TopicsAndPrefixes) {
    EXPECT_EQ(CallTopicExport("zanth/lobby", "zanth/lobby/00:00:01/call/GetTimeDate"), "GetTimeDate");
    EXPECT_EQ(CallTopicExport("zanth/lobby", "zanth/lobby/gateway/call/GetDLLVersion"), "GetDLLVersion");
    for (const char* topic : {"zanth/lobby/00:00:01/call/a/b", "zanth/lobby//call/X", "zanth/lobbyX/1/call/X",
                              "zanth/lobby/00:00:01/event", "zanth/lobby"}) {
        EXPECT_EQ(CallTopicExport("zanth/lobby", topic), "") << topic;
    }
    std::string why;
    EXPECT_TRUE(ValidTopicPrefix("zanth/lobby", &why));
    EXPECT_TRUE(ValidTopicPrefix("site", &why));
    for (const char* bad : {"", "/zanth", "zanth/", "zanth//x", "zanth/+", "zanth/#", "$SYS/x", "a\tb"}) {
        EXPECT_FALSE(ValidTopicPrefix(bad, &why)) << bad;
        EXPECT_FALSE(why.empty());
    }
}

using Seen = RequestMemory::Seen;

TEST(MqttRequestMemory, ARepeatWaitsForTheAnswerOrGetsItAgain) {
    RequestMemory memory(100, std::chrono::seconds(60));
    auto t0 = RequestMemory::Clock::now();
    json answer;
    EXPECT_EQ(memory.Begin("open-1", "reply/a", t0, &answer), Seen::kNew);
    // Copies that come while it runs are answered when it ends, each on its own reply topic.
    EXPECT_EQ(memory.Begin("open-1", "reply/b", t0, &answer), Seen::kRunning);
    EXPECT_EQ(memory.Begin("open-1", "reply/c", t0, &answer), Seen::kRunning);
    EXPECT_EQ(memory.Finish("open-1", {{"ok", true}}, t0), (std::vector<std::string>{"reply/b", "reply/c"}));
    EXPECT_EQ(memory.Begin("open-1", "reply/d", t0 + std::chrono::seconds(59), &answer), Seen::kAnswered);
    EXPECT_EQ(answer, json({{"ok", true}}));
    // Another id is another request.
    EXPECT_EQ(memory.Begin("open-2", "reply/a", t0, &answer), Seen::kNew);
}

TEST(MqttRequestMemory, ForgetsByAgeAndCountButNeverARunningRequest) {
    RequestMemory memory(3, std::chrono::seconds(60));
    auto t0 = RequestMemory::Clock::now();
    json answer;
    EXPECT_EQ(memory.Begin("running", "r", t0, &answer), Seen::kNew);
    for (int i = 0; i < 5; ++i) {
        std::string id = "done-" + std::to_string(i);
        EXPECT_EQ(memory.Begin(id, "r", t0, &answer), Seen::kNew);
        memory.Finish(id, {{"n", i}}, t0 + std::chrono::seconds(i));
    }
    // Three answers kept, the newest; the running one besides.
    EXPECT_EQ(memory.Size(), 4u);
    EXPECT_EQ(memory.Begin("done-1", "r", t0 + std::chrono::seconds(5), &answer), Seen::kNew);
    memory.Finish("done-1", {{"n", 1}}, t0 + std::chrono::seconds(5));
    EXPECT_EQ(memory.Begin("done-4", "r", t0 + std::chrono::seconds(6), &answer), Seen::kAnswered);
    EXPECT_EQ(answer, json({{"n", 4}}));
    // Past the age, every answer goes; the running request stays however old.
    auto later = t0 + std::chrono::hours(2);
    EXPECT_EQ(memory.Begin("another", "r", later, &answer), Seen::kNew);
    EXPECT_EQ(memory.Begin("running", "r2", later, &answer), Seen::kRunning);
    EXPECT_EQ(memory.Begin("done-4", "r", later, &answer), Seen::kNew);
    EXPECT_EQ(memory.Finish("running", {{"late", true}}, later), (std::vector<std::string>{"r2"}));
}

TEST(MqttRecords, TopicsByKindAndThePayload) {
    Record r;
    r.id = 41;
    r.kind = "event";
    r.mac = "00:00:01";
    r.receivedMs = 1743303598123;
    r.raw = "00:00:01;17;03/30/2025;02:59:58;1;3;2;Access granted;";
    r.fields = R"({"msg_id":"17","door":"2"})";
    bool retained = true;
    EXPECT_EQ(RecordTopic("zanth/lobby", r, &retained), "zanth/lobby/00:00:01/event");
    EXPECT_FALSE(retained);
    json p = json::parse(RecordPayload(r));
    EXPECT_EQ(p, json({{"id", 41},
                       {"mac", "00:00:01"},
                       {"time", "2025-03-30T02:59:58.123Z"},
                       {"time_ms", 1743303598123},
                       {"type", "event"},
                       {"raw", r.raw},
                       {"fields", {{"msg_id", "17"}, {"door", "2"}}}}));
    r.kind = "disconnect";
    EXPECT_EQ(RecordTopic("zanth/lobby", r, &retained), "zanth/lobby/00:00:01/status");
    EXPECT_TRUE(retained);
    EXPECT_EQ(json::parse(RecordPayload(r))["connected"], false);
    // A record that names no controller (an operator's change) goes under site/.
    r.mac = "";
    r.kind = "audit";
    r.actor = "console";
    r.fields = "not json";
    EXPECT_EQ(RecordTopic("zanth/lobby", r, &retained), "zanth/lobby/site/audit");
    EXPECT_FALSE(retained);
    p = json::parse(RecordPayload(r));
    EXPECT_EQ(p["fields"], json::object());
    EXPECT_EQ(p["actor"], "console");
    r.kind = "disconnect";
    EXPECT_EQ(RecordTopic("zanth/lobby", r, &retained), "zanth/lobby/site/disconnect");
    EXPECT_FALSE(retained) << "no controller's status to keep";
}

TEST(MqttRecords, AReplyCarriesTheIdTheStatusAndTheControllersOwnResult) {
    ZanthPayloadCodec codec;
    CallAnswer a;
    a.kind = CallAnswer::Kind::kAnswered;
    a.status = 200;
    a.result.result = -101;
    a.result.ok = false;
    a.body = {{"result", -101}, {"name", "controller result"}, {"outputs", json::object()}};
    json reply = ReplyBody("r9", a, codec);
    EXPECT_EQ(reply["id"], "r9");
    EXPECT_EQ(reply["status"], 200);
    EXPECT_EQ(reply["result"], -101);
    EXPECT_FALSE(reply.value("controller_result", std::string()).empty());
    CallAnswer refused;
    refused.kind = CallAnswer::Kind::kUnknownExport;
    refused.status = 404;
    refused.body = {{"error", "no export"}};
    EXPECT_EQ(ReplyBody("r10", refused, codec), json({{"error", "no export"}, {"id", "r10"}, {"status", 404}}));
}

Config Parse(const std::string& text) {
    return ParseConfig(text, std::filesystem::temp_directory_path() / "zanthd-mqtt-test.toml");
}

std::string ConfigError(const std::string& text) {
    try {
        Parse(text);
    } catch (const zanthd::ConfigError& e) {
        return e.what();
    }
    return "";
}

TEST(MqttConfig, DefaultsFromTheSiteAndErrorsNamedByLine) {
    Config c = Parse("[gateway]\nsite = \"lobby\"\n[mqtt]\nenabled = true\n");
    EXPECT_EQ(c.mqtt.topicPrefix, "zanth/lobby");
    EXPECT_EQ(c.mqtt.clientId, "zanthd-lobby");
    EXPECT_EQ(c.mqtt.qos, 1);
    EXPECT_EQ(c.mqtt.port, 1883);
    EXPECT_FALSE(Parse("").mqtt.enabled);

    auto dir = std::filesystem::temp_directory_path() / "zanthd-mqtt-config";
    std::filesystem::create_directories(dir);
    std::ofstream(dir / "secret") << "  sixteen-characters-or-more\n";
    c = Parse("[mqtt]\nenabled = true\nusername = \"zanthd\"\npassword_file = \"" + (dir / "secret").string() +
              "\"\nhmac_secret_file = \"" + (dir / "secret").string() + "\"\n");
    EXPECT_EQ(c.mqtt.password, "  sixteen-characters-or-more");
    EXPECT_EQ(c.mqtt.hmacSecret, c.mqtt.password);

    struct Case {
        std::string text, message;
    };
    std::vector<Case> cases = {
        {"[mqtt]\nenabled = true\nqos = 0\n", ":3: mqtt.qos: expected an integer from 1 to 2, found 0"},
        {"[mqtt]\nenabled = true\ntopic_prefix = \"zanth/#\"\n", ":3: mqtt.topic_prefix: expected topic levels"},
        {"[gateway]\nsite = \"a/\"\n[mqtt]\nenabled = true\n", ":4: mqtt.topic_prefix: expected a prefix of its own"},
        {"[mqtt]\npassword = \"x\"\n", ":2: mqtt.password: expected a password together with a username"},
        {"[mqtt]\nhmac_secret = \"short\"\n", ":2: mqtt.hmac_secret: expected a secret of at least 16 characters"},
        {"[mqtt]\ntls_cert = \"c.pem\"\n", ":2: mqtt.tls_cert: expected tls_cert and tls_key given together"},
        {"[mqtt]\ntls_ca = \"/nonexistent/ca.pem\"\n", ":2: mqtt.tls_ca: expected a readable file"},
        {"[mqtt]\npassword_file = \"/nonexistent/pw\"\n", ":2: mqtt.password_file: expected a readable file"},
        {"[mqtt]\nbroker = \"x\"\n", ":2: unknown key mqtt.broker"},
        {"[decisions]\nmode = \"mqtt\"\n", ":2: decisions.mode: expected \"rules\" or \"webhook\" unless [mqtt]"},
    };
    for (const Case& k : cases) {
        std::string error = ConfigError(k.text);
        EXPECT_NE(error.find(k.message), std::string::npos) << k.text << "\ngave: " << error;
    }
    EXPECT_EQ(ConfigError("[mqtt]\nenabled = true\n[decisions]\nmode = \"mqtt\"\nmqtt_timeout_ms = 300\n"), "");
}

}  // namespace
}  // namespace zanthd
