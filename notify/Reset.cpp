#include "notify/Reset.h"

#include "monitors/Globals.h"
#include "monitors/HandleMon.h"
#include "platform/Thread.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {

Reset::Reset(void* parentWindow, void* instance) : parentWindow_(parentWindow), instance_(instance) {
    CopyBounded(name_, "reset", sizeof name_);
    logText_[0] = '\0';
}

Reset::~Reset() {
    uint8_t terminating = 0;
    handleMon->IsTerminating(&terminating);
    if (!terminating) {
        int32_t index = 0;
        handleMon->Remove("reset", &index);
    }
    Log(name_, kLogTrace, "[Reset::~Reset] reset thread terminated");
    handleMon->SetTerminating(0);
}

void Reset::Run() {
    for (;;) {
        uint32_t message = 0;
        // A failing take is not told from an ordinary quit, and nothing is logged.
        if (platform::GetThreadMessage(&message) <= 0) return;
        if (message == TERM_MSG) {
            Log(name_, kLogTrace, "[Reset::Run] GetMessage = TERM_MSG");
            return;
        }
        uint8_t terminating = 0;
        handleMon->IsTerminating(&terminating);
        if (terminating) return;
    }
}

}  // namespace zanth
