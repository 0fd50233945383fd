// Syntax errors with their numbers and positions, runtime errors, On Error
// and the Err object, and the limits that keep a bad script from hurting the
// process.
#include <thread>

#include "tests/vbs/VbsTestSupport.h"

namespace tessel::vbs::test {
namespace {

struct SyntaxCase {
  const char* code;
  int number;
  int line;
  int column;
};

TEST(VbsError, SyntaxErrorsCarryNumberLineAndColumn) {
  const SyntaxCase cases[] = {
      {"x = ", 1023, 1, 5},
      {"Dim x\nx = 1 2", 1025, 2, 7},
      {"If x Then\nx = 1", 1014, 2, 6},
      {"For i = 1 5\nNext", 1013, 1, 11},
      {"Dim 5", 1010, 1, 5},
      {"x = \"abc", 1033, 1, 9},
      {"x = 1 $ 2", 1032, 1, 7},
      {"Const c 5", 1011, 1, 9},
      {"Sub S(a, b)\nEnd Sub\nS(1, 2)", 1044, 3, 1},
      {"Do\nx = 1\nWend", 1019, 3, 1},
      {"While x\nx = 1\nLoop", 1018, 3, 1},
      {"Loop", 1038, 1, 1},
      {"Exit Do", 1039, 1, 6},
      {"Function F()\nEnd Sub", 1015, 2, 5},
      {"Select x\nEnd Select", 1021, 1, 8},
      {"Next", 1055, 1, 1},
      {"x = (1 + 2", 1006, 1, 11},
      {"Class C\nProperty Get P(a)\nEnd Property\nSub S\nEnd Class", 1016, 5, 5},
  };
  for (const auto& c : cases) {
    Engine e;
    EXPECT_EQ(ErrorOf(e, c.code), c.number) << c.code;
    EXPECT_EQ(e.Error().Number(), c.number) << c.code;
    EXPECT_EQ(e.Error().Line(), c.line) << c.code;
    EXPECT_EQ(e.Error().Column(), c.column) << c.code;
    EXPECT_EQ(e.Error().Source(), "Microsoft VBScript compilation error") << c.code;
  }
  Engine e;
  ErrorOf(e, "Dim a\na = 1 2");
  EXPECT_EQ(e.Error().Description(), "Expected end of statement");
  EXPECT_EQ(e.Error().Text(), "a = 1 2");
}

TEST(VbsError, RuntimeErrorsHaveTheLanguageNumbers) {
  Engine e;
  e.AddCode("Class C : Public V : End Class\nDim o, arr : Set o = New C : arr = Array(1)");
  EXPECT_EQ(EvalErrorOf(e, "arr(5)"), 9);
  EXPECT_EQ(EvalErrorOf(e, "o.Missing"), 438);
  EXPECT_EQ(EvalErrorOf(e, "undefinedFunction(1)"), 13);
  EXPECT_EQ(EvalErrorOf(e, "CLng(\"x\")"), 13);
  EXPECT_EQ(ErrorOf(e, "Dim n : n.Prop = 1"), 424);
  EXPECT_EQ(ErrorOf(e, "Dim v : Set v = 5"), 424);
  EXPECT_EQ(ErrorOf(e, "Dim z : Set z = Nothing : z.V = 1"), 91);
  EXPECT_EQ(EvalErrorOf(e, "Len()"), 450);
  // An argument that fails leaves the ones already evaluated to be freed.
  EXPECT_EQ(EvalErrorOf(e, "Mid(UCase(\"abcdefghijklmnopqrstuvwxyz\"), 2, 1 / 0)"), 11);
  EXPECT_EQ(EvalErrorOf(e, "Replace(\"a\" & Now, \"a\", \"b\", 1, 1, CLng(\"q\"))"), 13);
  EXPECT_EQ(Typed(e, "Mid(UCase(\"abcdefghijklmnopqrstuvwxyz\"), 25, 9)"), "String:YZ");
  EXPECT_EQ(Typed(e, "Replace(\"a-b-c-d\", \"-\", \"+\", 1, 2, 0) & Chr(65)"), "String:a+b+c-dA");
  EXPECT_EQ(Typed(e, "Array(1, 2, 3, 4, 5, 6, 7, 8, \"nine\", 10)(8)"), "String:nine");
  EXPECT_EQ(EvalErrorOf(e, "Mid(\"a\", 0)"), 5);
  EXPECT_EQ(EvalErrorOf(e, "New Unknown"), 506);
  EXPECT_EQ(EvalErrorOf(e, "CreateObject(\"No.Such\")"), 429);
  EXPECT_EQ(ErrorOf(e, "x = 1\nx = 1 / 0\n"), 11);
  EXPECT_EQ(e.Error().Line(), 2);
  EXPECT_EQ(e.Error().Column(), 1);
  EXPECT_EQ(e.Error().Description(), "Division by zero");
  EXPECT_EQ(e.Error().Source(), "Microsoft VBScript runtime error");
  EXPECT_EQ(e.Error().Text(), "x = 1 / 0");
}

TEST(VbsError, ErrorsInsideProceduresReportTheirLine) {
  Engine e;
  e.AddCode("Function Bad()\n  Bad = 1\n  Bad = CInt(\"x\")\nEnd Function");
  EXPECT_EQ(EvalErrorOf(e, "Bad()"), 13);
  EXPECT_EQ(e.Error().Line(), 3);
  EXPECT_EQ(e.Error().Text(), "  Bad = CInt(\"x\")");
}

TEST(VbsError, OnErrorResumeNextIsPerProcedure) {
  Engine e;
  e.AddCode(
      "Function Safe()\n"
      "  On Error Resume Next\n"
      "  Dim x : x = 1 / 0\n"
      "  Safe = Err.Number\n"
      "End Function\n"
      "Function Unsafe()\n"
      "  Unsafe = 1 / 0\n"
      "  Unsafe = 5\n"
      "End Function\n"
      "Function Caller()\n"
      "  On Error Resume Next\n"
      "  Dim r : r = Unsafe()\n"
      "  Caller = Err.Number & \":\" & IsEmpty(r)\n"
      "End Function");
  EXPECT_EQ(Typed(e, "Safe()"), "Long:11");
  EXPECT_EQ(EvalErrorOf(e, "Unsafe()"), 11);
  EXPECT_EQ(Typed(e, "Caller()"), "String:11:True");
  // Returning from a procedure that resumed past an error leaves the error
  // in Err for the caller; the caller's own On Error statement clears it.
  e.AddCode("On Error Resume Next\nDim afterSafe : Safe : afterSafe = Err.Number");
  EXPECT_EQ(Typed(e, "afterSafe"), "Long:11");
  e.AddCode("Dim afterReset : Safe : On Error Resume Next : afterReset = Err.Number");
  EXPECT_EQ(Typed(e, "afterReset"), "Long:0");
}

TEST(VbsError, OnErrorGotoZeroRestoresFailures) {
  Engine e;
  EXPECT_EQ(ErrorOf(e, "On Error Resume Next\nx = 1 / 0\nOn Error GoTo 0\ny = 1 / 0"), 11);
  EXPECT_EQ(e.Error().Line(), 4);
}

// Err.Raise without some arguments takes them from an error Err still holds;
// numbers must be 16-bit codes or failure codes, and the runtime's own
// failure codes raise the runtime error they stand for.
TEST(VbsError, ErrRaiseKeepsWhatErrStillHolds) {
  Engine e;
  e.AddCode(
      "Dim kept, fresh, codes, mapped\n"
      "On Error Resume Next\n"
      "Err.Raise 1, \"Src\", \"desc\", \"help.chm\", 7\n"
      "Err.Raise 5\n"
      "kept = Err.Number & \"|\" & Err.Source & \"|\" & Err.Description & \"|\" & Err.HelpFile & \"|\" & "
      "Err.HelpContext\n"
      "Err.Clear\n"
      "Err.Raise 5\n"
      "fresh = Err.Source & \"|\" & Err.Description & \"|\" & Err.HelpContext\n"
      "Err.Clear : Err.Raise 0 : codes = Err.Number\n"
      "Err.Clear : Err.Raise &H10000& : codes = codes & \",\" & Err.Number\n"
      "Err.Clear : Err.Raise &H8000 : codes = codes & \",\" & Err.Number\n"
      "Err.Clear : Err.Raise -3000000000 : codes = codes & \",\" & Err.Number\n"
      "Err.Clear : Err.Raise &H8007000E& : mapped = Err.Number & \"|\" & Err.Description\n"
      "Err.Clear : Err.Raise &H800A000B& : mapped = mapped & \"|\" & Err.Number\n"
      "Err.Clear : Err.Raise vbObjectError + 340 : mapped = mapped & \"|\" & (Err.Number = vbObjectError + 340)");
  EXPECT_EQ(Typed(e, "kept"), "String:5|Src|desc|help.chm|7");
  EXPECT_EQ(Typed(e, "fresh"), "String:Microsoft VBScript runtime error|Invalid procedure call or argument|0");
  EXPECT_EQ(Typed(e, "codes"), "String:5,5,-32768,6");
  EXPECT_EQ(Typed(e, "mapped"), "String:7|Out of memory|11|True");
}

TEST(VbsError, ErrRaiseAndClear) {
  Engine e;
  e.AddCode(
      "Dim n, d, s\n"
      "On Error Resume Next\n"
      "Err.Raise 1000, \"Mine\", \"Custom text\"\n"
      "n = Err.Number : d = Err.Description : s = Err.Source\n"
      "Err.Clear\n"
      "Dim after : after = Err.Number\n"
      "Err.Raise 9\n"
      "Dim std : std = Err.Description");
  EXPECT_EQ(Typed(e, "n & \"|\" & d & \"|\" & s"), "String:1000|Custom text|Mine");
  EXPECT_EQ(Typed(e, "after"), "Long:0");
  EXPECT_EQ(Typed(e, "std"), "String:Subscript out of range");
  try {
    e.AddCode("Err.Raise vbObjectError + 5, \"Src\", \"Desc\"");
    FAIL();
  } catch (const Error& err) {
    EXPECT_EQ(err.number(), static_cast<int32_t>(0x80040005));
    EXPECT_EQ(err.description(), "Desc");
    EXPECT_EQ(err.source(), "Src");
  }
}

TEST(VbsError, EndlessLoopEndsAtTheTimeout) {
  Engine e;
  e.SetTimeout(200);
  EXPECT_EQ(ErrorOf(e, "Do\nLoop"), static_cast<int32_t>(0x80004004));
  // On Error Resume Next cannot swallow the time-out.
  EXPECT_EQ(ErrorOf(e, "On Error Resume Next\nDo : x = 1 / 0 : Loop"), static_cast<int32_t>(0x80004004));
  EXPECT_EQ(ErrorOf(e, "Sub R : R : End Sub\nOn Error Resume Next\nWhile True : R : Wend"),
            static_cast<int32_t>(0x80004004));
  // The engine stays usable.
  EXPECT_EQ(Typed(e, "1 + 1"), "Integer:2");
}

TEST(VbsError, DeepRecursionRaisesOutOfStackSpace) {
  Engine e;
  e.AddCode("Function Deep(n) : If n = 0 Then Deep = 0 Else Deep = Deep(n - 1) + 1\nEnd Function");
  EXPECT_EQ(EvalErrorOf(e, "Deep(100000)"), 28);
  EXPECT_EQ(Typed(e, "Deep(500)"), "Integer:500");
}

TEST(VbsError, DeepRecursionOnASmallThreadStack) {
  // A thread with a default-sized stack must fail the same way.
  int32_t number = 0;
  std::thread t([&] {
    Engine e;
    e.AddCode("Sub Down(n) : Down n + 1 : End Sub");
    number = EvalErrorOf(e, "Down(0)");
  });
  t.join();
  EXPECT_EQ(number, 28);
}

TEST(VbsError, HugeStringRequestsRaiseOutOfMemory) {
  Engine e;
  EXPECT_EQ(EvalErrorOf(e, "Space(1000000000)"), 7);
  EXPECT_EQ(EvalErrorOf(e, "String(1000000000, \"x\")"), 7);
  EXPECT_EQ(Typed(e, "Len(Space(10))"), "Long:10");
  EXPECT_EQ(ErrorOf(e, "Dim a : ReDim a(1000000000)"), 7);
  EXPECT_EQ(ErrorOf(e, "Dim b : ReDim b(100000, 100000)"), 7);
  EXPECT_EQ(ErrorOf(e, "Dim c(1000000000)"), 7);
  EXPECT_EQ(ErrorOf(e, "Dim ok : ReDim ok(-1)"), 0);
}

TEST(VbsError, DeeplyNestedExpressionIsASyntaxErrorNotACrash) {
  Engine e;
  std::string text(5000, '(');
  text += "1";
  text += std::string(5000, ')');
  EXPECT_NE(EvalErrorOf(e, text), 0);
}

}  // namespace
}  // namespace tessel::vbs::test

