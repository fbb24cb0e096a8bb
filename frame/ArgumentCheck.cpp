#include "frame/ArgumentCheck.h"

#include <cctype>

#include "protocol/CommandRecord.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {

bool ArgumentCheck::Check(const char* name, int64_t value, int64_t low, int64_t high) {
    if (result_ != kOk || (value >= low && value <= high)) return result_ == kOk;
    FormatText(logText_, kLogTextSize, "[%s] %s value must be between %lld and %lld", method_, name,
               static_cast<long long>(low), static_cast<long long>(high));
    return Refuse(logText_);
}

bool ArgumentCheck::CheckBetween(const char* subject, int64_t value, int64_t low, int64_t high) {
    if (result_ != kOk || (value >= low && value <= high)) return result_ == kOk;
    FormatText(logText_, kLogTextSize, "[%s] %s must be between %lld and %lld", method_, subject,
               static_cast<long long>(low), static_cast<long long>(high));
    return Refuse(logText_);
}

bool ArgumentCheck::CheckRange(int64_t value, int64_t low, int64_t high, const char* format) {
    if (result_ != kOk || (value >= low && value <= high)) return result_ == kOk;
        // The caller's format: not a literal, so the compiler can't check it against the bounds.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    FormatText(logText_, kLogTextSize, format, static_cast<int>(low), static_cast<int>(high));
#pragma GCC diagnostic pop
    return Refuse(logText_);
}

bool ArgumentCheck::CheckHex(const char* subject, const char* text) {
    if (!Present(text)) return false;
    for (const char* p = text; *p != '\0'; ++p) {
        if (std::isxdigit(static_cast<unsigned char>(*p)) == 0) {
            FormatText(logText_, kLogTextSize, "[%s] %s must be a hexidecimal value", method_,
                       subject);
            return Refuse(logText_);
        }
    }
    return true;
}

bool ArgumentCheck::Refuse(const char* text) {
    if (result_ != kOk) return false;
    if (text != logText_) CopyBounded(logText_, text, kLogTextSize);
    Log(logSource_, kLogError, logText_);
    result_ = kBadArgument;
    return false;
}

}  // namespace zanth
