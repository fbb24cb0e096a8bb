// zanth_dynamic.hpp: the dynamic layer of zanth.hpp. Include zanth.hpp, not this file.
//
// Every export can be looked up and called by name, with named arguments checked against the
// API model (api/zanth-api.json) before anything reaches the library, and every reply that a Rsp
// form delivers can be decoded into the named outputs of its blocking form:
//
//     zanth::Args args{{"mac", std::string("C0:00:01")}, {"target", int64_t{32}},
//                      {"bitOrFunctionCode", int64_t{0}}, {"state", int64_t{1}}};
//     zanth::dynamic::Call c = zanth::dynamic::Invoke("CmdOutputFunction3", args);
//     if (!c.ok) std::cerr << c.ResultName() << ": " << c.ResultMeaning() << "\n";
//
//     args["rspid"] = int64_t{7};
//     zanth::dynamic::Invoke("RspGetTimeDate", args);          // ... GetNextResponse gives rspid 7
//     zanth::dynamic::Decoded d = zanth::dynamic::DecodeReply("RspGetTimeDate", frame);
//     // d.outputs["date"], d.outputs["time"]: what GetTimeDate would have written
//
// The tables (zanth_table.hpp) are generated from the model by api/generate.py; the logic here is
// written by hand and knows no export by name.

#ifndef ZANTH_HPP_INSIDE
#error "include zanth.hpp, not zanth_dynamic.hpp"
#endif

namespace zanth {

namespace detail {
class Slots;
}

// The model as C++ tables. Everything here is constant data with static storage.
namespace meta {

enum class Role : uint8_t {
    kMac,            // a controller's MAC, "XX:XX:XX"
    kRspid,          // the tag of a Rsp form's reply
    kIn,             // a plain number
    kInChar,         // one character, given as a one-character text
    kInText,         // a text the library only reads
    kWritableText,   // a text the library may change: always passed as a copy of its own
    kOutText,        // an output text; its size parameter is `sizeParam`, or `fixedSize`
    kInoutText,      // a text read and then overwritten (a selection that the reply rewrites)
    kOutBytes,       // an output chunk of bytes; its count is written to `countParam`
    kInBytes,        // an input chunk of bytes; its size parameter is `sizeParam`
    kSize,           // the size of the buffer `ofParam`
    kOutInt32,
    kOutUint32,
    kOutUint64,
    kInoutInt32,     // a number read and then overwritten
    kCallback,
    kHandle,         // an opaque pointer the library keeps but doesn't use
    kLocalPath,      // a path on the host's own disk
    kModeDependent,  // in or out by the value of the `mode` parameter (`modes`)
};

enum class Base : uint8_t { kInt32, kUint32, kUint16, kUint64, kChar, kText, kBytes, kCallback, kHandle };
enum class Dir : uint8_t { kIn, kOut, kInout, kUnused };
enum class Pattern : uint8_t {
    kNone,
    kHex,         // hexadecimal digits, at least one
    kHexOrEmpty,  // hexadecimal digits, or nothing
    kOctal3,      // three digits 0 to 7
    kDate,        // yyyy/mm/dd, year 1901 to 2037, month 1 to 12, day 1 to 31
    kDateOrZero,  // a date, or "0"
    kTime,        // hh:mm:ss, hour 0 to 23, minute and second 0 to 59
    kTimeOrZero,  // a time, or "0"
};

// What an argument must satisfy. Numbers: min..max (the C type's range where the model states
// none) and, where `valueCount` is non-zero, one of `values`. Texts: the flags.
struct Bounds {
    int64_t min;
    int64_t max;
    const int64_t* values;
    uint8_t valueCount;
    Pattern pattern;
    bool noSemicolon;
    bool notEmpty;
    int32_t maxLength;    // 0: none
    int32_t minCapacity;  // a writable text's buffer holds at least this many bytes
    bool localPath;
    bool verbatim;
};

struct ModeRule {
    int32_t mode;
    Dir dir;
    Bounds bounds;
};

struct Param {
    const char* name;
    const char* ctype;
    Role role;
    Base base;
    Dir dir;  // for a mode-dependent parameter, see `modes`
    Bounds bounds;
    int8_t sizeParam;   // index of this buffer's size parameter, -1: none
    int8_t ofParam;     // index of the buffer a size parameter measures, -1: none
    int8_t countParam;  // index of the count of an output chunk, -1: none
    int8_t modeParam;   // index of the `mode` parameter, -1: none
    int32_t defaultSize;
    int32_t fixedSize;  // an output text without a size parameter holds this many bytes
    bool frame;         // an output that holds a reply frame, measured by its length field
    const ModeRule* modes;
    uint8_t modeCount;
    const char* callbackKind;
};

enum class Tokenizer : uint8_t { kTokens, kEvery, kGetline };
enum class FieldKind : uint8_t {
    kResult, kInt, kUint, kStrictInt, kStatus, kText, kStamp, kRest, kSkip, kWireDate, kWireTime
};
enum class ResultMap : uint8_t { kLow, kNone, kLeading, kBoard, kMox, kErrorLog, kTransfer };
enum class Then : uint8_t { kNonNegative, kZero };

struct Field {
    FieldKind kind;
    int8_t out;   // index into the reply's output names, -1: not passed on
    int8_t out2;  // a stamp's time
    ResultMap map;
    Then then;
    bool optional;
    int32_t count;
    int32_t offset;  // a rest from this byte of the payload, -1: behind the fields read
    int32_t missing;
};

struct Layout {
    const char* name;
    Tokenizer tokenizer;
    char delimiter;
    bool raw;
    int32_t exactCount;  // -1: any count
    int32_t countMismatch;
    bool hasResult;      // the result is `result` whatever the payload holds
    int32_t result;
    const Field* fields;
    uint8_t fieldCount;
    const char* doc;
};

enum class CodeSource : uint8_t { kList, kLibrary, kAny, kUnnamed };

struct Reply {
    CodeSource source;
    int32_t code;
    const char* codeName;
    const Layout* layout;
    const char* const* outs;
    uint8_t outCount;
    bool anyMode;
    int32_t mode;
};

struct Send {
    CodeSource source;
    int32_t code;
    const char* codeName;
    bool anyMode;
    int32_t mode;
    const char* when;
};

enum class OtherCode : uint8_t { kCheckErrorCode, kNoReply, kZero, kCannotProcess };
enum class Form : uint8_t { kBlocking, kRsp, kLocal };
enum class Category : uint8_t { kCommand, kSetting, kLife, kInfo, kCallback, kQueue, kMessageFile };
enum class Rule : uint8_t { kController, kZero, kStatus, kStatusRsp, kResultRsp, kPoll, kPollFile };

struct RuleInfo {
    Rule rule;
    const char* name;
    bool hasMin;
    int64_t okMin;
    const int32_t* okValues;
    uint8_t okCount;
    bool alwaysOk;
    bool hasEmpty;
    int32_t empty;
    const char* doc;
};

struct Family {
    const char* id;
    const char* title;
    const char* notes;
};

struct ResultInfo {
    int32_t code;
    const char* name;
    const char* meaning;
};

struct Export {
    const char* name;
    const Family* family;
    const char* decl;
    const char* doc;
    Form form;
    const char* twin;  // the other form's name, or null
    Category category;
    Rule rule;
    const Param* params;
    uint8_t paramCount;
    int32_t (*call)(detail::Slots&);  // null for the callback registrations
    bool hasWire;
    bool awaitsReply;
    OtherCode otherCode;
    const Send* sends;
    uint8_t sendCount;
    const Reply* replies;
    uint8_t replyCount;
    bool localFiles;
    bool positiveResult;
    const char* modeOf;  // a form of this `mode` export with the mode fixed, or null
    int32_t fixedMode;
    const char* why;
};

}  // namespace meta

namespace detail {

// The arguments of one call, as the C function takes them: one slot per parameter.
class Slots {
  public:
    explicit Slots(size_t count) : slots_(count) {}
    struct Slot {
        int64_t number = 0;
        int32_t i32 = 0;
        uint32_t u32 = 0;
        uint64_t u64 = 0;
        std::vector<char> buffer;
    };
    Slot& operator[](size_t i) { return slots_[i]; }
    const Slot& operator[](size_t i) const { return slots_[i]; }

