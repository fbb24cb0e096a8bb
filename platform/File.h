#pragma once
// Low-level file calls, path queries and the local clock.

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

namespace platform {

// The separator that ends a folder text: '\\' on Windows, '/' elsewhere.
#if defined(_WIN32)
constexpr char kPathSeparator = '\\';
#else
constexpr char kPathSeparator = '/';
#endif

// Result of the path status query: 0, -10025 (no such path), -10002 (invalid), -1 (other).
int PathStatus(const char* path);

// The process's current directory, ending in its separator.
std::string CurrentDirectory();
// `name` made absolute against the current directory.
std::string FullPath(const char* name);

bool FileExists(const char* path);
// Copies `from` over `to`, replacing it. False on any failure.
bool CopyFile(const char* from, const char* to);
bool DeleteFile(const char* path);

// The low-level file calls (open/lseek/read/write/close, or the CRT's binary _open and
// its kin on Windows); created files get mode 0600. -1 on failure.
int OpenReadWrite(const char* path);
int OpenCreateTruncate(const char* path);
// The two opens of a file transfer: write-only, created and cut to nothing; read-only.
int OpenWriteCreateTruncate(const char* path);
int OpenReadOnly(const char* path);
int64_t Seek(int fd, int64_t offset);
long ReadFile(int fd, void* buffer, size_t length);
long WriteFile(int fd, const void* buffer, size_t length);
int CloseFile(int fd);

// Local broken-down time of now, and now as 64-bit seconds since 1970.
void LocalNow(std::tm* out);
int64_t Now();

}  // namespace platform
