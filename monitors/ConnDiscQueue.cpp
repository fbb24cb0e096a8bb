#include "monitors/ConnDiscQueue.h"

#include <cstring>

#include "platform/File.h"
#include "protocol/CommandRecord.h"
#include "protocol/Result.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {

ConnDiscQueue::ConnDiscQueue(const char* name) : name_(name ? name : "") {}

ConnDiscQueue::~ConnDiscQueue() {
    {
        std::lock_guard<std::mutex> g(lock_);
        Item discard;
        while (queue_.Remove(&discard)) {
        }
    }
    Log(name_.c_str(), kLogTrace, "[ConnDiscQueue::~ConnDiscQueue] ConnDiscQueue terminated");
}

void ConnDiscQueue::Add(const char* mac, uint8_t connected, int32_t* error) {
    Item item{mac ? mac : "", connected, platform::Now()};
    std::lock_guard<std::mutex> g(lock_);
    queue_.Insert(std::move(item));
    if (error) *error = 0;
}

void ConnDiscQueue::Length(int32_t* result) {
    std::lock_guard<std::mutex> g(lock_);
    *result = queue_.Length();
}

void ConnDiscQueue::Remove(char* dest, int32_t dataSize, uint8_t* connected, int64_t* time,
                           int32_t* error) {
    std::lock_guard<std::mutex> g(lock_);
    *error = 0;
    Item item;
    if (!queue_.Remove(&item)) {
        *error = kNoEntry;
        return;
    }
    if (dataSize >= 0 && item.mac.size() <= static_cast<size_t>(dataSize)) {
        if (dest) std::memcpy(dest, item.mac.c_str(), item.mac.size() + 1);
        if (connected) *connected = item.connected;
        if (time) *time = item.time;
    } else {
        char text[kLogTextSize];
        FormatText(text, sizeof text, "[ConnDiscQueue::Remove] dataSize (%d) insufficent, need %d",
                   dataSize, static_cast<int>(item.mac.size()));
        Log(name_.c_str(), kLogError, text);
    }
}

}  // namespace zanth