    // Prepare gives every text and buffer parameter a buffer of its own before the call.
    const char* Text(size_t i) { return slots_[i].buffer.data(); }
    char* Buffer(size_t i) { return slots_[i].buffer.data(); }
    int32_t I32(size_t i) const { return static_cast<int32_t>(slots_[i].number); }
    uint32_t U32(size_t i) const { return static_cast<uint32_t>(slots_[i].number); }
    uint16_t U16(size_t i) const { return static_cast<uint16_t>(slots_[i].number); }
    char Chr(size_t i) const { return static_cast<char>(slots_[i].number); }
    int32_t* PI32(size_t i) { return &slots_[i].i32; }
    uint32_t* PU32(size_t i) { return &slots_[i].u32; }
    uint64_t* PU64(size_t i) { return &slots_[i].u64; }

  private:
    std::vector<Slot> slots_;
};

}  // namespace detail
}  // namespace zanth

#include "zanth_table.hpp"

namespace zanth {

// ---- Results and success rules --------------------------------------------------------------

inline const meta::ResultInfo* FindResult(int32_t code) {
    for (const meta::ResultInfo& r : meta::kResults) {
        if (r.code == code) return &r;
    }
    return nullptr;
}

// "kNotValid" for a library result; otherwise what kind of value it is.
inline std::string ResultName(int32_t code) {
    if (const meta::ResultInfo* r = FindResult(code)) return r->name;
    if (code == 0) return "ok";
    if (code > 0) return "positive";
    return "controller result";
}

inline std::string ResultMeaning(int32_t code) {
    if (const meta::ResultInfo* r = FindResult(code)) return r->meaning;
    if (code == 0) return "success";
    if (code > 0) {
        return "a positive value: the controller's own success value where the command's rule "
               "allows it, otherwise a system (socket or thread) error number";
    }
    return "the controller's own negative result";
}

inline const meta::RuleInfo& RuleOf(meta::Rule rule) {
    for (const meta::RuleInfo& r : meta::kRules) {
        if (r.rule == rule) return r;
    }
    return meta::kRules[0];
}

// The model's success test: true when `result` is a success under `rule`. The benign "empty" of
// a poll counts as no failure here; IsEmpty tells it apart.
inline bool Succeeded(meta::Rule rule, int32_t result) {
    const meta::RuleInfo& r = RuleOf(rule);
    if (r.alwaysOk) return true;
    if (r.hasEmpty && result == r.empty) return true;
    if (r.hasMin && result >= r.okMin) return true;
    for (uint8_t i = 0; i < r.okCount; ++i) {
        if (r.okValues[i] == result) return true;
    }
    return false;
}

inline bool IsEmpty(meta::Rule rule, int32_t result) {
    const meta::RuleInfo& r = RuleOf(rule);
    return r.hasEmpty && result == r.empty;
}

// A result that the export's rule calls a failure: the code, its name and its meaning.
class Error : public std::runtime_error {
  public:
    Error(std::string exportName, int32_t code)
        : std::runtime_error(exportName + ": " + std::to_string(code) + " " + ResultName(code) +
                             ": " + ResultMeaning(code)),
          export_(std::move(exportName)),
          code_(code) {}
    int32_t code() const noexcept { return code_; }
    std::string name() const { return ResultName(code_); }
    std::string meaning() const { return ResultMeaning(code_); }
    const std::string& exportName() const noexcept { return export_; }

  private:
    std::string export_;
    int32_t code_;
};

// An argument that doesn't fit the model; nothing was called. `param` is empty when the export
// as a whole can't be called this way.
class ArgumentError : public std::invalid_argument {
  public:
    ArgumentError(const std::string& exportName, const std::string& param, const std::string& why)
        : std::invalid_argument(exportName + (param.empty() ? "" : ": " + param) + ": " + why),
          export_(exportName),
          param_(param),
          why_(why) {}
    const std::string& exportName() const noexcept { return export_; }
    const std::string& param() const noexcept { return param_; }
    const std::string& why() const noexcept { return why_; }

