// FormatDigits: a number as a decimal digit string and an exponent.
//
// Every numeric formatter (FormatNumber and friends, Format's patterns, the
// currency and percent forms) first turns its value into FormatDigits, rounds
// there in decimal, and only then lays the digits out. Doubles are taken at 15
// significant digits, as the scripting runtime shows them, so that 1.005 rounds
// to 1.01 the way users expect; Currency and Decimal come from their exact
// decimal text. Rounding here is half away from zero, the rule of the
// formatting functions (the conversions use banker's rounding instead).
#pragma once

#include <string>
#include <string_view>

namespace tessel::vbs {

struct FormatDigits {
  // value = (negative ? -1 : 1) * 0.d1d2d3... * 10^exponent; digits holds no
  // leading or trailing zeros and is empty for zero.
  bool negative = false;
  std::string digits;
  int exponent = 0;

  static FormatDigits FromDouble(double value, int significant = 15);
  // Plain decimal text such as "-1234.5000" or "12"; anything else gives zero.
  static FormatDigits FromDecimalText(std::string_view text);

  bool IsZero() const noexcept { return digits.empty(); }
  void RoundToFraction(int fractionDigits);
  void RoundToSignificant(int significant);

  // Digits left of the point ("" when the value is below one).
  std::string IntegerDigits() const;
  // Exactly count digits right of the point, padded with zeros.
  std::string FractionDigits(int count) const;

 private:
  void RoundAt(int keep);
  void Trim();
};

// Integer digits grouped by three with commas: "1234567" -> "1,234,567".
std::string GroupThousands(std::string_view integerDigits);

// The unsigned fixed-point text of d: grouped or not, with count fraction
// digits and "0" before the point when leadingDigit (or the value is >= 1).
std::string FixedText(FormatDigits d, int fractionDigits, bool leadingDigit, bool group);

}  // namespace tessel::vbs
