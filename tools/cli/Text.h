#pragma once
// Small text helpers of the command line: splitting, trimming, numbers, hex, JSON strings.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/cli/Api.h"

namespace zanth::cli {

std::string_view Trim(std::string_view text);
std::vector<std::string> Split(std::string_view text, char separator);
// A whole decimal number (a sign allowed), or 0x and hexadecimal digits.
std::optional<int64_t> ParseInteger(std::string_view text);
std::string Hex(const Bytes& bytes);
std::optional<Bytes> FromHex(std::string_view text);
// A JSON string literal, quotes included. Bytes that aren't UTF-8 are written as \u00XX.
std::string JsonString(std::string_view text);
// A value as JSON: a number, a string, or bytes as a string of hex digits.
std::string JsonValue(const Value& value);
// A value for a person: bytes as hex.
std::string Plain(const Value& value);
// "4m05s", "12.3s".
std::string Duration(double seconds);
// The `max` names closest to `name`: a prefix or substring first, then by edit distance.
std::vector<std::string> Closest(std::string_view name, const std::vector<std::string>& names,
                                 size_t max = 3);
// "; did you mean a, b?" or nothing.
std::string DidYouMean(const std::vector<std::string>& suggestions);

}  // namespace zanth::cli
