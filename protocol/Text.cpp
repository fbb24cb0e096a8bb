#include "protocol/Text.h"

#include <cctype>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace zanth {

void CopyBounded(char* dst, const char* src, size_t size) {
    if (dst == nullptr || size == 0) return;
    if (src == nullptr) src = "";
    size_t n = ::strnlen(src, size);
    // strncpy semantics: the rest of the field is cleared, then the last byte is the terminator.
    std::memcpy(dst, src, n);
    if (n < size) std::memset(dst + n, 0, size - n);
    dst[size - 1] = '\0';
}

char* Tokenize(char* text, const char* delimiters, char** state) {
    return ::strtok_r(text, delimiters, state);
}

namespace {

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

}  // namespace

int32_t DecimalValue(const char* text) {
    if (text == nullptr) return 0;
    return DecimalValue(text, std::strlen(text));
}

int32_t DecimalValue(const char* text, size_t length) {
    if (text == nullptr) return 0;
    const char* end = text + ::strnlen(text, length);
    while (text < end && IsBlank(*text)) ++text;
    bool negative = false;
    if (text < end && (*text == '+' || *text == '-')) negative = (*text++ == '-');
    long long value = 0;
    while (text < end && std::isdigit(static_cast<unsigned char>(*text))) {
        value = value * 10 + (*text++ - '0');
        if (value > static_cast<long long>(INT32_MAX) + 1) break;
    }
    if (negative) value = -value;
    if (value > INT32_MAX) return INT32_MAX;
    if (value < INT32_MIN) return INT32_MIN;
    return static_cast<int32_t>(value);
}

bool IsDecimalNumber(const char* text, int32_t* value) {
    if (text == nullptr) return false;
    const char* p = text;
    while (IsBlank(*p)) ++p;
    if (*p == '+' || *p == '-') ++p;
    if (!std::isdigit(static_cast<unsigned char>(*p))) return false;
    while (std::isdigit(static_cast<unsigned char>(*p))) ++p;
    while (IsBlank(*p)) ++p;
    if (*p != '\0') return false;
    if (value) *value = DecimalValue(text);
    return true;
}

bool UnsignedValue(const char* text, size_t length, uint32_t* value) {
    if (text == nullptr || value == nullptr) return false;
    const char* end = text + ::strnlen(text, length);
    while (text < end && IsBlank(*text)) ++text;
    bool negative = false;
    if (text < end && (*text == '+' || *text == '-')) negative = (*text++ == '-');
    if (text == end || !std::isdigit(static_cast<unsigned char>(*text))) return false;
    unsigned long long n = 0;
    bool overflow = false;
    for (; text < end && std::isdigit(static_cast<unsigned char>(*text)); ++text) {
        unsigned digit = static_cast<unsigned>(*text - '0');
        if (n > (ULLONG_MAX - digit) / 10) overflow = true;
        if (!overflow) n = n * 10 + digit;
    }
    if (overflow) {
        *value = UINT32_MAX;
        return true;
    }
    if (negative) n = 0 - n;
    *value = static_cast<uint32_t>(n);
    return true;
}

int FormatText(char* out, size_t size, const char* format, ...) {
    if (out == nullptr || size == 0) return 0;
    va_list args;
    va_start(args, format);
    int n = std::vsnprintf(out, size, format, args);
    va_end(args);
    return n;
}

}  // namespace zanth
