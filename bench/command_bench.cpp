// zanth-bench-command: the round trip of one command, ControllerInfo, against a simulated
// controller on loopback, in three ways of calling:
//
//   spaced        blocking ControllerInfo after a random pause of 0-100 ms, so that calls land
//                 at every phase of the Worker's 47 ms turn
//   back-to-back  blocking ControllerInfo calls one after the other
//   Rsp + poll    RspControllerInfo, then GetNextResponse every millisecond until the reply
//
// The simulator's frame hook stamps the moment the command reaches the controller and the
// moment its reply leaves, which splits each spaced round trip into the Worker's pick-up of the
// command and its reading of the reply.
//
//   zanth-bench-command [--samples 200] [--seed N] [--dir D] [--keep]

#include <atomic>
#include <cstdio>
#include <random>
#include <thread>
#include <vector>

#include "bench/support/BenchSupport.h"
#include "protocol/Codes.h"
#include "tools/sim/Simulator.h"
#include "zanth.h"

namespace {

using namespace zanth::bench;
namespace sim = zanth::sim;
using zanth::ZANTH_CONTROLLER_INFO;
using zanth::ZANTH_CONTROLLER_INFO_RSP;

constexpr const char* kMac = "C0:00:01";

void PrintUsage(FILE* out) {
    std::fprintf(out,
                 "usage: zanth-bench-command [--samples N] [--seed N] [--dir D] [--keep]\n"
                 "  --samples N  round trips per way of calling (default 200)\n"
                 "  --seed N     seed of the random pauses (default 1)\n"
                 "  --dir D      where the scratch directory goes (default $TMPDIR or /tmp)\n"
                 "  --keep       keep the scratch directory (library log, message files)\n");
}

// Stamps of the one command in flight, written on the simulator's loop thread.
struct WireStamps {
    std::atomic<int64_t> commandIn{0};  // the 79 reached the controller
    std::atomic<int64_t> replyOut{0};   // the 1079 left it
};

int64_t Now() { return Clock::now().time_since_epoch().count(); }
double MsBetween(int64_t from, int64_t to) { return Ms(Clock::duration(to - from)); }

struct Sample {
    double total = 0;
    double pickup = -1;  // call to command at the controller
    double reply = -1;   // reply leaving the controller to the call's return
};

struct Run {
    std::string name;
    std::string model;
    std::vector<Sample> samples;
};

class Bench {
  public:
    Bench(const Args& args)
        : samples_(args.Int("--samples", 200, 1, 100000)),
          random_(static_cast<unsigned>(args.Int("--seed", 1, 0, 1 << 30))),
          sandbox_(args.Value("--dir").value_or(""), args.Flag("--keep")) {}

