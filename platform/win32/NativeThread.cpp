#include "platform/NativeThread.h"

#include <process.h>
#include <windows.h>

#include <cerrno>
#include <memory>

namespace platform {
namespace {

unsigned __stdcall Trampoline(void* arg) {
    std::unique_ptr<std::function<void()>> body(static_cast<std::function<void()>*>(arg));
    (*body)();
    return 0;
}

HANDLE H(uint64_t h) {
    return reinterpret_cast<HANDLE>(static_cast<uintptr_t>(h));
}

}  // namespace

NativeThread::~NativeThread() {
    Join();
}

int NativeThread::Start(std::function<void()> body, size_t stackBytes) {
    if (started_) return EINVAL;
    auto* arg = new std::function<void()>(std::move(body));
    // The size reserves the stack's address space; the system commits pages as they are used.
    // The C runtime's own start keeps its per-thread state right.
    uintptr_t thread =
        ::_beginthreadex(nullptr, static_cast<unsigned>(stackBytes), Trampoline, arg,
                         stackBytes != 0 ? STACK_SIZE_PARAM_IS_A_RESERVATION : 0, nullptr);
    if (thread == 0) {
        int error = errno != 0 ? errno : EAGAIN;
        delete arg;
        return error;
    }
    handle_ = static_cast<uint64_t>(thread);
    started_ = true;
    return 0;
}

void NativeThread::Join() {
    if (!started_) return;
    ::WaitForSingleObject(H(handle_), INFINITE);
    ::CloseHandle(H(handle_));
    started_ = false;
}

}  // namespace platform
