#pragma once
// Delivers short texts (at most 141 characters) to a host callback, NUL-terminated.

#include "notify/StringCallbackThread.h"
#include "stores/LogMon.h"

namespace zanth {

class SmallString : public StringCallbackThread<141, 140, true> {
  public:
    using StringCallbackThread::StringCallbackThread;
    ~SmallString() { Leave("[SmallString::~SmallString] small string thread terminated"); }
};

}  // namespace zanth
