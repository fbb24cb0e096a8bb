#pragma once
// The library's one Master, loaded and unloaded by the tests themselves (in the shared library
// it is a static object). Each test runs in its own process, so each gets a fresh one.

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>

#include "frame/Context.h"
#include "frame/Master.h"

namespace zanth::test {

void LoadLibrary();
void UnloadLibrary();
bool LibraryLoaded();
// The loaded library's context: its monitors, log and message files.
Context& Shared();

// A free TCP port on the loopback interface.
int FreePort();

// Polls `condition` every 5 ms until it holds or `timeout` passes.
bool WaitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds timeout = std::chrono::seconds(10));

// A file's bytes; on Windows with CR LF read as LF, as a text stream would.
std::string ReadWholeFile(const std::string& path);
// The diagnostic log of the current load.
std::string LogText();
bool LogContains(const std::string& text);
// How often `text` occurs in the log.
int LogCount(const std::string& text);

// A test of single monitors without the whole library: a diagnostic log of its own at the trace
// level, so that the monitors' lines can be read.
class TraceLogTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;
};

// A test with the library loaded (and unloaded at the end). The debug level is raised to 75 so
// that traces can be checked.
class LibraryTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;
    // Initialization on a free port, with `valid` as the valid list.
    void Start(const char* valid = "ALL");
    int port_ = 0;
};

}  // namespace zanth::test
