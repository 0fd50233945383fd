// FastArithmetic: inline paths of +, - and * for the subtypes loops and
// formulas use most (Integer, Long, Double), falling back to the full rules
// of core/VariantArithmetic.h for everything else.
//
// Results and subtypes are exactly those of the full operators: Integer op
// Integer stays Integer and widens to Long on overflow, Long widens to Double,
// any Double operand gives Double.
#pragma once

#include <cmath>
#include <cstdint>

#include "core/VariantArithmetic.h"

namespace tessel::vbs {

namespace fast {

// 0 = other, 1 = Integer, 2 = Long, 3 = Double
inline int Kind(const Variant& v) {
  switch (v.Type()) {
    case VarType::Integer: return 1;
    case VarType::Long: return 2;
    case VarType::Double: return 3;
    default: return 0;
  }
}

inline int64_t IntOf(const Variant& v) {
  return v.Type() == VarType::Integer ? v.IntegerValue() : v.LongValue();
}

inline double DoubleOf(const Variant& v) {
  switch (v.Type()) {
    case VarType::Integer: return v.IntegerValue();
    case VarType::Long: return v.LongValue();
    default: return v.DoubleValue();
  }
}

inline Variant Widen(int64_t r, int ka, int kb) {
  if (ka == 1 && kb == 1 && r >= -32768 && r <= 32767) return Variant::FromInteger(static_cast<int16_t>(r));
  if (r >= INT32_MIN && r <= INT32_MAX) return Variant::FromLong(static_cast<int32_t>(r));
  return Variant::FromDouble(static_cast<double>(r));
}

}  // namespace fast

inline Variant FastAdd(const Variant& a, const Variant& b) {
  const int ka = fast::Kind(a), kb = fast::Kind(b);
  if (ka && kb) {
    if (ka < 3 && kb < 3) return fast::Widen(fast::IntOf(a) + fast::IntOf(b), ka, kb);
    double r = fast::DoubleOf(a) + fast::DoubleOf(b);
    if (std::isfinite(r)) return Variant::FromDouble(r);
  }
  return Add(a, b);
}

inline Variant FastSubtract(const Variant& a, const Variant& b) {
  const int ka = fast::Kind(a), kb = fast::Kind(b);
  if (ka && kb) {
    if (ka < 3 && kb < 3) return fast::Widen(fast::IntOf(a) - fast::IntOf(b), ka, kb);
    double r = fast::DoubleOf(a) - fast::DoubleOf(b);
    if (std::isfinite(r)) return Variant::FromDouble(r);
  }
  return Subtract(a, b);
}

inline Variant FastMultiply(const Variant& a, const Variant& b) {
  const int ka = fast::Kind(a), kb = fast::Kind(b);
  if (ka && kb) {
    if (ka < 3 && kb < 3) return fast::Widen(fast::IntOf(a) * fast::IntOf(b), ka, kb);
    double r = fast::DoubleOf(a) * fast::DoubleOf(b);
    if (std::isfinite(r)) return Variant::FromDouble(r);
  }
  return Multiply(a, b);
}

}  // namespace tessel::vbs
