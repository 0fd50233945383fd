#include "core/Decimal.h"

#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "core/Currency.h"
#include "core/RuntimeError.h"

namespace tessel {

namespace {

__extension__ typedef unsigned __int128 u128;

// A little unsigned integer wide enough for a 96-bit mantissa times 10^56
// plus headroom; little-endian 64-bit limbs.
struct Wide {
  static constexpr int kLimbs = 6;
  std::array<uint64_t, kLimbs> l{};

  static Wide From96(uint32_t hi, uint64_t lo) {
    Wide w;
    w.l[0] = lo;
    w.l[1] = hi;
    return w;
  }
  bool IsZero() const {
    for (uint64_t x : l)
      if (x) return false;
    return true;
  }
  bool Fits96() const {
    if (l[1] >> 32) return false;
    for (int i = 2; i < kLimbs; ++i)
      if (l[i]) return false;
    return true;
  }
  // False when the product does not fit.
  bool MulSmall(uint64_t m) {
    u128 carry = 0;
    for (auto& x : l) {
      u128 p = static_cast<u128>(x) * m + carry;
      x = static_cast<uint64_t>(p);
      carry = p >> 64;
    }
    return carry == 0;
  }
  uint64_t DivSmall(uint64_t d) {
    u128 rem = 0;
    for (int i = kLimbs - 1; i >= 0; --i) {
      u128 cur = (rem << 64) | l[i];
      l[i] = static_cast<uint64_t>(cur / d);
      rem = cur % d;
    }
    return static_cast<uint64_t>(rem);
  }
  bool MulPow10(int n) {
    for (; n >= 19; n -= 19)
      if (!MulSmall(10000000000000000000ull)) return false;
    uint64_t p = 1;
    for (int i = 0; i < n; ++i) p *= 10;
    return MulSmall(p);
  }
  static int Cmp(const Wide& a, const Wide& b) {
    for (int i = kLimbs - 1; i >= 0; --i) {
      if (a.l[i] != b.l[i]) return a.l[i] < b.l[i] ? -1 : 1;
    }
    return 0;
  }
  void Add(const Wide& b) {
    u128 carry = 0;
    for (int i = 0; i < kLimbs; ++i) {
      u128 s = static_cast<u128>(l[i]) + b.l[i] + carry;
      l[i] = static_cast<uint64_t>(s);
      carry = s >> 64;
    }
  }
  void Sub(const Wide& b) {  // requires *this >= b
    uint64_t borrow = 0;
    for (int i = 0; i < kLimbs; ++i) {
      u128 s = static_cast<u128>(l[i]) - b.l[i] - borrow;
      l[i] = static_cast<uint64_t>(s);
      borrow = (s >> 64) ? 1 : 0;
    }
  }
  static Wide Mul(const Wide& a, const Wide& b) {  // low limbs only
    Wide r;
    for (int i = 0; i < kLimbs; ++i) {
      u128 carry = 0;
      for (int j = 0; i + j < kLimbs; ++j) {
        u128 cur = static_cast<u128>(a.l[i]) * b.l[j] + r.l[i + j] + carry;
        r.l[i + j] = static_cast<uint64_t>(cur);
        carry = cur >> 64;
      }
    }
    return r;
  }
  int Bits() const {
    for (int i = kLimbs - 1; i >= 0; --i)
      if (l[i]) return i * 64 + 64 - __builtin_clzll(l[i]);
    return 0;
  }
  bool Bit(int n) const { return (l[n / 64] >> (n % 64)) & 1; }
  void Shl1() {
    for (int i = kLimbs - 1; i > 0; --i) l[i] = (l[i] << 1) | (l[i - 1] >> 63);
    l[0] <<= 1;
  }
  // Schoolbook binary long division; fine for the sizes used here.
  static Wide DivMod(const Wide& n, const Wide& d, Wide& rem) {
    Wide q;
    rem = Wide();
    for (int i = n.Bits() - 1; i >= 0; --i) {
      rem.Shl1();
      if (n.Bit(i)) rem.l[0] |= 1;
      if (Cmp(rem, d) >= 0) {
        rem.Sub(d);
        q.l[i / 64] |= 1ull << (i % 64);
      }
    }
    return q;
  }
};

// Brings a mantissa into 96 bits and a scale into 0..28 by dropping digits,
// rounding half to even; `sticky` tells that digits were already dropped.
Decimal Reduce(Wide m, int scale, bool negative, bool sticky = false) {
  int lastDigit = -1;
  while (scale > Decimal::kMaxScale || (!m.Fits96() && scale > 0)) {
    if (lastDigit > 0) sticky = true;
    lastDigit = static_cast<int>(m.DivSmall(10));
    --scale;
  }
  if (lastDigit > 5 || (lastDigit == 5 && (sticky || (m.l[0] & 1)))) {
    Wide one;
    one.l[0] = 1;
    m.Add(one);
    if (!m.Fits96() && scale > 0) {
      m.DivSmall(10);
      --scale;
    }
  }
  if (!m.Fits96() || scale < 0) ThrowRuntimeError(6);
  if (m.IsZero()) negative = false;
  return Decimal(static_cast<uint32_t>(m.l[1]), m.l[0], static_cast<uint8_t>(scale), negative);
}

Wide MantissaOf(const Decimal& d) { return Wide::From96(d.Hi(), d.Lo()); }

// Both mantissas at the larger scale.
int Align(const Decimal& a, const Decimal& b, Wide& ma, Wide& mb) {
  ma = MantissaOf(a);
  mb = MantissaOf(b);
  int scale = std::max(a.Scale(), b.Scale());
  ma.MulPow10(scale - a.Scale());
  mb.MulPow10(scale - b.Scale());
  return scale;
}

Decimal AddSigned(const Decimal& a, const Decimal& b, bool negateB) {
  Wide ma, mb;
  int scale = Align(a, b, ma, mb);
  bool na = a.IsNegative();
  bool nb = b.IsNegative() != negateB;
  if (na == nb) {
    ma.Add(mb);
    return Reduce(ma, scale, na);
  }
  if (Wide::Cmp(ma, mb) >= 0) {
    ma.Sub(mb);
    return Reduce(ma, scale, na);
  }
  mb.Sub(ma);
  return Reduce(mb, scale, nb);
}

}  // namespace

Decimal Decimal::FromInt64(int64_t value) noexcept {
  bool neg = value < 0;
  uint64_t mag = neg ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
  return Decimal(0, mag, 0, neg);
}

Decimal Decimal::FromDouble(double value) {
  if (!std::isfinite(value)) ThrowRuntimeError(6);
  char buf[40];
  std::snprintf(buf, sizeof buf, "%.14e", value);
  Decimal d;
  if (!Parse(buf, d)) ThrowRuntimeError(6);
  // Drop the zeros that the fixed 15 digits added.
  Wide m = MantissaOf(d);
  int scale = d.Scale();
  while (scale > 0) {
    Wide t = m;
    if (t.DivSmall(10) != 0) break;
    m = t;
    --scale;
  }
  return Reduce(m, scale, d.IsNegative());
}

Decimal Decimal::FromCurrency(Currency value) noexcept {
  Decimal d = FromInt64(value.Raw());
  return Decimal(d.hi_, d.lo_, 4, d.negative_);
}

bool Decimal::Parse(std::string_view s, Decimal& out) {
  size_t i = 0;
  bool neg = false;
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) neg = s[i++] == '-';
  Wide m;
  int digits = 0, fracDigits = 0, dropped = 0;
  bool sticky = false, seenPoint = false;
  for (; i < s.size(); ++i) {
    char c = s[i];
    if (c == '.' && !seenPoint) {
      seenPoint = true;
      continue;
    }
    if (c < '0' || c > '9') break;
    ++digits;
    if (m.Bits() < 300) {
      m.MulSmall(10);
      Wide d;
      d.l[0] = static_cast<uint64_t>(c - '0');
      m.Add(d);
      if (seenPoint) ++fracDigits;
    } else {
      // Past any useful precision: remember that something was there.
      if (c != '0') sticky = true;
      if (!seenPoint) ++dropped;
    }
  }
  if (digits == 0) return false;
  long exp = 0;
  if (i < s.size() && (s[i] == 'e' || s[i] == 'E')) {
    ++i;
    char* end = nullptr;
    std::string rest(s.substr(i));
    exp = std::strtol(rest.c_str(), &end, 10);
    if (end == rest.c_str()) return false;
    i += static_cast<size_t>(end - rest.c_str());
    if (exp > 100 || exp < -100) {
      if (exp > 0 && !m.IsZero()) ThrowRuntimeError(6);
      out = Decimal();
      return i == s.size();
    }
  }
  if (i != s.size()) return false;
  int scale = fracDigits - static_cast<int>(exp) - dropped;
  if (scale < 0) {
    if (!m.MulPow10(-scale) || !m.Fits96()) ThrowRuntimeError(6);
    scale = 0;
  }
  out = Reduce(m, scale, neg, sticky);
  return true;
}

