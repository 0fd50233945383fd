// Decimal: VBScript's Decimal subtype, a 96-bit unsigned integer with a sign
// and a power-of-ten scale of 0 to 28 (value = (-1)^sign * mantissa / 10^scale).
//
// A plain value type. Addition, subtraction and multiplication are exact while
// the result fits 96 bits; otherwise digits are dropped from the right
// (rounding half to even) by lowering the scale, and a result that does not fit
// even at scale 0 raises 6 "Overflow". Division keeps up to 28 decimals and
// drops trailing zeros; dividing by zero raises 11 "Division by zero".
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tessel {

class Currency;

class Decimal {
 public:
  static constexpr int kMaxScale = 28;

  constexpr Decimal() noexcept = default;
  // `hi`:`lo` is the 96-bit mantissa; `scale` must be 0..28.
  constexpr Decimal(uint32_t hi, uint64_t lo, uint8_t scale, bool negative) noexcept
      : lo_(lo), hi_(hi), scale_(scale), negative_(negative) {}

  static Decimal FromInt64(int64_t value) noexcept;
  // Keeps 15 significant digits, like the script language; 6 when too large.
  static Decimal FromDouble(double value);
  static Decimal FromCurrency(Currency value) noexcept;
  // Plain decimal text: optional sign, digits, optional point and digits,
  // optional exponent. False when the text is not such a number; raises 6
  // when it is one but too large.
  static bool Parse(std::string_view text, Decimal& out);

  uint32_t Hi() const noexcept { return hi_; }
  uint64_t Lo() const noexcept { return lo_; }
  uint8_t Scale() const noexcept { return scale_; }
  bool IsNegative() const noexcept { return negative_; }
  bool IsZero() const noexcept { return hi_ == 0 && lo_ == 0; }

  double ToDouble() const noexcept;
  Currency ToCurrency() const;  // rounds half to even; 6 when out of range
  // Whole value rounded half to even; 6 when it does not fit 64 bits.
  int64_t RoundToInt64() const;
  // "-12.5": the digits as scaled, trailing fraction zeros removed.
  std::string ToString() const;

  Decimal operator-() const noexcept { return Decimal(hi_, lo_, scale_, !negative_); }
  friend Decimal operator+(const Decimal& a, const Decimal& b);
  friend Decimal operator-(const Decimal& a, const Decimal& b);
  friend Decimal operator*(const Decimal& a, const Decimal& b);
  friend Decimal operator/(const Decimal& a, const Decimal& b);
  // -1, 0 or 1; scale does not matter (1.50 equals 1.5).
  static int Compare(const Decimal& a, const Decimal& b) noexcept;
  friend bool operator==(const Decimal& a, const Decimal& b) noexcept { return Compare(a, b) == 0; }

 private:
  uint64_t lo_ = 0;
  uint32_t hi_ = 0;
  uint8_t scale_ = 0;
  bool negative_ = false;
};

}  // namespace tessel
