#pragma once
// The post box of outbound commands, keyed by MAC: Master methods put, each Worker collects its
// own, oldest first.

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "monitors/HashTable.h"
#include "protocol/CommandRecord.h"

namespace zanth {

class ThreadHashMon : private HashTable<std::unique_ptr<CommandRecord>> {
  public:
    static constexpr int32_t kBuckets = 127;

    explicit ThreadHashMon(const char* name);
    ~ThreadHashMon();

    void Put(const CommandRecord& record, const char* mac);
    // Takes the oldest record of the MAC; -10009 when there is none.
    void Get(CommandRecord* dest, const char* mac, int32_t* error);
    int32_t CountFor(const char* mac);
    // The Worker that collects the MAC's commands and sleeps while it has none: a put wakes it.
    // Clearing names the thread, so that a Worker replaced by a newer link can't clear the
    // newer one's registration.
    void SetCollector(const char* mac, uint32_t threadId);
    void ClearCollector(const char* mac, uint32_t threadId);

    // Queues a command for the MAC's Worker: everything is copied into the caller's `record`,
    // which goes in here. `message` spans a whole message buffer (4097 bytes); a frame is copied
    // by its header's length, so a binary payload arrives whole. Always 0.
    int32_t Queue(CommandRecord& record, const char* mac, int32_t rspfunc, int32_t rspid,
                  const char* message, const char* gatewayPathFile, const char* pcPathFile);

  private:
    std::mutex lock_;
    std::unordered_map<uint32_t, uint32_t> collectors_;
    std::string name_;
};

}  // namespace zanth
