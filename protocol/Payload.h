#pragma once
// The payload of one outgoing message, built field by field in its own buffer:
//
//     Payload p;
//     p.Int(cardSetId).Uint(uniqueId).Text(pin);          // "5;4294967295;1234;"
//
// Each field is followed by ';'. A payload longer than a frame can carry is kept whole up to
// one byte past that limit, so that framing it gives -10006 rather than a message cut short.

#include <cstddef>
#include <cstdint>

#include "protocol/CommandRecord.h"

namespace zanth {

class Payload {
  public:
    // The largest payload of a frame: a message buffer less its header.
    static constexpr size_t kCapacity = kMessageBufferSize - kClearHeaderSize;

    Payload() { buffer_[0] = '\0'; }

    // A signed decimal field, "%d;".
    Payload& Int(int32_t value);
    // An unsigned decimal field, "%u;".
    Payload& Uint(uint32_t value);
    // A text field, "%s;"; null counts as empty. The text must hold no ';' of its own, and an
    // empty one shifts the fields after it for the reader (use TrimOrZero where that matters).
    Payload& Text(const char* text);
    // Text as it stands, with nothing added: a payload that the host formed itself.
    Payload& Raw(const char* text);
    // `length` bytes as they stand, NULs included: a chunk of a file.
    Payload& Bytes(const void* data, size_t length);
    // Removes the ';' after the last field, for the commands whose payload ends without one.
    Payload& EndWithoutSeparator();
    // Adds a ';' unless the payload already ends in one.
    Payload& EnsureSeparator();

    const char* Data() const { return buffer_; }
    // At most kCapacity + 1: anything above kCapacity means the payload doesn't fit a frame.
    size_t Length() const { return length_; }
    bool Fits() const { return !cut_ && length_ <= kCapacity; }

  private:
    Payload& Append(const char* text, size_t length);

    // One byte beyond the capacity marks an overflow; one more holds the terminator.
    char buffer_[kCapacity + 2];
    size_t length_ = 0;
    // Set by a field, so that EndWithoutSeparator takes only a ';' that a field added.
    bool fieldEnded_ = false;
    // Something didn't fit in the buffer: the payload is too long whatever follows.
    bool cut_ = false;
};

}  // namespace zanth
