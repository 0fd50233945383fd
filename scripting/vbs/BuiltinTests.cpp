#include "scripting/vbs/BuiltinTests.h"

#include "scripting/vbs/BuiltinArgs.h"

namespace tessel::vbs::builtins {

namespace {
constexpr int32_t kUnitedStates = 1033;
}

Variant IsDate(BuiltinContext&, const Variant* args, int) {
  return Variant(tessel::IsDate(args[0]));
}
Variant IsEmpty(BuiltinContext&, const Variant* args, int) { return Variant(args[0].IsEmpty()); }
Variant IsNull(BuiltinContext&, const Variant* args, int) { return Variant(args[0].IsNull()); }
Variant IsNumeric(BuiltinContext&, const Variant* args, int) {
  return Variant(tessel::IsNumeric(args[0]));
}
Variant IsObject(BuiltinContext&, const Variant* args, int) { return Variant(args[0].IsObject()); }

Variant VarType(BuiltinContext&, const Variant* args, int) {
  const Variant& v = args[0];
  if (v.IsObject() && !v.IsNothing()) {
    // An object reports the subtype of its default value when it has one.
    try {
      Variant value = v.Dereference();
      if (!value.IsObject())
        return Variant::FromInteger(static_cast<int16_t>(value.VarTypeNumber()));
    } catch (const Error&) {
    }
    return Variant::FromInteger(static_cast<int16_t>(tessel::VarType::Object));
  }
  return Variant::FromInteger(static_cast<int16_t>(v.VarTypeNumber()));
}

Variant TypeName(BuiltinContext&, const Variant* args, int) { return Variant(args[0].TypeName()); }

Variant ScriptEngine(BuiltinContext&, const Variant*, int) { return Variant("VBScript"); }
Variant ScriptEngineMajorVersion(BuiltinContext&, const Variant*, int) {
  return Variant(int32_t{5});
}
Variant ScriptEngineMinorVersion(BuiltinContext&, const Variant*, int) {
  return Variant(int32_t{8});
}
Variant ScriptEngineBuildVersion(BuiltinContext&, const Variant*, int) {
  return Variant(int32_t{16384});
}

Variant GetLocale(BuiltinContext&, const Variant*, int) { return Variant(kUnitedStates); }

// Only the United States locale exists; asking for it (by number or name) or
// for the system default (0) succeeds and returns the previous locale.
Variant SetLocale(BuiltinContext&, const Variant* args, int argc) {
  if (HasArg(args, argc, 0)) {
    Variant v = ArgValue(args[0]);
    if (v.IsString()) {
      std::string name(v.StringValue());
      for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
      if (!name.empty() && name != "en-us" && name != "english" && name != "english-us")
        InvalidArgument();
    } else {
      int32_t id = v.ToLong();
      if (id != 0 && id != kUnitedStates) InvalidArgument();
    }
  }
  return Variant(kUnitedStates);
}

}  // namespace tessel::vbs::builtins
