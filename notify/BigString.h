#pragma once
// Delivers long texts (at most 4098 characters) to a host callback, padded with blanks to 4117
// bytes; the host relies on the message's own delimiters.

#include "notify/StringCallbackThread.h"
#include "stores/LogMon.h"

namespace zanth {

class BigString : public StringCallbackThread<4098, 4117, false> {
  public:
    using StringCallbackThread::StringCallbackThread;
    ~BigString() { Leave("[BigString::~BigString] big string thread terminated"); }
};

}  // namespace zanth
