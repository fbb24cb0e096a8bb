// Adding or replacing a card record, in its three generations. The generations differ only in
// their code, their name in the log texts and the fields they add at the end: a row of a table
// each, and one body serves them all.

#include <cstring>

#include "frame/Master.h"
#include "frame/Transaction.h"
#include "protocol/Codes.h"
#include "protocol/MessageUtil.h"
#include "protocol/Text.h"

namespace zanth {
namespace {

struct Generation {
    const char* method;
    int32_t code;
    int32_t reply;
    bool pinExempt;
    bool cardRole;
};

// Generations 1, 2 and 3, in order.
constexpr Generation kGenerations[] = {
    {"Master::AddModCardRecord", ZANTH_ADD_MOD_CARD_RECORD, ZANTH_ADD_MOD_CARD_RECORD_RSP, false,
     false},
    {"Master::AddModCardRecord2", ZANTH_ADD_MOD_CARD_RECORD_2, ZANTH_ADD_MOD_CARD_RECORD_2_RSP,
     true, false},
    {"Master::AddModCardRecord3", ZANTH_ADD_MOD_CARD_RECORD_3, ZANTH_ADD_MOD_CARD_RECORD_3_RSP,
     true, true},
};

// One of the four date and time arguments: its three fields, their bounds and their names.
struct TripleRule {
    char delimiter;
    const char* invalid;  // "Invalid %s date, must be ..." with "start" or "end"
    const char* names[3];
    int32_t low[3];
    int32_t high[3];
};

constexpr TripleRule kDate{'/',
                           "[%s] Invalid %s date, must be in yyyy/mm/dd format or 0",
                           {"year", "month", "day"},
                           {1901, 1, 1},
                           {2037, 12, 31}};
constexpr TripleRule kTime{':',
                           "[%s] Invalid %s time, must be in hh:mm:ss format or 0",
                           {"hour", "minute", "second"},
                           {0, 0, 0},
                           {23, 59, 59}};

// Checks a date or time the way the runtime tokeniser walks it: the caller's text is cut in
// place at each field's end, and only a text that passes gets its delimiters back. A failure
// leaves it cut, which a host can see. The value of a field is its atoi; anything after the
// third field isn't looked at.
bool CheckTriple(Transaction& t, char* text, const TripleRule& rule, const char* side) {
    if (!t.Ok()) return false;
    if (std::strcmp(text, "0") == 0) return true;
    const char delimiters[2] = {rule.delimiter, '\0'};
    char* cuts[3];
    int32_t cutCount = 0;
    char* p = text;
    for (int32_t i = 0; i < 3; ++i) {
        p += std::strspn(p, delimiters);
        if (*p == '\0') {
            char line[kLogTextSize];
            FormatText(line, sizeof line, rule.invalid, t.Method(), side);
            return t.Refuse(line);
        }
        char* end = p + std::strcspn(p, delimiters);
        int32_t value = DecimalValue(p, static_cast<size_t>(end - p));
        if (*end != '\0') {
            *end++ = '\0';
            cuts[cutCount++] = end - 1;
        }
        char subject[32];
        FormatText(subject, sizeof subject, "%s %s", side, rule.names[i]);
        if (!t.CheckBetween(subject, value, rule.low[i], rule.high[i])) return false;
        p = end;
    }
    for (int32_t i = 0; i < cutCount; ++i) *cuts[i] = rule.delimiter;
    return true;
}

// A stamp field: "0" without a date, else the date, '-' and the time, where a time of "0"
// stands for the first or last second of the day.
void AddStamp(Payload& p, const char* date, const char* time, const char* wholeDay) {
    if (std::strcmp(date, "0") == 0) {
        p.Text("0");
        return;
    }
    p.Raw(date).Raw("-").Text(std::strcmp(time, "0") == 0 ? wholeDay : time);
}

}  // namespace

int32_t Master::AddModCardRecord(int32_t rspfunc, int32_t rspid, const char* mac,
                                 int32_t generation, const CardRecord& a) {
    const Generation& g = kGenerations[generation - 1];
    Transaction t(*this, g.method, rspfunc, rspid, mac);
    if (!t.Admit()) return t.Result();
    char* cardNumber = a.cardNumber.text;
    char* pin = a.pin.text;
    char* startDate = a.startDate.text;
    char* startTime = a.startTime.text;
    char* endDate = a.endDate.text;
    char* endTime = a.endTime.text;
    // The texts are read and written in place; a missing one is refused before anything else.
    t.Present(cardNumber, pin, startDate, startTime, endDate, endTime);
    if (g.cardRole) t.Check("card role", a.cardRole, 0, 65535);
    t.Check("card set ID", a.cardSetId, 0, 2147483647);
    t.Check("no format", a.noFormat, 0, 1);
    t.Check("access type", a.accessType, 1, 3);
    t.Check("unique ID", a.uniqueId, 1, 4294967295);
    for (int32_t i = 0; i < 8; ++i) {
        char name[24];
        FormatText(name, sizeof name, "access group %d", i + 1);
        t.Check(name, a.accessGroup[i], 0, 65535);
    }
    t.Check("extended access", a.extendedAccess, 0, 1);
    t.Check("passback exempt", a.passbackExempt, 0, 1);
    t.Check("pin commands", a.pinCommands, 0, 1);
    if (g.pinExempt) t.Check("pin exempt", a.pinExempt, 0, 1);
    t.Check("escort ID", a.escortId, 0, 4294967295);
    t.Check("in-schedule elevator group", a.inScheduleElevatorGroup, 0, 255);
    t.Check("out-schedule elevator group", a.outScheduleElevatorGroup, 0, 255);
    CheckTriple(t, startDate, kDate, "start");
    CheckTriple(t, startTime, kTime, "start");
    CheckTriple(t, endDate, kDate, "end");
    CheckTriple(t, endTime, kTime, "end");
    if (!t.Ok()) return t.Result();

    MessageUtil::TrimOrZero(pin);
    MessageUtil::TrimOrZero(cardNumber);
    Payload p;
    p.Int(a.cardSetId).Int(a.noFormat).Text(cardNumber).Text(pin).Int(a.accessType);
    p.Uint(a.uniqueId);
    for (int32_t group : a.accessGroup) p.Int(group);
    // The wire has passback exempt ahead of extended access, the reverse of the arguments.
    p.Int(a.passbackExempt).Int(0).Int(a.extendedAccess).Int(a.pinCommands).Int(0);
    AddStamp(p, startDate, startTime, "00:00:00");
    AddStamp(p, endDate, endTime, "23:59:59");
    p.Uint(a.escortId).Int(a.inScheduleElevatorGroup).Int(a.outScheduleElevatorGroup).Int(0);
    if (g.pinExempt) p.Int(a.pinExempt);
    if (g.cardRole) p.Int(static_cast<int32_t>(a.cardRole));
    if (!t.Send(g.code, p) || !t.Await() || !t.Expect(g.reply)) return t.Result();
    return t.BareResult();
}

}  // namespace zanth
