#include <cmath>
#include <limits>
#include <random>

#include "scripting/vbs/Dictionary.h"
#include "scripting/vbs/FormatValue.h"
#include "scripting/vbs/RegExp.h"
#include "tests/vbs_builtins/BuiltinCall.h"

namespace tessel::vbs::testing {
namespace {

// Every built-in of the table.
constexpr std::string_view kNames[] = {"Abs",
                                       "Array",
                                       "Asc",
                                       "AscB",
                                       "AscW",
                                       "Atn",
                                       "CBool",
                                       "CByte",
                                       "CCur",
                                       "CDate",
                                       "CDbl",
                                       "Chr",
                                       "ChrB",
                                       "ChrW",
                                       "CInt",
                                       "CLng",
                                       "Cos",
                                       "CSng",
                                       "CStr",
                                       "Date",
                                       "DateAdd",
                                       "DateDiff",
                                       "DatePart",
                                       "DateSerial",
                                       "DateValue",
                                       "Day",
                                       "Escape",
                                       "Exp",
                                       "Filter",
                                       "Fix",
                                       "FormatCurrency",
                                       "FormatDateTime",
                                       "FormatNumber",
                                       "FormatPercent",
                                       "GetLocale",
                                       "Hex",
                                       "Hour",
                                       "InStr",
                                       "InStrB",
                                       "InStrRev",
                                       "Int",
                                       "IsArray",
                                       "IsDate",
                                       "IsEmpty",
                                       "IsNull",
                                       "IsNumeric",
                                       "IsObject",
                                       "Join",
                                       "LBound",
                                       "LCase",
                                       "Left",
                                       "LeftB",
                                       "Len",
                                       "LenB",
                                       "Log",
                                       "LTrim",
                                       "Mid",
                                       "MidB",
                                       "Minute",
                                       "Month",
                                       "MonthName",
                                       "Now",
                                       "Oct",
                                       "Randomize",
                                       "Replace",
                                       "RGB",
                                       "Right",
                                       "RightB",
                                       "Rnd",
                                       "Round",
                                       "RTrim",
                                       "ScriptEngine",
                                       "ScriptEngineBuildVersion",
                                       "ScriptEngineMajorVersion",
                                       "ScriptEngineMinorVersion",
                                       "Second",
                                       "SetLocale",
                                       "Sgn",
                                       "Sin",
                                       "Space",
                                       "Split",
                                       "Sqr",
                                       "StrComp",
                                       "String",
                                       "StrReverse",
                                       "Tan",
                                       "Time",
                                       "Timer",
                                       "TimeSerial",
                                       "TimeValue",
                                       "Trim",
                                       "TypeName",
                                       "UBound",
                                       "UCase",
                                       "Unescape",
                                       "VarType",
                                       "Weekday",
                                       "WeekdayName",
                                       "Year"};

// Awkward argument values: every subtype, the edges of the numeric ranges,
// text that is and is not a number or a date, objects and arrays.
std::vector<Variant> OddValues() {
  Decimal big;
  Decimal::Parse("79228162514264337593543950335", big);
  return {Variant(),
          Variant::Null(),
          Variant::Missing(),
          Variant::Nothing(),
          Str(""),
          Str("x"),
          Str("12.5"),
          Str("2024-02-28 13:00"),
          Str("\xF0\x9F\x98\x80\xC3\xA9"),
          Str(std::string("\xFF\xFE\xED\xA0\x80", 5)),
          Str("d"),
          Str("ww"),
          Int16(-32768),
          Variant(int32_t{-1}),
          Variant(int32_t{0}),
          Variant(int32_t{1}),
          Variant(int32_t{7}),
          Variant(std::numeric_limits<int32_t>::max()),
          Variant(std::numeric_limits<int32_t>::min()),
          Variant(1e9),
          Variant(-1e300),
          Variant(1e300),
          Variant(0.5),
          Variant(std::numeric_limits<double>::quiet_NaN()),
          Variant(std::numeric_limits<double>::infinity()),
          Variant::FromSingle(-2.5f),
          Variant::FromCurrency(Currency::FromRaw(std::numeric_limits<int64_t>::min())),
          Variant::FromDecimal(big),
          Variant::FromDate(-657434.5),
          Variant::FromDate(2958465.99),
          Variant::FromByte(255),
          Variant(true),
          Variant::FromError(5),
          Call("Array", {Str("a"), Variant(1)}),
          Call("Split", {Str("")}),
          Variant(CreateDictionary()),
          Variant(CreateRegExp())};
}

// Every call either returns or raises a numbered Error; nothing else escapes
// and nothing crashes or hangs.
TEST(BuiltinRobustness, OddArgumentsRaiseNumberedErrors) {
  std::vector<Variant> pool = OddValues();
  std::mt19937 random(20240228);
  BuiltinContext context;
  for (std::string_view name : kNames) {
    const BuiltinFunction* f = FindBuiltinFunction(name);
    ASSERT_NE(f, nullptr) << name;
    int maxArgs = std::min<int>(f->maxArgs, 6);
    for (int trial = 0; trial < 400; ++trial) {
      int argc =
          f->minArgs + static_cast<int>(random() % static_cast<unsigned>(maxArgs - f->minArgs + 1));
      std::vector<Variant> args;
      for (int i = 0; i < argc; ++i) args.push_back(pool[random() % pool.size()]);
      try {
        Variant r = f->call(context, args.data(), argc);
        (void)r;
      } catch (const Error& e) {
        EXPECT_NE(e.number(), 0) << Describe(name, args);
      } catch (const std::exception& e) {
        ADD_FAILURE() << Describe(name, args) << " threw " << e.what();
      }
    }
  }
}

TEST(BuiltinRobustness, ValuesOutsideTheirRangesRaise) {
  double nan = std::numeric_limits<double>::quiet_NaN();
  Variant minCurrency =
      Variant::FromCurrency(Currency::FromRaw(std::numeric_limits<int64_t>::min()));
  RunErrorCases({
      {"Int", {minCurrency}, 6},
      {"Year", {Variant::FromDate(1e300)}, 5},
      {"Weekday", {Variant::FromDate(nan)}, 5},
      {"DateAdd", {Str("d"), Variant(nan), Date(2024, 1, 1)}, 5},
      {"DateAdd", {Str("s"), Variant(1e300), Date(2024, 1, 1)}, 5},
      {"DateAdd", {Str("m"), Variant(1e300), Date(2024, 1, 1)}, 5},
      {"FormatDateTime", {Variant::FromDate(-1e9)}, 5},
  });
}

TEST(BuiltinRobustness, FormatValueSurvivesOddPatterns) {
  std::vector<Variant> pool = OddValues();
  const std::string_view patterns[] = {"",
                                       "0",
                                       "#,##0.00;(#,##0.00);\"zero\";\"null\"",
                                       "0.00E+00",
                                       "E+",
                                       "\"",
                                       "\\",
                                       ";;;;",
                                       "%%%",
                                       "yyyy-mm-dd hh:nn:ss AM/PM",
                                       "@@@!",
                                       "0.0#E-##",
                                       ",,,,",
                                       "#,##0,,",
                                       "ddddddd",
                                       "Percent",
                                       "General Date",
                                       "Scientific",
                                       "0000000000000000000000000.000"};
  for (const Variant& v : pool) {
    for (std::string_view p : patterns) {
      try {
        Variant r = FormatValue(v, p);
        (void)r;
      } catch (const Error& e) {
        EXPECT_NE(e.number(), 0);
      } catch (const std::exception& e) {
        ADD_FAILURE() << "Format(" << p << ") threw " << e.what();
      }
    }
  }
}

}  // namespace
}  // namespace tessel::vbs::testing
