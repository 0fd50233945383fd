// BuiltinArgs: argument helpers shared by the built-in function groups.
//
// Built-ins receive their arguments as an array of Variants; an optional
// argument may be absent (beyond argc) or passed as the Missing marker when
// the script left a gap ("FormatNumber(x, , , True)"). Objects stand for their
// default property value.
#pragma once

#include <cstdint>
#include <string>

#include "core/RuntimeError.h"
#include "core/Variant.h"
#include "scripting/vbs/BuiltinCalendar.h"

namespace tessel::vbs {

inline bool HasArg(const Variant* args, int argc, int index) {
  return index < argc && !args[index].IsMissing();
}

// The value an argument stands for: objects give their default property.
inline Variant ArgValue(const Variant& arg) { return arg.IsObject() ? arg.Dereference() : arg; }

// Optional integer argument (CLng rules) or its default.
inline int32_t LongArg(const Variant* args, int argc, int index, int32_t fallback) {
  return HasArg(args, argc, index) ? args[index].ToLong() : fallback;
}

// Optional Boolean-ish argument or its default.
inline bool BoolArg(const Variant* args, int argc, int index, bool fallback) {
  return HasArg(args, argc, index) ? args[index].ToBool() : fallback;
}

// vbBinaryCompare (0) or vbTextCompare (1); anything else raises 5.
inline bool TextCompareArg(const Variant* args, int argc, int index) {
  if (!HasArg(args, argc, index)) return false;
  int32_t mode = args[index].ToLong();
  if (mode != 0 && mode != 1) ThrowRuntimeError(5);
  return mode == 1;
}

[[noreturn]] inline void InvalidArgument() { ThrowRuntimeError(5); }

// CDate of an argument, checked to lie in the calendar's range (a host may
// hand in a Date serial that no script could make); 5 otherwise.
inline double DateArg(const Variant& arg) {
  double serial = arg.ToDate();
  if (!calendar::InRange(serial)) ThrowRuntimeError(5);
  return serial;
}

}  // namespace tessel::vbs
