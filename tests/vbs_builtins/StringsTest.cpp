#include "tests/vbs_builtins/BuiltinCall.h"

namespace tessel::vbs::testing {
namespace {

TEST(BuiltinStrings, LengthsAndSlices) {
  RunCases({
      {"Len", {Str("abc")}, Variant(int32_t{3})},
      {"Len", {Str("")}, Variant(int32_t{0})},
      {"Len", {Variant::Null()}, Variant::Null()},
      {"Len", {Variant()}, Variant(int32_t{0})},
      {"Len", {Variant(int32_t{12345})}, Variant(int32_t{5})},
      {"Len", {Str("h\xC3\xA9llo")}, Variant(int32_t{5})},
      {"Len", {Str("\xF0\x9F\x98\x80")}, Variant(int32_t{2})},
      {"Left", {Str("abcdef"), Variant(int32_t{3})}, Str("abc")},
      {"Left", {Str("abc"), Variant(int32_t{10})}, Str("abc")},
      {"Left", {Variant::Null(), Variant(int32_t{1})}, Variant::Null()},
      {"Left", {Variant(1234.5), Variant(int32_t{2})}, Str("12")},
      {"Right", {Str("abcdef"), Variant(int32_t{2})}, Str("ef")},
      {"Right", {Str("abc"), Variant(int32_t{0})}, Str("")},
      {"Right", {Str("h\xC3\xA9llo"), Variant(int32_t{4})}, Str("\xC3\xA9llo")},
      {"Mid", {Str("abcdef"), Variant(int32_t{2}), Variant(int32_t{3})}, Str("bcd")},
      {"Mid", {Str("abc"), Variant(int32_t{5})}, Str("")},
      {"Mid", {Str("abc"), Variant(int32_t{2})}, Str("bc")},
      {"Mid", {Str("abc"), Variant(int32_t{3}), Variant(int32_t{100})}, Str("c")},
      {"Mid", {Str("h\xC3\xA9llo"), Variant(int32_t{2}), Variant(int32_t{3})}, Str("\xC3\xA9ll")},
      {"Mid", {Variant::Null(), Variant(int32_t{1})}, Variant::Null()},
      {"LenB", {Str("ab")}, Variant(int32_t{4})},
  });
  RunErrorCases({
      {"Mid", {Str("abc"), Variant(int32_t{0})}, 5},
      {"Mid", {Str("abc"), Variant(int32_t{1}), Variant(int32_t{-1})}, 5},
      {"Left", {Str("abc"), Variant(int32_t{-1})}, 5},
      {"Right", {Str("abc"), Variant(int32_t{-1})}, 5},
      {"Left", {Str("abc"), Variant::Null()}, 94},
      {"Left", {Str("abc"), Str("x")}, 13},
  });
}

TEST(BuiltinStrings, Searching) {
  RunCases({
      {"InStr", {Str("abcabc"), Str("c")}, Variant(int32_t{3})},
      {"InStr", {Variant(int32_t{4}), Str("abcabc"), Str("c")}, Variant(int32_t{6})},
      {"InStr",
       {Variant(int32_t{1}), Str("ABC"), Str("b"), Variant(int32_t{1})},
       Variant(int32_t{2})},
      {"InStr",
       {Variant(int32_t{1}), Str("ABC"), Str("b"), Variant(int32_t{0})},
       Variant(int32_t{0})},
      {"InStr", {Str("abc"), Str("")}, Variant(int32_t{1})},
      {"InStr", {Str("abc"), Str("z")}, Variant(int32_t{0})},
      {"InStr", {Variant(int32_t{9}), Str("abc"), Str("a")}, Variant(int32_t{0})},
      {"InStr", {Variant::Null(), Str("a")}, Variant::Null()},
      {"InStr", {Str("\xC3\xA9t\xC3\xA9"), Str("t")}, Variant(int32_t{2})},
      {"InStr",
       {Variant(int32_t{1}), Str("\xC3\x89T\xC3\x89"), Str("\xC3\xA9t"), Variant(int32_t{1})},
       Variant(int32_t{1})},
      {"InStrRev", {Str("abcabc"), Str("b")}, Variant(int32_t{5})},
      {"InStrRev", {Str("abcabc"), Str("b"), Variant(int32_t{4})}, Variant(int32_t{2})},
      {"InStrRev",
       {Str("abcabc"), Str("B"), Variant(int32_t{-1}), Variant(int32_t{1})},
       Variant(int32_t{5})},
      {"InStrRev", {Str("abc"), Str("z")}, Variant(int32_t{0})},
      {"InStrRev", {Str("abc"), Str("c"), Variant(int32_t{5})}, Variant(int32_t{0})},
      {"StrComp", {Str("a"), Str("B")}, Int16(1)},
      {"StrComp", {Str("a"), Str("B"), Variant(int32_t{1})}, Int16(-1)},
      {"StrComp", {Str("abc"), Str("ABC"), Variant(int32_t{1})}, Int16(0)},
      {"StrComp", {Str("abc"), Variant::Null()}, Variant::Null()},
  });
  RunErrorCases({
      {"InStr", {Variant(int32_t{0}), Str("abc"), Str("a")}, 5},
      {"InStrRev", {Str("abc"), Str("b"), Variant(int32_t{0})}, 5},
  });
}

TEST(BuiltinStrings, ReplaceAndCase) {
  RunCases({
      {"Replace", {Str("aXbXc"), Str("X"), Str("-")}, Str("a-b-c")},
      {"Replace", {Str("aXbXc"), Str("x"), Str("-")}, Str("aXbXc")},
      {"Replace",
       {Str("aXbXc"), Str("x"), Str("-"), Variant(int32_t{1}), Variant(int32_t{-1}),
        Variant(int32_t{1})},
       Str("a-b-c")},
      {"Replace", {Str("abcabc"), Str("b"), Str(""), Variant(int32_t{3})}, Str("cac")},
      {"Replace",
       {Str("aaa"), Str("a"), Str("b"), Variant(int32_t{1}), Variant(int32_t{2})},
       Str("bba")},
      {"Replace", {Str("abc"), Str(""), Str("x")}, Str("abc")},
      {"Replace", {Str("abc"), Str("b"), Str("x"), Variant(int32_t{9})}, Str("")},
      {"Replace", {Str("\xC3\xA9t\xC3\xA9"), Str("\xC3\xA9"), Str("e")}, Str("ete")},
      {"Trim", {Str("  a b  ")}, Str("a b")},
      {"LTrim", {Str("  a ")}, Str("a ")},
      {"RTrim", {Str("  a ")}, Str("  a")},
      {"Trim", {Variant::Null()}, Variant::Null()},
      {"Trim", {Str("\ta\t")}, Str("\ta\t")},
      {"UCase", {Str("h\xC3\xA9llo")}, Str("H\xC3\x89LLO")},
      {"LCase", {Str("ABC")}, Str("abc")},
      {"UCase", {Variant::Null()}, Variant::Null()},
      {"StrReverse", {Str("abc")}, Str("cba")},
      {"StrReverse", {Str("")}, Str("")},
      {"Space", {Variant(int32_t{3})}, Str("   ")},
      {"String", {Variant(int32_t{3}), Str("ab")}, Str("aaa")},
      {"String", {Variant(int32_t{2}), Variant(int32_t{65})}, Str("AA")},
      {"String", {Variant(int32_t{2}), Variant(int32_t{321})}, Str("AA")},
  });
  RunErrorCases({
      {"Replace", {Str("abc"), Str("b"), Str("x"), Variant(int32_t{0})}, 5},
      {"Replace", {Str("abc"), Str("b"), Str("x"), Variant(int32_t{1}), Variant(int32_t{-2})}, 5},
      {"Replace", {Variant::Null(), Str("b"), Str("x")}, 94},
      {"Space", {Variant(int32_t{-1})}, 5},
      {"String", {Variant(int32_t{-1}), Str("a")}, 5},
      {"String", {Variant(int32_t{2}), Str("")}, 5},
      {"StrReverse", {Variant::Null()}, 94},
      {"Space", {Variant(int32_t{1'000'000'000})}, 7},
      {"String", {Variant(int32_t{1'000'000'000}), Str("x")}, 7},
      {"Replace", {Str(std::string(100'000, 'a')), Str("a"), Str(std::string(20'000, 'b'))}, 7},
      {"Replace",
       {Str(std::string(100'000, 'a') + "\xC3\xA9"), Str("a"), Str(std::string(20'000, 'b'))},
       7},
  });
}

TEST(BuiltinStrings, CharacterCodes) {
  RunCases({
      {"Asc", {Str("A")}, Int16(65)},
      {"Asc", {Str("Abc")}, Int16(65)},
      {"Asc", {Str("\xE2\x82\xAC")}, Int16(128)},
      {"AscW", {Str("\xE2\x82\xAC")}, Int16(8364)},
      {"AscW", {Str("\xEF\xBF\xBF")}, Int16(-1)},
      {"AscB", {Str("A")}, Variant::FromByte(65)},
      {"Chr", {Variant(int32_t{65})}, Str("A")},
      {"Chr", {Variant(int32_t{128})}, Str("\xE2\x82\xAC")},
      {"Chr", {Variant(int32_t{233})}, Str("\xC3\xA9")},
      {"ChrW", {Variant(int32_t{8364})}, Str("\xE2\x82\xAC")},
      {"ChrW", {Variant(int32_t{-1})}, Str("\xEF\xBF\xBF")},
      {"Escape", {Str("a b+c/\xC3\xBC\xE2\x82\xAC")}, Str("a%20b+c/%FC%u20AC")},
      {"Unescape", {Str("a%20b+c/%FC%u20AC")}, Str("a b+c/\xC3\xBC\xE2\x82\xAC")},
      {"Unescape", {Str("100%")}, Str("100%")},
      {"Escape", {Variant::Null()}, Variant::Null()},
  });
  RunErrorCases({
      {"Asc", {Str("")}, 5},
      {"Asc", {Variant::Null()}, 94},
      {"AscW", {Str("")}, 5},
      {"Chr", {Variant(int32_t{256})}, 5},
      {"Chr", {Variant(int32_t{-1})}, 5},
      {"ChrW", {Variant(int32_t{65536})}, 5},
  });
}

TEST(BuiltinStrings, SurrogatePairsCountTwoUnits) {
  // Mid may cut a pair; the halves survive a round trip through AscW.
  Variant face = Str("\xF0\x9F\x98\x80");
  Variant high = Call("Mid", {face, Variant(int32_t{1}), Variant(int32_t{1})});
  Variant low = Call("Mid", {face, Variant(int32_t{2}), Variant(int32_t{1})});
  EXPECT_EQ(Call("AscW", {high}).IntegerValue(), static_cast<int16_t>(0xD83D));
  EXPECT_EQ(Call("AscW", {low}).IntegerValue(), static_cast<int16_t>(0xDE00));
  EXPECT_EQ(Call("StrReverse", {Str("a\xF0\x9F\x98\x80")}).ToString().size(), 7u);
}

}  // namespace
}  // namespace tessel::vbs::testing
