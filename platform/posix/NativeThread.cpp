#include "platform/NativeThread.h"

#include <limits.h>
#include <pthread.h>

#include <cerrno>
#include <memory>

namespace platform {
namespace {

static_assert(sizeof(pthread_t) <= sizeof(uint64_t), "pthread_t is kept in 64 bits");

void* Trampoline(void* arg) {
    std::unique_ptr<std::function<void()>> body(static_cast<std::function<void()>*>(arg));
    (*body)();
    return nullptr;
}

}  // namespace

NativeThread::~NativeThread() {
    Join();
}

int NativeThread::Start(std::function<void()> body, size_t stackBytes) {
    if (started_) return EINVAL;
    pthread_attr_t attr;
    int rc = pthread_attr_init(&attr);
    if (rc != 0) return rc;
    if (stackBytes != 0) {
        size_t size = stackBytes < static_cast<size_t>(PTHREAD_STACK_MIN)
                          ? static_cast<size_t>(PTHREAD_STACK_MIN)
                          : stackBytes;
        rc = pthread_attr_setstacksize(&attr, size);
    }
    auto* arg = new std::function<void()>(std::move(body));
    pthread_t thread{};
    if (rc == 0) rc = pthread_create(&thread, &attr, Trampoline, arg);
    pthread_attr_destroy(&attr);
    if (rc != 0) {
        delete arg;
        return rc;
    }
    handle_ = static_cast<uint64_t>(thread);
    started_ = true;
    return 0;
}

void NativeThread::Join() {
    if (!started_) return;
    pthread_join(static_cast<pthread_t>(handle_), nullptr);
    started_ = false;
}

}  // namespace platform
