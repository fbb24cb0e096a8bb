// Message files: the stored events and alarms as the host reads them.

#include "frame/exports/Boundary.h"
#include "zanth.h"

using namespace zanth;

extern "C" {

ZANTH_API int32_t GetNextEvent(char* buffer, int32_t size) {
    return Call<&Master::GetNextEvent>(buffer, size);
}
ZANTH_API int32_t GetNextAlarm(char* buffer, int32_t size) {
    return Call<&Master::GetNextAlarm>(buffer, size);
}
ZANTH_API int32_t NumberUnreadEvents(uint64_t* count) {
    return Call<&Master::NumberUnreadEvents>(count);
}
ZANTH_API int32_t NumberUnreadAlarms(uint64_t* count) {
    return Call<&Master::NumberUnreadAlarms>(count);
}
ZANTH_API int32_t EventLogSize(int32_t mode, uint64_t* value) {
    return Call<&Master::EventLogSize>(mode, value);
}
ZANTH_API int32_t AlarmLogSize(int32_t mode, uint64_t* value) {
    return Call<&Master::AlarmLogSize>(mode, value);
}

}  // extern "C"
