#include "protocol/Codes.h"

namespace zanth {

constexpr CodeRow kCodeTable[] = {
#define ZANTH_CODE(number, constant, text) {number, text},
#include "protocol/CodeList.h"
#undef ZANTH_CODE
};

const int kCodeTableSize = static_cast<int>(sizeof kCodeTable / sizeof kCodeTable[0]);

namespace {

// The look-up is a binary search, so the list must stay in ascending order.
constexpr bool Ascending() {
    for (int i = 1; i < static_cast<int>(sizeof kCodeTable / sizeof kCodeTable[0]); ++i) {
        if (kCodeTable[i - 1].code >= kCodeTable[i].code) return false;
    }
    return true;
}
static_assert(Ascending(), "CodeList.h must list the codes in ascending order");

}  // namespace

}  // namespace zanth
