// The REST API's commands to controllers: POST /call/{export} for every command of the model,
// and the resources an application uses every day (cards, bulk card loads, time, doors, outputs,
// inputs, schedules, files), all on the one call path. A resource states which export it calls
// with which arguments and how it shows the answer; the checks, the deadline, the audit record
// and the errors are the call path's.

#include <httplib.h>

#include <fstream>
#include <cctype>
#include <sstream>

#include "gateway/ApiInput.h"
#include "gateway/CallPath.h"
#include "gateway/CardLoads.h"
#include "gateway/ConsoleSession.h"
#include "gateway/Controllers.h"
#include "gateway/Http.h"
#include "gateway/HttpJson.h"
#include "gateway/Ingest.h"
#include "gateway/Journal.h"
#include "gateway/Log.h"
#include "gateway/PayloadCodec.h"
#include "gateway/SiteSync.h"
#include "gateway/SiteTime.h"

namespace zanthd {
namespace {

using nlohmann::json;
namespace fs = std::filesystem;

// A number from a path segment within [low, high].
bool PathNumber(const std::string& text, int64_t low, int64_t high, int64_t* out) {
    auto v = ParseNumber(text, low, high);
    if (!v) return false;
    *out = *v;
    return true;
}

// A file of the files folder by its name: letters, digits, '.', '_' and '-', not starting with '.'.
bool FileName(const std::string& name) {
    if (name.empty() || name.size() > 128 || name[0] == '.' || name[0] == '-') return false;
    for (char c : name) {
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '.' && c != '_' && c != '-') return false;
    }
    return true;
}

// The controller's clock ("2025/3/30", "2:59:58") as a site-local time.
bool ControllerTime(const std::string& date, const std::string& time, LocalDateTime* out) {
    return std::sscanf(date.c_str(), "%d/%d/%d", &out->year, &out->month, &out->day) == 3 &&
           std::sscanf(time.c_str(), "%d:%d:%d", &out->hour, &out->minute, &out->second) == 3;
}

std::string Two(int v) {
    char text[16];
    std::snprintf(text, sizeof text, "%02d", v);
    return text;
}

}  // namespace

std::string HttpApi::Actor(const httplib::Request& req) const {
    if (sessions_ && !req.has_header("Authorization")) {
        if (auto session = sessions_->Peek(req.get_header_value("Cookie"), NowMs())) return session->name;
    }
    std::string header = req.get_header_value("Authorization");
    std::string name;
    auth_.Check(req.has_header("Authorization") ? &header : nullptr, &name);
    return name;
}

bool HttpApi::Deadline(const httplib::Request& req, httplib::Response& res, int* ms) {
    *ms = 0;
    if (!req.has_param("deadline_ms")) return true;
    auto v = ParseNumber(req.get_param_value("deadline_ms"), 1, ctx_.config.commandDeadlineMaxMs);
    if (!v) {
        Send(res, 400, {{"error", "deadline_ms: expected an integer from 1 to " +
                                      std::to_string(ctx_.config.commandDeadlineMaxMs)},
                        {"field", "deadline_ms"}});
        return false;
    }
    *ms = static_cast<int>(*v);
    return true;
}

bool HttpApi::BodyBounded(const httplib::Request& req, httplib::Response& res) {
    if (static_cast<int64_t>(req.body.size()) <= ctx_.config.maxBodyBytes) return true;
    Send(res, 413, {{"error", "the body is larger than the gateway takes (" +
                                  std::to_string(ctx_.config.maxBodyBytes) + " bytes)"}});
    return false;
}

bool HttpApi::JsonBody(const httplib::Request& req, httplib::Response& res, json* out) {
    if (!BodyBounded(req, res)) return false;
    if (req.body.find_first_not_of(" \t\r\n") == std::string::npos) {
        *out = json::object();
        return true;
    }
    *out = json::parse(req.body, nullptr, false);
    if (out->is_discarded() || !out->is_object()) {
        Send(res, 400, {{"error", "the body must be a JSON object"}});
        return false;
    }
    return true;
}

