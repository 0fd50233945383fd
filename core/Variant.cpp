#include "core/Variant.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/ustring.h>

#include "core/DateTime.h"
#include "core/RuntimeError.h"

namespace tessel {

namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::string_view Trim(std::string_view s) {
  while (!s.empty() && IsBlank(s.front())) s.remove_prefix(1);
  while (!s.empty() && IsBlank(s.back())) s.remove_suffix(1);
  return s;
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x + 32);
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y + 32);
    if (x != y) return false;
  }
  return true;
}

// Round half to even, then range-check into T; raises 6.
template <class T>
T RoundToInt(double v) {
  if (std::isnan(v)) ThrowRuntimeError(6);
  double r = std::nearbyint(v);
  if (r < static_cast<double>(std::numeric_limits<T>::min()) || r > static_cast<double>(std::numeric_limits<T>::max())) {
    ThrowRuntimeError(6);
  }
  return static_cast<T>(r);
}

template <class T>
T CheckRange(int64_t v) {
  if (v < std::numeric_limits<T>::min() || v > std::numeric_limits<T>::max()) ThrowRuntimeError(6);
  return static_cast<T>(v);
}

__extension__ using Uint128 = unsigned __int128;

// The digits of `value` (normal, not 0) rounded to `sig` significant places,
// half to even, found exactly in integers: value = m * 2^e2, so value * 10^k
// is m * 5^k * 2^(e2 + k), whose integer part and remainder a 128-bit product
// holds for the k of everyday magnitudes. False outside them.
bool RoundToDigits(double value, int sig, char* digits, int& n, int& exp) {
  static constexpr uint64_t kPow5[] = {1ull, 5ull, 25ull, 125ull, 625ull, 3125ull, 15625ull, 78125ull,
                                       390625ull, 1953125ull, 9765625ull, 48828125ull, 244140625ull,
                                       1220703125ull, 6103515625ull, 30517578125ull, 152587890625ull,
                                       762939453125ull, 3814697265625ull, 19073486328125ull,
                                       95367431640625ull};
  static constexpr uint64_t kPow10[] = {1ull, 10ull, 100ull, 1000ull, 10000ull, 100000ull, 1000000ull,
                                        10000000ull, 100000000ull, 1000000000ull, 10000000000ull,
                                        100000000000ull, 1000000000000ull, 10000000000000ull,
                                        100000000000000ull, 1000000000000000ull, 10000000000000000ull};
  if (sig < 1 || sig > 16) return false;
  int binaryExp = 0;
  const double fraction = std::frexp(std::fabs(value), &binaryExp);
  const auto mantissa = static_cast<uint64_t>(std::ldexp(fraction, 53));
  const int e2 = binaryExp - 53;
  // floor(log10(value)) is this or one more.
  int e = static_cast<int>(std::floor((binaryExp - 1) * 0.30102999566398120));
  for (int attempt = 0; attempt < 3; ++attempt) {
    const int k = sig - 1 - e;
    if (k < 0 || k > 20) return false;
    const Uint128 scaled = static_cast<Uint128>(mantissa) * kPow5[k];
    const int shift = e2 + k;
    Uint128 q;
    if (shift >= 0) {
      if (shift > 20) return false;
      q = scaled << shift;
    } else {
      const int drop = -shift;
      if (drop > 120) return false;
      q = scaled >> drop;
      const Uint128 rest = scaled - (q << drop);
      const Uint128 half = static_cast<Uint128>(1) << (drop - 1);
      if (rest > half || (rest == half && (q & 1) != 0)) ++q;
    }
    if (q >= kPow10[sig]) {
      ++e;  // also where rounding carried into a new digit: the next try rounds at that place
      continue;
    }
    if (q < kPow10[sig - 1]) {
      --e;
      continue;
    }
    auto whole = static_cast<uint64_t>(q);
    for (int i = sig - 1; i >= 0; --i) {
      digits[i] = static_cast<char>('0' + whole % 10);
      whole /= 10;
    }
    n = sig;
    exp = e;
    return true;
  }
  return false;
}

