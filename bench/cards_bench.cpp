// zanth-bench-cards: loading a card database into simulated controllers and reading it back.
//
//   single   one controller, --cards records (default 10,000)
//   fleet    --controllers controllers at once (default 10), --fleet-cards each (default 1,000)
//
// Each is loaded twice, on a fresh library and fresh controllers each time:
//   rsp       RspAddModCardRecord3 for every record at once, the replies drained with
//             GetNextResponse (every one must be "0;" under its own rspid)
//   blocking  AddModCardRecord3, one host thread per controller
// After each load every record the controllers hold is compared field by field with what was
// written, and every record (or every --read-every'th) is read back with GetCardRecord4, one
// host thread per controller, and compared field by field too.
//
//   zanth-bench-cards [--cards N] [--controllers N] [--fleet-cards N] [--runs single,fleet]
//                     [--modes rsp,blocking] [--read-every K] [--no-readback] [--dir D] [--keep]

#include <atomic>
#include <cstdio>
#include <cstring>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "bench/support/BenchSupport.h"
#include "tools/sim/Simulator.h"
#include "tools/sim/families/CardDatabase.h"
#include "zanth.h"

namespace {

using namespace zanth::bench;
namespace sim = zanth::sim;

// The Worker's turn. A turn reads what came in, then sends the next queued command if none is
// in flight: a reply is read one turn after its command went out.
constexpr double kTurnMs = 47.0;
// A caller that queues its next command only after the reply (a blocking call) finds the turn
// that read the reply past its send step: two turns a record. Commands already queued (the Rsp
// load) go out in the turn that read the former reply: one turn a record.
constexpr double kBlockingMsPerRecord = 2 * kTurnMs;
constexpr double kQueuedMsPerRecord = kTurnMs;

void PrintUsage(FILE* out) {
    std::fprintf(
        out,
        "usage: zanth-bench-cards [--cards N] [--controllers N] [--fleet-cards N]\n"
        "                         [--runs single,fleet] [--modes rsp,blocking] [--read-every K]\n"
        "                         [--no-readback] [--dir D] [--keep]\n"
        "  --cards N        records for the single controller (default 10000)\n"
        "  --controllers N  controllers of the fleet (default 10)\n"
        "  --fleet-cards N  records per fleet controller (default 1000)\n"
        "  --runs R         single, fleet or both (default single,fleet)\n"
        "  --modes M        rsp, blocking or both (default rsp,blocking)\n"
        "  --read-every K   read back every K-th record of each controller (default 1: all)\n"
        "  --no-readback    no GetCardRecord4 read-back (the controllers' records are still "
        "checked)\n"
        "  --dir D          where the scratch directory goes (default $TMPDIR or /tmp)\n"
        "  --keep           keep the scratch directory\n");
}

// One cardholder, every field a function of the controller and the record's number, so that
// the read-back can tell a record of another controller or another number.
struct Record {
    int32_t cardSetId, noFormat, accessType, groups[8], extendedAccess, passbackExempt, pinCommands,
        inSchedule, outSchedule, pinExempt;
    uint32_t uniqueId, escortId;
    uint16_t cardRole;
    char cardNumber[24], pin[16], startDate[16], startTime[16], endDate[16], endTime[16];
};

Record MakeRecord(int controller, int n) {
    Record r{};
    auto u = static_cast<uint32_t>(n);
    r.uniqueId = u + 1;
    r.cardSetId = controller;
    r.noFormat = static_cast<int32_t>(u % 2);
    std::snprintf(r.cardNumber, sizeof r.cardNumber, "%d%08u", controller + 1, u);
    std::snprintf(r.pin, sizeof r.pin, "%04u", (u * 7919) % 10000);
    r.accessType = static_cast<int32_t>(1 + u % 3);
    for (int i = 0; i < 8; ++i)
        r.groups[i] = static_cast<int32_t>((u * (i + 3) + controller) % 65536);
    r.extendedAccess = static_cast<int32_t>(u / 2 % 2);
    r.passbackExempt = static_cast<int32_t>(u / 4 % 2);
    r.pinCommands = static_cast<int32_t>(u / 8 % 2);
    std::snprintf(r.startDate, sizeof r.startDate, "%04u/%02u/%02u", 2000 + u % 30, 1 + u % 12,
                  1 + u % 28);
    std::snprintf(r.startTime, sizeof r.startTime, "%02u:%02u:%02u", u % 24, u % 60, u * 7 % 60);
    std::snprintf(r.endDate, sizeof r.endDate, "%04u/12/31", 2030 + u % 8);
    std::snprintf(r.endTime, sizeof r.endTime, "%s", u % 3 == 0 ? "0" : "18:30:00");
    r.escortId = u * 13;
    r.inSchedule = static_cast<int32_t>(u % 256);
    r.outSchedule = static_cast<int32_t>((u + controller) % 256);
    r.pinExempt = static_cast<int32_t>(u / 16 % 2);
    r.cardRole = static_cast<uint16_t>(u * 11 % 65536);
    return r;
}

#define CARD_RECORD_ARGS(r)                                                                        \
    r.cardSetId, r.noFormat, r.cardNumber, r.pin, r.accessType, r.uniqueId, r.groups[0],           \
        r.groups[1], r.groups[2], r.groups[3], r.groups[4], r.groups[5], r.groups[6], r.groups[7], \
        r.extendedAccess, r.passbackExempt, r.pinCommands, r.startDate, r.startTime, r.endDate,    \
        r.endTime, r.escortId, r.inSchedule, r.outSchedule, r.pinExempt, r.cardRole

// Reads record n of a controller back and says what differs; empty when nothing does.
std::string ReadBack(const std::string& mac, int controller, int n) {
    const Record w = MakeRecord(controller, n);
    Record r{};
    r.cardSetId = w.cardSetId;
    r.noFormat = w.noFormat;
    std::strcpy(r.cardNumber, w.cardNumber);
    std::strcpy(r.pin, w.pin);
    uint32_t role = 0;
    int32_t field7 = 0;
    int32_t rc = GetCardRecord4(
        mac.c_str(), &r.cardSetId, &r.noFormat, r.cardNumber, sizeof r.cardNumber, r.pin,
        sizeof r.pin, &r.accessType, &r.uniqueId, &r.groups[0], &r.groups[1], &r.groups[2],
        &r.groups[3], &r.groups[4], &r.groups[5], &r.groups[6], &r.groups[7], &r.extendedAccess,
        &r.passbackExempt, &r.pinCommands, r.startDate, sizeof r.startDate, r.startTime,
        sizeof r.startTime, r.endDate, sizeof r.endDate, r.endTime, sizeof r.endTime, &r.escortId,
        &r.inSchedule, &r.outSchedule, &field7, &r.pinExempt, &role);
    if (rc != 0) return "GetCardRecord4 returned " + std::to_string(rc);
    std::string diff;
    auto same = [&](const char* name, bool equal) {
        if (!equal) diff += std::string(diff.empty() ? "" : ", ") + name;
    };
    same("card set ID", r.cardSetId == w.cardSetId);
    same("no format", r.noFormat == w.noFormat);
    same("card number", std::strcmp(r.cardNumber, w.cardNumber) == 0);
    same("PIN", std::strcmp(r.pin, w.pin) == 0);
    same("access type", r.accessType == w.accessType);
    same("unique ID", r.uniqueId == w.uniqueId);
    for (int i = 0; i < 8; ++i) same("access group", r.groups[i] == w.groups[i]);
    same("extended access", r.extendedAccess == w.extendedAccess);
    same("passback exempt", r.passbackExempt == w.passbackExempt);
    same("pin commands", r.pinCommands == w.pinCommands);
    same("start date", std::strcmp(r.startDate, w.startDate) == 0);
    same("start time", std::strcmp(r.startTime, w.startTime) == 0);
    same("end date", std::strcmp(r.endDate, w.endDate) == 0);
    // An end date without a time covers its whole day.
    same("end time",
         std::strcmp(r.endTime, std::strcmp(w.endTime, "0") == 0 ? "23:59:59" : w.endTime) == 0);
    same("escort ID", r.escortId == w.escortId);
    same("in-schedule group", r.inSchedule == w.inSchedule);
    same("out-schedule group", r.outSchedule == w.outSchedule);
    same("pin exempt", r.pinExempt == w.pinExempt);
    same("card role", role == w.cardRole);
    return diff;
}

// What a controller holds against what was written: stamps as the add builds them.
bool Stored(const std::optional<sim::CardRecord>& held, const Record& w) {
    if (!held || held->deleted) return false;
    const sim::CardRecord& h = *held;
    std::string end =
        std::string(w.endDate) + "-" + (std::strcmp(w.endTime, "0") == 0 ? "23:59:59" : w.endTime);
    bool groups = true;
    for (int i = 0; i < 8; ++i)
        groups = groups && h.accessGroups[static_cast<size_t>(i)] == w.groups[i];
    return groups && h.cardSetId == w.cardSetId && h.noFormat == w.noFormat &&
           h.cardNumber == w.cardNumber && h.pin == w.pin && h.accessType == w.accessType &&
           h.uniqueId == w.uniqueId && h.extendedAccess == w.extendedAccess &&
           h.passbackExempt == w.passbackExempt && h.pinCommands == w.pinCommands &&
           h.start == std::string(w.startDate) + "-" + w.startTime && h.end == end &&
           h.escortId == w.escortId && h.inScheduleElevatorGroup == w.inSchedule &&
           h.outScheduleElevatorGroup == w.outSchedule && h.pinExempt == w.pinExempt &&
           h.cardRole == w.cardRole;
}

struct Outcome {
    std::string run, mode;
    int controllers = 0, cards = 0;
    double loadSeconds = 0, readSeconds = 0;
    long readBack = 0, wrong = 0;
    long stored = 0, storedWrong = 0;  // records checked in the controllers' own state
    size_t held = 0;                   // records the simulated controllers hold after the load
};

class Bench {
  public:
    explicit Bench(const Args& args)
        : cards_(args.Int("--cards", 10000, 1, 50000)),
          controllers_(args.Int("--controllers", 10, 1, 100)),
          fleetCards_(args.Int("--fleet-cards", 1000, 1, 50000)),
          runs_(args.Value("--runs").value_or("single,fleet")),
          modes_(args.Value("--modes").value_or("rsp,blocking")),
          readEvery_(args.Int("--read-every", 1, 1, 1000000)),
          readback_(!args.Flag("--no-readback")),
          sandbox_(args.Value("--dir").value_or(""), args.Flag("--keep")) {}

