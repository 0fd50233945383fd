// Random scripts built from the language's own words must end in a value or
// a numbered error: never a crash, a hang or an unnumbered exception.
#include <random>

#include "tests/vbs/VbsTestSupport.h"

namespace tessel::vbs::test {
namespace {

const char* const kWords[] = {
    "Dim", "x", "y", "a", "(", ")", "=", "+", "-", "*", "/", "\\", "^", "&", "Mod", "And", "Or", "Not", "Is",
    "If", "Then", "Else", "ElseIf", "End", "For", "To", "Step", "Next", "Each", "In", "Do", "Loop", "While",
    "Until", "Wend", "Select", "Case", "Function", "Sub", "Class", "Property", "Get", "Let", "Set", "New",
    "Nothing", "Null", "Empty", "True", "1", "0", "2.5", "\"s\"", "#1/2/2003#", "&HFF", ",", ".", ":", "\n",
    "_\n", "'c\n", "Call", "Exit", "On", "Error", "Resume", "GoTo", "ReDim", "Preserve", "Erase", "Const",
    "With", "Me", "Execute", "Eval", "Array", "UBound", "Len", "Mid", "x(1)", "F", "F(1)", "Option", "Explicit",
    "Private", "Public", "Default", "Err", "Err.Raise", "<", ">", "<>", "<=", ">=", "[z]", "Randomize",
};

std::string RandomScript(std::mt19937& rng) {
  std::uniform_int_distribution<size_t> pick(0, std::size(kWords) - 1);
  std::uniform_int_distribution<int> length(1, 40);
  std::string text;
  int n = length(rng);
  for (int i = 0; i < n; ++i) {
    text += kWords[pick(rng)];
    text += ' ';
  }
  return text;
}

TEST(VbsRobustness, RandomTokenSoupEndsInANumberedError) {
  std::mt19937 rng(12345);
  for (int i = 0; i < 3000; ++i) {
    Engine e;
    e.SetTimeout(100);
    e.AddCode("Function F(n) : F = n : End Function\nDim x(3)");
    std::string script = RandomScript(rng);
    try {
      e.AddCode(script);
    } catch (const Error& err) {
      EXPECT_NE(err.number(), 0) << script;
      EXPECT_EQ(e.Error().Number(), err.number()) << script;
    }
    try {
      e.Eval(script);
    } catch (const Error& err) {
      EXPECT_NE(err.number(), 0) << script;
    }
  }
}

// Valid scripts that stress one construct each.
TEST(VbsRobustness, StressfulButValidScriptsRun) {
  Engine e;
  e.SetTimeout(5000);
  std::string nested;
  for (int i = 0; i < 100; ++i) nested += "If True Then\n";
  nested += "deep = 1\n";
  for (int i = 0; i < 100; ++i) nested += "End If\n";
  EXPECT_EQ(ErrorOf(e, nested), 0);
  EXPECT_EQ(Typed(e, "deep"), "Integer:1");
  std::string parens(150, '(');
  parens += "1" + std::string(150, ')');
  EXPECT_EQ(Typed(e, parens), "Integer:1");
  e.AddCode("Dim big : ReDim big(100000) : Dim i : For i = 0 To 100000 : big(i) = i : Next");
  EXPECT_EQ(Typed(e, "big(100000)"), "Long:100000");
}

}  // namespace
}  // namespace tessel::vbs::test
