#include "monitors/CharIntQueueMon.h"

#include <cstring>

#include "protocol/CommandRecord.h"
#include "protocol/Result.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {

CharIntQueueMon::CharIntQueueMon(const char* name) : name_(name ? name : "") {}

CharIntQueueMon::~CharIntQueueMon() {
    {
        std::lock_guard<std::mutex> g(lock_);
        Item discard;
        while (queue_.Remove(&discard)) {
        }
    }
    Log(name_.c_str(), kLogTrace, "[CharIntQueueMon::~CharIntQueueMon] CharIntQueueMon terminated");
}

void CharIntQueueMon::Add(int32_t tag, const char* data, int32_t size) {
    Item item;
    item.tag = tag;
    if (data && size > 0) item.block.assign(data, data + size);
    std::lock_guard<std::mutex> g(lock_);
    queue_.Insert(std::move(item));
}

void CharIntQueueMon::Length(int32_t* result) {
    std::lock_guard<std::mutex> g(lock_);
    *result = queue_.Length();
}

void CharIntQueueMon::Remove(int32_t* tag, char* dest, int32_t dataSize, int32_t* error,
                             int32_t* size) {
    std::lock_guard<std::mutex> g(lock_);
    *error = 0;
    Item item;
    if (!queue_.Remove(&item)) {
        *error = kNoEntry;
        return;
    }
    int32_t blockSize = static_cast<int32_t>(item.block.size());
    char text[kLogTextSize];
    if (blockSize <= dataSize) {
        if (tag) *tag = item.tag;
        if (size) *size = blockSize;
        if (dest) {
            std::memset(dest, 0, static_cast<size_t>(dataSize));
            if (blockSize > 0) std::memcpy(dest, item.block.data(), item.block.size());
        }
        FormatText(text, sizeof text, "[CharIntQueueMon::Remove()]response dequeued with rspid=%d",
                   item.tag);
        Log(name_.c_str(), kLogTrace, text);
    } else {
        FormatText(text, sizeof text,
                   "[CharIntQueueMon::Remove] dataSize (%d) insufficent, need %d", dataSize,
                   blockSize);
        Log(name_.c_str(), kLogError, text);
    }
}

void CharIntQueueMon::Remove(int32_t* tag, char* dest, int32_t dataSize, int32_t* error) {
    int32_t size = 0;
    Remove(tag, dest, dataSize, error, &size);
}

}  // namespace zanth
