#include "tools/cli/Text.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace zanth::cli {

std::string_view Trim(std::string_view text) {
    size_t begin = 0, end = text.size();
    while (begin < end && std::isspace(static_cast<unsigned char>(text[begin]))) ++begin;
    while (end > begin && std::isspace(static_cast<unsigned char>(text[end - 1]))) --end;
    return text.substr(begin, end - begin);
}

std::vector<std::string> Split(std::string_view text, char separator) {
    std::vector<std::string> out;
    for (;;) {
        size_t at = text.find(separator);
        out.emplace_back(text.substr(0, at));
        if (at == std::string_view::npos) break;
        text.remove_prefix(at + 1);
    }
    return out;
}

std::optional<int64_t> ParseInteger(std::string_view text) {
    if (text.empty()) return std::nullopt;
    bool negative = false;
    size_t i = 0;
    if (text[0] == '-' || text[0] == '+') {
        negative = text[0] == '-';
        i = 1;
    }
    int base = 10;
    if (text.size() > i + 2 && text[i] == '0' && (text[i + 1] == 'x' || text[i + 1] == 'X')) {
        base = 16;
        i += 2;
    }
    if (i >= text.size()) return std::nullopt;
    uint64_t value = 0;
    for (; i < text.size(); ++i) {
        int digit;
        char c = text[i];
        if (c >= '0' && c <= '9') {
            digit = c - '0';
        } else if (base == 16 && std::isxdigit(static_cast<unsigned char>(c))) {
            digit = std::tolower(static_cast<unsigned char>(c)) - 'a' + 10;
        } else {
            return std::nullopt;
        }
        if (value > (UINT64_C(1) << 63) / static_cast<uint64_t>(base)) return std::nullopt;
        value = value * static_cast<uint64_t>(base) + static_cast<uint64_t>(digit);
    }
    if (negative) {
        if (value > (UINT64_C(1) << 63)) return std::nullopt;
        return value == (UINT64_C(1) << 63) ? INT64_MIN : -static_cast<int64_t>(value);
    }
    if (value > static_cast<uint64_t>(INT64_MAX)) return std::nullopt;
    return static_cast<int64_t>(value);
}

std::string Hex(const Bytes& bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string out;
    out.reserve(bytes.size() * 2);
    for (unsigned char b : bytes) {
        out.push_back(digits[b >> 4]);
        out.push_back(digits[b & 15]);
    }
    return out;
}

std::optional<Bytes> FromHex(std::string_view text) {
    if (text.size() % 2 != 0) return std::nullopt;
    Bytes out;
    out.reserve(text.size() / 2);
    auto nibble = [](char c) -> int {
        if (c >= '0' && c <= '9') return c - '0';
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        return -1;
    };
    for (size_t i = 0; i < text.size(); i += 2) {
        int high = nibble(text[i]), low = nibble(text[i + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        out.push_back(static_cast<unsigned char>(high * 16 + low));
    }
    return out;
}

namespace {

// The length of the UTF-8 sequence at `i`, or 0 when the bytes there aren't one.
size_t Utf8Length(std::string_view t, size_t i) {
    auto c = static_cast<unsigned char>(t[i]);
    size_t n = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
    if (n == 0 || i + n > t.size() || (n == 2 && c < 0xC2)) return 0;
    for (size_t k = 1; k < n; ++k) {
        if ((static_cast<unsigned char>(t[i + k]) & 0xC0) != 0x80) return 0;
    }
    return n;
}

}  // namespace

std::string JsonString(std::string_view text) {
    std::string out = "\"";
    char escape[8];
    for (size_t i = 0; i < text.size();) {
        auto c = static_cast<unsigned char>(text[i]);
        if (c >= 0x80) {
            size_t n = Utf8Length(text, i);
            if (n == 0) {
                std::snprintf(escape, sizeof escape, "\\u%04x", c);
                out += escape;
                ++i;
            } else {
                out.append(text.substr(i, n));
                i += n;
            }
            continue;
        }
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            default:
                if (c < 0x20 || c == 0x7f) {
                    std::snprintf(escape, sizeof escape, "\\u%04x", c);
                    out += escape;
                } else {
                    out.push_back(static_cast<char>(c));
                }
        }
        ++i;
    }
    return out + "\"";
}

std::string JsonValue(const Value& value) {
    if (const int64_t* i = std::get_if<int64_t>(&value)) return std::to_string(*i);
    if (const std::string* s = std::get_if<std::string>(&value)) return JsonString(*s);
    return JsonString(Hex(std::get<Bytes>(value)));
}

std::string Plain(const Value& value) {
    if (const int64_t* i = std::get_if<int64_t>(&value)) return std::to_string(*i);
    if (const std::string* s = std::get_if<std::string>(&value)) return *s;
    const Bytes& b = std::get<Bytes>(value);
    return b.empty() ? "(no bytes)" : "hex:" + Hex(b);
}

std::string Duration(double seconds) {
    char out[32];
    if (seconds < 0) seconds = 0;
    if (seconds < 60) {
        std::snprintf(out, sizeof out, "%.1fs", seconds);
    } else if (seconds < 3600) {
        auto s = static_cast<long>(seconds + 0.5);
        std::snprintf(out, sizeof out, "%ldm%02lds", s / 60, s % 60);
    } else {
        auto s = static_cast<long>(seconds + 0.5);
        std::snprintf(out, sizeof out, "%ldh%02ldm", s / 3600, (s / 60) % 60);
    }
    return out;
}

std::string DidYouMean(const std::vector<std::string>& s) {
    if (s.empty()) return "";
    std::string out = "; did you mean ";
    for (size_t i = 0; i < s.size(); ++i) out += (i == 0 ? "" : i + 1 == s.size() ? " or " : ", ") + s[i];
    return out + "?";
}

}  // namespace zanth::cli
