#pragma once
// A Worker's own queue of commands waiting to be sent; only that Worker touches it.

#include <cstdint>
#include <string>

#include "monitors/Queue.h"
#include "protocol/CommandRecord.h"

namespace zanth {

class ThreadQueue {
  public:
    explicit ThreadQueue(const char* name);
    ~ThreadQueue();

    void Add(const CommandRecord& record);
    int32_t Count() const { return queue_.Length(); }
    // 0 and the oldest record, or -10009 when empty.
    int32_t Remove(CommandRecord* dest);
    void SetName(const char* name);
    const std::string& Name() const { return name_; }

  private:
    std::string name_;
    Queue<CommandRecord*> queue_;
};

}  // namespace zanth
