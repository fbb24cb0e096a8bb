#include "connection/FrameReader.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "protocol/Result.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {
namespace {

bool Digits(const char* text, int count) {
    for (int i = 0; i < count; ++i) {
        if (!std::isdigit(static_cast<unsigned char>(text[i]))) return false;
    }
    return true;
}

int32_t FourDigits(const char* text) {
    return (text[0] - '0') * 1000 + (text[1] - '0') * 100 + (text[2] - '0') * 10 + (text[3] - '0');
}

}  // namespace

FrameReader::FrameReader(const char* logSource, MessageUtil& util, const CommandRecord& current)
    : logSource_(logSource), util_(util), current_(current) {
    chunk_.assign(static_cast<size_t>(bufferSize_) + 1, '\0');
    std::memset(recvMessage_, 0, sizeof recvMessage_);
    logText_[0] = '\0';
}

void FrameReader::UseEncryption(int32_t bufferSize, const unsigned char* key) {
    encrypted_ = true;
    key_ = key;
    headerSize_ = kEncryptedHeaderSize;
    bufferSize_ = std::max(bufferSize, kWorkingBufferSize);
    chunk_.assign(static_cast<size_t>(bufferSize_) + 1, '\0');
    encryptedIn_.assign(static_cast<size_t>(bufferSize_) + 1, '\0');
    Restart();
}

bool FrameReader::ClearHeader(const char* header, int32_t* code, int32_t* total) {
    if (!Digits(header, 4) || header[4] != ';' || !Digits(header + 5, 4) || header[9] != ';')
        return false;
    *code = FourDigits(header);
    *total = FourDigits(header + 5);
    return true;
}

bool FrameReader::EncryptedHeader(const char* header, int32_t* total) {
    if (!Digits(header, 4) || header[4] != ';') return false;
    *total = FourDigits(header);
    return true;
}

void FrameReader::Restart() {
    rcvdBytes_ = 0;
    totBytes_ = 0;
}

long FrameReader::ReceiveChunk(int32_t want, bool peek) {
    // `want` never exceeds the chunk: a header's rest or a checked body's rest.
    size_t length = static_cast<size_t>(std::clamp(want, 0, bufferSize_));
    std::fill_n(chunk_.begin(), length + 1, '\0');
    return platform::Recv(socket_, chunk_.data(), length, peek);
}

bool FrameReader::Peek() {
    // While a body is awaited the header's rest is zero bytes: the peek then reports "data".
    numBytes_ = ReceiveChunk(std::max(0, headerSize_ - rcvdBytes_), true);
    if (numBytes_ >= 0) {
        if (numBytes_ > 0) {
            FormatText(logText_, sizeof logText_,
                       "[Worker::PeekAtSocketMessage] Header -- numBytes=%ld recv:%s MSG = %s",
                       numBytes_, chunk_.data(), util_.CodeNameOf(chunk_.data()));
            Log(logSource_, kLogTrace, logText_, "", true);
        }
        return true;
    }
    lastError_ = platform::LastSocketError();
    if (lastError_ != platform::WSAEWOULDBLOCK) {
        MessageUtil::SocketErrorText(lastError_, logText_, sizeof logText_);
        Log(logSource_, kLogError, "[Worker::PeekAtSocketMessage] Header -- Error on recv",
            logText_);
    }
    return false;
}

bool FrameReader::Receive(int32_t want, const char* errorText) {
    // Each recv starts on a clear buffer.
    std::fill(chunk_.begin(), chunk_.end(), '\0');
    numBytes_ = platform::Recv(socket_, chunk_.data(), static_cast<size_t>(want), false);
    if (numBytes_ >= 0) return true;
    lastError_ = platform::LastSocketError();
    if (lastError_ == platform::WSAEWOULDBLOCK) {
        status_ = ReadStatus::WouldBlock;
        return false;
    }
    MessageUtil::SocketErrorText(lastError_, logText_, sizeof logText_);
    Log(logSource_, kLogError, errorText, logText_);
    status_ = ReadStatus::Error;
    return false;
}

ReadStatus FrameReader::Read() {
    return rcvdBytes_ < headerSize_ ? ReadHeader() : ReadBody();
}

ReadStatus FrameReader::Refuse(const char* text) {
    Log(logSource_, kLogError, text);
    Restart();
    return ReadStatus::Refused;
}

