#include "gateway/LibraryApi.h"

#include <dlfcn.h>

#include <filesystem>

namespace zanthd {

bool LibraryApi::Load(const std::string& path, std::string* error) {
    // The library built or installed beside the program comes first: a sanitizer that wraps
    // dlopen hides the program's own run path from the search.
    std::string chosen = path;
    if (chosen.empty()) {
        std::error_code ec;
        auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
        auto beside = exe.parent_path().parent_path() / "lib" / "libzanth.so.2";
        chosen = !ec && std::filesystem::exists(beside, ec) ? beside.string() : "libzanth.so.2";
    }
    const char* name = chosen.c_str();
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