    int Main() {
        std::printf("zanth-bench-cards: card database load and read-back\n");
        std::printf("machine: %s\n\n", MachineLine(sandbox_.Dir()).c_str());
        std::vector<Outcome> outcomes;
        for (const char* run : {"single", "fleet"}) {
            if (runs_.find(run) == std::string::npos) continue;
            bool single = std::strcmp(run, "single") == 0;
            for (const char* mode : {"rsp", "blocking"}) {
                if (modes_.find(mode) == std::string::npos) continue;
                outcomes.push_back(
                    Load(run, mode, single ? 1 : controllers_, single ? cards_ : fleetCards_));
            }
        }

        Table load({"run", "load by", "controllers", "records", "load s", "rec/s total",
                    "rec/s per ctrl", "model rec/s per ctrl", "model load s"});
        for (const Outcome& o : outcomes) {
            long total = static_cast<long>(o.controllers) * o.cards;
            // Rsp: every link keeps one command in flight of its own. Blocking: the library
            // serialises blocking calls, so the whole fleet shares one command in flight.
            double modelPerCtrl = 1000.0 / (o.mode == "rsp" ? kQueuedMsPerRecord
                                                            : kBlockingMsPerRecord * o.controllers);
            load.Row({o.run, o.mode == "rsp" ? "RspAddModCardRecord3" : "AddModCardRecord3",
                      std::to_string(o.controllers), std::to_string(total), Fixed(o.loadSeconds),
                      Fixed(total / o.loadSeconds), Fixed(total / o.loadSeconds / o.controllers),
                      Fixed(modelPerCtrl), Fixed(o.cards / modelPerCtrl)});
        }
        load.Print();
        if (readback_) {
            std::printf("\nread-back with GetCardRecord4, one host thread per controller:\n");
            Table read({"run", "after", "records read", "wrong or missing", "read s", "rec/s total",
                        "model rec/s total"});
            for (const Outcome& o : outcomes) {
                read.Row({o.run, o.mode, std::to_string(o.readBack), std::to_string(o.wrong),
                          Fixed(o.readSeconds), Fixed(o.readBack / o.readSeconds),
                          Fixed(1000.0 / kBlockingMsPerRecord)});
            }
            read.Print();
        }
        std::printf(
            "\nmodel: a Worker turn is %.0f ms and a link has one command in flight. A turn first\n"
            "reads what came in, then sends the next queued command, so a reply is read one turn\n"
            "after its command went out. Rsp load: every command is queued at once, and each turn\n"
            "that reads a reply sends the next record: one record per turn (%.0f ms, %.1f/s) per\n"
            "controller, on every link at once. Blocking load: the caller queues its next record\n"
            "only after its reply, when the turn that read the reply is past its send step, so a\n"
            "record takes two turns (%.0f ms, %.1f/s); and a blocking call holds the library's\n"
            "transaction lock until its reply, so blocking calls from many host threads go one at\n"
            "a time and the whole fleet gets the pace of one link (a little more, as the links'\n"
            "turns are out of phase and the next caller may catch its own Worker's turn sooner).\n"
            "The read-back uses the blocking GetCardRecord4 and is bound the same way.\n",
            kTurnMs, kQueuedMsPerRecord, 1000.0 / kQueuedMsPerRecord, kBlockingMsPerRecord,
            1000.0 / kBlockingMsPerRecord);
        std::printf("\nthe controllers' own records after each load:\n");
        Table held({"run", "after", "records held", "checked", "wrong or missing"});
        for (const Outcome& o : outcomes) {
            held.Row({o.run, o.mode, std::to_string(o.held), std::to_string(o.stored),
                      std::to_string(o.storedWrong)});
        }
        held.Print();
        long wrong = 0;
        for (const Outcome& o : outcomes) wrong += o.wrong + o.storedWrong;
        if (wrong != 0) Fail(std::to_string(wrong) + " records read back wrong or missing");
        return 0;
    }

