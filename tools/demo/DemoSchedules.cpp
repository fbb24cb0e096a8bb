// The demo's schedules and Contact ID records: one of each written to a controller and read
// back, on the blocking forms.

#include <cstdio>
#include <cstring>
#include <vector>

#include "zanth.h"

namespace {

// Output texts of these commands come without a size: each buffer holds the longest field.
struct Text {
    std::vector<char> bytes = std::vector<char>(ZANTH_PARAMETER_TEXT_SIZE, '\0');
    char* get() { return bytes.data(); }
};

}  // namespace

// True when both round trips gave back what was written.
bool DemoSchedules(const char* mac) {
    std::printf("\nschedules and Contact ID records on %s\n", mac);
    int32_t rc =
        UpdateSchedule(mac, "weekdays", "07:00", "18:30", "front door", "", 12, 1, 2, 3, 4, 5);
    std::printf("  UpdateSchedule(12, \"weekdays\" 07:00-18:30) = %d\n", rc);
    bool ok = rc == 0;

    Text t[5];
    int32_t v[5] = {};
    rc = GetSchedule(mac, 12, t[0].get(), t[1].get(), t[2].get(), t[3].get(), t[4].get(), &v[0],
                     &v[1], &v[2], &v[3], &v[4]);
    std::printf("  GetSchedule(12) = %d  \"%s\" %s-%s \"%s\" values %d %d %d %d %d\n", rc,
                t[0].get(), t[1].get(), t[2].get(), t[3].get(), v[0], v[1], v[2], v[3], v[4]);
    ok = ok && rc == 0 && std::strcmp(t[0].get(), "weekdays") == 0 &&
         std::strcmp(t[2].get(), "18:30") == 0 && v[0] == 12 && v[4] == 4;

    rc = UpdateContactIDRecord(mac, "burglary", 1, 130, 501, 3, 0, 7, 9, "zone 3", "rear hall");
    std::printf("  UpdateContactIDRecord(501, \"burglary\" event 130) = %d\n", rc);
    ok = ok && rc == 0;

    Text c[3];
    int32_t cv[7] = {0, 0, 501, 0, 0, 0, 0};  // the key goes in the third value
    rc = GetContactIDRecord(mac, c[0].get(), &cv[0], &cv[1], &cv[2], &cv[3], &cv[4], &cv[5], &cv[6],
                            c[1].get(), c[2].get());
    std::printf("  GetContactIDRecord(501) = %d  \"%s\" event %d, \"%s\", \"%s\"\n", rc, c[0].get(),
                cv[1], c[1].get(), c[2].get());
    ok = ok && rc == 0 && std::strcmp(c[0].get(), "burglary") == 0 && cv[1] == 130 &&
         std::strcmp(c[2].get(), "rear hall") == 0;

    // A delete of the status kind gives the controller's own answer, a read after it fails by
    // the count of its fields.
    rc = DeleteSchedule(mac, 12);
    int32_t again = GetSchedule(mac, 12, t[0].get(), t[1].get(), t[2].get(), t[3].get(), t[4].get(),
                                &v[0], &v[1], &v[2], &v[3], &v[4]);
    std::printf("  DeleteSchedule(12) = %d, GetSchedule(12) afterwards = %d\n", rc, again);
    ok = ok && rc == 0 && again == -1;
    std::printf("  schedule and Contact ID round trips: %s\n\n", ok ? "OK" : "FAILED");
    std::fflush(stdout);
    return ok;
}
