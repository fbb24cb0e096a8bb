// zanth file put | get: a file to or from a controller, chunk by chunk through the Rsp forms of
// the chunked transfer, so that the progress can be shown and Ctrl-C stops between two chunks.

#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>

#include "tools/cli/Output.h"
#include "tools/cli/Pipeline.h"
#include "tools/cli/Text.h"
#include "tools/cli/Verbs.h"

namespace zanth::cli {
namespace {

constexpr size_t kChunk = 4086;  // the most one chunk carries
constexpr std::chrono::milliseconds kStall{60000};
constexpr size_t kPutWindow = 4;
constexpr int32_t kMore = 1033, kLast = 1034, kGaveUp = 9980;

std::string Rate(double bytes, double seconds) {
    char out[32];
    std::snprintf(out, sizeof out, "%.1f KB/s", seconds > 0 ? bytes / seconds / 1000.0 : 0.0);
    return out;
}

std::string FailureText(const Reply& r) {
    std::string text = std::to_string(r.result) + " " + r.name + ": " + r.meaning;
    if (r.replyCode == kGaveUp) text = "the controller gave up (" + r.frame.substr(std::min<size_t>(10, r.frame.size())) + "): " + text;
    return text;
}

class PutLane final : public Lane {
  public:
    PutLane(std::string mac, std::string remote, const Bytes& data)
        : Lane(std::move(mac)), remote_(std::move(remote)), data_(data),
          chunks_(data.empty() ? 1 : (data.size() + kChunk - 1) / kChunk) {}

    std::optional<Job> Next() override {
        if (failed || next_ > chunks_) return std::nullopt;
        size_t i = next_++;
        if (i == 0) return Job{"RspSendDataFilename", "SendData", {{"controllerPathFile", remote_}}, 0};
        size_t from = (i - 1) * kChunk;
        size_t n = std::min(kChunk, data_.size() - from);
        Bytes chunk(data_.begin() + static_cast<std::ptrdiff_t>(from),
                    data_.begin() + static_cast<std::ptrdiff_t>(from + n));
        return Job{"RspSendData", "SendData",
                   {{"controllerPathFile", remote_}, {"data", std::move(chunk)}, {"endOfData", int64_t{i == chunks_ ? 1 : 0}}},
                   i};
    }

    void Done(const Job& job, const Reply& reply) override {
        if (failed) return;  // the answers of chunks sent after the failure
        if (!reply.ok || reply.replyCode == kGaveUp) {
            failed = true;
            why = FailureText(reply);
            return;
        }
        if (job.item > 0) {
            ++chunksDone;
            bytesDone += std::get<Bytes>(job.args.at("data")).size();
        }
    }

    void Lost(size_t) override { why = "the controller went away"; }

    size_t chunks() const { return chunks_; }
    bool failed = false;
    std::string why;
    size_t chunksDone = 0;
    uint64_t bytesDone = 0;

  private:
    std::string remote_;
    const Bytes& data_;
    size_t chunks_;
    size_t next_ = 0;
};

// A download doesn't say its length: the controller marks the last chunk (1034). The lane asks
// for one chunk beyond the one under way, so that a Worker turn carries a request while the
// former chunk is read; the controller answers the one request after the last chunk with a
// 9980 (no open transfer), which is dropped here.
class GetLane final : public Lane {
  public:
    GetLane(std::string mac, std::string remote) : Lane(std::move(mac)), remote_(std::move(remote)) {}

    std::optional<Job> Next() override {
        if (failed || ended || asked_ - answered_ >= 2) return std::nullopt;
        size_t i = asked_++;
        if (i == 0) return Job{"RspGetDataFilename", "GetData", {{"controllerPathFile", remote_}}, 0};
        return Job{"RspGetData", "GetData", {{"controllerPathFile", remote_}}, i};
    }

