#include "gateway/Log.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <mutex>

namespace zanthd {
namespace {

std::atomic<int> threshold{static_cast<int>(Level::Info)};
std::mutex writeMutex;

const char* Name(Level level) {
    switch (level) {
        case Level::Debug: return "DEBUG";
        case Level::Info: return "INFO";
        case Level::Warn: return "WARN";
        case Level::Error: return "ERROR";
    }
    return "?";
}

}  // namespace

bool ParseLevel(const std::string& text, Level* level) {
    if (text == "debug") *level = Level::Debug;
    else if (text == "info") *level = Level::Info;
    else if (text == "warn") *level = Level::Warn;
    else if (text == "error") *level = Level::Error;
    else return false;
    return true;
}

void SetLogLevel(Level level) { threshold = static_cast<int>(level); }

bool LogEnabled(Level level) { return static_cast<int>(level) >= threshold.load(); }

void Log(Level level, const char* component, const char* format, ...) {
    if (!LogEnabled(level)) return;
    char text[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    auto now = std::chrono::system_clock::now();
    std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    int ms = static_cast<int>(
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%S", &utc);
    std::lock_guard<std::mutex> lock(writeMutex);
    std::fprintf(stderr, "%s.%03dZ %-5s %s: %s\n", stamp, ms, Name(level), component, text);
    std::fflush(stderr);
}

}  // namespace zanthd
