#pragma once
// Delivers the replies of Rsp... calls to the host's response callback, every 200 ms.

#include <cstdint>

#include "protocol/CommandRecord.h"
#include "zanth.h"

namespace zanth {

class CharIntQueueMon;
class HandleMon;

class Response {
  public:
    // Drains `responses` into `callback`; registered in `handles` as "response".
    Response(ZanthResponseCallback callback, HandleMon& handles, CharIntQueueMon& responses);
    ~Response();
    void Run();

  private:
    void DrainPass();

    char name_[16];
    ZanthResponseCallback callback_;
    HandleMon& handles_;
    CharIntQueueMon& responses_;
    int32_t rspid_ = 0;
    char raw_[kRecordMessageSize];
    ZanthResponse delivery_;
};

}  // namespace zanth