// Text in the form VBScript writes numbers: the digits of `sig` significant
// places, fixed when that reads naturally, scientific otherwise.
std::string FormatFloat(double value, int sig) {
  if (value == 0 || std::isnan(value)) return "0";
  if (std::isinf(value)) return value > 0 ? "1.#INF" : "-1.#INF";
  // Whole numbers below the precision are common (counters, ids): print directly.
  if (std::fabs(value) < 1e15 && value == std::trunc(value) && sig == 15) {
    return std::to_string(static_cast<int64_t>(value));
  }
  char digits[32];
  int n = 0;
  int exp = 0;
  const bool negative = value < 0;
  if (!std::isnormal(value) || !RoundToDigits(value, sig, digits, n, exp)) {
    char buf[64];
    const auto res = std::to_chars(buf, buf + sizeof buf, value, std::chars_format::scientific, sig - 1);
    // buf: [-]d.ddddde[+-]xx
    const char* p = buf;
    if (*p == '-') ++p;
    for (; p < res.ptr && *p != 'e'; ++p) {
      if (*p != '.') digits[n++] = *p;
    }
    bool expNegative = false;
    if (p < res.ptr) ++p;  // 'e'
    if (p < res.ptr && (*p == '-' || *p == '+')) expNegative = *p++ == '-';
    for (; p < res.ptr; ++p) exp = exp * 10 + (*p - '0');
    if (expNegative) exp = -exp;
  }
  while (n > 1 && digits[n - 1] == '0') --n;

  char out[64];
  int o = 0;
  if (negative) out[o++] = '-';
  const bool scientific = exp >= sig || exp < -4 || (exp < 0 && (-exp + n - 1) > sig);
  if (scientific) {
    out[o++] = digits[0];
    if (n > 1) {
      out[o++] = '.';
      for (int i = 1; i < n; ++i) out[o++] = digits[i];
    }
    o += std::snprintf(out + o, sizeof out - static_cast<size_t>(o), "E%c%02d", exp < 0 ? '-' : '+',
                       exp < 0 ? -exp : exp);
  } else if (exp < 0) {
    out[o++] = '0';
    out[o++] = '.';
    for (int i = 0; i < -exp - 1; ++i) out[o++] = '0';
    for (int i = 0; i < n; ++i) out[o++] = digits[i];
  } else if (n <= exp + 1) {
    for (int i = 0; i < n; ++i) out[o++] = digits[i];
    for (int i = n; i < exp + 1; ++i) out[o++] = '0';
  } else {
    for (int i = 0; i <= exp; ++i) out[o++] = digits[i];
    out[o++] = '.';
    for (int i = exp + 1; i < n; ++i) out[o++] = digits[i];
  }
  return std::string(out, static_cast<size_t>(o));
}

[[noreturn]] void ThrowTypeMismatch() { ThrowRuntimeError(13); }

double NumberFromText(std::string_view text);

// Case-insensitive comparison of two UTF-8 texts, ASCII fast path.
int CompareNoCase(std::string_view a, std::string_view b) {
  size_t n = std::min(a.size(), b.size());
  for (size_t i = 0; i < n; ++i) {
    unsigned char x = static_cast<unsigned char>(a[i]), y = static_cast<unsigned char>(b[i]);
    if ((x | y) & 0x80) {
      icu::UnicodeString ua = icu::UnicodeString::fromUTF8(icu::StringPiece(a.data() + i, static_cast<int32_t>(a.size() - i)));
      icu::UnicodeString ub = icu::UnicodeString::fromUTF8(icu::StringPiece(b.data() + i, static_cast<int32_t>(b.size() - i)));
      int c = ua.caseCompare(ub, U_FOLD_CASE_DEFAULT);
      return c < 0 ? -1 : (c > 0 ? 1 : 0);
    }
    if (x >= 'A' && x <= 'Z') x = static_cast<unsigned char>(x + 32);
    if (y >= 'A' && y <= 'Z') y = static_cast<unsigned char>(y + 32);
    if (x != y) return x < y ? -1 : 1;
  }
  if (a.size() == b.size()) return 0;
  return a.size() < b.size() ? -1 : 1;
}

}  // namespace

// --- Construction and lifetime ------------------------------------------------

Variant::Variant(std::string&& value) : type_(VarType::String) {
  // The one allocation of a string value; released in ReleaseSlow.
  u_.str = new detail::StringData(std::move(value));
}

