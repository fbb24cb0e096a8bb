#include "monitors/CharQueueMon.h"

#include <cstring>

#include "protocol/CommandRecord.h"
#include "protocol/Result.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {

CharQueueMon::CharQueueMon(const char* name) : name_(name ? name : "") {}

CharQueueMon::~CharQueueMon() {
    {
        std::lock_guard<std::mutex> g(lock_);
        std::string discard;
        while (queue_.Remove(&discard)) {
        }
    }
    Log(name_.c_str(), kLogTrace, "[CharQueueMon::~CharQueueMon] CharQueueMon terminated");
}

void CharQueueMon::Add(const char* text) {
    std::lock_guard<std::mutex> g(lock_);
    queue_.Insert(std::string(text ? text : ""));
}

void CharQueueMon::Length(int32_t* result) {
    std::lock_guard<std::mutex> g(lock_);
    *result = queue_.Length();
}

void CharQueueMon::Remove(char* dest, int32_t dataSize, int32_t* error) {
    std::lock_guard<std::mutex> g(lock_);
    *error = 0;
    std::string item;
    if (!queue_.Remove(&item)) {
        *error = kNoEntry;
        return;
    }
    if (dataSize >= 0 && item.size() <= static_cast<size_t>(dataSize)) {
        if (dest) std::memcpy(dest, item.c_str(), item.size() + 1);
    } else {
        char text[kLogTextSize];
        FormatText(text, sizeof text, "[CharQueueMon::Remove] dataSize (%d) insufficent, need %d",
                   dataSize, static_cast<int>(item.size()));
        Log(name_.c_str(), kLogError, text);
    }
}

}  // namespace zanth
