#include "gateway/Config.h"

#include <fstream>
#include <set>
#include <sstream>
#include <toml++/toml.h>

#include "gateway/Log.h"
#include "gateway/MqttRequest.h"
#include "gateway/PayloadCodec.h"
#include "gateway/SiteTime.h"

namespace zanthd {
namespace {

namespace fs = std::filesystem;

std::string Where(const fs::path& file, const toml::source_region& region) {
    std::ostringstream out;
    out << file.filename().string() << ":" << region.begin.line;
    return out.str();
}

std::string TypeName(const toml::node& node) {
    switch (node.type()) {
        case toml::node_type::string: return "a string";
        case toml::node_type::integer: return "an integer";
        case toml::node_type::floating_point: return "a number";
        case toml::node_type::boolean: return "a boolean";
        case toml::node_type::array: return "an array";
        case toml::node_type::table: return "a table";
        default: return "a date or time";
    }
}

// One table of the file: each getter marks its key as known; Finish refuses the rest.
class Section {
  public:
    Section(const fs::path& file, const toml::table* table, std::string name)
        : file_(file), table_(table), name_(std::move(name)) {}

    void Int(const char* key, int64_t low, int64_t high, int64_t* out) {
        const toml::node* node = Take(key);
        if (node == nullptr) return;
        auto value = node->value_exact<int64_t>();
        if (!value || *value < low || *value > high) {
            Fail(*node, key, "an integer from " + std::to_string(low) + " to " + std::to_string(high),
                 value ? std::to_string(*value) : TypeName(*node));
        }
        *out = *value;
    }
    void Int(const char* key, int low, int high, int* out) {
        int64_t wide = *out;
        Int(key, static_cast<int64_t>(low), static_cast<int64_t>(high), &wide);
        *out = static_cast<int>(wide);
    }
    void Bool(const char* key, bool* out) {
        const toml::node* node = Take(key);
        if (node == nullptr) return;
        auto value = node->value_exact<bool>();
        if (!value) Fail(*node, key, "true or false", TypeName(*node));
        *out = *value;
    }
    void String(const char* key, std::string* out) {
        const toml::node* node = Take(key);
        if (node == nullptr) return;
        auto value = node->value_exact<std::string>();
        if (!value) Fail(*node, key, "a string", TypeName(*node));
        *out = *value;
    }
    void Choice(const char* key, const std::vector<std::string>& allowed, std::string* out) {
        const toml::node* node = Take(key);
        if (node == nullptr) return;
        auto value = node->value_exact<std::string>();
        std::string list;
        for (const auto& a : allowed) list += (list.empty() ? "\"" : ", \"") + a + "\"";
        if (!value) Fail(*node, key, "one of " + list, TypeName(*node));
        for (const auto& a : allowed) {
            if (*value == a) {
                *out = *value;
                return;
            }
        }
        Fail(*node, key, "one of " + list, "\"" + *value + "\"");
    }
    void Path(const char* key, const fs::path& base, fs::path* out) {
        std::string text;
        const toml::node* node = table_ ? table_->get(key) : nullptr;
        String(key, &text);
        if (node == nullptr) return;
        if (text.empty()) {
            *out = fs::path();
            return;
        }
        fs::path p(text);
        *out = p.is_absolute() ? p : base / p;
    }
    const toml::node* Take(const char* key) {
        known_.insert(key);
        return table_ ? table_->get(key) : nullptr;
    }
    [[noreturn]] void Fail(const toml::node& node, const std::string& key, const std::string& expected,
                           const std::string& found) const {
        throw ConfigError(Where(file_, node.source()) + ": " + Qualified(key) + ": expected " +
                          expected + ", found " + found);
    }
    std::string Qualified(const std::string& key) const {
        return name_.empty() ? key : name_ + "." + key;
    }
    void Finish() const {
        if (table_ == nullptr) return;
        for (const auto& [key, node] : *table_) {
            std::string k(key.str());
            if (known_.count(k) == 0) {
                throw ConfigError(Where(file_, key.source()) + ": unknown key " + Qualified(k) +
                                  (name_.empty() ? "" : " (the keys of [" + name_ + "] are " + KnownList() + ")"));
            }
        }
    }

