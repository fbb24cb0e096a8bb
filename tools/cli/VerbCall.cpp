// zanth call EXPORT [ARGS...]: any export by name, its arguments typed and checked against the
// API model; and zanth help.

#include <fstream>
#include <iterator>
#include <thread>

#include "tools/cli/Platform.h"
#include "tools/cli/Text.h"
#include "tools/cli/Verbs.h"

namespace zanth::cli {
namespace {

bool LooksNamed(const std::string& token, std::string* name, std::string* value) {
    size_t equals = token.find('=');
    if (equals == std::string::npos || equals == 0) return false;
    for (size_t i = 0; i < equals; ++i) {
        char c = token[i];
        bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || (i > 0 && c >= '0' && c <= '9');
        if (!ok) return false;
    }
    *name = token.substr(0, equals);
    *value = token.substr(equals + 1);
    return true;
}

const model::Param* FindParam(const model::Export& e, const std::string& name) {
    for (const model::Param& p : e.params) {
        if (p.name == name) return &p;
    }
    return nullptr;
}

// The text of one argument as the value its parameter takes.
Value Typed(const Context& ctx, const model::Export& e, const model::Param& p, const std::string& text) {
    switch (p.kind) {
        case model::Kind::kInteger: {
            std::optional<int64_t> v = ParseInteger(text);
            if (!v) throw ArgError(e.name, p.name, "must be an integer (" + p.ctype + "), not '" + text + "'");
            return *v;
        }
        case model::Kind::kCharacter:
            return text;
        case model::Kind::kText:
            // Through a gateway a path names a file of its files folder, not of this computer.
            return p.localPath && !text.empty() && ctx.inv.gateway.empty() ? ctx.LocalPath(text).string() : text;
        case model::Kind::kBytes: {
            if (text.rfind("@", 0) == 0) {
                std::ifstream in(ctx.LocalPath(text.substr(1)), std::ios::binary);
                if (!in) throw ArgError(e.name, p.name, "can't read the file " + text.substr(1));
                return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
            }
            if (text.rfind("hex:", 0) == 0) {
                std::optional<Bytes> b = FromHex(text.substr(4));
                if (!b) throw ArgError(e.name, p.name, "hex: wants pairs of hexadecimal digits");
                return *b;
            }
            return Bytes(text.begin(), text.end());
        }
    }
    return text;
}

// The export's arguments from the words after its name.
Args ParseArgs(const Context& ctx, const model::Export& bare, model::Export* moded) {
    std::vector<std::string> positional;
    std::map<std::string, std::string> named;
    for (size_t i = 1; i < ctx.ArgCount(); ++i) {
        std::string name, value;
        if (LooksNamed(ctx.Arg(i), &name, &value)) {
            if (!FindParam(bare, name)) {
                std::vector<std::string> names;
                for (const model::Param& p : bare.params) names.push_back(p.name);
                throw ArgError(bare.name, name, "no such parameter" + DidYouMean(Closest(name, names, 2)));
            }
            if (!named.emplace(name, value).second) throw ArgError(bare.name, name, "is given twice");
        } else {
            positional.push_back(ctx.Arg(i));
        }
    }
    // The mode first: it decides which of the other parameters go in.
    std::optional<int64_t> mode;
    if (bare.modeParam >= 0) {
        std::optional<std::string> text;
        if (named.count("mode")) {
            text = named["mode"];
        } else {
            size_t k = 0;
            for (int i = 0; i < bare.modeParam; ++i) {
                const model::Param& p = bare.params[static_cast<size_t>(i)];
                if (p.input && !p.size && !p.rspid && !named.count(p.name)) ++k;
            }
            if (k < positional.size()) text = positional[k];
        }
        if (text) mode = ParseInteger(*text);
    }
    *moded = *model::Find(bare.name, mode);
    const model::Export& e = *moded;
    Args args;
    size_t next = 0;
    for (const model::Param& p : e.params) {
        if (!p.input) continue;
        auto n = named.find(p.name);
        if (n != named.end()) {
            args[p.name] = Typed(ctx, e, p, n->second);
        } else if (!p.size && !p.rspid && next < positional.size()) {
            args[p.name] = Typed(ctx, e, p, positional[next++]);
        }
    }
    for (const auto& [name, value] : named) {
        if (!args.count(name)) throw ArgError(e.name, name, "is an output, not an argument");
    }
    if (next < positional.size()) {
        throw ArgError(e.name, "", "takes " + std::to_string(next) + " argument" + (next == 1 ? "" : "s") +
                                       " here; '" + positional[next] + "' is one too many");
    }
    if (e.rsp && !args.count("rspid")) args["rspid"] = int64_t{1};
    return args;
}

void PrintOutputs(const Context& ctx, const model::Export& e, const Outputs& outputs) {
    for (const model::Param& p : e.params) {
        auto it = outputs.find(p.name);
        if (it != outputs.end()) ctx.out.Line(p.name + ": " + Plain(it->second));
    }
    for (const auto& [name, value] : outputs) {
        if (!FindParam(e, name)) ctx.out.Line(name + ": " + Plain(value));
    }
}

std::string ResultLine(const std::string& what, int32_t code, const std::string& name) {
    return what + ": " + std::to_string(code) + " " + name;
}

// The reply under `rspid`, waited for up to --timeout.
std::optional<Incoming> AwaitReply(Context& ctx, Transport& t, uint32_t rspid) {
    auto deadline = std::chrono::steady_clock::now() +
                    std::chrono::milliseconds(static_cast<int64_t>(ctx.inv.timeout * 1000));
    while (std::chrono::steady_clock::now() < deadline) {
        while (auto reply = t.NextReply()) {
            if (reply->rspid == rspid) return reply;
        }
        if (platform::Interrupted()) throw Interrupted();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return std::nullopt;
}

}  // namespace

int RunCall(Context& ctx) {
    const std::string& name = ctx.Arg(0);
    std::optional<model::Export> bare = model::Find(name);
    if (!bare) throw UnknownName(name, model::Suggest(name));
    if (!bare->callable) {
        throw ArgError(name, "", "is a callback registration, which a command line can't make; "
                                 "zanth watch shows what the callbacks would deliver");
    }
    model::Export e;
    Args args = ParseArgs(ctx, *bare, &e);
    if (e.movesOwnFiles) {
        throw ArgError(name, "", "would move the library's own files, remembered per user; zanth "
                                 "keeps them in its data folder (--data-dir) and never changes that");
    }
    model::Check(e.name, args);  // before anything is loaded or called

    Transport* t;
    if (e.hasMac) {
        t = &ctx.Reach({std::get<std::string>(args.at("mac"))});
    } else if (!ctx.inv.wait.empty() || !ctx.inv.contacts.empty() || ctx.inv.portGiven) {
        t = &ctx.Reach({});
    } else {
        t = &ctx.Library();
    }
    // A gateway takes a Rsp form as a call too: it chooses the rspid, waits for the reply and
    // answers with it decoded.
    bool awaited = e.rsp && !t->ThroughGateway();
    Result r = awaited ? t->Submit(e.name, args) : t->Call(e.name, args);
    if (!r.ok) Fail(e.name, r);

    JsonObject o;
    o.Add("export", e.name).Add("result", static_cast<int64_t>(r.code)).Add("name", r.name).Add("ok", true);
    if (r.empty) o.Add("empty", true);
    o.AddRaw("outputs", OutputsJson(r.outputs).str());
    ctx.out.Line(ResultLine(e.name, r.code, r.name) + (r.empty ? " (nothing waiting)" : ""));
    std::optional<model::Export> blocking = e.twin.empty() ? std::nullopt : model::Find(e.twin);
    PrintOutputs(ctx, e.rsp && !awaited && blocking ? *blocking : e, r.outputs);
    if (!(awaited && e.decodable)) {
        ctx.out.Json(o);
        return kExitOk;
    }

    auto rspid = static_cast<uint32_t>(std::get<int64_t>(args.at("rspid")));
    std::optional<Incoming> frame = AwaitReply(ctx, *t, rspid);
    if (!frame) {
        Result none;
        none.exportName = e.name;
        none.code = -10005;
        none.name = model::ResultName(none.code);
        none.meaning = "no reply came under rspid " + std::to_string(rspid) + " within --timeout";
        Fail(e.name, none);
    }
    Reply reply = frame->decoded ? *frame->decoded : model::Decode(e.name, rspid, frame->frame, args);
    JsonObject j;
    j.Add("code", static_cast<int64_t>(reply.replyCode)).Add("result", static_cast<int64_t>(reply.result));
    j.Add("name", reply.name).Add("ok", reply.ok).Add("frame", reply.frame);
    j.AddRaw("outputs", OutputsJson(reply.outputs).str());
    o.AddRaw("reply", j.str());
    ctx.out.Line("reply " + std::to_string(reply.replyCode) + " under rspid " + std::to_string(rspid) + ": " +
                 std::to_string(reply.result) + " " + reply.name);
    ctx.out.Line("frame: " + reply.frame);
    PrintOutputs(ctx, blocking ? *blocking : e, reply.outputs);
    ctx.out.Json(o);
    if (!reply.ok) {
        Result failed;
        failed.exportName = e.name;
        failed.code = reply.result;
        failed.name = reply.name;
        failed.meaning = reply.meaning;
        Fail(e.name + "'s reply", failed);
    }
    return kExitOk;
}

int RunHelp(Context& ctx) {
    std::string topic;
    for (size_t i = 0; i < ctx.ArgCount(); ++i) topic += (i ? " " : "") + ctx.Arg(i);
    const bool viaCall = std::string(ctx.inv.verb->name) == "call";
    if (topic.empty()) {
        std::fputs((viaCall ? VerbHelp(*ctx.inv.verb) : GeneralHelp()).c_str(), stdout);
        return kExitOk;
    }
    if (topic == "exports" && !viaCall) {
        std::string family;
        for (const std::string& n : model::Names()) {
            std::optional<model::Export> e = model::Find(n);
            if (e->family != family) {
                family = e->family;
                std::printf("%s%s:\n", family.empty() ? "" : "\n", family.c_str());
            }
            std::printf("  %-34s %s %s\n", n.c_str(), e->form.c_str(), e->category.c_str());
        }
        return kExitOk;
    }
    if (!viaCall) {
        if (const Verb* v = FindVerb(topic)) {
            std::fputs(VerbHelp(*v).c_str(), stdout);
            return kExitOk;
        }
    }
    if (std::optional<model::Export> e = model::Find(topic)) {
        std::fputs(ExportHelp(*e).c_str(), stdout);
        return kExitOk;
    }
    std::vector<std::string> names = model::Suggest(topic);
    if (!viaCall) {
        for (const std::string& v : Closest(topic, VerbNames(), 2)) names.insert(names.begin(), v);
    }
    throw UsageError("no command or export named '" + topic + "'" + DidYouMean(names));
}

}  // namespace zanth::cli
