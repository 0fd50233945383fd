// Operators, precedence, coercion and subtypes, checked through Eval.
#include "tests/vbs/VbsTestSupport.h"

namespace tessel::vbs::test {
namespace {

TEST(VbsExpression, LiteralsKeepTheirSubtypes) {
  Engine e;
  EXPECT_EQ(Typed(e, "32767"), "Integer:32767");
  EXPECT_EQ(Typed(e, "32768"), "Long:32768");
  EXPECT_EQ(Typed(e, "2147483648"), "Double:2147483648");
  EXPECT_EQ(Typed(e, "1.5"), "Double:1.5");
  // Short and long decimals read as the nearest double, like text converted
  // at run time.
  for (const char* text : {"0.1", "0.3", ".7", "25.", "97.25", "123456789.012345", "0.000000000000001",
                           "1234567890123.4567", "3.14159265358979", "9007199254740993.5"})
    EXPECT_EQ(Typed(e, std::string(text) + " = CDbl(\"" + text + "\")"), "Boolean:True") << text;
  EXPECT_EQ(Typed(e, "0.1 + 0.2 = 0.3"), "Boolean:False");
  EXPECT_EQ(Typed(e, "&HFF"), "Integer:255");
  EXPECT_EQ(Typed(e, "&HFFFF"), "Integer:-1");
  EXPECT_EQ(Typed(e, "&H10000"), "Long:65536");
  // With the & suffix the digits are 32 bits, typed Integer when they fit.
  EXPECT_EQ(Typed(e, "&H10&"), "Integer:16");
  EXPECT_EQ(Typed(e, "&HFFFFFFFF&"), "Integer:-1");
  EXPECT_EQ(Typed(e, "&HFFFF&"), "Long:65535");
  EXPECT_EQ(Typed(e, "&HFFFF"), "Integer:-1");
  EXPECT_EQ(Typed(e, "&HDEADBEEF&"), "Long:-559038737");
  // &H or &O without a digit after it is the & operator before a name.
  e.AddCode("Dim hi, obj : hi = \"y\" : obj = \"z\"");
  EXPECT_EQ(Typed(e, "\"x\" &hi & \"-\" &obj"), "String:xy-z");
  EXPECT_EQ(Typed(e, "&O17"), "Integer:15");
  EXPECT_EQ(Typed(e, "\"a\"\"b\""), "String:a\"b");
  EXPECT_EQ(Typed(e, "True"), "Boolean:True");
  EXPECT_EQ(Typed(e, "Empty"), "Empty:");
  EXPECT_EQ(Typed(e, "Null"), "Null:Null");
  EXPECT_EQ(Typed(e, "Nothing"), "Nothing:Nothing");
  EXPECT_EQ(Typed(e, "#2024-02-28#"), "Date:2/28/2024");
  EXPECT_EQ(Typed(e, "#1/15/2024 10:30:00 PM#"), "Date:1/15/2024 10:30:00 PM");
  EXPECT_EQ(Typed(e, "[my var]"), "Empty:");
}

TEST(VbsExpression, PrecedenceFollowsTheLanguage) {
  Engine e;
  // A leading sign binds tighter than ^ (unlike VBA): -2 ^ 2 is (-2) ^ 2.
  EXPECT_EQ(Typed(e, "-2 ^ 2"), "Double:4");
  EXPECT_EQ(Typed(e, "2 * -3 ^ 2"), "Double:18");
  EXPECT_EQ(Typed(e, "-(2 ^ 2)"), "Double:-4");
  EXPECT_EQ(Typed(e, "1 - 2 ^ 2"), "Double:-3");
  EXPECT_EQ(Typed(e, "2 ^ -1"), "Double:0.5");
  EXPECT_EQ(Typed(e, "2 ^ 3 ^ 2"), "Double:64");
  EXPECT_EQ(Typed(e, "7 \\ 2 * 3"), "Integer:1");  // * binds tighter than \ .
  EXPECT_EQ(Typed(e, "7 Mod 4 \\ 2"), "Integer:1");
  EXPECT_EQ(Typed(e, "1 + 2 & 3"), "String:33");
  EXPECT_EQ(Typed(e, "Not 1 = 2"), "Boolean:True");
  EXPECT_EQ(Typed(e, "True Or False And False"), "Boolean:True");
  EXPECT_EQ(Typed(e, "1 = 1 = True"), "Boolean:True");
  EXPECT_EQ(Typed(e, "5 - -3"), "Integer:8");
  EXPECT_EQ(Typed(e, "False Imp False Eqv True"), "Boolean:True");
}

TEST(VbsExpression, JoiningLiteralsGivesTheRunTimeResult) {
  Engine e;
  EXPECT_EQ(Typed(e, "\"C17\" & \"-\" & 17"), "String:C17-17");
  EXPECT_EQ(Typed(e, "\"a\" & -32768 & \"b\" & 2147483647"), "String:a-32768b2147483647");
  EXPECT_EQ(Typed(e, "\"a\" & 1 + 2 & \"\""), "String:a3");
  EXPECT_EQ(Typed(e, "\"x\" & 1.5 & True & Null & Empty & #2024-02-28#"), "String:x1.5True2/28/2024");
  EXPECT_EQ(Typed(e, "Null & Null"), "Null:Null");
  EXPECT_EQ(Typed(e, "1 & 2"), "String:12");
  e.AddCode("Dim v : v = \"V\"");
  EXPECT_EQ(Typed(e, "\"a\" & \"b\" & v & \"c\" & 3 & 1.5 & \"d\" & \"e\" & v"), "String:abVc31.5deV");
  EXPECT_EQ(Typed(e, "(\"a\" & 1) & (2 & \"b\") = \"a12b\""), "Boolean:True");
  EXPECT_EQ(Typed(e, "vbTab & \"t\""), "String:\tt");
  // A chain longer than the parser joins is finished at run time.
  std::string chain = "\"" + std::string(3000, 'a') + "\"";
  for (int i = 0; i < 3; ++i) chain += " & \"" + std::string(3000, 'b') + "\" & " + std::to_string(i);
  Variant joined = e.Eval("Len(" + chain + ") & Right(" + chain + ", 4)");
  EXPECT_EQ(joined.ToString(), "12003bbb2");
  // Inside a procedure the joined text is the same on every call.
  e.AddCode("Function Tag(n)\r\nTag = \"<\" & 1 & \">\" & n\r\nEnd Function\r\n");
  EXPECT_EQ(Typed(e, "Tag(1) & Tag(2)"), "String:<1>1<1>2");
}

TEST(VbsExpression, ArithmeticPromotesOnOverflow) {
  Engine e;
  e.AddCode("Dim i, l : i = 32767 : l = 2147483647");
  EXPECT_EQ(Typed(e, "i + 1"), "Long:32768");
  EXPECT_EQ(Typed(e, "l + 1"), "Double:2147483648");
  EXPECT_EQ(Typed(e, "i * 2"), "Long:65534");
  EXPECT_EQ(Typed(e, "10 / 4"), "Double:2.5");
  EXPECT_EQ(Typed(e, "CCur(1.1) + CCur(2.2)"), "Currency:3.3");
  EXPECT_EQ(Typed(e, "\"3\" + 4"), "Double:7");
  EXPECT_EQ(Typed(e, "\"3\" + \"4\""), "String:34");
  EXPECT_EQ(Typed(e, "#2024-02-28# + 1"), "Date:2/29/2024");
  EXPECT_EQ(Typed(e, "#2024-03-01# - #2024-02-28#"), "Double:2");
  EXPECT_EQ(Typed(e, "CByte(200) + CByte(100)"), "Integer:300");
  EXPECT_EQ(EvalErrorOf(e, "1 / 0"), 11);
  EXPECT_EQ(EvalErrorOf(e, "1 \\ 0"), 11);
  EXPECT_EQ(EvalErrorOf(e, "CInt(40000)"), 6);
  EXPECT_EQ(EvalErrorOf(e, "\"abc\" * 2"), 13);
}

TEST(VbsExpression, NullPropagatesAndEmptyActsAsZero) {
  Engine e;
  e.AddCode("Dim n, u : n = Null");
  EXPECT_EQ(Typed(e, "n + 1"), "Null:Null");
  EXPECT_EQ(Typed(e, "n & \"x\""), "String:x");
  EXPECT_EQ(Typed(e, "n = n"), "Null:Null");
  EXPECT_EQ(Typed(e, "n And False"), "Boolean:False");
  EXPECT_EQ(Typed(e, "n Or True"), "Boolean:True");
  EXPECT_EQ(Typed(e, "Not n"), "Null:Null");
  EXPECT_EQ(Typed(e, "u + 1"), "Integer:1");
  EXPECT_EQ(Typed(e, "u = 0"), "Boolean:True");
  EXPECT_EQ(Typed(e, "u = \"\""), "Boolean:True");
  EXPECT_EQ(Typed(e, "IsEmpty(u)"), "Boolean:True");
  EXPECT_EQ(Typed(e, "u & u"), "String:");
  // If treats Null as false without an error.
  e.AddCode("Dim r : If n Then r = 1 Else r = 2");
  EXPECT_EQ(Typed(e, "r"), "Integer:2");
}

TEST(VbsExpression, ComparisonsOfStringsAndNumbers) {
  Engine e;
  e.AddCode("Dim num, str : num = 5 : str = \"5\"");
  EXPECT_EQ(Typed(e, "num = str"), "Boolean:False");  // a number is less than any string
  EXPECT_EQ(Typed(e, "num < str"), "Boolean:True");
  EXPECT_EQ(Typed(e, "num = \"5\""), "Boolean:True");  // a literal is read as a number
  EXPECT_EQ(Typed(e, "\"abc\" < \"abd\""), "Boolean:True");
  EXPECT_EQ(Typed(e, "\"a\" = \"A\""), "Boolean:False");
  EXPECT_EQ(Typed(e, "10 > 9"), "Boolean:True");
  EXPECT_EQ(Typed(e, "\"10\" > \"9\""), "Boolean:False");
}

TEST(VbsExpression, LogicalOperatorsWorkBitwiseOnNumbers) {
  Engine e;
  EXPECT_EQ(Typed(e, "6 And 3"), "Integer:2");
  EXPECT_EQ(Typed(e, "6 Or 3"), "Integer:7");
  EXPECT_EQ(Typed(e, "6 Xor 3"), "Integer:5");
  EXPECT_EQ(Typed(e, "Not 0"), "Integer:-1");
  EXPECT_EQ(Typed(e, "True And 1"), "Integer:1");
}

TEST(VbsExpression, IsComparesObjectIdentity) {
  Engine e;
  e.AddCode("Class C : End Class\nDim a, b, o : Set a = New C : Set b = a : Set o = New C");
  EXPECT_EQ(Typed(e, "a Is b"), "Boolean:True");
  EXPECT_EQ(Typed(e, "a Is o"), "Boolean:False");
  EXPECT_EQ(Typed(e, "a Is Nothing"), "Boolean:False");
  EXPECT_EQ(EvalErrorOf(e, "1 Is a"), 424);
}

}  // namespace
}  // namespace tessel::vbs::test
