// BuiltinArrays: the array built-ins (Array, IsArray, LBound, UBound, Split,
// Join, Filter).
//
// They need only the core array type: Array, Split and Filter return a new
// one-dimensional Variant array from 0; LBound and UBound read bounds (9 for a
// dimension that does not exist, 13 for a value that is no array).
#pragma once

#include "scripting/vbs/BuiltinStrings.h"

namespace tessel::vbs::builtins {
TESSEL_VBS_BUILTIN(Array);
TESSEL_VBS_BUILTIN(IsArray);
TESSEL_VBS_BUILTIN(LBound);
TESSEL_VBS_BUILTIN(UBound);
TESSEL_VBS_BUILTIN(Split);
TESSEL_VBS_BUILTIN(Join);
TESSEL_VBS_BUILTIN(Filter);
}  // namespace tessel::vbs::builtins
