#include <gtest/gtest.h>

#include <cmath>

#include "core/DateTime.h"
#include "core/TimeText.h"

namespace tessel {
namespace {

double Serial(int y, int m, int d, int h = 0, int mi = 0, int s = 0) {
  auto v = DateTime::FromParts({y, m, d, h, mi, s, 0});
  EXPECT_TRUE(v.has_value());
  return v.value_or(0);
}

double ParseOr(std::string_view text, double fallback = -1e9) { return DateTime::Parse(text).value_or(fallback); }

TEST(DateTime, SerialsOfKnownDates) {
  EXPECT_EQ(Serial(1899, 12, 30), 0);
  EXPECT_EQ(Serial(1900, 1, 1), 2);
  EXPECT_EQ(Serial(2024, 2, 28), 45350);
  EXPECT_EQ(Serial(100, 1, 1), DateTime::kMinSerial);
  EXPECT_EQ(Serial(9999, 12, 31), 2958465);
  EXPECT_DOUBLE_EQ(Serial(2024, 2, 28, 12), 45350.5);
  EXPECT_DOUBLE_EQ(Serial(1899, 12, 29, 6), -1.25);
  EXPECT_FALSE(DateTime::FromParts({2023, 2, 29, 0, 0, 0, 0}));
  EXPECT_FALSE(DateTime::FromParts({99, 12, 31, 0, 0, 0, 0}));
  EXPECT_FALSE(DateTime::FromParts({2024, 1, 1, 24, 0, 0, 0}));
  EXPECT_EQ(DateTime::DaysFromCivil(2024, 14, 1), DateTime::DaysFromCivil(2025, 2, 1));
  EXPECT_EQ(DateTime::DaysFromCivil(2024, 3, 0), DateTime::DaysFromCivil(2024, 2, 29));
  EXPECT_EQ(DateTime::DaysFromCivil(2024, 0, 1), DateTime::DaysFromCivil(2023, 12, 1));
  EXPECT_EQ(DateTime::DaysFromCivil(2024, -11, 1), DateTime::DaysFromCivil(2023, 1, 1));
}

TEST(DateTime, SplitRoundTripsAndRounds) {
  for (double s : {-657434.0, -1.25, 0.0, 2.75, 45350.123456, 2958465.5}) {
    DateParts p = DateTime::Split(s);
    auto back = DateTime::FromParts(p);
    ASSERT_TRUE(back) << s;
    EXPECT_NEAR(*back, s, 1.0 / 86400) << s;
  }
  DateParts p = DateTime::Split(Serial(2024, 2, 28, 23, 59, 59) + 0.9 / 86400);
  EXPECT_EQ(p.day, 29);  // 23:59:59.9 rounds to the next day
  EXPECT_EQ(p.hour, 0);
  DateParts ms = DateTime::Split(Serial(2024, 2, 28, 1, 2, 3) + 0.042 / 86400, false);
  EXPECT_EQ(ms.second, 3);
  EXPECT_EQ(ms.millisecond, 42);
  EXPECT_EQ(DateTime::Weekday(Serial(2024, 2, 28)), 4);  // Wednesday
  EXPECT_EQ(DateTime::Weekday(0), 7);
  EXPECT_EQ(DateTime::Weekday(-1), 6);
  EXPECT_EQ(DateTime::WeekdayName(DateTime::Weekday(Serial(2024, 2, 28))), "Wednesday");
  EXPECT_EQ(DateTime::MonthName(2, true), "Feb");
  EXPECT_EQ(DateTime::MonthName(13), "");
}

TEST(DateTime, ParsesUsDateForms) {
  const double feb28 = 45350;
  for (const char* text : {"2024-02-28", "2/28/2024", "02/28/2024", "28-Feb-2024", "February 28, 2024",
                           "Feb 28 2024", "28 February 2024", "2024/2/28", "2/28/24", "Wednesday, February 28, 2024",
                           "  2/28/2024  ", "28/2/2024", "2.28.2024"}) {
    EXPECT_DOUBLE_EQ(ParseOr(text), feb28) << text;
  }
  EXPECT_DOUBLE_EQ(ParseOr("1/1/30"), Serial(1930, 1, 1));
  EXPECT_DOUBLE_EQ(ParseOr("1/1/29"), Serial(2029, 1, 1));
  EXPECT_DOUBLE_EQ(ParseOr("March 2024"), Serial(2024, 3, 1));
}

TEST(DateTime, ParsesTimesAloneAndWithDates) {
  EXPECT_DOUBLE_EQ(ParseOr("13:45"), DateTime::TimeFraction(13, 45, 0));
  EXPECT_DOUBLE_EQ(ParseOr("1:45 PM"), DateTime::TimeFraction(13, 45, 0));
  EXPECT_DOUBLE_EQ(ParseOr("12:05 am"), DateTime::TimeFraction(0, 5, 0));
  EXPECT_DOUBLE_EQ(ParseOr("12:00:00 PM"), 0.5);
  EXPECT_DOUBLE_EQ(ParseOr("3 PM"), DateTime::TimeFraction(15, 0, 0));
  EXPECT_DOUBLE_EQ(ParseOr("1:02:03PM"), DateTime::TimeFraction(13, 2, 3));
  EXPECT_DOUBLE_EQ(ParseOr("2024-02-28 13:45:10"), Serial(2024, 2, 28, 13, 45, 10));
  EXPECT_DOUBLE_EQ(ParseOr("2/28/2024 1:45 PM"), Serial(2024, 2, 28, 13, 45));
  EXPECT_DOUBLE_EQ(ParseOr("13:45 2/28/2024"), Serial(2024, 2, 28, 13, 45));
  EXPECT_DOUBLE_EQ(ParseOr("1/1/1899 1:00 AM"), Serial(1899, 1, 1, 1));
  EXPECT_DOUBLE_EQ(Serial(1899, 1, 1, 1), -363.0 - 1.0 / 24);
}

TEST(DateTime, RejectsWhatIsNoDate) {
  for (const char* text : {"", "   ", "hello", "5", "1.5", "2024-13-01", "2/30/2024", "25:00", "13:61", "13 PM",
                           "1/2/3/4", "2/28/2024 x", "12:30:", "1/1/10000", "99999/1/1", "2024-02-28T13:45",
                           "1:2:3:4"}) {
    EXPECT_FALSE(DateTime::Parse(text).has_value()) << text;
  }
}

TEST(DateTime, FormatAndParseRoundTrip) {
  for (double s : {45350.0, 45350.5, 0.25, -1.25, 2958465.0, 36526.99998842592}) {
    std::string text = DateTime::Format(s);
    auto back = DateTime::Parse(text);
    ASSERT_TRUE(back) << text;
    EXPECT_NEAR(*back, s, 1.0 / 86400) << text;
  }
  EXPECT_EQ(DateTime::FormatDate(45350.75), "2/28/2024");
  EXPECT_EQ(DateTime::FormatTime(45350.75), "6:00:00 PM");
  EXPECT_EQ(DateTime::FormatTime(0.5), "12:00:00 PM");
  EXPECT_EQ(DateTime::Format(DateTime::TimeFraction(0, 0, 1)), "12:00:01 AM");
}

TEST(TimeText, FormsOfAGivenTimePoint) {
  // Build a local time point so the test holds in any time zone.
  std::tm tm{};
  tm.tm_year = 2024 - 1900;
  tm.tm_mon = 1;
  tm.tm_mday = 28;
  tm.tm_hour = 13;
  tm.tm_min = 5;
  tm.tm_sec = 9;
  tm.tm_isdst = -1;
  auto t = std::chrono::system_clock::from_time_t(std::mktime(&tm)) + std::chrono::milliseconds(42);
  EXPECT_EQ(TimeText::Time(t), "13:05:09:042");
  EXPECT_EQ(TimeText::Date(t), "2024-02-28");
  EXPECT_EQ(TimeText::DateAndTime(t), "2024-02-28 13:05:09:042");
  double serial = DateTime::FromTimePoint(t);
  EXPECT_EQ(TimeText::TimeOfSerial(serial), "13:05:09:042");
  EXPECT_EQ(TimeText::DateOfSerial(serial), "2024-02-28");
  EXPECT_EQ(TimeText::TimeOfSerial(0.5), "12:00:00:000");
}

TEST(TimeText, CurrentClockHasTheFixedShape) {
  std::string now = TimeText::DateAndTime();
  ASSERT_EQ(now.size(), 23u);
  EXPECT_EQ(now[4], '-');
  EXPECT_EQ(now[10], ' ');
  EXPECT_EQ(now[13], ':');
  EXPECT_EQ(now[19], ':');
  EXPECT_EQ(TimeText::Time().size(), 12u);
  EXPECT_EQ(TimeText::Date().size(), 10u);
}

}  // namespace
}  // namespace tessel
