#include "scripting/vbs/FormatDateText.h"

#include <cctype>
#include <cmath>

#include "scripting/vbs/BuiltinCalendar.h"

namespace tessel::vbs {

namespace {

constexpr std::string_view kMonths[12] = {"January",   "February", "March",    "April",
                                          "May",       "June",     "July",     "August",
                                          "September", "October",  "November", "December"};
constexpr std::string_view kWeekdays[7] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                           "Thursday", "Friday", "Saturday"};

void AppendNumber(std::string& out, int value, int width) {
  char digits[12];
  int n = 0;
  unsigned v = value < 0 ? 0u - static_cast<unsigned>(value) : static_cast<unsigned>(value);
  do {
    digits[n++] = static_cast<char>('0' + v % 10);
    v /= 10;
  } while (v);
  if (value < 0) out.push_back('-');
  for (int pad = n; pad < width; ++pad) out.push_back('0');
  while (n) out.push_back(digits[--n]);
}

int Hour12(int hour) { return hour % 12 == 0 ? 12 : hour % 12; }

bool StartsWithNoCase(std::string_view s, size_t i, std::string_view word) {
  if (s.size() - i < word.size()) return false;
  for (size_t k = 0; k < word.size(); ++k) {
    if (std::tolower(static_cast<unsigned char>(s[i + k])) !=
        std::tolower(static_cast<unsigned char>(word[k])))
      return false;
  }
  return true;
}

size_t RunLength(std::string_view s, size_t i) {
  char c = static_cast<char>(std::tolower(static_cast<unsigned char>(s[i])));
  size_t n = 0;
  while (i + n < s.size() && std::tolower(static_cast<unsigned char>(s[i + n])) == c) ++n;
  return n;
}

bool HasAmPm(std::string_view p) {
  for (size_t i = 0; i < p.size(); ++i) {
    if (p[i] == '"') {
      size_t end = p.find('"', i + 1);
      if (end == std::string_view::npos) return false;
      i = end;
    } else if (p[i] == '\\') {
      ++i;
    } else if (StartsWithNoCase(p, i, "am/pm") || StartsWithNoCase(p, i, "a/p") ||
               StartsWithNoCase(p, i, "ampm")) {
      return true;
    }
  }
  return false;
}

// Whether an m-run at i is a minute: right after an hour token, or right
// before a second token (literals in between are skipped).
bool MinuteContext(std::string_view p, size_t i, size_t run, char lastToken) {
  if (lastToken == 'h') return true;
  for (size_t k = i + run; k < p.size(); ++k) {
    char c = static_cast<char>(std::tolower(static_cast<unsigned char>(p[k])));
    if (c == 's') return true;
    if (std::isalpha(static_cast<unsigned char>(c))) return false;
  }
  return false;
}

}  // namespace

std::string_view MonthNameText(int month, bool abbreviate) {
  std::string_view name = kMonths[(month - 1) % 12];
  return abbreviate ? name.substr(0, 3) : name;
}

std::string_view WeekdayNameText(int weekday, bool abbreviate) {
  std::string_view name = kWeekdays[(weekday - 1) % 7];
  return abbreviate ? name.substr(0, 3) : name;
}

std::string ShortDateText(double serial) {
  calendar::DateParts p = calendar::SerialToParts(serial);
  std::string out;
  AppendNumber(out, p.month, 1);
  out.push_back('/');
  AppendNumber(out, p.day, 1);
  out.push_back('/');
  AppendNumber(out, p.year, 4);
  return out;
}

std::string LongDateText(double serial) {
  calendar::DateParts p = calendar::SerialToParts(serial);
  std::string out(WeekdayNameText(calendar::Weekday(calendar::SerialDay(serial), 1), false));
  out += ", ";
  out += MonthNameText(p.month, false);
  out.push_back(' ');
  AppendNumber(out, p.day, 1);
  out += ", ";
  AppendNumber(out, p.year, 4);
  return out;
}

std::string LongTimeText(double serial) {
  calendar::DateParts p = calendar::SerialToParts(serial);
  std::string out;
  AppendNumber(out, Hour12(p.hour), 1);
  out.push_back(':');
  AppendNumber(out, p.minute, 2);
  out.push_back(':');
  AppendNumber(out, p.second, 2);
  out += p.hour < 12 ? " AM" : " PM";
  return out;
}

std::string ShortTimeText(double serial) {
  calendar::DateParts p = calendar::SerialToParts(serial);
  std::string out;
  AppendNumber(out, p.hour, 2);
  out.push_back(':');
  AppendNumber(out, p.minute, 2);
  return out;
}

std::string GeneralDateText(double serial) {
  int64_t seconds = calendar::SerialToSeconds(serial);
  bool hasDate = calendar::SerialDay(serial) != 0;
  bool hasTime = seconds % 86400 != 0;
  if (!hasDate) return LongTimeText(serial);
  if (!hasTime) return ShortDateText(serial);
  return ShortDateText(serial) + " " + LongTimeText(serial);
}

