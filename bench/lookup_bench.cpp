// zanth-bench-lookup: how long a card look-up takes from the moment a simulated controller puts
// it on the wire (the simulator's frame hook stamps it on its loop thread, in this process) to
// the moment the host has it:
//
//   poll      GetNextLookup in a tight loop on the host's thread
//   callback  the SetLookupCallback callback, on the library's look-up thread
//   decision  then the host answers from its own thread with RecheckLookupCard, and the figure
//             runs until the decision (code 75) reaches the controller: card read to door answer
//
// Look-ups are sent one at a time, each after a random pause, so that they land at every phase
// of the Worker's 47 ms turn and of the callback thread's one-second sleep. Polling runs first:
// a callback can't be unregistered, and each look-up goes to whichever asks first.
//
//   zanth-bench-lookup [--samples 50] [--min-gap-ms 200] [--max-gap-ms 1200] [--seed N]

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <thread>

#include "bench/support/BenchSupport.h"
#include "protocol/Codes.h"
#include "tools/sim/Simulator.h"
#include "zanth.h"

namespace {

using namespace zanth::bench;
namespace sim = zanth::sim;
using zanth::ZANTH_CHECK_CARD;
using zanth::ZANTH_CHECK_CARD_RSP;
using zanth::ZANTH_RECHECK_LOOKUP_CARD;

constexpr const char* kMac = "C0:00:02";
constexpr int kDoor = 1;

void PrintUsage(FILE* out) {
    std::fprintf(out,
                 "usage: zanth-bench-lookup [--samples N] [--poll-samples N] [--min-gap-ms N]\n"
                 "                          [--max-gap-ms N] [--no-decision] [--seed N] [--dir D] [--keep]\n"
                 "  --samples N       look-ups through the callback (default 50)\n"
                 "  --poll-samples N  look-ups through GetNextLookup (default: as --samples)\n"
                 "  --min-gap-ms N    shortest pause before a look-up (default 200)\n"
                 "  --max-gap-ms N    longest pause (default 1200: one callback sleep of spread)\n"
                 "  --no-decision     don't answer the look-ups with RecheckLookupCard\n"
                 "  --seed N          seed of the random pauses (default 1)\n"
                 "  --dir D, --keep   scratch directory base; keep it\n");
}

// The card number in a look-up text "MAC;door;card;facility;" (field 2) or a recheck payload
// "door;card;decision;" (field 1).
uint32_t CardField(std::string_view text, int field) {
    for (int i = 0; i < field; ++i) {
        size_t semi = text.find(';');
        if (semi == std::string_view::npos) return 0;
        text.remove_prefix(semi + 1);
    }
    return static_cast<uint32_t>(std::strtoul(std::string(text.substr(0, text.find(';'))).c_str(),
                                              nullptr, 10));
}

// A clear frame is "CCCC;LLLL;payload".
std::string_view Payload(std::string_view frame) {
    for (int i = 0; i < 2; ++i) {
        size_t semi = frame.find(';');
        if (semi == std::string_view::npos) return {};
        frame.remove_prefix(semi + 1);
    }
    return frame;
}

// Times by card number, from the simulator's loop thread and the library's callback thread.
class Stamps {
  public:
    void Put(std::map<uint32_t, Clock::time_point>& where, uint32_t card) {
        {
            std::lock_guard<std::mutex> g(lock_);
            where[card] = Clock::now();
        }
        changed_.notify_all();
    }
    std::optional<Clock::time_point> Wait(std::map<uint32_t, Clock::time_point>& where,
                                          uint32_t card, Clock::duration timeout) {
        std::unique_lock<std::mutex> g(lock_);
        if (!changed_.wait_for(g, timeout, [&] { return where.count(card) != 0; })) {
            return std::nullopt;
        }
        return where[card];
    }
    std::map<uint32_t, Clock::time_point> sent, delivered, decided;

  private:
    std::mutex lock_;
    std::condition_variable changed_;
};

Stamps stamps;

int32_t OnLookup(char* text) {
    stamps.Put(stamps.delivered, CardField(text, 2));
    return 0;
}

struct Row {
    std::string name;
    std::vector<double> values;
    std::string model;
};

class Bench {
  public:
    explicit Bench(const Args& args)
        : samples_(args.Int("--samples", 50, 1, 100000)),
          pollSamples_(args.Int("--poll-samples", samples_, 0, 100000)),
          minGap_(args.Int("--min-gap-ms", 200, 0, 60000)),
          maxGap_(args.Int("--max-gap-ms", 1200, 0, 60000)),
          decide_(!args.Flag("--no-decision")),
          random_(static_cast<unsigned>(args.Int("--seed", 1, 0, 1 << 30))),
          sandbox_(args.Value("--dir").value_or(""), args.Flag("--keep")) {
        if (maxGap_ < minGap_) Fail("--max-gap-ms is below --min-gap-ms");
    }

