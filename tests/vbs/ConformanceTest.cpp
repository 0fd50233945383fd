// The corners of the language that scripts written for Windows Script rely on:
// Null and Empty through the operators, comparisons of strings with numbers,
// integer overflow, rounding of operands, date arithmetic, loop bounds,
// arrays passed by reference and where Err stands after a call.
#include <string>
#include <vector>

#include "tests/vbs/VbsTestSupport.h"

namespace tessel::vbs::test {
namespace {

struct Expect {
  const char* expression;
  const char* typed;  // "Subtype:value"
};

void CheckValues(Engine& e, const std::vector<Expect>& cases) {
  for (const auto& c : cases) EXPECT_EQ(Typed(e, c.expression), c.typed) << c.expression;
}

TEST(VbsConformance, NullPropagatesThroughEveryOperatorButConcatenation) {
  Engine e;
  CheckValues(e, {
                     {"Null + 1", "Null:Null"},
                     {"1 - Null", "Null:Null"},
                     {"Null * 2", "Null:Null"},
                     {"Null / 2", "Null:Null"},
                     {"Null \\ 2", "Null:Null"},
                     {"Null Mod 0", "Null:Null"},  // Null wins over division by zero
                     {"2 ^ Null", "Null:Null"},
                     {"-Null", "Null:Null"},
                     {"Not Null", "Null:Null"},
                     {"Null + \"\"", "Null:Null"},
                     {"Null = Null", "Null:Null"},
                     {"Null <> 1", "Null:Null"},
                     {"Null & \"a\"", "String:a"},
                     {"\"a\" & Null", "String:a"},
                     {"Empty & Null", "String:"},
                     {"Null & Null", "Null:Null"},
                     // The logical operators only answer Null when the other
                     // side does not decide the result.
                     {"Null And False", "Boolean:False"},
                     {"Null And 0", "Integer:0"},
                     {"Null And True", "Null:Null"},
                     {"Null Or True", "Boolean:True"},
                     {"Null Or -1", "Integer:-1"},
                     {"Null Or False", "Null:Null"},
                     {"Null Xor True", "Null:Null"},
                     {"Null Eqv True", "Null:Null"},
                     {"False Imp Null", "Boolean:True"},
                     {"Null Imp True", "Boolean:True"},
                     {"Null Imp False", "Null:Null"},
                 });
  EXPECT_EQ(EvalErrorOf(e, "Null Is Nothing"), 424);
}

TEST(VbsConformance, EmptyActsAsZeroOrEmptyText) {
  Engine e;
  e.AddCode("Dim never, five : five = \"5\"");
  CheckValues(e, {
                     {"Empty + Empty", "Integer:0"},
                     {"Empty * 1", "Integer:0"},
                     {"-Empty", "Integer:0"},
                     {"Not Empty", "Integer:-1"},
                     {"Empty & Empty", "String:"},
                     {"Empty + \"abc\"", "String:abc"},
                     {"CByte(1) + Empty", "Byte:1"},
                     {"never = 0", "Boolean:True"},
                     {"never = \"\"", "Boolean:True"},
                     {"never = False", "Boolean:True"},
                     {"never = \"0\"", "Boolean:False"},
                     {"never < \"a\"", "Boolean:True"},
                     {"never < five", "Boolean:True"},
                     {"never > -1", "Boolean:True"},
                     {"never = never", "Boolean:True"},
                 });
}

TEST(VbsConformance, StringsAgainstNumbersDependOnLiterals) {
  Engine e;
  e.AddCode("Dim s, ten, five : s = \"5\" : ten = 10 : five = 5");
  CheckValues(e, {
                     // Two variables: any string is greater than any number.
                     {"s > ten", "Boolean:True"},
                     {"s = five", "Boolean:False"},
                     {"five < \"abc\"", "Boolean:True"},
                     // A numeric literal turns the string variable into a number.
                     {"s > 10", "Boolean:False"},
                     {"s = 5", "Boolean:True"},
                     // A literal numeric string is compared as a number with a
                     // numeric variable.
                     {"\"5\" = five", "Boolean:True"},
                     // Two literals: the number is the smaller.
                     {"10 > \"5\"", "Boolean:False"},
                     {"\"10\" = 10", "Boolean:False"},
                     // Strings compare as text, case-sensitively.
                     {"\"10\" < \"9\"", "Boolean:True"},
                     {"\"a\" = \"A\"", "Boolean:False"},
                 });
}

TEST(VbsConformance, SelectCaseComparesLikeEquals) {
  Engine e;
  e.AddCode(
      "Function Pick(v)\n"
      "  Select Case v\n"
      "    Case 1 : Pick = \"one\"\n"
      "    Case \"x\", 2.5 : Pick = \"x or 2.5\"\n"
      "    Case Else : Pick = \"else\"\n"
      "  End Select\n"
      "End Function\n"
      "Dim literal\n"
      "Select Case \"1\" : Case 1 : literal = \"number\" : Case \"1\" : literal = \"text\" : End Select");
  CheckValues(e, {
                     {"Pick(1)", "String:one"},
                     {"Pick(\"1\")", "String:one"},  // a variable against a numeric literal
                     {"Pick(1.0)", "String:one"},
                     {"Pick(True)", "String:else"},
                     {"Pick(\"x\")", "String:x or 2.5"},
                     {"Pick(CSng(2.5))", "String:x or 2.5"},
                     {"Pick(Null)", "String:else"},
                     {"Pick(Empty)", "String:else"},
                     {"literal", "String:text"},
                 });
}

TEST(VbsConformance, IntegerDivisionAndModRoundTheirOperands) {
  Engine e;
  CheckValues(e, {
                     {"5.5 Mod 2", "Long:0"},  // 6 Mod 2: half to even
                     {"6.5 Mod 4", "Long:2"},  // 6 Mod 4
                     {"5.4 Mod 2", "Long:1"},
                     {"11.6 Mod 5.5", "Long:0"},
                     {"7.5 \\ 2", "Long:4"},
                     {"-7.5 \\ 2", "Long:-4"},
                     {"4.6 \\ 1.49", "Long:5"},
                     {"-7 \\ 2", "Integer:-3"},
                     {"-5 Mod 3", "Integer:-2"},
                     {"5 Mod -3", "Integer:2"},
                     {"CByte(10) Mod CByte(3)", "Byte:1"},
                     {"CLng(10) \\ 3", "Long:3"},
                     {"\"7\" Mod \"2\"", "Long:1"},
                 });
  EXPECT_EQ(EvalErrorOf(e, "10 Mod 0"), 11);
  EXPECT_EQ(EvalErrorOf(e, "10 \\ 0.4"), 11);  // the divisor rounds to 0
  EXPECT_EQ(EvalErrorOf(e, "2147483648 Mod 2"), 6);
}

TEST(VbsConformance, OverflowWidensTheSubtype) {
  Engine e;
  CheckValues(e, {
                     {"32767 + 1", "Long:32768"},
                     {"-32768 - 1", "Long:-32769"},
                     {"200 * 200", "Long:40000"},
                     {"-(-32768)", "Long:32768"},
                     {"2147483647 + 1", "Double:2147483648"},
                     {"2147483647 * 2", "Double:4294967294"},
                     {"CByte(200) + CByte(100)", "Integer:300"},
                     {"CByte(2) * CByte(3)", "Byte:6"},
                     {"True + True", "Integer:-2"},
                     {"\"1\" + 1", "Double:2"},
                     {"\"1\" + \"1\"", "String:11"},
                     {"2 ^ 2", "Double:4"},
                     {"2 ^ 31", "Double:2147483648"},
                     {"2 ^ -1", "Double:0.5"},
                     {"CCur(1) * 1.5", "Currency:1.5"},
                 });
  EXPECT_EQ(EvalErrorOf(e, "(-8) ^ (1 / 3)"), 5);
  EXPECT_EQ(EvalErrorOf(e, "0 / 0"), 6);
  EXPECT_EQ(EvalErrorOf(e, "1 / 0"), 11);
}

TEST(VbsConformance, DateArithmetic) {
  Engine e;
  CheckValues(e, {
                     {"#2024-02-28# + 1", "Date:2/29/2024"},
                     {"1 + #2/28/2023#", "Date:3/1/2023"},
                     {"#3/1/2024# - 1", "Date:2/29/2024"},
                     {"#3/1/2024# - #2/28/2024#", "Double:2"},
                     {"#1/1/2024# - #1/2/2024#", "Double:-1"},
                     {"#1/1/2024# + 0.5", "Date:1/1/2024 12:00:00 PM"},
                     {"#1/1/2024# = #1/1/2024 00:00#", "Boolean:True"},
                     {"#1/2/2024# > #1/1/2024 23:59#", "Boolean:True"},
                     {"#1/1/2024# * 2", "Double:90584"},
                 });
}

TEST(VbsConformance, ForLoopBoundsAndStepAreEvaluatedOnce) {
  Engine e;
  e.AddCode(
      "Dim x, y, z\n"
      "Function Count(first, last, stepBy)\n"
      "  Dim i, n : n = 0\n"
      "  For i = first To last Step stepBy : n = n + 1 : If n > 50 Then Exit For\n"
      "  Next\n"
      "  Count = n\n"
      "End Function\n"
      "Dim changed : changed = \"\" : z = 4\n"
      "For x = 5 To z Step 3 - 4 : changed = changed & x : z = 0 : Next\n"
      "Dim skipped : skipped = \"\"\n"
      "For x = 5 To 8 : skipped = skipped & x : x = x + 1 : Next\n"
      "Dim down : down = \"\"\n"
      "For y = 3 To 1 Step -1 : down = down & y : Next");
  CheckValues(e, {
                     {"Count(1, 2, 0.5)", "Integer:3"},
                     {"Count(1, 2.5, 0.5)", "Integer:4"},
                     {"Count(\"1\", \"2\", \"1\")", "Integer:2"},
                     {"Count(1.5, 1, 1)", "Integer:0"},
                     {"Count(3, 1, 0)", "Integer:0"},
                     {"Count(1, 3, 0)", "Integer:51"},  // Step 0 never ends on its own
                     {"Count(5, 3, True)", "Integer:3"},
                     {"changed", "String:54"},
                     {"skipped", "String:57"},
                     {"down & \"/\" & y", "String:321/0"},
                 });
}

TEST(VbsConformance, ForEachWalksACopyOfTheArray) {
  Engine e;
  e.AddCode(
      "Dim a(3), x, seen, i : For i = 0 To 3 : a(i) = i : Next\n"
      "seen = \"\"\n"
      "For Each x In a : a(3) = 99 : x = -1 : seen = seen & x & \",\" : Next\n"
      "Dim d, gone : d = Array(1, 2, 3) : gone = \"\"\n"
      "For Each x In d : ReDim d(0) : gone = gone & x : Next\n"
      "Dim walked : walked = \"\"\n"
      "For Each x In Array(1, 2)\n"
      "  For Each i In Array(3, 4, 5)\n"
      "    If i = 4 Then Exit For\n"
      "    walked = walked & x & i & \" \"\n"
      "  Next\n"
      "Next");
  EXPECT_EQ(Typed(e, "seen & a(3)"), "String:-1,-1,-1,-1,99");
  e.AddCode(
      "seen = \"\" : a(3) = 3\n"
      "For Each x In a : a(3) = 99 : seen = seen & x : Next");
  EXPECT_EQ(Typed(e, "seen"), "String:0123");
  EXPECT_EQ(Typed(e, "gone & UBound(d)"), "String:1230");
  EXPECT_EQ(Typed(e, "walked"), "String:13 23 ");
}

TEST(VbsConformance, ReDimPreserveAndErase) {
  Engine e;
  e.AddCode(
      "Dim fixed(2) : fixed(0) = 5 : Erase fixed\n"
      "Dim grow() : ReDim grow(2) : grow(2) = \"x\" : ReDim Preserve grow(4)\n"
      "Dim grid : ReDim grid(2, 3) : grid(1, 1) = \"kept\" : ReDim Preserve grid(2, 5)\n"
      "Dim gone : ReDim gone(2) : Erase gone");
  CheckValues(e, {
                     {"UBound(fixed) & IsEmpty(fixed(0))", "String:2True"},
                     {"grow(2) & UBound(grow)", "String:x4"},
                     {"grid(1, 1) & UBound(grid, 2)", "String:kept5"},
                 });
  EXPECT_EQ(EvalErrorOf(e, "UBound(gone)"), 9);
  EXPECT_EQ(ErrorOf(e, "ReDim Preserve grid(3, 5)"), 9);  // only the last dimension may change
  EXPECT_EQ(ErrorOf(e, "ReDim Preserve fixed(4)"), 10);
  EXPECT_EQ(ErrorOf(e, "ReDim fixed(4)"), 10);
}

TEST(VbsConformance, ArrayElementsPassedByReference) {
  Engine e;
  e.AddCode(
      "Sub Bump(v) : v = v + 1 : End Sub\n"
      "Sub Keep(ByVal v) : v = 99 : End Sub\n"
      "Sub SetFirst(arr) : arr(0) = 2 : End Sub\n"
      "Function Twice(v) : v = v * 2 : Twice = v : End Function\n"
      "Class Counter\n"
      "  Public items\n"
      "  Private own(1)\n"
      "  Public Sub Inc(v) : v = v + 100 : End Sub\n"
      "  Public Function Run()\n"
      "    items = Array(1, 2) : own(0) = 5\n"
      "    Bump items(0) : Me.Inc items(1) : Inc own(0)\n"
      "    Run = items(0) & \",\" & items(1) & \",\" & own(0)\n"
      "  End Function\n"
      "End Class\n"
      "Dim a(2), g(1, 2), i, j, r, c, nest\n"
      "a(0) = 1 : Call Bump(a(0)) : Bump a(0) : Bump (a(0))\n"
      "i = 1 : j = 2 : g(i, j) = 4 : Bump g(i, j) : Call Bump(g(i, j))\n"
      "a(1) = 1 : r = Twice(Twice(a(1)))\n"
      "a(2) = 7 : Keep a(2)\n"
      "Set c = New Counter : c.Inc a(0) : Call c.Inc(a(0))\n"
      "c.items = Array(0) : c.Inc c.items(0)\n"
      "nest = Array(Array(3), Array(3)) : SetFirst nest(0) : SetFirst (nest(1))");
  CheckValues(e, {
                     {"a(0)", "Integer:203"},  // (a(0)) passed a copy
                     {"g(1, 2)", "Integer:6"},
                     {"a(1) & \"/\" & r", "String:2/4"},
                     {"a(2)", "Integer:7"},
                     {"c.items(0)", "Integer:0"},  // a property's value is a temporary
                     {"c.Run()", "String:2,102,105"},
                     // An element holding an array passes that array by reference.
                     {"nest(0)(0) & nest(1)(0)", "String:23"},
                 });
}

TEST(VbsConformance, ErrAcrossProcedureCalls) {
  Engine e;
  e.AddCode(
      "Function Safe() : On Error Resume Next : Err.Raise 5 : Safe = Err.Number : End Function\n"
      "Function NoHandler() : Dim q : q = 1 / 0 : NoHandler = 1 : End Function\n"
      "Sub Inner() : Err.Raise 9 : End Sub\n"
      "Sub Outer() : On Error Resume Next : Inner : seen = Err.Number : End Sub\n"
      "Dim seen, result, afterCall, numberSeen\n"
      // A handler inside the function keeps a statement without one running.
      "result = Safe()\n"
      "afterCall = Err.Number");
  CheckValues(e, {{"result", "Long:5"}, {"afterCall", "Long:5"}});
  e.AddCode("Outer");
  EXPECT_EQ(Typed(e, "seen"), "Long:9");
  // An error in a procedure without a handler ends it and resumes the caller.
  e.AddCode(
      "On Error Resume Next\n"
      "result = Empty : result = NoHandler()\n"
      "numberSeen = Err.Number\n"
      "On Error GoTo 0\n"
      "afterCall = Err.Number");
  CheckValues(e, {{"numberSeen", "Long:11"}, {"IsEmpty(result)", "Boolean:True"}, {"afterCall", "Long:0"}});
  EXPECT_EQ(ErrorOf(e, "result = NoHandler()"), 11);
}

}  // namespace
}  // namespace tessel::vbs::test
