#include "gateway/Model.h"

#ifndef ZANTH_HPP_LOAD_AT_RUNTIME
#error "zanthd loads the library at run time: build with ZANTH_HPP_LOAD_AT_RUNTIME"
#endif
#include <zanth.hpp>

#include <cctype>
#include <limits>

#include "gateway/PayloadCodec.h"

namespace zanthd {

namespace meta = zanth::meta;
namespace dyn = zanth::dynamic;
namespace fs = std::filesystem;
using nlohmann::json;

struct PreparedCall::Impl {
    std::string name;
    std::string mac;
    CallWay way = CallWay::kLocal;
    bool awaits = true;
    const meta::Export* asked = nullptr;
    const meta::Export* blocking = nullptr;  // the blocking form, when there is one
    const meta::Export* rsp = nullptr;       // the Rsp form, when there is one
    zanth::Args args;                        // named as `asked` names them
    json audit = json::object();
};

PreparedCall::PreparedCall() = default;
PreparedCall::~PreparedCall() = default;
PreparedCall::PreparedCall(const PreparedCall&) = default;
PreparedCall& PreparedCall::operator=(const PreparedCall&) = default;

namespace {

const std::string kEmpty;

bool Callable(const meta::Export& e) {
    return e.category == meta::Category::kCommand || e.category == meta::Category::kInfo;
}

// Why the gateway keeps an export to itself.
const char* Withheld(meta::Category c) {
    switch (c) {
        case meta::Category::kLife:
            return "the gateway holds the library's life (start, stop, contacts and resets)";
        case meta::Category::kSetting:
            return "the library's settings are the gateway's own, set from its config";
        case meta::Category::kCallback:
            return "the gateway registers the library's callbacks itself";
        case meta::Category::kQueue:
            return "the gateway reads this queue itself (look-ups, PINs, door reports and replies "
                   "are in the journal: /api/v1/events)";
        case meta::Category::kMessageFile:
            return "the gateway reads the message files into its journal (/api/v1/events)";
        default:
            return "the gateway doesn't offer this export";
    }
}

const meta::Export* Twin(const meta::Export& e) {
    return e.twin ? dyn::Find(e.twin) : nullptr;
}

// A command that in some case isn't answered (a reboot, a task restart): its blocking form
// returns at once then, where its Rsp form would leave the caller waiting for nothing.
bool SometimesUnanswered(const meta::Export& e) {
    for (uint8_t i = 0; i < e.sendCount; ++i) {
        if (e.sends[i].when && std::string_view(e.sends[i].when).find("no reply") != std::string_view::npos) {
            return true;
        }
    }
    return false;
}

bool Secret(std::string_view name) {
    std::string lower(name);
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return lower == "pin" || lower.find("password") != std::string::npos;
}

bool Fail(CallProblem* p, int status, std::string field, std::string error) {
    p->status = status;
    p->field = std::move(field);
    p->error = std::move(error);
    return false;
}

json ValueJson(const zanth::Value& v) {
    if (const int64_t* i = std::get_if<int64_t>(&v)) return *i;
    if (const std::string* s = std::get_if<std::string>(&v)) {
        return json(*s);
    }
    const zanth::Bytes& b = std::get<zanth::Bytes>(v);
    return Base64(std::string(b.begin(), b.end()));
}

json OutputsJson(const zanth::Outputs& outputs) {
    json o = json::object();
    for (const auto& [name, value] : outputs) o[name] = ValueJson(value);
    return o;
}

// A path on the gateway's host, given relative to the files folder (or absolute inside it), as
// the absolute path the library is to use; empty when it leads outside.
std::string Confined(const fs::path& folder, const std::string& given) {
    if (given.empty() || folder.empty() || given.find('\0') != std::string::npos) return {};
    std::error_code ec;
    fs::path base = fs::weakly_canonical(folder, ec);
    if (ec) return {};
    fs::path p(given);
    fs::path full = fs::weakly_canonical(p.is_absolute() ? p : base / p, ec);
    if (ec) return {};
    fs::path inside = full.lexically_relative(base);
    if (inside.empty() || inside == "." || *inside.begin() == "..") return {};
    return full.string();
}

}  // namespace

const std::string& PreparedCall::Name() const { return impl ? impl->name : kEmpty; }
const std::string& PreparedCall::Mac() const { return impl ? impl->mac : kEmpty; }
CallWay PreparedCall::Way() const { return impl ? impl->way : CallWay::kLocal; }
bool PreparedCall::AwaitsReply() const { return impl && impl->awaits; }
bool PreparedCall::SentUnconfirmed() const {
    return impl && impl->way == CallWay::kRsp && impl->rsp && zanth::RuleOf(impl->rsp->rule).alwaysOk;
}
json PreparedCall::AuditArgs() const { return impl ? impl->audit : json::object(); }

std::vector<std::string> CallableExports() {
    std::vector<std::string> names;
    for (const meta::Export& e : meta::kExports) {
        if (Callable(e)) names.emplace_back(e.name);
    }
    return names;
}

bool PrepareCall(const std::string& name, const json& args, const CallOptions& options,
                 PreparedCall* out, CallProblem* problem) {
    try {
        const meta::Export* e = dyn::Find(name);
        if (e == nullptr) {
            std::vector<std::string> callable = CallableExports();
            std::vector<std::string_view> names(callable.begin(), callable.end());
            problem->suggestions = zanth::dynamic::Closest(name, names, 3);
            std::string text = "no export named \"" + name + "\"";
            for (size_t i = 0; i < problem->suggestions.size(); ++i) {
                text += (i == 0 ? "; did you mean " : ", ") + problem->suggestions[i];
            }
            return Fail(problem, 404, "", text + (problem->suggestions.empty() ? "" : "?"));
        }
        if (!Callable(*e)) {
            return Fail(problem, 403, "", std::string(e->name) + ": " + Withheld(e->category));
        }
        if (!args.is_object() && !args.is_null()) {
            return Fail(problem, 400, "", "the body must be a JSON object of the arguments by their names");
        }
        auto impl = std::make_shared<PreparedCall::Impl>();
        impl->name = e->name;
        impl->asked = e;
        if (e->category == meta::Category::kCommand) {
            impl->blocking = e->form == meta::Form::kBlocking ? e : Twin(*e);
            impl->rsp = e->form == meta::Form::kRsp ? e : Twin(*e);
            if (impl->blocking && impl->blocking->form != meta::Form::kBlocking) impl->blocking = nullptr;
            if (impl->rsp && impl->rsp->form != meta::Form::kRsp) impl->rsp = nullptr;
            bool blockingFirst = impl->blocking && SometimesUnanswered(*impl->blocking);
            impl->way = impl->rsp && !blockingFirst ? CallWay::kRsp : CallWay::kBlocking;
            impl->awaits = !e->hasWire || e->awaitsReply;
        }
        if (!args.is_null()) {
            for (const auto& [key, value] : args.items()) {
                int index = dyn::FindParam(*e, key);
                const meta::Param* p = index >= 0 ? &e->params[index] : nullptr;
                if (p && p->role == meta::Role::kRspid) {
                    return Fail(problem, 400, key, key + ": the gateway chooses the rspid itself");
                }
                zanth::Value v;
                bool bytes = p && p->base == meta::Base::kBytes;
                bool number = p && p->base != meta::Base::kText && p->base != meta::Base::kBytes &&
                              p->role != meta::Role::kInChar;
                if (value.is_number_integer() && !value.is_number_unsigned()) {
                    v = value.get<int64_t>();
                } else if (value.is_number_unsigned()) {
                    uint64_t u = value.get<uint64_t>();
                    if (u > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
                        return Fail(problem, 400, key, key + ": " + std::to_string(u) + " is out of range");
                    }
                    v = static_cast<int64_t>(u);
                } else if (value.is_string()) {
                    std::string text = value.get<std::string>();
                    if (bytes) {
                        std::string raw;
                        if (!FromBase64(text, &raw)) return Fail(problem, 400, key, key + ": must be base64");
                        v = zanth::Bytes(raw.begin(), raw.end());
                    } else if (p && (p->role == meta::Role::kLocalPath || p->bounds.localPath)) {
                        std::string inside = Confined(options.filesDir, text);
                        if (inside.empty()) {
                            return Fail(problem, 400, key,
                                        key + ": must name a file inside the gateway's files folder "
                                              "(a name relative to it), not \"" + text + "\"");
                        }
                        v = inside;
                    } else if (p && p->role == meta::Role::kMac) {
                        std::string mac = NormalizeMac(text);
                        if (mac.empty()) {
                            return Fail(problem, 400, key, key + ": must be a controller's MAC such as \"00:00:01\"");
                        }
                        impl->mac = mac;
                        v = options.macForm ? options.macForm(mac) : mac;
                    } else {
                        v = text;
                    }
                } else {
                    const char* want = number ? "an integer" : bytes ? "base64 text" : p ? "a text" : "an integer or a text";
                    return Fail(problem, 400, key, key + ": must be " + want + ", not " +
                                                       (value.is_number() ? "a fraction" : std::string("JSON ") + value.type_name()));
                }
                impl->audit[key] = Secret(key) ? json("***")
                                   : std::holds_alternative<zanth::Bytes>(v) ? json({{"bytes", std::get<zanth::Bytes>(v).size()}})
                                               : value;
                impl->args[key] = std::move(v);
            }
        }
        zanth::Args checked = impl->args;
        if (e->form == meta::Form::kRsp) checked["rspid"] = int64_t{1};
        dyn::CheckArgs(e->name, checked);
        out->impl = std::move(impl);
        return true;
    } catch (const zanth::ArgumentError& a) {
        return Fail(problem, 400, a.param(), a.what());
    } catch (const std::exception& x) {
        return Fail(problem, 400, "", x.what());
    }
}

int32_t SendRsp(const PreparedCall& call, uint32_t rspid) {
    const PreparedCall::Impl& c = *call.impl;
    if (c.rsp == nullptr) return -10002;
    zanth::Args args;
    for (const auto& [key, value] : c.args) {
        if (dyn::FindParam(*c.rsp, key) >= 0) args[key] = value;
    }
    args["rspid"] = static_cast<int64_t>(rspid);
    try {
        // Some Rsp forms say -1 for "queued" (a reading schedule command), or -1 whatever happened
        // (a writing one): by the form's own rule, a success means the message went out.
        int32_t result = dyn::Invoke(c.rsp->name, args).result;
        return zanth::Succeeded(c.rsp->rule, result) ? 0 : (result == 0 ? -10001 : result);
    } catch (const zanth::ArgumentError&) {
        return -10002;
    } catch (const std::exception&) {
        return -10001;
    }
}

namespace {

meta::Rule RuleOf(const PreparedCall::Impl& c) {
    if (c.blocking) return c.blocking->rule;
    return c.asked->form == meta::Form::kRsp ? meta::Rule::kController : c.asked->rule;
}

}  // namespace

CallResult DecodeReply(const PreparedCall& call, const std::string& frame) {
    const PreparedCall::Impl& c = *call.impl;
    CallResult r;
    try {
        dyn::Decoded d = dyn::DecodeReply(c.rsp ? c.rsp->name : c.asked->name, frame, c.args);
        r.result = d.result;
        r.ok = d.ok;
        r.outputs = OutputsJson(d.outputs);
    } catch (const std::exception&) {
        r.result = -10010;
        r.ok = zanth::Succeeded(RuleOf(c), r.result);
    }
    return r;
}

CallResult RunHere(const PreparedCall& call) {
    const PreparedCall::Impl& c = *call.impl;
    const meta::Export* e = c.way == CallWay::kBlocking && c.blocking ? c.blocking : c.asked;
    CallResult r;
    try {
        dyn::Call done = dyn::Invoke(e->name, c.args);
        r.result = done.result;
        r.ok = done.ok;
        r.outputs = OutputsJson(done.outputs);
    } catch (const zanth::ArgumentError&) {
        r.result = -10002;
    } catch (const std::exception&) {
        r.result = -10001;
    }
    return r;
}

CallResult ResultOnly(const PreparedCall& call, int32_t result) {
    CallResult r;
    r.result = result;
    r.ok = call.impl && zanth::Succeeded(RuleOf(*call.impl), result);
    return r;
}

std::string ResultName(int32_t result) { return zanth::ResultName(result); }
std::string ResultMeaning(int32_t result) { return zanth::ResultMeaning(result); }

std::string Base64(const std::string& bytes) {
    static const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    size_t i = 0;
    for (; i + 2 < bytes.size(); i += 3) {
        uint32_t n = (static_cast<uint8_t>(bytes[i]) << 16) | (static_cast<uint8_t>(bytes[i + 1]) << 8) |
                     static_cast<uint8_t>(bytes[i + 2]);
        for (int shift : {18, 12, 6, 0}) out.push_back(kAlphabet[(n >> shift) & 63]);
    }
    if (i < bytes.size()) {
        uint32_t n = static_cast<uint8_t>(bytes[i]) << 16;
        if (i + 1 < bytes.size()) n |= static_cast<uint8_t>(bytes[i + 1]) << 8;
        out.push_back(kAlphabet[(n >> 18) & 63]);
        out.push_back(kAlphabet[(n >> 12) & 63]);
        out.push_back(i + 1 < bytes.size() ? kAlphabet[(n >> 6) & 63] : '=');
        out.push_back('=');
    }
    return out;
}

bool FromBase64(const std::string& text, std::string* bytes) {
    auto value = [](char c) -> int {
        if (c >= 'A' && c <= 'Z') return c - 'A';
        if (c >= 'a' && c <= 'z') return c - 'a' + 26;
        if (c >= '0' && c <= '9') return c - '0' + 52;
        if (c == '+') return 62;
        if (c == '/') return 63;
        return -1;
    };
    if (text.size() % 4 != 0) return false;
    bytes->clear();
    for (size_t i = 0; i < text.size(); i += 4) {
        int v[4];
        int pad = 0;
        for (int k = 0; k < 4; ++k) {
            char c = text[i + k];
            if (c == '=' && i + 4 == text.size() && k >= 2) {
                v[k] = 0;
                ++pad;
            } else if (pad > 0 || (v[k] = value(c)) < 0) {
                return false;
            }
        }
        uint32_t n = (v[0] << 18) | (v[1] << 12) | (v[2] << 6) | v[3];
        bytes->push_back(static_cast<char>(n >> 16));
        if (pad < 2) bytes->push_back(static_cast<char>((n >> 8) & 255));
        if (pad < 1) bytes->push_back(static_cast<char>(n & 255));
    }
    return true;
}

}  // namespace zanthd
