#include "scripting/vbs/BuiltinDates.h"

#include <cctype>
#include <cmath>

#include "core/DateTime.h"
#include "scripting/vbs/BuiltinArgs.h"
#include "scripting/vbs/BuiltinCalendar.h"
#include "scripting/vbs/BuiltinContext.h"
#include "scripting/vbs/FormatDateText.h"

namespace tessel::vbs {

namespace {

enum class Interval { Year, Quarter, Month, DayOfYear, Day, Weekday, Week, Hour, Minute, Second };

Interval ParseInterval(const Variant& arg) {
  if (arg.IsNull()) ThrowRuntimeError(94);
  std::string s = ArgValue(arg).ToString();
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (s == "yyyy") return Interval::Year;
  if (s == "q") return Interval::Quarter;
  if (s == "m") return Interval::Month;
  if (s == "y") return Interval::DayOfYear;
  if (s == "d") return Interval::Day;
  if (s == "w") return Interval::Weekday;
  if (s == "ww") return Interval::Week;
  if (s == "h") return Interval::Hour;
  if (s == "n") return Interval::Minute;
  if (s == "s") return Interval::Second;
  ThrowRuntimeError(5);
}

int FirstDayOfWeekArg(const Variant* args, int argc, int index) {
  int32_t v = LongArg(args, argc, index, 1);
  if (v < 0 || v > 7) ThrowRuntimeError(5);
  return v == 0 ? 1 : v;
}

int FirstWeekOfYearArg(const Variant* args, int argc, int index) {
  int32_t v = LongArg(args, argc, index, 1);
  if (v < 0 || v > 3) ThrowRuntimeError(5);
  return v == 0 ? 1 : v;
}

double CheckedDate(double serial) {
  if (!calendar::InRange(serial)) ThrowRuntimeError(5);
  return serial;
}

double AddMonths(double serial, double months) {
  calendar::DateParts p = calendar::SerialToParts(serial);
  double total = p.year * 12.0 + (p.month - 1) + months;
  if (total < 100 * 12.0 || total > 9999 * 12.0 + 11) ThrowRuntimeError(5);
  int64_t t = static_cast<int64_t>(total);
  int year = static_cast<int>(t / 12);
  int month = static_cast<int>(t % 12) + 1;
  int day = std::min(p.day, calendar::DaysInMonth(year, month));
  int64_t days = calendar::DaysFromCivil(year, month, day);
  return CheckedDate(calendar::DayAndTimeToSerial(days, calendar::SerialTime(serial)));
}

double AddSeconds(double serial, double seconds) {
  double total = static_cast<double>(calendar::SerialToSeconds(serial)) + seconds;
  if (std::fabs(total) > 1e12) ThrowRuntimeError(5);
  return CheckedDate(calendar::SecondsToSerial(static_cast<int64_t>(total)));
}

// The day count starting the week that holds `days`.
int64_t WeekStart(int64_t days, int firstDayOfWeek) {
  return days - (calendar::Weekday(days, firstDayOfWeek) - 1);
}

int64_t FloorDiv(int64_t a, int64_t b) {
  int64_t q = a / b;
  if ((a % b != 0) && ((a < 0) != (b < 0))) --q;
  return q;
}

// The clock as whole day and whole second of the day. The seconds are cut,
// not rounded, so that Date, Time and Now agree at the turn of a day.
struct ClockParts {
  int64_t day;
  int64_t second;
};

ClockParts ClockReading(const BuiltinContext& context) {
  double now = context.Now();
  double day = std::floor(now);
  int64_t second = static_cast<int64_t>(std::floor((now - day) * 86400.0 + 1e-7));
  if (second > 86399) second = 86399;
  return ClockParts{static_cast<int64_t>(day), second};
}

Variant DatePartValue(const Variant& arg, int part) {
  Variant v = ArgValue(arg);
  if (v.IsNull()) return v;
  calendar::DateParts p = calendar::SerialToParts(DateArg(v));
  int values[6] = {p.year, p.month, p.day, p.hour, p.minute, p.second};
  return Variant::FromInteger(static_cast<int16_t>(values[part]));
}

double AddInterval(Interval interval, double number, double serial) {
  if (!std::isfinite(number)) ThrowRuntimeError(5);
  if (!calendar::InRange(serial)) ThrowRuntimeError(5);
  double n = std::nearbyint(number);
  switch (interval) {
    case Interval::Year:
      return AddMonths(serial, n * 12);
    case Interval::Quarter:
      return AddMonths(serial, n * 3);
    case Interval::Month:
      return AddMonths(serial, n);
    case Interval::DayOfYear:
    case Interval::Day:
    case Interval::Weekday:
      return AddSeconds(serial, n * 86400);
    case Interval::Week:
      return AddSeconds(serial, n * 7 * 86400);
    case Interval::Hour:
      return AddSeconds(serial, n * 3600);
    case Interval::Minute:
      return AddSeconds(serial, n * 60);
    case Interval::Second:
      return AddSeconds(serial, n);
  }
  ThrowRuntimeError(5);
}

}  // namespace

double AddToDate(std::string_view interval, double number, double serial) {
  return AddInterval(ParseInterval(Variant(interval)), number, serial);
}

namespace builtins {

Variant Date(BuiltinContext& context, const Variant*, int) {
  return Variant::FromDate(static_cast<double>(ClockReading(context).day));
}

Variant Time(BuiltinContext& context, const Variant*, int) {
  return Variant::FromDate(static_cast<double>(ClockReading(context).second) / 86400.0);
}

Variant Now(BuiltinContext& context, const Variant*, int) {
  ClockParts now = ClockReading(context);
  return Variant::FromDate(calendar::SecondsToSerial(now.day * 86400 + now.second));
}

Variant Timer(BuiltinContext& context, const Variant*, int) {
  double now = context.Now();
  return Variant::FromSingle(static_cast<float>((now - std::floor(now)) * 86400.0));
}

Variant DateAdd(BuiltinContext&, const Variant* args, int) {
  Interval interval = ParseInterval(args[0]);
  double number = args[1].ToDouble();
  Variant date = ArgValue(args[2]);
  if (date.IsNull()) return date;
  return Variant::FromDate(AddInterval(interval, number, DateArg(date)));
}

Variant DateDiff(BuiltinContext&, const Variant* args, int argc) {
  Interval interval = ParseInterval(args[0]);
  int firstDay = FirstDayOfWeekArg(args, argc, 3);
  FirstWeekOfYearArg(args, argc, 4);
  Variant a = ArgValue(args[1]);
  Variant b = ArgValue(args[2]);
  if (a.IsNull() || b.IsNull()) return Variant::Null();
  double d1 = DateArg(a), d2 = DateArg(b);
  int64_t s1 = calendar::SerialToSeconds(d1), s2 = calendar::SerialToSeconds(d2);
  int64_t day1 = FloorDiv(s1, 86400), day2 = FloorDiv(s2, 86400);
  calendar::DateParts p1 = calendar::SerialToParts(d1), p2 = calendar::SerialToParts(d2);
  int64_t result = 0;
  switch (interval) {
    case Interval::Year:
      result = p2.year - p1.year;
      break;
    case Interval::Quarter:
      result = (p2.year * 4 + (p2.month - 1) / 3) - (p1.year * 4 + (p1.month - 1) / 3);
      break;
    case Interval::Month:
      result = (p2.year * 12 + p2.month) - (p1.year * 12 + p1.month);
      break;
    case Interval::DayOfYear:
    case Interval::Day:
      result = day2 - day1;
      break;
    case Interval::Weekday:
      result = (day2 - day1) / 7;
      break;
    case Interval::Week:
      result = (WeekStart(day2, firstDay) - WeekStart(day1, firstDay)) / 7;
      break;
    case Interval::Hour:
      result = FloorDiv(s2, 3600) - FloorDiv(s1, 3600);
      break;
    case Interval::Minute:
      result = FloorDiv(s2, 60) - FloorDiv(s1, 60);
      break;
    case Interval::Second:
      result = s2 - s1;
      break;
  }
  if (result > INT32_MAX || result < INT32_MIN) ThrowRuntimeError(6);
  return Variant(static_cast<int32_t>(result));
}

Variant DatePart(BuiltinContext&, const Variant* args, int argc) {
  Interval interval = ParseInterval(args[0]);
  int firstDay = FirstDayOfWeekArg(args, argc, 2);
  int firstWeek = FirstWeekOfYearArg(args, argc, 3);
  Variant date = ArgValue(args[1]);
  if (date.IsNull()) return date;
  double serial = DateArg(date);
  calendar::DateParts p = calendar::SerialToParts(serial);
  int64_t days = calendar::SerialDay(serial);
  int result = 0;
  switch (interval) {
    case Interval::Year:
      result = p.year;
      break;
    case Interval::Quarter:
      result = (p.month - 1) / 3 + 1;
      break;
    case Interval::Month:
      result = p.month;
      break;
    case Interval::DayOfYear:
      result = calendar::DayOfYear(days);
      break;
    case Interval::Day:
      result = p.day;
      break;
    case Interval::Weekday:
      result = calendar::Weekday(days, firstDay);
      break;
    case Interval::Week:
      result = calendar::WeekOfYear(days, firstDay, firstWeek);
      break;
    case Interval::Hour:
      result = p.hour;
      break;
    case Interval::Minute:
      result = p.minute;
      break;
    case Interval::Second:
      result = p.second;
      break;
  }
  return Variant::FromInteger(static_cast<int16_t>(result));
}

Variant DateSerial(BuiltinContext&, const Variant* args, int) {
  int64_t year = args[0].ToInteger();
  int64_t month = args[1].ToInteger();
  int64_t day = args[2].ToInteger();
  if (year >= 0 && year <= 99) year = DateTime::ExpandYear(static_cast<int>(year));
  int64_t total = year * 12 + (month - 1);
  int64_t y = FloorDiv(total, 12);
  int64_t m = total - y * 12 + 1;
  int64_t days = calendar::DaysFromCivil(y, m, 1) + (day - 1);
  return Variant::FromDate(CheckedDate(static_cast<double>(days)));
}

Variant TimeSerial(BuiltinContext&, const Variant* args, int) {
  int64_t seconds =
      int64_t{args[0].ToInteger()} * 3600 + int64_t{args[1].ToInteger()} * 60 + args[2].ToInteger();
  return Variant::FromDate(CheckedDate(calendar::SecondsToSerial(seconds)));
}

Variant DateValue(BuiltinContext&, const Variant* args, int) {
  Variant v = ArgValue(args[0]);
  if (v.IsNull()) return v;
  return Variant::FromDate(static_cast<double>(calendar::SerialDay(DateArg(v))));
}

Variant TimeValue(BuiltinContext&, const Variant* args, int) {
  Variant v = ArgValue(args[0]);
  if (v.IsNull()) return v;
  return Variant::FromDate(calendar::SerialTime(DateArg(v)));
}

Variant Year(BuiltinContext&, const Variant* args, int) { return DatePartValue(args[0], 0); }
Variant Month(BuiltinContext&, const Variant* args, int) { return DatePartValue(args[0], 1); }
Variant Day(BuiltinContext&, const Variant* args, int) { return DatePartValue(args[0], 2); }
Variant Hour(BuiltinContext&, const Variant* args, int) { return DatePartValue(args[0], 3); }
Variant Minute(BuiltinContext&, const Variant* args, int) { return DatePartValue(args[0], 4); }
Variant Second(BuiltinContext&, const Variant* args, int) { return DatePartValue(args[0], 5); }

Variant Weekday(BuiltinContext&, const Variant* args, int argc) {
  int firstDay = FirstDayOfWeekArg(args, argc, 1);
  Variant v = ArgValue(args[0]);
  if (v.IsNull()) return v;
  return Variant::FromInteger(
      static_cast<int16_t>(calendar::Weekday(calendar::SerialDay(DateArg(v)), firstDay)));
}

Variant WeekdayName(BuiltinContext&, const Variant* args, int argc) {
  int32_t n = args[0].ToLong();
  bool abbreviate = BoolArg(args, argc, 1, false);
  int firstDay = FirstDayOfWeekArg(args, argc, 2);
  if (n < 1 || n > 7) ThrowRuntimeError(5);
  int sundayBased = (n - 1 + firstDay - 1) % 7 + 1;
  return Variant(WeekdayNameText(sundayBased, abbreviate));
}

Variant MonthName(BuiltinContext&, const Variant* args, int argc) {
  int32_t n = args[0].ToLong();
  bool abbreviate = BoolArg(args, argc, 1, false);
  if (n < 1 || n > 12) ThrowRuntimeError(5);
  return Variant(MonthNameText(n, abbreviate));
}

}  // namespace builtins
}  // namespace tessel::vbs
