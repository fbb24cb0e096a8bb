// SystemTime and SystemTZ: the controller's clock and its time zone, each chosen by `mode`.
// Neither clears the caller's buffers: a failure leaves them as they were.

#include "frame/DateTimeText.h"
#include "frame/Master.h"
#include "frame/Transaction.h"
#include "protocol/Codes.h"

namespace zanth {

int32_t Master::SystemTime(int32_t rspfunc, int32_t rspid, const char* mac, int32_t mode,
                           char* date, int32_t dateSize, char* time, int32_t timeSize, char* zone,
                           int32_t zoneSize) {
    Transaction t(*this, "Master::SystemTime", rspfunc, rspid, mac);
    if (!t.Admit()) return t.Result();
    switch (mode) {
        case 0: {
            if (t.Blocking()) {
                // Room for "yyyy/mm/dd" and "hh:mm:ss" with their terminators.
                if (dateSize < 11 || timeSize < 9) {
                    t.SetResult(kTooLarge);
                    return t.Result();
                }
                if (!t.Present(date, time)) return t.Result();
            }
            t.CodeWords("get time");
            if (!t.Send(ZANTH_GET_TIME_DATE)) return t.Result();
            if (!t.Await() || !t.Expect(ZANTH_GET_TIME_DATE_RSP)) return t.Result();
            ReplyFields fields = t.Fields();
            fields.ControllerResult(&rslt_);
            if (t.Result() < 0) return t.Result();
            TakeWireDate(fields, date, dateSize);
            TakeWireTime(fields, time, timeSize);
            return t.Result();
        }
        case 1: {
            if (!t.Present(date, time)) return t.Result();
            Payload payload;
            if (!PutHostDate(t, date, payload) || !PutHostTime(t, time, payload)) {
                return t.Result();
            }
            t.CodeWords("set time");
            if (!t.Send(ZANTH_SET_TIME_DATE, payload)) return t.Result();
            if (!t.Await() || !t.Expect(ZANTH_SET_TIME_DATE_RSP)) return t.Result();
            return t.BareResult();
        }
        case 2: {
            if (t.Blocking() && !t.Present(zone)) return t.Result();
            t.CodeWords("get timezone");
            if (!t.Send(ZANTH_GET_CURRENT_TIME_ZONE)) return t.Result();
            if (!t.Await() || !t.Expect(ZANTH_GET_CURRENT_TIME_ZONE_RSP)) return t.Result();
            ReplyFields fields = t.Fields();
            fields.ControllerResult(&rslt_);
            if (t.Result() >= 0) fields.Text(zone, zoneSize);
            return t.Result();
        }
        default:
            t.Refuse("[Master::SystemTime] mode value must be between 0 and 2");
            return t.Result();
    }
}

int32_t Master::SystemTZ(int32_t rspfunc, int32_t rspid, const char* mac, int32_t mode, char* tz,
                         int32_t size) {
    Transaction t(*this, "Master::SystemTZ", rspfunc, rspid, mac);
    if (!t.Admit()) return t.Result();
    switch (mode) {
        case 0: {
            if (t.Blocking() && !t.Present(tz)) return t.Result();
            t.CodeWords("get TZ");
            if (!t.Send(ZANTH_GET_TZ)) return t.Result();
            if (!t.Await() || !t.Expect(ZANTH_GET_TZ_RSP)) return t.Result();
            ReplyFields fields = t.Fields();
            fields.ControllerResult(&rslt_);
            if (t.Result() >= 0) fields.Text(tz, size);
            return t.Result();
        }
        case 1:
            // The text goes as it is: its meaning is the controller's.
            if (!t.Present(tz)) return t.Result();
            t.CodeWords("set TZ");
            if (!t.Send(ZANTH_SET_TZ, Payload().Text(tz))) return t.Result();
            if (!t.Await() || !t.Expect(ZANTH_SET_TZ_RSP)) return t.Result();
            return t.BareResult();
        default:
            t.Refuse("[Master::SystemTZ] mode value must be between 0 and 1");
            return t.Result();
    }
}

}  // namespace zanth
