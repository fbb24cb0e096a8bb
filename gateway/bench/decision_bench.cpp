// zanthd-bench: zanthd's figures against controllers simulated in this process, zanthd itself
// running as users run it (a child process, the Release build beside this program).
//
//   decisions  each controller presents a card, waits for the decision and presents the next
//              after a random pause; the simulator's frame hook stamps the look-up as it leaves
//              the controller and the decision (code 75) as it reaches it, so the figure is the
//              whole road: card at the door to the answer at the door, through zanthd's rules
//   callback   the same for a host on the library's callback road: SetLookupCallback, and
//              RecheckLookupCard from the callback (the library in this process)
//   rest       a local export over HTTP (GET /api/v1/controllers, POST /call/GetConnectedControllers)
//              against GetConnectedControllers called directly, each with the same controllers
//              connected; and clients, each calling its own controller back to back through
//              POST /call/ControllerInfo
//
//   zanthd-bench [--decisions 1,100] [--samples 400] [--min-gap-ms 100] [--max-gap-ms 1100]
//                [--callback-samples 40] [--rest-controllers 100] [--rest-samples 2000]
//                [--clients 100] [--clients-s 20] [--zanthd PATH] [--dir D] [--keep]
//
// It prints tables next to the model and asserts nothing.

#include <httplib.h>
#include <signal.h>
#include <sys/wait.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "bench/support/BenchSupport.h"
#include "protocol/Codes.h"
#include "tools/sim/Payloads.h"
#include "tools/sim/Simulator.h"
#include "zanth.h"

namespace {

using namespace zanth::bench;
namespace sim = zanth::sim;
using nlohmann::json;

constexpr const char* kToken = "bench-token";
constexpr uint32_t kCard = 1001;
constexpr double kTurnMs = 47.0;

void PrintUsage(FILE* out) {
    std::fprintf(out,
                 "usage: zanthd-bench [--decisions 1,100] [--samples N] [--min-gap-ms N] [--max-gap-ms N]\n"
                 "                    [--callback-samples N] [--rest-controllers N] [--rest-samples N]\n"
                 "                    [--clients N] [--clients-s N] [--zanthd PATH] [--dir D] [--keep]\n"
                 "  --decisions LIST      controller counts of the decision runs (default 1,100; none: no runs)\n"
                 "  --samples N           decisions measured per run (default 400)\n"
                 "  --min-gap-ms, --max-gap-ms  a controller's pause between a decision and its next card\n"
                 "                        (default 100 and 1100)\n"
                 "  --callback-samples N  decisions on the callback road (default 40; 0: none)\n"
                 "  --rest-controllers N  controllers connected for the REST figures (default 100; 0: none)\n"
                 "  --rest-samples N      sequential calls per REST path (default 2000)\n"
                 "  --clients N           clients calling their own controllers at once (default 100)\n"
                 "  --clients-s N         how long they call (default 20)\n"
                 "  --zanthd PATH         the zanthd to run (default: beside this program)\n"
                 "  --dir D, --keep       scratch directory base; keep it\n");
}

std::string Mac(int i) {
    char text[16];
    std::snprintf(text, sizeof text, "C1:%02X:%02X", (i >> 8) & 255, i & 255);
    return text;
}

// The decision stamps, by controller: a look-up out, its decision in.
class Stamps {
  public:
    void Sent(const std::string& mac) {
        std::lock_guard<std::mutex> lock(mutex_);
        sent_[mac] = Clock::now();
    }
    void Decided(const std::string& mac) {
        auto now = Clock::now();
        {
            std::lock_guard<std::mutex> lock(mutex_);
            auto it = sent_.find(mac);
            if (it == sent_.end()) return;
            latencies_.push_back(Ms(now - it->second));
            sent_.erase(it);
            decided_.push_back(mac);
        }
        cv_.notify_all();
    }
    // Controllers whose decision came since the last call; waits up to `wait` for one.
    std::vector<std::string> TakeDecided(Clock::duration wait) {
        std::unique_lock<std::mutex> lock(mutex_);
        cv_.wait_for(lock, wait, [this] { return !decided_.empty(); });
        std::vector<std::string> out;
        out.swap(decided_);
        return out;
    }
    std::vector<double> Latencies() {
        std::lock_guard<std::mutex> lock(mutex_);
        return latencies_;
    }
    size_t Count() {
        std::lock_guard<std::mutex> lock(mutex_);
        return latencies_.size();
    }
    size_t Outstanding() {
        std::lock_guard<std::mutex> lock(mutex_);
        return sent_.size();
    }

