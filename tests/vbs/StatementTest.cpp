// Statements: declarations, control flow, procedures and their arguments.
#include "tests/vbs/VbsTestSupport.h"

namespace tessel::vbs::test {
namespace {

TEST(VbsStatement, IfElseIfAndOneLineIf) {
  Engine e;
  e.AddCode(
      "Function Grade(n)\n"
      "  If n >= 90 Then\n"
      "    Grade = \"A\"\n"
      "  ElseIf n >= 80 Then\n"
      "    Grade = \"B\"\n"
      "  Else\n"
      "    Grade = \"C\"\n"
      "  End If\n"
      "End Function\n"
      "Function Sign(n)\n"
      "  If n < 0 Then Sign = -1 Else If n = 0 Then Sign = 0 Else Sign = 1\n"
      "End Function\n"
      "Dim t : If True Then t = 1 : t = t + 1 Else t = 10");
  EXPECT_EQ(Typed(e, "Grade(95) & Grade(85) & Grade(5)"), "String:ABC");
  EXPECT_EQ(Typed(e, "Sign(-3) & Sign(0) & Sign(7)"), "String:-101");
  EXPECT_EQ(Typed(e, "t"), "Integer:2");
}

TEST(VbsStatement, SelectCaseWithListsRangesAndIs) {
  Engine e;
  e.AddCode(
      "Function Kind(v)\n"
      "  Select Case v\n"
      "    Case 1, 2, 3: Kind = \"few\"\n"
      "    Case 4 To 9\n"
      "      Kind = \"some\"\n"
      "    Case \"x\": Kind = \"letter\"\n"
      "    Case Is >= 10: Kind = \"many\"\n"
      "    Case Else: Kind = \"other\"\n"
      "  End Select\n"
      "End Function");
  EXPECT_EQ(Typed(e, "Kind(2)"), "String:few");
  EXPECT_EQ(Typed(e, "Kind(7)"), "String:some");
  EXPECT_EQ(Typed(e, "Kind(100)"), "String:many");
  EXPECT_EQ(Typed(e, "Kind(\"x\")"), "String:letter");
  EXPECT_EQ(Typed(e, "Kind(-1)"), "String:other");
  EXPECT_EQ(Typed(e, "Kind(Null)"), "String:other");
}

TEST(VbsStatement, ForLoopsCountWithStepAndExit) {
  Engine e;
  e.AddCode(
      "Dim s, i, n\n"
      "For i = 10 To 1 Step -3 : s = s & i & \",\" : Next\n"
      "For i = 1 To 0 : n = n + 1 : Next\n"
      "Dim k : For k = 1 To 100\n If k = 5 Then Exit For\nNext\n"
      "Dim f : For f = 0.5 To 2 Step 0.5 : Next");
  EXPECT_EQ(Typed(e, "s"), "String:10,7,4,1,");
  EXPECT_EQ(Typed(e, "n"), "Empty:");
  EXPECT_EQ(Typed(e, "k"), "Integer:5");
  EXPECT_EQ(Typed(e, "i"), "Integer:1");
  EXPECT_EQ(Typed(e, "f"), "Double:2.5");
}

TEST(VbsStatement, ForEachWalksArraysAndCollections) {
  Engine e;
  e.AddCode(
      "Dim a, x, s : a = Array(1, \"b\", 3)\n"
      "For Each x In a : s = s & x : Next\n"
      "Dim d, k, keys : Set d = CreateObject(\"Scripting.Dictionary\")\n"
      "d.Add \"one\", 1 : d.Add \"two\", 2\n"
      "For Each k In d : keys = keys & k & \";\" : Next");
  EXPECT_EQ(Typed(e, "s"), "String:1b3");
  EXPECT_EQ(Typed(e, "keys"), "String:one;two;");
  EXPECT_EQ(ErrorOf(e, "Dim q : For Each q In 5 : Next"), 451);
}

TEST(VbsStatement, DoAndWhileLoops) {
  Engine e;
  e.AddCode(
      "Dim a, b, c, d, w\n"
      "a = 0 : Do While a < 5 : a = a + 1 : Loop\n"
      "b = 0 : Do Until b >= 3 : b = b + 1 : Loop\n"
      "c = 10 : Do : c = c + 1 : Loop While c < 5\n"
      "d = 0 : Do : d = d + 1 : If d = 7 Then Exit Do\nLoop\n"
      "w = 0 : While w < 4 : w = w + 2 : Wend");
  EXPECT_EQ(Typed(e, "a & b & c & d & w"), "String:531174");
}

TEST(VbsStatement, ProceduresPassByRefAndByVal) {
  Engine e;
  e.AddCode(
      "Sub Bump(ByRef x) : x = x + 1 : End Sub\n"
      "Sub Keep(ByVal x) : x = x + 1 : End Sub\n"
      "Sub Plain(x) : x = x * 10 : End Sub\n"
      "Class Box : Public V : End Class\n"
      "Dim a, b, c, arr, bx, p\n"
      "a = 1 : Bump a\n"
      "b = 1 : Keep b\n"
      "c = 2 : Plain c\n"
      "p = 5 : Bump (p)\n"
      "arr = Array(1, 2) : Bump arr(0)\n"
      "Set bx = New Box : bx.V = 1 : Bump bx.V\n"
      "Dim q : q = 1 : Call Bump(q)");
  EXPECT_EQ(Typed(e, "a"), "Integer:2");
  EXPECT_EQ(Typed(e, "b"), "Integer:1");
  EXPECT_EQ(Typed(e, "c"), "Integer:20");
  EXPECT_EQ(Typed(e, "p"), "Integer:5");
  EXPECT_EQ(Typed(e, "arr(0)"), "Integer:2");
  EXPECT_EQ(Typed(e, "bx.V"), "Integer:1");
  EXPECT_EQ(Typed(e, "q"), "Integer:2");
}

TEST(VbsStatement, ArrayElementsPassByRefAndSurviveChangesToTheirArray) {
  Engine e;
  e.AddCode(
      "Dim m(1, 1), h\nReDim g(2)\n"
      "Sub SetTo(x, v) : x = v : End Sub\n"
      "Sub Shrink(x) : ReDim g(0) : x = 99 : End Sub\n"
      "Sub Drop(x) : g = Empty : x = 98 : End Sub\n"
      "Sub Fail(x) : x = 7 : Err.Raise 5 : End Sub\n"
      "Sub Both(x, y) : x = 1 : y = 2 : End Sub\n"
      "SetTo m(1, 0), \"two-d\"\n"
      "h = Array(0, 0) : Both h(0), h(1)");
  EXPECT_EQ(Typed(e, "m(1, 0)"), "String:two-d");
  EXPECT_EQ(Typed(e, "h(0) & h(1)"), "String:12");
  e.AddCode("ReDim g(2) : SetTo g(ReDimCount()), 5\nFunction ReDimCount() : ReDimCount = 1 : End Function");
  EXPECT_EQ(Typed(e, "g(1)"), "Integer:5");
  // The array shrinks or goes away inside the call: the value is dropped,
  // nothing else is touched.
  e.AddCode("ReDim g(2) : Shrink g(2)");
  EXPECT_EQ(Typed(e, "UBound(g)"), "Long:0");
  e.AddCode("ReDim g(2) : Drop g(1)");
  EXPECT_EQ(Typed(e, "IsEmpty(g)"), "Boolean:True");
  // A call that fails still hands its assignment back.
  e.AddCode("ReDim g(2)\nOn Error Resume Next\nFail g(0)\nOn Error GoTo 0");
  EXPECT_EQ(Typed(e, "g(0)"), "Integer:7");
  // Parentheses around the argument pass a value, as for a variable.
  e.AddCode("ReDim g(2) : g(0) = 1 : SetTo (g(0)), 9");
  EXPECT_EQ(Typed(e, "g(0)"), "Integer:1");
}

TEST(VbsStatement, FunctionsReturnValuesAndExitEarly) {
  Engine e;
  e.AddCode(
      "Function Twice(n) : Twice = n * 2 : End Function\n"
      "Function FirstNeg(a)\n"
      "  Dim i : FirstNeg = -1\n"
      "  For i = 0 To UBound(a)\n"
      "    If a(i) < 0 Then FirstNeg = i : Exit Function\n"
      "  Next\n"
      "End Function\n"
      "Function Nothing0() : End Function");
  EXPECT_EQ(Typed(e, "Twice(21)"), "Integer:42");
  EXPECT_EQ(Typed(e, "FirstNeg(Array(3, 4, -1, -2))"), "Integer:2");
  EXPECT_EQ(Typed(e, "Nothing0()"), "Empty:");
  EXPECT_EQ(EvalErrorOf(e, "Twice(1, 2)"), 450);
  EXPECT_EQ(ErrorOf(e, "Twice 1, 2"), 450);
}

TEST(VbsStatement, AddCodeReplacesAFunction) {
  Engine e;
  e.AddCode("Function F() : F = 1 : End Function");
  EXPECT_EQ(Typed(e, "F()"), "Integer:1");
  e.AddCode("Function F() : F = 2 : End Function");
  EXPECT_EQ(Typed(e, "F()"), "Integer:2");
  EXPECT_EQ(Typed(e, "F"), "Integer:2");
}

TEST(VbsStatement, DimReDimPreserveAndErase) {
  Engine e;
  e.AddCode(
      "Dim fixed(2), dyn(), m(1, 2)\n"
      "fixed(2) = \"z\"\n"
      "ReDim dyn(1) : dyn(0) = \"a\" : dyn(1) = \"b\"\n"
      "ReDim Preserve dyn(3) : dyn(3) = \"d\"\n"
      "m(1, 2) = 12");
  EXPECT_EQ(Typed(e, "UBound(fixed)"), "Long:2");
  EXPECT_EQ(Typed(e, "fixed(2)"), "String:z");
  EXPECT_EQ(Typed(e, "dyn(0) & dyn(1) & dyn(3)"), "String:abd");
  EXPECT_EQ(Typed(e, "UBound(dyn)"), "Long:3");
  EXPECT_EQ(Typed(e, "UBound(m, 2)"), "Long:2");
  EXPECT_EQ(Typed(e, "m(1, 2)"), "Integer:12");
  EXPECT_EQ(Typed(e, "VarType(dyn)"), "Integer:8204");
  EXPECT_EQ(EvalErrorOf(e, "fixed(3)"), 9);
  EXPECT_EQ(ErrorOf(e, "ReDim fixed(5)"), 10);
  EXPECT_EQ(ErrorOf(e, "ReDim Preserve m(2, 2)"), 10);
  EXPECT_EQ(ErrorOf(e, "Dim g : ReDim g(1, 1) : ReDim Preserve g(2, 1)"), 9);
  e.AddCode("ReDim Preserve dyn(0)");
  EXPECT_EQ(Typed(e, "UBound(dyn) & dyn(0)"), "String:0a");
  e.AddCode("Erase fixed : Erase dyn");
  EXPECT_EQ(Typed(e, "IsEmpty(fixed(2))"), "Boolean:True");
  EXPECT_EQ(EvalErrorOf(e, "UBound(dyn)"), 9);
}

TEST(VbsStatement, ArraysAreCopiedOnAssignment) {
  Engine e;
  e.AddCode("Dim a, b : a = Array(1, 2) : b = a : b(0) = 9");
  EXPECT_EQ(Typed(e, "a(0) & b(0)"), "String:19");
}

TEST(VbsStatement, ConstAndOptionExplicit) {
  Engine e;
  e.AddCode("Const Rate = 0.5, Name = \"n\"");
  EXPECT_EQ(Typed(e, "Rate"), "Double:0.5");
  EXPECT_EQ(ErrorOf(e, "Rate = 2"), 501);
  EXPECT_EQ(ErrorOf(e, "Option Explicit\nDim ok : ok = 1\nnotDeclared = 2"), 500);
  EXPECT_EQ(e.Error().Line(), 3);
  Engine relaxed;
  relaxed.AddCode("implicitGlobal = 3");
  EXPECT_EQ(Typed(relaxed, "implicitGlobal"), "Integer:3");
}

TEST(VbsStatement, WithBlocksReachMembers) {
  Engine e;
  e.AddCode(
      "Class P : Public A, B : End Class\n"
      "Dim o : Set o = New P\n"
      "With o\n .A = 1\n .B = .A + 1\nEnd With");
  EXPECT_EQ(Typed(e, "o.A & o.B"), "String:12");
}

TEST(VbsStatement, LineContinuationColonsAndComments) {
  Engine e;
  e.AddCode(
      "Dim x ' comment\n"
      "x = 1 + _\n"
      "    2 : Rem another\n"
      "REM whole line\n"
      "x = x _\n  * 10");
  EXPECT_EQ(Typed(e, "x"), "Integer:30");
}

TEST(VbsStatement, ExecuteExecuteGlobalEvalAndGetRef) {
  Engine e;
  e.AddCode(
      "Function Local()\n"
      "  Dim v : v = 2\n"
      "  Execute \"v = v * 21\"\n"
      "  Local = Eval(\"v + 0\")\n"
      "End Function\n"
      "ExecuteGlobal \"Function Made() : Made = 7 : End Function\"\n"
      "Function Add1(n) : Add1 = n + 1 : End Function\n"
      "Dim f : Set f = GetRef(\"Add1\")");
  EXPECT_EQ(Typed(e, "Local()"), "Integer:42");
  EXPECT_EQ(Typed(e, "Made()"), "Integer:7");
  EXPECT_EQ(Typed(e, "f(4)"), "Integer:5");
  EXPECT_EQ(Typed(e, "Eval(\"1 + 1\")"), "Integer:2");
  EXPECT_EQ(EvalErrorOf(e, "GetRef(\"NoSuch\")"), 5);
  // A syntax error inside the executed text is reported on the statement.
  EXPECT_EQ(ErrorOf(e, "Dim ok\nExecute \"x = = 1\""), 1023);
  EXPECT_EQ(e.Error().Line(), 2);
  EXPECT_EQ(e.Error().Text(), "Execute \"x = = 1\"");
  EXPECT_EQ(ErrorOf(e, "On Error Resume Next\nExecute \"x = = 1\"\nDim n : n = Err.Number"), 0);
  EXPECT_EQ(Typed(e, "n"), "Long:1023");
}

TEST(VbsStatement, NamesAreCaseInsensitive) {
  Engine e;
  e.AddCode("Dim MyVar : myvar = 3\nFunction DoIt() : DOIT = MYVAR : End Function");
  EXPECT_EQ(Typed(e, "doit()"), "Integer:3");
}

}  // namespace
}  // namespace tessel::vbs::test