Variant::Variant(Ref<Object> object) noexcept : type_(VarType::Object) { u_.obj = object.detach(); }

Variant Variant::FromDecimal(const Decimal& v) noexcept {
  Variant r = Scalar(VarType::Decimal);
  r.decScale_ = v.Scale();
  r.decNegative_ = v.IsNegative() ? 1 : 0;
  r.decHi_ = v.Hi();
  r.u_.u64 = v.Lo();
  return r;
}

Variant Variant::NewArray(std::span<const Bound> bounds) {
  SafeArray* arr = new SafeArray(bounds);  // may throw before r owns anything
  Variant r = Scalar(VarType::Array);
  r.u_.arr = arr;
  return r;
}

Variant Variant::FromVector(std::vector<Variant> elements) {
  SafeArray* arr = new SafeArray(std::move(elements));
  Variant r = Scalar(VarType::Array);
  r.u_.arr = arr;
  return r;
}

void Variant::AddRefSlow() const noexcept {
  switch (type_) {
    case VarType::String: u_.str->refs.fetch_add(1, std::memory_order_relaxed); break;
    case VarType::Object:
      if (u_.obj) u_.obj->AddRef();
      break;
    case VarType::Array: u_.arr->refs_.fetch_add(1, std::memory_order_relaxed); break;
    default: break;
  }
}

