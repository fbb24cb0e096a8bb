// zanth-bench-files: whole-file transfer rates against simulated controllers on loopback, next
// to what the Worker's pace predicts, and the latency of a punch-through command during a stream.
//
//   one controller    SendFile, then GetFile, of one file (blocking)
//   ten at once       RspSendFile to ten controllers together, then RspGetFile from all ten
//   punch-through     RspControllerInfo (on the punch-through list) while a RspSendFile streams
//
// The simulator's frame hook stamps each chunk as it reaches or leaves the controller, which
// gives the time per chunk as the wire sees it.
//
//   zanth-bench-files [--kb 1024] [--controllers 10] [--samples 20] [--dir D] [--keep]

#include <atomic>
#include <cmath>
#include <map>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "bench/support/BenchSupport.h"
#include "protocol/Codes.h"
#include "tools/sim/Simulator.h"
#include "tools/sim/families/Files.h"
#include "zanth.h"

namespace {

using namespace zanth::bench;
namespace sim = zanth::sim;

constexpr double kChunk = 4086;
constexpr double kTurnMs = 47;

void PrintUsage(FILE* out) {
    std::fprintf(out,
                 "usage: zanth-bench-files [--kb N] [--controllers N] [--samples N] [--dir D] "
                 "[--keep]\n"
                 "  --kb N           file size in KiB (default 1024)\n"
                 "  --controllers N  controllers streaming at once (default 10)\n"
                 "  --samples N      punch-through commands during a stream (default 20)\n"
                 "  --dir D          where the scratch directory goes (default $TMPDIR or /tmp)\n"
                 "  --keep           keep the scratch directory\n");
}

int64_t Now() { return Clock::now().time_since_epoch().count(); }

std::string Bytes(size_t size, unsigned seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (char& b : bytes) b = static_cast<char>(random() & 0xff);
    return bytes;
}

std::string Slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Chunk stamps per controller, taken on the simulator's loop thread.
class ChunkClock {
  public:
    void Note(const std::string& mac, int64_t at) {
        std::lock_guard<std::mutex> g(lock_);
        auto& last = last_[mac];
        if (last != 0) gaps_.push_back(Ms(Clock::duration(at - last)));
        last = at;
    }
    // Gaps between consecutive chunks of one controller since the last Reset.
    Summary Take() {
        std::lock_guard<std::mutex> g(lock_);
        Summary s = Summarize(gaps_);
        gaps_.clear();
        last_.clear();
        return s;
    }

  private:
    std::mutex lock_;
    std::map<std::string, int64_t> last_;
    std::vector<double> gaps_;
};

class Bench {
  public:
    explicit Bench(const Args& args)
        : kb_(args.Int("--kb", 1024, 1, 65536)),
          controllers_(args.Int("--controllers", 10, 1, 100)),
          samples_(args.Int("--samples", 20, 1, 1000)),
          sandbox_(args.Value("--dir").value_or(""), args.Flag("--keep")) {}

