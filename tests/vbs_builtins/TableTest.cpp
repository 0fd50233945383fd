#include "tests/vbs_builtins/BuiltinCall.h"

namespace tessel::vbs::testing {
namespace {

TEST(BuiltinTable, LookupIgnoresCase) {
  const BuiltinFunction* mid = FindBuiltinFunction("mid");
  ASSERT_NE(mid, nullptr);
  EXPECT_EQ(mid, FindBuiltinFunction("MID"));
  EXPECT_EQ(mid->name, "Mid");
  EXPECT_EQ(mid->minArgs, 2);
  EXPECT_EQ(mid->maxArgs, 3);
  for (std::string_view name :
       {"Abs", "year", "WEEKDAYNAME", "formatnumber", "ChrW", "cstr", "Array"}) {
    EXPECT_NE(FindBuiltinFunction(name), nullptr) << name;
  }
  // Not VBScript built-ins: the engine or the function library provide them.
  for (std::string_view name : {"IIf", "Format", "CreateObject", "Eval", "", "Midd", "Mi", "zzz"}) {
    EXPECT_EQ(FindBuiltinFunction(name), nullptr) << name;
  }
  EXPECT_EQ(FindBuiltinFunction("Array")->maxArgs, 127);
  EXPECT_EQ(FindBuiltinFunction("Now")->maxArgs, 0);
}

TEST(BuiltinTable, Constants) {
  struct Case {
    std::string_view name;
    Variant value;
  };
  const Case cases[] = {
      {"vbCrLf", Str("\r\n")},
      {"VBCR", Str("\r")},
      {"vbLf", Str("\n")},
      {"vbNewLine", Str("\r\n")},
      {"vbTab", Str("\t")},
      {"vbNullString", Str("")},
      {"vbNullChar", Str(std::string_view("\0", 1))},
      {"vbBinaryCompare", Variant(0)},
      {"vbTextCompare", Variant(1)},
      {"vbSunday", Variant(1)},
      {"vbSaturday", Variant(7)},
      {"vbUseSystemDayOfWeek", Variant(0)},
      {"vbFirstJan1", Variant(1)},
      {"vbFirstFourDays", Variant(2)},
      {"vbFirstFullWeek", Variant(3)},
      {"vbGeneralDate", Variant(0)},
      {"vbShortTime", Variant(4)},
      {"vbEmpty", Variant(0)},
      {"vbString", Variant(8)},
      {"vbBoolean", Variant(11)},
      {"vbByte", Variant(17)},
      {"vbArray", Variant(8192)},
      {"vbObjectError", Variant(-2147221504)},
      {"vbTrue", Variant(-1)},
      {"vbFalse", Variant(0)},
      {"vbUseDefault", Variant(-2)},
      {"vbOKOnly", Variant(0)},
      {"vbYesNo", Variant(4)},
      {"vbCritical", Variant(16)},
      {"vbNo", Variant(7)},
      {"vbRed", Variant(255)},
  };
  for (const Case& c : cases) {
    const BuiltinConstant* constant = FindBuiltinConstant(c.name);
    ASSERT_NE(constant, nullptr) << c.name;
    ExpectValue(constant->value(), c.value, std::string(c.name));
  }
  EXPECT_EQ(FindBuiltinConstant("vbNothing"), nullptr);
  EXPECT_EQ(FindBuiltinConstant("vbCrLf2"), nullptr);
}

TEST(BuiltinTable, ByteFunctionsCountTwoBytesPerUnit) {
  RunCases({
      {"LeftB", {Str("abcd"), Variant(4)}, Str("ab")},
      {"RightB", {Str("abcd"), Variant(2)}, Str("d")},
      {"MidB", {Str("abcd"), Variant(3), Variant(2)}, Str("b")},
      {"InStrB", {Str("abc"), Str("b")}, Variant(3)},
      {"InStrB", {Str("abc"), Str("z")}, Variant(0)},
  });
}

}  // namespace
}  // namespace tessel::vbs::testing
