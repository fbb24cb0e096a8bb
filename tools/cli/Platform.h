#pragma once
// What differs between Linux and Windows for the command line: its data folder and the
// per-user store the library reads, where the library is found, Ctrl-C, terminals, local time.

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace zanth::cli::platform {

// ${XDG_STATE_HOME:-~/.local/state}/zanth, or %LOCALAPPDATA%\zanth.
std::filesystem::path DefaultDataDir();

// Creates the folder, makes it the working directory (where the library opens its log and
// message files and reads the seed file zanth.txt) and points the per-user store at a place of
// the command line's own, so that the library finds no other program's log folder: on Linux
// XDG_CONFIG_HOME, on Windows HKEY_CURRENT_USER (RegOverridePredefKey). Throws
// std::runtime_error. Must run before the library is loaded.
void EnterDataDir(const std::filesystem::path& dir);

// Where to look for the library, in order: `given` (--library), ZANTH_LIBRARY, beside this
// program (../lib/libzanth.so.2 or zanth.dll beside zanth.exe), then the bare name for the
// system's search.
std::vector<std::string> LibraryCandidates(const std::string& given);
bool IsBareName(const std::string& candidate);

// Ctrl-C (and SIGTERM): the first asks the work under way to stop cleanly; a second ends the
// program at once.
void CatchInterrupts();
bool Interrupted();

bool IsTerminal(std::FILE* stream);

// Whether another program holds the port: the library finds out only once Initialization has
// returned, on its listener's thread, and then stops. Bound as the library binds it (any
// address; on Linux with SO_REUSEADDR, which a link of an earlier run in TIME_WAIT doesn't
// block). Returns the system's error number, 0 when the port is free.
int PortTaken(int port);

// A port no one listens on now, for the library's listener when the controllers are called.
int FreePort();

std::tm LocalTime(std::time_t t);

}  // namespace zanth::cli::platform
