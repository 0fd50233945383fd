#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "core/DateTime.h"
#include "core/Variant.h"
#include "tests/core/TestHelpers.h"

namespace tessel {
namespace {

using testing::ErrorNumberOf;

TEST(Variant, ScalarsFitWithoutHeap) {
  static_assert(sizeof(Variant) <= 24);
  static_assert(std::is_nothrow_move_constructible_v<Variant>);
  static_assert(std::is_nothrow_move_assignable_v<Variant>);
  Variant d = Variant::FromDecimal(Decimal(0x12345678u, 0x9ABCDEF012345678ull, 7, true));
  Decimal back = d.DecimalValue();
  EXPECT_EQ(back.Hi(), 0x12345678u);
  EXPECT_EQ(back.Lo(), 0x9ABCDEF012345678ull);
  EXPECT_EQ(back.Scale(), 7);
  EXPECT_TRUE(back.IsNegative());
}

TEST(Variant, SubtypesAndTypeNames) {
  struct Case {
    Variant v;
    VarType type;
    const char* name;
  } cases[] = {
      {Variant(), VarType::Empty, "Empty"},
      {Variant::Null(), VarType::Null, "Null"},
      {Variant::FromInteger(1), VarType::Integer, "Integer"},
      {Variant(1), VarType::Long, "Long"},
      {Variant::FromSingle(1.5f), VarType::Single, "Single"},
      {Variant(1.5), VarType::Double, "Double"},
      {Variant::FromCurrency(Currency::FromInt64(1)), VarType::Currency, "Currency"},
      {Variant::FromDate(45000), VarType::Date, "Date"},
      {Variant("x"), VarType::String, "String"},
      {Variant::Nothing(), VarType::Object, "Nothing"},
      {Variant::Missing(), VarType::Error, "Error"},
      {Variant(true), VarType::Boolean, "Boolean"},
      {Variant::FromDecimal(Decimal::FromInt64(1)), VarType::Decimal, "Decimal"},
      {Variant::FromByte(1), VarType::Byte, "Byte"},
      {Variant::FromVector({Variant(1)}), VarType::Array, "Variant()"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.v.Type(), c.type) << c.name;
    EXPECT_EQ(c.v.TypeName(), c.name);
  }
  EXPECT_EQ(Variant::FromVector({}).VarTypeNumber(), 8204);
  EXPECT_TRUE(Variant::Missing().IsMissing());
}

TEST(Variant, StringCopiesShareTheBuffer) {
  std::string text(100, 'a');
  const char* chars = text.data();
  Variant a(std::move(text));
  EXPECT_EQ(a.StringValue().data(), chars);  // adopted, not copied
  Variant b = a;
  EXPECT_EQ(b.StringValue().data(), chars);
  Variant c = std::move(b);
  EXPECT_TRUE(b.IsEmpty());
  EXPECT_EQ(c.StringValue(), std::string(100, 'a'));
  a = Variant(5);
  EXPECT_EQ(c.StringValue().size(), 100u);
  c = c;  // self-assignment keeps the value
  std::string lvalue = "lv";
  EXPECT_EQ(Variant::FromString("lit").StringValue(), "lit");
  EXPECT_EQ(Variant::FromString(lvalue).StringValue(), "lv");
  EXPECT_EQ(Variant::FromString(std::string_view("sv")).StringValue(), "sv");
  EXPECT_EQ(c.StringValue().size(), 100u);
}

TEST(Variant, ToStringOfEverySubtype) {
  EXPECT_EQ(Variant().ToString(), "");
  EXPECT_EQ(Variant(true).ToString(), "True");
  EXPECT_EQ(Variant(false).ToString(), "False");
  EXPECT_EQ(Variant::FromInteger(-12).ToString(), "-12");
  EXPECT_EQ(Variant::FromByte(255).ToString(), "255");
  EXPECT_EQ(Variant(0.1 + 0.2).ToString(), "0.3");
  EXPECT_EQ(Variant(1e20).ToString(), "1E+20");
  EXPECT_EQ(Variant(1.5e-7).ToString(), "1.5E-07");
  EXPECT_EQ(Variant(-2.5).ToString(), "-2.5");
  EXPECT_EQ(Variant(123456789012345.0).ToString(), "123456789012345");
  EXPECT_EQ(Variant(1234567890123456.0).ToString(), "1.23456789012346E+15");
  EXPECT_EQ(Variant(1.0 / 3).ToString(), "0.333333333333333");
  EXPECT_EQ(Variant(1.0 / 30).ToString(), "3.33333333333333E-02");
  EXPECT_EQ(Variant(0.001).ToString(), "0.001");
  EXPECT_EQ(Variant(9.2 * 100.0).ToString(), "920");
  EXPECT_EQ(Variant(100.0).ToString(), "100");
  EXPECT_EQ(Variant(-0.0).ToString(), "0");
  EXPECT_EQ(Variant(0.123456789012345).ToString(), "0.123456789012345");
  EXPECT_EQ(Variant(0.1234567890123456).ToString(), "0.123456789012346");
  EXPECT_EQ(Variant(4.9406564584124654e-324).ToString(), "4.94065645841247E-324");
  EXPECT_EQ(Variant(2.2250738585072014e-308).ToString(), "2.2250738585072E-308");
  EXPECT_EQ(Variant::FromSingle(0.1f).ToString(), "0.1");
  EXPECT_EQ(Variant::FromSingle(0.01f + 0.01f).ToString(), "0.02");
  EXPECT_EQ(Variant::FromCurrency(Currency::FromRaw(15000)).ToString(), "1.5");
  EXPECT_EQ(Variant::FromCurrency(Currency::FromRaw(-1)).ToString(), "-0.0001");
  EXPECT_EQ(Variant::FromCurrency(Currency::FromRaw(30000)).ToString(), "3");
  EXPECT_EQ(Variant::FromDecimal(Decimal(0, 1250, 3, true)).ToString(), "-1.25");
  EXPECT_EQ(ErrorNumberOf([] { Variant::Null().ToString(); }), 94);
  EXPECT_EQ(ErrorNumberOf([] { Variant::FromVector({}).ToString(); }), 13);
}

// The text of a Double must be the value rounded to 15 significant digits
// exactly as printf rounds it, whatever way the digits are found.
TEST(Variant, DoubleTextIsTheValueRoundedTo15Digits) {
  auto roundedByPrintf = [](double value, int digits) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*e", digits - 1, value);
    return std::strtod(text, nullptr);
  };
  std::mt19937_64 random(20261124);
  std::vector<double> values;
  for (int i = 0; i < 200000; ++i) {
    uint64_t bits = random();
    double v;
    std::memcpy(&v, &bits, sizeof v);
    if (std::isfinite(v) && v != 0) values.push_back(v);
    // Money-like products and sums, whose shortest texts run to 16-17 digits.
    values.push_back(static_cast<double>(random() % 100000) / 100 * static_cast<double>(random() % 1000));
    values.push_back(static_cast<double>(random() % 1000000) / 1000 + static_cast<double>(random() % 1000) / 100);
    // Shortest texts of 16 digits ending in 5: the exact value decides.
    values.push_back(std::strtod((std::to_string(random() % 1000000000000000ull) + "5e-16").c_str(), nullptr));
    // Exact halves at the 16th digit, rounded to the even neighbour.
    values.push_back(static_cast<double>(1000000000000ull + random() % 9000000000000ull) + 0.125 * (1 + 2 * (random() % 4)));
    values.push_back(std::ldexp(static_cast<double>(random() >> 11), static_cast<int>(random() % 200) - 100));
  }
  for (double v : values) {
    const std::string text = Variant(v).ToString();
    ASSERT_EQ(std::strtod(text.c_str(), nullptr), roundedByPrintf(v, 15)) << text << " for " << v;
  }
  for (int i = 0; i < 20000; ++i) {
    const float f = static_cast<float>(random() % 10000000) / static_cast<float>(1 + random() % 1000);
    const std::string text = Variant::FromSingle(f).ToString();
    ASSERT_EQ(std::strtod(text.c_str(), nullptr), roundedByPrintf(f, 7)) << text << " for " << f;
  }
}

TEST(Variant, DatesPrintInUsForm) {
  double d = *DateTime::FromParts({2024, 2, 28, 13, 2, 3, 0});
  EXPECT_EQ(Variant::FromDate(d).ToString(), "2/28/2024 1:02:03 PM");
  EXPECT_EQ(Variant::FromDate(std::trunc(d)).ToString(), "2/28/2024");
  EXPECT_EQ(Variant::FromDate(d - std::trunc(d)).ToString(), "1:02:03 PM");
  EXPECT_EQ(Variant::FromDate(0).ToString(), "12:00:00 AM");
  EXPECT_EQ(Variant::FromDate(-1.25).ToString(), "12/29/1899 6:00:00 AM");
}

TEST(Variant, ToBoolReadsWordsAndNumbers) {
  EXPECT_TRUE(Variant("True").ToBool());
  EXPECT_TRUE(Variant(" tRuE ").ToBool());
  EXPECT_FALSE(Variant("FALSE").ToBool());
  EXPECT_TRUE(Variant("-1").ToBool());
  EXPECT_TRUE(Variant("0.5").ToBool());
  EXPECT_FALSE(Variant("0").ToBool());
  EXPECT_FALSE(Variant().ToBool());
  EXPECT_TRUE(Variant(2.5).ToBool());
  EXPECT_EQ(ErrorNumberOf([] { Variant("yes").ToBool(); }), 13);
  EXPECT_EQ(ErrorNumberOf([] { Variant("").ToBool(); }), 13);
  EXPECT_EQ(ErrorNumberOf([] { Variant::Null().ToBool(); }), 94);
}

TEST(Variant, IntegerConversionsRoundHalfToEven) {
  EXPECT_EQ(Variant(2.5).ToInteger(), 2);
  EXPECT_EQ(Variant(3.5).ToInteger(), 4);
  EXPECT_EQ(Variant(-2.5).ToInteger(), -2);
  EXPECT_EQ(Variant("2.5").ToLong(), 2);
  EXPECT_EQ(Variant(true).ToInteger(), -1);
  EXPECT_EQ(Variant(32767.4).ToInteger(), 32767);
  EXPECT_EQ(ErrorNumberOf([] { Variant(32767.5).ToInteger(); }), 6);
  EXPECT_EQ(ErrorNumberOf([] { Variant(40000).ToInteger(); }), 6);
  EXPECT_EQ(ErrorNumberOf([] { Variant(2147483648.0).ToLong(); }), 6);
  EXPECT_EQ(Variant(-2147483648.0).ToLong(), INT32_MIN);
  EXPECT_EQ(ErrorNumberOf([] { Variant(-1).ToByte(); }), 6);
  EXPECT_EQ(ErrorNumberOf([] { Variant(true).ToByte(); }), 6);
  EXPECT_EQ(Variant(255.4).ToByte(), 255);
  EXPECT_EQ(Variant::FromCurrency(Currency::FromRaw(25000)).ToLong(), 2);
  EXPECT_EQ(Variant::FromCurrency(Currency::FromRaw(35000)).ToLong(), 4);
  EXPECT_EQ(ErrorNumberOf([] { Variant("abc").ToLong(); }), 13);
  EXPECT_EQ(ErrorNumberOf([] { Variant::Null().ToLong(); }), 94);
  EXPECT_EQ(Variant().ToLong(), 0);
}

TEST(Variant, ToDoubleReadsNumericText) {
  EXPECT_DOUBLE_EQ(Variant("  12.5  ").ToDouble(), 12.5);
  EXPECT_DOUBLE_EQ(Variant("1,234.5").ToDouble(), 1234.5);
  EXPECT_DOUBLE_EQ(Variant("&H1F").ToDouble(), 31);
  EXPECT_DOUBLE_EQ(Variant("&hFFFF").ToDouble(), -1);
  EXPECT_DOUBLE_EQ(Variant("&H10000").ToDouble(), 65536);
  EXPECT_DOUBLE_EQ(Variant("&HFFFFFFFF").ToDouble(), -1);
  EXPECT_DOUBLE_EQ(Variant("&O17").ToDouble(), 15);
  EXPECT_DOUBLE_EQ(Variant("-1.5E3").ToDouble(), -1500);
  EXPECT_DOUBLE_EQ(Variant(".5").ToDouble(), 0.5);
  EXPECT_DOUBLE_EQ(Variant("5.").ToDouble(), 5);
  EXPECT_DOUBLE_EQ(Variant("+7").ToDouble(), 7);
  EXPECT_DOUBLE_EQ(Variant(true).ToDouble(), -1);
  EXPECT_EQ(ErrorNumberOf([] { Variant("1e400").ToDouble(); }), 6);
  EXPECT_EQ(ErrorNumberOf([] { Variant("&H123456789").ToLong(); }), 6);
  EXPECT_FALSE(IsNumericText("1e400"));
  for (const char* bad : {"", " ", "abc", "1.2.3", "1e", "$5", "&H", "&HG", "1 2", ",5", "-"}) {
    EXPECT_EQ(ErrorNumberOf([&] { Variant(bad).ToDouble(); }), 13) << bad;
  }
}

TEST(Variant, NumericAndDateTests) {
  EXPECT_TRUE(IsNumericText("1,000"));
  EXPECT_TRUE(IsNumericText(" -3.25e2 "));
  EXPECT_FALSE(IsNumericText("12abc"));
  EXPECT_FALSE(IsNumericText(""));
  EXPECT_TRUE(IsNumeric(Variant()));
  EXPECT_TRUE(IsNumeric(Variant(true)));
  EXPECT_FALSE(IsNumeric(Variant::Null()));
  EXPECT_FALSE(IsNumeric(Variant::FromDate(1)));
  EXPECT_TRUE(IsDateText("2024-02-28"));
  EXPECT_FALSE(IsDateText("2024-02-30"));
  EXPECT_FALSE(IsDateText("12"));
  EXPECT_TRUE(IsDate(Variant::FromDate(1)));
  EXPECT_FALSE(IsDate(Variant(5)));
}

TEST(Variant, CurrencyAndDecimalConversionsAreExact) {
  EXPECT_EQ(Variant("0.1").ToCurrency().Raw(), 1000);
  EXPECT_EQ(Variant(0.00005).ToCurrency().Raw(), 0);  // half to even
  EXPECT_EQ(Variant(12.34567).ToCurrency().Raw(), 123457);
  EXPECT_EQ(ErrorNumberOf([] { Variant(1e20).ToCurrency(); }), 6);
  EXPECT_EQ(Variant("0.1").ToDecimal().ToString(), "0.1");
  EXPECT_EQ(Variant(0.1).ToDecimal().ToString(), "0.1");
  EXPECT_EQ(Variant("79228162514264337593543950335").ToDecimal().ToString(), "79228162514264337593543950335");
  EXPECT_EQ(ErrorNumberOf([] { Variant("79228162514264337593543950336").ToDecimal(); }), 6);
}

TEST(Variant, ToDateReadsNumbersAndText) {
  EXPECT_DOUBLE_EQ(Variant(45000).ToDate(), 45000);
  EXPECT_DOUBLE_EQ(Variant("2024-02-28").ToDate(), 45350);
  EXPECT_DOUBLE_EQ(Variant("45350").ToDate(), 45350);
  EXPECT_EQ(ErrorNumberOf([] { Variant("not a date").ToDate(); }), 13);
  EXPECT_EQ(ErrorNumberOf([] { Variant(1e10).ToDate(); }), 6);
  EXPECT_EQ(ErrorNumberOf([] { Variant::Null().ToDate(); }), 94);
}

TEST(Variant, ConvertToGivesTheRequestedSubtype) {
  Variant v("42");
  EXPECT_EQ(v.ConvertTo(VarType::Integer).Type(), VarType::Integer);
  EXPECT_EQ(v.ConvertTo(VarType::Byte).ByteValue(), 42);
  EXPECT_EQ(v.ConvertTo(VarType::Single).SingleValue(), 42.0f);
  EXPECT_EQ(v.ConvertTo(VarType::Currency).CurrencyValue().Raw(), 420000);
  EXPECT_EQ(Variant(42).ConvertTo(VarType::String).StringValue(), "42");
  EXPECT_EQ(v.ConvertTo(VarType::String).StringValue().data(), v.StringValue().data());
  EXPECT_EQ(ErrorNumberOf([&] { v.ConvertTo(VarType::Object); }), 13);
}

TEST(Compare, NumbersStringsEmptyAndNull) {
  EXPECT_EQ(Compare(Variant(1), Variant(2.5)), CompareResult::Less);
  EXPECT_EQ(Compare(Variant::FromInteger(3), Variant(3.0)), CompareResult::Equal);
  EXPECT_EQ(Compare(Variant::FromInteger(-3), Variant(2)), CompareResult::Less);
  EXPECT_EQ(Compare(Variant(7), Variant::FromInteger(7)), CompareResult::Equal);
  EXPECT_EQ(Compare(Variant(2.5), Variant(1.5)), CompareResult::Greater);
  EXPECT_EQ(Compare(Variant(true), Variant(-1)), CompareResult::Equal);
  EXPECT_EQ(Compare(Variant("10"), Variant(5)), CompareResult::Greater);  // a string beats any number
  EXPECT_EQ(Compare(Variant(5), Variant("1")), CompareResult::Less);
  EXPECT_EQ(Compare(Variant("abc"), Variant("ABC")), CompareResult::Greater);
  EXPECT_EQ(Compare(Variant("abc"), Variant("ABC"), true), CompareResult::Equal);
  EXPECT_EQ(Compare(Variant("Straße"), Variant("STRASSE"), true), CompareResult::Equal);
  EXPECT_EQ(Compare(Variant("a"), Variant("b"), true), CompareResult::Less);
  EXPECT_EQ(Compare(Variant(), Variant(0)), CompareResult::Equal);
  EXPECT_EQ(Compare(Variant(), Variant("")), CompareResult::Equal);
  EXPECT_EQ(Compare(Variant(), Variant("a")), CompareResult::Less);
  EXPECT_EQ(Compare(Variant(), Variant()), CompareResult::Equal);
  EXPECT_EQ(Compare(Variant(), Variant(-1)), CompareResult::Greater);
  EXPECT_EQ(Compare(Variant::Null(), Variant(1)), CompareResult::Null);
  EXPECT_EQ(Compare(Variant("x"), Variant::Null()), CompareResult::Null);
  EXPECT_EQ(Compare(Variant::FromCurrency(Currency::FromRaw(1)), Variant(0.0001)), CompareResult::Equal);
  EXPECT_EQ(Compare(Variant::FromDecimal(Decimal(0, 150, 2, false)), Variant(1.5)), CompareResult::Equal);
  EXPECT_EQ(Compare(Variant::FromDate(2), Variant(1)), CompareResult::Greater);
  EXPECT_EQ(ErrorNumberOf([] { Compare(Variant::FromVector({}), Variant(1)); }), 13);
}

}  // namespace
}  // namespace tessel
