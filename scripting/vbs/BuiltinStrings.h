// BuiltinStrings: the string functions of the built-in table (Len, Left, Mid,
// InStr, Replace, Trim, UCase, Asc, Chr, Escape, ...).
//
// Each entry has the BuiltinFunction call signature; positions and lengths
// count UTF-16 units (see BuiltinText). Null handling follows the script
// language per function: most return Null for a Null string, a Null count or
// position raises 94.
#pragma once

#include "core/Variant.h"

namespace tessel::vbs {

class BuiltinContext;

#define TESSEL_VBS_BUILTIN(name) \
  Variant name(BuiltinContext& context, const Variant* args, int argc)

namespace builtins {
TESSEL_VBS_BUILTIN(Len);
TESSEL_VBS_BUILTIN(LenB);
TESSEL_VBS_BUILTIN(Left);
TESSEL_VBS_BUILTIN(LeftB);
TESSEL_VBS_BUILTIN(Right);
TESSEL_VBS_BUILTIN(RightB);
TESSEL_VBS_BUILTIN(Mid);
TESSEL_VBS_BUILTIN(MidB);
TESSEL_VBS_BUILTIN(InStr);
TESSEL_VBS_BUILTIN(InStrB);
TESSEL_VBS_BUILTIN(InStrRev);
TESSEL_VBS_BUILTIN(Replace);
TESSEL_VBS_BUILTIN(Trim);
TESSEL_VBS_BUILTIN(LTrim);
TESSEL_VBS_BUILTIN(RTrim);
TESSEL_VBS_BUILTIN(UCase);
TESSEL_VBS_BUILTIN(LCase);
TESSEL_VBS_BUILTIN(Space);
TESSEL_VBS_BUILTIN(String);
TESSEL_VBS_BUILTIN(StrComp);
TESSEL_VBS_BUILTIN(StrReverse);
TESSEL_VBS_BUILTIN(Asc);
TESSEL_VBS_BUILTIN(AscB);
TESSEL_VBS_BUILTIN(AscW);
TESSEL_VBS_BUILTIN(Chr);
TESSEL_VBS_BUILTIN(ChrB);
TESSEL_VBS_BUILTIN(ChrW);
TESSEL_VBS_BUILTIN(Escape);
TESSEL_VBS_BUILTIN(Unescape);
}  // namespace builtins

// Longest string a built-in builds (in UTF-16 units); longer requests raise
// 7 "Out of memory" instead of exhausting the process.
constexpr int64_t kMaxBuiltString = int64_t{1} << 28;

}  // namespace tessel::vbs