    void Done(const Job& job, const Reply& reply) override {
        ++answered_;
        if (failed || (ended && job.item > last_)) return;
        if (!reply.ok || (reply.replyCode != kMore && reply.replyCode != kLast)) {
            failed = true;
            why = FailureText(reply);
            return;
        }
        auto it = reply.outputs.find("payload");
        Bytes chunk = it == reply.outputs.end() ? Bytes() : std::get<Bytes>(it->second);
        bytesDone += chunk.size();
        chunks_[job.item] = std::move(chunk);
        if (reply.replyCode == kLast) {
            ended = true;
            last_ = job.item;
        }
    }

    void Lost(size_t) override { why = "the controller went away"; }

    // The whole file, once the last chunk and all before it are in.
    std::optional<Bytes> File() const {
        if (!ended || chunks_.size() != last_ + 1) return std::nullopt;
        Bytes out;
        for (const auto& [i, c] : chunks_) out.insert(out.end(), c.begin(), c.end());
        return out;
    }

    bool failed = false, ended = false;
    std::string why;
    uint64_t bytesDone = 0;

  private:
    std::string remote_;
    size_t asked_ = 0, answered_ = 0, last_ = 0;
    std::map<size_t, Bytes> chunks_;
};

void CheckRemote(const std::string& exportName, const std::string& mac, const std::string& remote) {
    model::Check(exportName, {{"rspid", int64_t{1}}, {"mac", mac}, {"controllerPathFile", remote}});
}

}  // namespace

// How a transfer ended, whichever way moved it.
struct Outcome {
    uint64_t bytes = 0;        // moved to or from the controller
    size_t chunks = 0;         // of a put: sent and acknowledged
    bool interrupted = false;  // Ctrl-C
    bool failed = false;
    bool lost = false;         // the controller went away
    std::string why;
};

int RunFilePut(Context& ctx) {
    const std::string& mac = ctx.Arg(0);
    std::filesystem::path local = ctx.LocalPath(ctx.Arg(1));
    const std::string& remote = ctx.Arg(2);
    CheckRemote("RspSendDataFilename", mac, remote);
    std::ifstream in(local, std::ios::binary);
    if (!in) throw std::runtime_error("can't read " + local.string());
    Bytes data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) throw std::runtime_error("can't read " + local.string());
    Transport& t = ctx.Reach({mac});

    const size_t chunks = data.empty() ? 1 : (data.size() + kChunk - 1) / kChunk;
    Progress progress("put", "bytes", data.size(), true);
    Outcome o;
    // What is left on the controller when the transfer didn't end.
    std::string left = "; the controller's " + remote + " was left without its last chunk and is not complete";
    if (std::optional<FileMove> moved = t.PutFile(mac, remote, data, [&](uint64_t n) { progress.Update(n); })) {
        o.bytes = moved->bytes;
        o.chunks = moved->complete ? chunks : 0;
        o.interrupted = moved->interrupted;
        o.failed = !moved->complete && !moved->interrupted;
        o.why = moved->why;
        left = moved->interrupted ? "; nothing was sent to the controller"
                                  : "; the controller's " + remote + " may be left incomplete";
    } else {
        PutLane lane(mac, remote, data);
        PipelineEnd end = RunPipeline(t, {&lane}, kPutWindow, kStall, [&]() { progress.Update(lane.bytesDone); });
        o.bytes = lane.bytesDone;
        o.chunks = lane.chunksDone;
        o.interrupted = end.interrupted;
        o.failed = lane.failed;
        o.lost = lane.lost;
        o.why = lane.why;
    }
    progress.Update(o.bytes, true);
    progress.Finish();
    double seconds = progress.Seconds();
    bool whole = !o.failed && !o.lost && o.chunks == chunks;

