// DateTime: the script language's dates, held as OLE automation serials.
//
// A serial is a double counting days since 1899-12-30; its fraction is the
// time of day. Serials below zero keep the time as a positive fraction
// (-1.25 is 12/29/1899 6:00 AM), as the platform's dates do. Valid dates lie
// from 1/1/100 to 12/31/9999.
//
// Parse and Format speak the US locale: "2/28/2024", "1:02:03 PM", and read
// ISO "2024-02-28", "28-Feb-2024", "February 28, 2024", times with or without
// seconds and AM/PM, and a date with a time in either order.
//
// All functions are pure (except Now) and keep no state.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tessel {

struct DateParts {
  int year = 1899;
  int month = 12;
  int day = 30;
  int hour = 0;
  int minute = 0;
  int second = 0;
  int millisecond = 0;
};

class DateTime {
 public:
  static constexpr double kMinSerial = -657434.0;          // 1/1/100
  static constexpr double kMaxSerial = 2958465.9999999;    // 12/31/9999 23:59:59

  static bool IsValid(double serial) noexcept { return serial >= kMinSerial && serial < 2958466.0; }

  // Day count since 1899-12-30 of a civil date. Months and days outside
  // their ranges roll over (month 13 is January of the next year, day 0 the
  // last day of the previous month), as DateSerial does. No range check.
  static int64_t DaysFromCivil(int64_t year, int64_t month, int64_t day) noexcept;
  // Time of day as a fraction of a day; values roll over like TimeSerial and
  // may give a result outside 0..1.
  static double TimeFraction(int64_t hour, int64_t minute, int64_t second, int64_t millisecond = 0) noexcept;
  // The serial of a day count plus a time fraction (0 <= time < 1), with the
  // sign rule for days before 1899-12-30.
  static double Combine(int64_t days, double time) noexcept;
  // The serial of a date and time; nullopt when any field is out of range
  // (month 1-12, day within month, hour 0-23, minute/second 0-59, ms 0-999)
  // or the year is outside 100..9999.
  static std::optional<double> FromParts(const DateParts& parts) noexcept;

  // The day count (whole days since 1899-12-30, rounding the time the same
  // way as Split) and the time fraction of a serial.
  static int64_t DayOf(double serial) noexcept;
  static double TimeOf(double serial) noexcept;
  // Fields of a serial. With `roundToSecond` the time is rounded to the
  // nearest second, as the script's Hour/Minute/Second and CStr see it;
  // otherwise to the nearest millisecond.
  static DateParts Split(double serial, bool roundToSecond = true) noexcept;
  // 1 = Sunday ... 7 = Saturday.
  static int Weekday(double serial) noexcept;
  static bool IsLeapYear(int64_t year) noexcept;
  static int DaysInMonth(int64_t year, int month) noexcept;

  // English names as the US locale writes them: "February"/"Feb",
  // "Wednesday"/"Wed" (weekday 1 = Sunday). Empty for numbers out of range.
  static std::string_view MonthName(int month, bool abbreviate = false) noexcept;
  static std::string_view WeekdayName(int weekday, bool abbreviate = false) noexcept;

  // Two-digit years: 0-29 are 2000-2029, 30-99 are 1930-1999.
  static int ExpandYear(int year) noexcept;

  // Date text as CDate reads it; nullopt when it is no date.
  static std::optional<double> Parse(std::string_view text);
  // CStr of a date: "2/28/2024 1:02:03 PM"; the time is left out at
  // midnight, the date is left out on 12/30/1899.
  static std::string Format(double serial);
  static std::string FormatDate(double serial);  // "2/28/2024"
  static std::string FormatTime(double serial);  // "1:02:03 PM"

  // The serial of a clock reading in local time (or UTC).
  static double FromTimePoint(std::chrono::system_clock::time_point t, bool local = true) noexcept;
  static double Now() noexcept { return FromTimePoint(std::chrono::system_clock::now()); }
};

}  // namespace tessel
