// The clock-drift check: a host sets its controllers' clocks from its own now and then, since
// every event they raise is stamped with their clock.

#include "DemoTime.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "zanth.h"

namespace {

// The controller's clock less the host's, in seconds; false when it can't be read.
bool ReadDrift(const std::string& mac, long* drift, std::string* shown) {
    char date[16] = {}, time[16] = {};
    if (GetTimeDate(mac.c_str(), date, sizeof date, time, sizeof time) != 0) return false;
    std::time_t now = std::time(nullptr);
    std::tm t{};
    if (std::sscanf(date, "%d/%d/%d", &t.tm_year, &t.tm_mon, &t.tm_mday) != 3 ||
        std::sscanf(time, "%d:%d:%d", &t.tm_hour, &t.tm_min, &t.tm_sec) != 3) {
        return false;
    }
    t.tm_year -= 1900;
    t.tm_mon -= 1;
    t.tm_isdst = -1;
    *drift = static_cast<long>(std::difftime(std::mktime(&t), now));
    *shown = std::string(date) + " " + time;
    return true;
}

}  // namespace

int DemoClockCheck(const std::vector<std::string>& macs) {
    std::printf("clock check: each controller's time against the host's, set, and read again\n");
    int inStep = 0;
    for (const std::string& mac : macs) {
        long before = 0, after = 0;
        std::string shown, shownAfter;
        if (!ReadDrift(mac, &before, &shown)) {
            std::printf("  %s: clock unreadable\n", mac.c_str());
            continue;
        }
        std::time_t now = std::time(nullptr);
        std::tm local{};
        localtime_r(&now, &local);
        char date[16], time[16];
        std::strftime(date, sizeof date, "%Y/%m/%d", &local);
        std::strftime(time, sizeof time, "%H:%M:%S", &local);
        int32_t rc = SetTimeDate(mac.c_str(), date, time);
        bool read = ReadDrift(mac, &after, &shownAfter);
        std::printf("  %s: read %s (%+ld s), SetTimeDate = %d, now %+ld s\n", mac.c_str(),
                    shown.c_str(), before, rc, read ? after : 0L);
        if (rc == 0 && read && std::labs(after) <= 1) ++inStep;
    }
    std::printf("  %d of %zu clocks within a second of the host's\n\n", inStep, macs.size());
    std::fflush(stdout);
    return inStep;
}
