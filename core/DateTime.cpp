#include "core/DateTime.h"

#include <cctype>
#include <cmath>
#include <ctime>
#include <vector>

#include <fmt/format.h>

namespace tessel {

namespace {

constexpr int64_t kMsPerDay = 86400000;

// Days since 1970-01-01 of a proleptic Gregorian date (Hinnant's algorithm).
int64_t DaysFromEpoch(int64_t y, int64_t m, int64_t d) noexcept {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const int64_t yoe = y - era * 400;
  const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

void CivilFromEpoch(int64_t z, int64_t& y, int& m, int& d) noexcept {
  z += 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const int64_t doe = z - era * 146097;
  const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int64_t mp = (5 * doy + 2) / 153;
  d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  y = yoe + era * 400 + (m <= 2);
}

const int64_t kEpochOffset = DaysFromEpoch(1899, 12, 30);  // 1899-12-30 in Unix days

// Whole civil day and milliseconds into it, rounded to `unitMs`.
void SplitMs(double serial, int64_t unitMs, int64_t& days, int64_t& ms) noexcept {
  double whole = std::trunc(serial);
  double frac = std::fabs(serial - whole);
  days = static_cast<int64_t>(whole);
  ms = static_cast<int64_t>(std::llround(frac * kMsPerDay / unitMs)) * unitMs;
  if (ms >= kMsPerDay) {
    ms -= kMsPerDay;
    ++days;
  }
}

const char* const kMonthNames[12] = {"january", "february", "march",     "april",   "may",      "june",
                                     "july",    "august",   "september", "october", "november", "december"};
const char* const kDayNames[7] = {"sunday", "monday", "tuesday", "wednesday", "thursday", "friday", "saturday"};

// 1..12 for a month name or its first three (or more) letters; 0 otherwise.
int MonthFromWord(std::string_view w) {
  if (w.size() < 3) return 0;
  for (int i = 0; i < 12; ++i) {
    std::string_view name = kMonthNames[i];
    if (w.size() <= name.size() && name.substr(0, w.size()) == w) return i + 1;
  }
  if (w == "sept") return 9;
  return 0;
}

bool IsDayWord(std::string_view w) {
  if (w.size() < 3) return false;
  for (const char* n : kDayNames) {
    std::string_view name = n;
    if (w.size() <= name.size() && name.substr(0, w.size()) == w) return true;
  }
  return false;
}

struct Token {
  enum Kind { Number, Word, Sep } kind;
  std::string text;  // lower case for words; the separator char for Sep
  int value = 0;     // numbers; clamped to avoid overflow on long digit runs
};

bool Tokenize(std::string_view s, std::vector<Token>& out) {
  size_t i = 0;
  while (i < s.size()) {
    unsigned char c = static_cast<unsigned char>(s[i]);
    if (std::isdigit(c)) {
      size_t j = i;
      int64_t v = 0;
      while (j < s.size() && std::isdigit(static_cast<unsigned char>(s[j]))) {
        if (v < 100000000) v = v * 10 + (s[j] - '0');
        ++j;
      }
      out.push_back({Token::Number, std::string(s.substr(i, j - i)), static_cast<int>(v)});
      i = j;
    } else if (std::isalpha(c)) {
      size_t j = i;
      std::string w;
      while (j < s.size() && std::isalpha(static_cast<unsigned char>(s[j]))) {
        w.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(s[j]))));
        ++j;
      }
      out.push_back({Token::Word, std::move(w), 0});
      i = j;
    } else if (c == ' ' || c == '\t') {
      ++i;
      out.push_back({Token::Sep, " ", 0});
    } else if (c == '/' || c == '-' || c == '.' || c == ',' || c == ':') {
      out.push_back({Token::Sep, std::string(1, static_cast<char>(c)), 0});
      ++i;
    } else {
      return false;
    }
  }
  return true;
}

}  // namespace

