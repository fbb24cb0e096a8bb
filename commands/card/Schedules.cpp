// Schedules: written, read and deleted as typed value lists on the common parameter exchange.
// The library checks none of the texts and values; their meaning lies with the controller.

#include "frame/Master.h"
#include "frame/ParameterList.h"
#include "protocol/Codes.h"

namespace zanth {
namespace {

// The update has no name in the code table: the controllers know it by number alone.
constexpr int32_t kUpdateScheduleCode = 125;

// The request lists hold texts as char*, the type the exchange writes as text; a request text
// is only read.
char* RequestText(const char* text) {
    return const_cast<char*>(text);
}

}  // namespace

int32_t Master::UpdateSchedule(int32_t rspfunc, int32_t rspid, const char* mac,
                               const char* scheduleText1, const char* scheduleText2,
                               const char* scheduleText3, const char* scheduleText4,
                               const char* scheduleText5, int32_t scheduleValue1,
                               int32_t scheduleValue2, int32_t scheduleValue3,
                               int32_t scheduleValue4, int32_t scheduleValue5,
                               int32_t scheduleValue6) {
    ParameterList request{RequestText(scheduleText1),
                          RequestText(scheduleText2),
                          RequestText(scheduleText3),
                          RequestText(scheduleText4),
                          RequestText(scheduleText5),
                          scheduleValue1,
                          scheduleValue2,
                          scheduleValue3,
                          scheduleValue4,
                          scheduleValue5,
                          scheduleValue6};
    return StatusCommand(rspfunc, rspid, mac, kUpdateScheduleCode, request);
}

int32_t Master::GetSchedule(int32_t rspfunc, int32_t rspid, const char* mac, int32_t scheduleId,
                            char* scheduleText1, char* scheduleText2, char* scheduleText3,
                            char* scheduleText4, char* scheduleText5, int32_t* scheduleValue1,
                            int32_t* scheduleValue2, int32_t* scheduleValue3,
                            int32_t* scheduleValue4, int32_t* scheduleValue5) {
    // The controller's result leads the reply and a twelfth field follows the values; both
    // are stored and never read: the call's result is the field count alone.
    int rslt = -1;
    int lastField = 0;
    ParameterList outputs{&rslt,          scheduleText1,  scheduleText2,  scheduleText3,
                          scheduleText4,  scheduleText5,  scheduleValue1, scheduleValue2,
                          scheduleValue3, scheduleValue4, scheduleValue5, &lastField};
    return ResultCommand(rspfunc, rspid, mac, ZANTH_GET_SCHEDULE, {scheduleId}, outputs);
}

int32_t Master::DeleteSchedule(int32_t rspfunc, int32_t rspid, const char* mac,
                               int32_t scheduleId) {
    return StatusCommand(rspfunc, rspid, mac, ZANTH_DELETE_SCHEDULE, {scheduleId});
}

}  // namespace zanth
