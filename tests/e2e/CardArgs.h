#pragma once
// The arguments of the card record exports as tests hold them: writable texts, every output of
// a get preset so that a test sees which ones were written, and one call per generation.

#include <array>
#include <cstdint>
#include <cstring>

#include "zanth.h"

namespace zanth::test {

inline constexpr const char* kMac = "AA:BB:CC";
inline constexpr int32_t kUntouched = -7777;

// Writable texts for the arguments the library may change.
struct Text {
    explicit Text(const char* s = "") { std::strncpy(b.data(), s, b.size() - 1); }
    char* operator()() { return b.data(); }
    std::array<char, 48> b{};
};

// The arguments of an add, with the fields a test doesn't care about at their low bound.
struct AddArgs {
    int32_t cardSetId = 7;
    int32_t noFormat = 0;
    Text cardNumber{"1001"};
    Text pin{"1234"};
    int32_t accessType = 1;
    uint32_t uniqueId = 42;
    int32_t groups[8] = {1, 2, 0, 0, 0, 0, 0, 8};
    int32_t extendedAccess = 0;
    int32_t passbackExempt = 1;
    int32_t pinCommands = 0;
    Text startDate{"2012/01/02"};
    Text startTime{"0"};
    Text endDate{"2037/12/31"};
    Text endTime{"0"};
    uint32_t escortId = 5;
    int32_t inSchedule = 3;
    int32_t outSchedule = 4;
    int32_t pinExempt = 0;
    uint16_t cardRole = 0;
};

#define CARD_ADD_ARGS(a)                                                                           \
    a.cardSetId, a.noFormat, a.cardNumber(), a.pin(), a.accessType, a.uniqueId, a.groups[0],       \
        a.groups[1], a.groups[2], a.groups[3], a.groups[4], a.groups[5], a.groups[6], a.groups[7], \
        a.extendedAccess, a.passbackExempt, a.pinCommands, a.startDate(), a.startTime(),           \
        a.endDate(), a.endTime(), a.escortId, a.inSchedule, a.outSchedule

inline int32_t Add1(AddArgs& a) {
    return AddModCardRecord(kMac, CARD_ADD_ARGS(a));
}
inline int32_t Add2(AddArgs& a) {
    return AddModCardRecord2(kMac, CARD_ADD_ARGS(a), a.pinExempt);
}
inline int32_t Add3(AddArgs& a) {
    return AddModCardRecord3(kMac, CARD_ADD_ARGS(a), a.pinExempt, a.cardRole);
}

// Every output of a get, preset so that a test sees which ones were written.
struct CardOut {
    CardOut() {
        // The card number and PIN select the record: empty, they go out as "0".
        cardNumber[0] = '\0';
        pin[0] = '\0';
        for (char* t : {startDate, startTime, endDate, endTime}) std::strcpy(t, "untouched");
        for (int32_t& g : groups) g = kUntouched;
    }
    int32_t cardSetId = 7;
    int32_t noFormat = 0;
    char cardNumber[24];
    int32_t cardNumberSize = 24;
    char pin[24];
    int32_t pinSize = 24;
    int32_t accessType = kUntouched;
    uint32_t uniqueId = 1;
    int32_t groups[8];
    int32_t extendedAccess = kUntouched;
    int32_t passbackExempt = kUntouched;
    int32_t pinCommands = kUntouched;
    char startDate[16], startTime[16], endDate[16], endTime[16];
    int32_t stampSize = 16;
    uint32_t escortId = 1;
    int32_t inSchedule = kUntouched;
    int32_t outSchedule = kUntouched;
    int32_t field7 = kUntouched;
    int32_t pinExempt = kUntouched;
    uint32_t role = 1;
};

#define CARD_GET_ARGS(o)                                                                        \
    &o.cardSetId, &o.noFormat, o.cardNumber, o.cardNumberSize, o.pin, o.pinSize, &o.accessType, \
        &o.uniqueId, &o.groups[0], &o.groups[1], &o.groups[2], &o.groups[3], &o.groups[4],      \
        &o.groups[5], &o.groups[6], &o.groups[7], &o.extendedAccess, &o.passbackExempt,         \
        &o.pinCommands, o.startDate, o.stampSize, o.startTime, o.stampSize, o.endDate,          \
        o.stampSize, o.endTime, o.stampSize, &o.escortId, &o.inSchedule, &o.outSchedule, &o.field7

inline int32_t Get1(CardOut& o) {
    return GetCardRecord(kMac, CARD_GET_ARGS(o));
}
inline int32_t Get2(CardOut& o) {
    return GetCardRecord2(kMac, CARD_GET_ARGS(o), &o.pinExempt);
}
inline int32_t Get4(CardOut& o) {
    return GetCardRecord4(kMac, CARD_GET_ARGS(o), &o.pinExempt, &o.role);
}

}  // namespace zanth::test
