// BuiltinDates: Date, Time, Now, Timer, DateAdd, DateDiff, DatePart,
// DateSerial, DateValue, TimeSerial, TimeValue, Year, Month, Day, Hour,
// Minute, Second, Weekday, WeekdayName and MonthName.
//
// Dates are serials (see BuiltinCalendar); results outside 1 January 100 to
// 31 December 9999 raise 5. A Null date gives Null; a Null count raises 94.
// firstdayofweek is 0 (the system's: Sunday) or 1 = Sunday .. 7 = Saturday;
// firstweekofyear is 0 (system: 1), 1 = week of 1 January, 2 = first week of
// four days, 3 = first full week.
#pragma once

#include "scripting/vbs/BuiltinStrings.h"

namespace tessel::vbs::builtins {
TESSEL_VBS_BUILTIN(Date);
TESSEL_VBS_BUILTIN(Time);
TESSEL_VBS_BUILTIN(Now);
TESSEL_VBS_BUILTIN(Timer);
TESSEL_VBS_BUILTIN(DateAdd);
TESSEL_VBS_BUILTIN(DateDiff);
TESSEL_VBS_BUILTIN(DatePart);
TESSEL_VBS_BUILTIN(DateSerial);
TESSEL_VBS_BUILTIN(DateValue);
TESSEL_VBS_BUILTIN(TimeSerial);
TESSEL_VBS_BUILTIN(TimeValue);
TESSEL_VBS_BUILTIN(Year);
TESSEL_VBS_BUILTIN(Month);
TESSEL_VBS_BUILTIN(Day);
TESSEL_VBS_BUILTIN(Hour);
TESSEL_VBS_BUILTIN(Minute);
TESSEL_VBS_BUILTIN(Second);
TESSEL_VBS_BUILTIN(Weekday);
TESSEL_VBS_BUILTIN(WeekdayName);
TESSEL_VBS_BUILTIN(MonthName);
}  // namespace tessel::vbs::builtins

namespace tessel::vbs {
// DateAdd on a serial, for callers outside the table: interval as the script
// spells it ("d", "m", "yyyy", ...). Raises 5 for an unknown interval or a
// result out of range.
double AddToDate(std::string_view interval, double number, double serial);
}  // namespace tessel::vbs
