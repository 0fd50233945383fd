#include "core/TimeText.h"

#include <ctime>

#include <fmt/format.h>

#include "core/DateTime.h"

namespace tessel {

namespace {

struct LocalReading {
  std::tm tm{};
  int millisecond = 0;
};

LocalReading Read(TimeText::Clock::time_point t) {
  using namespace std::chrono;
  int64_t ms = duration_cast<milliseconds>(t.time_since_epoch()).count();
  int64_t secs = ms >= 0 ? ms / 1000 : (ms - 999) / 1000;
  LocalReading r;
  r.millisecond = static_cast<int>(ms - secs * 1000);
  std::time_t tt = static_cast<std::time_t>(secs);
  localtime_r(&tt, &r.tm);
  return r;
}

std::string FormatTime(const std::tm& tm, int ms) {
  return fmt::format("{:02}:{:02}:{:02}:{:03}", tm.tm_hour, tm.tm_min, tm.tm_sec, ms);
}

std::string FormatDate(const std::tm& tm) {
  return fmt::format("{:04}-{:02}-{:02}", tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday);
}

}  // namespace

std::string TimeText::Time(Clock::time_point t) {
  LocalReading r = Read(t);
  return FormatTime(r.tm, r.millisecond);
}

std::string TimeText::Date(Clock::time_point t) { return FormatDate(Read(t).tm); }

std::string TimeText::DateAndTime(Clock::time_point t) {
  LocalReading r = Read(t);
  return FormatDate(r.tm) + " " + FormatTime(r.tm, r.millisecond);
}

std::string TimeText::TimeOfSerial(double serial) {
  DateParts p = DateTime::Split(serial, false);
  return fmt::format("{:02}:{:02}:{:02}:{:03}", p.hour, p.minute, p.second, p.millisecond);
}

std::string TimeText::DateOfSerial(double serial) {
  DateParts p = DateTime::Split(serial, false);
  return fmt::format("{:04}-{:02}-{:02}", p.year, p.month, p.day);
}

}  // namespace tessel
