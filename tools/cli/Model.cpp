// The API model as the command line needs it: exports by name with their parameters for a
// person and for the argument parser, the model's checks, and the decoding of Rsp replies. The
// tables come from zanth.hpp (generated from the model); no export is named here.

#include <algorithm>
#include <cctype>

#include "tools/cli/Api.h"
#include "zanth.hpp"

namespace zanth::cli::model {
namespace {

namespace m = ::zanth::meta;
namespace dyn = ::zanth::dynamic;

std::string Lower(std::string_view text) {
    std::string out(text);
    for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

const char* FormName(m::Form f) {
    switch (f) {
        case m::Form::kBlocking: return "blocking";
        case m::Form::kRsp: return "rsp";
        case m::Form::kLocal: return "local";
    }
    return "";
}

const char* CategoryName(m::Category c) {
    switch (c) {
        case m::Category::kCommand: return "command";
        case m::Category::kSetting: return "setting";
        case m::Category::kLife: return "life";
        case m::Category::kInfo: return "info";
        case m::Category::kCallback: return "callback";
        case m::Category::kQueue: return "queue";
        case m::Category::kMessageFile: return "message_file";
    }
    return "";
}

const char* PatternText(m::Pattern p) {
    switch (p) {
        case m::Pattern::kNone: return "";
        case m::Pattern::kHex: return "hexadecimal digits";
        case m::Pattern::kHexOrEmpty: return "hexadecimal digits or nothing";
        case m::Pattern::kOctal3: return "three octal digits such as 644";
        case m::Pattern::kDate: return "a date yyyy/mm/dd";
        case m::Pattern::kDateOrZero: return "a date yyyy/mm/dd or 0";
        case m::Pattern::kTime: return "a time hh:mm:ss";
        case m::Pattern::kTimeOrZero: return "a time hh:mm:ss or 0";
    }
    return "";
}

// The C type's own range, which says nothing worth printing.
bool WholeRange(m::Base base, int64_t min, int64_t max) {
    switch (base) {
        case m::Base::kInt32: return min == INT32_MIN && max == INT32_MAX;
        case m::Base::kUint32: return min == 0 && max == UINT32_MAX;
        case m::Base::kUint16: return min == 0 && max == UINT16_MAX;
        case m::Base::kUint64: return min == 0 && max == INT64_MAX;
        default: return false;
    }
}

std::string BoundsText(const m::Param& p, const m::Bounds& b) {
    std::vector<std::string> parts;
    if (p.role == m::Role::kMac) return "a controller's MAC such as C0:00:01";
    bool number = p.base == m::Base::kInt32 || p.base == m::Base::kUint32 ||
                  p.base == m::Base::kUint16 || p.base == m::Base::kUint64 ||
                  p.base == m::Base::kChar;
    if (number) {
        if (b.valueCount != 0) {
            std::string s = "one of ";
            for (uint8_t i = 0; i < b.valueCount; ++i) {
                s += (i ? ", " : "") + (p.base == m::Base::kChar
                                            ? std::string(1, static_cast<char>(b.values[i]))
                                            : std::to_string(b.values[i]));
            }
            parts.push_back(s);
        } else if (!WholeRange(p.base, b.min, b.max)) {
            parts.push_back(std::to_string(b.min) + " to " + std::to_string(b.max));
        }
    }
    if (b.pattern != m::Pattern::kNone) parts.emplace_back(PatternText(b.pattern));
    if (b.notEmpty) parts.emplace_back("not empty");
    if (b.maxLength > 0) parts.push_back("at most " + std::to_string(b.maxLength) + " bytes");
    if (b.noSemicolon) parts.emplace_back("no ';'");
    if (b.localPath) parts.emplace_back("a path on this computer");
    std::string out;
    for (size_t i = 0; i < parts.size(); ++i) out += (i ? ", " : "") + parts[i];
    return out;
}

Kind KindOf(m::Base base) {
    switch (base) {
        case m::Base::kChar: return Kind::kCharacter;
        case m::Base::kText: return Kind::kText;
        case m::Base::kBytes: return Kind::kBytes;
        default: return Kind::kInteger;
    }
}

// The setting moves the library's own files when a local path goes in, in this mode or, with
// the mode not known, in any.
bool MovesOwnFiles(const m::Export& e, std::optional<int64_t> mode) {
    if (e.category != m::Category::kSetting || !e.localFiles) return false;
    for (uint8_t i = 0; i < e.paramCount; ++i) {
        const m::Param& p = e.params[i];
        if (p.modeCount != 0 && !mode) {
            for (uint8_t k = 0; k < p.modeCount; ++k) {
                if (p.modes[k].bounds.localPath && p.modes[k].dir == m::Dir::kIn) return true;
            }
        } else if (dyn::BoundsIn(p, mode).localPath && dyn::DirIn(p, mode) == m::Dir::kIn) {
            return true;
        }
    }
    return false;
}

ArgError Convert(const ::zanth::ArgumentError& e) { return ArgError(e.exportName(), e.param(), e.why()); }

}  // namespace

std::optional<Export> Find(std::string_view name, std::optional<int64_t> mode) {
    const m::Export* e = dyn::Find(name);
    if (e == nullptr) return std::nullopt;
    Export out;
    out.name = e->name;
    out.decl = e->decl;
    out.doc = e->doc ? e->doc : "";
    out.family = e->family ? e->family->title : "";
    out.familyNotes = e->family && e->family->notes ? e->family->notes : "";
    out.form = FormName(e->form);
    out.twin = e->twin ? e->twin : "";
    out.category = CategoryName(e->category);
    const m::RuleInfo& rule = ::zanth::RuleOf(e->rule);
    out.rule = rule.name;
    out.ruleDoc = rule.doc ? rule.doc : "";
    out.why = e->why ? e->why : "";
    out.callable = e->call != nullptr;
    out.rsp = e->form == m::Form::kRsp;
    out.decodable = e->hasWire && e->replyCount != 0;
    out.movesOwnFiles = MovesOwnFiles(*e, mode);
    for (uint8_t i = 0; i < e->paramCount; ++i) {
        const m::Param& p = e->params[i];
        if (p.role == m::Role::kCallback || p.role == m::Role::kHandle) continue;
        Param q;
        q.name = p.name;
        q.ctype = p.ctype;
        q.kind = KindOf(p.base);
        m::Dir d = dyn::DirIn(p, mode);
        q.byMode = p.modeCount != 0 && !mode;
        q.mac = p.role == m::Role::kMac;
        q.rspid = p.role == m::Role::kRspid;
        if (p.role == m::Role::kSize) {
            // A size of an input is measured, never given; a size of an output may be.
            const m::Param& buffer = e->params[p.ofParam];
            if (!dyn::IsOutput(dyn::DirIn(buffer, mode))) continue;
            q.size = true;
            q.input = true;
            q.defaultSize = p.defaultSize;
        } else {
            q.input = d == m::Dir::kIn || d == m::Dir::kInout;
            q.output = dyn::IsOutput(d);
            if (d == m::Dir::kUnused) continue;
        }
        const m::Bounds& b = dyn::BoundsIn(p, mode);
        q.localPath = p.role == m::Role::kLocalPath || b.localPath;
        q.bounds = BoundsText(p, b);
        if (q.mac) out.hasMac = true;
        out.params.push_back(std::move(q));
    }
    int modeIndex = dyn::FindParam(*e, "mode");
    if (modeIndex >= 0 && e->params[modeIndex].role == m::Role::kIn) {
        const m::Param& p = e->params[modeIndex];
        for (uint8_t i = 0; i < p.bounds.valueCount; ++i) out.modes.push_back(p.bounds.values[i]);
        for (size_t i = 0; i < out.params.size(); ++i) {
            if (out.params[i].name == "mode") out.modeParam = static_cast<int>(i);
        }
    }
    return out;
}

std::vector<std::string> Names() {
    std::vector<std::string> out;
    for (const m::Export& e : m::kExports) out.emplace_back(e.name);
    return out;
}

std::vector<std::string> Suggest(std::string_view name, size_t max) {
    // A name written in another case is the export itself.
    for (const m::Export& e : m::kExports) {
        if (Lower(e.name) == Lower(name)) return {e.name};
    }
    return dyn::Suggest(name, max);
}

void Check(std::string_view name, const Args& args) {
    try {
        dyn::CheckArgs(name, args);
    } catch (const ::zanth::ArgumentError& e) {
        throw Convert(e);
    } catch (const ::zanth::UnknownExport& e) {
        throw UnknownName(e.name(), e.suggestions());
    }
}

Reply Decode(std::string_view name, uint32_t rspid, std::string_view frame, const Args& args) {
    Reply r;
    r.rspid = rspid;
    r.frame = std::string(frame);
    try {
        dyn::Decoded d = dyn::DecodeReply(name, frame, args);
        r.replyCode = d.code;
        r.result = d.result;
        r.ok = d.ok;
        r.raw = d.raw;
        r.outputs = std::move(d.outputs);
    } catch (const ::zanth::ArgumentError& e) {
        throw Convert(e);
    } catch (const ::zanth::UnknownExport& e) {
        throw UnknownName(e.name(), e.suggestions());
    }
    r.name = ::zanth::ResultName(r.result);
    r.meaning = ::zanth::ResultMeaning(r.result);
    return r;
}

std::string ResultName(int32_t code) { return ::zanth::ResultName(code); }
std::string ResultMeaning(int32_t code) { return ::zanth::ResultMeaning(code); }
std::string LibraryVersion() { return m::kLibraryVersion; }
size_t ExportCount() { return std::size(m::kExports); }

}  // namespace zanth::cli::model

namespace zanth::cli {

// The suggestions and the MAC comparison are zanth.hpp's, so that the command line, the gateway
// and the C++ layer say the same.
std::vector<std::string> Closest(std::string_view name, const std::vector<std::string>& names,
                                 size_t max) {
    return ::zanth::dynamic::Closest(name, names, max);
}

bool SameMac(std::string_view a, std::string_view b) {
    return ::zanth::Session::SameMac(a, b);
}

}  // namespace zanth::cli
