#include "scripting/vbs/BuiltinCalendar.h"

#include <cmath>

namespace tessel::vbs::calendar {

namespace {

// Days from 1970-01-01 (the classic civil-date algorithm over 400-year eras).
int64_t UnixDays(int64_t y, int64_t m, int64_t d) noexcept {
  y -= m <= 2;
  int64_t era = (y >= 0 ? y : y - 399) / 400;
  int64_t yoe = y - era * 400;
  int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

constexpr int64_t kEpochUnixDays = -25569;  // 1899-12-30

int64_t FloorDiv(int64_t a, int64_t b) noexcept {
  int64_t q = a / b;
  if ((a % b != 0) && ((a < 0) != (b < 0))) --q;
  return q;
}

}  // namespace

int64_t DaysFromCivil(int64_t year, int64_t month, int64_t day) noexcept {
  return UnixDays(year, month, day) - kEpochUnixDays;
}

void CivilFromDays(int64_t days, int& year, int& month, int& day) noexcept {
  int64_t z = days + kEpochUnixDays + 719468;
  int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  int64_t doe = z - era * 146097;
  int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  int64_t mp = (5 * doy + 2) / 153;
  day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  year = static_cast<int>(yoe + era * 400 + (month <= 2));
}

int64_t SerialToSeconds(double serial) noexcept {
  double whole = std::trunc(serial);
  double frac = std::fabs(serial - whole);
  return static_cast<int64_t>(whole) * 86400 + static_cast<int64_t>(std::llround(frac * 86400.0));
}

double DayAndTimeToSerial(int64_t days, double timeOfDay) noexcept {
  if (days >= 0) return static_cast<double>(days) + timeOfDay;
  return static_cast<double>(days) - timeOfDay;
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

DateParts SerialToParts(double serial) noexcept {
  int64_t s = SerialToSeconds(serial);
  int64_t days = FloorDiv(s, 86400);
  int64_t rest = s - days * 86400;
  DateParts p;
  CivilFromDays(days, p.year, p.month, p.day);
  p.hour = static_cast<int>(rest / 3600);
  p.minute = static_cast<int>(rest / 60 % 60);
  p.second = static_cast<int>(rest % 60);
  return p;
}

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
  return serial >= kMinSerial - 0.99999999 && serial <= kMaxSerial + 1e-9;
}

}  // namespace tessel::vbs::calendar
