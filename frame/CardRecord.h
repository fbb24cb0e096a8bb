#pragma once
// A card record: one card of a cardholder, as a controller's database keeps it and the card
// commands move it. An add sends one filled from its export's arguments; a get reads one from the
// controller's reply into the places its caller gave. The fields are listed once, in two shapes:
// CardRecord holds the values, CardRecordOutputs the caller's outputs. The texts are the caller's
// own writable buffers in both (the commands trim them in place), each with the size its export
// declares, or 0 where it declares none.

#include <cstdint>

namespace zanth {

struct CardText {
    char* text = nullptr;
    int32_t size = 0;
};

template <class Int, class Uint>
struct CardRecordOf {
    Int cardSetId{};
    Int noFormat{};
    CardText cardNumber;
    CardText pin;
    Int accessType{};
    Uint uniqueId{};
    Int accessGroup[8]{};
    Int extendedAccess{};
    Int passbackExempt{};
    Int pinCommands{};
    CardText startDate;
    CardText startTime;
    CardText endDate;
    CardText endTime;
    Uint escortId{};
    Int inScheduleElevatorGroup{};
    Int outScheduleElevatorGroup{};
    // The later generations' own fields: the PIN exemption (2 and up), and the card's role (an
    // add of the third, the get of the fourth, whose role output selects it).
    Int pinExempt{};
    Uint cardRole{};
    // A get reads back one more field, which an add never sends.
    Int field7Value{};
};

using CardRecord = CardRecordOf<int32_t, uint32_t>;
using CardRecordOutputs = CardRecordOf<int32_t*, uint32_t*>;

}  // namespace zanth
