// zanth cards load | check | get: a site's cardholders, from and against the cards CSV.

#include <cstdio>
#include <sstream>

#include "tools/cli/CardsCsv.h"
#include "tools/cli/Output.h"
#include "tools/cli/Pipeline.h"
#include "tools/cli/Platform.h"
#include "tools/cli/Text.h"
#include "tools/cli/Verbs.h"

namespace zanth::cli {
namespace {

// A reply that doesn't come for this long while commands are under way ends the run.
constexpr std::chrono::milliseconds kStall{60000};
constexpr int64_t kDefaultWindow = 4;

std::string Card(const CardLine& c) {
    return std::to_string(std::get<int64_t>(c.args.at("cardSetId"))) + "/" +
           std::get<std::string>(c.args.at("cardNumber"));
}

std::string Rate(double count, double seconds) {
    char out[32];
    std::snprintf(out, sizeof out, "%.1f", seconds > 0 ? count / seconds : 0.0);
    return out;
}

// Reports the file's bad lines; nothing is sent for them.
void ReportBad(const Context& ctx, const std::string& file, const CardsFile& cards) {
    for (const BadLine& b : cards.bad) {
        ctx.out.Note(file + ": " + Describe(b) + " (nothing sent for it)");
        ctx.out.Json(JsonObject()
                         .Add("line", static_cast<int64_t>(b.line))
                         .Add("column", static_cast<int64_t>(b.column))
                         .Add("field", b.field)
                         .Add("error", b.why));
    }
}

CardsFile Read(const Context& ctx, const std::string& arg) { return ReadCards(ctx.LocalPath(arg)); }

// One controller's share of a load or a check: the file's records in order.
class CardsLane : public Lane {
  public:
    CardsLane(std::string mac, const std::vector<CardLine>& records) : Lane(std::move(mac)), records_(records) {}

    std::optional<Job> Next() override {
        if (next_ >= records_.size()) return std::nullopt;
        size_t i = next_++;
        return MakeJob(records_[i], i);
    }

    size_t sent() const { return next_; }
    size_t answered = 0;
    size_t unanswered = 0;
    size_t lastLine = 0;  // the last line whose record was answered, in the file's order

  protected:
    virtual Job MakeJob(const CardLine& c, size_t i) = 0;
    const std::vector<CardLine>& records_;

    void Lost(size_t dropped) override { unanswered += dropped; }

  private:
    size_t next_ = 0;
};

class LoadLane final : public CardsLane {
  public:
    LoadLane(std::string mac, const std::vector<CardLine>& records, const Context& ctx)
        : CardsLane(std::move(mac), records), ctx_(ctx) {}

    size_t loaded = 0;
    size_t refused = 0;

    void Done(const Job& job, const Reply& reply) override {
        ++answered;
        const CardLine& c = records_[job.item];
        lastLine = std::max(lastLine, c.line);
        if (reply.ok) {
            ++loaded;
            return;
        }
        ++refused;
        ctx_.out.Note("line " + std::to_string(c.line) + " (card " + Card(c) + ") refused by " + Mac() + ": " +
                      std::to_string(reply.result) + " " + reply.name + ": " + reply.meaning);
        ctx_.out.Json(JsonObject()
                          .Add("line", static_cast<int64_t>(c.line))
                          .Add("mac", Mac())
                          .Add("refused", true)
                          .Add("result", static_cast<int64_t>(reply.result))
                          .Add("name", reply.name)
                          .Add("meaning", reply.meaning));
    }

  private:
    Job MakeJob(const CardLine& c, size_t i) override {
        return Job{AddExport(c.generation, true), AddExport(c.generation, false), c.args, i};
    }
    const Context& ctx_;
};

// The "y/m/d" or "h:m:s" of a stamp's half as numbers, so that 2024/1/2 and 2024/01/02 agree.
std::string Normal(const std::string& text, char separator) {
    if (text == "0") return text;
    std::string out;
    for (const std::string& part : Split(text, separator)) {
        std::optional<int64_t> v = ParseInteger(part);
        out += (out.empty() ? "" : std::string(1, separator)) + (v ? std::to_string(*v) : part);
    }
    return out;
}

class CheckLane final : public CardsLane {
  public:
    CheckLane(std::string mac, const std::vector<CardLine>& records, const Context& ctx)
        : CardsLane(std::move(mac), records), ctx_(ctx) {}