void Variant::ReleaseSlow() noexcept {
  // Clear first: a release may run script code that looks at this variable.
  VarType type = type_;
  auto u = u_;
  type_ = VarType::Empty;
  switch (type) {
    case VarType::String:
      if (u.str->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) delete u.str;
      break;
    case VarType::Object:
      if (u.obj) u.obj->Release();
      break;
    case VarType::Array:
      if (u.arr->refs_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete u.arr;
      break;
    default: break;
  }
}

SafeArray& Variant::MutableArray() {
  if (type_ != VarType::Array) ThrowTypeMismatch();
  if (u_.arr->refs_.load(std::memory_order_acquire) != 1) {
    SafeArray* copy = new SafeArray(*u_.arr);
    if (u_.arr->refs_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete u_.arr;
    u_.arr = copy;
  }
  return *u_.arr;
}

// --- Inspection -------------------------------------------------------------------

bool Variant::IsNumericType() const noexcept {
  switch (type_) {
    case VarType::Integer:
    case VarType::Long:
    case VarType::Single:
    case VarType::Double:
    case VarType::Currency:
    case VarType::Decimal:
    case VarType::Byte: return true;
    default: return false;
  }
}

std::string Variant::TypeName() const {
  switch (type_) {
    case VarType::Empty: return "Empty";
    case VarType::Null: return "Null";
    case VarType::Integer: return "Integer";
    case VarType::Long: return "Long";
    case VarType::Single: return "Single";
    case VarType::Double: return "Double";
    case VarType::Currency: return "Currency";
    case VarType::Date: return "Date";
    case VarType::String: return "String";
    case VarType::Object: return u_.obj ? u_.obj->TypeName() : "Nothing";
    case VarType::Error: return "Error";
    case VarType::Boolean: return "Boolean";
    case VarType::Decimal: return "Decimal";
    case VarType::Byte: return "Byte";
    case VarType::Array: return "Variant()";
    default: return "Unknown";
  }
}

Variant Variant::Dereference() const {
  if (type_ != VarType::Object) return *this;
  if (!u_.obj) ThrowRuntimeError(91);
  // A default member may hand out another object, whose default is followed
  // in turn. A chain that never reaches a value (an object returning itself)
  // ends with 438 instead of running for ever.
  constexpr int kMaxDefaultChain = 64;
  Variant v = u_.obj->Invoke(kDispIdDefault, InvokeKind::PropertyGet, {});
  for (int depth = 0; v.type_ == VarType::Object; ++depth) {
    if (!v.u_.obj) ThrowRuntimeError(91);
    if (depth == kMaxDefaultChain) ThrowRuntimeError(438);
    Variant next = v.u_.obj->Invoke(kDispIdDefault, InvokeKind::PropertyGet, {});
    v = std::move(next);
  }
  return v;
}

// --- Conversions -----------------------------------------------------------------

std::string DoubleToString(double value) { return FormatFloat(value, 15); }
std::string SingleToString(float value) { return FormatFloat(value, 7); }

std::string Variant::ToString() const {
  switch (type_) {
    case VarType::Empty: return {};
    case VarType::Null: ThrowRuntimeError(94);
    case VarType::Integer: return std::to_string(u_.i16);
    case VarType::Long: return std::to_string(u_.i32);
    case VarType::Single: return SingleToString(u_.f32);
    case VarType::Double: return DoubleToString(u_.f64);
    case VarType::Currency: return CurrencyValue().ToString();
    case VarType::Date: return DateTime::Format(u_.f64);
    case VarType::String: return std::string(u_.str->text);
    case VarType::Object: return Dereference().ToString();
    case VarType::Boolean: return u_.b ? "True" : "False";
    case VarType::Decimal: return DecimalValue().ToString();
    case VarType::Byte: return std::to_string(u_.u8);
    default: ThrowTypeMismatch();
  }
}

Variant Variant::ToStringVariant() const {
  if (type_ == VarType::String) return *this;
  return Variant(ToString());
}

bool Variant::ToBool() const {
  switch (type_) {
    case VarType::Empty: return false;
    case VarType::Null: ThrowRuntimeError(94);
    case VarType::Integer: return u_.i16 != 0;
    case VarType::Long: return u_.i32 != 0;
    case VarType::Single: return u_.f32 != 0;
    case VarType::Double:
    case VarType::Date: return u_.f64 != 0;
    case VarType::Currency: return u_.i64 != 0;
    case VarType::Boolean: return u_.b;
    case VarType::Decimal: return !DecimalValue().IsZero();
    case VarType::Byte: return u_.u8 != 0;
    case VarType::Object: return Dereference().ToBool();
    case VarType::String: {
      std::string_view s = Trim(u_.str->text);
      // "#TRUE#" and "#FALSE#" are how Booleans are written to files.
      if (EqualsNoCase(s, "true") || EqualsNoCase(s, "#true#")) return true;
      if (EqualsNoCase(s, "false") || EqualsNoCase(s, "#false#")) return false;
      return NumberFromText(u_.str->text) != 0;
    }
    default: ThrowTypeMismatch();
  }
}

double Variant::ToDouble() const {
  switch (type_) {
    case VarType::Empty: return 0;
    case VarType::Null: ThrowRuntimeError(94);
    case VarType::Integer: return u_.i16;
    case VarType::Long: return u_.i32;
    case VarType::Single: return u_.f32;
    case VarType::Double:
    case VarType::Date: return u_.f64;
    case VarType::Currency: return CurrencyValue().ToDouble();
    case VarType::Boolean: return u_.b ? -1 : 0;
    case VarType::Decimal: return DecimalValue().ToDouble();
    case VarType::Byte: return u_.u8;
    case VarType::Object: return Dereference().ToDouble();
    case VarType::String: return NumberFromText(u_.str->text);
    default: ThrowTypeMismatch();
  }
}

int32_t Variant::ToLong() const {
  switch (type_) {
    case VarType::Empty: return 0;
    case VarType::Integer: return u_.i16;
    case VarType::Long: return u_.i32;
    case VarType::Boolean: return u_.b ? -1 : 0;
    case VarType::Byte: return u_.u8;
    case VarType::Currency: return CheckRange<int32_t>(CurrencyValue().RoundToInt64());
    case VarType::Decimal: return CheckRange<int32_t>(DecimalValue().RoundToInt64());
    default: return RoundToInt<int32_t>(ToDouble());
  }
}

int16_t Variant::ToInteger() const {
  switch (type_) {
    case VarType::Integer: return u_.i16;
    case VarType::Boolean: return u_.b ? -1 : 0;
    case VarType::Byte: return u_.u8;
    case VarType::Long: return CheckRange<int16_t>(u_.i32);
    case VarType::Currency: return CheckRange<int16_t>(CurrencyValue().RoundToInt64());
    case VarType::Decimal: return CheckRange<int16_t>(DecimalValue().RoundToInt64());
    case VarType::Empty: return 0;
    default: return RoundToInt<int16_t>(ToDouble());
  }
}

uint8_t Variant::ToByte() const {
  switch (type_) {
    case VarType::Byte: return u_.u8;
    case VarType::Integer: return CheckRange<uint8_t>(u_.i16);
    case VarType::Long: return CheckRange<uint8_t>(u_.i32);
    case VarType::Boolean: return u_.b ? CheckRange<uint8_t>(-1) : 0;
    case VarType::Currency: return CheckRange<uint8_t>(CurrencyValue().RoundToInt64());
    case VarType::Decimal: return CheckRange<uint8_t>(DecimalValue().RoundToInt64());
    case VarType::Empty: return 0;
    default: return RoundToInt<uint8_t>(ToDouble());
  }
}

float Variant::ToSingle() const {
  if (type_ == VarType::Single) return u_.f32;
  double d = ToDouble();
  if (std::isfinite(d) && std::fabs(d) > std::numeric_limits<float>::max()) ThrowRuntimeError(6);
  return static_cast<float>(d);
}

Currency Variant::ToCurrency() const {
  switch (type_) {
    case VarType::Currency: return CurrencyValue();
    case VarType::Integer: return Currency::FromInt64(u_.i16);
    case VarType::Long: return Currency::FromInt64(u_.i32);
    case VarType::Byte: return Currency::FromInt64(u_.u8);
    case VarType::Boolean: return Currency::FromInt64(u_.b ? -1 : 0);
    case VarType::Decimal: return DecimalValue().ToCurrency();
    case VarType::String: {
      // Through Decimal so that "0.1" is exactly one tenth.
      auto d = NumberFromText(u_.str->text);
      std::string t(Trim(u_.str->text));
      std::string plain;
      for (char c : t)
        if (c != ',') plain.push_back(c == 'd' || c == 'D' ? 'E' : c);
      Decimal dec;
      if (plain.size() > 1 && plain[0] != '&' && Decimal::Parse(plain, dec)) return dec.ToCurrency();
      return Currency::FromDouble(d);
    }
    default: return Currency::FromDouble(ToDouble());
  }
}

Decimal Variant::ToDecimal() const {
  switch (type_) {
    case VarType::Decimal: return DecimalValue();
    case VarType::Integer: return Decimal::FromInt64(u_.i16);
    case VarType::Long: return Decimal::FromInt64(u_.i32);
    case VarType::Byte: return Decimal::FromInt64(u_.u8);
    case VarType::Boolean: return Decimal::FromInt64(u_.b ? -1 : 0);
    case VarType::Currency: return Decimal::FromCurrency(CurrencyValue());
    case VarType::Empty: return Decimal();
    case VarType::String: {
      double d = NumberFromText(u_.str->text);
      std::string plain;
      for (char c : Trim(u_.str->text))
        if (c != ',') plain.push_back(c == 'd' || c == 'D' ? 'E' : c);
      Decimal dec;
      if (!plain.empty() && plain[0] != '&' && Decimal::Parse(plain, dec)) return dec;
      return Decimal::FromDouble(d);
    }
    default: return Decimal::FromDouble(ToDouble());
  }
}

double Variant::ToDate() const {
  switch (type_) {
    case VarType::Date: return u_.f64;
    case VarType::Null: ThrowRuntimeError(94);
    case VarType::Object: return Dereference().ToDate();
    case VarType::String: {
      if (auto d = DateTime::Parse(u_.str->text)) return *d;
      // Numeric text is a serial, as CDate("45000") shows.
      if (auto n = ParseNumericText(u_.str->text)) {
        if (!DateTime::IsValid(*n)) ThrowRuntimeError(6);
        return *n;
      }
      ThrowTypeMismatch();
    }
    case VarType::Array:
    case VarType::Error: ThrowTypeMismatch();
    default: {
      double d = ToDouble();
      if (!DateTime::IsValid(d)) ThrowRuntimeError(6);
      return d;
    }
  }
}

Variant Variant::ConvertTo(VarType type) const {
  switch (type) {
    case VarType::Empty: return Variant();
    case VarType::Null: return Null();
    case VarType::Integer: return FromInteger(ToInteger());
    case VarType::Long: return FromLong(ToLong());
    case VarType::Single: return FromSingle(ToSingle());
    case VarType::Double: return FromDouble(ToDouble());
    case VarType::Currency: return FromCurrency(ToCurrency());
    case VarType::Date: return FromDate(ToDate());
    case VarType::String: return ToStringVariant();
    case VarType::Boolean: return FromBoolean(ToBool());
    case VarType::Decimal: return FromDecimal(ToDecimal());
    case VarType::Byte: return FromByte(ToByte());
    case VarType::Variant: return *this;
    case VarType::Object:
      if (type_ == VarType::Object) return *this;
      ThrowTypeMismatch();
    case VarType::Array:
      if (type_ == VarType::Array) return *this;
      ThrowTypeMismatch();
    default: ThrowTypeMismatch();
  }
}

// --- Text tests ---------------------------------------------------------------------

namespace {

enum class NumberParse { Ok, NotNumber, Overflow };

NumberParse ParseNumber(std::string_view text, double& out);

// The number in a string operand: 13 when it is none, 6 when it is too large.
double NumberFromText(std::string_view text) {
  double d = 0;
  switch (ParseNumber(text, d)) {
    case NumberParse::Ok: return d;
    case NumberParse::Overflow: ThrowRuntimeError(6);
    default: ThrowTypeMismatch();
  }
}

NumberParse ParseNumber(std::string_view text, double& out) {
  std::string_view s = Trim(text);
  if (s.empty()) return NumberParse::NotNumber;
  if (s.size() >= 2 && s[0] == '&') {
    char kind = static_cast<char>(s[1] | 0x20);
    int base = kind == 'h' ? 16 : kind == 'o' ? 8 : 0;
    std::string_view digits = s.substr(base ? 2 : 1);
    if (!base) base = 8;  // "&17" is octal too
    if (digits.empty()) return NumberParse::NotNumber;
    uint64_t v = 0;
    for (char c : digits) {
      int d;
      if (c >= '0' && c <= '9') d = c - '0';
      else if (c >= 'a' && c <= 'f') d = c - 'a' + 10;
      else if (c >= 'A' && c <= 'F') d = c - 'A' + 10;
      else return NumberParse::NotNumber;
      if (d >= base) return NumberParse::NotNumber;
      v = v * base + static_cast<uint64_t>(d);
      if (v > 0xFFFFFFFFull) return NumberParse::Overflow;
    }
    // Up to 16 bits the value is an Integer, up to 32 a Long: the top bit is
    // the sign.
    out = v <= 0xFFFF ? static_cast<double>(static_cast<int16_t>(static_cast<uint16_t>(v)))
                      : static_cast<double>(static_cast<int32_t>(static_cast<uint32_t>(v)));
    return NumberParse::Ok;
  }
  std::string clean;
  clean.reserve(s.size());
  size_t i = 0;
  if (s[i] == '+' || s[i] == '-') clean.push_back(s[i++]);
  bool anyDigit = false;
  for (; i < s.size(); ++i) {  // integer part, commas allowed after a digit
    char c = s[i];
    if (c >= '0' && c <= '9') {
      clean.push_back(c);
      anyDigit = true;
    } else if (c == ',' && anyDigit) {
      continue;
    } else {
      break;
    }
  }
  if (i < s.size() && s[i] == '.') {
    clean.push_back('.');
    for (++i; i < s.size() && s[i] >= '0' && s[i] <= '9'; ++i) {
      clean.push_back(s[i]);
      anyDigit = true;
    }
  }
  if (!anyDigit) return NumberParse::NotNumber;
  if (i < s.size() && (s[i] == 'e' || s[i] == 'E' || s[i] == 'd' || s[i] == 'D')) {
    clean.push_back('e');
    ++i;
    if (i < s.size() && (s[i] == '+' || s[i] == '-')) clean.push_back(s[i++]);
    bool expDigit = false;
    for (; i < s.size() && s[i] >= '0' && s[i] <= '9'; ++i) {
      clean.push_back(s[i]);
      expDigit = true;
    }
    if (!expDigit) return NumberParse::NotNumber;
  }
  if (i != s.size()) return NumberParse::NotNumber;
  errno = 0;
  double v = std::strtod(clean.c_str(), nullptr);
  if (!std::isfinite(v)) return NumberParse::Overflow;
  out = v;
  return NumberParse::Ok;
}

}  // namespace

std::optional<double> ParseNumericText(std::string_view text) {
  double d = 0;
  if (ParseNumber(text, d) != NumberParse::Ok) return std::nullopt;
  return d;
}

bool IsNumericText(std::string_view text) { return ParseNumericText(text).has_value(); }

bool IsDateText(std::string_view text) { return DateTime::Parse(text).has_value(); }

bool IsNumeric(const Variant& value) {
  switch (value.Type()) {
    case VarType::Empty:
    case VarType::Integer:
    case VarType::Long:
    case VarType::Single:
    case VarType::Double:
    case VarType::Currency:
    case VarType::Decimal:
    case VarType::Byte:
    case VarType::Boolean: return true;
    case VarType::String: return IsNumericText(value.StringValue());
    case VarType::Object:
      if (value.IsNothing()) return false;
      try {
        return IsNumeric(value.Dereference());
      } catch (const Error&) {
        return false;
      }
    default: return false;
  }
}

bool IsDate(const Variant& value) {
  switch (value.Type()) {
    case VarType::Date: return true;
    case VarType::String: return IsDateText(value.StringValue());
    case VarType::Object:
      if (value.IsNothing()) return false;
      try {
        return IsDate(value.Dereference());
      } catch (const Error&) {
        return false;
      }
    default: return false;
  }
}

// --- Comparison ---------------------------------------------------------------------

int CompareStrings(std::string_view a, std::string_view b, bool textCompare) {
  if (textCompare) return CompareNoCase(a, b);
  int c = a.compare(b);
  return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

namespace {

enum class Kind { Empty, Number, String };

template <class T>
CompareResult Order(T a, T b) {
  if (a < b) return CompareResult::Less;
  if (b < a) return CompareResult::Greater;
  return CompareResult::Equal;
}

CompareResult CompareNumbers(const Variant& a, const Variant& b) {
  VarType ta = a.Type(), tb = b.Type();
  if (ta == VarType::Decimal || tb == VarType::Decimal) {
    return static_cast<CompareResult>(Decimal::Compare(a.ToDecimal(), b.ToDecimal()));
  }
  if (ta == VarType::Currency && tb == VarType::Currency) return Order(a.CurrencyValue(), b.CurrencyValue());
  auto isIntegral = [](VarType t) {
    return t == VarType::Integer || t == VarType::Long || t == VarType::Byte || t == VarType::Boolean ||
           t == VarType::Empty;
  };
  if (isIntegral(ta) && isIntegral(tb)) return Order(a.ToLong(), b.ToLong());
  double x = a.ToDouble(), y = b.ToDouble();
  return Order(x, y);
}

}  // namespace

CompareResult detail::CompareSlow(const Variant& a0, const Variant& b0, bool textCompare) {
  if (a0.IsNull() || b0.IsNull()) return CompareResult::Null;
  if (a0.IsObject() || b0.IsObject()) {
    Variant a = a0.Dereference(), b = b0.Dereference();
    return Compare(a, b, textCompare);
  }
  auto kind = [](const Variant& v) {
    switch (v.Type()) {
      case VarType::Empty: return Kind::Empty;
      case VarType::String: return Kind::String;
      case VarType::Array:
      case VarType::Error: ThrowTypeMismatch();
      default: return Kind::Number;
    }
  };
  Kind ka = kind(a0), kb = kind(b0);
  if (ka == Kind::String && kb == Kind::String) {
    return static_cast<CompareResult>(CompareStrings(a0.StringValue(), b0.StringValue(), textCompare));
  }
  if (ka == Kind::String || kb == Kind::String) {
    // Empty against a string is the empty string; a number is less than any string.
    if (ka == Kind::Empty) return static_cast<CompareResult>(CompareStrings("", b0.StringValue(), textCompare));
    if (kb == Kind::Empty) return static_cast<CompareResult>(CompareStrings(a0.StringValue(), "", textCompare));
    return ka == Kind::Number ? CompareResult::Less : CompareResult::Greater;
  }
  return CompareNumbers(a0, b0);
}

}  // namespace tessel
