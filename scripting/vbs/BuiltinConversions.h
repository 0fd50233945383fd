// BuiltinConversions: CBool, CByte, CCur, CDate, CDbl, CInt, CLng, CSng,
// CStr, Hex, Oct, Fix, Int and Round.
//
// The C* functions are the core Variant conversions with the script's rules
// (banker's rounding to integers, 6 on overflow, 13 on text that is no
// number, 94 on Null). Fix, Int and Round keep their argument's subtype where
// the script language does (an Integer stays Integer, a Currency stays
// Currency, text becomes Double).
#pragma once

#include "scripting/vbs/BuiltinStrings.h"

namespace tessel::vbs::builtins {
TESSEL_VBS_BUILTIN(CBool);
TESSEL_VBS_BUILTIN(CByte);
TESSEL_VBS_BUILTIN(CCur);
TESSEL_VBS_BUILTIN(CDate);
TESSEL_VBS_BUILTIN(CDbl);
TESSEL_VBS_BUILTIN(CInt);
TESSEL_VBS_BUILTIN(CLng);
TESSEL_VBS_BUILTIN(CSng);
TESSEL_VBS_BUILTIN(CStr);
TESSEL_VBS_BUILTIN(Hex);
TESSEL_VBS_BUILTIN(Oct);
TESSEL_VBS_BUILTIN(Fix);
TESSEL_VBS_BUILTIN(Int);
TESSEL_VBS_BUILTIN(Round);
}  // namespace tessel::vbs::builtins

namespace tessel::vbs {
// Round(value, digits) on any Variant, for callers outside the table.
Variant RoundValue(const Variant& value, int32_t digits);
}  // namespace tessel::vbs
