// Currency: VBScript's Currency subtype, a signed 64-bit count of ten-thousandths.
//
// A plain value type. Arithmetic is exact; a result outside the 64-bit range
// raises 6 "Overflow". Conversions from floating point round half to even at
// the fourth decimal, as the script language does.
#pragma once

#include <compare>
#include <cstdint>
#include <string>

namespace tessel {

class Currency {
 public:
  static constexpr int64_t kScale = 10000;

  constexpr Currency() noexcept = default;
  static constexpr Currency FromRaw(int64_t raw) noexcept {
    Currency c;
    c.raw_ = raw;
    return c;
  }
  static Currency FromInt64(int64_t value);  // 6 when out of range
  static Currency FromDouble(double value);  // 6 when out of range or not finite

  constexpr int64_t Raw() const noexcept { return raw_; }
  double ToDouble() const noexcept { return static_cast<double>(raw_) / kScale; }
  // Whole part rounded half to even (what CLng of a Currency gives).
  int64_t RoundToInt64() const noexcept;
  // Shortest text: "1.5", "-3", "0.0001"; period as decimal separator.
  std::string ToString() const;

  Currency operator-() const;  // 6 for the most negative value
  friend Currency operator+(Currency a, Currency b);
  friend Currency operator-(Currency a, Currency b);
  friend Currency operator*(Currency a, Currency b);  // rounds half to even
  friend constexpr auto operator<=>(Currency a, Currency b) noexcept = default;
  friend constexpr bool operator==(Currency a, Currency b) noexcept = default;

 private:
  int64_t raw_ = 0;
};

}  // namespace tessel
