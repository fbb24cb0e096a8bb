#include "DemoCards.h"

#include <cstdio>
#include <cstring>

#include "zanth.h"

namespace {

struct Cardholder {
    char cardNumber[16];
    char pin[16];
    uint32_t uniqueId;
    char startDate[16];
    char endDate[16];
};

}  // namespace

bool DemoCards(const char* mac) {
    std::printf("\ncard database on %s\n", mac);
    // The texts are the host's own buffers: the library trims card numbers and PINs in place.
    Cardholder ada{" 1001 ", "4711", 9001, "2024/01/01", "2030/12/31"};
    Cardholder bo{"2001", "", 9002, "2024/06/01", "0"};
    Cardholder cy{"4242", "0420", 9003, "0", "0"};
    char anyTime[] = "0";
    char opening[] = "07:30:00";
    int32_t rc1 =
        AddModCardRecord(mac, 1, 0, ada.cardNumber, ada.pin, 1, ada.uniqueId, 1, 2, 0, 0, 0, 0, 0,
                         0, 0, 0, 0, ada.startDate, anyTime, ada.endDate, anyTime, 0, 0, 0);
    int32_t rc2 =
        AddModCardRecord2(mac, 1, 0, bo.cardNumber, bo.pin, 2, bo.uniqueId, 3, 0, 0, 0, 0, 0, 0, 0,
                          1, 0, 0, bo.startDate, opening, bo.endDate, anyTime, 9001, 4, 5, 1);
    int32_t rc3 =
        AddModCardRecord3(mac, 1, 0, cy.cardNumber, cy.pin, 3, cy.uniqueId, 7, 0, 0, 0, 0, 0, 0, 0,
                          0, 1, 1, cy.startDate, anyTime, cy.endDate, anyTime, 0, 0, 0, 0, 12);
    std::printf(
        "  AddModCardRecord %d (card \"%s\"), AddModCardRecord2 %d (PIN now \"%s\"), "
        "AddModCardRecord3 %d\n",
        rc1, ada.cardNumber, rc2, bo.pin, rc3);

    // Read Bo's record back by card.
    int32_t cardSetId = 1, noFormat = 0, accessType = 0, groups[8] = {}, extended = 0, passback = 0,
            pinCommands = 0, inGroup = 0, outGroup = 0, field7 = 0, pinExempt = 0;
    uint32_t uniqueId = 0, escortId = 0, role = 0;
    char number[16] = "2001", pin[16] = "", startDate[16], startTime[16], endDate[16], endTime[16];
    auto read = [&] {
        return GetCardRecord4(mac, &cardSetId, &noFormat, number, sizeof number, pin, sizeof pin,
                              &accessType, &uniqueId, &groups[0], &groups[1], &groups[2],
                              &groups[3], &groups[4], &groups[5], &groups[6], &groups[7], &extended,
                              &passback, &pinCommands, startDate, sizeof startDate, startTime,
                              sizeof startTime, endDate, sizeof endDate, endTime, sizeof endTime,
                              &escortId, &inGroup, &outGroup, &field7, &pinExempt, &role);
    };
    int32_t got = read();
    std::printf(
        "  GetCardRecord4 %d: card %s unique ID %u access type %d group 1 %d, valid %s %s "
        "to %s %s, escort %u, PIN exempt %d\n",
        got, number, uniqueId, accessType, groups[0], startDate, startTime, endDate, endTime,
        escortId, pinExempt);

    int32_t deleted = DeleteCardRecord2(mac, bo.uniqueId);
    int32_t whileDeleted = read();
    int32_t deletedCount = -1;
    GetNumberDelRecords(mac, &deletedCount);
    int32_t undeleted = UndeleteCardRecord2(mac, bo.uniqueId);
    int32_t again = read();
    std::printf(
        "  DeleteCardRecord2 %d, then GetCardRecord4 %d with %d deleted record(s); "
        "UndeleteCardRecord2 %d, then GetCardRecord4 %d\n",
        deleted, whileDeleted, deletedCount, undeleted, again);

    char statusDate[16], statusTime[16];
    int32_t v[8] = {};
    int32_t status = GetCardholderStatus3(mac, ada.uniqueId, statusDate, sizeof statusDate,
                                          statusTime, sizeof statusTime, &v[0], &v[1], &v[2], &v[3],
                                          &v[4], &v[5], &v[6], &v[7]);
    std::printf(
        "  GetCardholderStatus3 %d: last use \"%s\" \"%s\", values %d %d %d %d %d %d %d %d\n",
        status, statusDate, statusTime, v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7]);

    int32_t active = -1, capacity = -1;
    int32_t counted = GetNumberOfCards(mac, &active, &capacity);
    std::printf("  GetNumberOfCards %d: %d records of %d\n", counted, active, capacity);

    bool ok = rc1 == 0 && rc2 == 0 && rc3 == 0 && got == 0 && uniqueId == bo.uniqueId &&
              deleted == 0 && whileDeleted < 0 && deletedCount == 1 && undeleted == 0 &&
              again == 0 && status == 0 && counted == 0 && active >= 3;
    std::printf("  card database: %s\n", ok ? "OK" : "FAILED");
    return ok;
}
