#include "monitors/ThreadHashMon.h"

#include <cstring>

#include "platform/Thread.h"
#include "protocol/MessageUtil.h"
#include "protocol/Result.h"
#include "protocol/Text.h"
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
    Log(name_.c_str(), kLogTrace, "[ThreadHashMon::~ThreadHashMon] ThreadHashMon terminated");
}

void ThreadHashMon::Put(const CommandRecord& record, const char* mac) {
    auto copy = std::make_unique<CommandRecord>(record);
    const uint32_t key = MessageUtil::MacHash(mac);
    std::lock_guard<std::mutex> g(lock_);
    Insert(std::move(copy), key);
    // An idle Worker sleeps until its socket or a command wakes it; a wake-up is kept until it
    // waits, so one that checks first and waits after can't miss this record.
    auto it = collectors_.find(key);
    if (it != collectors_.end()) platform::WakeThread(it->second);
}

void ThreadHashMon::SetCollector(const char* mac, uint32_t threadId) {
    std::lock_guard<std::mutex> g(lock_);
    collectors_[MessageUtil::MacHash(mac)] = threadId;
}

void ThreadHashMon::ClearCollector(const char* mac, uint32_t threadId) {
    std::lock_guard<std::mutex> g(lock_);
    auto it = collectors_.find(MessageUtil::MacHash(mac));
    if (it != collectors_.end() && it->second == threadId) collectors_.erase(it);
}

void ThreadHashMon::Get(CommandRecord* dest, const char* mac, int32_t* error) {
    std::unique_ptr<CommandRecord> record;
    {
        std::lock_guard<std::mutex> g(lock_);
        if (!Remove(MessageUtil::MacHash(mac), &record)) {
            *error = kNoEntry;
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

int32_t ThreadHashMon::Queue(CommandRecord& record, const char* mac, int32_t rspfunc, int32_t rspid,
                             const char* message, const char* gatewayPathFile,
                             const char* pcPathFile) {
    record.rspfunc = rspfunc;
    record.rspid = rspid;
    // A chunk of a file is binary: the frame's own length, not its first NUL, says what it holds.
    const size_t length = MessageUtil::FrameLength(message, kMessageBufferSize);
    std::memset(record.message, 0, sizeof record.message);
    std::memcpy(record.message, message, length);
    CopyBounded(record.gatewayPathFile, gatewayPathFile, sizeof record.gatewayPathFile);
    CopyBounded(record.pcPathFile, pcPathFile, sizeof record.pcPathFile);
    Put(record, mac);
    return 0;
}

}  // namespace zanth