void HttpApi::SendAnswer(httplib::Response& res, const CallAnswer& a) {
    json body = a.body;
    if (a.kind == CallAnswer::Kind::kAnswered && !a.result.ok && a.result.result < 0) {
        ControllerResult c = ctx_.codec.DescribeResult(a.result.result);
        if (!c.name.empty()) body["controller_result"] = c.name;
    }
    Send(res, a.status, body);
}

bool HttpApi::Run(const httplib::Request& req, httplib::Response& res, CallRequest call, CallAnswer* answer) {
    if (!Deadline(req, res, &call.deadlineMs)) return false;
    if (req.has_header("Idempotency-Key")) call.requestId = req.get_header_value("Idempotency-Key");
    if (req.method != "GET") call.actor = Actor(req);
    *answer = ctx_.calls.CallAndWait(std::move(call));
    if (answer->Ok()) return true;
    if (answer->kind == CallAnswer::Kind::kAnswered) {
        // The controller (or the library) answered, and said no.
        ControllerResult c = ctx_.codec.DescribeResult(answer->result.result);
        json body = answer->body;
        body["error"] = "the controller refused: " + (c.name.empty() ? ResultName(answer->result.result) : c.name) +
                        " (" + std::to_string(answer->result.result) + ")";
        if (!c.name.empty()) body["controller_result"] = c.name;
        body.erase("outputs");
        Send(res, c.name.empty() ? 422 : c.status, body);
        return false;
    }
    SendAnswer(res, *answer);
    return false;
}

void HttpApi::CallRoutes() {
    httplib::Server& s = *server_;
    const std::string v1 = "/api/v1";

    s.Post(v1 + R"(/call/([^/]+))", [this](const httplib::Request& req, httplib::Response& res) {
        json args;
        if (!JsonBody(req, res, &args)) return;
        CallRequest call;
        call.exportName = req.matches[1].str();
        call.args = std::move(args);
        call.via = "rest";
        if (!Deadline(req, res, &call.deadlineMs)) return;
        if (req.has_header("Idempotency-Key")) call.requestId = req.get_header_value("Idempotency-Key");
        call.actor = Actor(req);
        SendAnswer(res, ctx_.calls.CallAndWait(std::move(call)));
    });
    s.Get(v1 + "/call", [](const httplib::Request&, httplib::Response& res) {
        Send(res, 200, {{"exports", CallableExports()}, {"openapi", "/api/v1/openapi.json"}});
    });
}

