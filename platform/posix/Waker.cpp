#include "platform/Waker.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace platform {

Waker::Waker() : handle_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}

Waker::~Waker() {
    Close();
}

void Waker::Signal() {
    if (handle_ < 0) return;
    uint64_t one = 1;
    [[maybe_unused]] ssize_t put = ::write(static_cast<int>(handle_), &one, sizeof one);
}

void Waker::Wait(SocketHandle socket, int timeoutMs) {
    if (handle_ < 0) return;
    pollfd fds[2] = {{socket, POLLIN, 0}, {static_cast<int>(handle_), POLLIN, 0}};
    if (::poll(fds, 2, timeoutMs) > 0 && (fds[1].revents & POLLIN) != 0) {
        uint64_t count = 0;
        // Taken whole: the wake-ups so far are served by the turn that follows.
        [[maybe_unused]] ssize_t got = ::read(static_cast<int>(handle_), &count, sizeof count);
    }
}

void Waker::Close() {
    if (handle_ >= 0) ::close(static_cast<int>(handle_));
    handle_ = -1;
}

}  // namespace platform
