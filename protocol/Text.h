#pragma once
// Text helpers shared by every class.

#include <cstddef>
#include <cstdint>

namespace zanth {

// Copies at most `size` bytes of `src` into `dst` and always terminates in the last place, so
// `dst` must hold `size` bytes. Every text field of the library is filled this way.
void CopyBounded(char* dst, const char* src, size_t size);

// The runtime's tokeniser with per-call state: a run of delimiters counts as one and leading
// delimiters are skipped. Pass the text on the first call and null after it.
char* Tokenize(char* text, const char* delimiters, char** state);

// Decimal value of a text as the runtime's atoi reads it (leading blanks, sign, digits; 0 when
// none), without overflow: values beyond 32 bits saturate.
int32_t DecimalValue(const char* text);
// The same, reading no more than `length` bytes of a text that needn't be terminated.
int32_t DecimalValue(const char* text, size_t length);

// True when the whole text is one decimal number (blanks around it and a sign allowed), with its
// value, saturated as DecimalValue's, in *value. "12abc", "#" and "" are no numbers.
bool IsDecimalNumber(const char* text, int32_t* value);

// An unsigned decimal as the runtime's "%u" scan reads it: leading blanks, a sign (a minus
// negates modulo 2^32), digits; a value beyond the runtime's unsigned long gives 4294967295.
// False, with `*value` untouched, when no digit follows. Reads no more than `length` bytes.
bool UnsignedValue(const char* text, size_t length, uint32_t* value);

// Formats into a fixed buffer, always terminated; a text that doesn't fit is cut.
int FormatText(char* out, size_t size, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

}  // namespace zanth
