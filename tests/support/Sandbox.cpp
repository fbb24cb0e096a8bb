#include "support/Sandbox.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "support/Net.h"

#if defined(_WIN32)
#include <windows.h>
#endif

namespace zanth::test {
namespace {
std::string sandbox;

#if defined(_WIN32)
// The per-user setting is a registry value shared by every process of the Wine prefix (or the
// Windows user): each test process gets a key of its own that stands in for HKEY_CURRENT_USER.
// Not a volatile key: the library's keys below it are not volatile either. Removed at the end.
std::string userKey;
HKEY userRoot = nullptr;

void IsolateUserSettings(const std::string& name) {
    userKey = "Software\\ZanthTests\\" + name;
    if (::RegCreateKeyExA(HKEY_CURRENT_USER, userKey.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                          KEY_ALL_ACCESS, nullptr, &userRoot, nullptr) != ERROR_SUCCESS ||
        ::RegOverridePredefKey(HKEY_CURRENT_USER, userRoot) != ERROR_SUCCESS)
        throw std::runtime_error("could not isolate HKEY_CURRENT_USER");
}

void ReleaseUserSettings() {
    if (!userRoot) return;
    ::RegOverridePredefKey(HKEY_CURRENT_USER, nullptr);
    ::RegCloseKey(userRoot);
    ::RegDeleteTreeA(HKEY_CURRENT_USER, userKey.c_str());
    userRoot = nullptr;
}
#else
void IsolateUserSettings(const std::string&) {}
void ReleaseUserSettings() {}
#endif
}  // namespace

void EnterSandbox() {
    net::Startup();
    // Written with the system's separator, as the library writes the current directory.
    std::string made = net::MakeTempDir(net::TempRoot() + net::kSeparator + "zanth-test-XXXXXX");
    if (made.empty()) throw std::runtime_error("no sandbox directory");
    sandbox = made + net::kSeparator;
    std::filesystem::create_directories(sandbox + "home/.config");
    net::SetEnv("HOME", sandbox + "home");
    net::SetEnv("XDG_CONFIG_HOME", sandbox + "home/.config");
    IsolateUserSettings(std::filesystem::path(made).filename().string());
    if (!net::ChangeDir(sandbox)) throw std::runtime_error("chdir failed");
}

void LeaveSandbox() {
    ReleaseUserSettings();
    if (sandbox.empty() || std::getenv("ZANTH_KEEP_SANDBOX")) return;
    if (!net::ChangeDir(net::TempRoot())) return;
    std::error_code ignored;
    std::filesystem::remove_all(sandbox, ignored);
}

const std::string& SandboxDir() {
    return sandbox;
}

}  // namespace zanth::test