  private:
    Outcome Load(const std::string& run, const std::string& mode, int controllers, int cards) {
        std::printf("%s, %d controller(s) x %d records, loaded by %s ...\n", run.c_str(),
                    controllers, cards, mode.c_str());
        std::fflush(stdout);
        Outcome o{run, mode, controllers, cards};
        Host host;
        sim::Simulator simulator;
        std::vector<std::string> macs;
        std::vector<sim::Controller*> sims;
        for (int c = 0; c < controllers; ++c) {
            char mac[16];
            std::snprintf(mac, sizeof mac, "C1:00:%02X", c + 1);
            macs.push_back(mac);
            sim::ControllerConfig config;
            config.mac = mac;
            config.port = host.Port();
            sims.push_back(&simulator.Add(config));
        }
        simulator.Start();
        if (!simulator.WaitAllIdentified(30s)) Fail("the simulated controllers did not identify");
        if (!WaitFor([&] { return ConnectedCount() == macs.size(); }, 30s)) {
            Fail("GetConnectedControllers did not list every controller");
        }

        auto start = Clock::now();
        if (mode == "rsp") {
            LoadQueued(macs, cards);
        } else {
            LoadBlocking(macs, cards);
        }
        o.loadSeconds = Seconds(Clock::now() - start);
        for (sim::Controller* c : sims) o.held += c->Family<sim::CardDatabase>().Counts().active;

        for (int c = 0; c < controllers; ++c) {
            auto& db = sims[static_cast<size_t>(c)]->Family<sim::CardDatabase>();
            for (int n = 0; n < cards; ++n) {
                ++o.stored;
                if (!Stored(db.Find(static_cast<uint32_t>(n + 1)), MakeRecord(c, n))) {
                    if (++o.storedWrong <= 5) {
                        std::fprintf(stderr, "%s holds record %d wrong\n", macs[c].c_str(), n);
                    }
                }
            }
        }

        if (readback_) {
            std::atomic<long> read{0}, wrong{0};
            start = Clock::now();
            std::vector<std::thread> threads;
            for (int c = 0; c < controllers; ++c) {
                threads.emplace_back([&, c] {
                    for (int n = 0; n < cards; n += readEvery_) {
                        std::string diff = ReadBack(macs[c], c, n);
                        ++read;
                        if (!diff.empty()) {
                            if (++wrong <= 5) {
                                std::fprintf(stderr, "%s record %d: %s\n", macs[c].c_str(), n,
                                             diff.c_str());
                            }
                        }
                    }
                });
            }
            for (std::thread& t : threads) t.join();
            o.readSeconds = Seconds(Clock::now() - start);
            o.readBack = read;
            o.wrong = wrong;
        }
        simulator.Stop();
        host.Close();
        return o;
    }

