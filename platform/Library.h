#pragma once
// Loading of a plugin library by name through the system's normal search, and look-up of its
// entry points: dlopen/dlsym (posix/Library.cpp) or LoadLibraryA/GetProcAddress
// (win32/Library.cpp).

namespace platform {

using LibraryHandle = void*;

// The file the cipher plugin is loaded by, and the name that a load failure text prints (the
// plugin's 32-bit name).
#if defined(_WIN32)
constexpr const char* kCipherLibraryFile = "zanth_encryption64.dll";
constexpr const char* kCipherLibraryLogName = "zanth_encryption.dll";
#else
constexpr const char* kCipherLibraryFile = "libzanth_encryption64.so";
constexpr const char* kCipherLibraryLogName = "libzanth_encryption.so";
#endif

// Null when the library can't be loaded (missing, or one of its own dependencies missing).
LibraryHandle LoadLibrary(const char* file);
// Null when the library has no such entry point.
void* FindSymbol(LibraryHandle library, const char* name);
void FreeLibrary(LibraryHandle library);

}  // namespace platform
