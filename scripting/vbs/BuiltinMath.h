// BuiltinMath: Abs, Atn, Cos, Exp, Log, Sgn, Sin, Sqr, Tan, Rnd, Randomize
// and RGB.
//
// The trigonometric and exponential functions work in Double; Abs keeps the
// argument's subtype (widening Integer and Long at their most negative value
// the way negation does); Rnd and Randomize use the engine's BuiltinContext.
#pragma once

#include "scripting/vbs/BuiltinStrings.h"

namespace tessel::vbs::builtins {
TESSEL_VBS_BUILTIN(Abs);
TESSEL_VBS_BUILTIN(Atn);
TESSEL_VBS_BUILTIN(Cos);
TESSEL_VBS_BUILTIN(Exp);
TESSEL_VBS_BUILTIN(Log);
TESSEL_VBS_BUILTIN(Sgn);
TESSEL_VBS_BUILTIN(Sin);
TESSEL_VBS_BUILTIN(Sqr);
TESSEL_VBS_BUILTIN(Tan);
TESSEL_VBS_BUILTIN(Rnd);
TESSEL_VBS_BUILTIN(Randomize);
TESSEL_VBS_BUILTIN(RGB);
}  // namespace tessel::vbs::builtins