    static void LoadQueued(const std::vector<std::string>& macs, int cards) {
        long total = static_cast<long>(macs.size()) * cards;
        std::vector<bool> seen(static_cast<size_t>(total), false);
        // Queue all of them first, round robin, so that every link always has its next one.
        for (int n = 0; n < cards; ++n) {
            for (size_t c = 0; c < macs.size(); ++c) {
                Record r = MakeRecord(static_cast<int>(c), n);
                auto rspid = static_cast<uint32_t>(c * cards + n + 1);
                Check(RspAddModCardRecord3(rspid, macs[c].c_str(), CARD_RECORD_ARGS(r)),
                      "RspAddModCardRecord3");
            }
        }
        long drained = 0;
        std::vector<char> text(4200);
        bool done = WaitFor(
            [&] {
                int32_t waiting = 0;
                while (GetNumberResponse(&waiting) == 0 && waiting > 0) {
                    int32_t rspid = 0;
                    if (GetNextResponse(&rspid, text.data(), 4117) != 0) break;
                    if (std::strcmp(text.data(), "1027;0012;0;") != 0 || rspid < 1 ||
                        rspid > total || seen[static_cast<size_t>(rspid - 1)]) {
                        Fail("unexpected reply under rspid " + std::to_string(rspid) + ": " +
                             text.data());
                    }
                    seen[static_cast<size_t>(rspid - 1)] = true;
                    ++drained;
                }
                return drained == total;
            },
            std::chrono::seconds(60 + cards / 5), 2ms);
        if (!done) Fail("only " + std::to_string(drained) + " of the replies came");
    }

    static void LoadBlocking(const std::vector<std::string>& macs, int cards) {
        std::atomic<long> failed{0};
        std::vector<std::thread> threads;
        for (size_t c = 0; c < macs.size(); ++c) {
            threads.emplace_back([&, c] {
                for (int n = 0; n < cards; ++n) {
                    Record r = MakeRecord(static_cast<int>(c), n);
                    if (AddModCardRecord3(macs[c].c_str(), CARD_RECORD_ARGS(r)) != 0) ++failed;
                }
            });
        }
        for (std::thread& t : threads) t.join();
        if (failed != 0) Fail(std::to_string(failed.load()) + " AddModCardRecord3 calls failed");
    }

    const int cards_;
    const int controllers_;
    const int fleetCards_;
    const std::string runs_;
    const std::string modes_;
    const int readEvery_;
    const bool readback_;
    Sandbox sandbox_;
};

}  // namespace

int main(int argc, char** argv) {
    return BenchMain(
        "zanth-bench-cards", argc, argv, {"--keep", "--no-readback"},
        {"--cards", "--controllers", "--fleet-cards", "--runs", "--modes", "--read-every", "--dir"},
        PrintUsage, [](const Args& args) {
            Bench bench(args);
            return bench.Main();
        });
}
