#include "tools/sim/Payloads.h"

#include <cctype>
#include <charconv>
#include <cstdio>

namespace zanth::sim {
namespace {

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string Printf(const char* format, auto... args) {
    char buffer[256];
    int n = std::snprintf(buffer, sizeof buffer, format, args...);
    if (n < 0) return {};
    if (static_cast<size_t>(n) < sizeof buffer) return std::string(buffer, static_cast<size_t>(n));
    std::string out(static_cast<size_t>(n) + 1, '\0');
    std::snprintf(out.data(), out.size(), format, args...);
    out.resize(static_cast<size_t>(n));
    return out;
}

std::string Join(std::initializer_list<std::string_view> fields) {
    std::string out;
    for (std::string_view f : fields) {
        out.append(f);
        out.push_back(';');
    }
    return out;
}

}  // namespace

std::string NormalizeMac(std::string_view mac) {
    std::string digits;
    for (char c : mac) {
        if (c == ':' || c == '-') continue;
        if (HexValue(c) < 0) return {};
        digits.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(c))));
    }
    if (digits.size() != 6) return {};
    return digits.substr(0, 2) + ":" + digits.substr(2, 2) + ":" + digits.substr(4, 2);
}

std::string MacPlus(std::string_view base, uint32_t offset) {
    std::string mac = NormalizeMac(base);
    if (mac.empty()) return {};
    uint32_t value = 0;
    for (char c : mac) {
        if (c != ':') value = (value << 4) | static_cast<uint32_t>(HexValue(c));
    }
    value = (value + offset) & 0xFFFFFFu;
    return Printf("%02X:%02X:%02X", (value >> 16) & 0xFF, (value >> 8) & 0xFF, value & 0xFF);
}

std::tm LocalTimeNow() {
    std::time_t now = std::time(nullptr);
    std::tm t{};
    localtime_r(&now, &t);
    return t;
}

std::string MessageText(const MessageRecord& r) {
    std::string head =
        r.mac + Printf(";%u;%02d/%02d/%04d;%02d:%02d:%02d;%d;%d;%d;", r.msgId, r.time.tm_mon + 1,
                       r.time.tm_mday, r.time.tm_year + 1900, r.time.tm_hour, r.time.tm_min,
                       r.time.tm_sec, r.eventClass, r.priority, r.door);
    std::string description;
    for (char c : r.description) description.push_back(c == ';' || c == '^' ? ' ' : c);
    if (description.empty()) description.push_back('-');
    // The description gives way so the whole text, its ';' included, fits one host record.
    if (head.size() + 1 >= kMessageTextLimit) return head.substr(0, kMessageTextLimit);
    size_t room = kMessageTextLimit - head.size() - 1;
    if (description.size() > room) description.resize(room);
    return head + description + ";";
}

std::string IdentifyPayload(std::string_view mac, std::string_view firmware) {
    return std::string(kMacPrefix) + Join({mac, firmware});
}

std::string ControllerInfoPayload(std::string_view model, std::string_view firmware,
                                  std::string_view mac, std::string_view serial) {
    return Join({model, firmware, mac, serial});
}

std::string SerialFor(std::string_view mac) {
    std::string serial = "ZS";
    for (char c : mac) {
        if (c != ':') serial.push_back(c);
    }
    return serial;
}

std::string HeartbeatPayload(std::string_view mac, const std::tm& t) {
    return std::string(mac) + Printf(";%02d/%02d/%04d;%02d:%02d:%02d;HEARTBEAT;", t.tm_mon + 1,
                                     t.tm_mday, t.tm_year + 1900, t.tm_hour, t.tm_min, t.tm_sec);
}

std::string LookupPayload(std::string_view mac, int door, uint32_t card, int facility) {
    return std::string(mac) + Printf(";%d;%u;%d;", door, card, facility);
}

std::string PinReportPayload(std::string_view mac, int door, std::string_view pin) {
    return std::string(mac) + Printf(";%d;", door) + std::string(pin) + ";";
}

std::string PostAccessPayload(std::string_view mac, int door, uint32_t card, bool granted) {
    return std::string(mac) + Printf(";%d;%u;%s;", door, card, granted ? "GRANTED" : "DENIED");
}

std::string SmartCardPayload(std::string_view mac, int door, std::string_view hexData) {
    return std::string(mac) + Printf(";%d;", door) + std::string(hexData) + ";";
}

std::string KeyPadPayload(std::string_view mac, int door, std::string_view keys) {
    return std::string(mac) + Printf(";%d;", door) + std::string(keys) + ";";
}

std::string CommandKeyPayload(std::string_view mac, int door, std::string_view key) {
    return std::string(mac) + Printf(";%d;", door) + std::string(key) + ";";
}

std::string HereIAmPayload(std::string_view mac, std::string_view model,
                           std::string_view firmware) {
    return Join({mac, model, firmware});
}

std::string BundlePayload(const std::vector<BundleEntry>& entries) {
    std::string out;
    for (const BundleEntry& e : entries) {
        out += std::to_string(e.code);
        out += ';';
        out += e.text;
        out += '^';
    }
    return out;
}

std::string RecheckText(int door, uint32_t card, bool granted) {
    return Printf("%d;%u;%d;", door, card, granted ? 1 : 0);
}

std::vector<std::string_view> SplitFields(std::string_view payload) {
    std::vector<std::string_view> fields;
    while (!payload.empty()) {
        size_t end = payload.find(';');
        if (end == std::string_view::npos) {
            fields.push_back(payload);
            break;
        }
        fields.push_back(payload.substr(0, end));
        payload.remove_prefix(end + 1);
    }
    return fields;
}

std::optional<int64_t> FieldNumber(std::string_view field) {
    int64_t value = 0;
    if (field.empty()) return std::nullopt;
    auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), value);
    if (error != std::errc() || end != field.data() + field.size()) return std::nullopt;
    return value;
}

std::optional<RecheckDecision> ParseRecheck(std::string_view text) {
    auto fields = SplitFields(text);
    if (fields.size() < 3) return std::nullopt;
    auto door = FieldNumber(fields[0]);
    auto card = FieldNumber(fields[1]);
    auto decision = FieldNumber(fields[2]);
    if (!door || !card || !decision || *card < 0 || *card > UINT32_MAX) return std::nullopt;
    if (*decision != 0 && *decision != 1) return std::nullopt;
    return RecheckDecision{static_cast<int>(*door), static_cast<uint32_t>(*card), *decision == 1};
}

std::optional<PinRequest> ParsePinRequest(std::string_view text) {
    auto fields = SplitFields(text);
    if (fields.size() < 3) return std::nullopt;
    auto door = FieldNumber(fields[0]);
    auto seconds = FieldNumber(fields[1]);
    auto digits = FieldNumber(fields[2]);
    if (!door || !seconds || !digits) return std::nullopt;
    return PinRequest{static_cast<int>(*door), static_cast<int>(*seconds),
                      static_cast<int>(*digits)};
}

}  // namespace zanth::sim
