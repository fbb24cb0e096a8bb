// Schedules: written, read and deleted on the common parameter exchange.

#include "frame/ParameterList.h"
#include "frame/exports/Boundary.h"
#include "zanth.h"

using namespace zanth;

extern "C" {

ZANTH_API int32_t UpdateSchedule(const char* mac, const char* scheduleText1,
                                 const char* scheduleText2, const char* scheduleText3,
                                 const char* scheduleText4, const char* scheduleText5,
                                 int32_t scheduleValue1, int32_t scheduleValue2,
                                 int32_t scheduleValue3, int32_t scheduleValue4,
                                 int32_t scheduleValue5, int32_t scheduleValue6) {
    return Blocking<&Master::UpdateSchedule>(mac, scheduleText1, scheduleText2, scheduleText3,
                                             scheduleText4, scheduleText5, scheduleValue1,
                                             scheduleValue2, scheduleValue3, scheduleValue4,
                                             scheduleValue5, scheduleValue6);
}
ZANTH_API int32_t RspUpdateSchedule(uint32_t rspid, const char* mac, const char* scheduleText1,
                                    const char* scheduleText2, const char* scheduleText3,
                                    const char* scheduleText4, const char* scheduleText5,
                                    int32_t scheduleValue1, int32_t scheduleValue2,
                                    int32_t scheduleValue3, int32_t scheduleValue4,
                                    int32_t scheduleValue5, int32_t scheduleValue6) {
    return Deferred<&Master::UpdateSchedule>(rspid, mac, scheduleText1, scheduleText2,
                                             scheduleText3, scheduleText4, scheduleText5,
                                             scheduleValue1, scheduleValue2, scheduleValue3,
                                             scheduleValue4, scheduleValue5, scheduleValue6);
}
ZANTH_API int32_t GetSchedule(const char* mac, int32_t scheduleId, char* scheduleText1,
                              char* scheduleText2, char* scheduleText3, char* scheduleText4,
                              char* scheduleText5, int32_t* scheduleValue1, int32_t* scheduleValue2,
                              int32_t* scheduleValue3, int32_t* scheduleValue4,
                              int32_t* scheduleValue5) {
    return Blocking<&Master::GetSchedule>(
        mac, scheduleId, scheduleText1, scheduleText2, scheduleText3, scheduleText4, scheduleText5,
        scheduleValue1, scheduleValue2, scheduleValue3, scheduleValue4, scheduleValue5);
}
ZANTH_API int32_t RspGetSchedule(uint32_t rspid, const char* mac, int32_t scheduleId) {
    UnreadOutputs<5, 5> d;
    return Deferred<&Master::GetSchedule>(rspid, mac, scheduleId, d.text[0], d.text[1], d.text[2],
                                          d.text[3], d.text[4], &d.value[0], &d.value[1],
                                          &d.value[2], &d.value[3], &d.value[4]);
}
ZANTH_API int32_t DeleteSchedule(const char* mac, int32_t scheduleId) {
    return Blocking<&Master::DeleteSchedule>(mac, scheduleId);
}
ZANTH_API int32_t RspDeleteSchedule(uint32_t rspid, const char* mac, int32_t scheduleId) {
    return Deferred<&Master::DeleteSchedule>(rspid, mac, scheduleId);
}

}  // extern "C"
