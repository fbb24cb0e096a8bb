#include "stores/LogMon.h"

#include <atomic>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "platform/File.h"
#include "protocol/Text.h"
#include "zanth_version.h"

namespace zanth {
namespace {

// Set before the library's threads start and cleared after they have ended; atomic all the same,
// for the tests that build a log of their own beside running threads.
std::atomic<LogMon*> libraryLog{nullptr};

// Keeps only the bytes 32 to 126, at most 200 of them.
void Filter(const char* in, char* out, size_t outSize) {
    std::memset(out, 0, outSize);
    size_t n = 0;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(in);
         p && *p && n < outSize - 1 && n < kLogPayloadLimit; ++p) {
        if (*p >= 32 && *p <= 126) out[n++] = static_cast<char>(*p);
    }
}

}  // namespace

LogMon::LogMon(const char* name, const char* folder) : name_(name ? name : "") {
    line_[0] = line2_[0] = '\0';
    Start(folder);
}

LogMon::~LogMon() {
    std::lock_guard<std::mutex> g(lock_);
    WriteLine(0, name_.c_str(), "End", "", false);
}

void LogMon::Start(const char* folder) {
    const std::string in = folder ? folder : "";
    backupPath_ = in + "ZanthMessages.bak";
    logPath_ = in + "ZanthMessages.log";
    // Two generations: the former load's log becomes the backup.
    if (platform::FileExists(logPath_.c_str())) {
        platform::CopyFile(logPath_.c_str(), backupPath_.c_str());
        platform::DeleteFile(logPath_.c_str());
    }
    char start[64];
    FormatText(start, sizeof start, "Start Zanth DLL version %s", ZANTH_VERSION_TEXT);
    WriteLine(0, name_.c_str(), start, "", false);
}

void LogMon::Restart(const char* name, const char* folder) {
    std::lock_guard<std::mutex> g(lock_);
    WriteLine(0, name_.c_str(), "End", "", false);
    name_ = name ? name : "";
    Start(folder);
}

void LogMon::Log(const char* source, int32_t level, const char* text1, const char* text2,
                 bool filter) {
    std::lock_guard<std::mutex> g(lock_);
    WriteLine(level, source, text1, text2, filter);
}

void LogMon::WriteLine(int32_t level, const char* source, const char* text1, const char* text2,
                       bool filter) {
    if (level > debugLevel_) return;
    FILE* f = std::fopen(logPath_.c_str(), "ae");
    if (f == nullptr) return;  // a failure to log is never reported
    std::tm t{};
    platform::LocalNow(&t);
    char date[40];
    FormatText(date, sizeof date, "%02d/%02d/%4d %02d:%02d:%02d", t.tm_mon + 1, t.tm_mday,
               t.tm_year + 1900, t.tm_hour, t.tm_min, t.tm_sec);
    if (!source) source = "";
    if (!text1) text1 = "";
    if (!text2) text2 = "";
    if (!filter) {
        std::fprintf(f, "%s  %s %s\n", date, source, text1);
        if (text2[0]) std::fprintf(f, "                        %s\n", text2);
    } else {
        Filter(text1, line_, sizeof line_);
        std::fprintf(f, "%s  %s %s\n", date, source, line_);
        Filter(text2, line2_, sizeof line2_);
        if (line2_[0]) std::fprintf(f, "                        %s\n", line2_);
    }
    std::fclose(f);
}

void LogMon::GetLevel(int32_t* level) {
    std::lock_guard<std::mutex> g(lock_);
    *level = debugLevel_;
}

void LogMon::SetLevel(int32_t level) {
    std::lock_guard<std::mutex> g(lock_);
    debugLevel_ = level < 0 ? 0 : (level > 75 ? 75 : level);
}

std::string LogMon::LogPath() {
    std::lock_guard<std::mutex> g(lock_);
    return logPath_;
}

std::string LogMon::BackupPath() {
    std::lock_guard<std::mutex> g(lock_);
    return backupPath_;
}

void SetLibraryLog(LogMon* log) {
    libraryLog.store(log);
}

LogMon* LibraryLog() {
    return libraryLog.load();
}

void Log(const char* source, int32_t level, const char* text1, const char* text2, bool filter) {
    if (LogMon* log = libraryLog.load()) log->Log(source, level, text1, text2, filter);
}

}  // namespace zanth
