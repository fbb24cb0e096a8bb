#include "support/Sandbox.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <unistd.h>

namespace zanth::test {
namespace {
std::string sandbox;
}

void EnterSandbox() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/zanth-test-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    sandbox = pattern + "/";
    std::filesystem::create_directories(sandbox + "home/.config");
    ::setenv("HOME", (sandbox + "home").c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", (sandbox + "home/.config").c_str(), 1);
    if (::chdir(sandbox.c_str()) != 0) throw std::runtime_error("chdir failed");
}

void LeaveSandbox() {
    if (sandbox.empty() || std::getenv("ZANTH_KEEP_SANDBOX")) return;
    if (::chdir("/") != 0) return;
    std::error_code ignored;
    std::filesystem::remove_all(sandbox, ignored);
}

const std::string& SandboxDir() { return sandbox; }

}  // namespace zanth::test
