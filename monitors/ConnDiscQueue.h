#pragma once
// A locked queue of connect and disconnect notices: MAC, connected byte, time of insertion.

#include <cstdint>
#include <mutex>
#include <string>

#include "monitors/Queue.h"

namespace zanth {

class ConnDiscQueue {
  public:
    explicit ConnDiscQueue(const char* name);
    ~ConnDiscQueue();

    // Copies the MAC and stamps the present time; *error is 0 in every case.
    void Add(const char* mac, uint8_t connected, int32_t* error);
    void Length(int32_t* result);
    // As CharQueueMon::Remove (dest holds dataSize + 1 bytes), and on success also the
    // connected byte and the time.
    void Remove(char* dest, int32_t dataSize, uint8_t* connected, int64_t* time, int32_t* error);

  private:
    struct Item {
        std::string mac;
        uint8_t connected = 0;
        int64_t time = 0;
    };
    std::mutex lock_;
    std::string name_;
    Queue<Item> queue_;
};

}  // namespace zanth
