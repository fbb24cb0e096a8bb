#pragma once
// The library's one text log, ZanthMessages.log. A line is written when its level is at most
// the debug level (0 always, 25 fatal construction failure, 50 error, 75 trace). The file is
// opened and closed for every line so that nothing is lost on a crash.

#include <cstdint>
#include <mutex>
#include <string>

#include "protocol/CommandRecord.h"

namespace zanth {

// The levels of a log line; a line is written when its level is at most the debug level.
enum LogLevel : int32_t {
    kLogAlways = 0,
    kLogFatal = 25,  // a construction that failed
    kLogError = 50,  // an error or a refused argument; the default debug level
    kLogTrace = 75,
};

class LogMon {
  public:
    // Starts the log in `folder` (ending in its separator), or in the current directory when the
    // folder is empty.
    LogMon(const char* name, const char* folder);
    ~LogMon();
    LogMon(const LogMon&) = delete;
    LogMon& operator=(const LogMon&) = delete;

    // One or two lines: "date  source message", then 24 blanks and `text2` if it isn't empty.
    // With `filter` set both texts keep only the printable bytes 32 to 126, at most 200.
    void Log(const char* source, int32_t level, const char* text1, const char* text2, bool filter);
    void GetLevel(int32_t* level);
    // Clamped to 0..75.
    void SetLevel(int32_t level);

    // The path setters' rebuild, done in place so that no thread ever sees the log missing: the
    // old log gets its "End" line, then a new log starts in `folder` (with its backup rotation
    // and start line) under the new name.
    void Restart(const char* name, const char* folder);

    std::string LogPath();
    std::string BackupPath();

  private:
    void Start(const char* folder);
    void WriteLine(int32_t level, const char* source, const char* text1, const char* text2,
                   bool filter);

    std::mutex lock_;
    std::string name_;
    int32_t debugLevel_ = 50;
    std::string backupPath_;
    std::string logPath_;
    char line_[kLogTextSize];
    char line2_[kLogTextSize];
};

// The log that Log() writes to: the library's, from the moment its context has built it to the
// moment it takes it down. Null (the simulator, a test of single monitors) writes nothing.
void SetLibraryLog(LogMon* log);
LogMon* LibraryLog();

// Writes through the library's log when there is one.
void Log(const char* source, int32_t level, const char* text1, const char* text2 = "",
         bool filter = false);

}  // namespace zanth
