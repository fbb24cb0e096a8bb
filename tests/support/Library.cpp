#include "support/Library.h"

#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

#include "frame/exports/Boundary.h"
#include "stores/LogMon.h"
#include "support/Net.h"
#include "zanth.h"

namespace zanth {

namespace {
std::unique_ptr<Master> loaded;
std::unique_ptr<LogMon> traceLog;
}  // namespace

Master& TheMaster() {
    return *loaded;
}

namespace test {

// Built and destroyed as the shared library's static object is.
void LoadLibrary() {
    loaded = std::make_unique<Master>("master");
}
void UnloadLibrary() {
    loaded.reset();
}
Context& Shared() {
    return loaded->Shared();
}
bool LibraryLoaded() {
    return loaded != nullptr;
}

int FreePort() {
    net::Fd s = net::TcpSocket();
    int port = net::Bind(s, 0, false);
    net::Close(s);
    return port;
}

bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) return condition();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

std::string ReadWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
#if defined(_WIN32)
    // The logs (and the files a test writes with a text stream) have the system's line ends;
    // the tests compare lines.
    std::string text = out.str();
    std::string lines;
    lines.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') continue;
        lines += text[i];
    }
    return lines;
#else
    return out.str();
#endif
}

std::string LogText() {
    return ReadWholeFile("ZanthMessages.log");
}

bool LogContains(const std::string& text) {
    return LogText().find(text) != std::string::npos;
}

int LogCount(const std::string& text) {
    std::string log = LogText();
    int n = 0;
    for (size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1)) ++n;
    return n;
}

void TraceLogTest::SetUp() {
    traceLog = std::make_unique<LogMon>("logmon", "");
    traceLog->SetLevel(75);
    SetLibraryLog(traceLog.get());
}

void TraceLogTest::TearDown() {
    SetLibraryLog(nullptr);
    traceLog.reset();
}

void LibraryTest::SetUp() {
    LoadLibrary();
    int32_t level = 75;
    ASSERT_EQ(DebugLevel(1, &level), 0);
}

void LibraryTest::TearDown() {
    UnloadLibrary();
}

void LibraryTest::Start(const char* valid) {
    port_ = FreePort();
    ASSERT_EQ(SetValidControllers(valid), 0);
    ASSERT_EQ(Initialization(port_, nullptr, nullptr), 0);
}

}  // namespace test
}  // namespace zanth
