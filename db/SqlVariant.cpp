#include "db/SqlVariant.h"

#include <cctype>
#include <cmath>
#include <cstdio>

#include "core/DateTime.h"
#include "core/Error.h"
#include "core/SafeArray.h"
#include "db/Connection.h"

namespace tessel::db {

namespace {

// Reads exactly `count` digits at text[at].
bool Digits(std::string_view text, size_t at, size_t count, int& out) {
  if (at + count > text.size()) return false;
  out = 0;
  for (size_t i = at; i < at + count; ++i) {
    if (!std::isdigit(static_cast<unsigned char>(text[i]))) return false;
    out = out * 10 + (text[i] - '0');
  }
  return true;
}

// hh:mm[:ss[.fff]] at text[at]; returns the position after it, or npos.
size_t ReadTime(std::string_view text, size_t at, DateParts& parts) {
  if (!Digits(text, at, 2, parts.hour) || at + 2 >= text.size() || text[at + 2] != ':' ||
      !Digits(text, at + 3, 2, parts.minute)) {
    return std::string_view::npos;
  }
  size_t pos = at + 5;
  if (pos < text.size() && text[pos] == ':') {
    if (!Digits(text, pos + 1, 2, parts.second)) return std::string_view::npos;
    pos += 3;
    if (pos < text.size() && text[pos] == '.') {
      ++pos;
      int scale = 100;
      int millis = 0;
      size_t start = pos;
      while (pos < text.size() && std::isdigit(static_cast<unsigned char>(text[pos]))) {
        millis += (text[pos] - '0') * scale;
        scale /= 10;
        ++pos;
      }
      if (pos == start) return std::string_view::npos;
      parts.millisecond = millis;
    }
  }
  return pos;
}

bool OnlyZone(std::string_view rest) {
  // "+00", "-05:30", "Z", " +01" or nothing.
  while (!rest.empty() && rest.front() == ' ') rest.remove_prefix(1);
  if (rest.empty() || rest == "Z") return true;
  if (rest.front() != '+' && rest.front() != '-') return false;
  for (char c : rest.substr(1)) {
    if (!std::isdigit(static_cast<unsigned char>(c)) && c != ':') return false;
  }
  return true;
}

Variant BytesToVariant(const Blob& bytes) {
  std::vector<Variant> elements;
  elements.reserve(bytes.size());
  for (uint8_t b : bytes) elements.push_back(Variant::FromByte(b));
  return Variant::FromVector(std::move(elements));
}

[[noreturn]] void CannotBind(const Variant& value) {
  throw Error(kConversionFailed, "A value of type " + value.TypeName() + " cannot be passed to the database.",
              "tessel.db");
}

}  // namespace

std::optional<double> SqlVariant::ParseIsoDate(std::string_view text) {
  DateParts parts;
  size_t pos;
  if (text.size() >= 10 && text[4] == '-' && text[7] == '-') {
    if (!Digits(text, 0, 4, parts.year) || !Digits(text, 5, 2, parts.month) || !Digits(text, 8, 2, parts.day)) {
      return std::nullopt;
    }
    pos = 10;
    if (pos < text.size() && (text[pos] == ' ' || text[pos] == 'T') && pos + 1 < text.size() &&
        std::isdigit(static_cast<unsigned char>(text[pos + 1]))) {
      pos = ReadTime(text, pos + 1, parts);
      if (pos == std::string_view::npos) return std::nullopt;
    }
  } else {
    pos = ReadTime(text, 0, parts);
    if (pos == std::string_view::npos) return std::nullopt;
  }
  if (!OnlyZone(text.substr(pos))) return std::nullopt;
  return DateTime::FromParts(parts);
}

std::string SqlVariant::FormatIsoDate(double serial) {
  DateParts p = DateTime::Split(serial, false);
  char buffer[48];
  bool timeOnly = p.year == 1899 && p.month == 12 && p.day == 30 &&
                  (p.hour != 0 || p.minute != 0 || p.second != 0 || p.millisecond != 0);
  bool hasTime = p.hour != 0 || p.minute != 0 || p.second != 0 || p.millisecond != 0;
  std::string out;
  if (!timeOnly) {
    std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02d", p.year, p.month, p.day);
    out = buffer;
  }
  if (hasTime) {
    std::snprintf(buffer, sizeof buffer, "%02d:%02d:%02d", p.hour, p.minute, p.second);
    if (!out.empty()) out += ' ';
    out += buffer;
    if (p.millisecond != 0) {
      std::snprintf(buffer, sizeof buffer, ".%03d", p.millisecond);
      out += buffer;
    }
  }
  return out;
}

Variant SqlVariant::ToVariant(const SqlValue& value, FieldType type) {
  struct Visitor {
    FieldType type;
    Variant operator()(std::monostate) const { return Variant::Null(); }
    Variant operator()(bool b) const { return Variant(b); }
    Variant operator()(int64_t i) const {
      if (type == FieldType::Boolean) return Variant(i != 0);
      if (type == FieldType::Decimal) return Variant::FromDecimal(Decimal::FromInt64(i));
      if (i >= INT32_MIN && i <= INT32_MAX) return Variant(static_cast<int32_t>(i));
      return Variant::FromDecimal(Decimal::FromInt64(i));
    }
    Variant operator()(double d) const {
      // SQLite keeps a decimal column's values as reals.
      if (type == FieldType::Decimal && std::isfinite(d)) return Variant::FromDecimal(Decimal::FromDouble(d));
      return Variant(d);
    }
    Variant operator()(const std::string& s) const {
      if (type == FieldType::Decimal) {
        Decimal decimal;
        try {
          if (Decimal::Parse(s, decimal)) return Variant::FromDecimal(decimal);
        } catch (const Error&) {
          // Too large for a Decimal: fall through to Double.
        }
        std::optional<double> d = ToDouble(SqlValue(s));
        return Variant(*d);
      }
      if (type == FieldType::Date || type == FieldType::DateTime || type == FieldType::Time) {
        if (std::optional<double> serial = ParseIsoDate(s)) return Variant::FromDate(*serial);
      }
      return Variant(s);
    }
    Variant operator()(const Blob& b) const { return BytesToVariant(b); }
  };
  return std::visit(Visitor{type}, value);
}

SqlValue SqlVariant::ToSqlValue(const Variant& input) {
  Variant value = input.IsObject() && !input.IsNothing() ? input.Dereference() : input;
  switch (value.Type()) {
    case VarType::Empty:
    case VarType::Null: return std::monostate{};
    case VarType::Boolean: return value.BooleanValue();
    case VarType::Byte: return int64_t{value.ByteValue()};
    case VarType::Integer: return int64_t{value.IntegerValue()};
    case VarType::Long: return int64_t{value.LongValue()};
    case VarType::Single: return static_cast<double>(value.SingleValue());
    case VarType::Double: return value.DoubleValue();
    case VarType::Currency: return Decimal::FromCurrency(value.CurrencyValue()).ToString();
    case VarType::Decimal: return value.DecimalValue().ToString();
    case VarType::Date: return FormatIsoDate(value.DateValue());
    case VarType::String: return std::string(value.StringValue());
    case VarType::Array: {
      const SafeArray& array = value.ArrayValue();
      if (array.Dimensions() != 1) CannotBind(value);
      Blob bytes;
      bytes.reserve(array.Count());
      for (const Variant& element : array.Elements()) {
        if (element.Type() == VarType::Byte) {
          bytes.push_back(element.ByteValue());
        } else if (element.IsNumericType()) {
          double d = element.ToDouble();
          if (d < 0 || d > 255 || d != std::floor(d)) CannotBind(value);
          bytes.push_back(static_cast<uint8_t>(d));
        } else {
          CannotBind(value);
        }
      }
      return bytes;
    }
    default: CannotBind(value);
  }
}

Params SqlVariant::ToParams(std::span<const Variant> values) {
  Params params;
  params.reserve(values.size());
  for (const Variant& value : values) params.push_back(ToSqlValue(value));
  return params;
}

}  // namespace tessel::db
