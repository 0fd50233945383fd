// Variant: the tagged value of every field value, option and script value,
// with the subtypes and conversion rules of VBScript.
//
// Layout: 16 bytes, no heap use for scalars. Strings are UTF-8 in an immutable
// reference-counted buffer: copying a string Variant bumps a count, and a
// std::string&& is adopted without copying its characters. Objects are held
// through their intrusive count (see Object.h). Arrays (SafeArray.h) are
// reference counted and copied on write: copying an array Variant shares the
// elements until one side asks for MutableArray(), so plain assignment already
// gives VBScript's by-value arrays.
//
// Conversions follow the script language: they raise tessel::Error with the
// source "Microsoft VBScript runtime error" and its numbers: 13 "Type
// mismatch", 6 "Overflow", 94 "Invalid use of Null", 5 "Invalid procedure call
// or argument". Text is read and written in the US format (period decimal
// separator, comma thousands separator, month/day/year dates).
//
// An Object operand of a conversion is replaced by its default property value
// (an unset object raises 91, one without a default member raises 438).
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/Currency.h"
#include "core/Decimal.h"
#include "core/Error.h"
#include "core/Object.h"

namespace tessel {

enum class VarType : uint16_t {
  Empty = 0,
  Null = 1,
  Integer = 2,   // int16
  Long = 3,      // int32
  Single = 4,    // float
  Double = 5,
  Currency = 6,  // int64 in ten-thousandths
  Date = 7,      // days since 1899-12-30, fraction = time of day
  String = 8,
  Object = 9,    // an Object, or Nothing
  Error = 10,    // an error code (e.g. a missing optional argument)
  Boolean = 11,  // True converts to -1
  Variant = 12,
  Decimal = 14,
  Byte = 17,
  Array = 8204,  // array of Variants (8192 + 12)
};

class SafeArray;

namespace detail {
// The shared buffer of a string Variant. Immutable once built.
struct StringData {
  std::atomic<uint32_t> refs{1};
  std::string text;
  explicit StringData(std::string&& t) noexcept : text(std::move(t)) {}
};
}  // namespace detail

class Variant {
 public:
  // The error code VBScript stores for an omitted optional argument.
  static constexpr int32_t kParamNotFound = static_cast<int32_t>(0x80020004);

  Variant() noexcept { u_.u64 = 0; }
  ~Variant() {
    if (IsCounted()) ReleaseSlow();
  }
  Variant(const Variant& other) noexcept {
    std::memcpy(static_cast<void*>(this), &other, sizeof(Variant));
    if (IsCounted()) AddRefSlow();
  }
  Variant(Variant&& other) noexcept {
    std::memcpy(static_cast<void*>(this), &other, sizeof(Variant));
    other.type_ = VarType::Empty;
  }
  // Assignment stores the new value before the old one is released: the
  // release may run a Class_Terminate that reads this variable, and `other`
  // may live inside the old value (an element of the array being replaced).
  Variant& operator=(const Variant& other) noexcept {
    Variant copy(other);
    Variant old(std::move(*this));
    std::memcpy(static_cast<void*>(this), &copy, sizeof(Variant));
    copy.type_ = VarType::Empty;
    return *this;
  }
  Variant& operator=(Variant&& other) noexcept {
    if (this != &other) {
      Variant old(std::move(*this));
      std::memcpy(static_cast<void*>(this), &other, sizeof(Variant));
      other.type_ = VarType::Empty;
    }
    return *this;
  }
  void Swap(Variant& other) noexcept {
    alignas(Variant) unsigned char buf[sizeof(Variant)];
    std::memcpy(buf, static_cast<void*>(this), sizeof(Variant));
    std::memcpy(static_cast<void*>(this), &other, sizeof(Variant));
    std::memcpy(static_cast<void*>(&other), buf, sizeof(Variant));
  }

  // Convenience constructors for the common subtypes.
  Variant(bool value) noexcept : type_(VarType::Boolean) { u_.u64 = 0; u_.b = value; }
  Variant(int32_t value) noexcept : type_(VarType::Long) { u_.u64 = 0; u_.i32 = value; }
  Variant(double value) noexcept : type_(VarType::Double) { u_.f64 = value; }
  Variant(std::string&& value);
  Variant(const std::string& value) : Variant(std::string(value)) {}
  Variant(std::string_view value) : Variant(std::string(value)) {}
  Variant(const char* value) : Variant(std::string(value)) {}
  Variant(Ref<Object> object) noexcept;
  template <class T>
  Variant(const Ref<T>& object) noexcept : Variant(Ref<Object>(object)) {}

