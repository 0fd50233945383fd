// BuiltinTable: the table of VBScript's built-in functions and constants.
//
// The parser resolves a call to a name that is neither a local, a global nor a
// host member against this table once, at compile time, and the machine calls
// the entry through its function pointer. Entries are immutable and static;
// per-engine state (the Rnd seed, the last Rnd value) lives in BuiltinContext,
// which each engine owns.
//
// Built-ins raise tessel::Error with VBScript's runtime numbers (5, 6, 13, ...).
// Arguments arrive evaluated, by value, in source order; argc lies between the
// entry's minArgs and maxArgs (the compiler checks and raises 450 otherwise).
#pragma once

#include <cstdint>
#include <string_view>

#include "core/Variant.h"

namespace tessel::vbs {

class BuiltinContext;

struct BuiltinFunction {
  std::string_view name;  // as VBScript spells it; lookup is case-insensitive
  int8_t minArgs;
  int8_t maxArgs;
  Variant (*call)(BuiltinContext& context, const Variant* args, int argc);
};

struct BuiltinConstant {
  std::string_view name;  // vbCrLf, vbString, ...
  Variant (*value)();
};

// nullptr when the name is not a built-in.
const BuiltinFunction* FindBuiltinFunction(std::string_view name);
const BuiltinConstant* FindBuiltinConstant(std::string_view name);

}  // namespace tessel::vbs
