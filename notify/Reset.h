#pragma once
// The thread that carries out library and thread resets. It runs a blocking message loop and
// ends on TERM_MSG or the terminate byte; its end clears the terminate byte, which is what
// lets Initialization start the library again after Shutdown.

#include <cstdint>

#include "protocol/CommandRecord.h"

namespace zanth {

class Reset {
public:
    Reset(void* parentWindow, void* instance);
    ~Reset();
    void Run();

private:
    char name_[8];
    void* parentWindow_;
    void* instance_;
    char logText_[kLogTextSize];
};

}  // namespace zanth
