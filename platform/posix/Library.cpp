#include "platform/Library.h"

#include <dlfcn.h>

namespace platform {

LibraryHandle LoadLibrary(const char* file) {
    return ::dlopen(file, RTLD_NOW | RTLD_LOCAL);
}

void* FindSymbol(LibraryHandle library, const char* name) {
    return ::dlsym(library, name);
}

void FreeLibrary(LibraryHandle library) {
    if (library) ::dlclose(library);
}

}  // namespace platform
