#include "tools/sim/WireCodec.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "protocol/CommandRecord.h"
#include "tools/sim/Payloads.h"

namespace zanth::sim {
namespace {

constexpr size_t kClearHeader = 10;
constexpr size_t kEncryptedHeader = 5;
constexpr size_t kLargestFrame = 9999;  // four digits of length

// Four digits at `at`, or -1.
int FourDigits(std::string_view text, size_t at) {
    int value = 0;
    for (size_t i = at; i < at + 4; ++i) {
        char c = text[i];
        if (c < '0' || c > '9') return -1;
        value = value * 10 + (c - '0');
    }
    return value;
}

}  // namespace

std::string ClearFrame(int code, std::string_view payload) {
    char header[32];
    std::snprintf(header, sizeof header, "%04d;%04d;", code,
                  static_cast<int>(payload.size() + kClearHeader));
    return std::string(header) + std::string(payload);
}

std::optional<FrameView> ParseClearFrame(std::string_view frame) {
    if (frame.size() < kClearHeader || frame[4] != ';' || frame[9] != ';') return std::nullopt;
    int code = FourDigits(frame, 0);
    int length = FourDigits(frame, 5);
    if (code < 0 || length < static_cast<int>(kClearHeader) ||
        static_cast<size_t>(length) != frame.size())
        return std::nullopt;
    return FrameView{code, frame.substr(kClearHeader)};
}

bool WireCodec::Encode(int code, std::string_view payload, const unsigned char* key,
                       std::string& out) {
    if (payload.size() > kPayloadLimit) return false;
    std::string frame = ClearFrame(code, payload);
    if (key == nullptr) {
        out += frame;
        return true;
    }
    int32_t size = CipherBufferSize();
    if (size <= 0) return false;
    scratch_.assign(static_cast<size_t>(size) + kEncryptedHeader + 1, '\0');
    int32_t cipherLen = 0;
    if (util_.EncryptMessage(frame.data(), static_cast<int32_t>(frame.size()), scratch_.data(),
                             static_cast<int32_t>(scratch_.size()), &cipherLen, key) != 0)
        return false;
    out.append(scratch_.data(), static_cast<size_t>(cipherLen) + kEncryptedHeader);
    return true;
}

WireCodec::Status WireCodec::Decode(std::string& in, const unsigned char* key, std::string& plain) {
    return key == nullptr ? DecodeClear(in, plain) : DecodeEncrypted(in, key, plain);
}

WireCodec::Status WireCodec::DecodeClear(std::string& in, std::string& plain) {
    if (in.size() < kClearHeader) return Status::NeedMore;
    // The length is trusted only once both header fields are digits.
    if (in[4] != ';' || in[9] != ';') return Status::Bad;
    int code = FourDigits(in, 0);
    int length = FourDigits(in, 5);
    if (code < 0 || length < static_cast<int>(kClearHeader)) return Status::Bad;
    if (in.size() < static_cast<size_t>(length)) return Status::NeedMore;
    plain.assign(in, 0, static_cast<size_t>(length));
    in.erase(0, static_cast<size_t>(length));
    return Status::Frame;
}

WireCodec::Status WireCodec::DecodeEncrypted(std::string& in, const unsigned char* key,
                                             std::string& plain) {
    if (in.size() < kEncryptedHeader) return Status::NeedMore;
    if (in[4] != ';') return Status::Bad;
    int total = FourDigits(in, 0);
    if (total <= static_cast<int>(kEncryptedHeader)) return Status::Bad;
    if (in.size() < static_cast<size_t>(total)) return Status::NeedMore;
    int32_t size = std::max<int32_t>(CipherBufferSize(), kRecordMessageSize);
    scratch_.assign(static_cast<size_t>(size) + 1, '\0');
    int32_t plainLen = 0;
    int32_t rc = util_.DecryptMessage(in.data(), total, scratch_.data(),
                                      static_cast<int32_t>(scratch_.size()), &plainLen, key);
    in.erase(0, static_cast<size_t>(total));
    if (rc != 0 || plainLen < 0) return Status::Bad;
    plain.assign(scratch_.data(), static_cast<size_t>(plainLen));
    // The plain text must itself be one whole clear frame.
    if (!ParseClearFrame(plain)) return Status::Bad;
    return Status::Frame;
}

bool WireCodec::DeriveKey(std::string_view identifyFrame, std::string_view seed,
                          unsigned char* key) {
    // The host keeps the first 200 bytes of the frame as it received it, and at most 200 of
    // the seed; both ends must feed the derivation the same texts.
    std::string text(identifyFrame.substr(0, 200));
    std::string seedText(seed.substr(0, 200));
    return util_.GenerateKey(text.c_str(), seedText.c_str(), key, static_cast<int32_t>(kKeySize)) >=
           0;
}

int32_t WireCodec::CipherBufferSize() {
    if (cipherBufferSize_ > 0) return cipherBufferSize_;
    int32_t size = 0;
    if (util_.GetBufferSize(&size) < 0 || size <= 0) return 0;
    // Never less than a whole clear frame of the largest size needs.
    cipherBufferSize_ = std::max<int32_t>(size, static_cast<int32_t>(kLargestFrame) + 1);
    return cipherBufferSize_;
}

}  // namespace zanth::sim