  private:
    std::string export_, param_, why_;
};

// A name that is no export, with the closest names.
class UnknownExport : public std::out_of_range {
  public:
    UnknownExport(const std::string& name, std::vector<std::string> suggestions)
        : std::out_of_range(Text(name, suggestions)), name_(name),
          suggestions_(std::move(suggestions)) {}
    const std::string& name() const noexcept { return name_; }
    const std::vector<std::string>& suggestions() const noexcept { return suggestions_; }

  private:
    static std::string Text(const std::string& name, const std::vector<std::string>& s) {
        std::string t = "no export named '" + name + "'";
        for (size_t i = 0; i < s.size(); ++i) t += (i == 0 ? "; did you mean " : ", ") + s[i];
        return t + (s.empty() ? "" : "?");
    }
    std::string name_;
    std::vector<std::string> suggestions_;
};

namespace detail {

// Throws Error for a result the rule calls a failure; true for a poll's "nothing".
inline bool CheckResult(const char* exportName, meta::Rule rule, int32_t result) {
    if (!Succeeded(rule, result)) throw Error(exportName, result);
    return IsEmpty(rule, result);
}

inline bool EqualsNoCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    }
    return true;
}

// Edit distance, case ignored, for suggestions.
inline size_t Distance(std::string_view a, std::string_view b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            size_t above = row[j];
            bool same = std::tolower(static_cast<unsigned char>(a[i - 1])) ==
                        std::tolower(static_cast<unsigned char>(b[j - 1]));
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (same ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}

// The `max` closest of `names` to `name`: a case-insensitive prefix or substring first, then by
// edit distance within a third of the name's length.
template <class Names>
std::vector<std::string> Closest(std::string_view name, const Names& names, size_t max) {
    std::vector<std::pair<size_t, std::string>> ranked;
    std::string lower(name);
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (std::string_view candidate : names) {
        std::string lc(candidate);
        for (char& c : lc) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        size_t d = Distance(name, candidate);
        if (!lower.empty() && lc.find(lower) != std::string::npos) d = std::min<size_t>(d, 1);
        if (d <= std::max<size_t>(2, name.size() / 3)) ranked.emplace_back(d, std::string(candidate));
    }
    std::stable_sort(ranked.begin(), ranked.end(),
                     [](const auto& x, const auto& y) { return x.first < y.first; });
    std::vector<std::string> out;
    for (size_t i = 0; i < ranked.size() && out.size() < max; ++i) out.push_back(ranked[i].second);
    return out;
}

}  // namespace detail

