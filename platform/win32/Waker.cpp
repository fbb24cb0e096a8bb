#include "platform/Waker.h"

// Winsock 2 comes before windows.h.
// clang-format off
#include <winsock2.h>
#include <windows.h>
// clang-format on

namespace platform {
namespace {

// Longest single wait. FD_CLOSE is reported once per socket, so a wait that began after it was
// taken would see nothing more; a bounded wait lets the thread's next turn read the end itself.
constexpr DWORD kLongestWaitMs = 1000;

HANDLE H(intptr_t h) {
    return reinterpret_cast<HANDLE>(h);
}

}  // namespace

// An auto-reset event for the wake-ups, and a manual one that WSAEventSelect sets for the socket.
Waker::Waker()
    : handle_(reinterpret_cast<intptr_t>(::CreateEventA(nullptr, FALSE, FALSE, nullptr))),
      socketEvent_(reinterpret_cast<intptr_t>(::WSACreateEvent())) {}

Waker::~Waker() {
    Close();
}

void Waker::Signal() {
    if (handle_) ::SetEvent(H(handle_));
}

void Waker::Wait(SocketHandle socket, int timeoutMs) {
    if (!handle_) return;
    DWORD wait = timeoutMs < 0 ? kLongestWaitMs
                               : static_cast<DWORD>(timeoutMs < static_cast<int>(kLongestWaitMs)
                                                        ? timeoutMs
                                                        : kLongestWaitMs);
    SOCKET s = static_cast<SOCKET>(socket);
    // Data already waiting when the selection is made signals the event at once.
    bool watching = socketEvent_ && socket != kInvalidSocket &&
                    ::WSAEventSelect(s, H(socketEvent_), FD_READ | FD_CLOSE) == 0;
    if (watching) {
        HANDLE both[2] = {H(handle_), H(socketEvent_)};
        // Only the object that ends the wait is taken: a wake-up that comes with data is kept
        // for the next wait, which then returns at once.
        ::WaitForMultipleObjects(2, both, FALSE, wait);
        // Back to a plain socket (the non-blocking mode stays, as the library wants it).
        ::WSAEventSelect(s, nullptr, 0);
        ::WSAResetEvent(H(socketEvent_));
    } else {
        ::WaitForSingleObject(H(handle_), wait);
    }
}

void Waker::Close() {
    if (handle_) ::CloseHandle(H(handle_));
    if (socketEvent_) ::WSACloseEvent(H(socketEvent_));
    handle_ = 0;
    socketEvent_ = 0;
}

}  // namespace platform
