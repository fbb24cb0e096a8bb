#include "platform/File.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

namespace platform {

int PathStatus(const char* path) {
    struct stat st {};
    if (::stat(path, &st) == 0) return 0;
    if (errno == ENOENT) return -10025;
    if (errno == EINVAL) return -10002;
    return -1;
}

std::string CurrentDirectory() {
    char buffer[PATH_MAX];
    if (::getcwd(buffer, sizeof buffer) == nullptr) return "./";
    std::string dir = buffer;
    if (dir.empty() || dir.back() != '/') dir += '/';
    return dir;
}

std::string FullPath(const char* name) {
    if (name[0] == '/') return name;
    return CurrentDirectory() + name;
}

bool FileExists(const char* path) {
    return ::access(path, F_OK) == 0;
}

bool CopyFile(const char* from, const char* to) {
    int in = ::open(from, O_RDONLY | O_CLOEXEC);
    if (in < 0) return false;
    int out = ::open(to, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (out < 0) {
        ::close(in);
        return false;
    }
    bool ok = true;
    char chunk[8192];
    ssize_t n;
    while (ok && (n = ::read(in, chunk, sizeof chunk)) != 0) {
        if (n < 0) {
            if (errno == EINTR) continue;
            ok = false;
            break;
        }
        ok = ::write(out, chunk, static_cast<size_t>(n)) == n;
    }
    ::close(in);
    return (::close(out) == 0) && ok;
}

bool DeleteFile(const char* path) {
    return ::unlink(path) == 0;
}

int OpenReadWrite(const char* path) {
    return ::open(path, O_RDWR | O_CLOEXEC);
}

int OpenCreateTruncate(const char* path) {
    return ::open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
}

int OpenWriteCreateTruncate(const char* path) {
    return ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
}

int OpenReadOnly(const char* path) {
    return ::open(path, O_RDONLY | O_CLOEXEC);
}

int64_t Seek(int fd, int64_t offset) {
    return ::lseek(fd, offset, SEEK_SET);
}

long ReadFile(int fd, void* buffer, size_t length) {
    return ::read(fd, buffer, length);
}

long WriteFile(int fd, const void* buffer, size_t length) {
    return ::write(fd, buffer, length);
}

int CloseFile(int fd) {
    return ::close(fd);
}

void LocalNow(std::tm* out) {
    std::time_t now = std::time(nullptr);
    ::localtime_r(&now, out);
}

int64_t Now() {
    return static_cast<int64_t>(std::time(nullptr));
}

}  // namespace platform
