#pragma once
// Knows every Worker: by MAC once its controller has identified itself, by thread id in a plain
// array before that. Commands can reach a controller only once its MAC is here.

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "monitors/HandleEntry.h"
#include "monitors/HashTable.h"
#include "protocol/CommandRecord.h"
#include "protocol/MessageUtil.h"

namespace zanth {

class ThreadHashMon;
class ValidMon;

class HandleHashMon : private HashTable<HandleEntry> {
  public:
    static constexpr int32_t kBuckets = 19;

    // The terminate commands it queues go into `sendMon`.
    HandleHashMon(const char* name, ThreadHashMon& sendMon);
    ~HandleHashMon();

    void AddUnidentified(uint32_t threadId);
    // Moves a thread from the anonymous array into the table under its MAC.
    void AddWorker(const char* mac, uint32_t threadId);
    // Inserts under a MAC without touching the anonymous array (the "0001" of an outbound
    // contact whose result isn't known yet).
    void AddPlaceholder(const char* mac, uint32_t threadId);
    void IsConnected(const char* mac, uint8_t* flag);
    // -10021 when the MAC is absent; else 0, and -10018 when the post fails.
    void PostWorkerMsg(const char* mac, uint32_t message, int32_t* result);
    // The connected MACs, comma-separated, in table order, without "0001". -10006 when the buffer
    // can't hold the next entry; the text then ends after the last whole one.
    void GetConnected(char* buffer, int32_t size, int32_t* error);
    // Removes the first entry of the MAC; -10009 when absent.
    void RemoveWorker(const char* mac, int32_t* error);
    // Removes the MAC's entry only if it belongs to `threadId`, so that a Worker that has been
    // replaced, or a caller that gave one up, never removes a newer Worker's entry.
    void RemoveWorkerOf(const char* mac, uint32_t threadId, int32_t* error);
    // The thread id registered under a MAC, or 0.
    uint32_t WorkerThreadOf(const char* mac);
    // The anonymous entry's index, or -10021.
    void RemoveUnidentified(uint32_t threadId, const void* unused, int32_t* result);
    // Queues the terminate command for every registered MAC.
    void SendTerminateAll();
    // Queues the terminate command for every registered MAC that is no longer valid in
    // `validMon`, which is asked with this monitor's lock held (workerMon before validMon).
    void SendTerminateInvalid(ValidMon& validMon);
    // Forced end of every registered Worker; anonymous entries are only cleared.
    void TerminateAll();
    // Forced end of one Worker; an absent MAC does nothing.
    void TerminateByName(const char* mac);
    // What a caller whose wait for a reply ran out does to the MAC's Worker, if it has one: the
    // Worker is told to go, and after 5 seconds its entry is removed (unless a newer Worker has
    // taken the MAC meanwhile) and it is woken, so that it ends its link at its next turn and the
    // controller calls again.
    void DropSilentWorker(const char* mac);

    int32_t UnidentifiedCount();
    // What a library reset does to the monitor: it ends as its destructor ends it and starts
    // again empty under its name. Done in place, so that no thread ever meets a missing monitor.
    void Rebuild();

  private:
    void Increase();
    void QueueTerminateFor(const char* mac);

    std::mutex lock_;
    std::string name_;
    ThreadHashMon& sendMon_;
    std::vector<HandleEntry> workers_;
    int32_t size_ = 10;
    int32_t num_ = 0;
    char msgBuffer_[kMessageBufferSize + 1];
    MessageUtil util_;
    // The terminate command as it goes into sendMon.
    CommandRecord record_{};
};

}  // namespace zanth
