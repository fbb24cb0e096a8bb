// The message files as the host reads them, and the cipher plugin's version.

#include <cstring>

#include "frame/ArgumentCheck.h"
#include "frame/Context.h"
#include "frame/Master.h"
#include "protocol/Result.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {

int32_t Master::GetNextEvent(char* buffer, int32_t size) {
    if (buffer == nullptr) return size != 0 ? kBadArgument : kTooLarge;
    int32_t error = 0;
    context_->eventMon->GetMsg(buffer, size, &error);
    return error;
}

int32_t Master::GetNextAlarm(char* buffer, int32_t size) {
    if (buffer == nullptr) return size != 0 ? kBadArgument : kTooLarge;
    int32_t error = 0;
    context_->alarmMon->GetMsg(buffer, size, &error);
    return error;
}

int32_t Master::NumberUnreadEvents(uint64_t* count) {
    if (count == nullptr) return kBadArgument;
    context_->eventMon->GetUnread(count);
    return 0;
}

int32_t Master::NumberUnreadAlarms(uint64_t* count) {
    if (count == nullptr) return kBadArgument;
    context_->alarmMon->GetUnread(count);
    return 0;
}

int32_t Master::EventLogSize(int32_t mode, uint64_t* value) {
    return LogSize(context_->eventMon.get(), "Master::EventLogSize", mode, value);
}

int32_t Master::AlarmLogSize(int32_t mode, uint64_t* value) {
    return LogSize(context_->alarmMon.get(), "Master::AlarmLogSize", mode, value);
}

// The size is read through the pointer as 32 bits and written through it as 64: the host's
// variable is 64 bits wide, and its low half carries a new size.
int32_t Master::LogSize(MsgMon* store, const char* method, int32_t mode, uint64_t* value) {
    std::lock_guard<std::recursive_mutex> g(transactionLock_);
    int32_t result = kOk;
    ArgumentCheck c(method, result, logText_, masterName_);
    if (!c.Present(value) || !c.Check("mode", mode, 0, 1)) return result;
    if (mode == 0) {
        store->GetLogSize(value);
        return result;
    }
    int32_t size = 0;
    std::memcpy(&size, value, sizeof size);
    if (c.CheckBetween("log size", size, 20, 2147483647))
        store->SetLogSize(static_cast<uint64_t>(size), &result);
    return result;
}

int32_t Master::GetEncryptionDLLVersion(char* buffer, int32_t size) {
    std::lock_guard<std::recursive_mutex> g(transactionLock_);
    if (buffer == nullptr && size != 0) return kBadArgument;
    if (buffer == nullptr || size <= 0) return kTooLarge;
    return crypto_.GetVersion(buffer, size);
}

}  // namespace zanth
