// BuiltinCalendar: the proleptic Gregorian calendar behind the date built-ins
// and the date formats.
//
// A script date is a serial: whole days since 30 December 1899 with the time
// of day as the fraction. Before the epoch the fraction still counts forward
// from midnight (-1.25 is 29 December 1899, 06:00), so serials are split into
// day and time before any arithmetic. Times are resolved to whole seconds.
// Civil-date conversions come from core/DateTime; what is added here is the
// second-exact arithmetic, weekdays relative to any first day and week
// numbering, which the date built-ins and formats need.
#pragma once

#include <cstdint>

#include "core/DateTime.h"

namespace tessel::vbs::calendar {

using DateParts = tessel::DateParts;

// Day count relative to 30 December 1899 of a civil date (months and days
// outside their ranges roll over), and back.
int64_t DaysFromCivil(int64_t year, int64_t month, int64_t day) noexcept;
void CivilFromDays(int64_t days, int& year, int& month, int& day) noexcept;

// Seconds since 1899-12-30 00:00 of a serial, the time rounded to a second.
int64_t SerialToSeconds(double serial) noexcept;
// The serial of a point given in seconds since the epoch.
double SecondsToSerial(int64_t seconds) noexcept;
// The serial of a whole day count plus a (non-negative) time of day in days.
double DayAndTimeToSerial(int64_t days, double timeOfDay) noexcept;

DateParts SerialToParts(double serial) noexcept;
// Whole days of the serial's date (floor of its second count).
int64_t SerialDay(double serial) noexcept;
// Time of day as a fraction of a day (0 <= t < 1), from the serial.
double SerialTime(double serial) noexcept;

bool IsLeapYear(int year) noexcept;
int DaysInMonth(int year, int month) noexcept;

// 1..7 where 1 is firstDayOfWeek (1 = Sunday ... 7 = Saturday).
int Weekday(int64_t days, int firstDayOfWeek) noexcept;
int DayOfYear(int64_t days) noexcept;
// Week number under firstWeekOfYear: 1 = week of 1 January, 2 = first week
// with four days, 3 = first full week. A date before the first week belongs to
// the last week of the previous year.
int WeekOfYear(int64_t days, int firstDayOfWeek, int firstWeekOfYear) noexcept;

// Range the script language accepts: years 100 to 9999.
constexpr double kMinSerial = -657434.0;            // 1 January 100
constexpr double kMaxSerial = 2958465.99998842592;  // 31 December 9999 23:59:59
bool InRange(double serial) noexcept;

}  // namespace tessel::vbs::calendar
