#include <gtest/gtest.h>

#include "core/Currency.h"
#include "core/Decimal.h"
#include "tests/core/TestHelpers.h"

namespace tessel {
namespace {

using testing::ErrorNumberOf;

Decimal D(const char* text) {
  Decimal d;
  EXPECT_TRUE(Decimal::Parse(text, d)) << text;
  return d;
}

TEST(Currency, ArithmeticIsExactAndChecked) {
  Currency tenth = Currency::FromRaw(1000);
  EXPECT_EQ((tenth + Currency::FromRaw(2000)).Raw(), 3000);
  EXPECT_EQ(Currency::FromDouble(0.1).Raw() + Currency::FromDouble(0.2).Raw(), Currency::FromDouble(0.3).Raw());
  EXPECT_EQ((Currency::FromInt64(3) * Currency::FromRaw(3333)).Raw(), 9999);
  EXPECT_EQ((Currency::FromRaw(5) * Currency::FromRaw(1000)).Raw(), 0);   // 0.00005 -> 0
  EXPECT_EQ((Currency::FromRaw(15) * Currency::FromRaw(1000)).Raw(), 2);  // 0.00015 -> 0.0002
  EXPECT_EQ(Currency::FromRaw(-25000).RoundToInt64(), -2);
  EXPECT_EQ(Currency::FromRaw(-35000).RoundToInt64(), -4);
  EXPECT_EQ(Currency::FromRaw(INT64_MAX).ToString(), "922337203685477.5807");
  EXPECT_EQ(Currency::FromRaw(INT64_MIN).ToString(), "-922337203685477.5808");
  EXPECT_EQ(ErrorNumberOf([] { Currency::FromRaw(INT64_MAX) + Currency::FromRaw(1); }), 6);
  EXPECT_EQ(ErrorNumberOf([] { -Currency::FromRaw(INT64_MIN); }), 6);
  EXPECT_EQ(ErrorNumberOf([] { Currency::FromInt64(INT64_MAX / 1000); }), 6);
  EXPECT_EQ(ErrorNumberOf([] { Currency::FromDouble(1.0 / 0.0); }), 6);
  EXPECT_LT(Currency::FromRaw(-1), Currency::FromRaw(0));
}

TEST(Decimal, ParseAndPrint) {
  EXPECT_EQ(D("123.4500").ToString(), "123.45");
  EXPECT_EQ(D("-0.000").ToString(), "0");
  EXPECT_EQ(D("1.5e3").ToString(), "1500");
  EXPECT_EQ(D("1.5e-3").ToString(), "0.0015");
  EXPECT_EQ(D("0.00000000000000000000000000001").ToString(), "0");  // below 28 places
  EXPECT_EQ(D("0.00000000000000000000000000015").ToString(), "0.0000000000000000000000000002");
  EXPECT_EQ(D("1.00000000000000000000000000005").ToString(), "1");  // rounds to fit 96 bits
  Decimal d;
  EXPECT_FALSE(Decimal::Parse("", d));
  EXPECT_FALSE(Decimal::Parse("1x", d));
  EXPECT_FALSE(Decimal::Parse(".", d));
  EXPECT_EQ(ErrorNumberOf([&] { Decimal::Parse("1e40", d); }), 6);
}

TEST(Decimal, Arithmetic) {
  EXPECT_EQ((D("0.1") + D("0.2")).ToString(), "0.3");
  EXPECT_EQ((D("0.1") - D("0.3")).ToString(), "-0.2");
  EXPECT_EQ((D("-2.5") * D("-4")).ToString(), "10");
  EXPECT_EQ((D("2") / D("3")).ToString(), "0.6666666666666666666666666667");
  EXPECT_EQ((D("10") / D("4")).ToString(), "2.5");
  EXPECT_EQ((D("-1") / D("8")).ToString(), "-0.125");
  EXPECT_EQ((D("1000000000000000000000000000") / D("0.5")).ToString(), "2000000000000000000000000000");
  EXPECT_EQ(ErrorNumberOf([] { D("1") / D("0"); }), 11);
  EXPECT_EQ(ErrorNumberOf([] { D("79228162514264337593543950335") + D("1"); }), 6);
  EXPECT_EQ((D("79228162514264337593543950335") + D("0.4")).ToString(), "79228162514264337593543950335");
  EXPECT_EQ(Decimal::Compare(D("1.50"), D("1.5")), 0);
  EXPECT_EQ(Decimal::Compare(D("-1"), D("0.5")), -1);
  EXPECT_EQ(Decimal::Compare(D("-0"), D("0")), 0);
  EXPECT_EQ(D("2.5").RoundToInt64(), 2);
  EXPECT_EQ(D("-3.5").RoundToInt64(), -4);
  EXPECT_EQ(D("1.23456").ToCurrency().Raw(), 12346);
  EXPECT_EQ(Decimal::FromDouble(0.1).ToString(), "0.1");
  EXPECT_EQ(Decimal::FromDouble(1.0 / 3).ToString(), "0.333333333333333");
  EXPECT_DOUBLE_EQ(D("0.1").ToDouble(), 0.1);
}

}  // namespace
}  // namespace tessel