ReadStatus FrameReader::ReadHeader() {
    Log(logSource_, kLogTrace, "[Worker::ReadData()] reading initial data");
    const int32_t want = headerSize_ - rcvdBytes_;
    if (!Receive(want, "[Worker::ReadData()] Header -- Error on recv")) return status_;
    FormatText(logText_, sizeof logText_,
               "[Worker::ReadData()] Header -- numBytes=%ld recv:%s MSG = %s", numBytes_,
               chunk_.data(), util_.CodeNameOf(chunk_.data()));
    Log(logSource_, kLogTrace, logText_, "", true);
    if (numBytes_ == 0) {
        Log(logSource_, kLogTrace, "[Worker::ReadData()] Header -- Zero bytes received");
        return ReadStatus::Closed;
    }
    const int32_t got = static_cast<int32_t>(std::min<long>(numBytes_, want));
    char* assembly = Assembly();
    // A new frame starts on a clean buffer, so the former message can't show through.
    if (rcvdBytes_ == 0) {
        std::memset(assembly, 0, encrypted_ ? encryptedIn_.size() : sizeof recvMessage_);
    }
    std::memcpy(assembly + rcvdBytes_, chunk_.data(), static_cast<size_t>(got));
    if (rcvdBytes_ + got < headerSize_) {
        // Not a whole header yet. The count is set, not increased: only a header that comes in
        // one or two pieces survives, and the offset stays inside the header either way.
        rcvdBytes_ = got;
        Log(logSource_, kLogTrace, "[Worker::ReadData()] addlData is true!!");
        return ReadStatus::Partial;
    }

    int32_t code = 0;
    int32_t total = 0;
    const bool header =
        encrypted_ ? EncryptedHeader(assembly, &total) : ClearHeader(assembly, &code, &total);
    if (!header) {
        char shown[16];
        CopyBounded(shown, assembly, static_cast<size_t>(headerSize_) + 1);
        FormatText(logText_, sizeof logText_,
                   "[Worker::ReadData()] header \"%s\" is not a frame header, connection closed",
                   shown);
        return Refuse(logText_);
    }
    if (total < headerSize_) {
        FormatText(logText_, sizeof logText_,
                   "[Worker::ReadData()] frame length %d is shorter than its header, connection "
                   "closed",
                   total);
        return Refuse(logText_);
    }
    // The length field is trusted only as far as the buffers reach.
    if (total > bufferSize_) {
        FormatText(logText_, sizeof logText_,
                   "[Worker::ReadData()] frame length %d exceeds the receive buffer of %d bytes, "
                   "connection closed",
                   total, bufferSize_);
        return Refuse(logText_);
    }
    if (encrypted_ && total == headerSize_) {
        // A cipher text can't be empty.
        return Refuse("[Worker::ReadData()] empty encrypted frame, connection closed");
    }
    rcvdBytes_ = headerSize_;
    totBytes_ = total;
    if (totBytes_ == headerSize_) {
        messageLength_ = totBytes_;
        Restart();
        return ReadStatus::Frame;
    }
    Log(logSource_, kLogTrace, "[Worker::ReadData()] addlData is true!!");
    return ReadStatus::Partial;
}

ReadStatus FrameReader::ReadBody() {
    Log(logSource_, kLogTrace, "[Worker::ReadData()] reading additional data");
    // The header was checked: headerSize <= rcvdBytes < totBytes <= bufferSize.
    const int32_t want = totBytes_ - rcvdBytes_;
    if (!Receive(want, "[Worker::ReadData()] Error on recv")) return status_;
    const int32_t got = static_cast<int32_t>(std::min<long>(numBytes_, want));
    if (!encrypted_) {
        FormatText(logText_, sizeof logText_, "[Worker::ReadData()] numBytes=%d recv:", got);
        Log(logSource_, kLogTrace, logText_, got < kLogPayloadLimit ? chunk_.data() : "", true);
    }
    if (got == 0) {
        // End of stream inside a body doesn't end the link by itself. The partial frame is
        // dropped, so the next turn reads a header, meets the end of stream and ends the link.
        Log(logSource_, kLogTrace, "[Worker::ReadData()] Zero bytes received");
        Restart();
        return ReadStatus::Error;
    }
    if (!encrypted_) {
        FormatText(logText_, sizeof logText_,
                   "[Worker::ReadData()] partial, numBytes=%d recv:", rcvdBytes_ + got);
        Log(logSource_, kLogTrace, logText_);
        std::memcpy(recvMessage_ + rcvdBytes_, chunk_.data(), static_cast<size_t>(got));
        rcvdBytes_ += got;
        if (rcvdBytes_ < totBytes_) return ReadStatus::Partial;
        messageLength_ = totBytes_;
        Restart();
        return ReadStatus::Frame;
    }
    std::memcpy(encryptedIn_.data() + rcvdBytes_, chunk_.data(), static_cast<size_t>(got));
    rcvdBytes_ += got;
    if (rcvdBytes_ < totBytes_) return ReadStatus::Partial;
    int32_t plainLen = 0;
    int32_t result =
        util_.DecryptMessage(encryptedIn_.data(), totBytes_, recvMessage_,
                             static_cast<int32_t>(sizeof recvMessage_), &plainLen, key_);
    if (result < 0) {
        // Only this frame is lost: the next one is read from its own header.
        FormatText(logText_, sizeof logText_,
                   "[Worker::ReadData()] Error decrypting data, error code=%d", result);
        Log(logSource_, kLogError, logText_);
        std::memset(recvMessage_, 0, sizeof recvMessage_);
        Restart();
        return ReadStatus::Error;
    }
    if (current_.rspfunc == 1) {
        FormatText(logText_, sizeof logText_,
                   "[Worker::ReadData()] end totBytes=%d rspid=%d recv:", plainLen, current_.rspid);
    } else {
        FormatText(logText_, sizeof logText_,
                   "[Worker::ReadData()] end totBytes=%d recv:", plainLen);
    }
    Log(logSource_, kLogTrace, logText_, plainLen < kLogPayloadLimit ? recvMessage_ : "", true);
    messageLength_ = plainLen;
    Restart();
    return ReadStatus::Frame;
}

}  // namespace zanth
