#include "frame/Tokens.h"

#include <cstring>

#include "protocol/Text.h"

namespace zanth {

void Tokens::Split(char* text, const char* delimiters) {
    count_ = 0;
    cursor_ = 0;
    char* state = nullptr;
    for (char* field = Tokenize(text, delimiters, &state); field != nullptr;
         field = Tokenize(nullptr, delimiters, &state)) {
        if (char* hash = std::strchr(field, '#')) *hash = '\0';
        if (field[0] == '\0') break;
        if (count_ < kMaxFields) fields_[count_++] = field;
    }
}

const char* Tokens::Next() {
    return cursor_ < count_ ? fields_[cursor_++] : nullptr;
}

int32_t Tokens::NextInt() {
    const char* field = Next();
    return field ? DecimalValue(field) : 0;
}

}  // namespace zanth
