#include <cmath>

#include "core/SafeArray.h"
#include "tests/vbs_builtins/BuiltinCall.h"

namespace tessel::vbs::testing {
namespace {

TEST(BuiltinConversions, SubtypesAndRounding) {
  RunCases({
      {"CInt", {Variant(2.5)}, Int16(2)},
      {"CInt", {Variant(3.5)}, Int16(4)},
      {"CInt", {Variant(-2.5)}, Int16(-2)},
      {"CInt", {Str(" 12 ")}, Int16(12)},
      {"CLng", {Str("12")}, Variant(int32_t{12})},
      {"CLng", {Variant(true)}, Variant(int32_t{-1})},
      {"CByte", {Variant(254.5)}, Variant::FromByte(254)},
      {"CDbl", {Str("1.5")}, Variant(1.5)},
      {"CDbl", {Variant()}, Variant(0.0)},
      {"CSng", {Variant(1.5)}, Variant::FromSingle(1.5f)},
      {"CBool", {Str("True")}, Variant(true)},
      {"CBool", {Str("false")}, Variant(false)},
      {"CBool", {Variant(0.0)}, Variant(false)},
      {"CBool", {Str("2")}, Variant(true)},
      {"CCur", {Variant(1.23456)}, Variant::FromCurrency(Currency::FromRaw(12346))},
      {"CStr", {Variant(true)}, Str("True")},
      {"CStr", {Variant()}, Str("")},
      {"CStr", {Variant(1.5)}, Str("1.5")},
      {"CDate", {Str("2024-02-28")}, Date(2024, 2, 28)},
  });
  RunErrorCases({
      {"CInt", {Str("x")}, 13},
      {"CInt", {Variant(int32_t{40000})}, 6},
      {"CInt", {Variant::Null()}, 94},
      {"CByte", {Variant(int32_t{256})}, 6},
      {"CByte", {Variant(int32_t{-1})}, 6},
      {"CLng", {Variant(3e9)}, 6},
      {"CBool", {Str("x")}, 13},
      {"CBool", {Variant::Null()}, 94},
      {"CStr", {Variant::Null()}, 94},
      {"CDate", {Str("not a date")}, 13},
      {"CCur", {Variant(1e300)}, 6},
  });
}

TEST(BuiltinConversions, HexOctFixIntRound) {
  RunCases({
      {"Hex", {Variant(int32_t{255})}, Str("FF")},
      {"Hex", {Int16(-1)}, Str("FFFF")},
      {"Hex", {Variant(int32_t{-1})}, Str("FFFFFFFF")},
      {"Hex", {Variant::FromByte(10)}, Str("A")},
      {"Hex", {Variant(15.5)}, Str("10")},
      {"Hex", {Variant()}, Str("0")},
      {"Hex", {Variant::Null()}, Variant::Null()},
      {"Oct", {Variant(int32_t{8})}, Str("10")},
      {"Oct", {Int16(-1)}, Str("177777")},
      {"Fix", {Variant(-2.5)}, Variant(-2.0)},
      {"Int", {Variant(-2.5)}, Variant(-3.0)},
      {"Int", {Str("3.7")}, Variant(3.0)},
      {"Fix", {Int16(7)}, Int16(7)},
      {"Int", {Variant()}, Int16(0)},
      {"Int", {Variant::Null()}, Variant::Null()},
      {"Int",
       {Variant::FromCurrency(Currency::FromRaw(-25000))},
       Variant::FromCurrency(Currency::FromRaw(-30000))},
      {"Fix",
       {Variant::FromCurrency(Currency::FromRaw(-25000))},
       Variant::FromCurrency(Currency::FromRaw(-20000))},
      {"Int", {Date(2024, 2, 28, 18)}, Date(2024, 2, 28)},
      {"Round", {Variant(2.5)}, Variant(2.0)},
      {"Round", {Variant(3.5)}, Variant(4.0)},
      {"Round", {Variant(-2.5)}, Variant(-2.0)},
      {"Round", {Variant(1.2345), Variant(int32_t{2})}, Variant(1.23)},
      {"Round", {Variant(0.125), Variant(int32_t{2})}, Variant(0.12)},
      {"Round", {Str("2.5")}, Variant(2.0)},
      {"Round", {Int16(7), Variant(int32_t{2})}, Int16(7)},
      {"Round",
       {Variant::FromCurrency(Currency::FromRaw(23450)), Variant(int32_t{2})},
       Variant::FromCurrency(Currency::FromRaw(23400))},
      {"Round", {Variant::FromSingle(2.5f)}, Variant::FromSingle(2.0f)},
      {"Round", {Variant::Null()}, Variant::Null()},
  });
  RunErrorCases({
      {"Round", {Variant(2.5), Variant(int32_t{-1})}, 5},
      {"Hex", {Variant(1e12)}, 6},
      {"Hex", {Str("zz")}, 13},
      {"Fix", {Str("zz")}, 13},
  });
}

TEST(BuiltinConversions, DecimalRoundingStaysExact) {
  Decimal d;
  ASSERT_TRUE(Decimal::Parse("2.345", d));
  Variant r = Call("Round", {Variant::FromDecimal(d), Variant(int32_t{2})});
  EXPECT_EQ(r.Type(), VarType::Decimal);
  EXPECT_EQ(r.ToString(), "2.34");
  ASSERT_TRUE(Decimal::Parse("-7.5", d));
  EXPECT_EQ(Call("Int", {Variant::FromDecimal(d)}).ToString(), "-8");
  EXPECT_EQ(Call("Fix", {Variant::FromDecimal(d)}).ToString(), "-7");
}

TEST(BuiltinMath, ValuesSubtypesAndErrors) {
  RunCases({
      {"Abs", {Variant(int32_t{-5})}, Variant(int32_t{5})},
      {"Abs", {Int16(-32768)}, Variant(int32_t{32768})},
      {"Abs", {Int16(-3)}, Int16(3)},
      {"Abs", {Variant(-1.5)}, Variant(1.5)},
      {"Abs", {Str("-2")}, Variant(2.0)},
      {"Abs", {Variant()}, Int16(0)},
      {"Abs", {Variant::Null()}, Variant::Null()},
      {"Abs",
       {Variant::FromCurrency(Currency::FromRaw(-15))},
       Variant::FromCurrency(Currency::FromRaw(15))},
      {"Sgn", {Variant(-3.2)}, Int16(-1)},
      {"Sgn", {Variant(int32_t{0})}, Int16(0)},
      {"Sgn", {Str("7")}, Int16(1)},
      {"Sqr", {Variant(int32_t{16})}, Variant(4.0)},
      {"Exp", {Variant(int32_t{0})}, Variant(1.0)},
      {"Log", {Variant(std::exp(2.0))}, Variant(2.0)},
      {"Atn", {Variant(int32_t{1})}, Variant(std::atan(1.0))},
      {"Cos", {Variant(int32_t{0})}, Variant(1.0)},
      {"Sin", {Variant(int32_t{0})}, Variant(0.0)},
      {"Tan", {Variant(int32_t{0})}, Variant(0.0)},
      {"Sqr", {Variant::Null()}, Variant::Null()},
      {"RGB",
       {Variant(int32_t{1}), Variant(int32_t{2}), Variant(int32_t{3})},
       Variant(int32_t{0x030201})},
  });
  RunErrorCases({
      {"Sqr", {Variant(int32_t{-1})}, 5},
      {"Log", {Variant(int32_t{0})}, 5},
      {"Exp", {Variant(int32_t{1000})}, 6},
      {"Sqr", {Str("x")}, 13},
  });
}

TEST(BuiltinMath, RndFollowsTheSeededSequence) {
  BuiltinContext context;
  Variant first = Call(context, "Rnd", {});
  EXPECT_EQ(first.Type(), VarType::Single);
  EXPECT_NEAR(first.SingleValue(), 0.7055475f, 1e-6);
  EXPECT_EQ(Call(context, "Rnd", {Variant(int32_t{0})}).SingleValue(), first.SingleValue());
  EXPECT_NEAR(Call(context, "Rnd", {Variant(int32_t{-1})}).SingleValue(), 0.224007f, 1e-6);
  // The same negative argument restarts the same sequence.
  BuiltinContext other;
  Call(other, "Rnd", {Variant(int32_t{-1})});
  EXPECT_EQ(Call(context, "Rnd", {}).SingleValue(), Call(other, "Rnd", {}).SingleValue());
  // Randomize with a number is repeatable too, and changes the sequence.
  BuiltinContext a, b;
  Call(a, "Randomize", {Variant(int32_t{42})});
  Call(b, "Randomize", {Variant(int32_t{42})});
  float ra = Call(a, "Rnd", {}).SingleValue();
  EXPECT_EQ(ra, Call(b, "Rnd", {}).SingleValue());
  EXPECT_NE(ra, 0.7055475f);
  for (int i = 0; i < 1000; ++i) {
    float r = Call(a, "Rnd", {}).SingleValue();
    ASSERT_GE(r, 0.0f);
    ASSERT_LT(r, 1.0f);
  }
}

TEST(BuiltinTests, TypeQueries) {
  RunCases({
      {"VarType", {Variant::Null()}, Int16(1)},
      {"VarType", {Variant()}, Int16(0)},
      {"VarType", {Str("a")}, Int16(8)},
      {"VarType", {Date(2024, 1, 1)}, Int16(7)},
      {"TypeName", {Variant(1.5)}, Str("Double")},
      {"TypeName", {Int16(1)}, Str("Integer")},
      {"TypeName", {Variant::Null()}, Str("Null")},
      {"IsNumeric", {Str("12.5")}, Variant(true)},
      {"IsNumeric", {Str("abc")}, Variant(false)},
      {"IsNumeric", {Variant::Null()}, Variant(false)},
      {"IsDate", {Str("2024-02-28")}, Variant(true)},
      {"IsDate", {Str("nonsense")}, Variant(false)},
      {"IsEmpty", {Variant()}, Variant(true)},
      {"IsEmpty", {Str("")}, Variant(false)},
      {"IsNull", {Variant::Null()}, Variant(true)},
      {"IsObject", {Variant::Nothing()}, Variant(true)},
      {"IsObject", {Str("x")}, Variant(false)},
      {"ScriptEngine", {}, Str("VBScript")},
      {"GetLocale", {}, Variant(int32_t{1033})},
  });
}

TEST(BuiltinArrays, SplitJoinFilterBounds) {
  Variant parts = Call("Split", {Str("a,b,c"), Str(",")});
  ASSERT_TRUE(parts.IsArray());
  EXPECT_EQ(parts.VarTypeNumber(), 8204);
  EXPECT_EQ(Call("UBound", {parts}).LongValue(), 2);
  EXPECT_EQ(Call("LBound", {parts}).LongValue(), 0);
  EXPECT_EQ(parts.ArrayValue().Elements()[1].StringValue(), "b");

  EXPECT_EQ(Call("UBound", {Call("Split", {Str("")})}).LongValue(), -1);
  EXPECT_EQ(Call("UBound", {Call("Split", {Str("a b")})}).LongValue(), 1);
  Variant two = Call("Split", {Str("a,b,c"), Str(","), Variant(int32_t{2})});
  EXPECT_EQ(two.ArrayValue().Elements()[1].StringValue(), "b,c");
  Variant text = Call("Split", {Str("aXbxc"), Str("x"), Variant(int32_t{-1}), Variant(int32_t{1})});
  EXPECT_EQ(Call("UBound", {text}).LongValue(), 2);
  Variant accents = Call("Split", {Str("a\xC3\x89"
                                       "b\xC3\xA9"
                                       "c"),
                                   Str("\xC3\xA9"), Variant(-1), Variant(1)});
  EXPECT_EQ(Call("Join", {accents, Str("|")}).StringValue(), "a|b|c");
  Variant binary = Call("Split", {Str("a\xC3\x89"
                                      "b\xC3\xA9"
                                      "c"),
                                  Str("\xC3\xA9")});
  EXPECT_EQ(Call("Join", {binary, Str("|")}).StringValue(),
            "a\xC3\x89"
            "b|c");
  Variant whole = Call("Split", {Str("abc"), Str("")});
  EXPECT_EQ(whole.ArrayValue().Elements()[0].StringValue(), "abc");

  Variant list = Call("Array", {Str("apple"), Str("banana"), Str("cherry")});
  EXPECT_EQ(Call("Join", {list, Str("-")}).StringValue(), "apple-banana-cherry");
  EXPECT_EQ(Call("Join", {Call("Array", {Variant(int32_t{1}), Variant(2.5)})}).StringValue(),
            "1 2.5");
  Variant kept = Call("Filter", {list, Str("an")});
  ASSERT_EQ(Call("UBound", {kept}).LongValue(), 0);
  EXPECT_EQ(kept.ArrayValue().Elements()[0].StringValue(), "banana");
  Variant dropped = Call("Filter", {list, Str("AN"), Variant(false), Variant(int32_t{1})});
  EXPECT_EQ(Call("Join", {dropped, Str(",")}).StringValue(), "apple,cherry");
  EXPECT_EQ(Call("UBound", {Call("Filter", {list, Str("zz")})}).LongValue(), -1);
  EXPECT_EQ(Call("IsArray", {list}).BooleanValue(), true);
  EXPECT_EQ(Call("UBound", {Call("Array", {})}).LongValue(), -1);

  RunErrorCases({
      {"UBound", {Str("x")}, 13},
      {"UBound", {list, Variant(int32_t{2})}, 9},
      {"LBound", {list, Variant(int32_t{0})}, 9},
      {"Join", {Str("x")}, 13},
      {"Split", {Variant::Null()}, 94},
      {"Split", {Str("a"), Str(","), Variant(int32_t{-2})}, 5},
      {"Filter", {Variant::Null(), Str("a")}, 94},
  });
}

}  // namespace
}  // namespace tessel::vbs::testing
