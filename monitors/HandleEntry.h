#pragma once

#include <cstdint>
#include <string>

namespace zanth {

// A named thread: a thread name or a controller's MAC, its library thread id, and the byte that
// asks this one thread to leave its loop.
struct HandleEntry {
    std::string name;
    uint32_t threadId = 0;
    uint8_t stop = 0;

    void Clear() {
        name.clear();
        threadId = 0;
        stop = 0;
    }
};

}  // namespace zanth