  // Factories, one per subtype.
  static Variant Empty() noexcept { return Variant(); }
  static Variant Null() noexcept { return Scalar(VarType::Null); }
  static Variant FromInteger(int16_t v) noexcept { Variant r = Scalar(VarType::Integer); r.u_.i16 = v; return r; }
  static Variant FromLong(int32_t v) noexcept { return Variant(v); }
  static Variant FromSingle(float v) noexcept { Variant r = Scalar(VarType::Single); r.u_.f32 = v; return r; }
  static Variant FromDouble(double v) noexcept { return Variant(v); }
  static Variant FromCurrency(Currency v) noexcept { Variant r = Scalar(VarType::Currency); r.u_.i64 = v.Raw(); return r; }
  static Variant FromDate(double serial) noexcept { Variant r = Scalar(VarType::Date); r.u_.f64 = serial; return r; }
  static Variant FromString(std::string&& v) { return Variant(std::move(v)); }
  static Variant FromString(std::string_view v) { return Variant(v); }
  static Variant FromString(const char* v) { return Variant(v); }
  static Variant FromString(const std::string& v) { return Variant(v); }
  static Variant FromObject(Ref<Object> object) noexcept { return Variant(std::move(object)); }
  static Variant Nothing() noexcept { return Scalar(VarType::Object); }
  static Variant FromError(int32_t code) noexcept { Variant r = Scalar(VarType::Error); r.u_.i32 = code; return r; }
  static Variant Missing() noexcept { return FromError(kParamNotFound); }
  static Variant FromBoolean(bool v) noexcept { return Variant(v); }
  static Variant FromDecimal(const Decimal& v) noexcept;
  static Variant FromByte(uint8_t v) noexcept { Variant r = Scalar(VarType::Byte); r.u_.u8 = v; return r; }
  // A new array of Empty elements; one bound per dimension. Each dimension
  // holds upper - lower + 1 elements (an upper of lower - 1 means none).
  // Raises 9 "Subscript out of range" for a negative extent.
  struct Bound {
    int32_t lower;
    int32_t upper;
  };
  static Variant NewArray(std::span<const Bound> bounds);
  // A one-dimensional array from 0 holding `elements` (what Array() returns).
  static Variant FromVector(std::vector<Variant> elements);

  // --- Inspection -----------------------------------------------------------
  VarType Type() const noexcept { return type_; }
  // The number VarType() returns (8204 for an array).
  int32_t VarTypeNumber() const noexcept { return static_cast<int32_t>(type_); }
  bool IsEmpty() const noexcept { return type_ == VarType::Empty; }
  bool IsNull() const noexcept { return type_ == VarType::Null; }
  bool IsString() const noexcept { return type_ == VarType::String; }
  bool IsObject() const noexcept { return type_ == VarType::Object; }
  bool IsNothing() const noexcept { return type_ == VarType::Object && u_.obj == nullptr; }
  bool IsArray() const noexcept { return type_ == VarType::Array; }
  bool IsMissing() const noexcept { return type_ == VarType::Error && u_.i32 == kParamNotFound; }
  // Integer, Long, Single, Double, Currency, Decimal, Byte (not Boolean, Date).
  bool IsNumericType() const noexcept;
  // What TypeName() returns: "Long", "String", "Variant()", an object's own
  // type name, "Nothing", ...
  std::string TypeName() const;

  // Raw access: only valid for the matching subtype (checked in debug builds).
  int16_t IntegerValue() const noexcept { return u_.i16; }
  int32_t LongValue() const noexcept { return u_.i32; }
  float SingleValue() const noexcept { return u_.f32; }
  double DoubleValue() const noexcept { return u_.f64; }
  Currency CurrencyValue() const noexcept { return Currency::FromRaw(u_.i64); }
  double DateValue() const noexcept { return u_.f64; }
  std::string_view StringValue() const noexcept { return u_.str->text; }
  Object* ObjectPtr() const noexcept { return u_.obj; }  // null for Nothing
  Ref<Object> ObjectRef() const noexcept { return Ref<Object>(u_.obj); }
  int32_t ErrorValue() const noexcept { return u_.i32; }
  bool BooleanValue() const noexcept { return u_.b; }
  Decimal DecimalValue() const noexcept { return Decimal(decHi_, u_.u64, decScale_, decNegative_ != 0); }
  uint8_t ByteValue() const noexcept { return u_.u8; }
  const SafeArray& ArrayValue() const noexcept { return *u_.arr; }
  // The array for writing; copies the elements first when they are shared.
  SafeArray& MutableArray();

  // Makes the value the String `text`, reusing this value's own text buffer
  // when nothing else shares it.
  void AssignText(std::string_view text) {
    if (type_ == VarType::String && u_.str->refs.load(std::memory_order_acquire) == 1) {
      u_.str->text.assign(text);
      return;
    }
    *this = Variant(std::string(text));
  }

