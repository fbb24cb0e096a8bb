#include "notify/Response.h"

#include <algorithm>
#include <cstring>

#include "monitors/CharIntQueueMon.h"
#include "monitors/HandleMon.h"
#include "platform/Thread.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {

Response::Response(ZanthResponseCallback callback, HandleMon& handles, CharIntQueueMon& responses)
    : callback_(callback), handles_(handles), responses_(responses) {
    CopyBounded(name_, "response", sizeof name_);
    std::memset(raw_, 0, sizeof raw_);
    std::memset(&delivery_, 0, sizeof delivery_);
}

Response::~Response() {
    uint8_t stop = 0;
    handles_.ShouldStop(name_, &stop);
    if (!stop) handles_.RemoveIfThread(name_, platform::CurrentThreadId());
    Log(name_, kLogTrace, "[Response::~Response] Response thread terminated");
}

void Response::Run() {
    for (;;) {
        DrainPass();
        uint8_t stop = 0;
        handles_.ShouldStop(name_, &stop);
        if (stop) return;
        platform::Sleep(200);
    }
}

// A reply too long for the raw block is lost in the queue, and the former rspid and block are
// delivered again in its place.
void Response::DrainPass() {
    int32_t error = 0;
    int32_t size = 0;
    for (;;) {
        responses_.Remove(&rspid_, raw_, sizeof raw_, &error, &size);
        if (error < 0) return;
        delivery_.rspid = rspid_;
        std::memset(delivery_.text, 0, sizeof delivery_.text);
        std::memcpy(delivery_.text, raw_,
                    std::min(static_cast<size_t>(std::max(size, 0)), sizeof delivery_.text));
        error = callback_ ? callback_(&delivery_) : 0;
        if (error < 0) return;
    }
}

}  // namespace zanth
