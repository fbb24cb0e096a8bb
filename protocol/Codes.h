#pragma once
// Wire codes. A request from the host is below 1000 and its reply is the code plus 1000;
// 9910 and up are protocol-level. The constants come from the one list in CodeList.h.

#include <cstdint>

namespace zanth {

#define ZANTH_CODE(number, constant, text) constexpr int32_t constant = number;
#include "protocol/CodeList.h"
#undef ZANTH_CODE

// Codes that have no row in the name table but are sent all the same.
constexpr int32_t ZANTH_UPDATE_SCHEDULE = 125;

struct CodeRow {
    int32_t code;
    const char* name;
};

// The name table; the names are protocol logic too: IsResponseCode looks for "_RSP" in them.
extern const CodeRow kCodeTable[];
extern const int kCodeTableSize;

}  // namespace zanth