  private:
    std::mutex mutex_;
    std::condition_variable cv_;
    std::map<std::string, Clock::time_point> sent_;
    std::vector<std::string> decided_;
    std::vector<double> latencies_;
};

void HookDecisions(sim::Simulator& simulator, Stamps& stamps) {
    simulator.SetFrameHook([&stamps](const sim::Controller& c, sim::Direction d, int code, std::string_view) {
        if (d == sim::Direction::ToHost && code == zanth::ZANTH_CHECK_CARD) stamps.Sent(c.Mac());
        if (d == sim::Direction::FromHost && code == zanth::ZANTH_RECHECK_LOOKUP_CARD) stamps.Decided(c.Mac());
    });
}

// Each controller presents the card, and after its decision and a random pause the next one,
// until `samples` decisions are in. The stamps are taken by the simulator's hook.
void PresentCards(sim::Simulator& simulator, Stamps& stamps, size_t samples, int minGap, int maxGap,
                  unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> gap(minGap, maxGap);
    std::multimap<Clock::time_point, size_t> next;
    std::map<std::string, size_t> index;
    for (size_t i = 0; i < simulator.Count(); ++i) {
        index[simulator.At(i).Mac()] = i;
        next.emplace(Clock::now() + std::chrono::milliseconds(gap(random)), i);
    }
    size_t sent = 0;
    auto deadline = Clock::now() + std::chrono::seconds(60) + std::chrono::milliseconds(samples * (maxGap + 200) / std::max<size_t>(simulator.Count(), 1) * 3);
    while (stamps.Count() < samples) {
        if (Clock::now() > deadline) Fail("the decisions did not come: " + std::to_string(stamps.Count()) + " of " + std::to_string(samples));
        auto now = Clock::now();
        while (!next.empty() && next.begin()->first <= now && sent < samples) {
            simulator.At(next.begin()->second).SendLookup(1, kCard);
            ++sent;
            next.erase(next.begin());
        }
        auto wait = next.empty() ? std::chrono::milliseconds(50)
                                 : std::chrono::duration_cast<std::chrono::milliseconds>(next.begin()->first - now);
        for (const std::string& mac : stamps.TakeDecided(std::clamp(wait, std::chrono::milliseconds(1), std::chrono::milliseconds(50)))) {
            next.emplace(Clock::now() + std::chrono::milliseconds(gap(random)), index[mac]);
        }
    }
}

// zanthd in a child process, with a door and a cardholder for every controller.
class Gateway {
  public:
    Gateway(const Sandbox& box, const std::string& program, int controllers, int threads)
        : dir_(box.Path("zanthd-" + std::to_string(++runs_) + "-" + std::to_string(controllers))),
          port_(FreePort()), http_(FreePort()) {
        std::filesystem::create_directories(dir_);
        std::ofstream config(dir_ + "/zanthd.toml");
        // The token is kToken; the config keeps its SHA-256.
        config << "[gateway]\nlog_level = \"warn\"\n[library]\nport = " << port_ << "\ncontrollers = " << controllers
               << "\n[http]\nlisten = \"127.0.0.1:" << http_ << "\"\nthreads = " << threads
               << "\nmax_body_bytes = 1048576\n[[tokens]]\nname = \"bench\"\nscope = \"operator\"\nsha256 = \""
               << "7137e16f75a1d75b6fd65930672814806cdc1a0d6e0aa38611afc996a402258b\"\n";
        for (int i = 0; i < controllers; ++i) {
            config << "[[doors]]\nname = \"d" << i << "\"\ncontroller = \"" << Mac(i) << "\"\ndoor = 1\nopen_ms = 0\n";
        }
        config.close();
        pid_ = Spawn({program, "--config", dir_ + "/zanthd.toml"}, dir_ + "/zanthd.log");
        if (!WaitFor([this] { return Client().Get("/api/v1/readyz", Headers()) && ChildRunning(pid_); }, 60s, 50ms)) {
            Fail("zanthd did not come up: " + ReadFile(dir_ + "/zanthd.log"));
        }
        json holder = {{"name", "bench"}, {"cards", {{{"number", kCard}}}}, {"access", json::array()}};
        for (int i = 0; i < controllers; ++i) holder["access"].push_back({{"door", "d" + std::to_string(i)}});
        auto r = Client().Post("/api/v1/cardholders", Headers(), holder.dump(), "application/json");
        if (!r || r->status != 201) Fail("the cardholder was refused: " + (r ? r->body : std::string("no answer")));
    }
    ~Gateway() {
        ::kill(pid_, SIGTERM);
        WaitExit(pid_, 30s);
    }
    int Port() const { return port_; }
    pid_t Pid() const { return pid_; }
    httplib::Client Client() const {
        httplib::Client c("127.0.0.1", http_);
        c.set_read_timeout(30, 0);
        c.set_keep_alive(true);
        c.set_tcp_nodelay(true);
        return c;
    }
    static httplib::Headers Headers() { return {{"Authorization", std::string("Bearer ") + kToken}}; }
    json Get(const std::string& path) const {
        auto r = Client().Get(("/api/v1" + path).c_str(), Headers());
        if (!r || r->status != 200) Fail("GET " + path + " failed");
        return json::parse(r->body);
    }
    // Every controller connected and its card written into it.
    void WaitSettled(size_t controllers) const {
        if (!WaitFor([&] { return Get("/controllers")["connected"] == controllers; }, 120s, 200ms)) {
            Fail("zanthd did not see every controller");
        }
        if (!WaitFor([&] { return Get("/pending-card-changes")["pending"].empty(); }, 300s, 200ms)) {
            Fail("the pending card changes were not written");
        }
    }