double Decimal::ToDouble() const noexcept { return std::strtod(ToString().c_str(), nullptr); }

Currency Decimal::ToCurrency() const {
  Wide m = MantissaOf(*this);
  int scale = scale_;
  bool sticky = false;
  int last = -1;
  if (scale < 4) {
    m.MulPow10(4 - scale);
  } else {
    while (scale > 4) {
      if (last > 0) sticky = true;
      last = static_cast<int>(m.DivSmall(10));
      --scale;
    }
    if (last > 5 || (last == 5 && (sticky || (m.l[0] & 1)))) {
      Wide one;
      one.l[0] = 1;
      m.Add(one);
    }
  }
  if (m.l[1] || m.l[2] || m.l[0] > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) ThrowRuntimeError(6);
  int64_t raw = static_cast<int64_t>(m.l[0]);
  return Currency::FromRaw(negative_ ? -raw : raw);
}

int64_t Decimal::RoundToInt64() const {
  Wide m = MantissaOf(*this);
  bool sticky = false;
  int last = -1;
  for (int s = scale_; s > 0; --s) {
    if (last > 0) sticky = true;
    last = static_cast<int>(m.DivSmall(10));
  }
  if (last > 5 || (last == 5 && (sticky || (m.l[0] & 1)))) {
    Wide one;
    one.l[0] = 1;
    m.Add(one);
  }
  if (m.l[1] || m.l[2]) ThrowRuntimeError(6);
  uint64_t mag = m.l[0];
  if (negative_) {
    if (mag > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()) + 1) ThrowRuntimeError(6);
    return static_cast<int64_t>(0 - mag);
  }
  if (mag > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) ThrowRuntimeError(6);
  return static_cast<int64_t>(mag);
}

