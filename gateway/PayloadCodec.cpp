#include "gateway/PayloadCodec.h"

#include <cctype>
#include <charconv>

namespace zanthd {
namespace {

bool IsHex(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }

bool IsDigits(std::string_view s, size_t n) {
    if (s.size() != n) return false;
    for (char c : s) {
        if (c < '0' || c > '9') return false;
    }
    return true;
}

// "MM/DD/YYYY" and "HH:MM:SS" as one "YYYY-MM-DDTHH:MM:SS"; empty when either is malformed.
std::string Stamp(std::string_view date, std::string_view time) {
    if (date.size() != 10 || date[2] != '/' || date[5] != '/' || time.size() != 8 ||
        time[2] != ':' || time[5] != ':') {
        return {};
    }
    if (!IsDigits(date.substr(0, 2), 2) || !IsDigits(date.substr(3, 2), 2) ||
        !IsDigits(date.substr(6, 4), 4) || !IsDigits(time.substr(0, 2), 2) ||
        !IsDigits(time.substr(3, 2), 2) || !IsDigits(time.substr(6, 2), 2)) {
        return {};
    }
    return std::string(date.substr(6, 4)) + "-" + std::string(date.substr(0, 2)) + "-" +
           std::string(date.substr(3, 2)) + "T" + std::string(time);
}

}  // namespace

std::string NormalizeMac(std::string_view mac) {
    std::string digits;
    for (char c : mac) {
        if (c == ':' || c == '-') continue;
        if (!IsHex(c)) return {};
        digits.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(c))));
    }
    if (digits.size() != 6) return {};
    return digits.substr(0, 2) + ":" + digits.substr(2, 2) + ":" + digits.substr(4, 2);
}

std::vector<std::string_view> SplitFields(std::string_view text) {
    size_t nul = text.find('\0');
    if (nul != std::string_view::npos) text = text.substr(0, nul);
    std::vector<std::string_view> fields;
    while (!text.empty()) {
        size_t end = text.find(';');
        if (end == std::string_view::npos) {
            fields.push_back(text);
            break;
        }
        fields.push_back(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    return fields;
}

std::optional<int64_t> ParseNumber(std::string_view text, int64_t low, int64_t high) {
    int64_t value = 0;
    if (text.empty()) return std::nullopt;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    if (value < low || value > high) return std::nullopt;
    return value;
}

std::optional<ParsedMessage> ZanthPayloadCodec::ParseRecord(std::string_view text) const {
    auto f = SplitFields(text);
    if (f.empty()) return std::nullopt;
    ParsedMessage m;
    m.mac = NormalizeMac(f[0]);
    if (m.mac.empty()) return std::nullopt;
    if (f.size() == 4 && f[3] == "HEARTBEAT") {
        std::string time = Stamp(f[1], f[2]);
        if (time.empty()) return std::nullopt;
        m.fields["type"] = "heartbeat";
        m.fields["time"] = time;
        return m;
    }
    if (f.size() < 8) return std::nullopt;
    auto id = ParseNumber(f[1], 0, 4294967295LL);
    auto cls = ParseNumber(f[4], -2147483648LL, 2147483647LL);
    auto priority = ParseNumber(f[5], -2147483648LL, 2147483647LL);
    auto door = ParseNumber(f[6], -2147483648LL, 2147483647LL);
    std::string time = Stamp(f[2], f[3]);
    if (!id || !cls || !priority || !door || time.empty()) return std::nullopt;
    m.fields["msg_id"] = std::to_string(*id);
    m.fields["time"] = time;
    m.fields["class"] = std::to_string(*cls);
    m.fields["priority"] = std::to_string(*priority);
    m.fields["door"] = std::to_string(*door);
    m.fields["description"] = std::string(f[7]);
    return m;
}

std::optional<Lookup> ZanthPayloadCodec::ParseLookup(std::string_view text) const {
    auto f = SplitFields(text);
    if (f.size() < 4) return std::nullopt;
    Lookup l;
    l.mac = NormalizeMac(f[0]);
    auto door = ParseNumber(f[1], 0, 2147483647LL);
    auto card = ParseNumber(f[2], 0, 4294967295LL);
    auto facility = ParseNumber(f[3], -2147483648LL, 2147483647LL);
    if (l.mac.empty() || !door || !card || !facility) return std::nullopt;
    l.door = static_cast<int>(*door);
    l.card = static_cast<uint32_t>(*card);
    l.facility = static_cast<int>(*facility);
    return l;
}

std::optional<PinReport> ZanthPayloadCodec::ParsePin(std::string_view text) const {
    auto f = SplitFields(text);
    if (f.size() < 3) return std::nullopt;
    PinReport p;
    p.mac = NormalizeMac(f[0]);
    auto door = ParseNumber(f[1], 0, 2147483647LL);
    if (p.mac.empty() || !door) return std::nullopt;
    p.door = static_cast<int>(*door);
    p.pin = std::string(f[2]);
    return p;
}

std::optional<ParsedMessage> ZanthPayloadCodec::ParseDoorReport(std::string_view text) const {
    auto f = SplitFields(text);
    if (f.size() < 4) return std::nullopt;
    ParsedMessage m;
    m.mac = NormalizeMac(f[0]);
    auto door = ParseNumber(f[1], 0, 2147483647LL);
    auto card = ParseNumber(f[2], 0, 4294967295LL);
    if (m.mac.empty() || !door || !card || (f[3] != "GRANTED" && f[3] != "DENIED")) {
        return std::nullopt;
    }
    m.fields["door"] = std::to_string(*door);
    m.fields["card"] = std::to_string(*card);
    m.fields["result"] = f[3] == "GRANTED" ? "granted" : "denied";
    return m;
}

std::string ZanthPayloadCodec::DecisionText(const Lookup& lookup, bool grant) const {
    return std::to_string(lookup.door) + ";" + std::to_string(lookup.card) + ";" +
           (grant ? "1" : "0") + ";";
}

ControllerResult ZanthPayloadCodec::DescribeResult(int32_t result) const {
    switch (result) {
        case -100: return {"bad argument", 400};
        case -101: return {"unknown record", 404};
        case -102: return {"store full", 507};
        case -103: return {"record deleted", 404};
        case -104: return {"card in use", 409};
        default: return {};
    }
}

}  // namespace zanthd
