#include "frame/Transaction.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "frame/Context.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {

Transaction::Transaction(Master& master, const char* method, int32_t rspfunc, int32_t rspid,
                         const char* mac)
    : ArgumentCheck(method, master.result_, master.logText_, master.masterName_),
      m_(master),
      lock_(master.transactionLock_),
      method_(method),
      rspfunc_(rspfunc),
      rspid_(rspid) {
    m_.result_ = kOk;
    CopyBounded(m_.mac_, mac ? mac : "", sizeof m_.mac_);
}

bool Transaction::AdmitValid() {
    if (!Ok()) return false;
    m_.flag_ = 0;
    m_.context_->validMon->Contains(m_.mac_, &m_.flag_);
    if (!m_.flag_) m_.result_ = kNotValid;
    return Ok();
}

bool Transaction::Admit() {
    if (!AdmitValid()) return false;
    m_.flag_ = 0;
    m_.context_->workerMon->IsConnected(m_.mac_, &m_.flag_);
    if (!m_.flag_) m_.result_ = kNotConnected;
    return Ok();
}

bool Transaction::Send(int32_t code) {
    return Send(code, zanth::Payload());
}

void Transaction::SendUnawaited(int32_t code, const zanth::Payload& payload) {
    if (m_.util_.BuildMessage(code, payload.Data(), payload.Length(), m_.msgBuffer_,
                              kMessageBufferSize) == 0) {
        m_.context_->sendMon->Queue(m_.record_, m_.mac_, 0, 0, m_.msgBuffer_, "", "");
    }
}

bool Transaction::Send(int32_t code, const zanth::Payload& payload, const char* gatewayPathFile,
                       const char* pcPathFile) {
    if (!Ok()) return false;
    m_.code_ = code;
    // A payload that outgrew its buffer reports one byte more than a frame holds, so the framing
    // refuses it whole.
    m_.result_ = m_.util_.BuildMessage(code, payload.Data(), payload.Length(), m_.msgBuffer_,
                                       kMessageBufferSize);
    if (Ok()) {
        m_.result_ = m_.context_->sendMon->Queue(m_.record_, m_.mac_, rspfunc_, rspid_,
                                                 m_.msgBuffer_, gatewayPathFile, pcPathFile);
    }
    return Ok() && rspfunc_ == 0;
}

Transaction::Reception Transaction::Receive(std::initializer_list<Output> outputs) {
    bool got = m_.context_->recvMon->GetBuffer(m_.recvBuffer_, m_.mac_, *m_.context_->workerMon);
    m_.recvBuffer_[kMessageBufferSize] = '\0';
    for (const Output& o : outputs) {
        if (o.buffer && o.size > 0) std::memset(o.buffer, 0, static_cast<size_t>(o.size));
    }
    if (!got) return Reception::kNothing;
    if (!m_.util_.IsCompleteMessage(m_.recvBuffer_, -1)) return Reception::kIncomplete;
    m_.util_.ParseMessage(m_.recvBuffer_, std::strlen(m_.recvBuffer_), m_.msgBuffer_,
                          kMessageBufferSize, &m_.code_, &m_.dataLen_);
    return Reception::kMessage;
}

bool Transaction::Await(std::initializer_list<Output> outputs) {
    // The slot's own result isn't looked at: a time-out leaves the buffer all zero, and the
    // completeness test catches that.
    if (Receive(outputs) != Reception::kMessage) {
        m_.result_ = kNoReply;
        return false;
    }
    FormatCodeLine();
    zanth::Log(m_.masterName_, kLogTrace, m_.logText_);
    LogPayload();
    return true;
}

void Transaction::LogPayload() {
    if (m_.dataLen_ >= kLogPayloadLimit) return;
    FormatText(m_.logText_, sizeof m_.logText_, "[%s] recv:", method_);
    zanth::Log(m_.masterName_, kLogTrace, m_.logText_, m_.msgBuffer_, true);
}

void Transaction::ReceiveChunk() {
    ReceiveRaw();
    m_.dataLen_ = 0;
    m_.util_.ParseMessage(m_.recvBuffer_,
                          MessageUtil::FrameLength(m_.recvBuffer_, kMessageBufferSize),
                          m_.msgBuffer_, kMessageBufferSize, &m_.code_, &m_.dataLen_);
}

void Transaction::LogReplyAndCount() {
    LogLine(kLogTrace, "[%s] code=%d count=%d", method_, m_.code_, m_.dataLen_);
    LogPayload();
}

bool Transaction::ReceiveRaw() {
    bool got = m_.context_->recvMon->GetBuffer(m_.recvBuffer_, m_.mac_, *m_.context_->workerMon);
    m_.recvBuffer_[kMessageBufferSize] = '\0';
    return got;
}

bool Transaction::Expect(int32_t reply) {
    return ExpectAny({reply});
}

bool Transaction::ExpectAny(std::initializer_list<int32_t> replies) {
    if (!Ok()) return false;
    for (int32_t reply : replies) {
        if (m_.code_ == reply) return true;
    }
    // The first log text still holds "[Master::X] code=%d" for CheckErrorCode to repeat.
    FormatCodeLine();
    m_.result_ = m_.CheckErrorCode(m_.code_, method_);
    return false;
}

ReplyFields Transaction::Fields(FieldWalk walk) {
    return ReplyFields(m_.msgBuffer_, kMessageBufferSize, m_.result_, method_, m_.masterName_,
                       walk);
}

int32_t Transaction::BareResult() {
    if (!Ok()) return Result();
    Fields().ControllerResult(&m_.rslt_);
    return Result();
}

bool Transaction::TakePayload(char* buffer, int32_t size) {
    if (!Ok()) return false;
    if (buffer == nullptr || m_.dataLen_ < 0 || size <= m_.dataLen_) {
        m_.result_ = kTooLarge;
        return false;
    }
    std::memcpy(buffer, m_.msgBuffer_, static_cast<size_t>(m_.dataLen_));
    buffer[m_.dataLen_] = '\0';
    return true;
}

void Transaction::FormatCodeLine() {
    if (codeWords_ != nullptr) {
        FormatText(m_.logText_, sizeof m_.logText_, "[%s] %s code=%d", method_, codeWords_,
                   m_.code_);
    } else {
        FormatText(m_.logText_, sizeof m_.logText_, "[%s] code=%d", method_, m_.code_);
    }
}

void Transaction::LogLine(int32_t level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::vsnprintf(m_.logText_, sizeof m_.logText_, format, args);
    va_end(args);
    zanth::Log(m_.masterName_, level, m_.logText_);
}

}  // namespace zanth