    int Main() {
        std::printf("zanth-bench-command: ControllerInfo round trip, %d samples per way of calling\n",
                    samples_);
        std::printf("machine: %s\n\n", MachineLine(sandbox_.Dir()).c_str());

        Host host;
        sim::Simulator simulator;
        simulator.SetFrameHook([this](const sim::Controller&, sim::Direction direction, int code,
                                      std::string_view) {
            if (direction == sim::Direction::FromHost && code == ZANTH_CONTROLLER_INFO) {
                stamps_.commandIn = Now();
            } else if (direction == sim::Direction::ToHost && code == ZANTH_CONTROLLER_INFO_RSP) {
                stamps_.replyOut = Now();
            }
        });
        sim::ControllerConfig config;
        config.mac = kMac;
        config.port = host.Port();
        sim::Controller& controller = simulator.Add(config);
        expected_ = sim::ControllerInfoPayload(config.model, config.firmware, kMac,
                                               sim::SerialFor(kMac));
        simulator.Start();
        if (!controller.WaitIdentified(10s)) Fail("the simulated controller did not identify");
        if (!WaitFor([] { return ConnectedCount() == 1; }, 10s)) {
            Fail("GetConnectedControllers did not list the controller");
        }
        // A first call outside the figures: the Worker's first turns and the caches.
        Blocking();

        std::vector<Run> runs;
        runs.push_back({"blocking, spaced 0-100 ms", "47-94, mean 70.5", {}});
        for (int i = 0; i < samples_; ++i) {
            Pause(0, 100);
            runs.back().samples.push_back(Blocking());
        }
        runs.push_back({"blocking, back-to-back", "47 or 94", {}});
        for (int i = 0; i < samples_; ++i) runs.back().samples.push_back(Blocking());
        runs.push_back({"Rsp + GetNextResponse poll", "47-95, mean 71", {}});
        for (int i = 0; i < samples_; ++i) {
            Pause(0, 100);
            runs.back().samples.push_back(Queued(static_cast<uint32_t>(i + 1)));
        }

        sim::ControllerStats stats = controller.Stats();
        simulator.Stop();
        host.Close();

        Table table({"way of calling", "n", "min ms", "p50 ms", "p90 ms", "p99 ms", "max ms",
                     "mean ms", "model ms"});
        for (const Run& run : runs) {
            std::vector<double> totals;
            for (const Sample& s : run.samples) totals.push_back(s.total);
            Summary s = Summarize(totals);
            table.Row({run.name, std::to_string(s.n), Fixed(s.min), Fixed(s.p50), Fixed(s.p90),
                       Fixed(s.p99), Fixed(s.max), Fixed(s.mean), run.model});
        }
        table.Print();

        std::printf("\nwhere the spaced blocking round trip goes (frame hook stamps):\n");
        Table parts({"part", "min ms", "p50 ms", "p99 ms", "max ms", "mean ms", "model ms"});
        std::vector<double> pickup, reply;
        for (const Sample& s : runs[0].samples) {
            if (s.pickup >= 0) pickup.push_back(s.pickup);
            if (s.reply >= 0) reply.push_back(s.reply);
        }
        Summary p = Summarize(pickup), r = Summarize(reply);
        parts.Row({"call -> command at controller", Fixed(p.min), Fixed(p.p50), Fixed(p.p99),
                   Fixed(p.max), Fixed(p.mean), "0-47, mean 23.5"});
        parts.Row({"reply leaves -> call returns", Fixed(r.min), Fixed(r.p50), Fixed(r.p99),
                   Fixed(r.max), Fixed(r.mean), "47 (one turn)"});
        parts.Print();

        size_t sameTurn = 0;
        for (const Sample& s : runs[1].samples) sameTurn += s.total < 70.5 ? 1 : 0;
        std::printf("\nback-to-back: %zu of %zu calls went out in the turn that read the former "
                    "reply (under 70.5 ms)\n", sameTurn, runs[1].samples.size());
        std::printf(
            "controller received %llu ControllerInfo commands, sent %llu replies\n"
            "model: the Worker turns on a 47 ms grid. A command queued in sendMon wakes it and waits\n"
            "for the next grid boundary (0-47 ms, uniform for a call at a random moment), is sent\n"
            "at once, and the reply, back within microseconds, is read one whole turn later\n"
            "(47 ms): 47-94 ms. Back-to-back, the next call comes while the Worker is still in the\n"
            "turn that delivered the reply: if it beats the Worker to sendMon it goes out in that\n"
            "turn (47 ms), otherwise in the next (94 ms). The Rsp form adds up to 1 ms of polling.\n",
            static_cast<unsigned long long>(stats.Commands(ZANTH_CONTROLLER_INFO)),
            static_cast<unsigned long long>(stats.Sent(ZANTH_CONTROLLER_INFO_RSP)));
        return 0;
    }

  private:
    void Pause(int lowMs, int highMs) {
        std::uniform_int_distribution<int> us(lowMs * 1000, highMs * 1000);
        std::this_thread::sleep_for(std::chrono::microseconds(us(random_)));
    }

    Sample Blocking() {
        char info[512];
        stamps_.commandIn = 0;
        stamps_.replyOut = 0;
        int64_t start = Now();
        int32_t result = ControllerInfo(kMac, info, sizeof info);
        int64_t end = Now();
        if (result != 0) Fail("ControllerInfo returned " + std::to_string(result));
        if (expected_ != info) Fail(std::string("ControllerInfo gave an unexpected text: ") + info);
        return Stamped(start, end);
    }

    Sample Queued(uint32_t rspid) {
        stamps_.commandIn = 0;
        stamps_.replyOut = 0;
        int64_t start = Now();
        Check(RspControllerInfo(rspid, kMac), "RspControllerInfo");
        std::vector<char> reply(4200);
        int32_t got = 0;
        bool arrived = WaitFor(
            [&] {
                int32_t count = 0;
                GetNumberResponse(&count);
                if (count == 0) return false;
                got = -1;
                return GetNextResponse(&got, reply.data(), static_cast<int32_t>(reply.size())) == 0;
            },
            5s, 1ms);
        int64_t end = Now();
        if (!arrived) Fail("no reply to RspControllerInfo within 5 s");
        if (got != static_cast<int32_t>(rspid)) {
            Fail("GetNextResponse gave rspid " + std::to_string(got) + ", expected " +
                 std::to_string(rspid));
        }
        if (std::string(reply.data()).find(expected_) == std::string::npos) {
            Fail(std::string("RspControllerInfo gave an unexpected frame: ") + reply.data());
        }
        return Stamped(start, end);
    }

    Sample Stamped(int64_t start, int64_t end) {
        Sample s;
        s.total = MsBetween(start, end);
        int64_t in = stamps_.commandIn, out = stamps_.replyOut;
        if (in >= start && in <= end) s.pickup = MsBetween(start, in);
        if (out >= start && out <= end) s.reply = MsBetween(out, end);
        return s;
    }

    const int samples_;
    std::mt19937 random_;
    Sandbox sandbox_;
    WireStamps stamps_;
    std::string expected_;
};

}  // namespace

int main(int argc, char** argv) {
    return BenchMain("zanth-bench-command", argc, argv, {"--keep"}, {"--samples", "--seed", "--dir"}, PrintUsage,
                     [](const Args& args) {
                         Bench bench(args);
                         return bench.Main();
                     });
}
