#include "platform/File.h"

#include <direct.h>
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <windows.h>

// The system's names for the calls, not this layer's.
#undef CopyFile
#undef DeleteFile

namespace platform {
namespace {

// Binary always: the message files and the logs hold exact bytes, never translated line ends.
constexpr int kCommon = _O_BINARY | _O_NOINHERIT;
constexpr int kCreateMode = _S_IREAD | _S_IWRITE;

bool Absolute(const char* name) {
    if (name[0] == '\\' || name[0] == '/') return true;
    return ((name[0] >= 'A' && name[0] <= 'Z') || (name[0] >= 'a' && name[0] <= 'z')) &&
           name[1] == ':';
}

}  // namespace

// The attribute query, not the CRT's stat: stat refuses a folder written with its trailing
// separator, which is how the library's folder texts end.
int PathStatus(const char* path) {
    if (::GetFileAttributesA(path) != INVALID_FILE_ATTRIBUTES) return 0;
    switch (::GetLastError()) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
            return -10025;
        case ERROR_INVALID_NAME:
        case ERROR_INVALID_PARAMETER:
            return -10002;
        default:
            return -1;
    }
}

std::string CurrentDirectory() {
    char buffer[MAX_PATH + 1];
    DWORD n = ::GetCurrentDirectoryA(sizeof buffer, buffer);
    if (n == 0 || n >= sizeof buffer) return ".\\";
    std::string dir(buffer, n);
    if (dir.back() != '\\' && dir.back() != '/') dir += '\\';
    return dir;
}

std::string FullPath(const char* name) {
    if (Absolute(name)) return name;
    return CurrentDirectory() + name;
}

bool FileExists(const char* path) {
    return ::GetFileAttributesA(path) != INVALID_FILE_ATTRIBUTES;
}

bool CopyFile(const char* from, const char* to) {
    return ::CopyFileA(from, to, FALSE) != 0;
}

bool DeleteFile(const char* path) {
    return ::DeleteFileA(path) != 0;
}

int OpenReadWrite(const char* path) {
    return ::_open(path, _O_RDWR | kCommon);
}

int OpenCreateTruncate(const char* path) {
    return ::_open(path, _O_RDWR | _O_CREAT | _O_TRUNC | kCommon, kCreateMode);
}

int OpenWriteCreateTruncate(const char* path) {
    return ::_open(path, _O_WRONLY | _O_CREAT | _O_TRUNC | kCommon, kCreateMode);
}

int OpenReadOnly(const char* path) {
    return ::_open(path, _O_RDONLY | kCommon);
}

int64_t Seek(int fd, int64_t offset) {
    return ::_lseeki64(fd, offset, SEEK_SET);
}

long ReadFile(int fd, void* buffer, size_t length) {
    unsigned n = static_cast<unsigned>(length > 0x7FFFFFFF ? 0x7FFFFFFF : length);
    return ::_read(fd, buffer, n);
}

long WriteFile(int fd, const void* buffer, size_t length) {
    unsigned n = static_cast<unsigned>(length > 0x7FFFFFFF ? 0x7FFFFFFF : length);
    return ::_write(fd, buffer, n);
}

int CloseFile(int fd) {
    return ::_close(fd);
}

void LocalNow(std::tm* out) {
    std::time_t now = std::time(nullptr);
    ::localtime_s(out, &now);
}

int64_t Now() {
    return static_cast<int64_t>(std::time(nullptr));
}

}  // namespace platform
