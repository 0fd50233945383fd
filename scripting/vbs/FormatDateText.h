// FormatDateText: date and time texts in the English (United States) locale.
//
// Shared by CStr-style general dates, FormatDateTime, the named date formats
// of Format and its user-defined date patterns. Every function takes a date
// serial (see BuiltinCalendar) and returns new text.
#pragma once

#include <string>
#include <string_view>

namespace tessel::vbs {

std::string ShortDateText(double serial);  // 2/28/2024
std::string LongDateText(double serial);   // Wednesday, February 28, 2024
std::string LongTimeText(double serial);   // 1:02:03 PM
std::string ShortTimeText(double serial);  // 13:02
// Date, time or both as the value holds them: "2/28/2024 1:02:03 PM".
std::string GeneralDateText(double serial);

// A user-defined date pattern (d, dd, ddd, dddd, m, mm, mmm, mmmm, yy, yyyy,
// h, hh, n, nn, s, ss, w, ww, q, y, c, AM/PM, A/P, AMPM, "text", \x, ...).
// firstDayOfWeek and firstWeekOfYear serve w and ww.
std::string FormatDatePattern(double serial, std::string_view pattern, int firstDayOfWeek = 1,
                              int firstWeekOfYear = 1);

// True when the pattern holds any date or time placeholder outside quotes.
bool HasDatePlaceholders(std::string_view pattern);

std::string_view MonthNameText(int month, bool abbreviate);      // 1..12
std::string_view WeekdayNameText(int weekday, bool abbreviate);  // 1 = Sunday

}  // namespace tessel::vbs