    JsonObject summary;
    summary.Add("mac", mac)
                     .Add("local", local.string())
                     .Add("remote", remote)
                     .Add("bytes", o.bytes)
                     .Add("size", static_cast<uint64_t>(data.size()))
                     .Add("chunks", static_cast<uint64_t>(o.chunks))
                     .Add("seconds", seconds)
                     .Add("kb_per_s", seconds > 0 ? static_cast<double>(o.bytes) / seconds / 1000.0 : 0.0)
                     .Add("complete", whole)
                     .Add("interrupted", o.interrupted);
    if (!whole && !o.why.empty()) summary.Add("error", o.why);
    ctx.out.Json(summary);
    std::string done = std::to_string(o.bytes) + " of " + std::to_string(data.size()) + " bytes (" +
                       std::to_string(o.chunks) + " of " + std::to_string(chunks) + " chunks)";
    if (whole) {
        ctx.out.Line("sent " + local.string() + " to " + mac + ":" + remote + ": " + std::to_string(data.size()) +
                     " bytes in " + Duration(seconds) + " (" + Rate(static_cast<double>(data.size()), seconds) + ")");
        return kExitOk;
    }
    if (o.interrupted && !o.failed) {
        ctx.out.Note("interrupted: sent " + done + left);
        return kExitInterrupted;
    }
    ctx.out.Note("zanth: file put stopped after " + done + ": " +
                 (o.why.empty() ? std::string("no answer from the controller") : o.why) + left);
    return kExitFailed;
}

int RunFileGet(Context& ctx) {
    const std::string& mac = ctx.Arg(0);
    std::filesystem::path local = ctx.LocalPath(ctx.Arg(1));
    const std::string& remote = ctx.Arg(2);
    CheckRemote("RspGetDataFilename", mac, remote);
    Transport& t = ctx.Reach({mac});

    Progress progress("get", "bytes", 0, true);
    Outcome o;
    std::optional<Bytes> file;
    if (std::optional<FileMove> moved = t.GetFile(mac, remote, [&](uint64_t n) { progress.Update(n); })) {
        o.bytes = moved->bytes;
        o.interrupted = moved->interrupted;
        o.failed = !moved->complete && !moved->interrupted;
        o.why = moved->why;
        if (moved->complete) file = std::move(moved->data);
    } else {
        GetLane lane(mac, remote);
        PipelineEnd end = RunPipeline(t, {&lane}, 2, kStall, [&]() { progress.Update(lane.bytesDone); });
        o.bytes = lane.bytesDone;
        o.interrupted = end.interrupted;
        o.failed = lane.failed;
        o.why = lane.why;
        if (!lane.failed) file = lane.File();
    }
    progress.Update(o.bytes, true);
    progress.Finish();
    double seconds = progress.Seconds();

    if (file) {
        // Written beside LOCAL and moved over it, so that LOCAL is never half a file.
        std::filesystem::path part = local;
        part += ".part";
        {
            std::ofstream out(part, std::ios::binary | std::ios::trunc);
            out.write(reinterpret_cast<const char*>(file->data()), static_cast<std::streamsize>(file->size()));
            if (!out) throw std::runtime_error("can't write " + part.string());
        }
        std::error_code ec;
        std::filesystem::rename(part, local, ec);
        if (ec) throw std::runtime_error("can't write " + local.string() + ": " + ec.message());
    }
    JsonObject summary;
    summary.Add("mac", mac)
                     .Add("local", local.string())
                     .Add("remote", remote)
                     .Add("bytes", o.bytes)
                     .Add("seconds", seconds)
                     .Add("kb_per_s", seconds > 0 ? static_cast<double>(o.bytes) / seconds / 1000.0 : 0.0)
                     .Add("complete", file.has_value())
                     .Add("interrupted", o.interrupted);
    if (!file && !o.why.empty()) summary.Add("error", o.why);
    ctx.out.Json(summary);
    if (file) {
        ctx.out.Line("fetched " + mac + ":" + remote + " into " + local.string() + ": " + std::to_string(file->size()) +
                     " bytes in " + Duration(seconds) + " (" + Rate(static_cast<double>(file->size()), seconds) + ")");
        return kExitOk;
    }
    std::string done = std::to_string(o.bytes) + " bytes received; " + local.string() + " was not written";
    if (o.interrupted && !o.failed) {
        ctx.out.Note("interrupted: " + done);
        return kExitInterrupted;
    }
    ctx.out.Note("zanth: file get failed: " + (o.why.empty() ? std::string("no answer from the controller") : o.why) +
                 "; " + done);
    return kExitFailed;
}

}  // namespace zanth::cli
