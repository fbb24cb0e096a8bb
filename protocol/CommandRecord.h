#pragma once
// What a Master method hands to a controller's Worker, copied by value at every hand-over.

#include <cstdint>

namespace zanth {

constexpr int kMessageBufferSize = 4097;  // one formatted message: header plus 4087 bytes
constexpr int kWorkingBufferSize = 4117;  // a Worker's receive and send working size
constexpr int kRecordMessageSize = 4118;  // 4117 and a terminator
constexpr int kPathSize = 256;
constexpr int kClearHeaderSize = 10;
constexpr int kEncryptedHeaderSize = 5;
constexpr int kLogTextSize = 201;
constexpr int kLogPayloadLimit = 200;  // at or above this length a text stays out of the log
constexpr int kMacSize = 21;           // a MAC of at most 20 characters
// The most file bytes one chunk of a transfer carries: a message less its header and one byte.
constexpr int kFileChunkSize = kMessageBufferSize - kClearHeaderSize - 1;
static_assert(kFileChunkSize == 4086, "a chunk carries 4086 bytes");

struct CommandRecord {
    int32_t rspfunc;
    int32_t rspid;
    char message[kRecordMessageSize];
    char gatewayPathFile[kPathSize];
    char pcPathFile[kPathSize];
};

static_assert(sizeof(CommandRecord) == 4640, "a command record is 4640 bytes");

}  // namespace zanth