namespace dynamic {

// ---- Looking exports up -----------------------------------------------------------------------

inline const meta::Export* Find(std::string_view name) {
    for (const meta::Export& e : meta::kExports) {
        if (name == e.name) return &e;
    }
    return nullptr;
}

// The `max` of `names` closest to `name`, for a "did you mean": a case-insensitive prefix or
// substring first, then by edit distance within a third of the name's length.
using detail::Closest;

inline std::vector<std::string> Suggest(std::string_view name, size_t max = 3) {
    std::vector<std::string_view> names;
    for (const meta::Export& e : meta::kExports) names.emplace_back(e.name);
    return detail::Closest(name, names, max);
}

// The export of that name; UnknownExport with the closest names otherwise.
inline const meta::Export& Get(std::string_view name) {
    if (const meta::Export* e = Find(name)) return *e;
    throw UnknownExport(std::string(name), Suggest(name));
}

inline int FindParam(const meta::Export& e, std::string_view name) {
    for (uint8_t i = 0; i < e.paramCount; ++i) {
        if (name == e.params[i].name) return i;
    }
    return -1;
}

// The direction and bounds of a parameter in `mode` (the mode's own where it has one).
inline meta::Dir DirIn(const meta::Param& p, std::optional<int64_t> mode) {
    if (p.modeCount == 0 || !mode) return p.dir;
    for (uint8_t i = 0; i < p.modeCount; ++i) {
        if (p.modes[i].mode == *mode) return p.modes[i].dir;
    }
    return meta::Dir::kUnused;
}

inline const meta::Bounds& BoundsIn(const meta::Param& p, std::optional<int64_t> mode) {
    if (p.modeCount != 0 && mode) {
        for (uint8_t i = 0; i < p.modeCount; ++i) {
            if (p.modes[i].mode == *mode) return p.modes[i].bounds;
        }
    }
    return p.bounds;
}

inline bool IsOutput(meta::Dir d) { return d == meta::Dir::kOut || d == meta::Dir::kInout; }

// The parameters a caller gives (in their order), and those that come back.
inline std::vector<const meta::Param*> InputParams(const meta::Export& e, std::optional<int64_t> mode = {}) {
    std::vector<const meta::Param*> out;
    for (uint8_t i = 0; i < e.paramCount; ++i) {
        const meta::Param& p = e.params[i];
        meta::Dir d = DirIn(p, mode);
        if (p.role == meta::Role::kSize || p.role == meta::Role::kHandle ||
            p.role == meta::Role::kCallback || d == meta::Dir::kOut || d == meta::Dir::kUnused)
            continue;
        out.push_back(&p);
    }
    return out;
}

inline std::vector<const meta::Param*> OutputParams(const meta::Export& e, std::optional<int64_t> mode = {}) {
    std::vector<const meta::Param*> out;
    for (uint8_t i = 0; i < e.paramCount; ++i) {
        if (IsOutput(DirIn(e.params[i], mode))) out.push_back(&e.params[i]);
    }
    return out;
}

// ---- Checking arguments -----------------------------------------------------------------------

namespace check {

inline bool AllDigits(std::string_view t, size_t from, size_t to) {
    if (from >= to) return false;
    for (size_t i = from; i < to; ++i) {
        if (t[i] < '0' || t[i] > '9') return false;
    }
    return true;
}

// "a/b/c" with each part digits and within its bounds.
inline bool Triple(std::string_view t, char sep, const int (&low)[3], const int (&high)[3]) {
    size_t first = t.find(sep);
    size_t second = first == std::string_view::npos ? first : t.find(sep, first + 1);
    if (second == std::string_view::npos || t.find(sep, second + 1) != std::string_view::npos)
        return false;
    size_t bounds[4] = {0, first, second, t.size()};
    for (int i = 0; i < 3; ++i) {
        size_t from = i == 0 ? 0 : bounds[i] + 1;
        size_t to = bounds[i + 1];
        if (!AllDigits(t, from, to) || to - from > 4) return false;
        int value = std::stoi(std::string(t.substr(from, to - from)));
        if (value < low[i] || value > high[i]) return false;
    }
    return true;
}

inline bool Matches(meta::Pattern pattern, std::string_view t, std::string* expected) {
    static constexpr int dateLow[3] = {1901, 1, 1}, dateHigh[3] = {2037, 12, 31};
    static constexpr int timeLow[3] = {0, 0, 0}, timeHigh[3] = {23, 59, 59};
    auto hex = [&t](bool empty) {
        if (t.empty()) return empty;
        return std::all_of(t.begin(), t.end(),
                           [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; });
    };
    switch (pattern) {
        case meta::Pattern::kNone:
            return true;
        case meta::Pattern::kHex:
            *expected = "hexadecimal digits";
            return hex(false);
        case meta::Pattern::kHexOrEmpty:
            *expected = "hexadecimal digits or an empty text";
            return hex(true);
        case meta::Pattern::kOctal3:
            *expected = "three octal digits such as 644";
            return t.size() == 3 &&
                   std::all_of(t.begin(), t.end(), [](char c) { return c >= '0' && c <= '7'; });
        case meta::Pattern::kDate:
            *expected = "a date yyyy/mm/dd (year 1901 to 2037, month 1 to 12, day 1 to 31)";
            return Triple(t, '/', dateLow, dateHigh);
        case meta::Pattern::kDateOrZero:
            *expected = "a date yyyy/mm/dd (year 1901 to 2037, month 1 to 12, day 1 to 31) or 0";
            return t == "0" || Triple(t, '/', dateLow, dateHigh);
        case meta::Pattern::kTime:
            *expected = "a time hh:mm:ss (hour 0 to 23, minute and second 0 to 59)";
            return Triple(t, ':', timeLow, timeHigh);
        case meta::Pattern::kTimeOrZero:
            *expected = "a time hh:mm:ss (hour 0 to 23, minute and second 0 to 59) or 0";
            return t == "0" || Triple(t, ':', timeLow, timeHigh);
    }
    return false;
}

}  // namespace check

namespace detail_ {

inline const char* TypeName(const Value& v) {
    switch (v.index()) {
        case 0: return "an integer";
        case 1: return "a text";
        default: return "bytes";
    }
}

inline int64_t Integer(const meta::Export& e, const meta::Param& p, const Value& v) {
    if (const int64_t* i = std::get_if<int64_t>(&v)) return *i;
    throw ArgumentError(e.name, p.name, std::string("must be an integer (") + p.ctype + "), not " +
                                            TypeName(v));
}

inline std::string Range(const meta::Bounds& b, bool characters = false) {
    if (b.valueCount != 0) {
        std::string s = "one of ";
        for (uint8_t i = 0; i < b.valueCount; ++i) {
            s += (i ? ", " : "") + (characters ? std::string(1, static_cast<char>(b.values[i]))
                                               : std::to_string(b.values[i]));
        }
        return s;
    }
    return std::to_string(b.min) + " to " + std::to_string(b.max);
}

inline void CheckNumber(const meta::Export& e, const meta::Param& p, const meta::Bounds& b,
                        int64_t value) {
    bool listed = b.valueCount == 0;
    for (uint8_t i = 0; i < b.valueCount; ++i) listed = listed || b.values[i] == value;
    if (value < b.min || value > b.max || !listed) {
        bool characters = p.base == meta::Base::kChar;
        throw ArgumentError(e.name, p.name,
                            "must be " + Range(b, characters) + " (got " +
                                (characters ? std::string(1, static_cast<char>(value))
                                            : std::to_string(value)) + ")");
    }
}

inline std::string Text(const meta::Export& e, const meta::Param& p, const meta::Bounds& b,
                        const Value& v) {
    const std::string* t = std::get_if<std::string>(&v);
    if (t == nullptr) {
        throw ArgumentError(e.name, p.name, std::string("must be a text, not ") + TypeName(v));
    }
    if (t->find('\0') != std::string::npos) {
        throw ArgumentError(e.name, p.name, "must not hold a NUL character");
    }
    if (b.notEmpty && t->empty()) throw ArgumentError(e.name, p.name, "must not be empty");
    if (b.noSemicolon && t->find(';') != std::string::npos) {
        throw ArgumentError(e.name, p.name,
                            "must not hold ';', which separates the fields of the message");
    }
    if (b.maxLength > 0 && t->size() > static_cast<size_t>(b.maxLength)) {
        throw ArgumentError(e.name, p.name, "must be at most " + std::to_string(b.maxLength) +
                                                " bytes long (got " + std::to_string(t->size()) + ")");
    }
    std::string expected;
    if (!check::Matches(b.pattern, *t, &expected)) {
        throw ArgumentError(e.name, p.name, "must be " + expected + " (got \"" + *t + "\")");
    }
    return *t;
}

inline void CheckMac(const meta::Export& e, const meta::Param& p, const Value& v) {
    const std::string* t = std::get_if<std::string>(&v);
    if (t == nullptr) {
        throw ArgumentError(e.name, p.name, std::string("must be a text, not ") + TypeName(v));
    }
    if (t->empty() || t->size() > 64 || t->find(';') != std::string::npos ||
        t->find('\0') != std::string::npos) {
        throw ArgumentError(e.name, p.name, "must be a controller's MAC such as C0:00:01");
    }
}

inline std::vector<char> Copy(const std::string& text, size_t capacity) {
    std::vector<char> b(std::max(capacity, text.size() + 1), '\0');
    std::memcpy(b.data(), text.data(), text.size());
    return b;
}

}  // namespace detail_

// The mode an export is called in, checked first: the other parameters depend on it.
inline std::optional<int64_t> ModeOf(const meta::Export& e, const Args& args) {
    int index = FindParam(e, "mode");
    if (index < 0) return std::nullopt;
    const meta::Param& p = e.params[index];
    if (p.role != meta::Role::kIn) return std::nullopt;
    auto it = args.find("mode");
    if (it == args.end()) throw ArgumentError(e.name, "mode", "is required");
    int64_t mode = detail_::Integer(e, p, it->second);
    detail_::CheckNumber(e, p, p.bounds, mode);
    return mode;
}

// Checks `args` against the export's parameters and fills the call's slots. Nothing is called.
inline void Prepare(const meta::Export& e, const Args& args, detail::Slots& slots,
                    std::optional<int64_t>* modeOut = nullptr) {
    using meta::Dir;
    using meta::Role;
    if (e.call == nullptr) {
        throw ArgumentError(e.name, "", "a callback is registered through zanth::Session, not "
                                        "called by name");
    }
    for (const auto& kv : args) {
        if (FindParam(e, kv.first) >= 0) continue;
        std::vector<std::string_view> names;
        for (uint8_t i = 0; i < e.paramCount; ++i) names.emplace_back(e.params[i].name);
        std::vector<std::string> close = zanth::detail::Closest(kv.first, names, 2);
        std::string why = "no such parameter";
        for (size_t i = 0; i < close.size(); ++i) why += (i ? " or " : "; did you mean ") + close[i];
        throw ArgumentError(e.name, kv.first, why + (close.empty() ? "" : "?"));
    }
    std::optional<int64_t> mode = ModeOf(e, args);
    if (modeOut) *modeOut = mode;
    auto given = [&args](const meta::Param& p) -> const Value* {
        auto it = args.find(p.name);
        return it == args.end() ? nullptr : &it->second;
    };
    // Sizes first: an output buffer is as large as its size says (the caller's or the model's).
    for (uint8_t i = 0; i < e.paramCount; ++i) {
        const meta::Param& p = e.params[i];
        if (p.role != Role::kSize) continue;
        const meta::Param& buffer = e.params[p.ofParam];
        Dir d = DirIn(buffer, mode);
        const Value* v = given(p);
        if (d == Dir::kOut || d == Dir::kInout) {
            int64_t size = v ? detail_::Integer(e, p, *v) : p.defaultSize;
            detail_::CheckNumber(e, p, p.bounds, size);
            slots[i].number = size;
        } else if (v) {
            throw ArgumentError(e.name, p.name, "is the size of an input, which is measured, "
                                                "not given");
        } else {
            slots[i].number = p.bounds.min;
        }
    }
    for (uint8_t i = 0; i < e.paramCount; ++i) {
        const meta::Param& p = e.params[i];
        if (p.role == Role::kSize || p.role == Role::kHandle) continue;
        Dir d = DirIn(p, mode);
        const meta::Bounds& b = BoundsIn(p, mode);
        const Value* v = given(p);
        detail::Slots::Slot& s = slots[i];
        if (p.role == Role::kMac) {
            if (!v) throw ArgumentError(e.name, p.name, "is required");
            detail_::CheckMac(e, p, *v);
            s.buffer = detail_::Copy(std::get<std::string>(*v), 0);
            continue;
        }
        if (d == Dir::kOut) {
            if (v) throw ArgumentError(e.name, p.name, "is an output, not an argument");
        } else if (d != Dir::kUnused && !v) {
            throw ArgumentError(e.name, p.name, "is required");
        }
        bool text = p.base == meta::Base::kText;
        bool bytes = p.base == meta::Base::kBytes;
        size_t capacity = 0;
        if (p.sizeParam >= 0) capacity = static_cast<size_t>(slots[p.sizeParam].number) + 1;
        if (p.fixedSize > 0) capacity = std::max<size_t>(capacity, static_cast<size_t>(p.fixedSize) + 1);
        if (d == Dir::kUnused) {
            // Not read by the library in this mode: a zeroed place of its own all the same.
            if (text || bytes) s.buffer.assign(std::max<size_t>(capacity, 1), '\0');
            continue;
        }
        if (bytes && d == Dir::kIn) {
            const Bytes* data = std::get_if<Bytes>(v);
            const std::string* str = std::get_if<std::string>(v);
            if (data == nullptr && str == nullptr) {
                throw ArgumentError(e.name, p.name, "must be bytes or a text, not an integer");
            }
            size_t n = data ? data->size() : str->size();
            const meta::Param& size = e.params[p.sizeParam];
            detail_::CheckNumber(e, size, size.bounds, static_cast<int64_t>(n));
            s.buffer.assign(n + 1, '\0');
            if (n) std::memcpy(s.buffer.data(), data ? static_cast<const void*>(data->data()) : str->data(), n);
            slots[p.sizeParam].number = static_cast<int64_t>(n);
            continue;
        }
        if (text || bytes) {
            if (d == Dir::kOut) {
                s.buffer.assign(std::max<size_t>(capacity, 1), '\0');
                continue;
            }
            std::string t = detail_::Text(e, p, b, *v);
            if (d == Dir::kInout && t.size() + 1 > capacity) {
                throw ArgumentError(e.name, p.name, "is longer than its buffer of " +
                                                        std::to_string(capacity - 1) + " bytes");
            }
            s.buffer = detail_::Copy(t, std::max<size_t>(capacity, static_cast<size_t>(b.minCapacity)));
            // The size of a buffer that is read, not written: what it holds.
            if (p.sizeParam >= 0 && d == Dir::kIn) {
                slots[p.sizeParam].number = static_cast<int64_t>(s.buffer.size() - 1);
            }
            continue;
        }
        if (d == Dir::kOut) continue;  // a number output: zero until the library writes it
        int64_t value = 0;
        if (p.role == Role::kInChar) {
            const std::string* t = std::get_if<std::string>(v);
            if (t != nullptr && t->size() == 1) {
                value = static_cast<unsigned char>((*t)[0]);
            } else if (t != nullptr) {
                throw ArgumentError(e.name, p.name, "must be one character");
            } else {
                value = detail_::Integer(e, p, *v);
            }
        } else {
            value = detail_::Integer(e, p, *v);
        }
        detail_::CheckNumber(e, p, b, value);
        s.number = value;
        s.i32 = static_cast<int32_t>(value);
        s.u32 = static_cast<uint32_t>(value);
        s.u64 = static_cast<uint64_t>(value);
    }
}

// Checks the arguments of a call without making it (a gateway checks before it queues).
inline void CheckArgs(std::string_view exportName, const Args& args) {
    const meta::Export& e = Get(exportName);
    detail::Slots slots(e.paramCount);
    Prepare(e, args, slots);
}

// ---- Calling --------------------------------------------------------------------------------

// The length of a reply frame "CCCC;LLLL;payload" by its length field, within `max` bytes;
// 0 when the header is not a frame's.
inline size_t FrameLength(const char* frame, size_t max) {
    if (max < 10 || frame[4] != ';' || frame[9] != ';') return 0;
    size_t length = 0;
    for (int i = 5; i < 9; ++i) {
        if (frame[i] < '0' || frame[i] > '9') return 0;
        length = length * 10 + static_cast<size_t>(frame[i] - '0');
    }
    return std::min(std::max<size_t>(length, 10), max);
}

struct Call {
    const meta::Export* exp = nullptr;
    int32_t result = 0;
    bool ok = false;     // by the export's success rule
    bool empty = false;  // a poll that found nothing
    Outputs outputs;     // the outputs, when ok and not empty
    std::string ResultName() const { return zanth::ResultName(result); }
    std::string ResultMeaning() const { return zanth::ResultMeaning(result); }
};

inline Outputs CollectOutputs(const meta::Export& e, std::optional<int64_t> mode,
                              detail::Slots& slots) {
    using meta::Base;
    Outputs out;
    for (uint8_t i = 0; i < e.paramCount; ++i) {
        const meta::Param& p = e.params[i];
        if (!IsOutput(DirIn(p, mode))) continue;
        const detail::Slots::Slot& s = slots[i];
        switch (p.base) {
            case Base::kText: {
                size_t n = p.frame ? FrameLength(s.buffer.data(), s.buffer.size() - 1)
                                   : ::strnlen(s.buffer.data(), s.buffer.size());
                out[p.name] = std::string(s.buffer.data(), n);
                break;
            }
            case Base::kBytes: {
                size_t n = 0;
                if (p.countParam >= 0) {
                    n = static_cast<size_t>(std::clamp<int64_t>(slots[p.countParam].i32, 0,
                                                                static_cast<int64_t>(s.buffer.size()) - 1));
                }
                out[p.name] = Bytes(s.buffer.begin(), s.buffer.begin() + static_cast<std::ptrdiff_t>(n));
                break;
            }
            case Base::kInt32:
                out[p.name] = int64_t{s.i32};
                break;
            case Base::kUint32:
                out[p.name] = int64_t{s.u32};
                break;
            case Base::kUint64:
                out[p.name] = static_cast<int64_t>(s.u64);
                break;
            default:
                break;
        }
    }
    return out;
}

// Calls the export by name: checks every argument against the model (ArgumentError names the
// offending one, and nothing is called), passes writable texts as copies of their own, gives
// each output a buffer of its size, and returns the result with the named outputs.
inline Call Invoke(std::string_view exportName, const Args& args) {
    const meta::Export& e = Get(exportName);
    detail::Slots slots(e.paramCount);
    std::optional<int64_t> mode;
    Prepare(e, args, slots, &mode);
    Call c;
    c.exp = &e;
    c.result = e.call(slots);
    c.ok = Succeeded(e.rule, c.result);
    c.empty = IsEmpty(e.rule, c.result);
    if (c.ok && !c.empty) c.outputs = CollectOutputs(e, mode, slots);
    return c;
}

// The Rsp form of a blocking export, by the blocking form's name, with its rspid.
inline Call InvokeRsp(std::string_view blockingName, uint32_t rspid, Args args) {
    const meta::Export& e = Get(blockingName);
    const meta::Export* rsp = e.form == meta::Form::kRsp ? &e : (e.twin ? Find(e.twin) : nullptr);
    if (rsp == nullptr || rsp->form != meta::Form::kRsp) {
        throw ArgumentError(e.name, "", "has no Rsp form");
    }
    args["rspid"] = static_cast<int64_t>(rspid);
    return Invoke(rsp->name, args);
}

// ---- Decoding replies -------------------------------------------------------------------------

struct Decoded {
    int32_t code = 0;     // the reply's code
    int32_t result = 0;   // the result the blocking form would have returned
    bool ok = false;      // by the blocking form's success rule
    bool raw = false;     // a reply without a fixed layout: outputs["payload"] is the payload
    const meta::Layout* layout = nullptr;
    Outputs outputs;      // the blocking form's outputs, as far as the reply gave them
};

namespace reply {

struct Token {
    size_t begin, end;  // the field's bytes
    size_t next;        // where the rest begins behind the field's delimiter; npos: none
};

inline std::vector<Token> Split(std::string_view t, const meta::Layout& l) {
    std::vector<Token> fields;
    const size_t npos = std::string_view::npos;
    if (l.tokenizer == meta::Tokenizer::kTokens) {
        size_t pos = 0;
        while (fields.size() < 150) {
            while (pos < t.size() && t[pos] == ';') ++pos;
            if (pos >= t.size()) break;
            size_t end = t.find(';', pos);
            size_t stop = end == npos ? t.size() : end;
            size_t hash = t.find('#', pos);
            size_t cut = hash != npos && hash < stop ? hash : stop;
            if (cut == pos) break;  // an empty field ends the split
            fields.push_back({pos, cut, end == npos ? npos : end + 1});
            pos = stop;
        }
    } else if (l.tokenizer == meta::Tokenizer::kEvery) {
        size_t pos = 0;
        for (size_t end; (end = t.find(';', pos)) != npos; pos = end + 1) {
            fields.push_back({pos, end, end + 1});
        }
    } else {
        size_t pos = 0;
        while (pos < t.size()) {
            size_t end = t.find(l.delimiter, pos);
            if (end == npos) {
                fields.push_back({pos, t.size(), npos});
                break;
            }
            fields.push_back({pos, end, end + 1});
            pos = end + 1;
        }
    }
    return fields;
}

// atoi: blanks, a sign, digits; 0 without digits.
inline int32_t Atoi(std::string_view f) {
    size_t i = 0;
    while (i < f.size() && (f[i] == ' ' || f[i] == '\t' || f[i] == '\n' || f[i] == '\r' ||
                            f[i] == '\f' || f[i] == '\v'))
        ++i;
    bool negative = false;
    if (i < f.size() && (f[i] == '-' || f[i] == '+')) negative = f[i++] == '-';
    int64_t value = 0;
    for (; i < f.size() && f[i] >= '0' && f[i] <= '9'; ++i) {
        value = value * 10 + (f[i] - '0');
        if (value > 2147483648LL) value = 2147483648LL;
    }
    value = negative ? -value : value;
    return static_cast<int32_t>(std::clamp<int64_t>(value, INT32_MIN, INT32_MAX));
}

inline bool StartsWithNumber(std::string_view f) {
    size_t i = 0;
    while (i < f.size() && (f[i] == ' ' || f[i] == '\t')) ++i;
    if (i < f.size() && (f[i] == '-' || f[i] == '+')) ++i;
    return i < f.size() && f[i] >= '0' && f[i] <= '9';
}

// "%u": blanks, a sign (a '-' wraps), digits; nullopt without digits.
inline std::optional<uint32_t> Unsigned(std::string_view f) {
    size_t i = 0;
    while (i < f.size() && (f[i] == ' ' || f[i] == '\t')) ++i;
    bool negative = false;
    if (i < f.size() && (f[i] == '-' || f[i] == '+')) negative = f[i++] == '-';
    if (i >= f.size() || f[i] < '0' || f[i] > '9') return std::nullopt;
    uint64_t value = 0;
    for (; i < f.size() && f[i] >= '0' && f[i] <= '9'; ++i) {
        value = std::min<uint64_t>(value * 10 + static_cast<uint64_t>(f[i] - '0'), UINT32_MAX);
    }
    return negative ? static_cast<uint32_t>(0u - static_cast<uint32_t>(value)) : static_cast<uint32_t>(value);
}

// A field that is wholly a decimal number within 32 bits.
inline std::optional<int32_t> Strict(std::string_view f) {
    size_t i = (!f.empty() && (f[0] == '-' || f[0] == '+')) ? 1 : 0;
    if (i >= f.size() || f.size() - i > 10) return std::nullopt;
    int64_t value = 0;
    for (; i < f.size(); ++i) {
        if (f[i] < '0' || f[i] > '9') return std::nullopt;
        value = value * 10 + (f[i] - '0');
    }
    if (f[0] == '-') value = -value;
    if (value < INT32_MIN || value > INT32_MAX) return std::nullopt;
    return static_cast<int32_t>(value);
}

inline int32_t Map(meta::ResultMap map, std::string_view field) {
    int32_t r = Atoi(field);
    switch (map) {
        case meta::ResultMap::kNone:
        case meta::ResultMap::kLeading:
            return r;
        case meta::ResultMap::kBoard:
            if (r == 1) return 0;
            return (r <= 0 && r >= -99) ? -10001 : r;
        case meta::ResultMap::kMox:
            return r == -1513 ? -10029 : r == -1512 ? -10028 : r;
        case meta::ResultMap::kErrorLog:
            if (r == 0) return -10014;
            return (r >= -99 && r <= -1) ? -10001 : r;
        case meta::ResultMap::kTransfer:
            if (!StartsWithNumber(field)) return -10003;
            return r;
        case meta::ResultMap::kLow:
            break;
    }
    return (r >= -99 && r <= -1) ? -10001 : r;
}

// Walks the payload by the layout into `d`.
inline void Walk(const meta::Layout& l, const meta::Reply& r, std::string_view payload, Decoded& d) {
    if (l.raw) {
        d.raw = true;
        d.outputs["payload"] = Bytes(payload.begin(), payload.end());
        return;
    }
    // The library reads a parsed payload as a C text.
    payload = payload.substr(0, std::min(payload.size(), payload.find('\0')));
    if (l.hasResult) {
        d.result = l.result;
        return;
    }
    std::vector<Token> fields = Split(payload, l);
    if (l.exactCount >= 0 && fields.size() != static_cast<size_t>(l.exactCount)) {
        d.result = l.countMismatch;
        return;
    }
    auto name = [&r](int8_t index) -> const char* {
        return index >= 0 && index < r.outCount ? r.outs[index] : nullptr;
    };
    Outputs out;
    size_t next = 0;        // the next field
    size_t restFrom = 0;    // where a rest would begin
    bool optional = false;
    auto take = [&](std::string_view* field) {
        if (next >= fields.size()) return false;
        const Token& t = fields[next++];
        *field = payload.substr(t.begin, t.end - t.begin);
        restFrom = t.next;
        return true;
    };
    for (uint8_t i = 0; i < l.fieldCount; ++i) {
        const meta::Field& f = l.fields[i];
        optional = optional || f.optional;
        std::string_view field;
        auto missing = [&]() {
            if (!optional) d.result = f.kind == meta::FieldKind::kResult ? f.missing : -10011;
        };
        bool stop = false;
        switch (f.kind) {
            case meta::FieldKind::kResult: {
                bool present = take(&field);
                if (!present || (f.map == meta::ResultMap::kLeading && !StartsWithNumber(field))) {
                    missing();
                    stop = true;
                    break;
                }
                d.result = Map(f.map, field);
                if (f.then == meta::Then::kZero ? Atoi(field) != 0 : d.result < 0) stop = true;
                break;
            }
            case meta::FieldKind::kInt:
                if (!take(&field)) { missing(); stop = true; break; }
                if (const char* n = name(f.out)) out[n] = int64_t{Atoi(field)};
                break;
            case meta::FieldKind::kUint:
                if (!take(&field)) { missing(); stop = true; break; }
                if (const char* n = name(f.out)) out[n] = int64_t{Unsigned(field).value_or(0)};
                break;
            case meta::FieldKind::kStrictInt:
            case meta::FieldKind::kStatus: {
                if (!take(&field)) { missing(); stop = true; break; }
                std::optional<int32_t> v = Strict(field);
                if (!v) { d.result = -1; stop = true; break; }
                if (f.kind == meta::FieldKind::kStatus) d.result = *v;
                if (const char* n = name(f.out)) out[n] = int64_t{*v};
                break;
            }
            case meta::FieldKind::kText:
                if (!take(&field)) { missing(); stop = true; break; }
                if (const char* n = name(f.out)) out[n] = std::string(field);
                break;
            case meta::FieldKind::kStamp: {
                if (!take(&field)) { missing(); stop = true; break; }
                size_t dash = field.find('-');
                std::string date = dash == std::string_view::npos ? "0" : std::string(field.substr(0, dash));
                std::string time = dash == std::string_view::npos ? "0" : std::string(field.substr(dash + 1));
                if (const char* n = name(f.out)) out[n] = date;
                if (const char* n = name(f.out2)) out[n] = time;
                break;
            }
            case meta::FieldKind::kWireDate:
            case meta::FieldKind::kWireTime: {
                std::string_view a, b, c;
                if (!take(&a) || !take(&b) || !take(&c)) { missing(); stop = true; break; }
                std::string text = f.kind == meta::FieldKind::kWireDate
                                       ? std::string(c) + "/" + std::string(a) + "/" + std::string(b)
                                       : std::string(a) + ":" + std::string(b) + ":" + std::string(c);
                if (const char* n = name(f.out)) out[n] = text;
                break;
            }
            case meta::FieldKind::kRest: {
                size_t from = restFrom;
                if (f.offset >= 0) {
                    // Read only when another field follows.
                    if (optional && next >= fields.size()) { stop = true; break; }
                    from = static_cast<size_t>(f.offset);
                } else if (next > 0 && from == std::string_view::npos) {
                    missing();
                    stop = true;
                    break;
                }
                if (const char* n = name(f.out)) {
                    out[n] = std::string(from < payload.size() ? payload.substr(from) : std::string_view());
                }
                next = fields.size();
                break;
            }
            case meta::FieldKind::kSkip:
                for (int32_t k = 0; k < std::max(f.count, 1) && !stop; ++k) {
                    if (!take(&field)) { missing(); stop = true; }
                }
                break;
        }
        if (stop) break;
    }
    d.outputs = std::move(out);
}

}  // namespace reply

// Decodes a reply frame "CCCC;LLLL;payload" that arrived under a Rsp form's rspid (from
// GetNextResponse or the response callback) into the outputs and the result its blocking form
// would have given. `exportName` is the Rsp form or the blocking form; `args` are the call's
// arguments, of which only `mode` is read (it chooses the reply of a mode export).
inline Decoded DecodeReply(std::string_view exportName, std::string_view frame,
                           const Args& args = {}) {
    const meta::Export& e = Get(exportName);
    if (!e.hasWire || e.replyCount == 0) {
        throw ArgumentError(e.name, "", "has no reply to decode");
    }
    const meta::Export* blocking = e.form == meta::Form::kRsp && e.twin ? Find(e.twin) : &e;
    meta::Rule rule = blocking && blocking->form != meta::Form::kRsp ? blocking->rule
                                                                     : meta::Rule::kController;
    Decoded d;
    size_t length = FrameLength(frame.data(), frame.size());
    if (length == 0 || frame[0] < '0' || frame[0] > '9') {
        d.result = -10024;  // not a frame's header
        return d;
    }
    d.code = reply::Atoi(frame.substr(0, 4));
    std::string_view payload = frame.substr(10, length - 10);
    std::optional<int64_t> mode;
    auto it = args.find("mode");
    if (it != args.end() && FindParam(e, "mode") >= 0) {
        if (const int64_t* m = std::get_if<int64_t>(&it->second)) mode = *m;
    }
    const meta::Reply* match = nullptr;
    for (uint8_t i = 0; i < e.replyCount && match == nullptr; ++i) {
        const meta::Reply& r = e.replies[i];
        bool code = r.source == meta::CodeSource::kAny || r.code == d.code;
        bool inMode = r.anyMode || !mode || r.mode == *mode;
        if (code && inMode) match = &r;
    }
    if (match == nullptr) {
        switch (e.otherCode) {
            case meta::OtherCode::kCheckErrorCode:
                d.result = d.code == 9920 ? -10030 : -10010;
                break;
            case meta::OtherCode::kNoReply:
                d.result = -10005;
                break;
            case meta::OtherCode::kZero:
                d.result = 0;
                break;
            case meta::OtherCode::kCannotProcess:
                d.result = -10030;
                break;
        }
        d.ok = Succeeded(rule, d.result);
        return d;
    }
    d.layout = match->layout;
    reply::Walk(*match->layout, *match, payload, d);
    d.ok = Succeeded(rule, d.result);
    if (!d.ok) {
        d.outputs.clear();
    } else if (!d.raw && blocking != nullptr && blocking->form != meta::Form::kRsp) {
        // What the reply didn't write, the blocking form leaves as it was: Invoke's zeroed
        // outputs, and for an input-output the value that went in.
        for (const meta::Param* p : OutputParams(*blocking, mode)) {
            if (d.outputs.count(p->name)) continue;
            auto given = args.find(p->name);
            if (DirIn(*p, mode) == meta::Dir::kInout && given != args.end()) {
                d.outputs[p->name] = given->second;
            } else if (p->base == meta::Base::kText) {
                d.outputs[p->name] = std::string();
            } else if (p->base == meta::Base::kBytes) {
                d.outputs[p->name] = Bytes();
            } else {
                d.outputs[p->name] = int64_t{0};
            }
        }
    }
    return d;
}

}  // namespace dynamic
}  // namespace zanth
