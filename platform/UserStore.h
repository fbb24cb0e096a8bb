#pragma once
// The per-user setting that holds the log folder: one text value in
// ${XDG_CONFIG_HOME:-$HOME/.config}/Orlan/ZanthDLL/LogFilePath.

#include <string>

namespace platform {

// The file that holds the value.
std::string UserValuePath();
// False when there is no value.
bool ReadUserValue(std::string* value);
// Writes the whole value (temporary file, then rename). False when it could not be stored.
bool WriteUserValue(const std::string& value);

}  // namespace platform
