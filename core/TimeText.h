// TimeText: the time stamps the system writes into documents, logs and the
// job database: "hh:mm:ss:mmm" (24-hour, local time, three-digit
// milliseconds), "yyyy-mm-dd", and the two joined by a blank.
//
// Stateless; every function reads the clock only when no time is given.
#pragma once

#include <chrono>
#include <string>

namespace tessel {

class TimeText {
 public:
  using Clock = std::chrono::system_clock;

  // "13:05:09:042"
  static std::string Time(Clock::time_point t = Clock::now());
  // "2024-02-28"
  static std::string Date(Clock::time_point t = Clock::now());
  // "2024-02-28 13:05:09:042", date and time of one reading of the clock.
  static std::string DateAndTime(Clock::time_point t = Clock::now());

  // The same texts for a date serial (see DateTime), milliseconds rounded.
  static std::string TimeOfSerial(double serial);
  static std::string DateOfSerial(double serial);
};

}  // namespace tessel