int64_t DateTime::DaysFromCivil(int64_t year, int64_t month, int64_t day) noexcept {
  // Roll the month into the year first, then let the day count carry the rest.
  int64_t m0 = month - 1;
  int64_t yearCarry = m0 >= 0 ? m0 / 12 : -((11 - m0) / 12);
  year += yearCarry;
  month = m0 - yearCarry * 12 + 1;
  return DaysFromEpoch(year, month, 1) + (day - 1) - kEpochOffset;
}

double DateTime::TimeFraction(int64_t hour, int64_t minute, int64_t second, int64_t millisecond) noexcept {
  int64_t ms = ((hour * 60 + minute) * 60 + second) * 1000 + millisecond;
  return static_cast<double>(ms) / kMsPerDay;
}

double DateTime::Combine(int64_t days, double time) noexcept {
  return days >= 0 ? static_cast<double>(days) + time : static_cast<double>(days) - time;
}

std::optional<double> DateTime::FromParts(const DateParts& p) noexcept {
  if (p.year < 100 || p.year > 9999 || p.month < 1 || p.month > 12 || p.day < 1 ||
      p.day > DaysInMonth(p.year, p.month) || p.hour < 0 || p.hour > 23 || p.minute < 0 || p.minute > 59 ||
      p.second < 0 || p.second > 59 || p.millisecond < 0 || p.millisecond > 999) {
    return std::nullopt;
  }
  return Combine(DaysFromCivil(p.year, p.month, p.day), TimeFraction(p.hour, p.minute, p.second, p.millisecond));
}

int64_t DateTime::DayOf(double serial) noexcept {
  int64_t days, ms;
  SplitMs(serial, 1000, days, ms);
  return days;
}

double DateTime::TimeOf(double serial) noexcept {
  double whole = std::trunc(serial);
  return std::fabs(serial - whole);
}

DateParts DateTime::Split(double serial, bool roundToSecond) noexcept {
  int64_t days, ms;
  SplitMs(serial, roundToSecond ? 1000 : 1, days, ms);
  DateParts p;
  int64_t y;
  CivilFromEpoch(days + kEpochOffset, y, p.month, p.day);
  p.year = static_cast<int>(y);
  p.hour = static_cast<int>(ms / 3600000);
  p.minute = static_cast<int>(ms / 60000 % 60);
  p.second = static_cast<int>(ms / 1000 % 60);
  p.millisecond = static_cast<int>(ms % 1000);
  return p;
}

int DateTime::Weekday(double serial) noexcept {
  // 1899-12-30 was a Saturday.
  int64_t d = DayOf(serial);
  int64_t w = ((d + 6) % 7 + 7) % 7;  // 0 = Sunday
  return static_cast<int>(w) + 1;
}

