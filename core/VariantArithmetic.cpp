#include "core/VariantArithmetic.h"

#include <cmath>
#include <limits>

#include "core/DateTime.h"
#include "core/RuntimeError.h"

namespace tessel {

namespace {

// Numeric ranks in promotion order. Empty adopts the other operand's rank.
enum Rank { kEmpty = -1, kByte = 0, kInteger, kLong, kSingle, kDouble, kCurrency, kDecimal, kDate, kString };

Rank RankOf(const Variant& v) {
  switch (v.Type()) {
    case VarType::Empty: return kEmpty;
    case VarType::Byte: return kByte;
    case VarType::Integer:
    case VarType::Boolean: return kInteger;
    case VarType::Long: return kLong;
    case VarType::Single: return kSingle;
    case VarType::Double: return kDouble;
    case VarType::Currency: return kCurrency;
    case VarType::Decimal: return kDecimal;
    case VarType::Date: return kDate;
    case VarType::String: return kString;
    default: ThrowRuntimeError(13);
  }
}

// The rank arithmetic is carried out in (Date and String resolved by callers).
Rank ArithmeticRank(Rank a, Rank b) {
  if (a == kString) a = kDouble;
  if (b == kString) b = kDouble;
  if (a == kDate) a = kDouble;
  if (b == kDate) b = kDouble;
  if (a == kEmpty && b == kEmpty) return kInteger;
  if (a == kEmpty) return b;
  if (b == kEmpty) return a;
  if (a == kDecimal || b == kDecimal) return kDecimal;
  if (a == kCurrency || b == kCurrency) return kCurrency;
  if (a == kDouble || b == kDouble) return kDouble;
  if (a == kSingle || b == kSingle) return (a == kLong || b == kLong) ? kDouble : kSingle;
  return a > b ? a : b;
}

// An integral result placed in the narrowest type at or above `rank`.
Variant FitIntegral(int64_t r, Rank rank) {
  if (rank == kByte && r >= 0 && r <= 255) return Variant::FromByte(static_cast<uint8_t>(r));
  if (rank <= kInteger && r >= -32768 && r <= 32767) return Variant::FromInteger(static_cast<int16_t>(r));
  if (r >= std::numeric_limits<int32_t>::min() && r <= std::numeric_limits<int32_t>::max()) {
    return Variant::FromLong(static_cast<int32_t>(r));
  }
  return Variant::FromDouble(static_cast<double>(r));
}

Variant CheckedDouble(double r) {
  if (!std::isfinite(r)) ThrowRuntimeError(6);
  return Variant::FromDouble(r);
}

Variant SingleOrDouble(double r) {
  if (!std::isfinite(r)) ThrowRuntimeError(6);
  float f = static_cast<float>(r);
  if (std::isinf(f)) return Variant::FromDouble(r);
  return Variant::FromSingle(f);
}

Variant CheckedDate(double r) {
  if (!std::isfinite(r) || !DateTime::IsValid(r)) ThrowRuntimeError(6);
  return Variant::FromDate(r);
}

enum class Op { Add, Sub, Mul };

Variant Numeric(Op op, const Variant& a, const Variant& b, Rank rank) {
  switch (rank) {
    case kByte:
    case kInteger:
    case kLong: {
      int64_t x = a.ToLong(), y = b.ToLong();
      int64_t r = op == Op::Add ? x + y : op == Op::Sub ? x - y : x * y;
      return FitIntegral(r, rank);
    }
    case kSingle:
    case kDouble: {
      double x = a.ToDouble(), y = b.ToDouble();
      double r = op == Op::Add ? x + y : op == Op::Sub ? x - y : x * y;
      return rank == kSingle ? SingleOrDouble(r) : CheckedDouble(r);
    }
    case kCurrency: {
      Currency x = a.ToCurrency(), y = b.ToCurrency();
      return Variant::FromCurrency(op == Op::Add ? x + y : op == Op::Sub ? x - y : x * y);
    }
    case kDecimal: {
      Decimal x = a.ToDecimal(), y = b.ToDecimal();
      return Variant::FromDecimal(op == Op::Add ? x + y : op == Op::Sub ? x - y : x * y);
    }
    default: ThrowRuntimeError(13);
  }
}

}  // namespace

namespace detail {

Variant AddSlow(const Variant& a0, const Variant& b0) {
  if (a0.IsNull() || b0.IsNull()) return Variant::Null();
  if (a0.IsObject() || b0.IsObject()) return Add(a0.Dereference(), b0.Dereference());
  Rank ra = RankOf(a0), rb = RankOf(b0);
  if (ra == kString && rb == kString) return Concat(a0, b0);
  if ((ra == kString && rb == kEmpty) || (ra == kEmpty && rb == kString)) return ra == kString ? a0 : b0;
  if ((ra == kDate || rb == kDate) && ra != kCurrency && rb != kCurrency && ra != kDecimal && rb != kDecimal) {
    return CheckedDate(a0.ToDouble() + b0.ToDouble());
  }
  return Numeric(Op::Add, a0, b0, ArithmeticRank(ra, rb));
}

Variant SubtractSlow(const Variant& a0, const Variant& b0) {
  if (a0.IsNull() || b0.IsNull()) return Variant::Null();
  if (a0.IsObject() || b0.IsObject()) return Subtract(a0.Dereference(), b0.Dereference());
  Rank ra = RankOf(a0), rb = RankOf(b0);
  if (ra == kDate && rb == kDate) return CheckedDouble(a0.DateValue() - b0.DateValue());
  if ((ra == kDate || rb == kDate) && ra != kCurrency && rb != kCurrency && ra != kDecimal && rb != kDecimal) {
    return CheckedDate(a0.ToDouble() - b0.ToDouble());
  }
  return Numeric(Op::Sub, a0, b0, ArithmeticRank(ra, rb));
}

}  // namespace detail

namespace detail {

Variant MultiplySlow(const Variant& a0, const Variant& b0) {
  if (a0.IsNull() || b0.IsNull()) return Variant::Null();
  if (a0.IsObject() || b0.IsObject()) return Multiply(a0.Dereference(), b0.Dereference());
  return Numeric(Op::Mul, a0, b0, ArithmeticRank(RankOf(a0), RankOf(b0)));
}

}  // namespace detail

Variant Divide(const Variant& a0, const Variant& b0) {
  if (a0.IsNull() || b0.IsNull()) return Variant::Null();
  if (a0.IsObject() || b0.IsObject()) return Divide(a0.Dereference(), b0.Dereference());
  Rank ra = RankOf(a0), rb = RankOf(b0);
  if (ra == kDecimal || rb == kDecimal) return Variant::FromDecimal(a0.ToDecimal() / b0.ToDecimal());
  double x = a0.ToDouble(), y = b0.ToDouble();
  if (y == 0) ThrowRuntimeError(x == 0 || std::isnan(x) ? 6 : 11);
  double r = x / y;
  auto small = [](Rank r) { return r == kEmpty || r == kByte || r == kInteger || r == kSingle; };
  if ((ra == kSingle || rb == kSingle) && small(ra) && small(rb)) return SingleOrDouble(r);
  return CheckedDouble(r);
}

namespace {

// The integral rank of an operand of \ and Mod.
Rank IntegralRank(const Variant& v) {
  switch (v.Type()) {
    case VarType::Empty: return kEmpty;
    case VarType::Byte: return kByte;
    case VarType::Integer:
    case VarType::Boolean: return kInteger;
    case VarType::Array:
    case VarType::Error: ThrowRuntimeError(13);
    default: return kLong;
  }
}

Rank IntegralResultRank(Rank a, Rank b) {
  if (a == kEmpty && b == kEmpty) return kInteger;
  if (a == kEmpty) return b == kByte ? kInteger : b;
  if (b == kEmpty) return a == kByte ? kInteger : a;
  return a > b ? a : b;
}

}  // namespace

Variant IntDivide(const Variant& a0, const Variant& b0) {
  if (a0.IsNull() || b0.IsNull()) return Variant::Null();
  if (a0.IsObject() || b0.IsObject()) return IntDivide(a0.Dereference(), b0.Dereference());
  Rank rank = IntegralResultRank(IntegralRank(a0), IntegralRank(b0));
  int64_t x = a0.ToLong(), y = b0.ToLong();
  if (y == 0) ThrowRuntimeError(11);
  int64_t r = x / y;
  if (rank == kLong && r > std::numeric_limits<int32_t>::max()) ThrowRuntimeError(6);
  return FitIntegral(r, rank);
}

Variant Mod(const Variant& a0, const Variant& b0) {
  if (a0.IsNull() || b0.IsNull()) return Variant::Null();
  if (a0.IsObject() || b0.IsObject()) return Mod(a0.Dereference(), b0.Dereference());
  Rank rank = IntegralResultRank(IntegralRank(a0), IntegralRank(b0));
  int64_t x = a0.ToLong(), y = b0.ToLong();
  if (y == 0) ThrowRuntimeError(11);
  return FitIntegral(x % y, rank);
}

Variant Power(const Variant& a0, const Variant& b0) {
  if (a0.IsNull() || b0.IsNull()) return Variant::Null();
  double x = a0.ToDouble(), y = b0.ToDouble();
  if (x == 0 && y < 0) ThrowRuntimeError(5);
  if (x < 0 && y != std::trunc(y)) ThrowRuntimeError(5);
  return CheckedDouble(std::pow(x, y));
}

Variant Negate(const Variant& a) {
  switch (a.Type()) {
    case VarType::Null: return Variant::Null();
    case VarType::Empty: return Variant::FromInteger(0);
    case VarType::Boolean: return Variant::FromInteger(a.BooleanValue() ? 1 : 0);
    case VarType::Byte: return Variant::FromInteger(static_cast<int16_t>(-a.ByteValue()));
    case VarType::Integer: return FitIntegral(-static_cast<int64_t>(a.IntegerValue()), kInteger);
    case VarType::Long: return FitIntegral(-static_cast<int64_t>(a.LongValue()), kLong);
    case VarType::Single: return Variant::FromSingle(-a.SingleValue());
    case VarType::Double: return Variant::FromDouble(-a.DoubleValue());
    case VarType::Currency: return Variant::FromCurrency(-a.CurrencyValue());
    case VarType::Decimal: return Variant::FromDecimal(-a.DecimalValue());
    case VarType::Date: return CheckedDate(-a.DateValue());
    case VarType::String: return Variant::FromDouble(-a.ToDouble());
    case VarType::Object: return Negate(a.Dereference());
    default: ThrowRuntimeError(13);
  }
}

Variant Concat(const Variant& a, const Variant& b) {
  if (a.IsNull() && b.IsNull()) return Variant::Null();
  if (a.IsString() && b.IsString()) {
    std::string_view x = a.StringValue(), y = b.StringValue();
    if (y.empty()) return a;
    if (x.empty()) return b;
    std::string r;
    r.reserve(x.size() + y.size());
    r.append(x);
    r.append(y);
    return Variant(std::move(r));
  }
  if (a.IsNull() || a.IsEmpty()) return b.IsNull() ? Variant(std::string()) : b.ToStringVariant();
  if (b.IsNull() || b.IsEmpty()) return a.ToStringVariant();
  std::string r = a.ToString();
  r += b.ToString();
  return Variant(std::move(r));
}

// --- Logical operators ------------------------------------------------------------

namespace {

struct Logic {
  enum Kind { Null, Bool, Byte, Int, Long } kind;
  int32_t value;
};

Logic ToLogic(const Variant& v) {
  switch (v.Type()) {
    case VarType::Null: return {Logic::Null, 0};
    case VarType::Empty: return {Logic::Int, 0};
    case VarType::Boolean: return {Logic::Bool, v.BooleanValue() ? -1 : 0};
    case VarType::Byte: return {Logic::Byte, v.ByteValue()};
    case VarType::Integer: return {Logic::Int, v.IntegerValue()};
    case VarType::Long: return {Logic::Long, v.LongValue()};
    case VarType::Object: return ToLogic(v.Dereference());
    case VarType::String: {
      std::string_view s = v.StringValue();
      while (!s.empty() && s.front() == ' ') s.remove_prefix(1);
      while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
      if (s.size() >= 4 && s.size() <= 7) {
        std::string lower;
        for (char c : s) lower.push_back(static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c));
        // "#TRUE#" and "#FALSE#" are how Booleans are written to files.
        if (lower == "true" || lower == "#true#") return {Logic::Bool, -1};
        if (lower == "false" || lower == "#false#") return {Logic::Bool, 0};
      }
      return {Logic::Long, v.ToLong()};
    }
    case VarType::Array:
    case VarType::Error: ThrowRuntimeError(13);
    default: return {Logic::Long, v.ToLong()};
  }
}

Logic::Kind Combine(Logic::Kind a, Logic::Kind b) {
  if (a == b) return a;
  if (a == Logic::Long || b == Logic::Long) return Logic::Long;
  return Logic::Int;
}

Variant Make(Logic::Kind kind, int32_t v) {
  switch (kind) {
    case Logic::Bool: return Variant(v != 0);
    case Logic::Byte: return Variant::FromByte(static_cast<uint8_t>(v));
    case Logic::Int: return Variant::FromInteger(static_cast<int16_t>(v));
    case Logic::Long: return Variant::FromLong(v);
    default: return Variant::Null();
  }
}

int32_t AllBits(Logic::Kind kind) { return kind == Logic::Byte ? 0xFF : -1; }

enum class LogicOp { And, Or, Xor, Eqv, Imp };

int32_t Apply(LogicOp op, int32_t x, int32_t y) {
  switch (op) {
    case LogicOp::And: return x & y;
    case LogicOp::Or: return x | y;
    case LogicOp::Xor: return x ^ y;
    case LogicOp::Eqv: return ~(x ^ y);
    case LogicOp::Imp: return ~x | y;
  }
  return 0;
}

Variant Binary(LogicOp op, const Variant& a, const Variant& b) {
  Logic x = ToLogic(a), y = ToLogic(b);
  if (x.kind == Logic::Null && y.kind == Logic::Null) return Variant::Null();
  if (x.kind == Logic::Null || y.kind == Logic::Null) {
    bool nullLeft = x.kind == Logic::Null;
    const Logic& other = nullLeft ? y : x;
    bool isZero = other.value == 0;
    bool isAll = (other.value & AllBits(other.kind)) == AllBits(other.kind);
    switch (op) {
      case LogicOp::And:
        return isZero ? Make(other.kind, 0) : Variant::Null();
      case LogicOp::Or:
        return isAll ? Make(other.kind, other.value) : Variant::Null();
      case LogicOp::Imp:
        if (nullLeft) return isAll ? Make(other.kind, other.value) : Variant::Null();
        return isZero ? Make(other.kind, AllBits(other.kind)) : Variant::Null();
      default: return Variant::Null();
    }
  }
  Logic::Kind kind = Combine(x.kind, y.kind);
  int32_t r = Apply(op, x.value, y.value);
  if (kind == Logic::Byte) r &= 0xFF;
  return Make(kind, r);
}

}  // namespace

Variant Not(const Variant& a) {
  Logic x = ToLogic(a);
  if (x.kind == Logic::Null) return Variant::Null();
  int32_t r = ~x.value;
  if (x.kind == Logic::Byte) r &= 0xFF;
  return Make(x.kind, r);
}

Variant And(const Variant& a, const Variant& b) { return Binary(LogicOp::And, a, b); }
Variant Or(const Variant& a, const Variant& b) { return Binary(LogicOp::Or, a, b); }
Variant Xor(const Variant& a, const Variant& b) { return Binary(LogicOp::Xor, a, b); }
Variant Eqv(const Variant& a, const Variant& b) { return Binary(LogicOp::Eqv, a, b); }
Variant Imp(const Variant& a, const Variant& b) { return Binary(LogicOp::Imp, a, b); }

}  // namespace tessel