  private:
    static inline int runs_ = 0;
    std::string dir_;
    int port_, http_;
    pid_t pid_ = 0;
};

std::vector<std::string> Cells(const std::string& name, const Summary& s, const std::string& model) {
    return {name, std::to_string(s.n), Fixed(s.min), Fixed(s.p50), Fixed(s.p90), Fixed(s.p99), Fixed(s.max), model};
}

class Bench {
  public:
    explicit Bench(const Args& args)
        : decisions_(args.Value("--decisions") == std::optional<std::string>("none")
                         ? std::vector<int>{}
                         : args.IntList("--decisions", {1, 100})),
          samples_(args.Int("--samples", 400, 1, 1000000)),
          minGap_(args.Int("--min-gap-ms", 100, 0, 60000)),
          maxGap_(args.Int("--max-gap-ms", 1100, 0, 60000)),
          callbackSamples_(args.Int("--callback-samples", 40, 0, 100000)),
          restControllers_(args.Int("--rest-controllers", 100, 0, 10000)),
          restSamples_(args.Int("--rest-samples", 2000, 1, 1000000)),
          clients_(args.Int("--clients", 100, 0, 10000)),
          clientSeconds_(args.Int("--clients-s", 20, 1, 3600)),
          zanthd_(args.Value("--zanthd").value_or(SiblingProgram("zanthd"))),
          sandbox_(args.Value("--dir").value_or(""), args.Flag("--keep")) {
        if (maxGap_ < minGap_) Fail("--max-gap-ms is below --min-gap-ms");
    }

    int Main() {
        std::printf("zanthd-bench: door decisions, the callback road, REST over a local export, clients at once\n");
        std::printf("machine: %s\nzanthd: %s\n\n", MachineLine(sandbox_.Dir()).c_str(), zanthd_.c_str());
        RaiseOpenFiles(65536);
        Table decisions({"road", "n", "min ms", "p50 ms", "p90 ms", "p99 ms", "max ms", "model ms"});
        for (int n : decisions_) {
            if (n > 0) Decisions(n, decisions);
        }
        if (callbackSamples_ > 0) Callback(decisions);
        std::printf("Door decisions, card at the door to the decision frame at the door:\n\n");
        decisions.Print();
        std::printf("\nmodel: the look-up waits 0-47 ms for its Worker's turn, zanthd decides within a\n"
                    "millisecond, and the decision leaves at the Worker's next turn: 47-94 ms. Goal: p50 <= 75,\n"
                    "p99 <= 104. The callback road waits for the library's one-second sleep on top: 0-1094.\n");
        if (restControllers_ > 0) Rest();
        return 0;
    }