void HttpApi::ResourceRoutes() {
    httplib::Server& s = *server_;
    const std::string v1 = "/api/v1";
    const std::string mac = R"(/controllers/([^/]+))";

    // The controller named by the path's first match; false (and a 400 sent) for no MAC.
    auto macOf = [](const httplib::Request& req, httplib::Response& res, std::string* out) {
        *out = NormalizeMac(req.matches[1].str());
        if (out->empty()) Send(res, 400, {{"error", "mac: a controller's MAC such as \"00:00:01\""}, {"field", "mac"}});
        return !out->empty();
    };
    auto call = [](const std::string& exportName, json args) {
        CallRequest c;
        c.exportName = exportName;
        c.args = std::move(args);
        c.via = "rest";
        return c;
    };

    s.Get(v1 + mac + "/info", [=, this](const httplib::Request& req, httplib::Response& res) {
        std::string m;
        CallAnswer a;
        if (!macOf(req, res, &m) || !Run(req, res, call("ControllerInfo", {{"mac", m}}), &a)) return;
        Send(res, 200, {{"mac", m}, {"info", a.result.outputs.value("buffer", std::string())}});
    });

    // ---- Cards in a controller's database, keyed as the controller keys them ----
    const std::string byCard = mac + R"(/cards/([^/]+)/([^/]+)/([^/]+))";
    const std::string byUid = mac + R"(/cards/by-uid/([^/]+))";
    auto cardKey = [](const httplib::Request& req, httplib::Response& res, json* key) {
        int64_t set = 0, format = 0;
        if (!PathNumber(req.matches[2].str(), 0, 2147483647, &set)) {
            Send(res, 400, {{"error", "cardSetId: expected 0 to 2147483647"}, {"field", "cardSetId"}});
            return false;
        }
        if (!PathNumber(req.matches[3].str(), 0, 1, &format)) {
            Send(res, 400, {{"error", "noFormat: expected 0 or 1"}, {"field", "noFormat"}});
            return false;
        }
        *key = {{"cardSetId", set}, {"noFormat", format}, {"cardNumber", req.matches[4].str()}};
        return true;
    };
    auto uidOf = [](const httplib::Request& req, httplib::Response& res, int64_t* uid) {
        if (PathNumber(req.matches[2].str(), 1, 4294967295LL, uid)) return true;
        Send(res, 400, {{"error", "uniqueId: expected 1 to 4294967295"}, {"field", "uniqueId"}});
        return false;
    };
    auto putCard = [=, this](const httplib::Request& req, httplib::Response& res, json key) {
        std::string m = NormalizeMac(req.matches[1].str());
        json body;
        if (!JsonBody(req, res, &body)) return;
        for (const auto& [k, v] : key.items()) {
            if (body.contains(k) && body[k] != v) {
                return Send(res, 400, {{"error", k + ": the path gives it"}, {"field", k}});
            }
        }
        key["mac"] = m;
        CallAnswer a;
        if (!Run(req, res, call(CardLoads::kExport, CardLoads::CardArgs(body, key)), &a)) return;
        json out = CardLoads::CardArgs(body, key);
        out.erase("pin");
        out["result"] = a.result.result;
        out["audit_id"] = a.body.value("audit_id", json(nullptr));
        Send(res, 200, out);
    };
    // Before the routes by card: "by-uid/42/status" would read as a card set, format and number.
    s.Get(v1 + byUid + "/status", [=, this](const httplib::Request& req, httplib::Response& res) {
        int64_t uid = 0;
        std::string m;
        CallAnswer a;
        if (!macOf(req, res, &m) || !uidOf(req, res, &uid)) return;
        if (!Run(req, res, call("GetCardholderStatus3", {{"mac", m}, {"uniqueId", uid}}), &a)) return;
        json out = a.result.outputs;
        out["uniqueId"] = uid;
        Send(res, 200, out);
    });
    s.Put(v1 + byCard, [=](const httplib::Request& req, httplib::Response& res) {
        json key;
        std::string m;
        if (macOf(req, res, &m) && cardKey(req, res, &key)) putCard(req, res, key);
    });
    s.Put(v1 + byUid, [=](const httplib::Request& req, httplib::Response& res) {
        int64_t uid = 0;
        std::string m;
        if (macOf(req, res, &m) && uidOf(req, res, &uid)) putCard(req, res, {{"uniqueId", uid}});
    });
    s.Get(v1 + byCard, [=, this](const httplib::Request& req, httplib::Response& res) {
        json key;
        std::string m;
        CallAnswer a;
        if (!macOf(req, res, &m) || !cardKey(req, res, &key)) return;
        key["mac"] = m;
        key["pin"] = req.has_param("pin") ? req.get_param_value("pin") : "0";
        if (!Run(req, res, call("GetCardRecord4", key), &a)) return;
        json out = a.result.outputs;
        out["mac"] = m;
        Send(res, 200, out);
    });
    s.Delete(v1 + byCard, [=, this](const httplib::Request& req, httplib::Response& res) {
        json key;
        std::string m;
        CallAnswer a;
        if (!macOf(req, res, &m) || !cardKey(req, res, &key)) return;
        key["mac"] = m;
        key["pin"] = req.has_param("pin") ? req.get_param_value("pin") : "0";
        if (!Run(req, res, call("DeleteCardRecord", key), &a)) return;
        Send(res, 200, {{"deleted", true}, {"audit_id", a.body.value("audit_id", json(nullptr))}});
    });
    s.Delete(v1 + byUid, [=, this](const httplib::Request& req, httplib::Response& res) {
        int64_t uid = 0;
        std::string m;
        CallAnswer a;
        if (!macOf(req, res, &m) || !uidOf(req, res, &uid)) return;
        if (!Run(req, res, call("DeleteCardRecord2", {{"mac", m}, {"uniqueId", uid}}), &a)) return;
        Send(res, 200, {{"deleted", true}, {"audit_id", a.body.value("audit_id", json(nullptr))}});
    });

    // ---- Bulk loads ----
    s.Post(v1 + mac + "/card-loads", [=, this](const httplib::Request& req, httplib::Response& res) {
        std::string m;
        if (!macOf(req, res, &m)) return;
        json body = json::parse(req.body, nullptr, false);
        if (body.is_discarded() || !body.is_object()) return Send(res, 400, {{"error", "the body must be a JSON object {\"cards\": [...]}"}});
        for (const auto& [k, v] : body.items()) {
            if (k != "cards") return Send(res, 400, {{"error", k + ": unknown key (expected \"cards\")"}, {"field", k}});
        }
        int deadline = 0;
        if (!Deadline(req, res, &deadline)) return;
        int64_t id = 0;
        CallAnswer refusal;
        if (!ctx_.loads.Start(m, body.value("cards", json()), Actor(req), deadline, &id, &refusal)) {
            return SendAnswer(res, refusal);
        }
        std::string where = v1 + "/card-loads/" + std::to_string(id);
        res.set_header("Location", where);
        json progress;
        ctx_.loads.Progress(id, &progress);
        progress["progress"] = where;
        Send(res, 202, progress);
    });
    s.Get(v1 + "/card-loads", [this](const httplib::Request&, httplib::Response& res) {
        Send(res, 200, {{"loads", ctx_.loads.List()}});
    });
    s.Get(v1 + R"(/card-loads/([^/]+))", [this](const httplib::Request& req, httplib::Response& res) {
        int64_t id = 0;
        json progress;
        if (!ParseId(req.matches[1].str(), &id)) return Send(res, 400, {{"error", "id: a load's id"}, {"field", "id"}});
        if (!ctx_.loads.Progress(id, &progress)) return Send(res, 404, {{"error", "no card load " + std::to_string(id)}});
        Send(res, 200, progress);
    });

    // ---- Time ----
    s.Get(v1 + mac + "/time", [=, this](const httplib::Request& req, httplib::Response& res) {
        std::string m;
        CallAnswer a;
        if (!macOf(req, res, &m) || !Run(req, res, call("GetTimeDate", {{"mac", m}}), &a)) return;
        int64_t now = NowMs();
        std::string date = a.result.outputs.value("date", std::string());
        std::string time = a.result.outputs.value("time", std::string());
        json out = {{"mac", m}, {"date", date}, {"time", time}, {"time_zone", ctx_.clock.Zone()},
                    {"gateway", ctx_.clock.ToLocal(now).text}};
        LocalDateTime local;
        if (ControllerTime(date, time, &local)) {
            out["controller"] = std::to_string(local.year) + "-" + Two(local.month) + "-" + Two(local.day) + "T" +
                                Two(local.hour) + ":" + Two(local.minute) + ":" + Two(local.second);
            // Whole seconds on both sides: the controller's clock has no finer grain.
            out["drift_s"] = (ctx_.clock.ToUnixMs(local) - now / 1000 * 1000) / 1000;
        }
        Send(res, 200, out);
    });
    s.Put(v1 + mac + "/time", [=, this](const httplib::Request& req, httplib::Response& res) {
        std::string m;
        json body;
        if (!macOf(req, res, &m) || !JsonBody(req, res, &body)) return;
        for (const auto& [k, v] : body.items()) {
            if (k != "date" && k != "time") return Send(res, 400, {{"error", k + ": unknown key (expected date and time)"}, {"field", k}});
        }
        if (body.contains("date") != body.contains("time")) {
            return Send(res, 400, {{"error", "date and time: both or neither (neither: the gateway's clock)"},
                                   {"field", body.contains("date") ? "time" : "date"}});
        }
        if (!body.contains("date")) {
            std::string local = ctx_.clock.ToLocal(NowMs()).text;  // "YYYY-MM-DDTHH:MM:SS"
            body["date"] = local.substr(0, 4) + "/" + local.substr(5, 2) + "/" + local.substr(8, 2);
            body["time"] = local.substr(11, 8);
        }
        CallAnswer a;
        if (!Run(req, res, call("SetTimeDate", {{"mac", m}, {"date", body["date"]}, {"time", body["time"]}}), &a)) return;
        Send(res, 200, {{"mac", m}, {"date", body["date"]}, {"time", body["time"]},
                        {"audit_id", a.body.value("audit_id", json(nullptr))}});
    });

    // ---- Doors: the config maps each to a controller's relay and lock input ----
    auto open = [this, call](const httplib::Request& req, httplib::Response& res, const DoorConfig& d) {
        // The relay timer locks the door again; it is written once per connection.
        if (d.openMs > 0 && ctx_.controllers.IsConnected(d.controller)) ctx_.sync.EnsureRelayTimers(d.controller);
        CallRequest c = call("CmdOutputFunction3", {{"mac", d.controller}, {"target", 32}, {"bitOrFunctionCode", d.relay}, {"state", 1}});
        c.action = "door " + d.name + " opened";
        CallAnswer a;
        if (!Run(req, res, std::move(c), &a)) return;
        Send(res, 200, {{"door", d.name}, {"controller", d.controller}, {"relay", d.relay},
                        {"opened", true}, {"relock_ms", d.openMs}, {"lock_input", d.lockInput},
                        {"audit_id", a.body.value("audit_id", json(nullptr))}});
    };
    auto doorNamed = [this](const std::string& name) -> const DoorConfig* {
        for (const DoorConfig& d : ctx_.config.doors) {
            if (d.name == name) return &d;
        }
        return nullptr;
    };
    s.Post(v1 + R"(/doors/([^/]+)/open)", [=](const httplib::Request& req, httplib::Response& res) {
        const DoorConfig* d = doorNamed(req.matches[1].str());
        if (d == nullptr) return Send(res, 404, {{"error", "no door named \"" + req.matches[1].str() + "\" in the config"}});
        open(req, res, *d);
    });
    s.Post(v1 + mac + R"(/doors/([^/]+)/open)", [=, this](const httplib::Request& req, httplib::Response& res) {
        std::string m;
        int64_t n = 0;
        if (!macOf(req, res, &m)) return;
        if (!PathNumber(req.matches[2].str(), 0, 255, &n)) return Send(res, 400, {{"error", "door: expected 0 to 255"}, {"field", "door"}});
        for (const DoorConfig& d : ctx_.config.doors) {
            if (d.controller == m && d.door == n) return open(req, res, d);
        }
        Send(res, 404, {{"error", "the config maps no door " + std::to_string(n) + " of " + m + " to a relay"}});
    });
    s.Get(v1 + R"(/doors/([^/]+))", [=, this](const httplib::Request& req, httplib::Response& res) {
        const DoorConfig* d = doorNamed(req.matches[1].str());
        if (d == nullptr) return Send(res, 404, {{"error", "no door named \"" + req.matches[1].str() + "\" in the config"}});
        CallAnswer a;
        if (!Run(req, res, call("GetInputStatus3", {{"mac", d->controller}, {"target", 32}}), &a)) return;
        std::string states = a.result.outputs.value("buffer", std::string());
        int64_t mask = a.result.outputs.value("status", int64_t{0});
        bool on = d->lockInput < static_cast<int>(states.size()) ? states[d->lockInput] == '1' : ((mask >> d->lockInput) & 1);
        Send(res, 200, {{"door", d->name}, {"controller", d->controller}, {"relay", d->relay},
                        {"lock_input", d->lockInput}, {"lock_input_on", on}, {"unlocked", on},
                        {"relock_ms", d->openMs}});
    });

    // ---- Outputs and inputs ----
    s.Put(v1 + mac + R"(/outputs/([^/]+)/([^/]+))", [=, this](const httplib::Request& req, httplib::Response& res) {
        std::string m;
        json body;
        int64_t target = 0, output = 0;
        if (!macOf(req, res, &m) || !JsonBody(req, res, &body)) return;
        if (!PathNumber(req.matches[2].str(), 0, 32, &target)) return Send(res, 400, {{"error", "target: expected 0 to 32 (32: the controller)"}, {"field", "target"}});
        if (!PathNumber(req.matches[3].str(), 0, 199, &output)) return Send(res, 400, {{"error", "output: expected 0 to 199"}, {"field", "output"}});
        for (const auto& [k, v] : body.items()) {
            if (k != "state") return Send(res, 400, {{"error", k + ": unknown key (expected state)"}, {"field", k}});
        }
        if (!body.contains("state")) return Send(res, 400, {{"error", "state: 0 off, 1 on, 2 toggle"}, {"field", "state"}});
        CallAnswer a;
        if (!Run(req, res, call("CmdOutputFunction3", {{"mac", m}, {"target", target}, {"bitOrFunctionCode", output}, {"state", body["state"]}}), &a)) return;
        Send(res, 200, {{"mac", m}, {"target", target}, {"output", output}, {"state", body["state"]},
                        {"audit_id", a.body.value("audit_id", json(nullptr))}});
    });
    auto inputs = [=, this](const httplib::Request& req, httplib::Response& res, int64_t target) {
        std::string m = NormalizeMac(req.matches[1].str());
        CallAnswer a;
        if (!Run(req, res, call("GetInputStatus3", {{"mac", m}, {"target", target}}), &a)) return;
        std::string states = a.result.outputs.value("buffer", std::string());
        json list = json::array();
        for (char c : states) list.push_back(c == '1' ? 1 : 0);
        Send(res, 200, {{"mac", m}, {"target", target}, {"mask", a.result.outputs.value("status", int64_t{0})},
                        {"inputs", list}});
    };
    s.Get(v1 + mac + "/inputs", [=](const httplib::Request& req, httplib::Response& res) {
        std::string m;
        if (macOf(req, res, &m)) inputs(req, res, 32);
    });
    s.Get(v1 + mac + R"(/inputs/([^/]+))", [=](const httplib::Request& req, httplib::Response& res) {
        std::string m;
        int64_t target = 0;
        if (!macOf(req, res, &m)) return;
        if (!PathNumber(req.matches[2].str(), 0, 32, &target)) return Send(res, 400, {{"error", "target: expected 0 to 32 (32: the controller)"}, {"field", "target"}});
        inputs(req, res, target);
    });

    // ---- Schedules kept on a controller ----
    const std::string schedule = mac + R"(/schedules/([^/]+))";
    auto scheduleId = [](const httplib::Request& req, httplib::Response& res, int64_t* id) {
        if (PathNumber(req.matches[2].str(), -2147483648LL, 2147483647LL, id)) return true;
        Send(res, 400, {{"error", "id: a schedule's number"}, {"field", "id"}});
        return false;
    };
    s.Get(v1 + schedule, [=, this](const httplib::Request& req, httplib::Response& res) {
        std::string m;
        int64_t id = 0;
        CallAnswer a;
        if (!macOf(req, res, &m) || !scheduleId(req, res, &id)) return;
        if (!Run(req, res, call("GetSchedule", {{"mac", m}, {"scheduleId", id}}), &a)) return;
        json texts = json::array(), values = json::array();
        for (int i = 1; i <= 5; ++i) texts.push_back(a.result.outputs.value("scheduleText" + std::to_string(i), std::string()));
        for (int i = 1; i <= 5; ++i) values.push_back(a.result.outputs.value("scheduleValue" + std::to_string(i), int64_t{0}));
        Send(res, 200, {{"mac", m}, {"id", id}, {"texts", texts}, {"values", values}});
    });
    s.Put(v1 + schedule, [=, this](const httplib::Request& req, httplib::Response& res) {
        std::string m;
        int64_t id = 0;
        json body;
        if (!macOf(req, res, &m) || !scheduleId(req, res, &id) || !JsonBody(req, res, &body)) return;
        for (const auto& [k, v] : body.items()) {
            if (k != "texts" && k != "values") return Send(res, 400, {{"error", k + ": unknown key (expected texts and values)"}, {"field", k}});
        }
        json texts = body.value("texts", json::array()), values = body.value("values", json::array());
        if (!texts.is_array() || texts.size() > 5) return Send(res, 400, {{"error", "texts: up to five texts"}, {"field", "texts"}});
        if (!values.is_array() || values.size() > 5) return Send(res, 400, {{"error", "values: up to five numbers after the id"}, {"field", "values"}});
        json args = {{"mac", m}, {"scheduleValue1", id}};
        for (size_t i = 0; i < 5; ++i) args["scheduleText" + std::to_string(i + 1)] = i < texts.size() ? texts[i] : json("");
        for (size_t i = 0; i < 5; ++i) args["scheduleValue" + std::to_string(i + 2)] = i < values.size() ? values[i] : json(0);
        CallAnswer a;
        if (!Run(req, res, call("UpdateSchedule", args), &a)) return;
        Send(res, 200, {{"mac", m}, {"id", id}, {"texts", texts}, {"values", values},
                        {"audit_id", a.body.value("audit_id", json(nullptr))}});
    });
    s.Delete(v1 + schedule, [=, this](const httplib::Request& req, httplib::Response& res) {
        std::string m;
        int64_t id = 0;
        CallAnswer a;
        if (!macOf(req, res, &m) || !scheduleId(req, res, &id)) return;
        if (!Run(req, res, call("DeleteSchedule", {{"mac", m}, {"scheduleId", id}}), &a)) return;
        Send(res, 200, {{"deleted", true}, {"audit_id", a.body.value("audit_id", json(nullptr))}});
    });

    // ---- Files: the gateway's files folder, and transfers to and from controllers ----
    const fs::path folder = ctx_.config.filesDir;
    s.Get(v1 + "/files", [folder](const httplib::Request&, httplib::Response& res) {
        json list = json::array();
        std::error_code ec;
        for (const auto& entry : fs::directory_iterator(folder, ec)) {
            if (!entry.is_regular_file(ec)) continue;
            list.push_back({{"name", entry.path().filename().string()}, {"size", entry.file_size(ec)}});
        }
        Send(res, 200, {{"files", list}});
    });
    s.Get(v1 + R"(/files/([^/]+))", [folder](const httplib::Request& req, httplib::Response& res) {
        std::string name = req.matches[1].str();
        if (!FileName(name)) return Send(res, 400, {{"error", "name: letters, digits, '.', '_' and '-'"}, {"field", "name"}});
        std::ifstream in(folder / name, std::ios::binary);
        if (!in) return Send(res, 404, {{"error", "no file " + name + " in the files folder"}});
        std::ostringstream bytes;
        bytes << in.rdbuf();
        res.set_content(bytes.str(), "application/octet-stream");
    });
    s.Put(v1 + R"(/files/([^/]+))", [this, folder](const httplib::Request& req, httplib::Response& res) {
        std::string name = req.matches[1].str();
        if (!FileName(name)) return Send(res, 400, {{"error", "name: letters, digits, '.', '_' and '-'"}, {"field", "name"}});
        std::error_code ec;
        fs::create_directories(folder, ec);
        fs::path part = folder / ("." + name + ".part");
        {
            std::ofstream out(part, std::ios::binary | std::ios::trunc);
            out.write(req.body.data(), static_cast<std::streamsize>(req.body.size()));
            if (!out) return Send(res, 507, {{"error", "the files folder can't take the file"}});
        }
        fs::rename(part, folder / name, ec);
        if (ec) return Send(res, 500, {{"error", "the files folder: " + ec.message()}});
        Record r;
        r.kind = "audit";
        r.actor = Actor(req);
        r.raw = "file stored";
        r.fields = Dump({{"file", name}, {"size", req.body.size()}});
        ctx_.ingest.Submit(std::move(r));
        Send(res, 201, {{"name", name}, {"size", req.body.size()}});
    });
    s.Delete(v1 + R"(/files/([^/]+))", [this, folder](const httplib::Request& req, httplib::Response& res) {
        std::string name = req.matches[1].str();
        if (!FileName(name)) return Send(res, 400, {{"error", "name: letters, digits, '.', '_' and '-'"}, {"field", "name"}});
        std::error_code ec;
        if (!fs::remove(folder / name, ec)) return Send(res, 404, {{"error", "no file " + name + " in the files folder"}});
        Record r;
        r.kind = "audit";
        r.actor = Actor(req);
        r.raw = "file removed";
        r.fields = Dump({{"file", name}});
        ctx_.ingest.Submit(std::move(r));
        res.status = 204;
    });
    auto transfer = [=, this](const httplib::Request& req, httplib::Response& res, bool send) {
        std::string m;
        json body;
        if (!macOf(req, res, &m) || !JsonBody(req, res, &body)) return;
        for (const auto& [k, v] : body.items()) {
            if (k != "file" && k != "path") return Send(res, 400, {{"error", k + ": unknown key (expected file and path)"}, {"field", k}});
        }
        if (!body.contains("file") || !body["file"].is_string()) return Send(res, 400, {{"error", "file: the name of a file in the files folder"}, {"field", "file"}});
        if (!body.contains("path")) return Send(res, 400, {{"error", "path: the file's path on the controller"}, {"field", "path"}});
        std::string name = body["file"];
        if (!FileName(name)) return Send(res, 400, {{"error", "file: letters, digits, '.', '_' and '-'"}, {"field", "file"}});
        if (send && !fs::is_regular_file(folder / name)) return Send(res, 404, {{"error", "no file " + name + " in the files folder"}, {"field", "file"}});
        CallAnswer a;
        if (!Run(req, res, call(send ? "SendFile" : "GetFile", {{"mac", m}, {"controllerPathFile", body["path"]}, {"pcPathFile", name}}), &a)) return;
        std::error_code ec;
        auto size = fs::file_size(folder / name, ec);
        Send(res, 200, {{"mac", m}, {"file", name}, {"path", body["path"]}, {"size", ec ? json(nullptr) : json(size)},
                        {"audit_id", a.body.value("audit_id", json(nullptr))}});
    };
    s.Post(v1 + mac + "/files/send", [=](const httplib::Request& req, httplib::Response& res) { transfer(req, res, true); });
    s.Post(v1 + mac + "/files/fetch", [=](const httplib::Request& req, httplib::Response& res) { transfer(req, res, false); });
    s.Get(v1 + mac + "/files/status", [=, this](const httplib::Request& req, httplib::Response& res) {
        std::string m;
        CallAnswer a;
        if (!macOf(req, res, &m)) return;
        if (!req.has_param("path")) return Send(res, 400, {{"error", "path: the file's path on the controller"}, {"field", "path"}});
        if (!Run(req, res, call("GetFileStatus", {{"mac", m}, {"path", req.get_param_value("path")}}), &a)) return;
        Send(res, 200, {{"mac", m}, {"path", req.get_param_value("path")}, {"permission", a.result.outputs.value("permission", std::string())}});
    });
    s.Delete(v1 + mac + "/files", [=, this](const httplib::Request& req, httplib::Response& res) {
        std::string m;
        CallAnswer a;
        if (!macOf(req, res, &m)) return;
        if (!req.has_param("path")) return Send(res, 400, {{"error", "path: the file's path on the controller"}, {"field", "path"}});
        if (!Run(req, res, call("ZanthDeleteFile", {{"mac", m}, {"path", req.get_param_value("path")}}), &a)) return;
        Send(res, 200, {{"deleted", true}, {"audit_id", a.body.value("audit_id", json(nullptr))}});
    });
}

}  // namespace zanthd
