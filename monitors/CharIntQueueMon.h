#pragma once
// A locked queue of tagged byte blocks: replies to Rsp... calls under their rspid, and the
// reset requests.

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "monitors/Queue.h"

namespace zanth {

class CharIntQueueMon {
  public:
    explicit CharIntQueueMon(const char* name);
    ~CharIntQueueMon();

    // Copies `size` bytes of `data` under `tag`.
    void Add(int32_t tag, const char* data, int32_t size);
    void Length(int32_t* result);
    // Takes the oldest block. When it fits dataSize: tag and size delivered, dataSize bytes of
    // `dest` zeroed, the block copied. Otherwise it is logged and lost, tag, size and `dest`
    // untouched, *error 0. An empty queue gives -10009.
    void Remove(int32_t* tag, char* dest, int32_t dataSize, int32_t* error, int32_t* size);
    void Remove(int32_t* tag, char* dest, int32_t dataSize, int32_t* error);

  private:
    struct Item {
        int32_t tag = 0;
        std::vector<char> block;
    };
    std::mutex lock_;
    std::string name_;
    Queue<Item> queue_;
};

}  // namespace zanth
