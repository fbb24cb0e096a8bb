#pragma once
// Writes one frame at a time to a Worker's non-blocking socket, clear or encrypted. It holds the
// clear frame to send with its code and payload, parsed from the frame itself, and never touches
// what the reading side holds.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/Socket.h"
#include "protocol/CommandRecord.h"
#include "protocol/MessageUtil.h"

namespace zanth {

class FrameWriter {
  public:
    FrameWriter(const char* logSource, MessageUtil& util, const CommandRecord& current);
    FrameWriter(const FrameWriter&) = delete;
    FrameWriter& operator=(const FrameWriter&) = delete;

    void Attach(platform::SocketHandle socket) { socket_ = socket; }
    void UseEncryption(int32_t bufferSize, const unsigned char* key);

    // Frames `payload` (any bytes, file chunks included) under `code` as the message to send.
    // False when it doesn't fit.
    bool Build(int32_t code, const char* payload, size_t length);
    // Takes a framed message (a command record's) as the message to send. False, with code 0,
    // when it isn't a frame whose length field agrees with its text.
    bool Take(const char* message);
    // Sends the message whole. False when the link is lost, with LastError() set.
    bool Send();

    int32_t Code() const { return code_; }
    const char* Payload() const { return payload_; }
    const char* Message() const { return sendMessage_; }
    int LastError() const { return lastError_; }

  private:
    // Reads code and payload back from the held frame of `textLen` bytes.
    bool ParseHeld(size_t textLen);

    const char* logSource_;
    MessageUtil& util_;
    const CommandRecord& current_;
    platform::SocketHandle socket_ = platform::kInvalidSocket;
    bool encrypted_ = false;
    const unsigned char* key_ = nullptr;
    int32_t bufferSize_ = kWorkingBufferSize;
    char sendMessage_[kRecordMessageSize];
    char payload_[kRecordMessageSize];
    std::vector<char> encryptedOut_;
    int32_t encryptedLen_ = 0;
    int32_t code_ = 0;
    int32_t sendDataLen_ = 0;
    int32_t sendLen_ = 0;
    long numBytes_ = 0;
    int lastError_ = 0;
    char logText_[kLogTextSize];
};

}  // namespace zanth
