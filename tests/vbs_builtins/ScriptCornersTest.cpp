// Built-ins called from script text at the edges of their arguments: Null,
// Empty, positions past the end, limits and compare modes, and which error
// wins when several arguments are bad.
#include <string>
#include <vector>

#include "tests/vbs/VbsTestSupport.h"

namespace tessel::vbs::test {
namespace {

struct Expect {
  const char* expression;
  const char* typed;  // "Subtype:value"
};

struct ExpectError {
  const char* expression;
  int32_t number;
};

void CheckValues(Engine& e, const std::vector<Expect>& cases) {
  for (const auto& c : cases) EXPECT_EQ(Typed(e, c.expression), c.typed) << c.expression;
}

void CheckErrors(Engine& e, const std::vector<ExpectError>& cases) {
  for (const auto& c : cases) EXPECT_EQ(EvalErrorOf(e, c.expression), c.number) << c.expression;
}

TEST(ScriptCorners, MidPastTheEndAndBadArguments) {
  Engine e;
  CheckValues(e, {
                     {"Mid(\"abc\", 4)", "String:"},
                     {"Mid(\"abc\", 9, 2)", "String:"},
                     {"Mid(\"abc\", 2, 10)", "String:bc"},
                     {"Mid(\"abc\", 3, 0)", "String:"},
                     {"Mid(1234, 2, 2)", "String:23"},
                     {"Mid(Empty, 5, 2)", "String:"},
                     {"Mid(Null, 2)", "Null:Null"},
                 });
  CheckErrors(e, {
                     {"Mid(\"abc\", 0)", 5},
                     {"Mid(\"abc\", 1, -1)", 5},
                     {"Mid(\"abc\", Empty, 1)", 5},
                     {"Mid(Null, -1, -1)", 5},  // the range is checked before Null passes through
                     {"Mid(\"abc\", \"a\", 1)", 13},
                     // A Null start or length wins over a bad other argument.
                     {"Mid(\"abc\", \"a\", Null)", 94},
                     {"Mid(\"abc\", 0, Null)", 94},
                     {"Mid(\"abc\", Null, -1)", 94},
                 });
}

TEST(ScriptCorners, InStrWithNullEmptyAndStartBeyondTheText) {
  Engine e;
  CheckValues(e, {
                     {"InStr(\"abc\", Null)", "Null:Null"},
                     {"InStr(Null, \"a\")", "Null:Null"},
                     {"InStr(2, Null, \"a\")", "Null:Null"},
                     {"InStr(\"abc\", \"\")", "Long:1"},
                     {"InStr(\"abc\", Empty)", "Long:1"},
                     {"InStr(Empty, \"a\")", "Long:0"},
                     {"InStr(\"\", \"\")", "Long:0"},
                     {"InStr(4, \"abcdef\", \"\")", "Long:4"},
                     {"InStr(20, \"abcdef\", \"\")", "Long:0"},
                     {"InStr(5, \"abcd\", \"bc\")", "Long:0"},
                     {"InStr(2.6, \"abcd\", \"bc\")", "Long:0"},  // the start rounds to 3
                     {"InStr(3, \"abcdefgh\", \"FG\", 1.4)", "Long:6"},
                     {"InStr(1, 23456, 45)", "Long:3"},
                 });
  CheckErrors(e, {
                     {"InStr(Null, \"abcd\", \"b\")", 94},
                     {"InStr(2, \"abcd\", \"b\", Null)", 94},
                     {"InStr(0, \"abcd\", \"b\")", 5},
                     {"InStr(-20, \"abcd\", \"b\", 1)", 5},
                     {"InStr(2, \"abcd\", \"b\", 10)", 5},
                     {"InStrRev(\"abcd\", \"b\", 2, 10)", 5},
                 });
}

TEST(ScriptCorners, SplitLimitsAndEmptyText) {
  Engine e;
  CheckValues(e, {
                     {"UBound(Split(\"\"))", "Long:-1"},
                     {"UBound(Split(Empty))", "Long:-1"},
                     {"UBound(Split(\"a,b,c\", \",\", 2))", "Long:1"},
                     {"Split(\"a,b,c\", \",\", 2)(1)", "String:b,c"},
                     {"UBound(Split(\"a,b,c\", \",\", -1))", "Long:2"},
                     {"UBound(Split(\"a,b,c\", \",\", 0))", "Long:-1"},
                     {"UBound(Split(\"a,b,c\", \",\", 9))", "Long:2"},
                     {"Split(\"abc def\", \"\")(0)", "String:abc def"},
                     {"Split(\"a--b\", \"-\")(1)", "String:"},
                     {"UBound(Split(\"aZbZc\", \"z\", 3, 1))", "Long:2"},
                     {"UBound(Split(\"aZbZc\", \"z\", 3, 0))", "Long:0"},
                 });
  CheckErrors(e, {
                     {"Split(Null)", 94},
                     {"Split(\"a-b\", Null)", 94},
                     {"Split(\"a-b\", \"-\", Null)", 94},
                     {"Split(\"a-b\", \"-\", -2)", 5},
                     {"Split(\"a-b\", \"-\", -1, 2)", 5},
                 });
}

TEST(ScriptCorners, JoinTurnsEmptyIntoNothingAndRejectsNull) {
  Engine e;
  CheckValues(e, {
                     {"Join(Array(Empty, Empty, 1), \"-\")", "String:--1"},
                     {"Join(Array(1, Empty))", "String:1 "},
                     {"Join(Array())", "String:"},
                     {"Join(Array(\"a\", \"b\"), Empty)", "String:ab"},
                     {"Join(Array(1, \"x\", True), \"\")", "String:1xTrue"},
                 });
  e.AddCode("Dim grid(1, 1)\nClass Plain : End Class");
  CheckErrors(e, {
                     {"Join(Array(1, Null))", 13},
                     {"Join(Array(Array(1), 2))", 13},
                     {"Join(grid)", 13},
                     {"Join(Empty)", 13},
                     {"Join(\"text\")", 13},
                     {"Join(Null)", 94},
                     {"Join(Array(), Null)", 94},
                     {"Join(New Plain)", 438},
                 });
}

TEST(ScriptCorners, IsNumericOfTexts) {
  Engine e;
  CheckValues(e, {
                     {"IsNumeric(\" 12 \")", "Boolean:True"},
                     {"IsNumeric(\"&H10\")", "Boolean:True"},
                     {"IsNumeric(\"1e3\")", "Boolean:True"},
                     {"IsNumeric(\"1,000\")", "Boolean:True"},
                     {"IsNumeric(\"-1.5\")", "Boolean:True"},
                     {"IsNumeric(\".5\")", "Boolean:True"},
                     {"IsNumeric(\"\")", "Boolean:False"},
                     {"IsNumeric(\"12abc\")", "Boolean:False"},
                     {"IsNumeric(\"1 2\")", "Boolean:False"},
                     {"IsNumeric(Empty)", "Boolean:True"},
                     {"IsNumeric(Null)", "Boolean:False"},
                     {"IsNumeric(True)", "Boolean:True"},
                     {"IsNumeric(Array(1))", "Boolean:False"},
                 });
}

TEST(ScriptCorners, CDateOfUsTexts) {
  Engine e;
  CheckValues(e, {
                     {"CDate(\"1/2/2024\")", "Date:1/2/2024"},
                     {"CDate(\"January 2, 2024\")", "Date:1/2/2024"},
                     {"CDate(\"Jan 2 2024\")", "Date:1/2/2024"},
                     {"CDate(\"2 Jan 2024\")", "Date:1/2/2024"},
                     {"CDate(\"2024-01-02\")", "Date:1/2/2024"},
                     {"CDate(\"1/2/2024 3:04 PM\")", "Date:1/2/2024 3:04:00 PM"},
                     {"CDate(\"3:04 PM\")", "Date:3:04:00 PM"},
                     // A first number above 12 cannot be a month, so it is the day.
                     {"CDate(\"13/1/2024\")", "Date:1/13/2024"},
                     {"CDate(\"12/31/99\")", "Date:12/31/1999"},
                     {"CDate(\"1\")", "Date:12/31/1899"},
                     {"CDate(Empty)", "Date:12:00:00 AM"},
                 });
  CheckErrors(e, {{"CDate(\"abc\")", 13}, {"CDate(\"\")", 13}, {"CDate(Null)", 94}});
}

TEST(ScriptCorners, FormatFunctionsWithTheParensFlag) {
  Engine e;
  CheckValues(e, {
                     {"FormatNumber(-1234.5, 2, , -1)", "String:(1,234.50)"},
                     {"FormatNumber(-1234.5, 2, , 0)", "String:-1,234.50"},
                     {"FormatNumber(-1234.5, 2, , True, False)", "String:(1234.50)"},
                     {"FormatNumber(-0.5, 1, 0, -1)", "String:(.5)"},
                     {"FormatNumber(-1234.567)", "String:-1,234.57"},
                     {"FormatNumber(1234.5, 2, , -1)", "String:1,234.50"},
                     {"FormatNumber(Empty)", "String:0.00"},
                     {"FormatCurrency(-5, 2, , -1)", "String:($5.00)"},
                     {"FormatPercent(-0.5, 1, , -1)", "String:(50.0%)"},
                 });
  // Null as the value is a type mismatch; Null as an option is 94.
  CheckErrors(e, {
                     {"FormatNumber(Null)", 13},
                     {"FormatCurrency(Null)", 13},
                     {"FormatPercent(Null)", 13},
                     {"FormatDateTime(Null)", 13},
                     {"FormatNumber(0.1, Null)", 94},
                     {"FormatNumber(0.1, 0, 0, Null)", 94},
                     {"FormatNumber(\"abc\")", 13},
                 });
}

TEST(ScriptCorners, TypeNameAndVarTypeOfSpecialValues) {
  Engine e;
  e.AddCode("Class Widget : End Class\nDim w : Set w = New Widget\nDim fixed(2)");
  CheckValues(e, {
                     {"TypeName(Nothing)", "String:Nothing"},
                     {"TypeName(Empty)", "String:Empty"},
                     {"TypeName(Null)", "String:Null"},
                     {"TypeName(Array())", "String:Variant()"},
                     {"TypeName(fixed)", "String:Variant()"},
                     {"TypeName(w)", "String:Widget"},
                     {"TypeName(32768)", "String:Long"},
                     {"TypeName(2147483648)", "String:Double"},
                     {"VarType(fixed)", "Integer:8204"},
                     {"VarType(w)", "Integer:9"},
                     {"VarType(Nothing)", "Integer:9"},
                 });
}

TEST(ScriptCorners, RoundingConversionsAndSign) {
  Engine e;
  CheckValues(e, {
                     {"CInt(2.5)", "Integer:2"},
                     {"CInt(3.5)", "Integer:4"},
                     {"CInt(-2.5)", "Integer:-2"},
                     {"CInt(-36.75)", "Integer:-37"},
                     {"CLng(0.5)", "Long:0"},
                     {"CLng(1.5)", "Long:2"},
                     {"CByte(255.49)", "Byte:255"},
                     {"CInt(-32768.5)", "Integer:-32768"},
                     {"Round(2.5)", "Double:2"},
                     {"Round(-3.5)", "Double:-4"},
                     {"Round(3)", "Integer:3"},
                     {"Round(\"2\")", "Double:2"},
                     {"Round(True)", "Boolean:True"},
                     {"Round(False, 1)", "Boolean:False"},
                     {"Sgn(-32769)", "Integer:-1"},
                     {"Sgn(Empty)", "Integer:0"},
                     {"CBool(\"#TRUE#\")", "Boolean:True"},
                     {"CBool(\" #false# \")", "Boolean:False"},
                     {"Not \"#FALSE#\"", "Boolean:True"},
                     {"CBool(\"0.1\")", "Boolean:True"},
                     {"Abs(Null)", "Null:Null"},
                 });
  CheckErrors(e, {
                     {"CInt(32767.5)", 6},
                     {"CInt(-32768.51)", 6},
                     {"CByte(\"-1\")", 6},
                     {"CInt(\"\")", 13},
                     {"Sgn(Null)", 94},
                     {"CByte(\"#TRUE#\")", 13},
                     {"CBool(\"\")", 13},
                 });
}

}  // namespace
}  // namespace tessel::vbs::test
