// BuiltinFormats: FormatNumber, FormatCurrency, FormatPercent and
// FormatDateTime, in the English (United States) locale: two decimals, comma
// grouping, a leading zero, "$" before the amount and negative currency in
// parentheses.
//
// The optional Tristate arguments take -1 (True), 0 (False) or -2 (the
// locale's default).
#pragma once

#include "scripting/vbs/BuiltinStrings.h"
#include "scripting/vbs/FormatDigits.h"

namespace tessel::vbs::builtins {
TESSEL_VBS_BUILTIN(FormatNumber);
TESSEL_VBS_BUILTIN(FormatCurrency);
TESSEL_VBS_BUILTIN(FormatPercent);
TESSEL_VBS_BUILTIN(FormatDateTime);
}  // namespace tessel::vbs::builtins

namespace tessel::vbs {

// The digits of a numeric value: Currency and Decimal exactly, everything
// else through CDbl (13 for text that is no number, 94 for Null).
FormatDigits NumberDigits(const Variant& value);

// FormatNumber's layout of already-converted digits.
std::string FormatNumberText(FormatDigits digits, int fractionDigits, bool leadingDigit,
                             bool parens, bool group);
std::string FormatCurrencyText(FormatDigits digits, int fractionDigits, bool leadingDigit,
                               bool parens, bool group);
std::string FormatPercentText(FormatDigits digits, int fractionDigits, bool leadingDigit,
                              bool parens, bool group);

}  // namespace tessel::vbs
