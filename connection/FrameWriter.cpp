#include "connection/FrameWriter.h"

#include <algorithm>
#include <cstring>

#include "platform/Thread.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {
namespace {

// How long a send may wait for the peer to take the rest of a frame before the link counts as
// lost.
constexpr int kSendStallMilliseconds = 5000;

}  // namespace

FrameWriter::FrameWriter(const char* logSource, MessageUtil& util, const CommandRecord& current)
    : logSource_(logSource), util_(util), current_(current) {
    std::memset(sendMessage_, 0, sizeof sendMessage_);
    std::memset(payload_, 0, sizeof payload_);
    logText_[0] = '\0';
}

void FrameWriter::UseEncryption(int32_t bufferSize, const unsigned char* key) {
    encrypted_ = true;
    key_ = key;
    bufferSize_ = std::max(bufferSize, kWorkingBufferSize);
    encryptedOut_.assign(static_cast<size_t>(bufferSize_) + 1, '\0');
}

bool FrameWriter::Build(int32_t code, const char* payload, size_t length) {
    if (util_.BuildMessage(code, payload, length, sendMessage_, kMessageBufferSize) != 0) {
        code_ = 0;
        return false;
    }
    return ParseHeld(length + kClearHeaderSize);
}

bool FrameWriter::Take(const char* message) {
    // A record's message is binary past its header (file chunks): its frame length counts.
    const size_t length = MessageUtil::FrameLength(message, sizeof sendMessage_ - 1);
    std::memcpy(sendMessage_, message, length);
    sendMessage_[length] = '\0';
    return ParseHeld(length);
}

bool FrameWriter::ParseHeld(size_t textLen) {
    int32_t dataLen = 0;
    if (util_.ParseMessage(sendMessage_, textLen, payload_, sizeof payload_, &code_, &dataLen) !=
            0 ||
        static_cast<size_t>(dataLen) + kClearHeaderSize != textLen) {
        // Nothing goes out that would send bytes the frame doesn't hold.
        code_ = 0;
        sendDataLen_ = 0;
        return false;
    }
    sendDataLen_ = dataLen;
    return true;
}

bool FrameWriter::Send() {
    const char* from;
    int32_t total;
    if (encrypted_) {
        if (sendLen_ == 0) {
            int32_t result =
                util_.EncryptMessage(sendMessage_, sendDataLen_ + kClearHeaderSize,
                                     encryptedOut_.data(), bufferSize_, &encryptedLen_, key_);
            if (result < 0) {
                FormatText(logText_, sizeof logText_,
                           "[Worker::SendData] Error encrypting data, error code=%d", result);
                Log(logSource_, kLogError, logText_);
                return false;
            }
        }
        from = encryptedOut_.data();
        total = encryptedLen_ + kEncryptedHeaderSize;
    } else {
        from = sendMessage_;
        total = sendDataLen_ + kClearHeaderSize;
    }
    const char* shown = sendDataLen_ + kClearHeaderSize < kLogPayloadLimit ? sendMessage_ : "";
    // A short write is finished here rather than left to shift the next message: the frame goes
    // out whole, or the link counts as lost when the peer takes nothing for a while.
    int stalled = 0;
    for (;;) {
        numBytes_ = platform::Send(socket_, from + sendLen_, static_cast<size_t>(total - sendLen_));
        if (numBytes_ < 0) {
            lastError_ = platform::LastSocketError();
            if (lastError_ == platform::WSAEWOULDBLOCK && stalled < kSendStallMilliseconds &&
                !platform::ThisThreadKilled() && !platform::Unloading()) {
                platform::Sleep(10);
                stalled += 10;
                continue;
            }
            MessageUtil::SocketErrorText(lastError_, logText_, sizeof logText_);
            Log(logSource_, kLogError, "[Worker::SendData] Error on send", logText_);
            sendLen_ = 0;
            return false;
        }
        if (current_.rspfunc == 1) {
            FormatText(logText_, sizeof logText_,
                       "[Worker::SendData] numBytes=%ld rspid=%d sent msg: %s", numBytes_,
                       current_.rspid, shown);
        } else {
            FormatText(logText_, sizeof logText_, "[Worker::SendData] numBytes=%ld sent msg: %s",
                       numBytes_, shown);
        }
        Log(logSource_, kLogTrace, logText_, "", true);
        if (numBytes_ < total - sendLen_) {
            sendLen_ += static_cast<int32_t>(numBytes_);
            FormatText(logText_, sizeof logText_, "[Worker::SendData] sendAddl true. sendLen = %d",
                       sendLen_);
            Log(logSource_, kLogError, logText_);
            stalled = 0;
            continue;
        }
        sendLen_ = 0;
        return true;
    }
}

}  // namespace zanth
