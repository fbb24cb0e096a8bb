#include "frame/ReplyFields.h"

#include <cstring>

#include "protocol/Result.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {

ReplyFields::ReplyFields(const char* text, size_t length, int32_t& result, const char* method,
                         const char* logSource, FieldWalk walk)
    : text_(text ? text : ""),
      length_(text ? ::strnlen(text, length) : 0),
      result_(result),
      method_(method),
      logSource_(logSource),
      walk_(walk) {}

bool ReplyFields::Next(const char** field, size_t* length) {
    if (!Ok()) return false;
    if (walk_ == FieldWalk::kTokens) {
        while (pos_ < length_ && text_[pos_] == ';') ++pos_;
        size_t start = pos_;
        while (pos_ < length_ && text_[pos_] != ';') ++pos_;
        const char* hash = static_cast<const char*>(std::memchr(text_ + start, '#', pos_ - start));
        size_t n = hash ? static_cast<size_t>(hash - (text_ + start)) : pos_ - start;
        // No field, an empty one (cut at '#' to nothing), or one beyond the 150th.
        if (n == 0 || count_ >= kMaxTokens) {
            ended_ = true;
        } else {
            *field = text_ + start;
            *length = n;
        }
    } else {
        const char* end = static_cast<const char*>(std::memchr(text_ + pos_, ';', length_ - pos_));
        if (end == nullptr) {
            ended_ = true;
        } else {
            *field = text_ + pos_;
            *length = static_cast<size_t>(end - (text_ + pos_));
            pos_ += *length + 1;
        }
    }
    if (ended_) {
        if (!optional_) result_ = kMissingField;
        return false;
    }
    ++count_;
    return true;
}

void ReplyFields::Fail(int32_t result) {
    result_ = result;
    ended_ = true;
}

ReplyFields& ReplyFields::ControllerResult(int32_t* rslt, bool mapLow) {
    const char* field;
    size_t n;
    if (!Next(&field, &n)) return *this;
    int32_t value = DecimalValue(field, n);
    if (rslt) *rslt = value;
    char text[kLogTextSize];
    FormatText(text, sizeof text, "[%s] rslt=%d", method_, value);
    Log(logSource_, kLogTrace, text);
    result_ = mapLow ? MapControllerResult(value) : value;
    return *this;
}

ReplyFields& ReplyFields::Int(int32_t* out) {
    const char* field;
    size_t n;
    if (Next(&field, &n) && out) *out = DecimalValue(field, n);
    return *this;
}

ReplyFields& ReplyFields::Uint(uint32_t* out) {
    const char* field;
    size_t n;
    if (Next(&field, &n) && out) UnsignedValue(field, n, out);
    return *this;
}

namespace {

// Copies n bytes and clears the rest of the buffer, as a bounded copy of the field would.
void Store(char* out, int32_t size, const char* field, size_t n) {
    if (out == nullptr) return;
    std::memcpy(out, field, n);
    std::memset(out + n, 0, static_cast<size_t>(size) - n);
}

bool Holds(int32_t size, size_t n) {
    return size > 0 && static_cast<size_t>(size) > n;
}

}  // namespace

ReplyFields& ReplyFields::Text(char* out, int32_t size) {
    const char* field;
    size_t n;
    if (!Next(&field, &n)) return *this;
    if (!Holds(size, n)) {
        Fail(kTooLarge);
        return *this;
    }
    Store(out, size, field, n);
    return *this;
}

ReplyFields& ReplyFields::Stamp(char* date, int32_t dateSize, char* time, int32_t timeSize) {
    const char* field;
    size_t n;
    if (!Next(&field, &n)) return *this;
    const char* dash = static_cast<const char*>(std::memchr(field, '-', n));
    if (dash == nullptr) {
        if (dateSize < 2 || timeSize < 2) {
            Fail(kTooLarge);
            return *this;
        }
        Store(date, dateSize, "0", 1);
        Store(time, timeSize, "0", 1);
        return *this;
    }
    size_t dateLength = static_cast<size_t>(dash - field);
    if (!Holds(dateSize, dateLength)) {
        Fail(kTooLarge);
        return *this;
    }
    Store(date, dateSize, field, dateLength);
    size_t timeLength = n - dateLength - 1;
    if (!Holds(timeSize, timeLength)) {
        Fail(kTooLarge);
        return *this;
    }
    Store(time, timeSize, dash + 1, timeLength);
    return *this;
}

ReplyFields& ReplyFields::Field(std::string_view* out) {
    const char* field;
    size_t n;
    if (Next(&field, &n) && out) *out = std::string_view(field, n);
    return *this;
}

ReplyFields& ReplyFields::Skip(int32_t count) {
    const char* field;
    size_t n;
    for (int32_t i = 0; i < count && Next(&field, &n); ++i) {
    }
    return *this;
}

ReplyFields& ReplyFields::Optional() {
    optional_ = true;
    return *this;
}

}  // namespace zanth
