#pragma once
// zanthd's log: one line per message on stderr, "time LEVEL component: text", so that it reads
// the same in a terminal and in the journal of a systemd service.

#include <cstdarg>
#include <string>

namespace zanthd {

enum class Level { Debug = 0, Info = 1, Warn = 2, Error = 3 };

// "debug", "info", "warn" or "error"; false for anything else.
bool ParseLevel(const std::string& text, Level* level);
void SetLogLevel(Level level);
bool LogEnabled(Level level);
void Log(Level level, const char* component, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

}  // namespace zanthd
