// Helpers for the script engine tests: run code in a fresh engine and read
// values back through Eval.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "core/Error.h"
#include "core/Variant.h"
#include "scripting/vbs/Engine.h"

namespace tessel::vbs::test {

// The error number a piece of code raises in AddCode, 0 when it runs.
inline int32_t ErrorOf(Engine& engine, const std::string& code) {
  try {
    engine.AddCode(code);
  } catch (const Error& e) {
    return e.number();
  }
  return 0;
}

inline int32_t EvalErrorOf(Engine& engine, const std::string& expression) {
  try {
    engine.Eval(expression);
  } catch (const Error& e) {
    return e.number();
  }
  return 0;
}

// Eval rendered as "TypeName:CStr" so one string checks value and subtype.
inline std::string Typed(Engine& engine, const std::string& expression) {
  Variant v = engine.Eval(expression);
  std::string text;
  if (v.IsNull()) text = "Null";
  else if (v.IsObject()) text = v.IsNothing() ? "Nothing" : "object";
  else if (v.IsArray()) text = "array";
  else text = v.ToString();
  return v.TypeName() + ":" + text;
}

}  // namespace tessel::vbs::test
