#include "gateway/Gateway.h"

#include <cstring>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <filesystem>
#include <memory>

#include "gateway/CallPath.h"
#include "gateway/CardLoads.h"
#include "gateway/ConsoleHistory.h"
#include "gateway/Controllers.h"
#include "gateway/Decider.h"
#include "gateway/DoorService.h"
#include "gateway/Http.h"
#include "gateway/HttpJson.h"
#include "gateway/Ingest.h"
#include "gateway/Intake.h"
#include "gateway/Journal.h"
#include "gateway/Library.h"
#include "gateway/Log.h"
#include "gateway/Metrics.h"
#include "gateway/Model.h"
#include "gateway/MqttBus.h"
#include "gateway/MqttDecider.h"
#include "gateway/OpenApi.h"
#include "gateway/PayloadCodec.h"
#include "gateway/ResponseRouter.h"
#include "gateway/Rules.h"
#include "gateway/SiteSync.h"
#include "gateway/SiteTime.h"

namespace zanthd {
namespace {

namespace fs = std::filesystem;

// A controller flat out sends one event per Worker turn of 47 ms.
constexpr double kEventsPerControllerPerSecond = 1000.0 / 47.0;

int64_t EventRingSize(const Config& c) {
    if (c.eventRing > 0) return c.eventRing;
    double n = std::ceil(c.controllers * kEventsPerControllerPerSecond * c.ringSeconds);
    return std::max<int64_t>(5000, static_cast<int64_t>(n));
}

int64_t AlarmRingSize(const Config& c) {
    if (c.alarmRing > 0) return c.alarmRing;
    return std::max<int64_t>(5000, EventRingSize(c) / 4);
}

// Sizes a ring once, before the library starts: a resize discards the ring's records, so what
// is unread is taken into the journal first.
bool SizeRing(Library& library, Ingest& ingest, bool alarms, int64_t want) {
    uint64_t current = 0;
    if (!library.RingSize(alarms, &current)) return false;
    if (static_cast<int64_t>(current) == want) return true;
    std::string error;
    if (!ingest.DrainRings(library, &error)) {
        Log(Level::Error, "library", "cannot take the unread records before resizing the rings: %s", error.c_str());
        return false;
    }
    int32_t rc = library.SetRingSize(alarms, static_cast<uint64_t>(want));
    if (rc != 0) {
        Log(Level::Error, "library", "%s(1, %lld) returned %d (%s)", alarms ? "AlarmLogSize" : "EventLogSize",
            static_cast<long long>(want), rc, ResultName(rc).c_str());
        return false;
    }
    Log(Level::Info, "library", "%s ring sized from %llu to %lld records", alarms ? "alarm" : "event",
        static_cast<unsigned long long>(current), static_cast<long long>(want));
    return true;
}

}  // namespace

int RunGateway(const Config& config, const sigset_t& stopSignals) {
    // The library writes its log and message files into the working directory and reads
    // zanth.txt from there: it runs in a folder of its own.
    std::error_code ec;
    fs::create_directories(config.dataDir, ec);
    if (chdir(config.dataDir.c_str()) != 0) {
        Log(Level::Error, "gateway", "cannot use the data folder %s: %s", config.dataDir.c_str(),
            std::strerror(errno));
        return 1;
    }
    if (!config.seedFile.empty()) {
        fs::copy_file(config.seedFile, config.dataDir / "zanth.txt", fs::copy_options::overwrite_existing, ec);
        if (ec) {
            Log(Level::Error, "gateway", "cannot copy the seed file %s: %s", config.seedFile.c_str(), ec.message().c_str());
            return 1;
        }
        fs::permissions(config.dataDir / "zanth.txt", fs::perms::owner_read | fs::perms::owner_write,
                        fs::perm_options::replace, ec);
    }

    Metrics metrics;
    ZanthPayloadCodec codec;
    std::unique_ptr<SiteClock> clock;
    try {
        clock = std::make_unique<SiteClock>(config.timeZone);
    } catch (const std::exception& e) {
        Log(Level::Error, "gateway", "time zone %s: %s", config.timeZone.c_str(), e.what());
        return 1;
    }

    Journal journal;
    std::string error;
    if (!journal.Open({config.journal.string(), config.synchronous == "full", 1000}, &error)) {
        Log(Level::Error, "journal", "cannot open %s: %s", config.journal.c_str(), error.c_str());
        return 1;
    }
    // With a message bus, retention keeps every record until the broker has it.
    if (config.mqtt.enabled) journal.AttachPublisher(true);
    Intake intake;
    if (!intake.Open(config.journal.string() + ".intake", &error)) {
        Log(Level::Error, "journal", "cannot open the intake file: %s", error.c_str());
        return 1;
    }
    Ingest::Options io;
    io.batchMax = config.batchMax;
    io.pollMs = config.queuePollMs;
    io.retention = {config.retentionDays, config.retentionMaxRecords, config.retentionMaxMb << 20};
    Ingest ingest(journal, intake, codec, metrics, io);
    if (!ingest.Recover(&error)) {
        Log(Level::Error, "journal", "cannot take in the intake file: %s", error.c_str());
        return 1;
    }
    Log(Level::Info, "journal", "%s: last id %lld, synchronous=%s", config.journal.c_str(),
        static_cast<long long>(journal.LastId()), config.synchronous.c_str());

    RulesStore rules(config.doors, *clock);
    if (!rules.Open(config.rulesDb.string(), &error)) {
        Log(Level::Error, "rules", "cannot open %s: %s", config.rulesDb.c_str(), error.c_str());
        return 1;
    }

    std::error_code made;
    fs::create_directories(config.filesDir, made);
    if (made) {
        Log(Level::Error, "gateway", "cannot make the files folder %s: %s", config.filesDir.c_str(), made.message().c_str());
        return 1;
    }

    Library library;
    if (!library.Load(config.library.string(), &error)) {
        Log(Level::Error, "library", "%s", error.c_str());
        return 1;
    }
    std::string version = library.Version();
    Log(Level::Info, "library", "libzanth %s loaded in %s", version.c_str(), config.dataDir.c_str());
    std::string logFolder = library.LogFolder();
    if (!logFolder.empty()) {
        Log(Level::Warn, "library",
            "this user's log folder setting sends the library's files to %s, not the data folder", logFolder.c_str());
    }
    if (!SizeRing(library, ingest, false, EventRingSize(config)) || !SizeRing(library, ingest, true, AlarmRingSize(config))) {
        return 1;
    }
    std::string valid = "ALL";
    if (!config.validAll) {
        valid.clear();
        for (const std::string& mac : config.valid) valid += (valid.empty() ? "" : ",") + mac;
    }
    library.SetValid(valid);
    // A blocking call holds every other command up in the library until its reply or its wait
    // ends: the library's five minutes would stop the doors' decisions for as long.
    if (int32_t rc = library.SetWaitTime(config.blockingWaitMs); rc != 0) {
        Log(Level::Warn, "library", "RecvWaitTime(%d) returned %d", config.blockingWaitMs, rc);
    }

    ResponseRouter router(library, metrics);
    Controllers controllers(library, ingest, config.valid, config.validAll);
    journal.Subscribe([&controllers](const std::vector<Record>& records) { controllers.Heard(records); });
    CallPath::Options co;
    co.model.filesDir = config.filesDir;
    co.model.macForm = [&controllers](const std::string& mac) { return controllers.LibraryMac(mac); };
    co.model.connected = [&controllers](const std::string& mac) { return controllers.IsConnected(mac); };
    co.defaultDeadlineMs = config.commandDeadlineMs;
    co.maxDeadlineMs = config.commandDeadlineMaxMs;
    CallPath calls(co, router, ingest, metrics);
    std::unique_ptr<MqttBus> bus;
    if (config.mqtt.enabled) bus = std::make_unique<MqttBus>(config, journal, calls, codec, metrics);
    std::unique_ptr<Decider> decider;
    if (config.mode == DecisionMode::Mqtt) {
        decider = std::make_unique<MqttDecider>(*bus, metrics, config.mqttDecisionTimeoutMs);
    } else if (config.mode == DecisionMode::Webhook) {
        decider = std::make_unique<WebhookDecider>(config.webhookUrl, config.webhookTimeoutMs,
                                                   config.webhookGrantOnFailure);
    } else {
        decider = std::make_unique<RulesDecider>(rules, *clock);
    }
    DoorService doors(config, library, codec, *decider, calls, ingest, metrics);
    SiteSync sync(config, controllers, rules, calls);
    controllers.OnConnect([&sync](const std::string& mac) { sync.Connected(mac); });
    CardLoads loads(calls, ingest, config.cardLoadWindow);

    metrics.Gauge("zanthd_controllers_connected", "Controllers connected now.",
                  [&controllers] { return static_cast<double>(controllers.ConnectedCount()); });
    metrics.Gauge("zanthd_journal_lag_records",
                  "Records waiting to be journaled: unread in the message files, submitted and in hand.",
                  [&library, &ingest] {
                      return static_cast<double>(library.Unread(false) + library.Unread(true) + ingest.Backlog());
                  });
    metrics.Gauge("zanthd_journal_last_id", "The last id stored in the journal.",
                  [&journal] { return static_cast<double>(journal.LastId()); });
    metrics.Gauge("zanthd_journal_healthy", "1 while the journal takes records, 0 while it can't.",
                  [&ingest] { return ingest.Healthy() ? 1.0 : 0.0; });
    metrics.Gauge("zanthd_commands_in_flight", "Commands sent and waiting for their reply.",
                  [&router] { return static_cast<double>(router.InFlight()); });
    metrics.Gauge("zanthd_journal_commit_seconds_total", "Time spent committing to the journal so far.",
                  [&journal] { return static_cast<double>(journal.CommitNanos()) / 1e9; });
    metrics.Gauge("zanthd_journal_commit_seconds_per_commit", "Mean time of a journal commit so far.",
                  [&journal] {
                      uint64_t n = journal.Commits();
                      return n ? static_cast<double>(journal.CommitNanos()) / 1e9 / static_cast<double>(n) : 0.0;
                  });

    // The console's health charts: what the journal stores, the lag and the controllers connected.
    HealthHistory history(
        {[&library, &ingest] {
             return static_cast<double>(library.Unread(false) + library.Unread(true) + ingest.Backlog());
         },
         [&controllers] { return static_cast<double>(controllers.ConnectedCount()); }},
        config.historyStepS, config.historyPoints);
    journal.Subscribe([&history](const std::vector<Record>& records) { history.Stored(records); });

    ingest.Start(&library);
    router.Start();
    calls.Start();
    if (bus && !bus->Start(&error)) {
        Log(Level::Error, "mqtt", "%s", error.c_str());
        calls.Stop();
        router.Stop(0);
        ingest.Stop(2000);
        return 1;
    }
    std::atomic<bool> libraryUp{false};
    int32_t rc = library.Start(
        config.port, [&controllers](const std::string& mac) { controllers.Notice(mac, true); },
        [&controllers](const std::string& mac) { controllers.Notice(mac, false); });
    if (rc != 0) {
        Log(Level::Error, "library", "Initialization(%d) returned %d (%s)", config.port, rc, ResultName(rc).c_str());
        calls.Stop();
        router.Stop(0);
        ingest.Stop(2000);
        if (bus) bus->Stop(0);
        return 1;
    }
    libraryUp = true;
    controllers.Start();
    doors.Start();
    sync.Start();
    history.Start();
    sync.PendingChanged();

    HttpApi http({config, journal, ingest, controllers, rules, metrics, calls, loads, sync, codec, *clock,
                  Dump(OpenApiDocument(config.site, version)), [&libraryUp] { return libraryUp.load(); },
                  &history});
    if (!http.Start(&error)) {
        Log(Level::Error, "http", "%s", error.c_str());
        sync.Stop();
        doors.Stop(0);
        controllers.Stop();
        calls.Stop();
        router.Stop(0);
        library.Stop();
        ingest.Stop(2000);
        if (bus) bus->Stop(0);
        return 1;
    }
    if (config.tokens.empty() && !(config.allowAnonymous && IsLoopback(config.listenHost))) {
        Log(Level::Warn, "http", "no [[tokens]] in the config: every request will be refused (zanthd --hash-token)");
    }
    Log(Level::Info, "gateway", "site %s: controllers on port %d, API on %s://%s:%d, %zu doors, decisions by %s",
        config.site.c_str(), config.port, config.Tls() ? "https" : "http", config.listenHost.c_str(),
        http.Port(), config.doors.size(),
        config.mode == DecisionMode::Webhook ? "webhook" : config.mode == DecisionMode::Mqtt ? "mqtt" : "rules");
    if (config.consoleEnabled) {
        Log(Level::Info, "console", "the site console is at %s://%s:%d/ (log in with a token)",
            config.Tls() ? "https" : "http", config.listenHost.c_str(), http.Port());
    }

    int signal = 0;
    sigwait(&stopSignals, &signal);
    Log(Level::Info, "gateway", "%s: stopping", signal == SIGTERM ? "SIGTERM" : "SIGINT");
    auto started = std::chrono::steady_clock::now();

    // Requests first, then the doors (decisions taken are still sent), then the commands in
    // flight end or fail with their code, then the library, and the journal takes the rest.
    // The router's stop ends every wait for a reply, so the threads that wait (the sync, a card
    // load) are free to end; a blocking call under way ends with the library.
    http.Stop();
    if (bus) bus->StopCommands();
    history.Stop();
    doors.Stop(1000);
    decider->Stop();
    router.Stop(3000);
    sync.Stop();
    controllers.Stop();
    library.Stop();
    libraryUp = false;
    calls.Stop();
    ingest.Stop(3000);
    if (bus) bus->Stop(2000);
    journal.Close();
    Log(Level::Info, "gateway", "stopped in %.1f s; journal last id %lld",
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count(),
        static_cast<long long>(journal.LastId()));
    return 0;
}

}  // namespace zanthd
