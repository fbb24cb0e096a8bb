#pragma once
// Reads whole frames from a Worker's non-blocking socket, clear or encrypted, in two phases
// (header, then exactly the body the header announces) across as many turns as it takes.
// Every recv length and every copy length comes from counts that were checked against the
// buffers first: a header that isn't one, or that announces more than the buffers hold, ends the
// link instead of being trusted.

#include <cstdint>
#include <vector>

#include "platform/Socket.h"
#include "protocol/CommandRecord.h"
#include "protocol/MessageUtil.h"

namespace zanth {

enum class ReadStatus {
    Partial,     // part of a frame is held; read on in this turn
    Frame,       // a whole clear message is in Message()
    WouldBlock,  // nothing more to read now; the rest comes on a later turn
    Closed,      // end of stream where a header was due: the link is over
    Refused,     // not a frame (bad header, too long, empty cipher text): the link is closed
    Error,       // a failed recv, a body cut off by the peer, or a frame that didn't decrypt:
                 // the frame is dropped, the link stays, the turn's reading ends
};

class FrameReader {
  public:
    // `logSource` is the owner's MAC text (read at each log record, so it follows the
    // identification); `current` is the owner's command in service, named in some traces.
    FrameReader(const char* logSource, MessageUtil& util, const CommandRecord& current);
    FrameReader(const FrameReader&) = delete;
    FrameReader& operator=(const FrameReader&) = delete;

    void Attach(platform::SocketHandle socket) { socket_ = socket; }
    // From the next frame on, frames are encrypted with `key`, within `bufferSize` bytes.
    void UseEncryption(int32_t bufferSize, const unsigned char* key);

    // Looks, without taking, at what the next header read would get. True for data and for end
    // of stream; false on an error or when nothing is there, with LastError() set.
    bool Peek();
    // One recv of the current phase.
    ReadStatus Read();

    // The last whole message, terminated; valid after Read() gave Frame, until the next Read().
    // The buffer always holds kRecordMessageSize bytes.
    const char* Message() const { return recvMessage_; }
    int32_t MessageLength() const { return messageLength_; }
    int LastError() const { return lastError_; }
    int32_t HeaderSize() const { return headerSize_; }
    int32_t BufferSize() const { return bufferSize_; }

    // The checked reading of a frame header: four decimal digits and ';' (code and ';' then
    // four digits and ';' on a clear link). Exposed for the fuzzer and the tests.
    static bool ClearHeader(const char* header, int32_t* code, int32_t* total);
    static bool EncryptedHeader(const char* header, int32_t* total);

  private:
    ReadStatus ReadHeader();
    ReadStatus ReadBody();
    ReadStatus Refuse(const char* text);
    // One recv of `want` bytes into the chunk. False when nothing came, with status_ saying
    // whether that was a would-block or an error (logged as `errorText`).
    bool Receive(int32_t want, const char* errorText);
    // Forgets the frame under way; the next read starts at a header.
    void Restart();
    long ReceiveChunk(int32_t want, bool peek);
    char* Assembly() { return encrypted_ ? encryptedIn_.data() : recvMessage_; }

    const char* logSource_;
    MessageUtil& util_;
    const CommandRecord& current_;
    platform::SocketHandle socket_ = platform::kInvalidSocket;
    bool encrypted_ = false;
    const unsigned char* key_ = nullptr;
    int32_t headerSize_ = kClearHeaderSize;
    int32_t bufferSize_ = kWorkingBufferSize;
    // Each recv lands here first.
    std::vector<char> chunk_;
    char recvMessage_[kRecordMessageSize];
    std::vector<char> encryptedIn_;
    int32_t messageLength_ = 0;
    int32_t rcvdBytes_ = 0;
    int32_t totBytes_ = 0;
    long numBytes_ = 0;
    int lastError_ = 0;
    ReadStatus status_ = ReadStatus::Partial;
    char logText_[kLogTextSize];
};

}  // namespace zanth
