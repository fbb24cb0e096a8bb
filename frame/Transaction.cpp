#include "frame/Transaction.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "monitors/Globals.h"
#include "monitors/HandleHashMon.h"
#include "monitors/RecvMon.h"
#include "monitors/ValidMon.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {

Transaction::Transaction(Master& master, const char* method, int32_t rspfunc, int32_t rspid,
                         const char* mac)
    : m_(master), lock_(master.transactionLock_), method_(method), rspfunc_(rspfunc),
      rspid_(rspid) {
    m_.result_ = 0;
    CopyBounded(m_.mac_, mac ? mac : "", sizeof m_.mac_);
}

bool Transaction::AdmitValid() {
    if (!Ok()) return false;
    m_.flag_ = 0;
    validMon->Contains(m_.mac_, &m_.flag_);
    if (!m_.flag_) m_.result_ = -10004;
    return Ok();
}

bool Transaction::Admit() {
    if (!AdmitValid()) return false;
    m_.flag_ = 0;
    workerMon->IsConnected(m_.mac_, &m_.flag_);
    if (!m_.flag_) m_.result_ = -10003;
    return Ok();
}

bool Transaction::CheckRange(int64_t value, int64_t low, int64_t high, const char* text) {
    if (!Ok()) return false;
    if (value < low || value > high) {
        FormatText(m_.logText_, sizeof m_.logText_, text, static_cast<int>(low),
                   static_cast<int>(high));
        Log(m_.masterName_, 50, m_.logText_);
        m_.result_ = -10002;
    }
    return Ok();
}

bool Transaction::Refuse(const char* text) {
    if (!Ok()) return false;
    CopyBounded(m_.logText_, text, sizeof m_.logText_);
    Log(m_.masterName_, 50, m_.logText_);
    m_.result_ = -10002;
    return false;
}

bool Transaction::Send(int32_t code, const char* format, ...) {
    if (!Ok()) return false;
    va_list args;
    va_start(args, format);
    std::vsnprintf(m_.recvBuffer_, kMessageBufferSize, format, args);
    va_end(args);
    return SendPayload(code, m_.recvBuffer_, std::strlen(m_.recvBuffer_));
}

bool Transaction::SendPayload(int32_t code, const char* payload, size_t length,
                              const char* gatewayPathFile, const char* pcPathFile) {
    if (!Ok()) return false;
    m_.code_ = code;
    m_.result_ = m_.util_.BuildMessage(code, payload, length, m_.msgBuffer_, kMessageBufferSize);
    if (Ok()) {
        m_.result_ = m_.util_.QueueCommand(m_.mac_, rspfunc_, rspid_, m_.msgBuffer_,
                                           gatewayPathFile, pcPathFile);
    }
    return Ok() && rspfunc_ == 0;
}

bool Transaction::Await(std::initializer_list<Output> outputs) {
    // The slot's own result isn't looked at: a time-out leaves the buffer all zero, and the
    // completeness test below catches that.
    recvMon->GetBuffer(m_.recvBuffer_, m_.mac_);
    m_.recvBuffer_[kMessageBufferSize] = '\0';
    for (const Output& o : outputs) {
        if (o.buffer && o.size > 0) std::memset(o.buffer, 0, static_cast<size_t>(o.size));
    }
    if (!m_.util_.IsCompleteMessage(m_.recvBuffer_, -1)) {
        m_.result_ = -10005;
        return false;
    }
    m_.util_.ParseMessage(m_.recvBuffer_, std::strlen(m_.recvBuffer_), m_.msgBuffer_,
                          kMessageBufferSize, &m_.code_, &m_.dataLen_);
    FormatText(m_.logText_, sizeof m_.logText_, "[%s] code=%d", method_, m_.code_);
    Log(m_.masterName_, 75, m_.logText_);
    if (m_.dataLen_ < kLogPayloadLimit) {
        FormatText(m_.logText_, sizeof m_.logText_, "[%s] recv:", method_);
        Log(m_.masterName_, 75, m_.logText_, m_.msgBuffer_, true);
    }
    return true;
}

bool Transaction::Expect(int32_t reply) { return ExpectAny({reply}); }

bool Transaction::ExpectAny(std::initializer_list<int32_t> replies) {
    if (!Ok()) return false;
    for (int32_t reply : replies) {
        if (m_.code_ == reply) return true;
    }
    // The first log text still holds "[Master::X] code=%d" for CheckErrorCode to repeat.
    FormatText(m_.logText_, sizeof m_.logText_, "[%s] code=%d", method_, m_.code_);
    m_.result_ = m_.CheckErrorCode(m_.code_, method_);
    return false;
}

int32_t Transaction::BareResult() {
    if (!Ok()) return Result();
    char* state = nullptr;
    char* field = Tokenize(m_.msgBuffer_, ";", &state);
    if (field == nullptr) {
        m_.result_ = -10011;
        return Result();
    }
    m_.rslt_ = DecimalValue(field);
    FormatText(m_.logText_, sizeof m_.logText_, "[%s] rslt=%d", method_, m_.rslt_);
    Log(m_.masterName_, 75, m_.logText_);
    // The controller's -1 to -99 read as the library's -10001; -100 and below pass as they are.
    m_.result_ = (m_.rslt_ >= -99 && m_.rslt_ <= -1) ? -10001 : m_.rslt_;
    return Result();
}

Tokens& Transaction::Fields(const char* delimiters) {
    m_.tokens_.Split(m_.msgBuffer_, delimiters);
    return m_.tokens_;
}

void Transaction::LogTrace(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::vsnprintf(m_.logText_, sizeof m_.logText_, format, args);
    va_end(args);
    Log(m_.masterName_, 75, m_.logText_);
}

}  // namespace zanth
