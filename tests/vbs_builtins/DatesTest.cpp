#include <cmath>

#include "tests/vbs_builtins/BuiltinCall.h"

namespace tessel::vbs::testing {
namespace {

Variant L(int32_t v) { return Variant(v); }

TEST(BuiltinDates, DateAddCorners) {
  RunCases({
      {"DateAdd", {Str("m"), L(1), Date(2024, 1, 31)}, Date(2024, 2, 29)},
      {"DateAdd", {Str("m"), L(1), Date(2023, 1, 31)}, Date(2023, 2, 28)},
      {"DateAdd", {Str("M"), L(-1), Date(2024, 3, 31)}, Date(2024, 2, 29)},
      {"DateAdd", {Str("yyyy"), L(1), Date(2024, 2, 29)}, Date(2025, 2, 28)},
      {"DateAdd", {Str("q"), L(1), Date(2024, 11, 30)}, Date(2025, 2, 28)},
      {"DateAdd", {Str("d"), L(1), Date(2024, 2, 28)}, Date(2024, 2, 29)},
      {"DateAdd", {Str("y"), L(-1), Date(2024, 3, 1)}, Date(2024, 2, 29)},
      {"DateAdd", {Str("w"), L(3), Date(2024, 2, 28)}, Date(2024, 3, 2)},
      {"DateAdd", {Str("ww"), L(1), Date(2024, 12, 28)}, Date(2025, 1, 4)},
      {"DateAdd", {Str("h"), L(25), Date(2024, 1, 1)}, Date(2024, 1, 2, 1)},
      {"DateAdd", {Str("n"), L(-1), Date(2024, 1, 1)}, Date(2023, 12, 31, 23, 59)},
      {"DateAdd", {Str("s"), L(90), Date(2024, 1, 1, 10)}, Date(2024, 1, 1, 10, 1, 30)},
      {"DateAdd", {Str("m"), L(1), Date(2024, 1, 31, 13, 30)}, Date(2024, 2, 29, 13, 30)},
      {"DateAdd", {Str("d"), L(1), Str("2024-02-28")}, Date(2024, 2, 29)},
      {"DateAdd", {Str("d"), L(1), Variant::Null()}, Variant::Null()},
      // Before the epoch the time still counts forward from midnight.
      {"DateAdd", {Str("h"), L(6), Date(1899, 12, 29)}, Date(1899, 12, 29, 6)},
  });
  RunErrorCases({
      {"DateAdd", {Str("x"), L(1), Date(2024, 1, 1)}, 5},
      {"DateAdd", {Str("yyyy"), L(9000), Date(2024, 1, 1)}, 5},
      {"DateAdd", {Str("d"), Str("x"), Date(2024, 1, 1)}, 13},
  });
}

TEST(BuiltinDates, DateDiffIntervals) {
  RunCases({
      {"DateDiff", {Str("d"), Date(2024, 1, 1), Date(2024, 3, 1)}, L(60)},
      {"DateDiff", {Str("d"), Date(2024, 3, 1), Date(2024, 1, 1)}, L(-60)},
      {"DateDiff", {Str("d"), Date(2024, 1, 1, 23), Date(2024, 1, 2, 1)}, L(1)},
      {"DateDiff", {Str("m"), Date(2024, 1, 31), Date(2024, 2, 1)}, L(1)},
      {"DateDiff", {Str("yyyy"), Date(2023, 12, 31), Date(2024, 1, 1)}, L(1)},
      {"DateDiff", {Str("q"), Date(2024, 3, 31), Date(2024, 4, 1)}, L(1)},
      {"DateDiff", {Str("h"), Date(2024, 1, 1, 10, 59), Date(2024, 1, 1, 11, 0)}, L(1)},
      {"DateDiff", {Str("n"), Date(2024, 1, 1, 10, 0, 59), Date(2024, 1, 1, 10, 1, 0)}, L(1)},
      {"DateDiff", {Str("s"), Date(2024, 1, 1), Date(2024, 1, 2)}, L(86400)},
      // Saturday to Sunday crosses a week boundary but is no whole week.
      {"DateDiff", {Str("ww"), Date(2024, 1, 6), Date(2024, 1, 7)}, L(1)},
      {"DateDiff", {Str("w"), Date(2024, 1, 6), Date(2024, 1, 7)}, L(0)},
      {"DateDiff", {Str("w"), Date(2024, 1, 1), Date(2024, 1, 15)}, L(2)},
      // With Monday as the first day, Sunday to Monday is the boundary.
      {"DateDiff", {Str("ww"), Date(2024, 1, 6), Date(2024, 1, 7), L(2)}, L(0)},
      {"DateDiff", {Str("ww"), Date(2024, 1, 7), Date(2024, 1, 8), L(2)}, L(1)},
      {"DateDiff", {Str("ww"), Date(2024, 1, 20), Date(2024, 1, 1)}, L(-2)},
      {"DateDiff", {Str("d"), Variant::Null(), Date(2024, 1, 1)}, Variant::Null()},
  });
  RunErrorCases({
      {"DateDiff", {Str("z"), Date(2024, 1, 1), Date(2024, 1, 2)}, 5},
      {"DateDiff", {Str("ww"), Date(2024, 1, 1), Date(2024, 1, 2), L(8)}, 5},
      {"DateDiff", {Str("d"), Str("junk"), Date(2024, 1, 2)}, 13},
  });
}

TEST(BuiltinDates, DatePartAndFields) {
  Variant t = Date(2024, 2, 28, 13, 2, 3);
  RunCases({
      {"DatePart", {Str("yyyy"), t}, Int16(2024)},
      {"DatePart", {Str("q"), Date(2024, 5, 1)}, Int16(2)},
      {"DatePart", {Str("y"), Date(2024, 3, 1)}, Int16(61)},
      {"DatePart", {Str("w"), t}, Int16(4)},
      {"DatePart", {Str("w"), t, L(2)}, Int16(3)},
      {"DatePart", {Str("ww"), Date(2024, 1, 1)}, Int16(1)},
      {"DatePart", {Str("ww"), Date(2024, 1, 7)}, Int16(2)},
      {"DatePart", {Str("ww"), Date(2024, 12, 31)}, Int16(53)},
      // 1 January 2021 was a Friday: with the first four-day week it is
      // still week 53 of 2020, with the first full week week 52.
      {"DatePart", {Str("ww"), Date(2021, 1, 1), L(2), L(2)}, Int16(53)},
      {"DatePart", {Str("ww"), Date(2021, 1, 4), L(2), L(2)}, Int16(1)},
      {"DatePart", {Str("ww"), Date(2021, 1, 1), L(2), L(3)}, Int16(52)},
      {"DatePart", {Str("h"), t}, Int16(13)},
      {"DatePart", {Str("n"), t}, Int16(2)},
      {"DatePart", {Str("s"), t}, Int16(3)},
      {"Year", {t}, Int16(2024)},
      {"Month", {t}, Int16(2)},
      {"Day", {t}, Int16(28)},
      {"Hour", {t}, Int16(13)},
      {"Minute", {t}, Int16(2)},
      {"Second", {t}, Int16(3)},
      {"Year", {Variant::Null()}, Variant::Null()},
      {"Day", {Str("2024-02-28")}, Int16(28)},
      {"Weekday", {t}, Int16(4)},
      {"Weekday", {t, L(2)}, Int16(3)},
      {"Weekday", {t, L(0)}, Int16(4)},
      {"WeekdayName", {L(1)}, Str("Sunday")},
      {"WeekdayName", {L(1), Variant(true), L(2)}, Str("Mon")},
      {"WeekdayName", {L(7), Variant(false)}, Str("Saturday")},
      {"MonthName", {L(2)}, Str("February")},
      {"MonthName", {L(12), Variant(true)}, Str("Dec")},
  });
  RunErrorCases({
      {"MonthName", {L(13)}, 5},
      {"WeekdayName", {L(0)}, 5},
      {"Weekday", {t, L(9)}, 5},
      {"Year", {Str("x")}, 13},
  });
}

TEST(BuiltinDates, SerialsAndValues) {
  RunCases({
      {"DateSerial", {L(2024), L(2), L(28)}, Date(2024, 2, 28)},
      {"DateSerial", {L(2024), L(14), L(1)}, Date(2025, 2, 1)},
      {"DateSerial", {L(2024), L(3), L(0)}, Date(2024, 2, 29)},
      {"DateSerial", {L(2024), L(1), L(-1)}, Date(2023, 12, 30)},
      {"DateSerial", {L(2024), L(0), L(1)}, Date(2023, 12, 1)},
      {"DateSerial", {L(2024), L(-13), L(1)}, Date(2022, 11, 1)},
      {"DateSerial", {L(24), L(1), L(1)}, Date(2024, 1, 1)},
      {"DateSerial", {L(99), L(1), L(1)}, Date(1999, 1, 1)},
      {"DateSerial", {L(1899), L(12), L(29)}, Date(1899, 12, 29)},
      {"TimeSerial", {L(12), L(30), L(0)}, Variant::FromDate(0.5 + 30.0 / 1440)},
      {"TimeSerial", {L(25), L(0), L(0)}, Date(1899, 12, 31, 1)},
      {"TimeSerial", {L(0), L(90), L(0)}, Variant::FromDate(1.5 / 24)},
      {"TimeSerial", {L(12 - 6), L(-15), L(0)}, Variant::FromDate(5.75 / 24)},
      {"DateValue", {Date(2024, 2, 28, 13)}, Date(2024, 2, 28)},
      {"DateValue", {Str("2024-02-28 10:00")}, Date(2024, 2, 28)},
      {"TimeValue", {Date(2024, 2, 28, 12)}, Variant::FromDate(0.5)},
      {"TimeValue", {Str("6:00 PM")}, Variant::FromDate(0.75)},
      {"DateValue", {Variant::Null()}, Variant::Null()},
  });
  RunErrorCases({
      {"DateSerial", {L(10000), L(1), L(1)}, 5},
      {"DateSerial", {L(40000), L(1), L(1)}, 6},
      {"DateSerial", {L(2024), Str("x"), L(1)}, 13},
      {"DateValue", {Str("x")}, 13},
  });
}

TEST(BuiltinDates, ClockFunctionsReadTheContextClock) {
  BuiltinContext context;
  // 28 February 2024, one second before midnight and a little: every clock
  // function must see the same day.
  double lateEvening = Date(2024, 2, 28).DateValue() + (86399.6 / 86400.0);
  context.SetClock([lateEvening] { return lateEvening; });
  ExpectValue(Call(context, "Date", {}), Date(2024, 2, 28), "Date");
  ExpectValue(Call(context, "Now", {}), Date(2024, 2, 28, 23, 59, 59), "Now");
  ExpectValue(Call(context, "Time", {}), Variant::FromDate(86399.0 / 86400.0), "Time");
  EXPECT_NEAR(Call(context, "Timer", {}).SingleValue(), 86399.6f, 0.01f);
  // Randomize without a number seeds from the clock: the same clock, the
  // same sequence.
  BuiltinContext other;
  other.SetClock([lateEvening] { return lateEvening; });
  Call(context, "Randomize", {});
  Call(other, "Randomize", {});
  EXPECT_EQ(Call(context, "Rnd", {}).SingleValue(), Call(other, "Rnd", {}).SingleValue());
}

TEST(BuiltinDates, ClockFunctionsAgree) {
  Variant now = Call("Now", {});
  Variant today = Call("Date", {});
  Variant time = Call("Time", {});
  Variant timer = Call("Timer", {});
  EXPECT_EQ(now.Type(), VarType::Date);
  EXPECT_EQ(today.Type(), VarType::Date);
  EXPECT_EQ(timer.Type(), VarType::Single);
  EXPECT_EQ(today.DateValue(), std::floor(today.DateValue()));
  EXPECT_GE(time.DateValue(), 0.0);
  EXPECT_LT(time.DateValue(), 1.0);
  // Now lies on today (allowing for a midnight between the calls).
  EXPECT_LE(std::fabs(std::floor(now.DateValue()) - today.DateValue()), 1.0);
  EXPECT_GE(timer.SingleValue(), 0.0f);
  EXPECT_LT(timer.SingleValue(), 86400.0f);
}

}  // namespace
}  // namespace tessel::vbs::testing