  private:
    void Decisions(int n, Table& table) {
        Gateway gateway(sandbox_, zanthd_, n, std::max(64, clients_ + 16));
        Stamps stamps;
        sim::Simulator simulator(sim::SimulatorOptions{64});
        HookDecisions(simulator, stamps);
        for (int i = 0; i < n; ++i) {
            sim::ControllerConfig c;
            c.mac = Mac(i);
            c.port = gateway.Port();
            simulator.Add(c);
        }
        simulator.Start();
        if (!simulator.WaitAllIdentified(std::chrono::milliseconds(120000))) Fail("the controllers did not identify");
        gateway.WaitSettled(static_cast<size_t>(n));
        double cpu0 = ProcCpuSeconds(gateway.Pid());
        auto t0 = Clock::now();
        PresentCards(simulator, stamps, static_cast<size_t>(samples_), minGap_, maxGap_, 7);
        double seconds = Seconds(Clock::now() - t0);
        double cpu = ProcCpuSeconds(gateway.Pid()) - cpu0;
        simulator.Stop();
        table.Row(Cells("zanthd, " + std::to_string(n) + " controller" + (n == 1 ? "" : "s") + " (" +
                            Fixed(static_cast<double>(samples_) / seconds, 1) + " look-ups/s, zanthd " +
                            Fixed(100 * cpu / seconds, 0) + "% CPU)",
                        Summarize(stamps.Latencies()), "47-94"));
    }

    void Callback(Table& table) {
        Host host;
        Stamps local;
        sim::Simulator simulator;
        HookDecisions(simulator, local);
        sim::ControllerConfig c;
        c.mac = Mac(0);
        c.port = host.Port();
        simulator.Add(c);
        simulator.Start();
        if (!simulator.WaitAllIdentified(std::chrono::milliseconds(10000))) Fail("the controller did not identify");
        // The host answers from the callback, as a host on this road does.
        Check(SetLookupCallback([](char* text) -> int32_t {
                  std::string t(text);
                  std::string mac = t.substr(0, t.find(';'));
                  std::string answer = sim::RecheckText(1, kCard, true);
                  RecheckLookupCard(mac.c_str(), answer.c_str());
                  return 0;
              }),
              "SetLookupCallback");
        PresentCards(simulator, local, static_cast<size_t>(callbackSamples_), 200, 1200, 11);
        simulator.Stop();
        host.Close();
        table.Row(Cells("library callback, 1 controller", Summarize(local.Latencies()), "47-1094"));
    }

    void Rest() {
        const int n = restControllers_;
        Gateway gateway(sandbox_, zanthd_, n, std::max(64, clients_ + 16));
        Host host;
        sim::Simulator toGateway(sim::SimulatorOptions{64}), toHost(sim::SimulatorOptions{64});
        for (int i = 0; i < n; ++i) {
            sim::ControllerConfig c;
            c.mac = Mac(i);
            c.port = gateway.Port();
            toGateway.Add(c);
            c.port = host.Port();
            toHost.Add(c);
        }
        toGateway.Start();
        toHost.Start();
        if (!toGateway.WaitAllIdentified(std::chrono::milliseconds(120000)) ||
            !toHost.WaitAllIdentified(std::chrono::milliseconds(120000))) {
            Fail("the controllers did not identify");
        }
        gateway.WaitSettled(static_cast<size_t>(n));
        if (!WaitFor([n] { return ConnectedCount() == static_cast<size_t>(n); }, 60s)) Fail("the host lacks controllers");

        std::vector<char> buffer(65536);
        std::vector<double> direct, get, call;
        for (int i = 0; i < restSamples_; ++i) {
            auto t = Clock::now();
            Check(GetConnectedControllers(buffer.data(), static_cast<int32_t>(buffer.size())), "GetConnectedControllers");
            direct.push_back(Ms(Clock::now() - t) * 1000);
        }
        httplib::Client client = gateway.Client();
        for (int i = 0; i < restSamples_; ++i) {
            auto t = Clock::now();
            auto r = client.Get("/api/v1/controllers", Gateway::Headers());
            get.push_back(Ms(Clock::now() - t) * 1000);
            if (!r || r->status != 200) Fail("GET /controllers failed");
        }
        for (int i = 0; i < restSamples_; ++i) {
            auto t = Clock::now();
            auto r = client.Post("/api/v1/call/GetConnectedControllers", Gateway::Headers(), "{}", "application/json");
            call.push_back(Ms(Clock::now() - t) * 1000);
            if (!r || r->status != 200) Fail("POST /call/GetConnectedControllers failed");
        }
        Summary d = Summarize(direct), g = Summarize(get), c = Summarize(call);
        Table overhead({"path, " + std::to_string(n) + " controllers connected", "n", "p50 us", "p99 us",
                        "over direct p50 us", "over direct p99 us"});
        overhead.Row({"GetConnectedControllers, called directly", std::to_string(d.n), Fixed(d.p50), Fixed(d.p99), "", ""});
        overhead.Row({"GET /api/v1/controllers", std::to_string(g.n), Fixed(g.p50), Fixed(g.p99),
                      Fixed(g.p50 - d.p50), Fixed(g.p99 - d.p99)});
        overhead.Row({"POST /api/v1/call/GetConnectedControllers", std::to_string(c.n), Fixed(c.p50), Fixed(c.p99),
                      Fixed(c.p50 - d.p50), Fixed(c.p99 - d.p99)});
        std::printf("\nREST against the direct call (keep-alive client, one request at a time):\n\n");
        overhead.Print();
        toHost.Stop();
        host.Close();

        if (clients_ > 0) Clients(gateway, std::min(clients_, n));
        toGateway.Stop();
    }

