// A host that loads the library at run time (ZANTH_HPP_LOAD_AT_RUNTIME), as the command line and
// the gateway do: it links nothing of libzanth, moves into a folder of its own first, and the
// library's files must then appear there and nowhere else. Called with the library's path.

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

#define ZANTH_HPP_LOAD_AT_RUNTIME
#include "zanth.hpp"

namespace {

int failures = 0;

void Expect(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "runtime load: FAILED: %s\n", what);
        ++failures;
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: zanth_hpp_runtime_load LIBRARY\n");
        return 2;
    }
    namespace fs = std::filesystem;
    const fs::path start = fs::current_path();

    bool refused = false;
    try {
        zanth::lib::GetDLLVersion();
    } catch (const std::logic_error&) {
        refused = true;
    }
    Expect(refused && !zanth::Loaded(), "an export called before Load is refused");

    std::string why;
    try {
        zanth::Load((start / "no-such-libzanth.so").string());
    } catch (const std::runtime_error& e) {
        why = e.what();
    }
    Expect(why.find("no-such-libzanth.so") != std::string::npos, "a missing library is named");
    Expect(!zanth::Loaded(), "a failed load leaves nothing loaded");

    const fs::path own = start / "own";
    fs::create_directories(own / "config");
    fs::current_path(own);
    ::setenv("XDG_CONFIG_HOME", (own / "config").c_str(), 1);
    zanth::Load(argv[1]);
    zanth::Load(argv[1]);  // a second call does nothing
    Expect(zanth::Loaded(), "the library is loaded");

    Expect(zanth::lib::GetDLLVersion() == zanth::meta::kLibraryVersion,
           "GetDLLVersion through the loaded table");
    zanth::dynamic::Call byName = zanth::dynamic::Invoke("GetValidControllers", {});
    Expect(byName.ok, "an export by name through the loaded table");
    Expect(fs::exists(own / "ZanthMessages.log"), "the log is in the folder chosen before loading");
    Expect(!fs::exists(start / "ZanthMessages.log") && !fs::exists(start / "ZanthEvents.log"),
           "nothing is written where the program started");

    if (failures == 0) std::printf("runtime load: all checks passed\n");
    return failures == 0 ? 0 : 1;
}
