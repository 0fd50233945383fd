// Let semantics on objects, writes into nested arrays, fixed-array copies,
// Execute scoping and where runtime errors are reported.
#include "tests/vbs/VbsTestSupport.h"

namespace tessel::vbs::test {
namespace {

const char* kBoxClass =
    "Class Box\n"
    "  Private v_\n"
    "  Public Lets\n"
    "  Public Default Property Get Value() : Value = v_ : End Property\n"
    "  Public Property Let Value(x) : v_ = x : Lets = Lets + 1 : End Property\n"
    "End Class\n"
    "Class Plain : Public Name : End Class\n";

// Let never assigns through the target's default property: the variable,
// element or field takes the value and lets go of the object it held.
TEST(VbsLet, AssigningToAVariableHoldingAnObjectReplacesTheObject) {
  Engine e;
  e.AddCode(kBoxClass);
  e.AddCode(
      "Dim b, alias : Set b = New Box : Set alias = b : alias.Value = \"kept\"\n"
      "b = 5\n"
      "Sub Store(x) : Dim local : Set local = alias : local = x : got = TypeName(local) : End Sub\n"
      "Dim got : Store \"seven\"");
  EXPECT_EQ(Typed(e, "b"), "Integer:5");
  EXPECT_EQ(Typed(e, "got"), "String:String");
  EXPECT_EQ(Typed(e, "alias.Value & \"/\" & alias.Lets"), "String:kept/1");
  // Reading without Set still takes the default property's value.
  e.AddCode("Dim copy : copy = alias");
  EXPECT_EQ(Typed(e, "copy"), "String:kept");
  // With arguments the assignment does go to the default property.
  e.AddCode(
      "Class Cells\n"
      "  Private v_(2)\n"
      "  Public Default Property Get Item(i) : Item = v_(i) : End Property\n"
      "  Public Property Let Item(i, x) : v_(i) = x : End Property\n"
      "End Class\n"
      "Dim c : Set c = New Cells : c(1) = \"one\"");
  EXPECT_EQ(Typed(e, "c(1) & TypeName(c)"), "String:oneCells");
}

TEST(VbsLet, LetOnArrayElementsAndFieldsHoldingObjectsReplacesThem) {
  Engine e;
  e.AddCode(kBoxClass);
  e.AddCode(
      "Class Holder : Public Item : End Class\n"
      "Dim a(1), h, keep : Set a(0) = New Box : Set keep = a(0) : a(0) = 42\n"
      "Set h = New Holder : Set h.Item = New Box : h.Item = \"x\"");
  EXPECT_EQ(Typed(e, "a(0)"), "Integer:42");
  EXPECT_EQ(Typed(e, "IsEmpty(keep.Value) & \"/\" & keep.Lets"), "String:True/");
  EXPECT_EQ(Typed(e, "h.Item"), "String:x");
}

TEST(VbsLet, ObjectsWithoutDefaultPropertyAreReplaced) {
  Engine e;
  e.AddCode(kBoxClass);
  e.AddCode("Dim p : Set p = New Plain : p = 1\nDim n : Set n = Nothing : n = \"s\"");
  EXPECT_EQ(Typed(e, "p"), "Integer:1");
  EXPECT_EQ(Typed(e, "n"), "String:s");
  // Reading an object without a default property for a Let fails; so does
  // Let of Nothing, and the variable keeps its value.
  EXPECT_EQ(ErrorOf(e, "Dim q, r : Set q = New Plain : r = q"), 438);
  EXPECT_EQ(ErrorOf(e, "Dim keepMe : keepMe = 1 : keepMe = Nothing"), 91);
  EXPECT_EQ(Typed(e, "keepMe"), "Integer:1");
}

TEST(VbsNestedArray, ElementOfAnInnerArrayIsAssignedInPlace) {
  Engine e;
  e.AddCode(
      "Dim a : a = Array(Array(1, 2), Array(3, 4))\n"
      "a(0)(1) = 20 : a(1)(0) = a(0)(1) + 1\n"
      "Dim g(1) : g(1) = Array(0, Array(\"p\", \"q\")) : g(1)(1)(0) = \"deep\"\n"
      "Dim outer : outer = a(0)\n"
      "a(0)(0) = 10\n"
      "Function Local()\n"
      "  Dim m : m = Array(Array(0))\n"
      "  m(0)(0) = \"in proc\" : Local = m(0)(0)\n"
      "End Function");
  EXPECT_EQ(Typed(e, "a(0)(1) & \",\" & a(1)(0)"), "String:20,21");
  EXPECT_EQ(Typed(e, "g(1)(1)(0) & g(1)(1)(1)"), "String:deepq");
  // An earlier copy of the inner array does not see later writes.
  EXPECT_EQ(Typed(e, "outer(0) & \",\" & a(0)(0)"), "String:1,10");
  EXPECT_EQ(Typed(e, "Local()"), "String:in proc");
  EXPECT_EQ(ErrorOf(e, "a(0)(5) = 1"), 9);
  EXPECT_EQ(ErrorOf(e, "Dim s : s = 5 : s(0)(0) = 1"), 13);
}

TEST(VbsFixedArray, CopiesOfAFixedArrayAreDynamic) {
  Engine e;
  e.AddCode(
      "Dim a(2) : a(0) = 1\n"
      "Dim b : b = a\n"
      "a(1) = 2\n"
      "ReDim Preserve b(4)\n"
      "Sub Grow(ByVal v) : ReDim Preserve v(9) : grown = UBound(v) : End Sub\n"
      "Dim grown : Grow a");
  EXPECT_EQ(Typed(e, "UBound(b) & \":\" & b(0) & \":\" & IsEmpty(b(1))"), "String:4:1:True");
  EXPECT_EQ(Typed(e, "grown"), "Long:9");
  // The original stays fixed.
  EXPECT_EQ(ErrorOf(e, "ReDim a(5)"), 10);
  e.AddCode("Erase a");
  EXPECT_EQ(Typed(e, "UBound(a) & IsEmpty(a(0))"), "String:2True");
  // Erase of the copy releases its elements.
  e.AddCode("Erase b");
  EXPECT_EQ(EvalErrorOf(e, "UBound(b)"), 9);
  e.AddCode("Dim c : c = a : Erase c : ReDim c(1)");
  EXPECT_EQ(Typed(e, "UBound(c)"), "Long:1");
}

TEST(VbsExecute, DimInsideAProcedureStaysLocal) {
  Engine e;
  e.AddCode(
      "Dim seen\n"
      "Function Run()\n"
      "  Execute \"Dim fresh : fresh = 41\"\n"
      "  Execute \"fresh = fresh + 1\"\n"
      "  Run = Eval(\"fresh\")\n"
      "End Function\n"
      "Function Again()\n"
      "  Execute \"Dim fresh\"\n"
      "  Again = IsEmpty(Eval(\"fresh\"))\n"
      "End Function\n"
      "Sub Known()\n"
      "  Dim mine : mine = 1\n"
      "  Execute \"Dim arr(2) : arr(1) = mine + 1 : Execute \"\"arr(2) = 7\"\"\"\n"
      "  seen = Eval(\"arr(1) + arr(2)\")\n"
      "End Sub\n"
      "Function Implicit()\n"
      "  Execute \"made = 5 : made = made + 1\"\n"
      "  Execute \"made = made * 2 : other = made\"\n"
      "  Implicit = Eval(\"made + other + IsEmpty(nowhere)\")\n"
      "End Function\n"
      "Sub Shared() : ExecuteGlobal \"Dim everywhere : everywhere = 3\" : End Sub");
  EXPECT_EQ(Typed(e, "Run()"), "Integer:42");
  EXPECT_EQ(ErrorOf(e, "Option Explicit\nDim probe : probe = fresh"), 500);
  EXPECT_EQ(Typed(e, "Again()"), "Boolean:True");
  EXPECT_EQ(Typed(e, "Implicit()"), "Integer:23");
  EXPECT_EQ(ErrorOf(e, "Option Explicit\nDim probe2 : probe2 = made"), 500);
  EXPECT_EQ(ErrorOf(e, "Option Explicit\nDim probe3 : probe3 = other"), 500);
  EXPECT_EQ(ErrorOf(e, "Option Explicit\nDim probe4 : probe4 = nowhere"), 500);
  e.AddCode("Known");
  EXPECT_EQ(Typed(e, "seen"), "Integer:9");
  e.AddCode("Shared");
  EXPECT_EQ(Typed(e, "everywhere"), "Integer:3");
}

TEST(VbsExecute, ProceduresDefinedInsideAProcedureSeeGlobals) {
  Engine e;
  e.AddCode(
      "Dim X, got : X = \"Global\"\n"
      "Sub Outer()\n"
      "  Dim X : X = \"Local\"\n"
      "  Execute \"Sub Defined : got = X & \"\"/\"\" & Eval(\"\"X\"\") : End Sub\"\n"
      "  Defined\n"
      "  got = got & \"/\" & Eval(\"X\")\n"
      "End Sub\n"
      "Outer");
  EXPECT_EQ(Typed(e, "got"), "String:Global/Global/Local");
}

// Execute runs its text in the scope of the procedure that runs it, so a
// Const there is a constant of that call, like a Dim.
TEST(VbsConst, AssigningToAConstantFailsAtEveryLevel) {
  Engine e;
  e.AddCode(
      "Const kTop = 1\n"
      "Function Local()\n"
      "  Const kInner = 2\n"
      "  Dim v : v = 3\n"
      "  v = kInner + v\n"
      "  Local = v\n"
      "End Function\n"
      "Function Broken()\n"
      "  Const kInner = 2\n"
      "  kInner = 5\n"
      "  Broken = kInner\n"
      "End Function");
  EXPECT_EQ(Typed(e, "Local()"), "Integer:5");
  EXPECT_EQ(EvalErrorOf(e, "Broken()"), 501);
  EXPECT_EQ(ErrorOf(e, "kTop = 2"), 501);
  EXPECT_EQ(Typed(e, "kTop"), "Integer:1");
}

TEST(VbsExecute, ConstInsideAProcedureStaysLocal) {
  Engine e;
  e.AddCode(
      "Dim seen\n"
      "Function Run()\n"
      "  Execute \"Const kLocal = 42\"\n"
      "  Execute \"seen = kLocal + 1\"\n"
      "  Run = Eval(\"kLocal\")\n"
      "End Function\n"
      "Function Again() : Again = IsEmpty(Eval(\"kLocal\")) : End Function\n"
      "Execute \"Const kTop = 7\"");
  EXPECT_EQ(Typed(e, "Run()"), "Integer:42");
  EXPECT_EQ(Typed(e, "seen"), "Integer:43");
  EXPECT_EQ(Typed(e, "Again()"), "Boolean:True");
  EXPECT_EQ(ErrorOf(e, "Option Explicit\nDim probe : probe = kLocal"), 500);
  // At top level Execute declares globals, constants included.
  EXPECT_EQ(Typed(e, "kTop"), "Integer:7");
  EXPECT_EQ(ErrorOf(e, "kTop = 8"), 501);
}

TEST(VbsExecute, DimAtTopLevelIsGlobal) {
  Engine e;
  e.AddCode("Execute \"Dim top : top = 1\"");
  EXPECT_EQ(Typed(e, "top"), "Integer:1");
}

TEST(VbsUndefinedName, CallingAnUndefinedNameInsideAProcedureFails) {
  Engine e;
  e.AddCode(
      "Sub Broken()\n"
      "  NoSuchRoutine\n"
      "End Sub\n"
      "Function Guarded()\n"
      "  On Error Resume Next\n"
      "  Call NoSuchRoutine\n"
      "  Guarded = Err.Number\n"
      "End Function\n"
      "Sub Assigned() : later = 1 : later : End Sub\n"
      "Class Kind\n"
      "  Sub Method() : AlsoMissing : End Sub\n"
      "  Function Value() : Value = Absent(1) : End Function\n"
      "End Class\n"
      "Dim obj : Set obj = New Kind");
  EXPECT_EQ(ErrorOf(e, "Broken"), 13);
  EXPECT_EQ(e.Error().Line(), 2);
  EXPECT_NE(e.Error().Description().find("NoSuchRoutine"), std::string::npos);
  EXPECT_EQ(Typed(e, "Guarded()"), "Long:13");
  EXPECT_EQ(ErrorOf(e, "Assigned"), 0);
  EXPECT_EQ(ErrorOf(e, "obj.Method"), 13);
  EXPECT_EQ(e.Error().Description(), "Type mismatch: 'AlsoMissing'");
  EXPECT_EQ(EvalErrorOf(e, "obj.Value()"), 13);
  EXPECT_EQ(e.Error().Description(), "Type mismatch: 'Absent'");
}

TEST(VbsErrorPosition, RuntimeErrorsReportTheColumnOfTheFailingStatement) {
  Engine e;
  EXPECT_EQ(ErrorOf(e, "x = 1\nx = 1 / 0\n"), 11);
  EXPECT_EQ(e.Error().Line(), 2);
  EXPECT_EQ(e.Error().Column(), 1);
  EXPECT_EQ(ErrorOf(e, "Dim y : y = 2 : y = CInt(\"z\")"), 13);
  EXPECT_EQ(e.Error().Line(), 1);
  EXPECT_EQ(e.Error().Column(), 17);
  e.AddCode("Function Inner()\n  If True Then\n      Inner = 1 / 0\n  End If\nEnd Function");
  EXPECT_EQ(EvalErrorOf(e, "Inner()"), 11);
  EXPECT_EQ(e.Error().Line(), 3);
  EXPECT_EQ(e.Error().Column(), 7);
  EXPECT_EQ(EvalErrorOf(e, "  1 \\ 0"), 11);
  EXPECT_EQ(e.Error().Line(), 1);
  EXPECT_EQ(e.Error().Column(), 3);
  // Conditions after the statement's first line report their own line.
  EXPECT_EQ(ErrorOf(e, "If False Then\n  ElseIf 1 / 0 Then\nEnd If"), 11);
  EXPECT_EQ(e.Error().Line(), 2);
  EXPECT_EQ(e.Error().Column(), 3);
  EXPECT_EQ(ErrorOf(e, "Do\n  w = 1\n Loop Until CLng(\"w\")"), 13);
  EXPECT_EQ(e.Error().Line(), 3);
  EXPECT_EQ(e.Error().Column(), 2);
  EXPECT_EQ(e.Error().Text(), " Loop Until CLng(\"w\")");
  // A handled error leaves no stale position for the next failure.
  EXPECT_EQ(ErrorOf(e, "On Error Resume Next\n   z = 1 / 0\nOn Error GoTo 0\n  z = CLng(\"q\")"), 13);
  EXPECT_EQ(e.Error().Line(), 4);
  EXPECT_EQ(e.Error().Column(), 3);
}

}  // namespace
}  // namespace tessel::vbs::test
