#include "scripting/vbs/BuiltinConversions.h"

#include <cmath>
#include <string>

#include "scripting/vbs/BuiltinArgs.h"

namespace tessel::vbs {

namespace {

// Decimal text "-123.456" rounded to `digits` fraction digits: half to even
// (bankers) or toward -infinity (floor) or toward zero (trunc).
enum class DecimalRounding { HalfEven, Floor, Trunc };

Decimal RoundDecimal(const Decimal& value, int digits, DecimalRounding mode) {
  if (value.Scale() <= digits) return value;
  std::string text = value.ToString();
  bool negative = !text.empty() && text[0] == '-';
  if (negative) text.erase(0, 1);
  size_t point = text.find('.');
  if (point == std::string::npos) return value;
  std::string integer = text.substr(0, point);
  std::string fraction = text.substr(point + 1);
  if (static_cast<int>(fraction.size()) <= digits) return value;
  std::string kept = integer + fraction.substr(0, static_cast<size_t>(digits));
  std::string dropped = fraction.substr(static_cast<size_t>(digits));
  bool droppedNonZero = dropped.find_first_not_of('0') != std::string::npos;
  bool up = false;
  switch (mode) {
    case DecimalRounding::HalfEven: {
      char first = dropped[0];
      bool rest = dropped.find_first_not_of('0', 1) != std::string::npos;
      if (first > '5' || (first == '5' && rest)) {
        up = true;
      } else if (first == '5') {
        up = (kept.back() - '0') % 2 == 1;
      }
      break;
    }
    case DecimalRounding::Floor:
      up = negative && droppedNonZero;
      break;
    case DecimalRounding::Trunc:
      break;
  }
  if (up) {
    int i = static_cast<int>(kept.size()) - 1;
    while (i >= 0 && kept[static_cast<size_t>(i)] == '9') kept[static_cast<size_t>(i--)] = '0';
    if (i < 0) {
      kept.insert(kept.begin(), '1');
    } else {
      ++kept[static_cast<size_t>(i)];
    }
  }
  std::string result = negative ? "-" : "";
  size_t intLength = kept.size() - static_cast<size_t>(digits);
  result += kept.substr(0, intLength);
  if (digits > 0) {
    result += '.';
    result += kept.substr(intLength);
  }
  Decimal out;
  if (!Decimal::Parse(result, out)) ThrowRuntimeError(6);
  return out;
}

Currency RoundCurrency(Currency value, int digits, DecimalRounding mode) {
  if (digits >= 4) return value;
  int64_t factor = 1;
  for (int i = digits; i < 4; ++i) factor *= 10;
  int64_t raw = value.Raw();
  int64_t q = raw / factor;
  int64_t r = raw % factor;
  switch (mode) {
    case DecimalRounding::HalfEven: {
      int64_t twice = 2 * (r < 0 ? -r : r);
      if (twice > factor || (twice == factor && (q % 2 != 0))) q += raw < 0 ? -1 : 1;
      break;
    }
    case DecimalRounding::Floor:
      if (r < 0) --q;
      break;
    case DecimalRounding::Trunc:
      break;
  }
  int64_t rounded;
  if (__builtin_mul_overflow(q, factor, &rounded)) ThrowRuntimeError(6);
  return Currency::FromRaw(rounded);
}

enum class Whole { Fix, Int };

Variant WholePart(const Variant& arg, Whole kind) {
  Variant v = ArgValue(arg);
  auto cut = [kind](double x) { return kind == Whole::Fix ? std::trunc(x) : std::floor(x); };
  DecimalRounding mode = kind == Whole::Fix ? DecimalRounding::Trunc : DecimalRounding::Floor;
  switch (v.Type()) {
    case VarType::Null:
      return v;
    case VarType::Empty:
      return Variant::FromInteger(0);
    case VarType::Boolean:
      return Variant::FromInteger(v.BooleanValue() ? -1 : 0);
    case VarType::Integer:
    case VarType::Long:
    case VarType::Byte:
      return v;
    case VarType::Single:
      return Variant::FromSingle(static_cast<float>(cut(v.SingleValue())));
    case VarType::Double:
      return Variant(cut(v.DoubleValue()));
    case VarType::Date:
      return Variant::FromDate(cut(v.DateValue()));
    case VarType::Currency:
      return Variant::FromCurrency(RoundCurrency(v.CurrencyValue(), 0, mode));
    case VarType::Decimal:
      return Variant::FromDecimal(RoundDecimal(v.DecimalValue(), 0, mode));
    default:
      return Variant(cut(v.ToDouble()));
  }
}

double RoundDouble(double x, int digits) {
  if (!std::isfinite(x)) return x;
  if (digits == 0) return std::nearbyint(x);
  if (digits > 22) return x;
  double scale = std::pow(10.0, digits);
  double scaled = x * scale;
  if (!std::isfinite(scaled) || std::fabs(scaled) >= 4503599627370496.0) return x;
  return std::nearbyint(scaled) / scale;
}

std::string Radix(uint64_t value, int bits) {
  static const char kDigits[] = "0123456789ABCDEF";
  if (value == 0) return "0";
  std::string out;
  while (value) {
    out.insert(out.begin(), kDigits[value & ((1u << bits) - 1)]);
    value >>= bits;
  }
  return out;
}

Variant RadixText(const Variant& arg, int bits) {
  Variant v = ArgValue(arg);
  uint64_t value;
  switch (v.Type()) {
    case VarType::Null:
      return v;
    case VarType::Empty:
      return Variant("0");
    case VarType::Byte:
      value = v.ByteValue();
      break;
    case VarType::Integer:
      value = static_cast<uint16_t>(v.IntegerValue());
      break;
    case VarType::Boolean:
      value = v.BooleanValue() ? 0xFFFFu : 0u;
      break;
    default:
      value = static_cast<uint32_t>(v.ToLong());
      break;
  }
  return Variant(Radix(value, bits));
}

}  // namespace

Variant RoundValue(const Variant& arg, int32_t digits) {
  if (digits < 0) ThrowRuntimeError(5);
  Variant v = ArgValue(arg);
  switch (v.Type()) {
    case VarType::Null:
      return v;
    case VarType::Empty:
      return Variant::FromInteger(0);
    case VarType::Boolean:  // Round keeps a Boolean a Boolean
    case VarType::Integer:
    case VarType::Long:
    case VarType::Byte:
      return v;
    case VarType::Single:
      return Variant::FromSingle(static_cast<float>(RoundDouble(v.SingleValue(), digits)));
    case VarType::Double:
      return Variant(RoundDouble(v.DoubleValue(), digits));
    case VarType::Date:
      return Variant::FromDate(RoundDouble(v.DateValue(), digits));
    case VarType::Currency:
      return Variant::FromCurrency(
          RoundCurrency(v.CurrencyValue(), digits, DecimalRounding::HalfEven));
    case VarType::Decimal:
      return Variant::FromDecimal(
          RoundDecimal(v.DecimalValue(), digits, DecimalRounding::HalfEven));
    default:
      return Variant(RoundDouble(v.ToDouble(), digits));
  }
}

namespace builtins {

Variant CBool(BuiltinContext&, const Variant* args, int) { return Variant(args[0].ToBool()); }
Variant CByte(BuiltinContext&, const Variant* args, int) {
  return Variant::FromByte(args[0].ToByte());
}
Variant CCur(BuiltinContext&, const Variant* args, int) {
  return Variant::FromCurrency(args[0].ToCurrency());
}
Variant CDate(BuiltinContext&, const Variant* args, int) {
  return Variant::FromDate(args[0].ToDate());
}
Variant CDbl(BuiltinContext&, const Variant* args, int) { return Variant(args[0].ToDouble()); }
Variant CInt(BuiltinContext&, const Variant* args, int) {
  return Variant::FromInteger(args[0].ToInteger());
}
Variant CLng(BuiltinContext&, const Variant* args, int) { return Variant(args[0].ToLong()); }
Variant CSng(BuiltinContext&, const Variant* args, int) {
  return Variant::FromSingle(args[0].ToSingle());
}
Variant CStr(BuiltinContext&, const Variant* args, int) { return args[0].ToStringVariant(); }

Variant Hex(BuiltinContext&, const Variant* args, int) { return RadixText(args[0], 4); }
Variant Oct(BuiltinContext&, const Variant* args, int) { return RadixText(args[0], 3); }
Variant Fix(BuiltinContext&, const Variant* args, int) { return WholePart(args[0], Whole::Fix); }
Variant Int(BuiltinContext&, const Variant* args, int) { return WholePart(args[0], Whole::Int); }

Variant Round(BuiltinContext&, const Variant* args, int argc) {
  return RoundValue(args[0], LongArg(args, argc, 1, 0));
}

}  // namespace builtins
}  // namespace tessel::vbs
