#pragma once
// The site console's files (gateway/console/): built into zanthd at compile time
// (ConsoleEmbed.cmake writes them out as arrays), or read from a folder the config names, for
// work on the page without a rebuild. Only flat names of letters, digits, '.', '_' and '-' are
// served, never one that starts with a dot.

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace zanthd {

struct ConsoleAsset {
    const char* name;
    const unsigned char* data;
    size_t size;
};

struct ConsoleFile {
    std::string body;
    std::string type;  // Content-Type
    std::string etag;  // "\"<hash>\""
};

// A file of the console by name, from `dir` when it isn't empty, else from the built-in copy.
std::optional<ConsoleFile> FindConsoleFile(std::string_view name, const std::filesystem::path& dir);
bool ConsoleFileName(std::string_view name);
std::string ConsoleFileType(std::string_view name);

}  // namespace zanthd
