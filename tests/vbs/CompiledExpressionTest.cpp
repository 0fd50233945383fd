// Expressions parsed once with slots and evaluated with other values each
// time: slots behave as literals of their values and are never folded.
#include <string>

#include "scripting/vbs/CompiledExpression.h"
#include "tests/vbs/VbsTestSupport.h"

namespace tessel::vbs::test {
namespace {

std::string Slot(int number) { return std::string("\x01") + static_cast<char>(number + 1); }

std::string Evaluated(Engine& e, const CompiledExpression& expression) {
  const Variant v = e.Eval(expression, [] { return std::string("written out"); });
  return v.TypeName() + ":" + v.ToString();
}

TEST(VbsCompiledExpression, SlotsTakeNewValuesAtEveryEvaluation) {
  Engine e;
  CompiledExpression joined("\"<\" & " + Slot(0) + " & \">\"");
  ASSERT_TRUE(joined.HasSlots(1));
  joined.SetSlot(0, Variant("a"));
  EXPECT_EQ(Evaluated(e, joined), "String:<a>");
  joined.SetSlot(0, Variant("b"));
  EXPECT_EQ(Evaluated(e, joined), "String:<b>");

  // Neither a sign nor arithmetic with another literal is worked out once.
  CompiledExpression negated("-" + Slot(0) + "^2 + 1 * " + Slot(1));
  ASSERT_TRUE(negated.HasSlots(2));
  negated.SetSlot(0, Variant::FromInteger(3));
  negated.SetSlot(1, Variant::FromInteger(2));
  EXPECT_EQ(Evaluated(e, negated), "Double:11");
  negated.SetSlot(0, Variant::FromInteger(4));
  negated.SetSlot(1, Variant::FromDouble(0.5));
  EXPECT_EQ(Evaluated(e, negated), "Double:16.5");

  // A string slot meets a number as a string literal does: against another
  // literal it stays text, against a variable it is read as a number.
  e.AddCode("Dim five : five = 5");
  CompiledExpression literal(Slot(0) + " = 5");
  literal.SetSlot(0, Variant("5"));
  EXPECT_EQ(Evaluated(e, literal), "Boolean:False");
  CompiledExpression variable(Slot(0) + " = five");
  variable.SetSlot(0, Variant("5"));
  EXPECT_EQ(Evaluated(e, variable), "Boolean:True");
}

TEST(VbsCompiledExpression, MarkersSwallowedByOtherTokensAreNoSlots) {
  EXPECT_FALSE(CompiledExpression("\"x" + Slot(0) + "\"").HasSlots(1));
  EXPECT_FALSE(CompiledExpression("1 ' " + Slot(0)).HasSlots(1));
  EXPECT_FALSE(CompiledExpression(Slot(0) + " + " + Slot(0)).HasSlots(1));
  EXPECT_TRUE(CompiledExpression(Slot(1) + " + " + Slot(0)).HasSlots(2));
  // Outside a compiled expression the marker is an invalid character.
  Engine e;
  EXPECT_EQ(EvalErrorOf(e, Slot(0)), 1032);
}

TEST(VbsCompiledExpression, FailuresAreReportedForTheWrittenOutText) {
  Engine e;
  CompiledExpression divided("10 / " + Slot(0));
  divided.SetSlot(0, Variant::FromInteger(0));
  bool raised = false;
  try {
    e.Eval(divided, [] { return std::string("10 / 0"); });
  } catch (const Error& error) {
    raised = true;
    EXPECT_EQ(error.number(), 11);
  }
  EXPECT_TRUE(raised);
  EXPECT_EQ(e.Error().Number(), 11);
  EXPECT_EQ(e.Error().Text(), "10 / 0");
}

TEST(VbsCompiledExpression, NumberLiteralsReadAsTheLanguageReadsThem) {
  Variant v;
  ASSERT_TRUE(CompiledExpression::NumberLiteral("12", v));
  EXPECT_EQ(v.TypeName() + ":" + v.ToString(), "Integer:12");
  ASSERT_TRUE(CompiledExpression::NumberLiteral("40000", v));
  EXPECT_EQ(v.TypeName(), "Long");
  ASSERT_TRUE(CompiledExpression::NumberLiteral("2147483648", v));
  EXPECT_EQ(v.TypeName(), "Double");
  ASSERT_TRUE(CompiledExpression::NumberLiteral(".5", v));
  EXPECT_EQ(v.ToString(), "0.5");
  ASSERT_TRUE(CompiledExpression::NumberLiteral("1E+3", v));
  EXPECT_EQ(v.ToString(), "1000");
  for (const char* text : {"", "-5", " 12", "12 ", "1.2.3", "12abc", "&H10", "1e", "abc", "#1/1/2020#"})
    EXPECT_FALSE(CompiledExpression::NumberLiteral(text, v)) << text;
}

}  // namespace
}  // namespace tessel::vbs::test
