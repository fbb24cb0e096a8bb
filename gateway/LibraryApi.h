#pragma once
// The library's exports as zanthd calls them. zanthd loads libzanth.so with dlopen once it has
// moved into its data folder: the library creates its message files and its log in the working
// directory as it loads, so it must not be loaded before zanthd knows where that is. Each entry
// is typed from the declaration in zanth.h, so a change of the header shows here at compile time.

#include <zanth.h>

#include <string>

namespace zanthd {

struct LibraryApi {
#define ZANTHD_EXPORT(name) decltype(&::name) name = nullptr;
#define ZANTHD_EXPORTS(X)                                                                     \
    X(Initialization) X(Shutdown) X(SetValidControllers) X(GetConnectedControllers)           \
    X(GetDLLVersion) X(GetLogFilePath) X(GetNextEvent) X(GetNextAlarm) X(NumberUnreadEvents)  \
    X(NumberUnreadAlarms) X(EventLogSize) X(AlarmLogSize) X(GetNextLookup) X(GetNextPin)      \
    X(GetNextPostAccess) X(GetNextResponse) X(GetNumberResponse) X(RspRecheckLookupCard)      \
    X(RspRequestPin) X(RspControllerInfo)
    ZANTHD_EXPORTS(ZANTHD_EXPORT)
#undef ZANTHD_EXPORT

    void* handle = nullptr;

    // Loads `path` (empty: libzanth.so.2 through the search path) and resolves every entry;
    // false with `error` set when the library or one of the entries is missing.
    bool Load(const std::string& path, std::string* error);
    // Any export by name, for layers that call exports generically; null when absent.
    void* Symbol(const char* name) const;
};

}  // namespace zanthd