    int Main() {
        std::printf("zanth-bench-lookup: card look-up latency, %d polled and %d by callback, "
                    "pauses %d-%d ms\n", pollSamples_, samples_, minGap_, maxGap_);
        std::printf("machine: %s\n\n", MachineLine(sandbox_.Dir()).c_str());

        Host host;
        sim::Simulator simulator;
        simulator.SetFrameHook([](const sim::Controller&, sim::Direction direction, int code,
                                  std::string_view frame) {
            if (direction == sim::Direction::ToHost && code == ZANTH_CHECK_CARD) {
                stamps.Put(stamps.sent, CardField(Payload(frame), 2));
            } else if (direction == sim::Direction::FromHost &&
                       code == ZANTH_RECHECK_LOOKUP_CARD) {
                stamps.Put(stamps.decided, CardField(Payload(frame), 1));
            }
        });
        sim::ControllerConfig config;
        config.mac = kMac;
        config.port = host.Port();
        sim::Controller& controller = simulator.Add(config);
        simulator.Start();
        if (!controller.WaitIdentified(10s)) Fail("the simulated controller did not identify");
        if (!WaitFor([] { return ConnectedCount() == 1; }, 10s)) {
            Fail("GetConnectedControllers did not list the controller");
        }

        Row poll{"GetNextLookup, tight poll", {}, "0-47, mean 23.5"};
        for (int i = 0; i < pollSamples_; ++i) {
            uint32_t card = 100000 + static_cast<uint32_t>(i);
            Pause();
            controller.SendLookup(kDoor, card);
            poll.values.push_back(Polled(card));
        }

        Check(SetLookupCallback(OnLookup), "SetLookupCallback");
        Row callback{"SetLookupCallback", {}, "0-1047, mean 524"};
        Row decision{"card read -> decision at door", {}, "0-1094, mean 547"};
        Row recheck{"  of which RecheckLookupCard call", {}, "47-94, mean 70.5"};
        for (int i = 0; i < samples_; ++i) {
            uint32_t card = 200000 + static_cast<uint32_t>(i);
            Pause();
            controller.SendLookup(kDoor, card);
            auto sent = stamps.Wait(stamps.sent, card, 5s);
            if (!sent) Fail("the simulator did not send look-up " + std::to_string(card));
            auto got = stamps.Wait(stamps.delivered, card, 5s);
            if (!got) Fail("look-up " + std::to_string(card) + " did not reach the callback in 5 s");
            callback.values.push_back(Ms(*got - *sent));
            if (!decide_) continue;
            std::string answer = sim::RecheckText(kDoor, card, true);
            auto start = Clock::now();
            int32_t result = RecheckLookupCard(kMac, answer.c_str());
            auto end = Clock::now();
            if (result != 0) Fail("RecheckLookupCard returned " + std::to_string(result));
            auto decided = stamps.Wait(stamps.decided, card, 5s);
            if (!decided) Fail("the decision on " + std::to_string(card) + " never reached the door");
            decision.values.push_back(Ms(*decided - *sent));
            recheck.values.push_back(Ms(end - start));
        }

        sim::ControllerStats stats = controller.Stats();
        simulator.Stop();
        host.Close();

        Table table({"path", "n", "min ms", "p50 ms", "p90 ms", "p99 ms", "max ms", "mean ms",
                     "model ms"});
        std::vector<Row> rows = {poll, callback};
        if (decide_) {
            rows.push_back(decision);
            rows.push_back(recheck);
        }
        for (const Row& row : rows) {
            Summary s = Summarize(row.values);
            table.Row({row.name, std::to_string(s.n), Fixed(s.min), Fixed(s.p50), Fixed(s.p90),
                       Fixed(s.p99), Fixed(s.max), Fixed(s.mean), row.model});
        }
        table.Print();
        std::printf(
            "\ncontroller sent %llu look-ups, got %llu acknowledgements (73) and %llu decisions (75)\n"
            "model: the look-up waits in the socket until the Worker's next turn (0-47 ms after\n"
            "it leaves the controller; the Worker turns on a 47 ms grid and reads one message per\n"
            "turn), then goes into lookupMon. A tight GetNextLookup loop takes it from there at\n"
            "once. The callback thread drains the queue and then sleeps 1000 ms, so a look-up waits\n"
            "for the rest of that sleep as well: 0-1000 ms on top, mean about 500. The decision\n"
            "reaches the door when the Worker picks RecheckLookupCard's command up (0-47 ms); the\n"
            "call itself returns one turn later, when the Worker reads the reply (47-94 ms).\n",
            static_cast<unsigned long long>(stats.Sent(ZANTH_CHECK_CARD)),
            static_cast<unsigned long long>(stats.Acks(ZANTH_CHECK_CARD_RSP)),
            static_cast<unsigned long long>(stats.Commands(ZANTH_RECHECK_LOOKUP_CARD)));
        return 0;
    }

  private:
    void Pause() {
        std::uniform_int_distribution<int> us(minGap_ * 1000, maxGap_ * 1000);
        std::this_thread::sleep_for(std::chrono::microseconds(us(random_)));
    }

    // Spins on GetNextLookup until the look-up of `card` comes out; the time from its stamp.
    double Polled(uint32_t card) {
        char text[142];
        auto deadline = Clock::now() + 5s;
        for (;;) {
            if (GetNextLookup(text, 140) == 0) {
                auto now = Clock::now();
                uint32_t got = CardField(text, 2);
                if (got != card) Fail("GetNextLookup gave card " + std::to_string(got));
                auto sent = stamps.Wait(stamps.sent, card, 1s);
                if (!sent) Fail("no send stamp for look-up " + std::to_string(card));
                return Ms(now - *sent);
            }
            if (Clock::now() >= deadline) {
                Fail("look-up " + std::to_string(card) + " did not reach GetNextLookup in 5 s");
            }
        }
    }

    const int samples_;
    const int pollSamples_;
    const int minGap_;
    const int maxGap_;
    const bool decide_;
    std::mt19937 random_;
    Sandbox sandbox_;
};

}  // namespace

int main(int argc, char** argv) {
    return BenchMain("zanth-bench-lookup", argc, argv, {"--keep", "--no-decision"}, {"--samples", "--poll-samples", "--min-gap-ms", "--max-gap-ms", "--seed",
                      "--dir"}, PrintUsage,
                     [](const Args& args) {
                         Bench bench(args);
                         return bench.Main();
                     });
}
