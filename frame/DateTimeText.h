#pragma once
// The host writes a date as "yyyy/mm/dd" and a time as "hh:mm:ss"; the controller's fields come
// in the order month;day;year; and hour;minute;second;. These convert between the two, checking
// the host's texts on the way out and bounding what the controller sends on the way back.

#include <cstdint>

#include "frame/ArgumentCheck.h"
#include "frame/ReplyFields.h"
#include "protocol/Payload.h"

namespace zanth {

// Checks `date` part by part (year 1901 to 2037, month 1 to 12, day 1 to 31 in any month) and
// appends "month;day;year;" as the caller typed them. The text is cut in place by the runtime's
// tokeniser on '/', so the caller's text doesn't survive. A missing part logs the format text.
bool PutHostDate(ArgumentCheck& check, char* date, Payload& payload);
// The same for "hh:mm:ss" (hour 0 to 23, minute and second 0 to 59), appending
// "hour;minute;second;".
bool PutHostTime(ArgumentCheck& check, char* time, Payload& payload);

// Reads month, day and year and writes "year/month/day" as the fields stand (no zeros added).
// A missing field gives -10011, a text too long for `dateSize` -10006; either leaves `date` as
// it was.
void TakeWireDate(ReplyFields& fields, char* date, int32_t dateSize);
// Empties `time`, then joins hour, minute and second with ':' as they are read: a missing field
// gives -10011 and leaves what was joined so far; a text too long for `timeSize` gives -10006.
void TakeWireTime(ReplyFields& fields, char* time, int32_t timeSize);

}  // namespace zanth
