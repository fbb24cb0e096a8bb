#include "monitors/ThreadQueue.h"

#include "protocol/Result.h"
#include "stores/LogMon.h"

namespace zanth {

ThreadQueue::ThreadQueue(const char* name) : name_(name ? name : "") {}

ThreadQueue::~ThreadQueue() {
    CommandRecord* record = nullptr;
    while (queue_.Remove(&record)) delete record;
    Log(name_.c_str(), kLogTrace, "[ThreadQueue::~ThreadQueue] ThreadQueue terminated");
}

void ThreadQueue::Add(const CommandRecord& record) {
    CommandRecord* copy = new CommandRecord(record);
    if (!queue_.Insert(copy)) delete copy;
}

int32_t ThreadQueue::Remove(CommandRecord* dest) {
    CommandRecord* record = nullptr;
    if (!queue_.Remove(&record)) return kNoEntry;
    *dest = *record;
    delete record;
    return 0;
}

void ThreadQueue::SetName(const char* name) {
    name_ = name ? name : "";
}

}  // namespace zanth
