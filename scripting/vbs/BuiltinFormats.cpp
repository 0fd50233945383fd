#include "scripting/vbs/BuiltinFormats.h"

#include "core/DateTime.h"
#include "scripting/vbs/BuiltinArgs.h"
#include "scripting/vbs/FormatDateText.h"

namespace tessel::vbs {

namespace {

constexpr int32_t kUseDefault = -2;
constexpr int kLocaleDigits = 2;

bool TristateArg(const Variant* args, int argc, int index, bool fallback) {
  if (!HasArg(args, argc, index)) return fallback;
  int32_t v = args[index].ToLong();
  if (v == kUseDefault) return fallback;
  return v != 0;
}

int DigitsArg(const Variant* args, int argc, int index) {
  int32_t v = LongArg(args, argc, index, -1);
  if (v == -1) return kLocaleDigits;
  if (v < -1 || v > 255) ThrowRuntimeError(5);
  return v;
}

struct Options {
  int digits;
  bool leading;
  bool parens;
  bool group;
};

Options ReadOptions(const Variant* args, int argc, bool parensDefault) {
  return Options{DigitsArg(args, argc, 1), TristateArg(args, argc, 2, true),
                 TristateArg(args, argc, 3, parensDefault), TristateArg(args, argc, 4, true)};
}

// The value the Format functions format, an object's default value read
// once: Null is a type mismatch here, where a Null option is 94.
Variant FormattedValue(const Variant& arg) {
  Variant v = ArgValue(arg);
  if (v.IsNull()) ThrowRuntimeError(13);
  return v;
}

std::string Signed(bool negative, bool parens, std::string body) {
  if (!negative) return body;
  return parens ? "(" + body + ")" : "-" + body;
}

}  // namespace

FormatDigits NumberDigits(const Variant& arg) {
  Variant v = ArgValue(arg);
  switch (v.Type()) {
    case VarType::Null:
      ThrowRuntimeError(94);
    case VarType::Currency:
      return FormatDigits::FromDecimalText(v.CurrencyValue().ToString());
    case VarType::Decimal:
      return FormatDigits::FromDecimalText(v.DecimalValue().ToString());
    case VarType::Single:
      return FormatDigits::FromDouble(v.SingleValue(), 7);
    default:
      return FormatDigits::FromDouble(v.ToDouble());
  }
}

std::string FormatNumberText(FormatDigits d, int fractionDigits, bool leadingDigit, bool parens,
                             bool group) {
  d.RoundToFraction(fractionDigits);
  return Signed(d.negative, parens, FixedText(d, fractionDigits, leadingDigit, group));
}

std::string FormatCurrencyText(FormatDigits d, int fractionDigits, bool leadingDigit, bool parens,
                               bool group) {
  d.RoundToFraction(fractionDigits);
  return Signed(d.negative, parens, "$" + FixedText(d, fractionDigits, leadingDigit, group));
}

std::string FormatPercentText(FormatDigits d, int fractionDigits, bool leadingDigit, bool parens,
                              bool group) {
  if (!d.IsZero()) d.exponent += 2;
  d.RoundToFraction(fractionDigits);
  return Signed(d.negative, parens, FixedText(d, fractionDigits, leadingDigit, group) + "%");
}

namespace builtins {

Variant FormatNumber(BuiltinContext&, const Variant* args, int argc) {
  Options o = ReadOptions(args, argc, false);
  return Variant(FormatNumberText(NumberDigits(FormattedValue(args[0])), o.digits, o.leading, o.parens, o.group));
}

Variant FormatCurrency(BuiltinContext&, const Variant* args, int argc) {
  Options o = ReadOptions(args, argc, true);
  return Variant(FormatCurrencyText(NumberDigits(FormattedValue(args[0])), o.digits, o.leading, o.parens, o.group));
}

Variant FormatPercent(BuiltinContext&, const Variant* args, int argc) {
  Options o = ReadOptions(args, argc, false);
  return Variant(FormatPercentText(NumberDigits(FormattedValue(args[0])), o.digits, o.leading, o.parens, o.group));
}

Variant FormatDateTime(BuiltinContext&, const Variant* args, int argc) {
  int32_t kind = LongArg(args, argc, 1, 0);
  if (kind < 0 || kind > 4) ThrowRuntimeError(5);
  double serial = DateArg(FormattedValue(args[0]));
  switch (kind) {
    case 1:
      return Variant(LongDateText(serial));
    case 2:
      return Variant(ShortDateText(serial));
    case 3:
      return Variant(LongTimeText(serial));
    case 4:
      return Variant(ShortTimeText(serial));
    default:
      return Variant(GeneralDateText(serial));
  }
}

}  // namespace builtins
}  // namespace tessel::vbs
