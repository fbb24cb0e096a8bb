#pragma once
// What every handler of the REST API shares: JSON answers and the times they show.

#include <httplib.h>

#include <cstdint>
#include <ctime>
#include <nlohmann/json.hpp>
#include <string>

namespace zanthd {

// "2025-03-30T02:59:58.123Z"; empty for 0.
inline std::string IsoTime(int64_t ms) {
    if (ms <= 0) return "";
    std::time_t s = static_cast<std::time_t>(ms / 1000);
    std::tm utc{};
    gmtime_r(&s, &utc);
    char text[96];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900,
                  utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
                  static_cast<int>(ms % 1000));
    return text;
}

inline std::string Dump(const nlohmann::json& j) {
    return j.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

inline void Send(httplib::Response& res, int status, const nlohmann::json& j) {
    res.status = status;
    res.set_content(Dump(j) + "\n", "application/json");
}

}  // namespace zanthd
