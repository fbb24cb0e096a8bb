// A C++17 host on zanth.hpp alone, built with every compiler the library builds with (the mingw
// cross build included, run under Wine there): the version by its typed wrapper and by name, a
// bad argument refused by the model before any call, and a library result as zanth::Error.

#include <cstdio>
#include <string>

#if defined(_WIN32)
#include <windows.h>  // first: zanth.hpp must cope with its `interface` macro
#endif
#include "zanth.hpp"

namespace {

int failures = 0;

void Expect(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "hpp host: FAILED: %s\n", what);
        ++failures;
    }
}

}  // namespace

int main() {
    std::string version = zanth::lib::GetDLLVersion();
    Expect(version == zanth::meta::kLibraryVersion, "GetDLLVersion gives the model's version");
    zanth::dynamic::Call byName = zanth::dynamic::Invoke("GetDLLVersion", {});
    Expect(byName.ok && std::get<std::string>(byName.outputs.at("buffer")) == version,
           "GetDLLVersion by name gives the same text");

    try {
        zanth::dynamic::Invoke("CmdOutputFunction3", {{"mac", std::string("C0:00:01")},
                                                      {"target", int64_t{33}},
                                                      {"bitOrFunctionCode", int64_t{0}},
                                                      {"state", int64_t{1}}});
        Expect(false, "target 33 is refused");
    } catch (const zanth::ArgumentError& e) {
        Expect(e.param() == "target", "the refusal names target");
    }

    try {
        zanth::lib::ControllerInfo("C0:00:01");
        Expect(false, "ControllerInfo of a controller not in the valid list fails");
    } catch (const zanth::Error& e) {
        Expect(e.code() == -10004 && e.name() == "kNotValid", "the failure is kNotValid");
    }
    std::printf("hpp host: zanth %s, %zu exports, %s\n", version.c_str(),
                zanth::meta::kExportCount, failures == 0 ? "all checks passed" : "FAILED");
    return failures == 0 ? 0 : 1;
}