  private:
    std::string KnownList() const {
        std::string out;
        for (const auto& k : known_) out += (out.empty() ? "" : ", ") + k;
        return out;
    }
    const fs::path& file_;
    const toml::table* table_;
    std::string name_;
    std::set<std::string> known_;
};

const toml::table* SubTable(const fs::path& file, const toml::table& root, const char* name) {
    const toml::node* node = root.get(name);
    if (node == nullptr) return nullptr;
    if (!node->is_table()) {
        throw ConfigError(Where(file, node->source()) + ": " + name + ": expected a table [" + name +
                          "], found " + TypeName(*node));
    }
    return node->as_table();
}

Scope ParseScope(Section& s, const char* key, Scope fallback) {
    std::string text = fallback == Scope::Operator ? "operator" : "read";
    s.Choice(key, {"read", "operator"}, &text);
    return text == "operator" ? Scope::Operator : Scope::Read;
}

bool IsHex(const std::string& text) {
    for (char c : text) {
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) return false;
    }
    return true;
}

// A secret (a password, the HMAC's key) from the first line of a file.
std::string SecretFromFile(Section& s, const char* key, const fs::path& path) {
    std::ifstream in(path);
    std::string line;
    if (!in || !std::getline(in, line)) {
        s.Fail(*s.Take(key), key, "a readable file whose first line is the secret", "\"" + path.string() + "\"");
    }
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
    return line;
}

void ParseMqtt(const fs::path& file, const toml::table* table, Config* c) {
    Section s(file, table, "mqtt");
    MqttConfig& m = c->mqtt;
    s.Bool("enabled", &m.enabled);
    s.String("host", &m.host);
    s.Int("port", 1, 65535, &m.port);
    s.String("client_id", &m.clientId);
    s.String("username", &m.username);
    s.String("password", &m.password);
    fs::path passwordFile, secretFile;
    s.Path("password_file", c->dir, &passwordFile);
    s.Path("tls_ca", c->dir, &m.tlsCa);
    s.Path("tls_cert", c->dir, &m.tlsCert);
    s.Path("tls_key", c->dir, &m.tlsKey);
    s.String("topic_prefix", &m.topicPrefix);
    s.Int("qos", 1, 2, &m.qos);
    s.Int("keepalive_s", 5, 3600, &m.keepaliveS);
    s.Int("window", 1, 20000, &m.window);
    s.Int("mark_interval_ms", 10, 60000, &m.markIntervalMs);
    s.Bool("commands", &m.commands);
    s.String("hmac_secret", &m.hmacSecret);
    s.Path("hmac_secret_file", c->dir, &secretFile);
    s.Int("hmac_window_s", 1, 3600, &m.hmacWindowS);
    s.Int("reconnect_max_s", 1, 3600, &m.reconnectMaxS);
    if (m.host.empty()) s.Fail(*s.Take("host"), "host", "the broker's host name or address", "\"\"");
    if (!passwordFile.empty()) {
        if (!m.password.empty()) {
            s.Fail(*s.Take("password_file"), "password_file", "password or password_file, not both", "both");
        }
        m.password = SecretFromFile(s, "password_file", passwordFile);
    }
    if (!secretFile.empty()) {
        if (!m.hmacSecret.empty()) {
            s.Fail(*s.Take("hmac_secret_file"), "hmac_secret_file", "hmac_secret or hmac_secret_file, not both", "both");
        }
        m.hmacSecret = SecretFromFile(s, "hmac_secret_file", secretFile);
    }
    if (!m.hmacSecret.empty() && m.hmacSecret.size() < 16) {
        const char* key = secretFile.empty() ? "hmac_secret" : "hmac_secret_file";
        s.Fail(*s.Take(key), key, "a secret of at least 16 characters", std::to_string(m.hmacSecret.size()) + " characters");
    }
    if (!m.password.empty() && m.username.empty()) {
        const char* key = passwordFile.empty() ? "password" : "password_file";
        s.Fail(*s.Take(key), key, "a password together with a username", "no username");
    }
    if (m.tlsCert.empty() != m.tlsKey.empty()) {
        const char* given = m.tlsCert.empty() ? "tls_key" : "tls_cert";
        s.Fail(*s.Take(given), given, "tls_cert and tls_key given together", "only one of them");
    }
    if (!m.tlsCert.empty() && m.tlsCa.empty()) {
        s.Fail(*s.Take("tls_cert"), "tls_cert", "tls_ca as well (a client certificate is for a TLS link)", "no tls_ca");
    }
    for (const char* key : {"tls_ca", "tls_cert", "tls_key"}) {
        std::string_view k(key);
        const fs::path& p = k == "tls_ca" ? m.tlsCa : k == "tls_cert" ? m.tlsCert : m.tlsKey;
        if (!p.empty() && !fs::exists(p)) {
            s.Fail(*s.Take(key), key, "a readable file", "\"" + p.string() + "\", which doesn't exist");
        }
    }
    if (m.clientId.empty()) m.clientId = "zanthd-" + c->site;
    std::string why;
    if (m.topicPrefix.empty()) {
        m.topicPrefix = "zanth/" + c->site;
        if (m.enabled && !ValidTopicPrefix(m.topicPrefix, &why)) {
            const toml::node* n = s.Take("enabled");
            s.Fail(*n, "topic_prefix", "a prefix of its own, since the site's name makes a bad one (" + why + ")",
                   "\"" + m.topicPrefix + "\"");
        }
    } else if (!ValidTopicPrefix(m.topicPrefix, &why)) {
        s.Fail(*s.Take("topic_prefix"), "topic_prefix", "topic levels such as \"zanth/lobby\" (" + why + ")",
               "\"" + m.topicPrefix + "\"");
    }
    s.Finish();
}

}  // namespace