namespace tessel::vbs::test {
namespace {

TEST(VbsStatement, DateLiteralsInSeveralForms) {
  Engine e;
  EXPECT_EQ(Typed(e, "#February 28, 2024#"), "Date:2/28/2024");
  EXPECT_EQ(Typed(e, "#2/28/2024#"), "Date:2/28/2024");
  EXPECT_EQ(Typed(e, "#10:30#"), "Date:10:30:00 AM");
  EXPECT_EQ(ErrorOf(e, "x = #not a date#"), 1002);
}

TEST(VbsStatement, LocalArraysAndExitProperty) {
  Engine e;
  e.AddCode(
      "Function Fill()\n"
      "  Dim a(2), i\n"
      "  For i = 0 To 2 : a(i) = i * i : Next\n"
      "  Fill = Join(a, \",\")\n"
      "End Function\n"
      "Class Q\n"
      "  Property Get P()\n"
      "    P = 1\n"
      "    Exit Property\n"
      "    P = 2\n"
      "  End Property\n"
      "  Function Items() : Items = Array(\"x\", \"y\") : End Function\n"
      "End Class\n"
      "Dim qq : Set qq = New Q");
  EXPECT_EQ(Typed(e, "Fill()"), "String:0,1,4");
  EXPECT_EQ(Typed(e, "Fill()"), "String:0,1,4");
  EXPECT_EQ(Typed(e, "qq.P"), "Integer:1");
  EXPECT_EQ(Typed(e, "qq.Items()(1)"), "String:y");
  EXPECT_EQ(Typed(e, "qq.Items(1)"), "String:y");
  EXPECT_EQ(ErrorOf(e, "Class Z : End Class\nDim z"), 1041);
  EXPECT_EQ(e.Error().Line(), 2);
  EXPECT_EQ(e.Error().Column(), 5);
}

TEST(VbsStatement, StringGrowthStopsWithOutOfMemory) {
  Engine e;
  EXPECT_EQ(ErrorOf(e, "Dim s : s = \"xxxxxxxxxxxxxxxx\"\nDo : s = s & s : Loop"), 7);
  EXPECT_EQ(e.Error().Line(), 2);
}

}  // namespace
}  // namespace tessel::vbs::test

namespace tessel::vbs::test {
namespace {

TEST(VbsStatement, EvalAndExecuteInsideAClassSeeItsMembers) {
  Engine e;
  e.AddCode(
      "Class K\n"
      "  Private mV\n"
      "  Public Function Run() : mV = 20 : Execute \"mV = mV + 1\" : Run = Eval(\"mV * 2\") : End Function\n"
      "End Class\n"
      "Dim inst : Set inst = New K");
  EXPECT_EQ(Typed(e, "inst.Run()"), "Integer:42");
}

TEST(VbsStatement, IndexingTheResultOfACall) {
  Engine e;
  EXPECT_EQ(Typed(e, "Split(\"a,b,c\", \",\")(2)"), "String:c");
  e.AddCode("Function Pair() : Pair = Array(Array(1, 2), Array(3, 4)) : End Function");
  EXPECT_EQ(Typed(e, "Pair()(1)(0)"), "Integer:3");
}

}  // namespace
}  // namespace tessel::vbs::test
