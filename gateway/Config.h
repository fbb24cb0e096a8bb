#pragma once
// zanthd's one configuration file (TOML), read and checked whole at start. Every key has a
// default that works on one machine; an unknown key or a bad value stops the start with the file,
// the line and what was expected (ConfigError). Relative paths are taken from the config file's
// folder.

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace zanthd {

class ConfigError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

enum class Scope { None = 0, Read = 1, Operator = 2 };

struct TokenConfig {
    std::string name;
    std::string sha256;  // lower-case hex of the token's SHA-256
    Scope scope = Scope::Read;
};

// A door of the site: a controller's door number (as its look-ups name it), the relay that
// unlocks it and the input that watches its lock.
struct DoorConfig {
    std::string name;
    std::string controller;  // "XX:XX:XX"
    int door = 1;
    int relay = 0;
    int lockInput = 8;
    int openMs = 5000;  // the relay timer: how long an opened door stays unlocked (0: not set)
};

enum class DecisionMode { Rules, Webhook, Mqtt };

// [mqtt]: the message bus. Off unless `enabled`; see MqttBus.h for what goes over it.
struct MqttConfig {
    bool enabled = false;
    std::string host = "127.0.0.1";
    int port = 1883;
    std::string clientId;      // default "zanthd-<site>"
    std::string username;      // empty: none
    std::string password;      // or from password_file (its first line)
    std::filesystem::path tlsCa;    // TLS on when set: the broker's certificate is checked against it
    std::filesystem::path tlsCert;  // a client certificate and its key, both or neither
    std::filesystem::path tlsKey;
    std::string topicPrefix;   // default "zanth/<site>"
    int qos = 1;               // 1 or 2: at least once
    int keepaliveS = 30;
    int window = 256;          // journal records published and not yet acknowledged, at most
    int markIntervalMs = 200;  // how often the published mark is written to the journal
    bool commands = true;      // take requests on <prefix>/<mac>/call/<export>
    std::string hmacSecret;    // or from hmac_secret_file; empty: requests carry no HMAC
    int hmacWindowS = 30;      // a signed request's timestamp may be this far from the gateway's clock
    int reconnectMaxS = 10;    // the longest wait between two attempts to reach the broker

    bool Tls() const { return !tlsCa.empty(); }
};

struct Config {
    std::filesystem::path file;  // the config file, absolute
    std::filesystem::path dir;   // its folder

    // [gateway]
    std::string site = "site";
    std::filesystem::path dataDir;  // default: <config folder>/data
    std::string logLevel = "info";
    std::string timeZone = "UTC";
    std::filesystem::path library;  // empty: libzanth.so.2 through the normal search path
    std::filesystem::path filesDir; // default: <config folder>/files

    // [library]
    int port = 3001;
    std::vector<std::string> valid;  // empty list with validAll: every controller
    bool validAll = true;
    std::filesystem::path seedFile;  // copied into the data folder as zanth.txt
    int controllers = 100;           // the load the event and alarm rings are sized for
    int ringSeconds = 60;            // how long the rings bridge a journal that can't take
    int64_t eventRing = 0;           // 0: controllers x 21.3/s x ringSeconds
    int64_t alarmRing = 0;           // 0: a quarter of the event ring, at least 5000
    int commandDeadlineMs = 10000;
    int commandDeadlineMaxMs = 300000;
    int blockingWaitMs = 15000;      // RecvWaitTime: a blocking call's wait for its reply
    int cardLoadWindow = 8;          // Rsp calls of a bulk card load in flight at once
    int lookupPollUs = 1000;
    int queuePollMs = 5;

    // [journal]
    std::filesystem::path journal;  // default: <config folder>/journal.db
    std::string synchronous = "normal";
    int retentionDays = 90;
    int64_t retentionMaxRecords = 0;  // 0: no bound by count
    int64_t retentionMaxMb = 0;       // 0: no bound by size
    int batchMax = 512;

    // [rules]
    std::filesystem::path rulesDb;  // default: <config folder>/rules.db

    // [http]
    std::string listenHost = "127.0.0.1";
    int listenPort = 8080;
    std::filesystem::path tlsCert;
    std::filesystem::path tlsKey;
    bool allowAnonymous = false;  // only honoured on a loopback address
    Scope anonymousScope = Scope::Read;
    int64_t maxBodyBytes = 65536;
    int64_t maxUploadBytes = 16 << 20;  // bulk card loads and files
    int threads = 128;

    std::vector<TokenConfig> tokens;

    // [decisions]
    DecisionMode mode = DecisionMode::Rules;
    std::string webhookUrl;
    int webhookTimeoutMs = 500;
    bool webhookGrantOnFailure = false;
    int pinTimeoutMs = 20000;
    int pinSeconds = 15;
    int pinDigits = 4;
    int mqttDecisionTimeoutMs = 1000;  // mode "mqtt": no answer on the bus by then: deny

    MqttConfig mqtt;

    std::vector<DoorConfig> doors;

    // [console]
    bool consoleEnabled = true;
    std::filesystem::path consoleDir;  // empty: the page's files built into zanthd
    int sessionIdleS = 1800;
    int sessionMaxS = 43200;
    int historyStepS = 10;
    int historyPoints = 360;

    bool Tls() const { return !tlsCert.empty(); }
};

// Reads and checks `path`; throws ConfigError ("file:line: key: expected ..., found ...").
Config LoadConfig(const std::filesystem::path& path);
// The same from text, for tests; `path` names it in messages and anchors relative paths.
Config ParseConfig(const std::string& text, const std::filesystem::path& path);

bool IsLoopback(const std::string& host);

}  // namespace zanthd
