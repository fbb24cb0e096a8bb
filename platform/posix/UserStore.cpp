#include "platform/UserStore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace platform {
namespace {

std::string ConfigHome() {
    const char* xdg = std::getenv("XDG_CONFIG_HOME");
    if (xdg && *xdg) return xdg;
    const char* home = std::getenv("HOME");
    return std::string(home && *home ? home : ".") + "/.config";
}

bool MakeDirs(const std::string& path) {
    for (size_t i = 1; i <= path.size(); ++i) {
        if (i == path.size() || path[i] == '/') {
            std::string part = path.substr(0, i);
            if (::mkdir(part.c_str(), 0700) != 0 && errno != EEXIST) return false;
        }
    }
    return true;
}

}  // namespace

std::string UserValuePath() {
    return ConfigHome() + "/Orlan/ZanthDLL/LogFilePath";
}

bool ReadUserValue(std::string* value) {
    int fd = ::open(UserValuePath().c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    std::string text;
    char chunk[256];
    ssize_t n;
    while ((n = ::read(fd, chunk, sizeof chunk)) > 0) text.append(chunk, static_cast<size_t>(n));
    ::close(fd);
    if (n < 0) return false;
    // The value is a plain string: whatever follows a NUL is not part of it.
    *value = text.substr(0, text.find('\0'));
    return true;
}

bool WriteUserValue(const std::string& value) {
    std::string dir = ConfigHome() + "/Orlan/ZanthDLL";
    if (!MakeDirs(dir)) return false;
    std::string target = dir + "/LogFilePath";
    std::string temp = target + ".tmp." + std::to_string(::getpid());
    int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    bool ok = ::write(fd, value.data(), value.size()) == static_cast<ssize_t>(value.size());
    ok = (::close(fd) == 0) && ok;
    if (ok && std::rename(temp.c_str(), target.c_str()) == 0) return true;
    ::unlink(temp.c_str());
    return false;
}

}  // namespace platform