    int Main() {
        const size_t size = static_cast<size_t>(kb_) * 1024;
        const double chunks = std::floor(size / kChunk) + 1;  // the last one short, maybe empty
        std::printf("zanth-bench-files: %d KiB files, %.0f chunks of at most 4086 bytes each way\n",
                    kb_, chunks);
        std::printf("machine: %s\n\n", MachineLine(sandbox_.Dir()).c_str());

        Host host(600000);
        sim::Simulator simulator;
        simulator.SetFrameHook([this](const sim::Controller& c, sim::Direction direction, int code,
                                      std::string_view) {
            const bool chunk =
                (direction == sim::Direction::FromHost &&
                 (code == zanth::ZANTH_SEND_FILE_MORE || code == zanth::ZANTH_SEND_FILE_END)) ||
                (direction == sim::Direction::ToHost &&
                 (code == zanth::ZANTH_GET_FILE_MORE || code == zanth::ZANTH_GET_FILE_END));
            if (chunk) clock_.Note(c.Mac(), Now());
        });
        std::vector<sim::Controller*> all;
        for (int i = 0; i < controllers_; ++i) {
            sim::ControllerConfig config;
            config.mac = sim::MacPlus("C0:00:F0", static_cast<uint32_t>(i));
            config.port = host.Port();
            all.push_back(&simulator.Add(config));
        }
        simulator.Start();
        if (!simulator.WaitAllIdentified(60s)) Fail("the simulated controllers did not identify");
        if (!WaitFor([&] { return ConnectedCount() == all.size(); }, 30s)) {
            Fail("GetConnectedControllers did not list every controller");
        }
        const std::string content = Bytes(size, 1);
        {
            std::ofstream(sandbox_.Path("file.bin"), std::ios::binary) << content;
        }

        Table table({"run", "bytes", "seconds", "KB/s per link", "KB/s total", "ms per chunk p50",
                     "model KB/s per link"});
        const double modelOne = kChunk / (kTurnMs / 1000) / 1000;
        auto row = [&](const std::string& name, double bytes, double seconds, int links) {
            Summary gaps = clock_.Take();
            table.Row({name, Fixed(bytes, 0), Fixed(seconds, 2), Fixed(bytes / links / seconds / 1000),
                       Fixed(bytes / seconds / 1000), Fixed(gaps.p50), Fixed(modelOne)});
        };

        // One controller, each way.
        const std::string mac = all[0]->Mac();
        clock_.Take();
        auto start = Clock::now();
        Check(SendFile(mac.c_str(), "/bench/one", sandbox_.Path("file.bin").c_str()), "SendFile");
        double sendSeconds = Seconds(Clock::now() - start);
        if (!WaitFor([&] { return all[0]->Family<sim::Files>().Find("/bench/one").has_value(); }, 10s) ||
            all[0]->Family<sim::Files>().Find("/bench/one")->bytes != content)
            Fail("the controller's copy differs");
        row("1 link, SendFile", static_cast<double>(size), sendSeconds, 1);
        start = Clock::now();
        Check(GetFile(mac.c_str(), "/bench/one", sandbox_.Path("back.bin").c_str()), "GetFile");
        row("1 link, GetFile", static_cast<double>(size), Seconds(Clock::now() - start), 1);
        if (Slurp(sandbox_.Path("back.bin")) != content) Fail("the fetched file differs");

        // Every controller at once.
        for (int way = 0; way < 2; ++way) {
            clock_.Take();
            start = Clock::now();
            for (int i = 0; i < controllers_; ++i) {
                const std::string m = all[static_cast<size_t>(i)]->Mac();
                const std::string local = sandbox_.Path(way == 0 ? "file.bin" : "back" + std::to_string(i));
                Check(way == 0 ? RspSendFile(static_cast<uint32_t>(100 + i), m.c_str(), "/bench/many",
                                             local.c_str())
                               : RspGetFile(static_cast<uint32_t>(200 + i), m.c_str(), "/bench/many",
                                            local.c_str()),
                      way == 0 ? "RspSendFile" : "RspGetFile");
            }
            WaitResponses(controllers_, "0000;0012;0;");
            row(std::to_string(controllers_) + " links, " + (way == 0 ? "RspSendFile" : "RspGetFile"),
                static_cast<double>(size) * controllers_, Seconds(Clock::now() - start), controllers_);
        }
        for (int i = 0; i < controllers_; ++i) {
            if (Slurp(sandbox_.Path("back" + std::to_string(i))) != content)
                Fail("a fetched file differs");
        }
        table.Print();

        // Punch-through latency during a stream, against the same command on an idle link.
        std::vector<double> idle = PunchSamples(mac, false);
        std::vector<double> busy = PunchSamples(mac, true);
        std::printf("\nRspControllerInfo round trip (call to reply in the response queue):\n");
        Table punch({"link", "n", "min ms", "p50 ms", "p90 ms", "max ms", "mean ms", "model ms"});
        Summary a = Summarize(idle), b = Summarize(busy);
        punch.Row({"idle", std::to_string(a.n), Fixed(a.min), Fixed(a.p50), Fixed(a.p90), Fixed(a.max),
                   Fixed(a.mean), "47-94"});
        punch.Row({"during a SendFile stream", std::to_string(b.n), Fixed(b.min), Fixed(b.p50),
                   Fixed(b.p90), Fixed(b.max), Fixed(b.mean), "47-141"});
        punch.Print();

        simulator.Stop();
        host.Close();
        std::printf(
            "\nmodel: stop and wait, one chunk of 4086 bytes per round trip. The Worker sends the\n"
            "next chunk in the turn that reads the former one's reply; the controller answers within\n"
            "microseconds, so the reply is read in the very next turn: one chunk per 47 ms turn,\n"
            "%.1f KB/s per link (4086 bytes / 47 ms). A transfer adds its opening round trip and, for\n"
            "GetFile, the write of each chunk to disk; turns that overrun on a loaded machine skip\n"
            "their grid boundary and cost a whole turn, which is most of the gap below the model.\n"
            "Links don't share a Worker, so ten links at once each keep the one-link rate.\n"
            "A punch-through command leaves between two chunks (0-47 ms after the call) and its\n"
            "reply competes with the chunk replies for the one read per turn: 47-141 ms.\n",
            modelOne);
        return 0;
    }

