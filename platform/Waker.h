#pragma once
// The wake-up of one library thread that can be waited for together with a socket: an eventfd
// beside poll (posix/Waker.cpp), or a Win32 event beside WSAEventSelect (win32/Waker.cpp).
// Internal to the platform layer; the rest of the library uses WakeThread and
// WaitForSocketOrWake.

#include <cstdint>

#include "platform/Socket.h"

namespace platform {

class Waker {
  public:
    Waker();
    ~Waker();
    Waker(const Waker&) = delete;
    Waker& operator=(const Waker&) = delete;

    // Records a wake-up; it is kept until the owner waits.
    void Signal();
    // Waits until `socket` has something to read (or an error or end of stream), a wake-up is
    // recorded, or `timeoutMs` passes (negative: no limit). Takes every recorded wake-up.
    void Wait(SocketHandle socket, int timeoutMs);
    // Releases the system object; later Signals and Waits do nothing.
    void Close();

  private:
    intptr_t handle_;
    // The second event of the Windows side; the POSIX side has no use for it.
    [[maybe_unused]] intptr_t socketEvent_ = 0;
};

}  // namespace platform
