#include "protocol/Payload.h"

#include <charconv>
#include <cstring>

namespace zanth {

Payload& Payload::Append(const char* text, size_t length) {
    fieldEnded_ = false;
    size_t room = kCapacity + 1 - length_;
    size_t n = length < room ? length : room;
    if (n < length) cut_ = true;
    std::memcpy(buffer_ + length_, text, n);
    length_ += n;
    buffer_[length_] = '\0';
    return *this;
}

Payload& Payload::Int(int32_t value) {
    char digits[16];
    auto end = std::to_chars(digits, digits + sizeof digits - 1, value).ptr;
    *end++ = ';';
    Append(digits, static_cast<size_t>(end - digits));
    fieldEnded_ = true;
    return *this;
}

Payload& Payload::Uint(uint32_t value) {
    char digits[16];
    auto end = std::to_chars(digits, digits + sizeof digits - 1, value).ptr;
    *end++ = ';';
    Append(digits, static_cast<size_t>(end - digits));
    fieldEnded_ = true;
    return *this;
}

Payload& Payload::Text(const char* text) {
    Raw(text);
    Append(";", 1);
    fieldEnded_ = true;
    return *this;
}

Payload& Payload::Raw(const char* text) {
    if (text == nullptr) return Append("", 0);
    // Measured only as far as it can still matter, so that a huge text costs no more than that.
    return Append(text, ::strnlen(text, kCapacity + 1));
}

Payload& Payload::Bytes(const void* data, size_t length) {
    if (data == nullptr) return Append("", 0);
    return Append(static_cast<const char*>(data), length);
}

Payload& Payload::EndWithoutSeparator() {
    if (fieldEnded_ && !cut_) buffer_[--length_] = '\0';
    fieldEnded_ = false;
    return *this;
}

Payload& Payload::EnsureSeparator() {
    if (length_ == 0 || buffer_[length_ - 1] != ';') Append(";", 1);
    return *this;
}

}  // namespace zanth
