#include "platform/Library.h"

#include <windows.h>

#undef LoadLibrary

namespace platform {

LibraryHandle LoadLibrary(const char* file) {
    // A missing plugin (or a missing dependency of it) fails quietly, without the system's
    // message box.
    UINT old = ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
    HMODULE module = ::LoadLibraryA(file);
    ::SetErrorMode(old);
    return reinterpret_cast<LibraryHandle>(module);
}

void* FindSymbol(LibraryHandle library, const char* name) {
    return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(library), name));
}

void FreeLibrary(LibraryHandle library) {
    if (library) ::FreeLibrary(static_cast<HMODULE>(library));
}

}  // namespace platform
