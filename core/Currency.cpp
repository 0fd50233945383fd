#include "core/Currency.h"

#include <cmath>
#include <limits>

#include "core/RuntimeError.h"

namespace tessel {

namespace {

__extension__ typedef __int128 Int128;
__extension__ typedef unsigned __int128 UInt128;

int64_t CheckedRaw(Int128 raw) {
  if (raw > std::numeric_limits<int64_t>::max() || raw < std::numeric_limits<int64_t>::min()) {
    ThrowRuntimeError(6);
  }
  return static_cast<int64_t>(raw);
}

// n / d rounded half to even (d > 0).
Int128 DivRoundEven(Int128 n, Int128 d) {
  Int128 q = n / d;
  Int128 r = n % d;
  if (r < 0) r = -r;
  Int128 twice = r * 2;
  if (twice > d || (twice == d && (q % 2 != 0))) q += n < 0 ? -1 : 1;
  return q;
}

}  // namespace

Currency Currency::FromInt64(int64_t value) { return FromRaw(CheckedRaw(static_cast<Int128>(value) * kScale)); }

Currency Currency::FromDouble(double value) {
  double scaled = std::nearbyint(value * kScale);  // the default mode rounds half to even
  if (!std::isfinite(scaled) || scaled >= 9223372036854775808.0 || scaled < -9223372036854775808.0) {
    ThrowRuntimeError(6);
  }
  return FromRaw(static_cast<int64_t>(scaled));
}

int64_t Currency::RoundToInt64() const noexcept { return static_cast<int64_t>(DivRoundEven(raw_, kScale)); }

std::string Currency::ToString() const {
  Int128 v = raw_;
  bool negative = v < 0;
  if (negative) v = -v;
  int64_t whole = static_cast<int64_t>(v / kScale);
  int frac = static_cast<int>(v % kScale);
  std::string s = negative ? "-" : "";
  s += std::to_string(whole);
  if (frac != 0) {
    char digits[5] = {char('0' + frac / 1000), char('0' + frac / 100 % 10), char('0' + frac / 10 % 10),
                      char('0' + frac % 10), 0};
    std::string f(digits);
    while (!f.empty() && f.back() == '0') f.pop_back();
    s += "." + f;
  }
  return s;
}

Currency Currency::operator-() const { return FromRaw(CheckedRaw(-static_cast<Int128>(raw_))); }

Currency operator+(Currency a, Currency b) {
  return Currency::FromRaw(CheckedRaw(static_cast<Int128>(a.raw_) + b.raw_));
}

Currency operator-(Currency a, Currency b) {
  return Currency::FromRaw(CheckedRaw(static_cast<Int128>(a.raw_) - b.raw_));
}

Currency operator*(Currency a, Currency b) {
  return Currency::FromRaw(CheckedRaw(DivRoundEven(static_cast<Int128>(a.raw_) * b.raw_, Currency::kScale)));
}

}  // namespace tessel
