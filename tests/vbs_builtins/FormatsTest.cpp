#include "scripting/vbs/FormatValue.h"
#include "tests/vbs_builtins/BuiltinCall.h"

namespace tessel::vbs::testing {
namespace {

Variant L(int32_t v) { return Variant(v); }
const Variant kMissing = Variant::Missing();

TEST(BuiltinFormats, FormatNumberCurrencyPercent) {
  RunCases({
      {"FormatNumber", {Variant(1234.5)}, Str("1,234.50")},
      {"FormatNumber", {Variant(-1234.567), L(2)}, Str("-1,234.57")},
      {"FormatNumber", {Variant(1234567.0), L(0)}, Str("1,234,567")},
      {"FormatNumber", {Variant(1234567.0), L(0), kMissing, kMissing, L(0)}, Str("1234567")},
      {"FormatNumber", {Variant(0.25), L(2), L(0)}, Str(".25")},
      {"FormatNumber", {Variant(0.25), L(2), L(-1)}, Str("0.25")},
      {"FormatNumber", {Variant(-5), L(1), kMissing, L(-1)}, Str("(5.0)")},
      {"FormatNumber", {Variant(1.005), L(2)}, Str("1.01")},
      {"FormatNumber", {Variant(-0.001), L(2)}, Str("0.00")},
      {"FormatNumber", {Str("12.5")}, Str("12.50")},
      {"FormatNumber", {Variant()}, Str("0.00")},
      {"FormatNumber", {Variant(true)}, Str("-1.00")},
      {"FormatNumber", {Variant::FromCurrency(Currency::FromRaw(123456789))}, Str("12,345.68")},
      {"FormatNumber", {Variant(1e20), L(0)}, Str("100,000,000,000,000,000,000")},
      {"FormatCurrency", {Variant(1234.5)}, Str("$1,234.50")},
      {"FormatCurrency", {Variant(-3)}, Str("($3.00)")},
      {"FormatCurrency", {Variant(-3), L(0), kMissing, L(0)}, Str("-$3")},
      {"FormatPercent", {Variant(0.256)}, Str("25.60%")},
      {"FormatPercent", {Variant(-0.5), L(0)}, Str("-50%")},
      {"FormatPercent", {Variant(12.3456), L(1)}, Str("1,234.6%")},
  });
  RunErrorCases({
      {"FormatNumber", {Str("abc")}, 13},
      {"FormatNumber", {Variant(1.0), L(-3)}, 5},
      {"FormatCurrency", {Variant::Null()}, 13},
  });
}

TEST(BuiltinFormats, FormatDateTimeNamedFormats) {
  Variant t = Date(2024, 2, 28, 13, 2, 3);
  RunCases({
      {"FormatDateTime", {t}, Str("2/28/2024 1:02:03 PM")},
      {"FormatDateTime", {Date(2024, 2, 28)}, Str("2/28/2024")},
      {"FormatDateTime", {Variant::FromDate(0.5)}, Str("12:00:00 PM")},
      {"FormatDateTime", {t, L(1)}, Str("Wednesday, February 28, 2024")},
      {"FormatDateTime", {t, L(2)}, Str("2/28/2024")},
      {"FormatDateTime", {t, L(3)}, Str("1:02:03 PM")},
      {"FormatDateTime", {t, L(4)}, Str("13:02")},
      {"FormatDateTime", {Str("2024-02-28 00:05"), L(3)}, Str("12:05:00 AM")},
  });
  RunErrorCases({
      {"FormatDateTime", {t, L(5)}, 5},
      {"FormatDateTime", {Str("nope")}, 13},
  });
}

struct FormatCase {
  Variant value;
  std::string_view pattern;
  std::string_view expected;
};

void RunFormatCases(const std::vector<FormatCase>& cases) {
  for (const FormatCase& c : cases) {
    try {
      Variant r = FormatValue(c.value, c.pattern);
      ASSERT_TRUE(r.IsString()) << c.pattern;
      EXPECT_EQ(r.StringValue(), c.expected)
          << "Format(" << c.value.ToString() << ", \"" << c.pattern << "\")";
    } catch (const Error& e) {
      ADD_FAILURE() << "Format(" << c.pattern << ") raised " << e.number();
    }
  }
}

TEST(FormatValue, NamedNumberFormats) {
  RunFormatCases({
      {Variant(0.256), "Percent", "25.60%"},
      {Variant(1234.5), "Currency", "$1,234.50"},
      {Variant(-1234.5), "currency", "($1,234.50)"},
      {Variant(1234.5), "Fixed", "1234.50"},
      {Variant(0.5), "Fixed", "0.50"},
      {Variant(1234.5), "Standard", "1,234.50"},
      {Variant(1234.5), "General Number", "1234.5"},
      {Str("12"), "General Number", "12"},
      {Variant(12345.678), "Scientific", "1.23E+04"},
      {Variant(0.000123), "Scientific", "1.23E-04"},
      {Variant(0.0), "Yes/No", "No"},
      {Variant(5), "Yes/No", "Yes"},
      {Variant(-1), "True/False", "True"},
      {Variant(0), "On/Off", "Off"},
      {Str("abc"), "Standard", "abc"},
  });
}

TEST(FormatValue, NamedDateFormats) {
  Variant t = Date(2024, 2, 28, 13, 2, 3);
  RunFormatCases({
      {t, "General Date", "2/28/2024 1:02:03 PM"},
      {t, "Long Date", "Wednesday, February 28, 2024"},
      {t, "Medium Date", "28-Feb-24"},
      {t, "Short Date", "2/28/2024"},
      {t, "Long Time", "1:02:03 PM"},
      {t, "Medium Time", "01:02 PM"},
      {t, "Short Time", "13:02"},
      {Str("2024-02-28"), "Short Date", "2/28/2024"},
  });
}

TEST(FormatValue, UserNumberPatterns) {
  RunFormatCases({
      {Variant(1234.5), "0.00", "1234.50"},
      {Variant(1234567.891), "#,##0.00", "1,234,567.89"},
      {Variant(1234567), "#,##0", "1,234,567"},
      {Variant(12), "#,##0", "12"},
      {Variant(0), "#,##0", "0"},
      {Variant(5), "000", "005"},
      {Variant(0.5), "#.##", ".5"},
      {Variant(5), "#.##", "5."},
      {Variant(0.5), "0.0#", "0.5"},
      {Variant(0.456), "0.0#", "0.46"},
      {Variant(2.5), "0", "3"},
      {Variant(-2.5), "0", "-3"},
      {Variant(-5), "0;(0)", "(5)"},
      {Variant(-5), "0;", "-5"},
      {Variant(0), "0;-0;\"zero\"", "zero"},
      {Variant(0.256), "0.0%", "25.6%"},
      {Variant(1234.5), "0.0E+00", "1.2E+03"},
      {Variant(0.001234), "0.00E-00", "1.23E-03"},
      {Variant(1234.5), "0.00e+0", "1.23e+3"},
      {Variant(1234.5), "$#,##0.00", "$1,234.50"},
      {Variant(5551234567.0), "(###) ###-####", "(555) 123-4567"},
      {Variant(42), "\"No. \"0", "No. 42"},
      {Variant(42), "\\#0", "#42"},
      {Variant(1234567), "#,##0,", "1,235"},
      {Variant(123456789), "#,##0,,\"M\"", "123M"},
      {Variant(-1234.5), "#,##0.00", "-1,234.50"},
      {Variant(0), "#", ""},
      {Variant(1.5), "00.00", "01.50"},
      {Variant(99.999), "0.00", "100.00"},
      {Str("12"), "&&&-&&&&", "-12"},
      {Variant(-0.001), "0.00", "0.00"},
      {Str("12.5"), "0.00", "12.50"},
      {Str("abc"), "0.00", "abc"},
      {Variant::FromCurrency(Currency::FromRaw(123456789)), "#,##0.0000", "12,345.6789"},
      {Date(2000, 1, 1), "0", "36526"},
  });
  EXPECT_TRUE(FormatValue(Variant::Null(), "0.00").IsNull());
  EXPECT_EQ(FormatValue(Variant::Null(), "0;-0;0;\"none\"").StringValue(), "none");
}

TEST(FormatValue, UserDatePatterns) {
  Variant t = Date(2024, 2, 28, 13, 2, 3);
  RunFormatCases({
      {Date(2024, 2, 28), "yyyy-mm-dd", "2024-02-28"},
      {t, "yyyy-mm-dd hh:nn:ss", "2024-02-28 13:02:03"},
      {t, "hh:mm:ss", "13:02:03"},
      {t, "m/d/yy", "2/28/24"},
      {t, "mmm d, yyyy", "Feb 28, 2024"},
      {t, "dddd, mmmm d", "Wednesday, February 28"},
      {t, "ddd dd", "Wed 28"},
      {t, "h:nn AM/PM", "1:02 PM"},
      {t, "h:nn am/pm", "1:02 pm"},
      {t, "h:nn A/P", "1:02 P"},
      {Date(2024, 2, 28, 0, 5), "h:nn AM/PM", "12:05 AM"},
      {t, "\"Day\" y", "Day 59"},
      {t, "q", "1"},
      {t, "ww", "9"},
      {t, "dd\\/mm", "28/02"},
      {t, "c", "2/28/2024 1:02:03 PM"},
      {t, "ddddd", "2/28/2024"},
      {Str("2024-02-28"), "dd.mm.yyyy", "28.02.2024"},
      {Variant(45350), "yyyy-mm-dd", "2024-02-28"},
      {Str("hello"), "yyyy", "hello"},
  });
}

TEST(FormatValue, TextPatternsAndEmptyPattern) {
  RunFormatCases({
      {Str("abc"), "@@@@@", "  abc"},
      {Str("abc"), "!@@@@@", "abc  "},
      {Str("abcdef"), "@@@", "abcdef"},
      {Str("abc"), ">", "ABC"},
      {Str("ABC"), "<", "abc"},
      {Str("5551234"), "@@@-@@@@", "555-1234"},
      {Variant(1.5), "", "1.5"},
      {Variant(true), "", "True"},
  });
  EXPECT_TRUE(FormatValue(Variant::Null(), "").IsNull());
}

}  // namespace
}  // namespace tessel::vbs::testing
