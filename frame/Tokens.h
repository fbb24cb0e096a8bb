#pragma once
// Master's splitter of reply payloads: at most 150 fields, each cut at its first '#'.

#include <cstdint>

namespace zanth {

class Tokens {
  public:
    static constexpr int32_t kMaxFields = 150;

    // Cuts `text` in place with the runtime's tokeniser. An empty field (one that began with
    // '#') ends the split; fields beyond the 150th are ignored.
    void Split(char* text, const char* delimiters);
    int32_t Count() const { return count_; }
    // The field under the cursor, moving on; null after the last.
    const char* Next();
    // Decimal value of Next, 0 when there is none.
    int32_t NextInt();

  private:
    const char* fields_[kMaxFields] = {};
    int32_t count_ = 0;
    int32_t cursor_ = 0;
};

}  // namespace zanth