namespace tessel::vbs::test {
namespace {

TEST(VbsError, LongOperatorChainsEvaluateOrFailCleanly) {
  Engine e;
  e.AddCode("Dim x : x = 1");
  std::string chain = "x";
  for (int i = 0; i < 1000; ++i) chain += " + x";
  EXPECT_EQ(Typed(e, chain), "Integer:1001");
  std::string tooLong = "x";
  for (int i = 0; i < 100000; ++i) tooLong += " + x";
  EXPECT_EQ(EvalErrorOf(e, tooLong), 1002);
}

}  // namespace
}  // namespace tessel::vbs::test

namespace tessel::vbs::test {
namespace {

TEST(VbsError, FailingIfConditionUnderResumeNextTakesTheBranch) {
  Engine e;
  e.AddCode(
      "On Error Resume Next\n"
      "Dim r : r = \"\"\n"
      "If 1 / 0 = 1 Then\n"
      "  r = \"then\"\n"
      "Else\n"
      "  r = \"else\"\n"
      "End If\n"
      "Dim n : n = Err.Number");
  EXPECT_EQ(Typed(e, "r & n"), "String:then11");
}

TEST(VbsError, ReDimDeclaresUnderOptionExplicit) {
  Engine e;
  EXPECT_EQ(ErrorOf(e, "Option Explicit\nSub S() : ReDim a(2) : a(2) = 1 : End Sub\nS"), 0);
}

}  // namespace
}  // namespace tessel::vbs::test