bool DateTime::IsLeapYear(int64_t y) noexcept { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

int DateTime::DaysInMonth(int64_t year, int month) noexcept {
  static const int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month < 1 || month > 12) return 0;
  return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

std::string_view DateTime::MonthName(int month, bool abbreviate) noexcept {
  static const char* const kNames[12] = {"January", "February", "March",     "April",   "May",      "June",
                                         "July",    "August",   "September", "October", "November", "December"};
  if (month < 1 || month > 12) return {};
  std::string_view name = kNames[month - 1];
  return abbreviate ? name.substr(0, 3) : name;
}

std::string_view DateTime::WeekdayName(int weekday, bool abbreviate) noexcept {
  static const char* const kNames[7] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
  if (weekday < 1 || weekday > 7) return {};
  std::string_view name = kNames[weekday - 1];
  return abbreviate ? name.substr(0, 3) : name;
}

int DateTime::ExpandYear(int year) noexcept {
  if (year < 0 || year > 99) return year;
  return year < 30 ? 2000 + year : 1900 + year;
}

std::optional<double> DateTime::Parse(std::string_view text) {
  std::vector<Token> toks;
  if (!Tokenize(text, toks)) return std::nullopt;

  // Pull out the time: n:n[:n[.n]] [am|pm], or n am|pm.
  std::vector<bool> used(toks.size(), false);
  bool haveTime = false;
  int hour = 0, minute = 0, second = 0;
  auto skipBlanks = [&](size_t k) {
    while (k < toks.size() && toks[k].kind == Token::Sep && toks[k].text == " ") ++k;
    return k;
  };
  auto isSep = [&](size_t k, char c) { return k < toks.size() && toks[k].kind == Token::Sep && toks[k].text[0] == c; };
  auto isNum = [&](size_t k) { return k < toks.size() && toks[k].kind == Token::Number; };
  for (size_t i = 0; i < toks.size() && !haveTime; ++i) {
    if (!isNum(i)) continue;
    size_t k = i;
    int fields[3] = {toks[i].value, 0, 0};
    int count = 1;
    size_t last = i;
    if (isSep(i + 1, ':') && isNum(i + 2)) {
      if (toks[i].text.size() > 2 || toks[i + 2].text.size() > 2) return std::nullopt;
      fields[1] = toks[i + 2].value;
      count = 2;
      last = i + 2;
      if (isSep(i + 3, ':') && isNum(i + 4)) {
        if (toks[i + 4].text.size() > 2) return std::nullopt;
        fields[2] = toks[i + 4].value;
        count = 3;
        last = i + 4;
        if (isSep(i + 5, '.') && isNum(i + 6)) last = i + 6;  // fraction of a second
        if (isSep(last + 1, ':')) return std::nullopt;
      }
    } else if (isSep(i + 1, ':')) {
      return std::nullopt;
    }
    size_t m = skipBlanks(last + 1);
    int ampm = 0;  // 1 am, 2 pm
    if (m < toks.size() && toks[m].kind == Token::Word) {
      const std::string& w = toks[m].text;
      if (w == "am" || w == "a") ampm = 1;
      if (w == "pm" || w == "p") ampm = 2;
    }
    if (count == 1 && ampm == 0) continue;  // a lone number belongs to the date
    if (ampm) {
      if (fields[0] > 12) return std::nullopt;
      if (fields[0] == 12) fields[0] = 0;
      if (ampm == 2) fields[0] += 12;
      last = m;
    }
    if (fields[0] > 23 || fields[1] > 59 || fields[2] > 59) return std::nullopt;
    hour = fields[0];
    minute = fields[1];
    second = fields[2];
    for (size_t u = k; u <= last; ++u) used[u] = true;
    haveTime = true;
  }

  // The rest is the date: numbers, an optional month name, separators.
  std::vector<const Token*> nums;
  int monthName = 0;
  size_t monthPos = 0;
  int sepDots = 0;
  for (size_t i = 0; i < toks.size(); ++i) {
    if (used[i]) continue;
    const Token& t = toks[i];
    if (t.kind == Token::Number) {
      if (t.text.size() > 4) return std::nullopt;
      nums.push_back(&t);
    } else if (t.kind == Token::Word) {
      int mn = MonthFromWord(t.text);
      if (mn && !monthName) {
        monthName = mn;
        monthPos = nums.size();
      } else if (!IsDayWord(t.text)) {
        return std::nullopt;
      }
    } else {
      if (t.text == ":") return std::nullopt;
      if (t.text == ".") ++sepDots;
    }
  }
  (void)monthPos;

  if (!haveTime && nums.empty() && !monthName) return std::nullopt;
  if (nums.size() > 3) return std::nullopt;
  if (sepDots && nums.size() + (monthName ? 1 : 0) < 3) return std::nullopt;

  int year = 0, month = 0, day = 0;
  bool haveDate = !nums.empty() || monthName;
  auto isYear = [](const Token* t) { return t->text.size() >= 3 || t->value > 31; };
  if (monthName) {
    month = monthName;
    if (nums.size() == 2) {
      if (isYear(nums[0]) && !isYear(nums[1])) {
        year = nums[0]->value;
        day = nums[1]->value;
        if (nums[0]->text.size() <= 2) year = ExpandYear(year);
      } else {
        day = nums[0]->value;
        year = nums[1]->text.size() <= 2 ? ExpandYear(nums[1]->value) : nums[1]->value;
      }
    } else if (nums.size() == 1) {
      if (isYear(nums[0])) {
        year = nums[0]->text.size() <= 2 ? ExpandYear(nums[0]->value) : nums[0]->value;
        day = 1;
      } else {
        day = nums[0]->value;
        year = Split(Now()).year;
      }
    } else {
      return std::nullopt;
    }
  } else if (nums.size() == 3) {
    if (isYear(nums[0])) {  // year first: y-m-d
      year = nums[0]->text.size() <= 2 ? ExpandYear(nums[0]->value) : nums[0]->value;
      month = nums[1]->value;
      day = nums[2]->value;
    } else {  // m/d/y, or d/m/y when the first cannot be a month
      month = nums[0]->value;
      day = nums[1]->value;
      if (month > 12 && day <= 12) std::swap(month, day);
      year = nums[2]->text.size() <= 2 ? ExpandYear(nums[2]->value) : nums[2]->value;
    }
  } else if (nums.size() == 2) {
    if (isYear(nums[1])) {  // m/y
      month = nums[0]->value;
      day = 1;
      year = nums[1]->text.size() <= 2 ? ExpandYear(nums[1]->value) : nums[1]->value;
    } else if (isYear(nums[0])) {  // y/m
      year = nums[0]->text.size() <= 2 ? ExpandYear(nums[0]->value) : nums[0]->value;
      month = nums[1]->value;
      day = 1;
    } else {  // m/d in the current year
      month = nums[0]->value;
      day = nums[1]->value;
      if (month > 12 && day <= 12) std::swap(month, day);
      year = Split(Now()).year;
    }
  } else if (nums.size() == 1) {
    return std::nullopt;  // a lone number is no date
  }

  int64_t days = 0;
  if (haveDate) {
    if (year < 100 || year > 9999 || month < 1 || month > 12 || day < 1 || day > DaysInMonth(year, month)) {
      return std::nullopt;
    }
    days = DaysFromCivil(year, month, day);
  }
  return Combine(days, TimeFraction(hour, minute, second));
}

std::string DateTime::FormatDate(double serial) {
  DateParts p = Split(serial);
  return fmt::format("{}/{}/{}", p.month, p.day, p.year);
}

std::string DateTime::FormatTime(double serial) {
  DateParts p = Split(serial);
  int h12 = p.hour % 12 == 0 ? 12 : p.hour % 12;
  return fmt::format("{}:{:02}:{:02} {}", h12, p.minute, p.second, p.hour < 12 ? "AM" : "PM");
}

std::string DateTime::Format(double serial) {
  int64_t days, ms;
  SplitMs(serial, 1000, days, ms);
  if (days == 0) return FormatTime(serial);
  if (ms == 0) return FormatDate(serial);
  return FormatDate(serial) + " " + FormatTime(serial);
}

double DateTime::FromTimePoint(std::chrono::system_clock::time_point t, bool local) noexcept {
  using namespace std::chrono;
  auto ms = duration_cast<milliseconds>(t.time_since_epoch()).count();
  int64_t secs = ms >= 0 ? ms / 1000 : (ms - 999) / 1000;
  int64_t msPart = ms - secs * 1000;
  std::time_t tt = static_cast<std::time_t>(secs);
  std::tm tm{};
  if (local) {
    localtime_r(&tt, &tm);
  } else {
    gmtime_r(&tt, &tm);
  }
  int64_t days = DaysFromCivil(tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday);
  return Combine(days, TimeFraction(tm.tm_hour, tm.tm_min, tm.tm_sec, msPart));
}

}  // namespace tessel