std::string Decimal::ToString() const {
  Wide m = MantissaOf(*this);
  std::string digits;
  do {
    digits.push_back(static_cast<char>('0' + m.DivSmall(10)));
  } while (!m.IsZero());
  while (static_cast<int>(digits.size()) <= scale_) digits.push_back('0');
  std::string s(digits.rbegin(), digits.rend());
  if (scale_ > 0) {
    size_t point = s.size() - scale_;
    s = s.substr(0, point) + '.' + s.substr(point);
    while (s.back() == '0') s.pop_back();
    if (s.back() == '.') s.pop_back();
  }
  if (negative_ && !IsZero()) s = '-' + s;
  return s;
}

Decimal operator+(const Decimal& a, const Decimal& b) { return AddSigned(a, b, false); }
Decimal operator-(const Decimal& a, const Decimal& b) { return AddSigned(a, b, true); }

Decimal operator*(const Decimal& a, const Decimal& b) {
  Wide p = Wide::Mul(MantissaOf(a), MantissaOf(b));
  return Reduce(p, a.Scale() + b.Scale(), a.IsNegative() != b.IsNegative());
}

Decimal operator/(const Decimal& a, const Decimal& b) {
  if (b.IsZero()) ThrowRuntimeError(a.IsZero() ? 6 : 11);
  // Scale the dividend so that the quotient carries 28 decimals, plus one
  // more digit's worth of headroom for rounding of very large quotients.
  Wide n = MantissaOf(a);
  Wide d = MantissaOf(b);
  int k = Decimal::kMaxScale - a.Scale() + b.Scale();
  n.MulPow10(k);
  Wide rem;
  Wide q = Wide::DivMod(n, d, rem);
  // Round the last digit half to even using the remainder.
  Wide twice = rem;
  twice.Shl1();
  int c = Wide::Cmp(twice, d);
  if (c > 0 || (c == 0 && (q.l[0] & 1))) {
    Wide one;
    one.l[0] = 1;
    q.Add(one);
  }
  Decimal r = Reduce(q, Decimal::kMaxScale, a.IsNegative() != b.IsNegative(), !rem.IsZero());
  // Drop trailing zeros of the fraction.
  Wide m = MantissaOf(r);
  int scale = r.Scale();
  while (scale > 0) {
    Wide t = m;
    if (t.DivSmall(10) != 0) break;
    m = t;
    --scale;
  }
  return Decimal(static_cast<uint32_t>(m.l[1]), m.l[0], static_cast<uint8_t>(scale), r.IsNegative());
}

int Decimal::Compare(const Decimal& a, const Decimal& b) noexcept {
  bool az = a.IsZero(), bz = b.IsZero();
  if (az && bz) return 0;
  bool na = a.IsNegative() && !az, nb = b.IsNegative() && !bz;
  if (na != nb) return na ? -1 : 1;
  Wide ma, mb;
  Align(a, b, ma, mb);
  int c = Wide::Cmp(ma, mb);
  return na ? -c : c;
}

}  // namespace tessel