bool IsLoopback(const std::string& host) {
    return host == "localhost" || host == "::1" || host.rfind("127.", 0) == 0;
}

Config ParseConfig(const std::string& text, const fs::path& path) {
    Config c;
    c.file = fs::absolute(path);
    c.dir = c.file.parent_path();
    c.dataDir = c.dir / "data";
    c.journal = c.dir / "journal.db";
    c.rulesDb = c.dir / "rules.db";
    c.filesDir = c.dir / "files";

    toml::table root;
    try {
        root = toml::parse(text, c.file.string());
    } catch (const toml::parse_error& e) {
        std::ostringstream out;
        out << c.file.filename().string() << ":" << e.source().begin.line << ": "
            << e.description();
        throw ConfigError(out.str());
    }
    const fs::path& file = c.file;
    for (const auto& [key, node] : root) {
        static const std::set<std::string> kSections = {"gateway", "library", "journal", "rules",
                                                        "http", "tokens", "decisions", "doors",
                                                        "mqtt", "console"};
        if (kSections.count(std::string(key.str())) == 0) {
            throw ConfigError(Where(file, key.source()) + ": unknown section or key " +
                              std::string(key.str()) +
                              " (expected gateway, library, journal, rules, http, tokens, "
                              "decisions, doors, mqtt or console)");
        }
    }

    {
        Section s(file, SubTable(file, root, "gateway"), "gateway");
        s.String("site", &c.site);
        s.Path("data_dir", c.dir, &c.dataDir);
        s.Choice("log_level", {"debug", "info", "warn", "error"}, &c.logLevel);
        s.String("time_zone", &c.timeZone);
        if (const toml::node* tz = s.Take("time_zone"); tz != nullptr && !ValidTimeZone(c.timeZone)) {
            s.Fail(*tz, "time_zone", "a zone of the time zone database such as \"Europe/Berlin\"",
                   "\"" + c.timeZone + "\"");
        }
        s.Path("library", c.dir, &c.library);
        s.Path("files_dir", c.dir, &c.filesDir);
        s.Finish();
        if (c.dataDir.empty()) c.dataDir = c.dir / "data";
        if (c.filesDir.empty()) c.filesDir = c.dir / "files";
    }
    {
        Section s(file, SubTable(file, root, "library"), "library");
        s.Int("port", 1025, 65535, &c.port);
        if (const toml::node* node = s.Take("valid")) {
            if (auto text = node->value_exact<std::string>(); text && *text == "ALL") {
                c.validAll = true;
            } else if (const toml::array* list = node->as_array()) {
                c.validAll = false;
                for (const toml::node& item : *list) {
                    auto mac = item.value_exact<std::string>();
                    std::string normal = mac ? NormalizeMac(*mac) : "";
                    if (normal.empty()) {
                        s.Fail(item, "valid", "a MAC \"XX:XX:XX\"",
                               mac ? "\"" + *mac + "\"" : TypeName(item));
                    }
                    c.valid.push_back(normal);
                }
            } else {
                s.Fail(*node, "valid", "\"ALL\" or an array of MACs", TypeName(*node));
            }
        }
        s.Path("seed_file", c.dir, &c.seedFile);
        s.Int("controllers", 1, 100000, &c.controllers);
        s.Int("ring_seconds", 1, 86400, &c.ringSeconds);
        s.Int("event_ring", int64_t{0}, int64_t{2000000000}, &c.eventRing);
        s.Int("alarm_ring", int64_t{0}, int64_t{2000000000}, &c.alarmRing);
        s.Int("command_deadline_ms", 100, 600000, &c.commandDeadlineMs);
        s.Int("command_deadline_max_ms", 100, 3600000, &c.commandDeadlineMaxMs);
        s.Int("blocking_wait_ms", 100, 600000, &c.blockingWaitMs);
        s.Int("card_load_window", 1, 64, &c.cardLoadWindow);
        if (c.commandDeadlineMaxMs < c.commandDeadlineMs) {
            s.Fail(*s.Take("command_deadline_max_ms"), "command_deadline_max_ms",
                   "at least command_deadline_ms (" + std::to_string(c.commandDeadlineMs) + ")",
                   std::to_string(c.commandDeadlineMaxMs));
        }
        s.Int("lookup_poll_us", 100, 100000, &c.lookupPollUs);
        s.Int("queue_poll_ms", 1, 1000, &c.queuePollMs);
        for (const char* ring : {"event_ring", "alarm_ring"}) {
            const toml::node* node = s.Take(ring);
            int64_t value = ring[0] == 'e' ? c.eventRing : c.alarmRing;
            if (node != nullptr && value != 0 && value < 20) {
                s.Fail(*node, ring, "0 (sized from controllers) or at least 20", std::to_string(value));
            }
        }
        s.Finish();
    }
    {
        Section s(file, SubTable(file, root, "journal"), "journal");
        s.Path("path", c.dir, &c.journal);
        s.Choice("synchronous", {"normal", "full"}, &c.synchronous);
        s.Int("retention_days", 0, 36500, &c.retentionDays);
        s.Int("retention_max_records", int64_t{0}, int64_t{1} << 50, &c.retentionMaxRecords);
        s.Int("retention_max_mb", int64_t{0}, int64_t{1} << 30, &c.retentionMaxMb);
        s.Int("batch_max", 1, 100000, &c.batchMax);
        s.Finish();
        if (c.journal.empty()) c.journal = c.dir / "journal.db";
    }
    {
        Section s(file, SubTable(file, root, "rules"), "rules");
        s.Path("path", c.dir, &c.rulesDb);
        s.Finish();
        if (c.rulesDb.empty()) c.rulesDb = c.dir / "rules.db";
    }
    {
        Section s(file, SubTable(file, root, "http"), "http");
        std::string listen = c.listenHost + ":" + std::to_string(c.listenPort);
        const toml::node* node = root.get("http") ? root.get("http")->as_table()->get("listen") : nullptr;
        s.String("listen", &listen);
        size_t colon = listen.rfind(':');
        int port = -1;
        if (colon != std::string::npos && colon > 0) {
            try {
                size_t used = 0;
                port = std::stoi(listen.substr(colon + 1), &used);
                if (used != listen.size() - colon - 1) port = -1;
            } catch (const std::exception&) {
                port = -1;
            }
        }
        if (port < 0 || port > 65535) {
            s.Fail(*node, "listen", "\"host:port\" with a port from 0 to 65535", "\"" + listen + "\"");
        }
        c.listenHost = listen.substr(0, colon);
        if (c.listenHost.size() > 2 && c.listenHost.front() == '[') {
            c.listenHost = c.listenHost.substr(1, c.listenHost.size() - 2);
        }
        c.listenPort = port;
        s.Path("tls_cert", c.dir, &c.tlsCert);
        s.Path("tls_key", c.dir, &c.tlsKey);
        s.Bool("allow_anonymous", &c.allowAnonymous);
        c.anonymousScope = ParseScope(s, "anonymous_scope", Scope::Read);
        s.Int("max_body_bytes", int64_t{256}, int64_t{64} << 20, &c.maxBodyBytes);
        s.Int("max_upload_bytes", int64_t{256}, int64_t{1} << 30, &c.maxUploadBytes);
        s.Int("threads", 4, 1024, &c.threads);
        if (c.tlsCert.empty() != c.tlsKey.empty()) {
            const toml::node* n = s.Take(c.tlsCert.empty() ? "tls_key" : "tls_cert");
            s.Fail(*n, c.tlsCert.empty() ? "tls_cert" : "tls_key",
                   "tls_cert and tls_key given together", "only one of them");
        }
        for (const char* key : {"tls_cert", "tls_key"}) {
            const fs::path& p = key[4] == 'c' ? c.tlsCert : c.tlsKey;
            if (!p.empty() && !fs::exists(p)) {
                s.Fail(*s.Take(key), key, "a readable file", "\"" + p.string() + "\", which doesn't exist");
            }
        }
        if (c.allowAnonymous && !IsLoopback(c.listenHost)) {
            s.Fail(*s.Take("allow_anonymous"), "allow_anonymous",
                   "false unless listen is a loopback address (127.x.x.x, ::1, localhost)", "true");
        }
        s.Finish();
    }
    if (const toml::node* node = root.get("tokens")) {
        const toml::array* list = node->as_array();
        if (list == nullptr) {
            throw ConfigError(Where(file, node->source()) +
                              ": tokens: expected [[tokens]] tables, found " + TypeName(*node));
        }
        std::set<std::string> names;
        for (const toml::node& item : *list) {
            if (!item.is_table()) {
                throw ConfigError(Where(file, item.source()) + ": tokens: expected a table, found " +
                                  TypeName(item));
            }
            Section s(file, item.as_table(), "tokens");
            TokenConfig t;
            s.String("name", &t.name);
            s.String("sha256", &t.sha256);
            t.scope = ParseScope(s, "scope", Scope::Read);
            if (t.name.empty()) s.Fail(item, "name", "a name for the token", "none");
            if (!names.insert(t.name).second) s.Fail(*s.Take("name"), "name", "a name not used before", "\"" + t.name + "\"");
            if (t.sha256.size() != 64 || !IsHex(t.sha256)) {
                const toml::node* n = s.Take("sha256");
                s.Fail(n ? *n : item, "sha256", "64 lower-case hex digits (zanthd --hash-token)",
                       n ? "\"" + t.sha256 + "\"" : "none");
            }
            s.Finish();
            c.tokens.push_back(t);
        }
    }
    ParseMqtt(file, SubTable(file, root, "mqtt"), &c);
    {
        Section s(file, SubTable(file, root, "decisions"), "decisions");
        std::string mode = "rules";
        s.Choice("mode", {"rules", "webhook", "mqtt"}, &mode);
        c.mode = mode == "webhook" ? DecisionMode::Webhook : mode == "mqtt" ? DecisionMode::Mqtt : DecisionMode::Rules;
        s.Int("mqtt_timeout_ms", 10, 60000, &c.mqttDecisionTimeoutMs);
        if (c.mode == DecisionMode::Mqtt && !c.mqtt.enabled) {
            s.Fail(*s.Take("mode"), "mode", "\"rules\" or \"webhook\" unless [mqtt] has enabled = true",
                   "\"mqtt\"");
        }
        s.String("webhook_url", &c.webhookUrl);
        s.Int("webhook_timeout_ms", 10, 60000, &c.webhookTimeoutMs);
        std::string onFailure = "deny";
        s.Choice("webhook_on_failure", {"deny", "grant"}, &onFailure);
        c.webhookGrantOnFailure = onFailure == "grant";
        s.Int("pin_timeout_ms", 1000, 600000, &c.pinTimeoutMs);
        s.Int("pin_seconds", 1, 600, &c.pinSeconds);
        s.Int("pin_digits", 1, 16, &c.pinDigits);
        if (c.mode == DecisionMode::Webhook &&
            c.webhookUrl.rfind("http://", 0) != 0 && c.webhookUrl.rfind("https://", 0) != 0) {
            const toml::node* n = s.Take("webhook_url");
            s.Fail(n ? *n : *s.Take("mode") , "webhook_url", "an http:// or https:// URL with mode = \"webhook\"",
                   n ? "\"" + c.webhookUrl + "\"" : "none");
        }
        s.Finish();
    }
    {
        Section s(file, SubTable(file, root, "console"), "console");
        s.Bool("enabled", &c.consoleEnabled);
        s.Path("dir", c.dir, &c.consoleDir);
        if (!c.consoleDir.empty() && !fs::is_regular_file(c.consoleDir / "index.html")) {
            s.Fail(*s.Take("dir"), "dir", "a folder that holds the console's index.html",
                   "\"" + c.consoleDir.string() + "\"");
        }
        s.Int("session_idle_s", 1, 86400 * 7, &c.sessionIdleS);
        s.Int("session_max_s", 1, 86400 * 30, &c.sessionMaxS);
        s.Int("history_step_s", 1, 3600, &c.historyStepS);
        s.Int("history_points", 1, 100000, &c.historyPoints);
        s.Finish();
    }
    if (const toml::node* node = root.get("doors")) {
        const toml::array* list = node->as_array();
        if (list == nullptr) {
            throw ConfigError(Where(file, node->source()) + ": doors: expected [[doors]] tables, found " +
                              TypeName(*node));
        }
        std::set<std::string> names;
        std::set<std::pair<std::string, int>> places;
        for (const toml::node& item : *list) {
            if (!item.is_table()) {
                throw ConfigError(Where(file, item.source()) + ": doors: expected a table, found " +
                                  TypeName(item));
            }
            Section s(file, item.as_table(), "doors");
            DoorConfig d;
            s.String("name", &d.name);
            std::string mac;
            s.String("controller", &mac);
            s.Int("door", 0, 255, &d.door);
            s.Int("relay", 0, 15, &d.relay);
            s.Int("lock_input", 0, 15, &d.lockInput);
            s.Int("open_ms", 0, 1320000, &d.openMs);
            if (d.name.empty()) s.Fail(item, "name", "a name for the door", "none");
            if (!names.insert(d.name).second) s.Fail(*s.Take("name"), "name", "a door name not used before", "\"" + d.name + "\"");
            d.controller = NormalizeMac(mac);
            if (d.controller.empty()) {
                const toml::node* n = s.Take("controller");
                s.Fail(n ? *n : item, "controller", "the controller's MAC \"XX:XX:XX\"",
                       n ? "\"" + mac + "\"" : "none");
            }
            if (!places.insert({d.controller, d.door}).second) {
                s.Fail(*s.Take("door"), "door", "one [[doors]] entry per controller and door number",
                       d.controller + " door " + std::to_string(d.door) + " a second time");
            }
            s.Finish();
            c.doors.push_back(d);
        }
    }
    return c;
}

Config LoadConfig(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw ConfigError(path.string() + ": cannot read the file");
    std::ostringstream text;
    text << in.rdbuf();
    return ParseConfig(text.str(), path);
}

}  // namespace zanthd
