#pragma once
// What the fuzz programs share: a scratch directory per process, the library's one Master built
// in-process (as loading libzanth.so would), a trace log that is kept from filling the disk, and
// a check that stops the run with a message when an invariant breaks.

#include <cstddef>
#include <cstdint>
#include <string>

namespace zanth {
struct Context;
}

namespace zanth::fuzz {

// A fresh directory under TMPDIR (or /tmp) becomes the working directory, HOME and
// XDG_CONFIG_HOME, so the library's log, message files and seed file land there and nowhere
// else. Removed at a normal exit; a crashed run leaves it behind for a look.
void EnterScratchDirectory();
const std::string& ScratchDirectory();

// Writes `bytes` as the whole content of `path`.
void WriteFile(const std::string& path, const void* bytes, size_t size);
long FileSize(const std::string& path);

// The Master and with it every monitor; stays until the process ends.
void LoadLibrary();
// The loaded library's context.
Context& Shared();
// Only the diagnostic log, at `level`, for targets that test single monitors.
void StartLogOnly(int32_t level);
// Empties the diagnostic log once it passes a few megabytes; long runs would fill the disk.
void TrimLog();

// Reports `what` on stderr and aborts, which libFuzzer records as a crash with its input.
[[noreturn]] void Broken(const char* what, const std::string& detail = "");

}  // namespace zanth::fuzz

#define FUZZ_CHECK(condition, detail)                                                   \
    do {                                                                                \
        if (!(condition)) ::zanth::fuzz::Broken("check failed: " #condition, (detail)); \
    } while (0)