bool HasDatePlaceholders(std::string_view p) {
  for (size_t i = 0; i < p.size(); ++i) {
    char c = static_cast<char>(std::tolower(static_cast<unsigned char>(p[i])));
    if (c == '"') {
      size_t end = p.find('"', i + 1);
      if (end == std::string_view::npos) return false;
      i = end;
    } else if (c == '\\') {
      ++i;
    } else if (c == 'd' || c == 'm' || c == 'y' || c == 'h' || c == 'n' || c == 's' || c == 'w' ||
               c == 'q' || c == 'c' || c == 't') {
      return true;
    }
  }
  return false;
}

std::string FormatDatePattern(double serial, std::string_view p, int firstDayOfWeek,
                              int firstWeekOfYear) {
  calendar::DateParts parts = calendar::SerialToParts(serial);
  int64_t days = calendar::SerialDay(serial);
  bool twelveHour = HasAmPm(p);
  std::string out;
  char lastToken = 0;
  for (size_t i = 0; i < p.size();) {
    char raw = p[i];
    char c = static_cast<char>(std::tolower(static_cast<unsigned char>(raw)));
    if (raw == '"') {
      size_t end = p.find('"', i + 1);
      if (end == std::string_view::npos) end = p.size();
      out.append(p.substr(i + 1, end - i - 1));
      i = end + 1;
      continue;
    }
    if (raw == '\\') {
      if (i + 1 < p.size()) out.push_back(p[i + 1]);
      i += 2;
      continue;
    }
    if (StartsWithNoCase(p, i, "am/pm")) {
      bool upper = raw == 'A' || raw == 'a' ? std::isupper(static_cast<unsigned char>(raw)) : true;
      std::string_view text = parts.hour < 12 ? (upper ? "AM" : "am") : (upper ? "PM" : "pm");
      out.append(text);
      i += 5;
      continue;
    }
    if (StartsWithNoCase(p, i, "a/p")) {
      bool upper = std::isupper(static_cast<unsigned char>(raw));
      out.push_back(parts.hour < 12 ? (upper ? 'A' : 'a') : (upper ? 'P' : 'p'));
      i += 3;
      continue;
    }
    if (StartsWithNoCase(p, i, "ampm")) {
      out += parts.hour < 12 ? "AM" : "PM";
      i += 4;
      continue;
    }
    size_t run = RunLength(p, i);
    switch (c) {
      case 'c':
        out += GeneralDateText(serial);
        i += 1;
        continue;
      case 'd':
        if (run >= 6) {
          out += LongDateText(serial);
          run = 6;
        } else if (run == 5) {
          out += ShortDateText(serial);
        } else if (run == 4) {
          out += WeekdayNameText(calendar::Weekday(days, 1), false);
        } else if (run == 3) {
          out += WeekdayNameText(calendar::Weekday(days, 1), true);
        } else {
          AppendNumber(out, parts.day, static_cast<int>(run));
        }
        lastToken = 'd';
        i += run;
        continue;
      case 'm':
        if (run <= 2 && MinuteContext(p, i, run, lastToken)) {
          AppendNumber(out, parts.minute, static_cast<int>(run));
          lastToken = 'n';
        } else if (run >= 4) {
          out += MonthNameText(parts.month, false);
          run = 4;
          lastToken = 'm';
        } else if (run == 3) {
          out += MonthNameText(parts.month, true);
          lastToken = 'm';
        } else {
          AppendNumber(out, parts.month, static_cast<int>(run));
          lastToken = 'm';
        }
        i += run;
        continue;
      case 'y':
        if (run >= 4) {
          AppendNumber(out, parts.year, 4);
          run = 4;
        } else if (run >= 2) {
          AppendNumber(out, parts.year % 100, 2);
          run = 2;
        } else {
          AppendNumber(out, calendar::DayOfYear(days), 1);
        }
        lastToken = 'y';
        i += run;
        continue;
      case 'h': {
        if (run > 2) run = 2;
        int hour = twelveHour ? (parts.hour % 12 == 0 ? 12 : parts.hour % 12) : parts.hour;
        AppendNumber(out, hour, static_cast<int>(run));
        lastToken = 'h';
        i += run;
        continue;
      }
      case 'n':
        if (run > 2) run = 2;
        AppendNumber(out, parts.minute, static_cast<int>(run));
        lastToken = 'n';
        i += run;
        continue;
      case 's':
        if (run > 2) run = 2;
        AppendNumber(out, parts.second, static_cast<int>(run));
        lastToken = 's';
        i += run;
        continue;
      case 'w':
        if (run >= 2) {
          AppendNumber(out, calendar::WeekOfYear(days, firstDayOfWeek, firstWeekOfYear), 1);
          run = 2;
        } else {
          AppendNumber(out, calendar::Weekday(days, firstDayOfWeek), 1);
        }
        lastToken = 'w';
        i += run;
        continue;
      case 'q':
        AppendNumber(out, (parts.month - 1) / 3 + 1, 1);
        i += 1;
        continue;
      case 't':
        if (run >= 5) {
          out += LongTimeText(serial);
          i += 5;
          continue;
        }
        break;
      default:
        break;
    }
    out.push_back(raw);
    ++i;
  }
  return out;
}

}  // namespace tessel::vbs
