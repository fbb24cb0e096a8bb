#include "gateway/OpenApi.h"

#ifndef ZANTH_HPP_LOAD_AT_RUNTIME
#error "zanthd loads the library at run time: build with ZANTH_HPP_LOAD_AT_RUNTIME"
#endif
#include <zanth.hpp>

#include <set>

namespace zanthd {
namespace {

using nlohmann::json;
namespace meta = zanth::meta;
namespace dyn = zanth::dynamic;

json Ref(const std::string& kind, const std::string& name) {
    return {{"$ref", "#/components/" + kind + "/" + name}};
}

// ---- The commands, from the model ----

const char* PatternRegex(meta::Pattern p) {
    switch (p) {
        case meta::Pattern::kHex: return "^[0-9A-Fa-f]+$";
        case meta::Pattern::kHexOrEmpty: return "^[0-9A-Fa-f]*$";
        case meta::Pattern::kOctal3: return "^[0-7]{3}$";
        case meta::Pattern::kDate: return "^[0-9]{1,4}/[0-9]{1,2}/[0-9]{1,2}$";
        case meta::Pattern::kDateOrZero: return "^(0|[0-9]{1,4}/[0-9]{1,2}/[0-9]{1,2})$";
        case meta::Pattern::kTime: return "^[0-9]{1,2}:[0-9]{1,2}:[0-9]{1,2}$";
        case meta::Pattern::kTimeOrZero: return "^(0|[0-9]{1,2}:[0-9]{1,2}:[0-9]{1,2})$";
        case meta::Pattern::kNone: break;
    }
    return nullptr;
}

const char* PatternText(meta::Pattern p) {
    switch (p) {
        case meta::Pattern::kDate:
        case meta::Pattern::kDateOrZero:
            return "A date yyyy/mm/dd: year 1901 to 2037, month 1 to 12, day 1 to 31";
        case meta::Pattern::kTime:
        case meta::Pattern::kTimeOrZero:
            return "A time hh:mm:ss: hour 0 to 23, minute and second 0 to 59";
        default:
            return nullptr;
    }
}

// The schema of one value: its type, from its base and role, and its bounds.
json ValueSchema(const meta::Param& p, const meta::Bounds& b, bool input) {
    json s = json::object();
    std::string description;
    switch (p.base) {
        case meta::Base::kText:
            s["type"] = "string";
            if (!input) break;
            if (p.role == meta::Role::kMac) {
                s["pattern"] = "^[0-9A-Fa-f]{2}[:-]?[0-9A-Fa-f]{2}[:-]?[0-9A-Fa-f]{2}$";
                s["example"] = "00:00:01";
                description = "The controller's MAC.";
                break;
            }
            if (p.role == meta::Role::kLocalPath || b.localPath) {
                description = "A file in the gateway's files folder, by its name relative to the folder; a path "
                              "that leads outside it is refused.";
                s["minLength"] = 1;
                break;
            }
            if (b.maxLength > 0) s["maxLength"] = b.maxLength;
            if (b.notEmpty) s["minLength"] = 1;
            if (const char* re = PatternRegex(b.pattern)) {
                s["pattern"] = re;
                if (const char* t = PatternText(b.pattern)) description = std::string(t) + (b.pattern == meta::Pattern::kDateOrZero || b.pattern == meta::Pattern::kTimeOrZero ? ", or 0." : ".");
            } else if (b.noSemicolon) {
                s["pattern"] = "^[^;]*$";
            }
            break;
        case meta::Base::kBytes:
            s = {{"type", "string"}, {"format", "byte"}};
            description = "Bytes, as base64.";
            break;
        case meta::Base::kChar:
            s = {{"type", "string"}, {"minLength", 1}, {"maxLength", 1}};
            if (input && b.valueCount) {
                json e = json::array();
                for (uint8_t i = 0; i < b.valueCount; ++i) e.push_back(std::string(1, static_cast<char>(b.values[i])));
                s["enum"] = e;
            }
            break;
        default:
            s = {{"type", "integer"}, {"format", p.base == meta::Base::kInt32 ? "int32" : "int64"}};
            if (!input) break;
            if (b.valueCount) {
                json e = json::array();
                for (uint8_t i = 0; i < b.valueCount; ++i) e.push_back(b.values[i]);
                s["enum"] = e;
            } else {
                s["minimum"] = b.min;
                s["maximum"] = b.max;
            }
            break;
    }
    if (!description.empty()) s["description"] = description;
    return s;
}

// A parameter whose direction follows `mode`: what each mode makes of it.
std::string ModeText(const meta::Param& p) {
    std::string t = "Depends on `mode`:";
    for (uint8_t i = 0; i < p.modeCount; ++i) {
        const meta::ModeRule& m = p.modes[i];
        const char* dir = m.dir == meta::Dir::kIn      ? "an argument"
                          : m.dir == meta::Dir::kOut   ? "an output"
                          : m.dir == meta::Dir::kInout ? "an argument and an output"
                                                       : "not used";
        t += " mode " + std::to_string(m.mode) + ": " + dir + ";";
    }
    t.back() = '.';
    return t;
}

json RequestSchema(const meta::Export& e) {
    json properties = json::object();
    json required = json::array();
    for (uint8_t i = 0; i < e.paramCount; ++i) {
        const meta::Param& p = e.params[i];
        if (p.role == meta::Role::kRspid || p.role == meta::Role::kHandle || p.role == meta::Role::kCallback) continue;
        if (p.role == meta::Role::kSize) {
            const meta::Param& of = e.params[p.ofParam];
            if (of.modeCount == 0 && !dyn::IsOutput(of.dir)) continue;  // an input's size is measured
            json s = ValueSchema(p, p.bounds, true);
            s["default"] = p.defaultSize;
            s["description"] = std::string("The size of the output `") + of.name + "`.";
            properties[p.name] = s;
            continue;
        }
        if (p.modeCount != 0) {
            json s = ValueSchema(p, p.modes[0].bounds, true);
            for (uint8_t m = 0; m < p.modeCount; ++m) {
                if (p.modes[m].dir == meta::Dir::kIn || p.modes[m].dir == meta::Dir::kInout) {
                    s = ValueSchema(p, p.modes[m].bounds, true);
                    break;
                }
            }
            s["description"] = ModeText(p);
            properties[p.name] = s;
            continue;
        }
        if (p.dir == meta::Dir::kOut) continue;
        properties[p.name] = ValueSchema(p, p.bounds, true);
        required.push_back(p.name);
    }
    json s = {{"type", "object"}, {"properties", properties}, {"additionalProperties", false}};
    if (!required.empty()) s["required"] = required;
    return s;
}

json OutputSchema(const meta::Export& e) {
    json properties = json::object();
    for (uint8_t i = 0; i < e.paramCount; ++i) {
        const meta::Param& p = e.params[i];
        bool out = p.modeCount != 0 ? false : dyn::IsOutput(p.dir);
        for (uint8_t m = 0; m < p.modeCount; ++m) out = out || dyn::IsOutput(p.modes[m].dir);
        if (!out) continue;
        properties[p.name] = ValueSchema(p, p.bounds, false);
    }
    return {{"type", "object"}, {"properties", properties}};
}

std::string Summary(const char* doc, const char* name) {
    std::string d = doc ? doc : "";
    size_t end = d.find(". ");
    std::string s = end == std::string::npos ? d : d.substr(0, end + 1);
    if (s.empty()) s = name;
    return s.size() > 200 ? s.substr(0, 197) + "..." : s;
}

json CallOperation(const meta::Export& e) {
    const meta::Export* outputs = &e;
    if (e.form == meta::Form::kRsp && e.twin) {
        if (const meta::Export* b = dyn::Find(e.twin)) outputs = b;
    }
    std::string way = e.category == meta::Category::kInfo ? "local" : "rsp";
    if (e.category == meta::Category::kCommand) {
        const meta::Export* rsp = e.form == meta::Form::kRsp ? &e : (e.twin ? dyn::Find(e.twin) : nullptr);
        bool unanswered = false;
        for (uint8_t i = 0; i < outputs->sendCount; ++i) {
            const char* when = outputs->sends[i].when;
            unanswered = unanswered || (when && std::string_view(when).find("no reply") != std::string_view::npos);
        }
        if (rsp == nullptr || (unanswered && outputs->form == meta::Form::kBlocking)) way = "blocking";
    }
    std::string description = std::string(e.doc ? e.doc : "") + "\n\n`" + e.decl + "`";
    if (way == "blocking") {
        description += "\n\nRun in its blocking form on the gateway's worker for blocking calls: other commands "
                       "wait behind it in the library for its round trip.";
    }
    json answer = {{"allOf", {Ref("schemas", "CallAnswer"),
                              {{"type", "object"}, {"properties", {{"outputs", OutputSchema(*outputs)}}}}}}};
    json op = {
        {"operationId", e.name},
        {"summary", Summary(e.doc, e.name)},
        {"description", description},
        {"tags", {e.family ? std::string(e.family->title) : "Other"}},
        {"x-zanth-form", e.form == meta::Form::kRsp ? "rsp" : e.form == meta::Form::kBlocking ? "blocking" : "local"},
        {"x-zanth-way", way},
        {"parameters", {Ref("parameters", "deadline_ms"), Ref("parameters", "Idempotency-Key")}},
        {"requestBody", {{"required", false},
                         {"content", {{"application/json", {{"schema", RequestSchema(e)}}}}}}},
        {"responses",
         {{"200", {{"description", "The library or the controller answered: `result` is what the blocking form "
                                   "returns, `ok` whether that is a success, `outputs` its named outputs."},
                   {"content", {{"application/json", {{"schema", answer}}}}}}},
          {"400", Ref("responses", "BadRequest")},
          {"401", Ref("responses", "Unauthorized")},
          {"409", Ref("responses", "Busy")},
          {"503", Ref("responses", "NotConnected")},
          {"504", Ref("responses", "Timeout")}}}};
    return op;
}

// ---- The resources, by hand ----

json Op(const std::string& summary, const std::string& tag, json parameters = json::array(),
        json body = nullptr, json ok = nullptr, int status = 200) {
    json op = {{"summary", summary}, {"tags", {tag}}, {"parameters", parameters}};
    if (!body.is_null()) op["requestBody"] = {{"required", true}, {"content", {{"application/json", {{"schema", body}}}}}};
    json okResponse = {{"description", "Done."}};
    if (!ok.is_null()) okResponse["content"] = {{"application/json", {{"schema", ok}}}};
    op["responses"] = {{std::to_string(status), okResponse},
                       {"400", Ref("responses", "BadRequest")},
                       {"401", Ref("responses", "Unauthorized")},
                       {"404", Ref("responses", "NotFound")}};
    return op;
}

json Command(json op) {
    // A resource on the call path answers like a call when the call doesn't succeed.
    op["responses"]["409"] = Ref("responses", "Busy");
    op["responses"]["422"] = Ref("responses", "Refused");
    op["responses"]["503"] = Ref("responses", "NotConnected");
    op["responses"]["504"] = Ref("responses", "Timeout");
    op["parameters"].push_back(Ref("parameters", "deadline_ms"));
    op["parameters"].push_back(Ref("parameters", "Idempotency-Key"));
    return op;
}

json PathParam(const std::string& name, const std::string& description, json schema = {{"type", "string"}}) {
    return {{"name", name}, {"in", "path"}, {"required", true}, {"description", description}, {"schema", schema}};
}

json QueryParam(const std::string& name, const std::string& description, json schema, bool required = false) {
    return {{"name", name}, {"in", "query"}, {"required", required}, {"description", description}, {"schema", schema}};
}

json Object(json properties) { return {{"type", "object"}, {"properties", properties}}; }

const json kInt = {{"type", "integer"}};
const json kText = {{"type", "string"}};
const json kBool = {{"type", "boolean"}};

void Resources(json& paths) {
    json mac = PathParam("mac", "The controller's MAC, such as 00:00:01.");
    json set = PathParam("cardSetId", "The card set (0 to 2147483647).", {{"type", "integer"}, {"minimum", 0}, {"maximum", 2147483647}});
    json format = PathParam("noFormat", "0 or 1.", {{"type", "integer"}, {"minimum", 0}, {"maximum", 1}});
    json number = PathParam("cardNumber", "The card number.");
    json uid = PathParam("uniqueId", "The record's unique ID (1 to 4294967295).", {{"type", "integer"}, {"minimum", 1}, {"maximum", 4294967295LL}});
    json pin = QueryParam("pin", "The record's PIN, where the card is read with one (default 0).", kText);
    json audit = {{"audit_id", kInt}};

    paths["/controllers"]["get"] = Op("The valid and known controllers: which are connected now, when each was last heard from.",
                                      "Controllers", json::array(), nullptr, Ref("schemas", "ControllerList"));
    paths["/controllers/{mac}"]["get"] = Op("One controller.", "Controllers", {mac}, nullptr, Ref("schemas", "Controller"));
    paths["/controllers/{mac}/info"]["get"] = Command(Op("The controller's own description (ControllerInfo).", "Controllers", {mac}, nullptr,
                                                         Object({{"mac", kText}, {"info", kText}})));

    std::string card = "/controllers/{mac}/cards/{cardSetId}/{noFormat}/{cardNumber}";
    json cardBody = Ref("schemas", "CardRecordInput");
    paths[card]["put"] = Command(Op("Adds or changes the record of this card (AddModCardRecord3); uniqueId is required, "
                                    "everything else has a default.", "Cards", {mac, set, format, number}, cardBody, Ref("schemas", "CardRecord")));
    paths[card]["get"] = Command(Op("The record of this card (GetCardRecord4).", "Cards", {mac, set, format, number, pin}, nullptr, Ref("schemas", "CardRecord")));
    paths[card]["delete"] = Command(Op("Marks the record of this card deleted (DeleteCardRecord).", "Cards", {mac, set, format, number, pin}, nullptr,
                                       Object({{"deleted", kBool}, {"audit_id", kInt}})));
    std::string byUid = "/controllers/{mac}/cards/by-uid/{uniqueId}";
    paths[byUid]["put"] = Command(Op("Adds or replaces the record with this unique ID (AddModCardRecord3); cardSetId and "
                                     "cardNumber are required.", "Cards", {mac, uid}, cardBody, Ref("schemas", "CardRecord")));
    paths[byUid]["delete"] = Command(Op("Marks the record with this unique ID deleted (DeleteCardRecord2).", "Cards", {mac, uid}, nullptr,
                                        Object({{"deleted", kBool}, {"audit_id", kInt}})));
    paths[byUid + "/status"]["get"] = Command(Op("The cardholder's running status (GetCardholderStatus3).", "Cards", {mac, uid}, nullptr,
                                                 Object({{"uniqueId", kInt}, {"statusDate", kText}, {"statusTime", kText}})));
    paths["/controllers/{mac}/card-loads"]["post"] = Op(
        "Loads many card records into the controller, a window of them in flight at once. Every record is checked "
        "first; a mistake names cards[i].field and nothing is sent. The answer (202) names the progress resource.",
        "Cards", {mac, Ref("parameters", "deadline_ms")},
        Object({{"cards", {{"type", "array"}, {"items", Ref("schemas", "CardRecordInput")}}}}), Ref("schemas", "CardLoad"), 202);
    paths["/card-loads"]["get"] = Op("The recent card loads.", "Cards", json::array(), nullptr,
                                     Object({{"loads", {{"type", "array"}, {"items", Ref("schemas", "CardLoad")}}}}));
    paths["/card-loads/{id}"]["get"] = Op("A card load's progress: records sent, done, ok and failed, and the failures.", "Cards",
                                          {PathParam("id", "The load's id.", kInt)}, nullptr, Ref("schemas", "CardLoad"));

    paths["/controllers/{mac}/time"]["get"] = Command(Op(
        "The controller's clock (GetTimeDate), the gateway's in the site's zone, and the drift in seconds "
        "(the controller's clock read as site-local time, less the gateway's).", "Time", {mac}, nullptr,
        Object({{"date", kText}, {"time", kText}, {"controller", kText}, {"gateway", kText}, {"time_zone", kText}, {"drift_s", kInt}})));
    paths["/controllers/{mac}/time"]["put"] = Command(Op(
        "Sets the controller's clock (SetTimeDate): to the date and time given, or with an empty body to the "
        "gateway's clock in the site's zone.", "Time", {mac},
        Object({{"date", {{"type", "string"}, {"example", "2025/03/30"}}}, {"time", {{"type", "string"}, {"example", "02:59:58"}}}}),
        Object({{"date", kText}, {"time", kText}, {"audit_id", kInt}})));

    json door = PathParam("name", "A door's name in the config.");
    json opened = Object({{"door", kText}, {"controller", kText}, {"relay", kInt}, {"opened", kBool},
                          {"relock_ms", kInt}, {"lock_input", kInt}, {"audit_id", kInt}});
    paths["/doors"]["get"] = Op("The doors of the config: controller, door number, relay, lock input.", "Doors");
    paths["/doors/{name}"]["get"] = Command(Op("The door's lock input, read from its controller (GetInputStatus3).", "Doors", {door}, nullptr,
                                               Object({{"door", kText}, {"lock_input", kInt}, {"lock_input_on", kBool}, {"unlocked", kBool}})));
    paths["/doors/{name}/open"]["post"] = Command(Op(
        "Unlocks the door: switches its relay on (CmdOutputFunction3); the relay timer, written to the controller "
        "once per connection from the door's open_ms, locks it again.", "Doors", {door}, nullptr, opened));
    paths["/controllers/{mac}/doors/{door}/open"]["post"] = Command(Op(
        "Unlocks the door that the config maps to this controller's door number, as above.", "Doors",
        {mac, PathParam("door", "The door's number, as the controller's look-ups name it.", kInt)}, nullptr, opened));
    paths["/controllers/{mac}/outputs/{target}/{output}"]["put"] = Command(Op(
        "Switches an output (CmdOutputFunction3): state 0 off, 1 on, 2 toggle.", "Outputs and inputs",
        {mac, PathParam("target", "0 to 31 an interface board, 32 the controller.", kInt), PathParam("output", "The output (0 to 199).", kInt)},
        Object({{"state", {{"type", "integer"}, {"enum", {0, 1, 2}}}}}), Object({{"state", kInt}, {"audit_id", kInt}})));
    json inputs = Object({{"target", kInt}, {"mask", kInt}, {"inputs", {{"type", "array"}, {"items", kInt}}}});
    paths["/controllers/{mac}/inputs"]["get"] = Command(Op("The controller's inputs (GetInputStatus3, target 32).", "Outputs and inputs", {mac}, nullptr, inputs));
    paths["/controllers/{mac}/inputs/{target}"]["get"] = Command(Op(
        "The inputs of a target (GetInputStatus3).", "Outputs and inputs", {mac, PathParam("target", "0 to 32.", kInt)}, nullptr, inputs));

    json scheduleId = PathParam("id", "The schedule's number.", kInt);
    json scheduleDoc = Object({{"texts", {{"type", "array"}, {"maxItems", 5}, {"items", kText}}},
                               {"values", {{"type", "array"}, {"maxItems", 5}, {"items", kInt}}}});
    paths["/controllers/{mac}/schedules/{id}"]["get"] = Command(Op("A schedule kept on the controller (GetSchedule).", "Schedules on controllers", {mac, scheduleId}, nullptr, scheduleDoc));
    paths["/controllers/{mac}/schedules/{id}"]["put"] = Command(Op("Writes a schedule on the controller (UpdateSchedule): five texts, then the values after its number.",
                                                                   "Schedules on controllers", {mac, scheduleId}, scheduleDoc, scheduleDoc));
    paths["/controllers/{mac}/schedules/{id}"]["delete"] = Command(Op("Deletes a schedule on the controller (DeleteSchedule).", "Schedules on controllers", {mac, scheduleId}));

    json fileName = PathParam("name", "A file of the files folder: letters, digits, '.', '_' and '-'.");
    paths["/files"]["get"] = Op("The files folder: what can be sent to controllers, and what was fetched from them.", "Files");
    paths["/files/{name}"]["get"] = Op("A file of the files folder, as it is.", "Files", {fileName});
    paths["/files/{name}"]["put"] = Op("Stores the body as a file of the files folder (up to max_upload_bytes).", "Files", {fileName}, nullptr,
                                       Object({{"name", kText}, {"size", kInt}}), 201);
    paths["/files/{name}"]["put"]["requestBody"] = {{"required", true}, {"content", {{"application/octet-stream", {{"schema", {{"type", "string"}, {"format", "binary"}}}}}}}};
    paths["/files/{name}"]["delete"] = Op("Removes a file of the files folder.", "Files", {fileName}, nullptr, nullptr, 204);
    json transfer = Object({{"file", kText}, {"path", kText}});
    json moved = Object({{"file", kText}, {"path", kText}, {"size", kInt}, {"audit_id", kInt}});
    paths["/controllers/{mac}/files/send"]["post"] = Command(Op("Sends a file of the files folder to the controller's path (SendFile).", "Files", {mac}, transfer, moved));
    paths["/controllers/{mac}/files/fetch"]["post"] = Command(Op("Fetches the controller's file into the files folder (GetFile).", "Files", {mac}, transfer, moved));
    paths["/controllers/{mac}/files/status"]["get"] = Command(Op("A controller file's permission (GetFileStatus).", "Files",
                                                                 {mac, QueryParam("path", "The file's path on the controller.", kText, true)}, nullptr,
                                                                 Object({{"permission", kText}})));
    paths["/controllers/{mac}/files"]["delete"] = Command(Op("Removes a controller file (ZanthDeleteFile).", "Files",
                                                             {mac, QueryParam("path", "The file's path on the controller.", kText, true)}));

    json after = QueryParam("after", "Records after this id (0: from the oldest kept).", kInt);
    json kind = QueryParam("kind", "One kind: event, alarm, lookup, door, pin, connect, disconnect, decision, audit.", kText);
    paths["/events"]["get"] = Op("Pages through the journal: records with ids above `after`, oldest first. An `after` older "
                                 "than what is kept gets 410 with the oldest id held.", "Journal",
                                 {after, QueryParam("limit", "1 to 1000 (default 100).", kInt), kind}, nullptr,
                                 Object({{"records", {{"type", "array"}, {"items", Ref("schemas", "Record")}}}, {"next_after", kInt}, {"last_id", kInt}}));
    paths["/events/stream"]["get"] = Op("Server-Sent Events: replays from `after` (or Last-Event-ID) and then follows live; each "
                                        "event's id is its journal id.", "Journal", {after, kind});
    paths["/events/stream"]["get"]["responses"]["200"] = {{"description", "A text/event-stream of records."},
                                                         {"content", {{"text/event-stream", {{"schema", kText}}}}}};

    json holder = PathParam("id", "The cardholder's id.", kInt);
    paths["/cardholders"]["get"] = Op("The gateway's cardholders (its own rules), optionally searched by name.", "Rules",
                                      {QueryParam("search", "Part of a name.", kText)});
    paths["/cardholders"]["post"] = Op("Adds a cardholder with cards, PIN, validity window and the doors they may open.", "Rules",
                                       json::array(), Ref("schemas", "Cardholder"), nullptr, 201);
    paths["/cardholders/{id}"]["get"] = Op("One cardholder.", "Rules", {holder});
    paths["/cardholders/{id}"]["put"] = Op("Changes a cardholder; card changes for the controllers of their doors are pending until written.",
                                           "Rules", {holder}, Ref("schemas", "Cardholder"));
    paths["/cardholders/{id}"]["delete"] = Op("Removes a cardholder.", "Rules", {holder}, nullptr, nullptr, 204);
    paths["/schedules"]["get"] = Op("The gateway's schedules (weekly intervals in the site's zone).", "Rules");
    paths["/schedules"]["post"] = Op("Adds a schedule.", "Rules", json::array(), Object({{"name", kText}, {"intervals", {{"type", "array"}}}}), nullptr, 201);
    paths["/schedules/{id}"]["put"] = Op("Changes a schedule.", "Rules", {PathParam("id", "The schedule's id.", kInt)},
                                         Object({{"name", kText}, {"intervals", {{"type", "array"}}}}));
    paths["/schedules/{id}"]["delete"] = Op("Removes a schedule.", "Rules", {PathParam("id", "The schedule's id.", kInt)}, nullptr, nullptr, 204);
    paths["/pending-card-changes"]["get"] = Op(
        "Card changes not yet written to their controllers (offline, or refused: last_result says why).", "Rules",
        {QueryParam("mac", "One controller's.", kText)});

    paths["/call"]["get"] = Op("The exports /call takes.", "Commands");
    paths["/metrics"]["get"] = Op("Prometheus text: controllers connected, commands by export and result, rates, journal lag, "
                                  "decision latency.", "Gateway");
    paths["/healthz"]["get"] = Op("Healthy while the journal takes records (503 otherwise).", "Gateway");
    paths["/readyz"]["get"] = Op("Ready once the library listens and the journal takes records.", "Gateway");
    paths["/openapi.json"]["get"] = Op("This document.", "Gateway");

    // What the site console reads, open to any client; and the console's session.
    json record = Ref("schemas", "Record");
    paths["/events/search"]["get"] = Op(
        "Searches back through the journal, newest first, over at most 20000 ids per request: records below `before` "
        "that match every filter given. `next_before` continues the search (null: the oldest record kept was reached).",
        "Journal",
        {QueryParam("before", "Ids below this one (default: from the newest).", kInt),
         QueryParam("limit", "1 to 500 (default 50).", kInt),
         QueryParam("kind", "Kinds, comma-separated: event, alarm, heartbeat, lookup, door, pin, connect, disconnect, "
                            "decision, audit (heartbeat: the alarms that are heartbeats; alarm: the others).", kText),
         QueryParam("mac", "One controller's.", kText), QueryParam("door", "A door number, 0 to 255.", kInt),
         QueryParam("text", "A piece of the raw text.", kText)},
        nullptr,
        Object({{"records", {{"type", "array"}, {"items", record}}}, {"next_before", kInt}, {"searched_from", kInt},
                {"last_id", kInt}, {"oldest_id", kInt}}));
    paths["/health/history"]["get"] = Op(
        "The gateway's recent health, one point per history_step_s (10 s) for the last history_points (an hour), kept in "
        "memory: records per second by kind, door decisions and their latency (p50, p99, longest), the journal's largest "
        "lag and the controllers connected.", "Gateway");
    paths["/site"]["get"] = Op("The site as the config describes it: name, time zone, doors with their relays, lock inputs and "
                               "relay timers, and the controllers the seed file keys for encrypted links.", "Gateway");
    paths["/session"]["post"] = Op(
        "Logs the site console in: trades a token ({\"token\": ...}) for a session cookie (HttpOnly, SameSite=Strict, Secure "
        "under TLS) and a CSRF token. A request carried by the cookie must come from the gateway's own origin, and one "
        "that changes anything must carry the CSRF token in X-CSRF-Token.", "Gateway", json::array(),
        Object({{"token", kText}}), Object({{"name", kText}, {"scope", kText}, {"csrf", kText}, {"expires", kText}}), 201);
    paths["/session"]["get"] = Op("The session (or token) this request stands on: its name, scope and CSRF token.", "Gateway");
    paths["/session"]["delete"] = Op("Logs the console out: the session ends (X-CSRF-Token required).", "Gateway",
                                     json::array(), nullptr, nullptr, 204);
}

json Components() {
    json error = Object({{"error", kText}, {"field", kText}, {"suggestions", {{"type", "array"}, {"items", kText}}}});
    error["required"] = {"error"};
    auto response = [](const std::string& text) {
        return json{{"description", text}, {"content", {{"application/json", {{"schema", Ref("schemas", "Error")}}}}}};
    };
    json cardInput = Object({});
    for (const char* k : {"cardSetId", "noFormat", "accessType", "uniqueId", "accessGroup1", "accessGroup2", "accessGroup3",
                          "accessGroup4", "accessGroup5", "accessGroup6", "accessGroup7", "accessGroup8", "extendedAccess",
                          "passbackExempt", "pinCommands", "escortId", "inScheduleElevatorGroup", "outScheduleElevatorGroup",
                          "pinExempt", "cardRole"}) {
        cardInput["properties"][k] = kInt;
    }
    for (const char* k : {"cardNumber", "pin", "startDate", "startTime", "endDate", "endTime"}) cardInput["properties"][k] = kText;
    cardInput["description"] = "The arguments of AddModCardRecord3 by name (see /call/AddModCardRecord3 for their bounds); "
                               "left out: accessType 1, dates and times \"0\", PIN \"0\", the rest 0.";
    json cardRecord = cardInput;
    cardRecord["description"] = "A card record as the controller holds it (the outputs of GetCardRecord4).";
    cardRecord["properties"]["role"] = kInt;
    cardRecord["properties"]["field7Value"] = kInt;
    json controller = Object({{"mac", kText}, {"valid", kBool}, {"connected", kBool}, {"last_heard", kText}, {"connected_since", kText}});
    return {
        {"securitySchemes", {{"bearer", {{"type", "http"}, {"scheme", "bearer"}}}}},
        {"parameters",
         {{"deadline_ms", QueryParam("deadline_ms", "How long to wait for the controller (default command_deadline_ms, at most "
                                                    "command_deadline_max_ms); past it the answer is 504 and a late reply is dropped.",
                                     {{"type", "integer"}, {"minimum", 1}})},
          {"Idempotency-Key", {{"name", "Idempotency-Key"}, {"in", "header"}, {"required", false},
                               {"description", "A repeat with the same key (and token) gets the first answer; the command is not sent again."},
                               {"schema", kText}}}}},
        {"responses",
         {{"BadRequest", response("An argument doesn't fit the model: `field` names it and `error` the bound. Nothing was sent.")},
          {"Unauthorized", response("No token, or an unknown one.")},
          {"Forbidden", response("An export the gateway keeps to itself, or a read-only token.")},
          {"NotFound", response("No such export (with `suggestions`), resource or record.")},
          {"Busy", response("A file transfer is under way.")},
          {"Refused", response("The controller refused: `result`, `name` and `controller_result` say how.")},
          {"NotConnected", response("The controller isn't connected (`name`: the library's result), or the gateway is stopping.")},
          {"Timeout", response("No answer by the deadline; a reply that comes later is dropped.")}}},
        {"schemas",
         {{"Error", error},
          {"CallAnswer", Object({{"export", kText}, {"mac", kText}, {"result", kInt}, {"name", kText}, {"meaning", kText},
                                 {"ok", kBool}, {"outputs", {{"type", "object"}}}, {"audit_id", kInt}, {"repeat", kBool},
                                 {"controller_result", kText}})},
          {"CardRecordInput", cardInput},
          {"CardRecord", cardRecord},
          {"CardLoad", Object({{"id", kInt}, {"mac", kText}, {"state", kText}, {"total", kInt}, {"sent", kInt}, {"done", kInt},
                               {"ok", kInt}, {"failed", kInt}, {"not_sent", kInt}, {"records_per_second", {{"type", "number"}}},
                               {"errors", {{"type", "array"}, {"items", {{"type", "object"}}}}}, {"progress", kText}})},
          {"Controller", controller},
          {"ControllerList", Object({{"controllers", {{"type", "array"}, {"items", Ref("schemas", "Controller")}}}, {"connected", kInt}})},
          {"Record", Object({{"id", kInt}, {"kind", kText}, {"mac", kText}, {"received", kText}, {"raw", kText},
                             {"fields", {{"type", "object"}}}, {"decision", kText}, {"source", kText},
                             {"latency_ms", {{"type", "number"}}}, {"actor", kText}})},
          {"Cardholder", Object({{"name", kText}, {"pin", kText}, {"valid_from", kText}, {"valid_until", kText},
                                 {"enabled", kBool}, {"cards", {{"type", "array"}}}, {"access", {{"type", "array"}}}})}}}};
}

}  // namespace

json OpenApiDocument(const std::string& site, const std::string& libraryVersion) {
    json paths = json::object();
    Resources(paths);
    // The resources first, then the commands by family, as the model orders its families.
    json tags = json::array();
    std::set<std::string> seen;
    for (const char* tag : {"Controllers", "Doors", "Cards", "Time", "Outputs and inputs", "Schedules on controllers",
                            "Files", "Journal", "Rules", "Gateway", "Commands"}) {
        tags.push_back({{"name", tag}});
        seen.insert(tag);
    }
    for (const meta::Export& e : meta::kExports) {
        if (e.category != meta::Category::kCommand && e.category != meta::Category::kInfo) continue;
        paths["/call/" + std::string(e.name)]["post"] = CallOperation(e);
        std::string tag = e.family ? e.family->title : "Other";
        if (seen.insert(tag).second) {
            json t = {{"name", tag}};
            if (e.family && e.family->notes) t["description"] = e.family->notes;
            tags.push_back(t);
        }
    }
    return {{"openapi", "3.0.3"},
            {"info", {{"title", "zanthd, the site gateway of " + site},
                      {"version", libraryVersion},
                      {"description", "The REST API of zanthd. Every path needs a bearer token (read-only: GET; operator: "
                                      "everything). POST /call/{export} calls any command of the library by name, its "
                                      "arguments under the header's parameter names; the resources cover what an "
                                      "application does every day."}}},
            {"servers", {{{"url", "/api/v1"}}}},
            {"security", {{{"bearer", json::array()}}}},
            {"tags", tags},
            {"paths", paths},
            {"components", Components()}};
}

const std::string& OpenApiPage() {
    static const std::string kPage = R"html(<!doctype html>
<html lang="en"><head><meta charset="utf-8"><meta name="viewport" content="width=device-width, initial-scale=1">
<title>zanthd API</title>
<style>
body{font:15px/1.45 system-ui,sans-serif;margin:0;color:#1d2330;background:#f6f7f9}
header{background:#1d2330;color:#fff;padding:12px 20px;display:flex;gap:12px;flex-wrap:wrap;align-items:center}
header h1{font-size:18px;margin:0 auto 0 0}
input{font:inherit;padding:4px 8px;border-radius:4px;border:1px solid #99a}
button{font:inherit;padding:4px 12px;border-radius:4px;border:0;background:#4a7cf0;color:#fff;cursor:pointer}
main{max-width:1100px;margin:0 auto;padding:12px 20px}
h2{font-size:17px;margin:24px 0 8px;border-bottom:1px solid #ccd}
details{background:#fff;border:1px solid #dde;border-radius:6px;margin:6px 0}
summary{padding:8px 12px;cursor:pointer;display:flex;gap:10px;align-items:baseline}
.m{font:bold 12px monospace;padding:2px 6px;border-radius:3px;color:#fff;min-width:48px;text-align:center}
.get{background:#2e8b57}.post{background:#4a7cf0}.put{background:#c98a00}.delete{background:#c0392b}
.p{font-family:monospace}.s{color:#556}
.body{padding:4px 16px 12px}
table{border-collapse:collapse;width:100%;font-size:13px}td,th{border-top:1px solid #eef;padding:4px 6px;text-align:left;vertical-align:top}
pre{white-space:pre-wrap;background:#f0f2f5;padding:8px;border-radius:4px;font-size:12px}
#msg{color:#fdd}
</style></head><body>
<header><h1>zanthd API</h1><input id="filter" placeholder="filter paths"><input id="token" type="password" placeholder="bearer token">
<button id="load">Read</button><span id="msg"></span></header>
<main id="out"><p>A token (read-only is enough) reads the API's description, <code>/api/v1/openapi.json</code>.</p></main>
<script>
"use strict";
const el = (tag, attrs, ...kids) => {
  const e = document.createElement(tag);
  for (const [k, v] of Object.entries(attrs || {})) e.setAttribute(k, v);
  for (const k of kids) e.append(k instanceof Node ? k : document.createTextNode(String(k)));
  return e;
};
let doc = null;
function resolve(s) {
  let guard = 0;
  while (s && s.$ref && guard++ < 10) {
    s = s.$ref.slice(2).split("/").reduce((o, k) => o && o[k], doc);
  }
  return s || {};
}
function typeText(s) {
  s = resolve(s);
  if (s.allOf) return s.allOf.map(typeText).join(" + ");
  let t = s.type || "object";
  if (s.format) t += " (" + s.format + ")";
  const b = [];
  if (s.enum) b.push("one of " + s.enum.join(", "));
  if (s.minimum !== undefined) b.push(s.minimum + " to " + s.maximum);
  if (s.maxLength !== undefined) b.push("at most " + s.maxLength + " characters");
  if (s.pattern) b.push("pattern " + s.pattern);
  if (s.default !== undefined) b.push("default " + s.default);
  return b.length ? t + ": " + b.join("; ") : t;
}
function schemaTable(s) {
  s = resolve(s);
  const props = Object.assign({}, ...(s.allOf || [s]).map(x => resolve(x).properties || {}));
  const required = new Set((s.required || []));
  const t = el("table", {}, el("tr", {}, el("th", {}, "name"), el("th", {}, "type and bounds"), el("th", {}, "")));
  for (const [k, v] of Object.entries(props)) {
    t.append(el("tr", {}, el("td", {class: "p"}, k + (required.has(k) ? " *" : "")), el("td", {}, typeText(v)),
                el("td", {class: "s"}, resolve(v).description || "")));
  }
  return t;
}
function render() {
  const out = document.getElementById("out");
  const filter = document.getElementById("filter").value.toLowerCase();
  out.replaceChildren();
  out.append(el("p", {}, doc.info.description));
  const byTag = new Map((doc.tags || []).map(t => [t.name, []]));
  for (const [path, ops] of Object.entries(doc.paths)) {
    if (filter && !path.toLowerCase().includes(filter)) continue;
    for (const [method, op] of Object.entries(ops)) {
      const tag = (op.tags || ["Other"])[0];
      if (!byTag.has(tag)) byTag.set(tag, []);
      byTag.get(tag).push([path, method, op]);
    }
  }
  for (const [tag, list] of byTag) {
    if (!list.length) continue;
    out.append(el("h2", {}, tag + " (" + list.length + ")"));
    for (const [path, method, op] of list) {
      const d = el("details", {}, el("summary", {}, el("span", {class: "m " + method}, method.toUpperCase()),
                                     el("span", {class: "p"}, path), el("span", {class: "s"}, op.summary || "")));
      d.addEventListener("toggle", () => {
        if (!d.open || d.dataset.filled) return;
        d.dataset.filled = "1";
        const body = el("div", {class: "body"});
        if (op.description) body.append(el("pre", {}, op.description));
        const params = (op.parameters || []).map(resolve);
        if (params.length) {
          const t = el("table", {}, el("tr", {}, el("th", {}, "parameter"), el("th", {}, "in"), el("th", {}, "type"), el("th", {}, "")));
          for (const p of params) t.append(el("tr", {}, el("td", {class: "p"}, p.name + (p.required ? " *" : "")), el("td", {}, p.in),
                                             el("td", {}, typeText(p.schema)), el("td", {class: "s"}, p.description || "")));
          body.append(el("h4", {}, "Parameters"), t);
        }
        const rb = op.requestBody && op.requestBody.content;
        if (rb && rb["application/json"]) body.append(el("h4", {}, "Body (JSON)"), schemaTable(rb["application/json"].schema));
        for (const [code, r0] of Object.entries(op.responses || {})) {
          const r = resolve(r0);
          body.append(el("h4", {}, code + ": " + (r.description || "")));
          const c = r.content && r.content["application/json"];
          if (c && code < 300) body.append(schemaTable(c.schema));
        }
        d.append(body);
      });
      out.append(d);
    }
  }
}
async function load() {
  const token = document.getElementById("token").value.trim();
  sessionStorage.setItem("zanthd-token", token);
  const msg = document.getElementById("msg");
  msg.textContent = "";
  try {
    const r = await fetch("/api/v1/openapi.json", {headers: token ? {Authorization: "Bearer " + token} : {}});
    if (!r.ok) { msg.textContent = "the gateway answered " + r.status; return; }
    doc = await r.json();
    render();
  } catch (e) { msg.textContent = String(e); }
}
document.getElementById("load").addEventListener("click", load);
document.getElementById("filter").addEventListener("input", () => doc && render());
document.getElementById("token").value = sessionStorage.getItem("zanthd-token") || "";
load();
</script></body></html>
)html";
    return kPage;
}

}  // namespace zanthd