    size_t same = 0, differ = 0, missing = 0;

    void Done(const Job& job, const Reply& reply) override {
        ++answered;
        const CardLine& c = records_[job.item];
        lastLine = std::max(lastLine, c.line);
        std::string where = "line " + std::to_string(c.line) + " (card " + Card(c) + ") on " + Mac();
        if (!reply.ok) {
            ++missing;
            ctx_.out.Note(where + ": not read: " + std::to_string(reply.result) + " " + reply.name + ": " + reply.meaning);
            ctx_.out.Json(JsonObject()
                              .Add("line", static_cast<int64_t>(c.line))
                              .Add("mac", Mac())
                              .Add("card", Card(c))
                              .Add("missing", true)
                              .Add("result", static_cast<int64_t>(reply.result))
                              .Add("name", reply.name)
                              .Add("meaning", reply.meaning));
            return;
        }
        std::vector<std::string> diffs;
        std::string json;
        auto compare = [&](const std::string& field, const std::string& file, const std::string& controller) {
            if (file == controller) return;
            diffs.push_back(field + " " + controller + " on the controller, " + file + " in the file");
            json += std::string(json.empty() ? "" : ",") +
                    JsonObject().Add("field", field).Add("file", file).Add("controller", controller).str();
        };
        auto got = [&reply](const char* name) {
            auto it = reply.outputs.find(name);
            return it == reply.outputs.end() ? std::string() : Plain(it->second);
        };
        for (const auto& [name, value] : c.args) {
            if (name == "startDate" || name == "startTime" || name == "endDate" || name == "endTime") continue;
            // The add commands' cardRole is the read's role.
            compare(name, Plain(value), got(name == "cardRole" ? "role" : name.c_str()));
        }
        // A date without a time covers the whole day; the date "0" drops the time.
        auto stamp = [&](const char* date, const char* time, const char* wholeDay) {
            std::string d = std::get<std::string>(c.args.at(date));
            std::string t = std::get<std::string>(c.args.at(time));
            if (d == "0") t = "0";
            else if (t == "0") t = wholeDay;
            compare(date, Normal(d, '/'), Normal(got(date), '/'));
            compare(time, Normal(t, ':'), Normal(got(time), ':'));
        };
        stamp("startDate", "startTime", "00:00:00");
        stamp("endDate", "endTime", "23:59:59");
        if (diffs.empty()) {
            ++same;
            return;
        }
        ++differ;
        std::string text = where + " differs:";
        for (const std::string& d : diffs) text += "\n  " + d;
        ctx_.out.Line(text);
        ctx_.out.Json(JsonObject()
                          .Add("line", static_cast<int64_t>(c.line))
                          .Add("mac", Mac())
                          .Add("card", Card(c))
                          .AddRaw("differences", "[" + json + "]"));
    }

  private:
    Job MakeJob(const CardLine& c, size_t i) override {
        Args args;
        for (const char* name : {"cardSetId", "noFormat", "cardNumber", "pin"}) args[name] = c.args.at(name);
        return Job{"RspGetCardRecord4", "", std::move(args), i};
    }
    const Context& ctx_;
};

template <class L>
std::vector<Lane*> Lanes(std::vector<std::unique_ptr<L>>& lanes) {
    std::vector<Lane*> out;
    for (auto& l : lanes) out.push_back(l.get());
    return out;
}

// One lane a controller, run through the pipeline under a progress bar.
template <class L>
struct LaneRun {
    std::vector<std::unique_ptr<L>> lanes;
    PipelineEnd end;
    double seconds = 0;
    size_t answered = 0;

