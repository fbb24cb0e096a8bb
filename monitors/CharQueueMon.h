#pragma once
// A locked queue of texts: unsolicited payloads on their way to the host.

#include <cstdint>
#include <mutex>
#include <string>

#include "monitors/Queue.h"

namespace zanth {

class CharQueueMon {
  public:
    explicit CharQueueMon(const char* name);
    ~CharQueueMon();

    // Copies the text and queues the copy; at capacity the copy is dropped without a word.
    void Add(const char* text);
    void Length(int32_t* result);
    // Takes the oldest text. A text of at most dataSize characters is copied with its
    // terminator, so `dest` must hold dataSize + 1 bytes. A longer one is logged and lost, with
    // `dest` untouched and *error 0. An empty queue gives -10009.
    void Remove(char* dest, int32_t dataSize, int32_t* error);

    const std::string& Name() const { return name_; }

  private:
    std::mutex lock_;
    std::string name_;
    Queue<std::string> queue_;
};

}  // namespace zanth
