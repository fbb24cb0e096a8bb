#pragma once
// A system thread with a stack of a chosen size, which std::thread can't ask for. Workers run
// one per controller, thousands at once, and need only a small part of the system's default.

#include <cstddef>
#include <cstdint>
#include <functional>

namespace platform {

class NativeThread {
  public:
    NativeThread() = default;
    NativeThread(const NativeThread&) = delete;
    NativeThread& operator=(const NativeThread&) = delete;
    // A thread still joinable here is joined: none is ever left running unowned.
    ~NativeThread();

    // Starts `body` on a new thread with `stackBytes` of stack (0: the system's default; a size
    // below the system's least is raised to it). 0, or the system's error number.
    int Start(std::function<void()> body, size_t stackBytes);
    bool Joinable() const { return started_; }
    void Join();

  private:
    uint64_t handle_ = 0;
    bool started_ = false;
};

}  // namespace platform
