#pragma once
// The loop shared by SmallString and BigString: drain a text queue into a host callback, then
// sleep a second. They differ only in their sizes and in whether the text is terminated, so
// those are the parameters.

#include <cstdint>
#include <cstring>
#include <string>

#include "monitors/CharQueueMon.h"
#include "monitors/HandleMon.h"
#include "platform/Thread.h"
#include "stores/LogMon.h"
#include "zanth.h"

namespace zanth {

// What a callback thread is started with, copied by the thread when its object is built.
struct CallbackStart {
    char name[21];
    ZanthTextCallback callback;
    CharQueueMon* queue;
    // Where the thread is registered under its name, and learns to stop.
    HandleMon* handles;
};

template <int32_t RawSize, int32_t DeliverySize, bool Terminate>
class StringCallbackThread {
  public:
    explicit StringCallbackThread(const CallbackStart& start)
        : callback_(start.callback), queue_(start.queue), handles_(start.handles) {
        std::memcpy(name_, start.name, sizeof name_);
        name_[sizeof name_ - 1] = '\0';
        std::memset(raw_, 0, sizeof raw_);
        std::memset(delivery_, 0, sizeof delivery_);
    }

    void Run() {
        for (;;) {
            DrainPass();
            uint8_t stop = 0;
            handles_->ShouldStop(name_, &stop);
            if (stop) return;
            platform::Sleep(1000);
        }
    }

    const char* Name() const { return name_; }

  protected:
    // At its end a thread keeps its registration while it is told to stop (the next
    // registration removes it); if it is no longer told to, it removes its own entry.
    void Leave(const char* text) {
        uint8_t stop = 0;
        handles_->ShouldStop(name_, &stop);
        if (!stop) handles_->RemoveIfThread(name_, platform::CurrentThreadId());
        Log(name_, kLogTrace, text);
    }

  private:
    // One pass over the queue: every item, until it is empty or the callback returns below 0.
    // An item too long for the raw text is lost in the queue (logged there) and the former text
    // is delivered again in its place.
    void DrainPass() {
        int32_t error = 0;
        for (;;) {
            queue_->Remove(raw_, RawSize, &error);
            if (error < 0) return;
            size_t length = ::strnlen(raw_, RawSize);
            std::memset(delivery_, ' ', DeliverySize);
            std::memcpy(delivery_, raw_, length);
            if (Terminate) delivery_[length] = '\0';
            // A null callback was stored as given; calling it would kill the host.
            error = callback_ ? callback_(delivery_) : 0;
            if (error < 0) return;
        }
    }

    char name_[21];
    ZanthTextCallback callback_;
    CharQueueMon* queue_;
    HandleMon* handles_;
    // One byte more than the sizes, for the terminator the queue writes after the longest text.
    char raw_[RawSize + 1];
    // The delivered text area, plus a terminator that no host should need but none can overrun.
    char delivery_[(DeliverySize > RawSize ? DeliverySize : RawSize) + 1];
};

}  // namespace zanth
