// BuiltinTests: the value tests and type queries (IsDate, IsEmpty, IsNull,
// IsNumeric, IsObject, VarType, TypeName) and the engine information
// functions (ScriptEngine..., GetLocale, SetLocale).
#pragma once

#include "scripting/vbs/BuiltinStrings.h"

namespace tessel::vbs::builtins {
TESSEL_VBS_BUILTIN(IsDate);
TESSEL_VBS_BUILTIN(IsEmpty);
TESSEL_VBS_BUILTIN(IsNull);
TESSEL_VBS_BUILTIN(IsNumeric);
TESSEL_VBS_BUILTIN(IsObject);
TESSEL_VBS_BUILTIN(VarType);
TESSEL_VBS_BUILTIN(TypeName);
TESSEL_VBS_BUILTIN(ScriptEngine);
TESSEL_VBS_BUILTIN(ScriptEngineMajorVersion);
TESSEL_VBS_BUILTIN(ScriptEngineMinorVersion);
TESSEL_VBS_BUILTIN(ScriptEngineBuildVersion);
TESSEL_VBS_BUILTIN(GetLocale);
TESSEL_VBS_BUILTIN(SetLocale);
}  // namespace tessel::vbs::builtins