    bool lost() const {
        for (const auto& l : lanes) {
            if (l->lost) return true;
        }
        return false;
    }
};

template <class L>
LaneRun<L> RunLanes(Context& ctx, Transport& t, const std::vector<std::string>& macs, const CardsFile& cards,
                    size_t window, const char* label) {
    LaneRun<L> run;
    for (const std::string& m : macs) run.lanes.push_back(std::make_unique<L>(m, cards.records, ctx));
    Progress progress(label, "records", cards.records.size() * macs.size());
    auto answered = [&run]() {
        size_t n = 0;
        for (auto& l : run.lanes) n += l->answered;
        return n;
    };
    run.end = RunPipeline(t, Lanes(run.lanes), window, kStall, [&]() { progress.Update(answered()); });
    progress.Update(answered(), true);
    progress.Finish();
    run.seconds = progress.Seconds();
    run.answered = answered();
    return run;
}

// A line per controller on how far its lane got, when the run didn't end whole.
template <class L>
void ReportStops(const Context& ctx, const std::vector<std::unique_ptr<L>>& lanes, const PipelineEnd& end,
                 size_t records, const char* verbPast) {
    for (const auto& l : lanes) {
        if (l->answered == records) continue;
        std::string why = l->lost ? "went away" : end.interrupted ? "was interrupted" : end.stalled ? "stopped answering" : "stopped";
        std::string text = l->Mac() + " " + why + ": " + std::to_string(l->answered) + " of " + std::to_string(records) +
                           " records " + verbPast;
        if (l->lastLine) text += " (up to line " + std::to_string(l->lastLine) + ")";
        if (l->unanswered || (end.stalled && l->sent() > l->answered)) {
            text += "; " + std::to_string(l->sent() - l->answered) + " sent without an answer";
        }
        if (l->sent() < records) text += "; " + std::to_string(records - l->sent()) + " not sent";
        ctx.out.Note(text);
    }
}

}  // namespace

int RunCardsLoad(Context& ctx) {
    std::vector<std::string> macs = ctx.Macs(ctx.Arg(0));
    size_t window = static_cast<size_t>(ctx.IntOption("--window", 1, 64).value_or(kDefaultWindow));
    CardsFile cards = Read(ctx, ctx.Arg(1));
    ReportBad(ctx, ctx.Arg(1), cards);
    if (cards.records.empty()) {
        ctx.out.Line("no record to load: " + std::to_string(cards.bad.size()) + " bad lines");
        ctx.out.Json(JsonObject().Add("loaded", 0).Add("refused", 0).Add("bad_lines", static_cast<int64_t>(cards.bad.size())).Add("records", 0));
        return cards.bad.empty() ? kExitOk : kExitPartial;
    }
    Transport& t = ctx.Reach(macs);

    const size_t records = cards.records.size();
    LaneRun<LoadLane> run = RunLanes<LoadLane>(ctx, t, macs, cards, window, "cards");
    const auto& lanes = run.lanes;
    const PipelineEnd& end = run.end;
    const double seconds = run.seconds;

    size_t loaded = 0, refused = 0;
    std::string perController;
    for (auto& l : lanes) {
        loaded += l->loaded;
        refused += l->refused;
        perController += std::string(perController.empty() ? "" : ",") +
                         JsonObject()
                             .Add("mac", l->Mac())
                             .Add("loaded", static_cast<int64_t>(l->loaded))
                             .Add("refused", static_cast<int64_t>(l->refused))
                             .Add("not_sent", static_cast<int64_t>(records - l->sent()))
                             .Add("unanswered", static_cast<int64_t>(l->sent() - l->answered))
                             .str();
    }
    ReportStops(ctx, lanes, end, records, "loaded or refused");
    std::string text = "loaded " + std::to_string(loaded) + " of " + std::to_string(records * macs.size()) +
                       " records into " + std::to_string(macs.size()) + " controller" + (macs.size() == 1 ? "" : "s") +
                       " in " + Duration(seconds) + " (" + Rate(static_cast<double>(run.answered), seconds) +
                       " records/s); " + std::to_string(refused) + " refused, " + std::to_string(cards.bad.size()) +
                       " bad line" + (cards.bad.size() == 1 ? "" : "s") + " (nothing sent for them)";
    if (end.interrupted) text = "interrupted: " + text;
    ctx.out.Line(text);
    ctx.out.Json(JsonObject()
                     .Add("loaded", static_cast<int64_t>(loaded))
                     .Add("refused", static_cast<int64_t>(refused))
                     .Add("bad_lines", static_cast<int64_t>(cards.bad.size()))
                     .Add("records", static_cast<int64_t>(records))
                     .AddRaw("controllers", "[" + perController + "]")
                     .Add("seconds", seconds)
                     .Add("records_per_s", seconds > 0 ? static_cast<double>(run.answered) / seconds : 0.0)
                     .Add("interrupted", end.interrupted)
                     .Add("stalled", end.stalled));
    if (end.interrupted) return kExitInterrupted;
    if (end.stalled || end.unanswered || run.lost()) return kExitFailed;
    return refused || !cards.bad.empty() ? kExitPartial : kExitOk;
}

int RunCardsCheck(Context& ctx) {
    std::vector<std::string> macs = ctx.Macs(ctx.Arg(0));
    size_t window = static_cast<size_t>(ctx.IntOption("--window", 1, 64).value_or(kDefaultWindow));
    CardsFile cards = Read(ctx, ctx.Arg(1));
    ReportBad(ctx, ctx.Arg(1), cards);
    Transport& t = ctx.Reach(macs);

    const size_t records = cards.records.size();
    LaneRun<CheckLane> run = RunLanes<CheckLane>(ctx, t, macs, cards, window, "check");
    const auto& lanes = run.lanes;
    const PipelineEnd& end = run.end;
    const double seconds = run.seconds;

    size_t same = 0, differ = 0, missing = 0;
    for (auto& l : lanes) {
        same += l->same;
        differ += l->differ;
        missing += l->missing;
    }
    ReportStops(ctx, lanes, end, records, "checked");
    std::string text = "checked " + std::to_string(run.answered) + " of " + std::to_string(records * macs.size()) +
                       " records in " + Duration(seconds) + ": " + std::to_string(same) + " the same, " +
                       std::to_string(differ) + " differ, " + std::to_string(missing) + " not read; " +
                       std::to_string(cards.bad.size()) + " bad line" + (cards.bad.size() == 1 ? "" : "s") +
                       " (not checked)";
    if (end.interrupted) text = "interrupted: " + text;
    ctx.out.Line(text);
    ctx.out.Json(JsonObject()
                     .Add("checked", static_cast<int64_t>(run.answered))
                     .Add("same", static_cast<int64_t>(same))
                     .Add("differ", static_cast<int64_t>(differ))
                     .Add("missing", static_cast<int64_t>(missing))
                     .Add("bad_lines", static_cast<int64_t>(cards.bad.size()))
                     .Add("records", static_cast<int64_t>(records))
                     .Add("seconds", seconds)
                     .Add("interrupted", end.interrupted)
                     .Add("stalled", end.stalled));
    if (end.interrupted) return kExitInterrupted;
    if (end.stalled || end.unanswered || run.lost()) return kExitFailed;
    return differ || missing || !cards.bad.empty() ? kExitPartial : kExitOk;
}

int RunCardsGet(Context& ctx) {
    const std::string& mac = ctx.Arg(0);
    Args args{{"mac", mac},
              {"cardSetId", ctx.IntOption("--card-set", 0, INT32_MAX).value_or(0)},
              {"noFormat", ctx.IntOption("--no-format", 0, 1).value_or(0)},
              {"cardNumber", ctx.Arg(1)},
              {"pin", ctx.Option("--pin").value_or("0")}};
    model::Check("GetCardRecord4", args);
    Transport& t = ctx.Reach({mac});
    Result r = t.Call("GetCardRecord4", args);
    if (!r.ok) Fail("GetCardRecord4 (card " + ctx.Arg(1) + ")", r);
    std::optional<model::Export> e = model::Find("GetCardRecord4");
    JsonObject record;
    for (const model::Param& p : e->params) {
        auto it = r.outputs.find(p.name);
        if (it == r.outputs.end()) continue;
        ctx.out.Line(p.name + ": " + Plain(it->second));
        record.AddValue(p.name, it->second);
    }
    ctx.out.Json(JsonObject().Add("mac", mac).AddRaw("record", record.str()));
    return kExitOk;
}

}  // namespace zanth::cli
