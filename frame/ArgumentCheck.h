#pragma once
// The argument checks of a method. Each refuses with -10002 and logs its text at the error
// level with the method's prefix, and runs only while the result is still 0, so the first
// failure is the only one logged:
//
//     c.Check("target", target, 0, 32);
//     // "[Master::RebootBoard] target value must be between 0 and 32"

#include <cstdint>

#include "protocol/Result.h"

namespace zanth {

class ArgumentCheck {
  public:
    // `method` is the name in the texts, "Master::X"; `logText` (201 bytes) is where a text is
    // formed, and `logSource` the log's source column.
    ArgumentCheck(const char* method, int32_t& result, char* logText, const char* logSource)
        : method_(method), result_(result), logText_(logText), logSource_(logSource) {}

    // "[Master::X] <name> value must be between <low> and <high>".
    bool Check(const char* name, int64_t value, int64_t low, int64_t high);
    // "[Master::X] <subject> must be between <low> and <high>", for texts without "value".
    bool CheckBetween(const char* subject, int64_t value, int64_t low, int64_t high);
    // A text of any other form: `format` is the whole text, filled with the two bounds as ints
    // (so "%d and %u" prints 4294967295 as such).
    bool CheckRange(int64_t value, int64_t low, int64_t high, const char* format);
    // A refusal with a whole text of its own.
    bool Refuse(const char* text);
    // "[Master::X] <subject> must be a hexidecimal value" unless `text` holds hexadecimal digits
    // only; an empty text passes, a null one is refused without a log line.
    bool CheckHex(const char* subject, const char* text);
    // Text and output pointers that the method must use: a null one gives -10002, unlogged.
    template <class... Pointers>
    bool Present(const Pointers*... pointers) {
        if (result_ != kOk) return false;
        const bool missing = (!pointers || ...);
        if (missing) result_ = kBadArgument;
        return result_ == kOk;
    }

    // An output buffer with a size: a null one with a non-zero size gives -10002, unlogged.
    // (Null with size 0 is left to the size's own result.)
    bool PresentBuffer(const void* buffer, int32_t size) {
        if (result_ != kOk) return false;
        if (buffer == nullptr && size != 0) result_ = kBadArgument;
        return result_ == kOk;
    }

    const char* Method() const { return method_; }

  private:
    const char* method_;
    int32_t& result_;
    char* logText_;
    const char* logSource_;
};

}  // namespace zanth
