// VariantArithmetic: the script language's operators on Variants.
//
// Every function takes its operands by const reference and returns a new
// value; none keeps a reference. Objects are first replaced by their default
// property. Null on either side gives Null (except where noted for the logical
// operators and Concat); Empty acts as Integer 0 (and as "" where a string is
// wanted). Errors: 13 "Type mismatch" for arrays, Error values and text that is
// not a number, 6 "Overflow", 11 "Division by zero".
//
// Result subtypes (the rule of the widest operand, with promotion on
// overflow):
//   Byte < Integer < Long < Single < Double, and Currency, Decimal above them.
//   Boolean counts as Integer (True = -1) except Boolean op Boolean in the
//   logical operators. Byte+Byte overflows to Integer, Integer to Long, Long
//   to Double; Single to Double. Currency and Decimal are exact and raise 6
//   when the result does not fit. A string operand of an arithmetic operator
//   is read as a Double (13 when it is not numeric), except that + on two
//   strings concatenates. Date + number and Date - number give a Date; Date -
//   Date gives a Double.
//   Divide (/) gives Double (Single for Single/Single-or-smaller, Decimal when
//   either side is Decimal); 0/0 raises 6, x/0 raises 11.
//   IntDivide (\) and Mod round both sides half to even to an integer and give
//   Byte, Integer or Long. Power (^) always gives Double.
//
// Logical/bitwise operators (Not, And, Or, Xor, Eqv, Imp) work on Boolean,
// Byte, Integer and Long (other numbers and numeric text are rounded to Long;
// "True"/"False" text is Boolean). Boolean op Boolean gives Boolean; Byte op
// Byte gives Byte; otherwise the widest of Integer/Long. Null rules:
//   Null And x: x when x is False/0, else Null.
//   Null Or x: x when x is True (all bits set), else Null.
//   Null Xor x, Null Eqv x: Null.
//   Null Imp x: x when x is True (all bits set), else Null.
//   x Imp Null: True when x is False/0, else Null.
//   Not Null: Null.
#pragma once

#include <cstdint>

#include "core/Variant.h"

namespace tessel {

namespace detail {
Variant AddSlow(const Variant& a, const Variant& b);
Variant SubtractSlow(const Variant& a, const Variant& b);
Variant MultiplySlow(const Variant& a, const Variant& b);

// Integer (2) or Long (3).
inline bool IsSmallIntegral(VarType t) noexcept { return static_cast<unsigned>(t) - 2u <= 1u; }
inline int32_t SmallIntegralValue(const Variant& v) noexcept {
  return v.Type() == VarType::Integer ? v.IntegerValue() : v.LongValue();
}
// Integer op Integer stays Integer while it fits, else Long; with a Long
// operand the result is Long. False when even Long overflows.
inline bool FitSmallIntegral(const Variant& a, const Variant& b, int64_t r, Variant& out) noexcept {
  if (a.Type() == VarType::Integer && b.Type() == VarType::Integer && r >= -32768 && r <= 32767) {
    out = Variant::FromInteger(static_cast<int16_t>(r));
    return true;
  }
  if (r >= INT32_MIN && r <= INT32_MAX) {
    out = Variant(static_cast<int32_t>(r));
    return true;
  }
  return false;
}
// Double with Double, Integer or Long.
inline bool IsDoublePair(const Variant& a, const Variant& b) noexcept {
  return (a.Type() == VarType::Double && (b.Type() == VarType::Double || IsSmallIntegral(b.Type()))) ||
         (b.Type() == VarType::Double && IsSmallIntegral(a.Type()));
}
inline double DoubleOf(const Variant& v) noexcept {
  return v.Type() == VarType::Double ? v.DoubleValue() : SmallIntegralValue(v);
}
}  // namespace detail

// a + b. Integer, Long and Double pairs take an inline path.
inline Variant Add(const Variant& a, const Variant& b) {
  if (a.Type() == VarType::Long && b.Type() == VarType::Long) {
    int32_t r;
    if (!__builtin_add_overflow(a.LongValue(), b.LongValue(), &r)) return Variant(r);
  } else if (detail::IsSmallIntegral(a.Type()) && detail::IsSmallIntegral(b.Type())) {
    Variant out;
    int64_t r = int64_t{detail::SmallIntegralValue(a)} + detail::SmallIntegralValue(b);
    if (detail::FitSmallIntegral(a, b, r, out)) return out;
  } else if (detail::IsDoublePair(a, b)) {
    double r = detail::DoubleOf(a) + detail::DoubleOf(b);
    if (__builtin_isfinite(r)) return Variant(r);  // overflow raises in the slow path
  }
  return detail::AddSlow(a, b);
}

// a - b.
inline Variant Subtract(const Variant& a, const Variant& b) {
  if (a.Type() == VarType::Long && b.Type() == VarType::Long) {
    int32_t r;
    if (!__builtin_sub_overflow(a.LongValue(), b.LongValue(), &r)) return Variant(r);
  } else if (detail::IsSmallIntegral(a.Type()) && detail::IsSmallIntegral(b.Type())) {
    Variant out;
    int64_t r = int64_t{detail::SmallIntegralValue(a)} - detail::SmallIntegralValue(b);
    if (detail::FitSmallIntegral(a, b, r, out)) return out;
  } else if (detail::IsDoublePair(a, b)) {
    double r = detail::DoubleOf(a) - detail::DoubleOf(b);
    if (__builtin_isfinite(r)) return Variant(r);
  }
  return detail::SubtractSlow(a, b);
}

// a * b.
inline Variant Multiply(const Variant& a, const Variant& b) {
  if (detail::IsSmallIntegral(a.Type()) && detail::IsSmallIntegral(b.Type())) {
    Variant out;
    int64_t r = int64_t{detail::SmallIntegralValue(a)} * detail::SmallIntegralValue(b);
    if (detail::FitSmallIntegral(a, b, r, out)) return out;
  } else if (detail::IsDoublePair(a, b)) {
    double r = detail::DoubleOf(a) * detail::DoubleOf(b);
    if (__builtin_isfinite(r)) return Variant(r);
  }
  return detail::MultiplySlow(a, b);
}

Variant Divide(const Variant& a, const Variant& b);
Variant IntDivide(const Variant& a, const Variant& b);
Variant Mod(const Variant& a, const Variant& b);
Variant Power(const Variant& a, const Variant& b);
Variant Negate(const Variant& a);
// a & b: both sides as text; Null acts as "" unless both are Null (then Null).
Variant Concat(const Variant& a, const Variant& b);

Variant Not(const Variant& a);
Variant And(const Variant& a, const Variant& b);
Variant Or(const Variant& a, const Variant& b);
Variant Xor(const Variant& a, const Variant& b);
Variant Eqv(const Variant& a, const Variant& b);
Variant Imp(const Variant& a, const Variant& b);

}  // namespace tessel