  private:
    // Waits for `count` responses and checks that each is `expected`.
    void WaitResponses(int count, const std::string& expected) {
        std::vector<char> text(4200);
        for (int got = 0; got < count;) {
            int32_t rspid = 0;
            if (!WaitFor([&] { return GetNextResponse(&rspid, text.data(), 4200) == 0; }, 300s, 2ms))
                Fail("a transfer did not end within 300 s");
            if (expected != text.data()) Fail(std::string("a transfer ended with ") + text.data());
            ++got;
        }
    }

    std::vector<double> PunchSamples(const std::string& mac, bool duringStream) {
        std::mt19937 random(7);
        std::vector<double> samples;
        if (duringStream) {
            Check(RspSendFile(900, mac.c_str(), "/bench/punch", sandbox_.Path("file.bin").c_str()),
                  "RspSendFile");
            std::this_thread::sleep_for(300ms);
        }
        std::vector<char> text(4200);
        bool streamEnded = false;
        for (int i = 0; i < samples_; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(random() % 100));
            const uint32_t rspid = static_cast<uint32_t>(1000 + i);
            auto start = Clock::now();
            Check(RspControllerInfo(rspid, mac.c_str()), "RspControllerInfo");
            for (;;) {
                int32_t got = 0;
                if (!WaitFor([&] { return GetNextResponse(&got, text.data(), 4200) == 0; }, 10s, 1ms))
                    Fail("no reply to RspControllerInfo");
                if (got == 900) {
                    streamEnded = true;
                    if (std::string(text.data()) == "0000;0012;0;") continue;
                    // A punched reply read after the end chunk's 1030 has closed the stream goes
                    // under the stream's rspid.
                    break;
                }
                if (got != static_cast<int32_t>(rspid)) Fail("a reply under an unexpected rspid");
                break;
            }
            samples.push_back(Ms(Clock::now() - start));
        }
        if (duringStream) {
            if (streamEnded) std::printf("(note: the stream ended before the last sample)\n");
            else WaitResponses(1, "0000;0012;0;");
        }
        return samples;
    }

    const int kb_;
    const int controllers_;
    const int samples_;
    Sandbox sandbox_;
    ChunkClock clock_;
};

}  // namespace

int main(int argc, char** argv) {
    return BenchMain("zanth-bench-files", argc, argv, {"--keep"},
                     {"--kb", "--controllers", "--samples", "--dir"}, PrintUsage,
                     [](const Args& args) {
                         Bench bench(args);
                         return bench.Main();
                     });
}
