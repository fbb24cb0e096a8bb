#pragma once
// Every test process runs in a directory of its own, with its own HOME and XDG_CONFIG_HOME, so
// that the library's files and per-user setting never meet another test's.

#include <string>

namespace zanth::test {

// Creates the sandbox and makes it the working directory. Called once by main.
void EnterSandbox();
// Removes it (kept when ZANTH_KEEP_SANDBOX is set).
void LeaveSandbox();
// The sandbox directory, ending in '/'.
const std::string& SandboxDir();

}  // namespace zanth::test