  // --- Conversions (CStr, CBool, CInt, ...) ---------------------------------
  // CStr: Boolean "True"/"False"; numbers in the shortest form VBScript shows
  // (15 significant digits for Double, 7 for Single, "1E+20"); dates in the US
  // form. Empty gives "", Null raises 94, arrays 13.
  std::string ToString() const;
  // Like ToString but shares the buffer when the value is already a String.
  Variant ToStringVariant() const;
  bool ToBool() const;           // CBool: "True"/"False" any case, or numeric text
  int16_t ToInteger() const;     // CInt: round half to even, 6 when out of range
  int32_t ToLong() const;        // CLng
  uint8_t ToByte() const;        // CByte
  float ToSingle() const;        // CSng
  double ToDouble() const;       // CDbl: numeric text per ParseNumericText
  Currency ToCurrency() const;   // CCur
  Decimal ToDecimal() const;     // CDec
  double ToDate() const;         // CDate: numbers as serials, text per DateTime::Parse
  // The conversion named by `type` as a Variant (VarType::Variant returns a
  // copy). Raises 13 for Object/Error/Array targets other than no-ops.
  Variant ConvertTo(VarType type) const;
  // The value an object stands for in an expression: its default property.
  // Other values are returned unchanged.
  Variant Dereference() const;

 private:
  static Variant Scalar(VarType type) noexcept {
    Variant r;
    r.type_ = type;
    return r;
  }
  bool IsCounted() const noexcept {
    return type_ == VarType::String || type_ == VarType::Object || type_ == VarType::Array;
  }
  void AddRefSlow() const noexcept;
  void ReleaseSlow() noexcept;

  VarType type_ = VarType::Empty;
  // Decimal keeps its scale, sign and high 32 mantissa bits here and the low
  // 64 bits in u_, so that the whole value stays inside 16 bytes.
  uint8_t decScale_ = 0;
  uint8_t decNegative_ = 0;
  uint32_t decHi_ = 0;
  union {
    int16_t i16;
    int32_t i32;
    float f32;
    double f64;
    int64_t i64;
    uint64_t u64;
    bool b;
    uint8_t u8;
    detail::StringData* str;
    Object* obj;
    SafeArray* arr;
  } u_;

  friend class SafeArray;
};

static_assert(sizeof(Variant) <= 24);

// --- Text tests and helpers ----------------------------------------------------

// Numeric text as CDbl reads it: blanks around, optional sign, digits with
// comma thousands separators, a period, an exponent (E or D); or "&H..."/"&O..."
// integers. nullopt when the text is not a number.
std::optional<double> ParseNumericText(std::string_view text);
bool IsNumericText(std::string_view text);
bool IsDateText(std::string_view text);
// IsNumeric()/IsDate() of the script language for any value.
bool IsNumeric(const Variant& value);
bool IsDate(const Variant& value);

// CStr of a Double / Single.
std::string DoubleToString(double value);
std::string SingleToString(float value);

// --- Comparison ----------------------------------------------------------------
//
// Compare implements the script's =, <>, <, <=, >, >= on two values:
// - Null on either side gives CompareResult::Null.
// - Objects are replaced by their default property first.
// - Two numbers (Integer, Long, Single, Double, Currency, Decimal, Byte,
//   Boolean as -1/0, Date as its serial) compare numerically.
// - Two strings compare as text: byte order of UTF-8 (binary) or, with
//   `textCompare`, without regard to case.
// - A number against a string: the number is less than any string.
// - Empty against a number is 0, against a string is "", against Empty equal.
// - Arrays and Error values raise 13 "Type mismatch".
enum class CompareResult : int8_t { Less = -1, Equal = 0, Greater = 1, Null = 2 };
namespace detail {
CompareResult CompareSlow(const Variant& a, const Variant& b, bool textCompare);
}
inline CompareResult Compare(const Variant& a, const Variant& b, bool textCompare = false) {
  VarType ta = a.Type(), tb = b.Type();
  if (static_cast<unsigned>(ta) - 2u <= 1u && static_cast<unsigned>(tb) - 2u <= 1u) {  // Integer/Long
    int32_t x = ta == VarType::Integer ? a.IntegerValue() : a.LongValue();
    int32_t y = tb == VarType::Integer ? b.IntegerValue() : b.LongValue();
    return static_cast<CompareResult>((x > y) - (x < y));
  }
  if (ta == VarType::Double && tb == VarType::Double) {
    double x = a.DoubleValue(), y = b.DoubleValue();
    return static_cast<CompareResult>((x > y) - (x < y));
  }
  return detail::CompareSlow(a, b, textCompare);
}
// Text comparison used by Compare, StrComp, InStr: -1, 0 or 1.
int CompareStrings(std::string_view a, std::string_view b, bool textCompare);

}  // namespace tessel

#include "core/SafeArray.h"
