#include "monitors/ThreadHashMon.h"

#include "protocol/MessageUtil.h"
#include "stores/LogMon.h"

namespace zanth {

ThreadHashMon::ThreadHashMon(const char* name)
    : HashTable<std::unique_ptr<CommandRecord>>(kBuckets), name_(name ? name : "") {}

ThreadHashMon::~ThreadHashMon() {
    {
        std::lock_guard<std::mutex> g(lock_);
        for (int32_t b = 0; b < BucketCount(); ++b) {
            while (Pop(b, nullptr)) {
            }
        }
    }
    Log(name_.c_str(), 75, "[ThreadHashMon::~ThreadHashMon] ThreadHashMon terminated");
}

void ThreadHashMon::Put(const CommandRecord& record, const char* mac) {
    auto copy = std::make_unique<CommandRecord>(record);
    std::lock_guard<std::mutex> g(lock_);
    Insert(std::move(copy), MessageUtil::MacHash(mac));
}

void ThreadHashMon::Get(CommandRecord* dest, const char* mac, int32_t* error) {
    std::unique_ptr<CommandRecord> record;
    {
        std::lock_guard<std::mutex> g(lock_);
        if (!Remove(MessageUtil::MacHash(mac), &record)) {
            *error = -10009;
            return;
        }
    }
    *error = 0;
    *dest = *record;
}

int32_t ThreadHashMon::CountFor(const char* mac) {
    std::lock_guard<std::mutex> g(lock_);
    return Count(MessageUtil::MacHash(mac));
}

}  // namespace zanth
