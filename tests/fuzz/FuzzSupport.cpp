#include "FuzzSupport.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "frame/Context.h"
#include "frame/Master.h"
#include "stores/LogMon.h"

namespace zanth {
namespace {

std::unique_ptr<Master> loaded;
std::unique_ptr<LogMon> logOnly;
std::string scratch;

void LeaveScratchDirectory() {
    // The Master goes first: its monitors write their last lines into the directory.
    loaded.reset();
    if (logOnly) {
        SetLibraryLog(nullptr);
        logOnly.reset();
    }
    if (scratch.empty() || std::getenv("ZANTH_KEEP_SANDBOX")) return;
    if (::chdir("/") != 0) return;
    std::error_code ignored;
    std::filesystem::remove_all(scratch, ignored);
}

}  // namespace

Master& TheMaster() {
    return *loaded;
}

namespace fuzz {

void EnterScratchDirectory() {
    if (!scratch.empty()) return;
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/zanth-fuzz-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) Broken("mkdtemp failed", pattern);
    scratch = pattern + "/";
    std::filesystem::create_directories(scratch + "home/.config");
    ::setenv("HOME", (scratch + "home").c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", (scratch + "home/.config").c_str(), 1);
    if (::chdir(scratch.c_str()) != 0) Broken("chdir failed", scratch);
    std::atexit(LeaveScratchDirectory);
}

const std::string& ScratchDirectory() {
    return scratch;
}

void WriteFile(const std::string& path, const void* bytes, size_t size) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr) Broken("cannot write", path);
    if (size > 0 && std::fwrite(bytes, 1, size, f) != size) Broken("short write", path);
    std::fclose(f);
}

long FileSize(const std::string& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) return -1;
    return static_cast<long>(st.st_size);
}

void LoadLibrary() {
    if (!loaded) loaded = std::make_unique<Master>("master");
}

Context& Shared() {
    return loaded->Shared();
}

void StartLogOnly(int32_t level) {
    if (!logOnly) {
        logOnly = std::make_unique<LogMon>("logmon", "");
        SetLibraryLog(logOnly.get());
    }
    logOnly->SetLevel(level);
}

void TrimLog() {
    constexpr long kLimit = 8L << 20;
    if (FileSize("ZanthMessages.log") > kLimit) {
        if (::truncate("ZanthMessages.log", 0) != 0) Broken("cannot trim the log");
    }
}

void Broken(const char* what, const std::string& detail) {
    std::fprintf(stderr, "\n*** %s%s%s\n", what, detail.empty() ? "" : ": ", detail.c_str());
    std::fflush(stderr);
    std::abort();
}

}  // namespace fuzz
}  // namespace zanth
