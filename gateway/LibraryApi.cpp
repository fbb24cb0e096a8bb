#include "gateway/LibraryApi.h"

#include <dlfcn.h>

namespace zanthd {

bool LibraryApi::Load(const std::string& path, std::string* error) {
    const char* name = path.empty() ? "libzanth.so.2" : path.c_str();
    handle = dlopen(name, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* why = dlerror();
        *error = std::string("cannot load ") + name + ": " + (why ? why : "unknown error");
        return false;
    }
#define ZANTHD_RESOLVE(export_name)                                              \
    export_name = reinterpret_cast<decltype(export_name)>(dlsym(handle, #export_name)); \
    if (export_name == nullptr) {                                                \
        *error = std::string(name) + " has no export " #export_name;             \
        return false;                                                            \
    }
    ZANTHD_EXPORTS(ZANTHD_RESOLVE)
#undef ZANTHD_RESOLVE
    return true;
}

void* LibraryApi::Symbol(const char* name) const {
    return handle == nullptr ? nullptr : dlsym(handle, name);
}

}  // namespace zanthd
