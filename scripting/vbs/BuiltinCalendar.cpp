#include "scripting/vbs/BuiltinCalendar.h"

#include <cmath>

#include "core/DateTime.h"

namespace tessel::vbs::calendar {

namespace {

int64_t FloorDiv(int64_t a, int64_t b) noexcept {
  int64_t q = a / b;
  if ((a % b != 0) && ((a < 0) != (b < 0))) --q;
  return q;
}

}  // namespace

int64_t DaysFromCivil(int64_t year, int64_t month, int64_t day) noexcept {
  return DateTime::DaysFromCivil(year, month, day);
}

void CivilFromDays(int64_t days, int& year, int& month, int& day) noexcept {
  DateParts p = DateTime::Split(DateTime::Combine(days, 0.0));
  year = p.year;
  month = p.month;
  day = p.day;
}

int64_t SerialToSeconds(double serial) noexcept {
  double whole = std::trunc(serial);
  double frac = std::fabs(serial - whole);
  return static_cast<int64_t>(whole) * 86400 + static_cast<int64_t>(std::llround(frac * 86400.0));
}

double DayAndTimeToSerial(int64_t days, double timeOfDay) noexcept {
  return DateTime::Combine(days, timeOfDay);
}

double SecondsToSerial(int64_t seconds) noexcept {
  int64_t days = FloorDiv(seconds, 86400);
  int64_t rest = seconds - days * 86400;
  return DayAndTimeToSerial(days, static_cast<double>(rest) / 86400.0);
}

int64_t SerialDay(double serial) noexcept { return FloorDiv(SerialToSeconds(serial), 86400); }

double SerialTime(double serial) noexcept {
  int64_t s = SerialToSeconds(serial);
  return static_cast<double>(s - FloorDiv(s, 86400) * 86400) / 86400.0;
}

DateParts SerialToParts(double serial) noexcept { return DateTime::Split(serial, true); }

bool IsLeapYear(int year) noexcept { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int DaysInMonth(int year, int month) noexcept {
  static const int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month == 2 && IsLeapYear(year)) return 29;
  return kDays[(month - 1) % 12];
}

int Weekday(int64_t days, int firstDayOfWeek) noexcept {
  // Day 0 (1899-12-30) was a Saturday (7).
  int sundayBased = static_cast<int>(((days + 6) % 7 + 7) % 7) + 1;
  return (sundayBased - firstDayOfWeek + 7) % 7 + 1;
}

int DayOfYear(int64_t days) noexcept {
  int y, m, d;
  CivilFromDays(days, y, m, d);
  return static_cast<int>(days - DaysFromCivil(y, 1, 1)) + 1;
}

namespace {

// Day count of the first day of week 1 of `year`.
int64_t FirstWeekStart(int year, int firstDayOfWeek, int firstWeekOfYear) noexcept {
  int64_t jan1 = DaysFromCivil(year, 1, 1);
  int offset = Weekday(jan1, firstDayOfWeek) - 1;  // days since week start
  int64_t weekStart = jan1 - offset;
  switch (firstWeekOfYear) {
    case 2:  // at least four days of the year in the week
      return (7 - offset) >= 4 ? weekStart : weekStart + 7;
    case 3:  // a full week
      return offset == 0 ? weekStart : weekStart + 7;
    default:
      return weekStart;
  }
}

}  // namespace

int WeekOfYear(int64_t days, int firstDayOfWeek, int firstWeekOfYear) noexcept {
  int y, m, d;
  CivilFromDays(days, y, m, d);
  int64_t start = FirstWeekStart(y, firstDayOfWeek, firstWeekOfYear);
  if (days < start) start = FirstWeekStart(y - 1, firstDayOfWeek, firstWeekOfYear);
  return static_cast<int>((days - start) / 7) + 1;
}

bool InRange(double serial) noexcept {
  // NaN fails both comparisons.
  return serial > kMinSerial - 1.0 && serial < kMaxSerial + 1e-6;
}

}  // namespace tessel::vbs::calendar
