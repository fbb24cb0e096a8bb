#pragma once
// Builds, recognises and takes apart the wire's messages. Each owner (Master, every Worker, the
// Listener, some monitors) holds its own: the object has scratch fields, and on an encrypted
// link its owner's cipher.
//
// Clear frame: "%04d;%04d;" (code, total length including the 10-byte header), then the payload.
// Encrypted frame: "%04d;" (total length including the 5-byte header), then cipher text whose
// plain text is one whole clear frame.

#include <cstddef>
#include <cstdint>

#include "protocol/Cipher.h"
#include "protocol/CommandRecord.h"

namespace zanth {

class MessageUtil {
  public:
    // Without a cipher (an owner that never sees an encrypted link) the encrypted frames and
    // the key are refused with -10022, as when the cipher plugin is missing.
    explicit MessageUtil(Cipher* cipher = nullptr);
    MessageUtil(const MessageUtil&) = delete;
    MessageUtil& operator=(const MessageUtil&) = delete;

    // Clears outSize bytes of out, then writes the header and the payload. -10006 when the
    // payload exceeds outSize minus 10.
    int32_t BuildMessage(int32_t code, const char* payload, size_t payloadLen, char* out,
                         size_t outSize);
    // Splits a clear frame: code, payload length from the header, and the payload into dataOut
    // (cleared first, always terminated, never more than the text holds). 0, -10023 (shorter
    // than a header), -10024 (no fields, or a non-digit in the code), -10026 (length below 10).
    int32_t ParseMessage(const char* text, size_t textLen, char* dataOut, size_t dataSize,
                         int32_t* code, int32_t* dataLen);
    // True only when the header's length field equals textLen (negative: measure the text).
    bool IsCompleteMessage(const char* text, long textLen);
    // The length of a framed message held in `limit` bytes: the header's total when the header
    // is sound and the frame fits, so that a binary payload with NULs keeps its bytes; otherwise
    // the text's length within the limit.
    static size_t FrameLength(const char* text, size_t limit);
    // Decimal value of the first four characters.
    static int32_t CodeOf(const char* text);
    // The code's name, or "TOTALLY UNKNOWN CODE (%d)" in this object's buffer.
    const char* CodeName(int32_t code);
    const char* CodeNameOf(const char* text) { return CodeName(CodeOf(text)); }
    // The name noted by the last ParseMessage, for the log.
    const char* ParsedCodeName() const { return parsedName_; }
    bool IsResponseCode(int32_t code);
    static bool IsPunchThroughCode(int32_t code);
    // The hexadecimal digits of a MAC as one 32-bit number; separators and case don't matter.
    static uint32_t MacHash(const char* mac);
    // "Winsock %d: <text>", bounded by outSize.
    static void SocketErrorText(int error, char* out, size_t outSize);
    static char* TrimSpaces(char* text);
    static char* TrimOrZero(char* text);

    // Encrypted frames.
    static int32_t ParseEncryptedLength(const char* text, long textLen);
    static bool IsCompleteEncrypted(const char* text, long textLen);
    int32_t EncryptMessage(const char* plain, int32_t plainLen, char* out, int32_t outSize,
                           int32_t* outLen, const unsigned char* key);
    int32_t DecryptMessage(const char* frame, int32_t frameLen, char* plainOut, int32_t plainSize,
                           int32_t* plainLen, const unsigned char* key);
    int32_t GenerateKey(const char* identifyMessage, const char* seed, unsigned char* keyOut,
                        int32_t keySize);
    int32_t GetBufferSize(int32_t* size);

  private:
    char unknownName_[48];
    char parsedName_[64];
    Cipher* cipher_;
};

}  // namespace zanth
