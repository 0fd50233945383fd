#include "scripting/vbs/BuiltinMath.h"

#include <cmath>

#include "core/DateTime.h"
#include "core/VariantArithmetic.h"
#include "scripting/vbs/BuiltinArgs.h"
#include "scripting/vbs/BuiltinContext.h"

namespace tessel::vbs::builtins {

namespace {

template <class F>
Variant DoubleFunction(const Variant& arg, F f) {
  Variant v = ArgValue(arg);
  if (v.IsNull()) return v;
  double result = f(v.ToDouble());
  if (std::isinf(result)) ThrowRuntimeError(6);
  if (std::isnan(result)) ThrowRuntimeError(5);
  return Variant(result);
}

double SecondsSinceMidnight(const BuiltinContext& context) {
  return DateTime::TimeOf(context.Now()) * 86400.0;
}

}  // namespace

Variant Abs(BuiltinContext&, const Variant* args, int) {
  Variant v = ArgValue(args[0]);
  switch (v.Type()) {
    case VarType::Null:
    case VarType::Byte:
      return v;
    case VarType::Empty:
      return Variant::FromInteger(0);
    case VarType::Boolean:
      return Variant::FromInteger(v.BooleanValue() ? 1 : 0);
    case VarType::Integer:
    case VarType::Long:
    case VarType::Currency:
    case VarType::Decimal:
      return Compare(v, Variant::FromInteger(0)) == CompareResult::Less ? Negate(v) : v;
    case VarType::Single:
      return Variant::FromSingle(std::fabs(v.SingleValue()));
    case VarType::Date:
      return Variant::FromDate(std::fabs(v.DateValue()));
    default:
      return Variant(std::fabs(v.ToDouble()));
  }
}

Variant Atn(BuiltinContext&, const Variant* args, int) {
  return DoubleFunction(args[0], [](double x) { return std::atan(x); });
}
Variant Cos(BuiltinContext&, const Variant* args, int) {
  return DoubleFunction(args[0], [](double x) { return std::cos(x); });
}
Variant Sin(BuiltinContext&, const Variant* args, int) {
  return DoubleFunction(args[0], [](double x) { return std::sin(x); });
}
Variant Tan(BuiltinContext&, const Variant* args, int) {
  return DoubleFunction(args[0], [](double x) { return std::tan(x); });
}
Variant Exp(BuiltinContext&, const Variant* args, int) {
  return DoubleFunction(args[0], [](double x) { return std::exp(x); });
}
Variant Log(BuiltinContext&, const Variant* args, int) {
  return DoubleFunction(args[0], [](double x) {
    if (x <= 0) ThrowRuntimeError(5);
    return std::log(x);
  });
}
Variant Sqr(BuiltinContext&, const Variant* args, int) {
  return DoubleFunction(args[0], [](double x) {
    if (x < 0) ThrowRuntimeError(5);
    return std::sqrt(x);
  });
}

Variant Sgn(BuiltinContext&, const Variant* args, int) {
  Variant v = ArgValue(args[0]);
  if (v.IsNull()) ThrowRuntimeError(94);  // unlike Abs, Int and Fix, Sgn does not pass Null on
  if (v.IsEmpty()) return Variant::FromInteger(0);
  if (v.IsString()) v = Variant(v.ToDouble());
  CompareResult c = Compare(v, Variant::FromInteger(0));
  return Variant::FromInteger(
      static_cast<int16_t>(c == CompareResult::Less ? -1 : (c == CompareResult::Equal ? 0 : 1)));
}

Variant Rnd(BuiltinContext& context, const Variant* args, int argc) {
  float number = HasArg(args, argc, 0) ? args[0].ToSingle() : 1.0f;
  return Variant::FromSingle(context.NextRandom(number));
}

Variant Randomize(BuiltinContext& context, const Variant* args, int argc) {
  double seed = HasArg(args, argc, 0)
                    ? args[0].ToDouble()
                    : static_cast<double>(static_cast<float>(SecondsSinceMidnight(context)));
  context.Randomize(seed);
  return Variant();
}

Variant RGB(BuiltinContext&, const Variant* args, int) {
  int32_t parts[3];
  for (int i = 0; i < 3; ++i) {
    int32_t p = args[i].ToLong();
    if (p < 0) InvalidArgument();
    parts[i] = p > 255 ? 255 : p;
  }
  return Variant(parts[0] + parts[1] * 256 + parts[2] * 65536);
}

}  // namespace tessel::vbs::builtins
