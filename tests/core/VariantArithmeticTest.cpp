#include <gtest/gtest.h>

#include <cmath>

#include "core/DateTime.h"
#include "core/VariantArithmetic.h"
#include "tests/core/TestHelpers.h"

namespace tessel {
namespace {

using testing::ErrorNumberOf;

Variant I(int16_t v) { return Variant::FromInteger(v); }
Variant B(uint8_t v) { return Variant::FromByte(v); }
Variant Cy(const char* text) { return Variant::FromCurrency(Variant(text).ToCurrency()); }
Variant Dec(const char* text) { return Variant::FromDecimal(Variant(text).ToDecimal()); }

// Expects subtype and printed value together.
void ExpectValue(const Variant& v, VarType type, const std::string& text) {
  EXPECT_EQ(v.Type(), type) << "value " << (v.IsNull() ? "Null" : v.ToString());
  if (!v.IsNull()) {
    EXPECT_EQ(v.ToString(), text);
  }
}

TEST(Arithmetic, AddPromotesOnOverflow) {
  ExpectValue(Add(I(1), I(2)), VarType::Integer, "3");
  ExpectValue(Add(I(32767), I(1)), VarType::Long, "32768");
  ExpectValue(Add(Variant(2147483647), Variant(1)), VarType::Double, "2147483648");
  ExpectValue(Add(B(200), B(55)), VarType::Byte, "255");
  ExpectValue(Add(B(200), B(56)), VarType::Integer, "256");
  ExpectValue(Add(B(1), I(1)), VarType::Integer, "2");
  ExpectValue(Add(I(1), Variant(1)), VarType::Long, "2");
  ExpectValue(Add(Variant(1), Variant(0.5)), VarType::Double, "1.5");
  ExpectValue(Add(Variant::FromSingle(1.5f), I(1)), VarType::Single, "2.5");
  ExpectValue(Add(Variant::FromSingle(1.5f), Variant(1)), VarType::Double, "2.5");
  ExpectValue(Add(Variant(true), Variant(true)), VarType::Integer, "-2");
  ExpectValue(Add(Variant(0.1), Variant(0.2)), VarType::Double, "0.3");
  ExpectValue(Add(Variant(0.5), I(1)), VarType::Double, "1.5");
  ExpectValue(Add(I(-32768), Variant(-1)), VarType::Long, "-32769");
  ExpectValue(Subtract(Variant(INT32_MIN), I(1)), VarType::Double, "-2147483649");
  ExpectValue(Multiply(Variant(2.5), Variant(4)), VarType::Double, "10");
  ExpectValue(Multiply(Variant(65536), I(-32768)), VarType::Long, "-2147483648");
  EXPECT_EQ(ErrorNumberOf([] { Add(Variant(1e308), Variant(1e308)); }), 6);
}

TEST(Arithmetic, AddOnStringsEmptyAndNull) {
  ExpectValue(Add(Variant("ab"), Variant("cd")), VarType::String, "abcd");
  ExpectValue(Add(Variant("1"), Variant(2)), VarType::Double, "3");
  ExpectValue(Add(Variant(), Variant("x")), VarType::String, "x");
  ExpectValue(Add(Variant(), Variant()), VarType::Integer, "0");
  ExpectValue(Add(Variant(), Variant(5)), VarType::Long, "5");
  EXPECT_TRUE(Add(Variant::Null(), Variant(5)).IsNull());
  EXPECT_TRUE(Add(Variant("x"), Variant::Null()).IsNull());
  EXPECT_EQ(ErrorNumberOf([] { Add(Variant("x"), Variant(1)); }), 13);
  EXPECT_EQ(ErrorNumberOf([] { Add(Variant::FromVector({}), Variant(1)); }), 13);
}

TEST(Arithmetic, CurrencyAndDecimalAreExact) {
  ExpectValue(Add(Cy("0.1"), Cy("0.2")), VarType::Currency, "0.3");
  EXPECT_EQ(Compare(Add(Cy("0.1"), Cy("0.2")), Cy("0.3")), CompareResult::Equal);
  ExpectValue(Add(Cy("1.5"), Variant(1)), VarType::Currency, "2.5");
  ExpectValue(Multiply(Cy("1.0001"), Cy("1.0001")), VarType::Currency, "1.0002");
  ExpectValue(Add(Dec("0.1"), Dec("0.2")), VarType::Decimal, "0.3");
  ExpectValue(Add(Dec("0.1"), Cy("0.2")), VarType::Decimal, "0.3");
  ExpectValue(Subtract(Dec("1"), Dec("0.0000000000000000000000000001")), VarType::Decimal,
              "0.9999999999999999999999999999");
  ExpectValue(Multiply(Dec("1.5"), Variant(2)), VarType::Decimal, "3");
  ExpectValue(Divide(Dec("1"), Dec("3")), VarType::Decimal, "0.3333333333333333333333333333");
  ExpectValue(Divide(Dec("1"), Dec("4")), VarType::Decimal, "0.25");
  EXPECT_EQ(ErrorNumberOf([] { Multiply(Cy("900000000000000"), Cy("100")); }), 6);
  EXPECT_EQ(ErrorNumberOf([] { Multiply(Dec("79228162514264337593543950335"), Variant(2)); }), 6);
}

TEST(Arithmetic, DatesPlusNumbersStayDates) {
  double d = *DateTime::FromParts({2024, 2, 28, 0, 0, 0, 0});
  Variant date = Variant::FromDate(d);
  ExpectValue(Add(date, Variant(1)), VarType::Date, "2/29/2024");
  ExpectValue(Add(Variant(0.5), date), VarType::Date, "2/28/2024 12:00:00 PM");
  ExpectValue(Subtract(date, Variant(28)), VarType::Date, "1/31/2024");
  ExpectValue(Subtract(Add(date, Variant(2)), date), VarType::Double, "2");
  ExpectValue(Multiply(date, Variant(1)), VarType::Double, "45350");
  EXPECT_EQ(ErrorNumberOf([&] { Add(date, Variant(1e8)); }), 6);
}

TEST(Arithmetic, SubtractAndMultiply) {
  ExpectValue(Subtract(I(-32768), I(1)), VarType::Long, "-32769");
  ExpectValue(Subtract(B(1), B(2)), VarType::Integer, "-1");
  ExpectValue(Subtract(Variant("5"), Variant("2")), VarType::Double, "3");
  ExpectValue(Multiply(I(200), I(200)), VarType::Long, "40000");
  ExpectValue(Multiply(Variant(65536), Variant(65536)), VarType::Double, "4294967296");
  ExpectValue(Multiply(Variant("2"), Variant("3")), VarType::Double, "6");
  ExpectValue(Multiply(Variant(), Variant(7)), VarType::Long, "0");
  EXPECT_TRUE(Multiply(Variant::Null(), Variant(7)).IsNull());
}

TEST(Arithmetic, DivideGivesDouble) {
  ExpectValue(Divide(Variant(1), Variant(2)), VarType::Double, "0.5");
  ExpectValue(Divide(I(1), I(4)), VarType::Double, "0.25");
  ExpectValue(Divide(Variant::FromSingle(1), I(4)), VarType::Single, "0.25");
  ExpectValue(Divide(Cy("1"), Cy("4")), VarType::Double, "0.25");
  EXPECT_EQ(ErrorNumberOf([] { Divide(Variant(1), Variant(0)); }), 11);
  EXPECT_EQ(ErrorNumberOf([] { Divide(Variant(0), Variant(0)); }), 6);
  EXPECT_EQ(ErrorNumberOf([] { Divide(Variant(1), Variant()); }), 11);
  EXPECT_TRUE(Divide(Variant::Null(), Variant(0)).IsNull());
}

TEST(Arithmetic, IntDivideAndModRoundTheirOperands) {
  ExpectValue(IntDivide(Variant(7), Variant(2)), VarType::Long, "3");
  ExpectValue(IntDivide(I(7), I(2)), VarType::Integer, "3");
  ExpectValue(IntDivide(B(7), B(2)), VarType::Byte, "3");
  ExpectValue(IntDivide(Variant(-7), Variant(2)), VarType::Long, "-3");
  ExpectValue(IntDivide(Variant(7.5), Variant(2)), VarType::Long, "4");  // 7.5 rounds to 8
  ExpectValue(IntDivide(I(-32768), I(-1)), VarType::Long, "32768");
  ExpectValue(Mod(Variant(10), Variant(3)), VarType::Long, "1");
  ExpectValue(Mod(Variant(-10), Variant(3)), VarType::Long, "-1");
  ExpectValue(Mod(Variant(5.5), Variant(3)), VarType::Long, "0");  // 5.5 rounds to 6
  ExpectValue(Mod(I(10), I(4)), VarType::Integer, "2");
  ExpectValue(Mod(Variant(INT32_MIN), Variant(-1)), VarType::Long, "0");
  EXPECT_EQ(ErrorNumberOf([] { IntDivide(Variant(INT32_MIN), Variant(-1)); }), 6);
  EXPECT_EQ(ErrorNumberOf([] { Mod(Variant(1), Variant(0)); }), 11);
  EXPECT_EQ(ErrorNumberOf([] { IntDivide(Variant(1), Variant(0.4)); }), 11);
  EXPECT_EQ(ErrorNumberOf([] { Mod(Variant(1e10), Variant(3)); }), 6);
  EXPECT_TRUE(Mod(Variant::Null(), Variant(3)).IsNull());
}

TEST(Arithmetic, PowerAndNegate) {
  ExpectValue(Power(Variant(2), Variant(10)), VarType::Double, "1024");
  ExpectValue(Power(Variant(-8), Variant(2)), VarType::Double, "64");
  EXPECT_EQ(ErrorNumberOf([] { Power(Variant(-8), Variant(1.0 / 3)); }), 5);
  EXPECT_EQ(ErrorNumberOf([] { Power(Variant(10), Variant(400)); }), 6);
  EXPECT_TRUE(Power(Variant::Null(), Variant(2)).IsNull());
  ExpectValue(Negate(I(-32768)), VarType::Long, "32768");
  ExpectValue(Negate(Variant(INT32_MIN)), VarType::Double, "2147483648");
  ExpectValue(Negate(Variant(true)), VarType::Integer, "1");
  ExpectValue(Negate(B(5)), VarType::Integer, "-5");
  ExpectValue(Negate(Variant()), VarType::Integer, "0");
  ExpectValue(Negate(Variant("2")), VarType::Double, "-2");
  ExpectValue(Negate(Cy("1.5")), VarType::Currency, "-1.5");
  EXPECT_TRUE(Negate(Variant::Null()).IsNull());
}

TEST(Arithmetic, ConcatTreatsNullAsEmptyText) {
  ExpectValue(Concat(Variant("a"), Variant(1)), VarType::String, "a1");
  ExpectValue(Concat(Variant::Null(), Variant("x")), VarType::String, "x");
  ExpectValue(Concat(Variant(1.5), Variant::Null()), VarType::String, "1.5");
  ExpectValue(Concat(Variant(), Variant()), VarType::String, "");
  ExpectValue(Concat(Variant(true), Variant(0.1 + 0.2)), VarType::String, "True0.3");
  EXPECT_TRUE(Concat(Variant::Null(), Variant::Null()).IsNull());
  EXPECT_EQ(ErrorNumberOf([] { Concat(Variant("a"), Variant::FromVector({})); }), 13);
}

TEST(Logical, BooleansIntegersAndBytes) {
  ExpectValue(And(Variant(true), Variant(false)), VarType::Boolean, "False");
  ExpectValue(Or(Variant(true), Variant(false)), VarType::Boolean, "True");
  ExpectValue(Xor(Variant(true), Variant(true)), VarType::Boolean, "False");
  ExpectValue(Eqv(Variant(false), Variant(false)), VarType::Boolean, "True");
  ExpectValue(Imp(Variant(true), Variant(false)), VarType::Boolean, "False");
  ExpectValue(Imp(Variant(false), Variant(true)), VarType::Boolean, "True");
  ExpectValue(Not(Variant(true)), VarType::Boolean, "False");
  ExpectValue(And(I(12), I(10)), VarType::Integer, "8");
  ExpectValue(Or(Variant(12), I(3)), VarType::Long, "15");
  ExpectValue(And(Variant(true), I(6)), VarType::Integer, "6");
  ExpectValue(Not(I(0)), VarType::Integer, "-1");
  ExpectValue(Not(B(1)), VarType::Byte, "254");
  ExpectValue(Xor(B(255), B(15)), VarType::Byte, "240");
  ExpectValue(Not(Variant()), VarType::Integer, "-1");
  ExpectValue(And(Variant(6.7), Variant(3)), VarType::Long, "3");  // 6.7 rounds to 7
  ExpectValue(And(Variant("True"), Variant(true)), VarType::Boolean, "True");
  EXPECT_EQ(ErrorNumberOf([] { And(Variant("x"), Variant(true)); }), 13);
}

TEST(Logical, NullRules) {
  Variant n = Variant::Null();
  ExpectValue(And(n, Variant(false)), VarType::Boolean, "False");
  EXPECT_TRUE(And(n, Variant(true)).IsNull());
  ExpectValue(And(Variant(0), n), VarType::Long, "0");
  ExpectValue(Or(n, Variant(true)), VarType::Boolean, "True");
  EXPECT_TRUE(Or(n, Variant(false)).IsNull());
  EXPECT_TRUE(Or(n, Variant(5)).IsNull());
  EXPECT_TRUE(Xor(n, Variant(true)).IsNull());
  EXPECT_TRUE(Eqv(Variant(false), n).IsNull());
  ExpectValue(Imp(n, Variant(true)), VarType::Boolean, "True");
  EXPECT_TRUE(Imp(n, Variant(false)).IsNull());
  ExpectValue(Imp(Variant(false), n), VarType::Boolean, "True");
  EXPECT_TRUE(Imp(Variant(true), n).IsNull());
  EXPECT_TRUE(Not(n).IsNull());
  EXPECT_TRUE(And(n, n).IsNull());
}

}  // namespace
}  // namespace tessel
