#include "scripting/vbs/BuiltinTable.h"

#include "scripting/vbs/BuiltinArrays.h"
#include "scripting/vbs/BuiltinContext.h"
#include "scripting/vbs/BuiltinConversions.h"
#include "scripting/vbs/BuiltinDates.h"
#include "scripting/vbs/BuiltinFormats.h"
#include "scripting/vbs/BuiltinMath.h"
#include "scripting/vbs/BuiltinStrings.h"
#include "scripting/vbs/BuiltinTests.h"

namespace tessel::vbs {

namespace {

constexpr char Fold(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }

// Case-insensitive three-way comparison of two ASCII names.
constexpr int CompareNames(std::string_view a, std::string_view b) {
  size_t n = a.size() < b.size() ? a.size() : b.size();
  for (size_t i = 0; i < n; ++i) {
    char x = Fold(a[i]), y = Fold(b[i]);
    if (x != y) return x < y ? -1 : 1;
  }
  return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

// Both tables are kept in case-insensitive name order (checked at compile
// time below) so that lookup is a binary search with no set-up.
constexpr BuiltinFunction kFunctions[] = {
    {"Abs", 1, 1, &builtins::Abs},
    {"Array", 0, 127, &builtins::Array},
    {"Asc", 1, 1, &builtins::Asc},
    {"AscB", 1, 1, &builtins::AscB},
    {"AscW", 1, 1, &builtins::AscW},
    {"Atn", 1, 1, &builtins::Atn},
    {"CBool", 1, 1, &builtins::CBool},
    {"CByte", 1, 1, &builtins::CByte},
    {"CCur", 1, 1, &builtins::CCur},
    {"CDate", 1, 1, &builtins::CDate},
    {"CDbl", 1, 1, &builtins::CDbl},
    {"Chr", 1, 1, &builtins::Chr},
    {"ChrB", 1, 1, &builtins::ChrB},
    {"ChrW", 1, 1, &builtins::ChrW},
    {"CInt", 1, 1, &builtins::CInt},
    {"CLng", 1, 1, &builtins::CLng},
    {"Cos", 1, 1, &builtins::Cos},
    {"CSng", 1, 1, &builtins::CSng},
    {"CStr", 1, 1, &builtins::CStr},
    {"Date", 0, 0, &builtins::Date},
    {"DateAdd", 3, 3, &builtins::DateAdd},
    {"DateDiff", 3, 5, &builtins::DateDiff},
    {"DatePart", 2, 4, &builtins::DatePart},
    {"DateSerial", 3, 3, &builtins::DateSerial},
    {"DateValue", 1, 1, &builtins::DateValue},
    {"Day", 1, 1, &builtins::Day},
    {"Escape", 1, 1, &builtins::Escape},
    {"Exp", 1, 1, &builtins::Exp},
    {"Filter", 2, 4, &builtins::Filter},
    {"Fix", 1, 1, &builtins::Fix},
    {"FormatCurrency", 1, 5, &builtins::FormatCurrency},
    {"FormatDateTime", 1, 2, &builtins::FormatDateTime},
    {"FormatNumber", 1, 5, &builtins::FormatNumber},
    {"FormatPercent", 1, 5, &builtins::FormatPercent},
    {"GetLocale", 0, 0, &builtins::GetLocale},
    {"Hex", 1, 1, &builtins::Hex},
    {"Hour", 1, 1, &builtins::Hour},
    {"InStr", 2, 4, &builtins::InStr},
    {"InStrB", 2, 4, &builtins::InStrB},
    {"InStrRev", 2, 4, &builtins::InStrRev},
    {"Int", 1, 1, &builtins::Int},
    {"IsArray", 1, 1, &builtins::IsArray},
    {"IsDate", 1, 1, &builtins::IsDate},
    {"IsEmpty", 1, 1, &builtins::IsEmpty},
    {"IsNull", 1, 1, &builtins::IsNull},
    {"IsNumeric", 1, 1, &builtins::IsNumeric},
    {"IsObject", 1, 1, &builtins::IsObject},
    {"Join", 1, 2, &builtins::Join},
    {"LBound", 1, 2, &builtins::LBound},
    {"LCase", 1, 1, &builtins::LCase},
    {"Left", 2, 2, &builtins::Left},
    {"LeftB", 2, 2, &builtins::LeftB},
    {"Len", 1, 1, &builtins::Len},
    {"LenB", 1, 1, &builtins::LenB},
    {"Log", 1, 1, &builtins::Log},
    {"LTrim", 1, 1, &builtins::LTrim},
    {"Mid", 2, 3, &builtins::Mid},
    {"MidB", 2, 3, &builtins::MidB},
    {"Minute", 1, 1, &builtins::Minute},
    {"Month", 1, 1, &builtins::Month},
    {"MonthName", 1, 2, &builtins::MonthName},
    {"Now", 0, 0, &builtins::Now},
    {"Oct", 1, 1, &builtins::Oct},
    {"Randomize", 0, 1, &builtins::Randomize},
    {"Replace", 3, 6, &builtins::Replace},
    {"RGB", 3, 3, &builtins::RGB},
    {"Right", 2, 2, &builtins::Right},
    {"RightB", 2, 2, &builtins::RightB},
    {"Rnd", 0, 1, &builtins::Rnd},
    {"Round", 1, 2, &builtins::Round},
    {"RTrim", 1, 1, &builtins::RTrim},
    {"ScriptEngine", 0, 0, &builtins::ScriptEngine},
    {"ScriptEngineBuildVersion", 0, 0, &builtins::ScriptEngineBuildVersion},
    {"ScriptEngineMajorVersion", 0, 0, &builtins::ScriptEngineMajorVersion},
    {"ScriptEngineMinorVersion", 0, 0, &builtins::ScriptEngineMinorVersion},
    {"Second", 1, 1, &builtins::Second},
    {"SetLocale", 0, 1, &builtins::SetLocale},
    {"Sgn", 1, 1, &builtins::Sgn},
    {"Sin", 1, 1, &builtins::Sin},
    {"Space", 1, 1, &builtins::Space},
    {"Split", 1, 4, &builtins::Split},
    {"Sqr", 1, 1, &builtins::Sqr},
    {"StrComp", 2, 3, &builtins::StrComp},
    {"String", 2, 2, &builtins::String},
    {"StrReverse", 1, 1, &builtins::StrReverse},
    {"Tan", 1, 1, &builtins::Tan},
    {"Time", 0, 0, &builtins::Time},
    {"Timer", 0, 0, &builtins::Timer},
    {"TimeSerial", 3, 3, &builtins::TimeSerial},
    {"TimeValue", 1, 1, &builtins::TimeValue},
    {"Trim", 1, 1, &builtins::Trim},
    {"TypeName", 1, 1, &builtins::TypeName},
    {"UBound", 1, 2, &builtins::UBound},
    {"UCase", 1, 1, &builtins::UCase},
    {"Unescape", 1, 1, &builtins::Unescape},
    {"VarType", 1, 1, &builtins::VarType},
    {"Weekday", 1, 2, &builtins::Weekday},
    {"WeekdayName", 1, 3, &builtins::WeekdayName},
    {"Year", 1, 1, &builtins::Year},
};

constexpr BuiltinConstant kConstants[] = {
    {"vbAbort", [] { return Variant(int32_t{3}); }},
    {"vbAbortRetryIgnore", [] { return Variant(int32_t{2}); }},
    {"vbApplicationModal", [] { return Variant(int32_t{0}); }},
    {"vbArray", [] { return Variant(int32_t{8192}); }},
    {"vbBinaryCompare", [] { return Variant(int32_t{0}); }},
    {"vbBlack", [] { return Variant(int32_t{0}); }},
    {"vbBlue", [] { return Variant(int32_t{16711680}); }},
    {"vbBoolean", [] { return Variant(int32_t{11}); }},
    {"vbByte", [] { return Variant(int32_t{17}); }},
    {"vbCancel", [] { return Variant(int32_t{2}); }},
    {"vbCr", [] { return Variant(std::string_view("\r")); }},
    {"vbCritical", [] { return Variant(int32_t{16}); }},
    {"vbCrLf", [] { return Variant(std::string_view("\r\n")); }},
    {"vbCurrency", [] { return Variant(int32_t{6}); }},
    {"vbCyan", [] { return Variant(int32_t{16776960}); }},
    {"vbDataObject", [] { return Variant(int32_t{13}); }},
    {"vbDate", [] { return Variant(int32_t{7}); }},
    {"vbDecimal", [] { return Variant(int32_t{14}); }},
    {"vbDefaultButton1", [] { return Variant(int32_t{0}); }},
    {"vbDefaultButton2", [] { return Variant(int32_t{256}); }},
    {"vbDefaultButton3", [] { return Variant(int32_t{512}); }},
    {"vbDefaultButton4", [] { return Variant(int32_t{768}); }},
    {"vbDouble", [] { return Variant(int32_t{5}); }},
    {"vbEmpty", [] { return Variant(int32_t{0}); }},
    {"vbError", [] { return Variant(int32_t{10}); }},
    {"vbExclamation", [] { return Variant(int32_t{48}); }},
    {"vbFalse", [] { return Variant(int32_t{0}); }},
    {"vbFirstFourDays", [] { return Variant(int32_t{2}); }},
    {"vbFirstFullWeek", [] { return Variant(int32_t{3}); }},
    {"vbFirstJan1", [] { return Variant(int32_t{1}); }},
    {"vbFormFeed", [] { return Variant(std::string_view("\f")); }},
    {"vbFriday", [] { return Variant(int32_t{6}); }},
    {"vbGeneralDate", [] { return Variant(int32_t{0}); }},
    {"vbGreen", [] { return Variant(int32_t{65280}); }},
    {"vbIgnore", [] { return Variant(int32_t{5}); }},
    {"vbInformation", [] { return Variant(int32_t{64}); }},
    {"vbInteger", [] { return Variant(int32_t{2}); }},
    {"vbLf", [] { return Variant(std::string_view("\n")); }},
    {"vbLong", [] { return Variant(int32_t{3}); }},
    {"vbLongDate", [] { return Variant(int32_t{1}); }},
    {"vbLongTime", [] { return Variant(int32_t{3}); }},
    {"vbMagenta", [] { return Variant(int32_t{16711935}); }},
    {"vbMonday", [] { return Variant(int32_t{2}); }},
    {"vbNewLine", [] { return Variant(std::string_view("\r\n")); }},
    {"vbNo", [] { return Variant(int32_t{7}); }},
    {"vbNull", [] { return Variant(int32_t{1}); }},
    {"vbNullChar", [] { return Variant(std::string_view("\0", 1)); }},
    {"vbNullString", [] { return Variant(std::string_view("")); }},
    {"vbObject", [] { return Variant(int32_t{9}); }},
    {"vbObjectError", [] { return Variant(int32_t{-2147221504}); }},
    {"vbOK", [] { return Variant(int32_t{1}); }},
    {"vbOKCancel", [] { return Variant(int32_t{1}); }},
    {"vbOKOnly", [] { return Variant(int32_t{0}); }},
    {"vbQuestion", [] { return Variant(int32_t{32}); }},
    {"vbRed", [] { return Variant(int32_t{255}); }},
    {"vbRetry", [] { return Variant(int32_t{4}); }},
    {"vbRetryCancel", [] { return Variant(int32_t{5}); }},
    {"vbSaturday", [] { return Variant(int32_t{7}); }},
    {"vbShortDate", [] { return Variant(int32_t{2}); }},
    {"vbShortTime", [] { return Variant(int32_t{4}); }},
    {"vbSingle", [] { return Variant(int32_t{4}); }},
    {"vbString", [] { return Variant(int32_t{8}); }},
    {"vbSunday", [] { return Variant(int32_t{1}); }},
    {"vbSystemModal", [] { return Variant(int32_t{4096}); }},
    {"vbTab", [] { return Variant(std::string_view("\t")); }},
    {"vbTextCompare", [] { return Variant(int32_t{1}); }},
    {"vbThursday", [] { return Variant(int32_t{5}); }},
    {"vbTrue", [] { return Variant(int32_t{-1}); }},
    {"vbTuesday", [] { return Variant(int32_t{3}); }},
    {"vbUseDefault", [] { return Variant(int32_t{-2}); }},
    {"vbUseSystem", [] { return Variant(int32_t{0}); }},
    {"vbUseSystemDayOfWeek", [] { return Variant(int32_t{0}); }},
    {"vbVariant", [] { return Variant(int32_t{12}); }},
    {"vbVerticalTab", [] { return Variant(std::string_view("\v")); }},
    {"vbWednesday", [] { return Variant(int32_t{4}); }},
    {"vbWhite", [] { return Variant(int32_t{16777215}); }},
    {"vbYellow", [] { return Variant(int32_t{65535}); }},
    {"vbYes", [] { return Variant(int32_t{6}); }},
    {"vbYesNo", [] { return Variant(int32_t{4}); }},
    {"vbYesNoCancel", [] { return Variant(int32_t{3}); }},
};

template <class T, size_t N>
constexpr bool IsSorted(const T (&table)[N]) {
  for (size_t i = 1; i < N; ++i) {
    if (CompareNames(table[i - 1].name, table[i].name) >= 0) return false;
  }
  return true;
}
static_assert(IsSorted(kFunctions), "kFunctions must stay in case-insensitive name order");
static_assert(IsSorted(kConstants), "kConstants must stay in case-insensitive name order");

template <class T, size_t N>
const T* Lookup(const T (&table)[N], std::string_view name) {
  size_t lo = 0, hi = N;
  while (lo < hi) {
    size_t mid = (lo + hi) / 2;
    int c = CompareNames(table[mid].name, name);
    if (c == 0) return &table[mid];
    if (c < 0) {
      lo = mid + 1;
    } else {
      hi = mid;
    }
  }
  return nullptr;
}

}  // namespace

const BuiltinFunction* FindBuiltinFunction(std::string_view name) {
  return Lookup(kFunctions, name);
}

const BuiltinConstant* FindBuiltinConstant(std::string_view name) {
  return Lookup(kConstants, name);
}

}  // namespace tessel::vbs
