// Helpers for calling built-ins through the table, as the script machine does.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "core/DateTime.h"
#include "core/Error.h"
#include "core/Variant.h"
#include "scripting/vbs/BuiltinContext.h"
#include "scripting/vbs/BuiltinTable.h"

namespace tessel::vbs::testing {

// Calls the built-in `name` with `args`; fails the test when the name is
// unknown or the count is outside the entry's range.
inline Variant Call(BuiltinContext& context, std::string_view name, std::vector<Variant> args) {
  const BuiltinFunction* f = FindBuiltinFunction(name);
  if (!f) throw std::runtime_error("no built-in " + std::string(name));
  int argc = static_cast<int>(args.size());
  if (argc < f->minArgs || argc > f->maxArgs) throw std::runtime_error("bad argument count");
  return f->call(context, args.data(), argc);
}

inline Variant Call(std::string_view name, std::vector<Variant> args) {
  BuiltinContext context;
  return Call(context, name, std::move(args));
}

// The runtime error number the call raises, or 0 when it returns.
inline int32_t ErrorOf(std::string_view name, std::vector<Variant> args) {
  try {
    Call(name, std::move(args));
  } catch (const Error& e) {
    return e.number();
  }
  return 0;
}

inline Variant Date(int y, int m, int d, int h = 0, int n = 0, int s = 0) {
  DateParts parts;
  parts.year = y;
  parts.month = m;
  parts.day = d;
  parts.hour = h;
  parts.minute = n;
  parts.second = s;
  return Variant::FromDate(*DateTime::FromParts(parts));
}

inline Variant Int16(int16_t v) { return Variant::FromInteger(v); }
inline Variant Str(std::string_view s) { return Variant(s); }

// Expected value and subtype in one check.
inline void ExpectValue(const Variant& actual, const Variant& expected, const std::string& what) {
  EXPECT_EQ(actual.Type(), expected.Type()) << what;
  if (actual.Type() == expected.Type() && !actual.IsNull() && !actual.IsEmpty()) {
    if (expected.Type() == VarType::String) {
      EXPECT_EQ(actual.StringValue(), expected.StringValue()) << what;
    } else if (expected.Type() == VarType::Double || expected.Type() == VarType::Date ||
               expected.Type() == VarType::Single) {
      EXPECT_NEAR(actual.ToDouble(), expected.ToDouble(), 1e-9) << what;
    } else {
      EXPECT_EQ(Compare(actual, expected), CompareResult::Equal)
          << what << ": got " << actual.ToString() << ", want " << expected.ToString();
    }
  }
}

struct CallCase {
  std::string_view name;
  std::vector<Variant> args;
  Variant expected;
};

struct ErrorCase {
  std::string_view name;
  std::vector<Variant> args;
  int32_t number;
};

inline std::string Describe(std::string_view name, const std::vector<Variant>& args) {
  std::string s(name);
  s += "(";
  for (size_t i = 0; i < args.size(); ++i) {
    if (i) s += ", ";
    try {
      s += args[i].IsNull() ? "Null" : args[i].ToString();
    } catch (...) {
      s += "?";
    }
  }
  return s + ")";
}

inline void RunCases(const std::vector<CallCase>& cases) {
  for (const CallCase& c : cases) {
    std::string what = Describe(c.name, c.args);
    try {
      ExpectValue(Call(c.name, c.args), c.expected, what);
    } catch (const Error& e) {
      ADD_FAILURE() << what << " raised " << e.number() << " " << e.description();
    }
  }
}

inline void RunErrorCases(const std::vector<ErrorCase>& cases) {
  for (const ErrorCase& c : cases) {
    EXPECT_EQ(ErrorOf(c.name, c.args), c.number) << Describe(c.name, c.args);
  }
}

}  // namespace tessel::vbs::testing