    void Clients(const Gateway& gateway, int count) {
        std::atomic<bool> go{false}, stop{false};
        std::vector<std::vector<double>> latencies(static_cast<size_t>(count));
        std::vector<size_t> failures(static_cast<size_t>(count), 0);
        std::mutex whyMutex;
        std::map<std::string, size_t> why;
        std::vector<std::thread> threads;
        for (int i = 0; i < count; ++i) {
            threads.emplace_back([&, i] {
                httplib::Client client = gateway.Client();
                std::string body = json({{"mac", Mac(i)}}).dump();
                while (!go) std::this_thread::sleep_for(1ms);
                while (!stop) {
                    auto t = Clock::now();
                    auto r = client.Post("/api/v1/call/ControllerInfo", Gateway::Headers(), body, "application/json");
                    double ms = Ms(Clock::now() - t);
                    if (r && r->status == 200) {
                        latencies[static_cast<size_t>(i)].push_back(ms);
                    } else {
                        ++failures[static_cast<size_t>(i)];
                        std::lock_guard<std::mutex> lock(whyMutex);
                        ++why[(r ? std::to_string(r->status) + " " + r->body.substr(0, 120) : httplib::to_string(r.error())) +
                              " (call " + std::to_string(latencies[static_cast<size_t>(i)].size() + failures[static_cast<size_t>(i)]) + ")"];
                    }
                }
            });
        }
        double cpu0 = ProcCpuSeconds(gateway.Pid());
        auto t0 = Clock::now();
        go = true;
        std::this_thread::sleep_for(std::chrono::seconds(clientSeconds_));
        stop = true;
        for (std::thread& t : threads) t.join();
        double seconds = Seconds(Clock::now() - t0);
        double cpu = ProcCpuSeconds(gateway.Pid()) - cpu0;
        std::vector<double> all;
        size_t failed = 0;
        for (int i = 0; i < count; ++i) {
            all.insert(all.end(), latencies[static_cast<size_t>(i)].begin(), latencies[static_cast<size_t>(i)].end());
            failed += failures[static_cast<size_t>(i)];
        }
        Summary s = Summarize(all);
        double rate = static_cast<double>(s.n) / seconds;
        Table t({"clients", "s", "calls", "failed", "calls/s", "per controller /s", "vs one per turn (21.3/s)",
                 "vs one per two turns", "p50 ms", "p99 ms", "zanthd CPU %"});
        t.Row({std::to_string(count), Fixed(seconds, 0), std::to_string(s.n), std::to_string(failed), Fixed(rate, 0),
               Fixed(rate / count, 2), Fixed(100 * rate / (count * 1000 / kTurnMs), 0) + "%",
               Fixed(100 * rate / (count * 500 / kTurnMs), 0) + "%", Fixed(s.p50), Fixed(s.p99),
               Fixed(100 * cpu / seconds, 0)});
        std::printf("\n%d clients, each calling POST /call/ControllerInfo on its own controller back to back:\n\n", count);
        t.Print();
        for (const auto& [text, n] : why) std::printf("failed %zu times: %s\n", n, text.c_str());
        std::printf("\nmodel: a command goes out at its Worker's next turn and its reply is read one turn later;\n"
                    "back to back, the next one can leave in the turn that read the reply (one per turn,\n"
                    "21.3/s) or the turn after (one per two turns, 10.6/s).\n");
    }

    const std::vector<int> decisions_;
    const int samples_, minGap_, maxGap_, callbackSamples_, restControllers_, restSamples_, clients_, clientSeconds_;
    const std::string zanthd_;
    Sandbox sandbox_;
};

}  // namespace

int main(int argc, char** argv) {
    return BenchMain("zanthd-bench", argc, argv, {"--keep"},
                     {"--decisions", "--samples", "--min-gap-ms", "--max-gap-ms", "--callback-samples",
                      "--rest-controllers", "--rest-samples", "--clients", "--clients-s", "--zanthd", "--dir"},
                     PrintUsage, [](const Args& args) {
                         Bench bench(args);
                         return bench.Main();
                     });
}
