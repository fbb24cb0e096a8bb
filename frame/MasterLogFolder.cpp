// The log folder: read from the per-user store, and changed with a rebuild of the log and of
// both message files in the new folder.

#include <cstring>
#include <string>

#include "frame/ArgumentCheck.h"
#include "frame/Context.h"
#include "frame/Master.h"
#include "platform/File.h"
#include "platform/UserStore.h"
#include "protocol/Result.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {

int32_t Master::GetLogFilePath(char* path) {
    if (path == nullptr) return kBadArgument;
    std::string value;
    if (!platform::ReadUserValue(&value)) value.clear();
    // The buffer is at least 256 bytes by contract.
    CopyBounded(path, value.c_str(), kPathSize);
    return 0;
}

int32_t Master::SetLogFilePath(const char* path) {
    std::lock_guard<std::recursive_mutex> g(transactionLock_);
    return ChangeLogFolder(path, "Master::SetLogFilePath", true);
}

int32_t Master::LogFilePath(int32_t mode, char* path) {
    std::lock_guard<std::recursive_mutex> g(transactionLock_);
    int32_t result = kOk;
    if (!ArgumentCheck("Master::LogFilePath", result, logText_, masterName_)
             .Check("mode", mode, 0, 1))
        return result;
    return mode == 0 ? GetLogFilePath(path) : ChangeLogFolder(path, "Master::LogFilePath", false);
}

int32_t Master::ChangeLogFolder(const char* path, const char* method, bool announce) {
    if (path == nullptr || path[0] == '\0') return kBadArgument;
    // The stored value is the path and its separator in 256 bytes; a longer one would be cut.
    if (std::strlen(path) + 1 >= static_cast<size_t>(kPathSize)) return kBadArgument;
    int32_t status = platform::PathStatus(path);
    if (status != 0) return status;

    // The stored value always ends in a separator, even when the caller's path already did.
    char value[kPathSize];
    FormatText(value, sizeof value, "%s%c", path, platform::kPathSeparator);
    std::string old;
    if (!platform::ReadUserValue(&old)) {
        // With no stored folder the old logs are in the current directory, named without a
        // trailing separator.
        old = platform::CurrentDirectory();
        if (old.size() > 1 && old.back() == platform::kPathSeparator) old.pop_back();
    }
    // A value that can't be stored ends the change here, silently, with nothing changed.
    if (!platform::WriteUserValue(value)) return 0;

    if (announce) {
        FormatText(logText2_, sizeof logText2_, "New Log file path is = %s", value);
        Log(masterName_, kLogAlways,
            "[Master::SetLogFilePath] Log file path has been changed. New logs will be created at "
            "location: ",
            logText2_);
    }
    // Rebuilt in place, under their own locks, so that no thread sees them missing.
    Context& c = *context_;
    c.logmon->Restart("logMon", value);
    // A message file that can't be opened in the new folder stops the library, as at load.
    if (!c.eventMon->Rebuild(value)) c.handleMon->SetTerminating(1);
    if (!c.alarmMon->Rebuild(value)) c.handleMon->SetTerminating(1);
    Log(masterName_, kLogAlways, "Object created");
    if (!old.empty()) {
        FormatText(
            logText_, sizeof logText_,
            "[%s] Log file path has been changed, for previous logs refer files from: ", method);
        FormatText(logText2_, sizeof logText2_, "Old Log file path is = %s", old.c_str());
        Log(masterName_, kLogAlways, logText_, logText2_);
    }
    return 0;
}

}  // namespace zanth
