#pragma once
// Reads the fields of a reply payload, in order, into typed outputs:
//
//     t.Fields().ControllerResult().Skip().Int(&mode).Uint(&id).Text(name, nameSize);
//
// The payload is only read, never cut, so a second walk may follow the first. A read runs while
// the running result is not negative and the walk hasn't ended; the first failure stands and
// every later read does nothing:
// - a field that isn't there sets -10011 (after Optional(): ends the walk without a failure);
// - a text or stamp too long for the caller's buffer sets -10006.
// A null output pointer takes its field and writes nothing.

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace zanth {

enum class FieldWalk {
    // The runtime's tokeniser on ';', as Tokens splits: runs of ';' count as one, each field is
    // cut at its first '#', an empty field ends the walk, and the walk gives at most 150 fields.
    kTokens,
    // Every ';' ends a field, empty fields included; nothing is cut at '#'; bytes after the last
    // ';' make no field. The card records are read this way.
    kEveryDelimiter,
};

class ReplyFields {
  public:
    static constexpr int32_t kMaxTokens = 150;

    // `text` of `length` bytes (it stops early at a NUL). `method` and `logSource` name the
    // trace of ControllerResult, "[<method>] rslt=%d".
    ReplyFields(const char* text, size_t length, int32_t& result, const char* method,
                const char* logSource, FieldWalk walk = FieldWalk::kTokens);

    // The controller's result field: logged at the trace level, kept in *rslt, and made the
    // running result; -1 to -99 become -10001 unless `mapLow` is false.
    ReplyFields& ControllerResult(int32_t* rslt = nullptr, bool mapLow = true);
    // A signed decimal as atoi reads it: text without digits is 0.
    ReplyFields& Int(int32_t* out);
    // An unsigned decimal as "%u" scans it; a field without digits leaves *out as it was.
    ReplyFields& Uint(uint32_t* out);
    // The field as text. It needs `size` greater than its length, else -10006 and nothing is
    // written; the rest of the buffer is cleared.
    ReplyFields& Text(char* out, int32_t size);
    // A stamp "date-time" split at its first '-'. A field without '-' (the stamp "0") writes "0"
    // to both and needs both sizes at least 2. The date is written before the time is measured,
    // so a time too long leaves the date written.
    ReplyFields& Stamp(char* date, int32_t dateSize, char* time, int32_t timeSize);
    // The field as it stands, for readers that shape it themselves (DateTimeText).
    ReplyFields& Field(std::string_view* out);
    // Passes over fields that aren't read.
    ReplyFields& Skip(int32_t count = 1);
    // From here on a missing field ends the walk quietly: a short reply is a success and the
    // outputs of the fields that didn't come stay as they were.
    ReplyFields& Optional();

    // Ends the walk with `result`, for such readers' own failures.
    void Fail(int32_t result);

    // True while reads run.
    bool Ok() const { return !ended_ && result_ >= 0; }
    // Fields taken so far.
    int32_t Count() const { return count_; }
    int32_t Result() const { return result_; }

  private:
    // The next field as a pointer and a length; false, with the walk ended, when there is none.
    bool Next(const char** field, size_t* length);

    const char* text_;
    size_t length_;
    size_t pos_ = 0;
    int32_t& result_;
    const char* method_;
    const char* logSource_;
    FieldWalk walk_;
    int32_t count_ = 0;
    bool optional_ = false;
    bool ended_ = false;
};

}  // namespace zanth
