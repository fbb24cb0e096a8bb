#pragma once
// The controller's side of the framing: clear frames "%04d;%04d;payload" and, on an encrypted
// link, "%04d;cipher" whose plain text is one whole clear frame. The cipher calls go through the
// library's own MessageUtil, so both ends share one implementation of the encrypted frame and of
// the key derivation. One codec serves every controller of a simulator, from its loop thread.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "protocol/MessageUtil.h"
#include "security/Crypto.h"

namespace zanth::sim {

inline constexpr size_t kKeySize = 32;

// A whole clear frame for `code` and `payload`.
std::string ClearFrame(int code, std::string_view payload);

struct FrameView {
    int code = 0;
    std::string_view payload;
};
// Splits a whole clear frame; nothing unless both header fields are four digits and the length
// field equals the frame's size.
std::optional<FrameView> ParseClearFrame(std::string_view frame);

class WireCodec {
  public:
    enum class Status { NeedMore, Frame, Bad };

    WireCodec() = default;
    WireCodec(const WireCodec&) = delete;
    WireCodec& operator=(const WireCodec&) = delete;

    // Appends the frame, encrypted when `key` is given, to `out`. False when the payload is too
    // long for a frame or the cipher fails.
    bool Encode(int code, std::string_view payload, const unsigned char* key, std::string& out);
    // Takes the first whole frame off the front of `in` into `plain` (a clear frame). NeedMore
    // leaves `in` as it is; Bad means the stream can't be read any further.
    Status Decode(std::string& in, const unsigned char* key, std::string& plain);
    // The link key from the identification frame as sent (its first 200 bytes) and the seed.
    bool DeriveKey(std::string_view identifyFrame, std::string_view seed, unsigned char* key);

  private:
    Status DecodeClear(std::string& in, std::string& plain);
    Status DecodeEncrypted(std::string& in, const unsigned char* key, std::string& plain);
    // The size of the buffers the cipher may need; asked of the plugin once.
    int32_t CipherBufferSize();

    Crypto crypto_;
    MessageUtil util_{&crypto_};
    int32_t cipherBufferSize_ = 0;
    std::string scratch_;
};

}  // namespace zanth::sim
