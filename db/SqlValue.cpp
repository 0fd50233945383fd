#include "db/SqlValue.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>

#include "core/Error.h"
#include "db/Connection.h"

namespace tessel::db {

namespace {

std::string_view TrimBlanks(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

[[noreturn]] void NotANumber(std::string_view text, const char* what) {
  throw Error(kConversionFailed, "Value [" + std::string(text) + "] cannot be read as " + what + ".",
              "tessel.db");
}

}  // namespace

const char* FieldTypeName(FieldType type) {
  switch (type) {
    case FieldType::Unknown: return "Unknown";
    case FieldType::Boolean: return "Boolean";
    case FieldType::Integer: return "Integer";
    case FieldType::Real: return "Real";
    case FieldType::Decimal: return "Decimal";
    case FieldType::Text: return "Text";
    case FieldType::Date: return "Date";
    case FieldType::Time: return "Time";
    case FieldType::DateTime: return "DateTime";
    case FieldType::Binary: return "Binary";
  }
  return "Unknown";
}

std::optional<std::string> ToText(const SqlValue& value) {
  struct Visitor {
    std::optional<std::string> operator()(std::monostate) const { return std::nullopt; }
    std::optional<std::string> operator()(bool b) const { return std::string(b ? "1" : "0"); }
    std::optional<std::string> operator()(int64_t i) const { return std::to_string(i); }
    std::optional<std::string> operator()(double d) const {
      char buffer[64];
      auto result = std::to_chars(buffer, buffer + sizeof buffer, d);
      return std::string(buffer, result.ptr);
    }
    std::optional<std::string> operator()(const std::string& s) const { return s; }
    std::optional<std::string> operator()(const Blob& b) const { return std::string(b.begin(), b.end()); }
  };
  return std::visit(Visitor{}, value);
}

std::optional<int64_t> ToInt64(const SqlValue& value) {
  if (IsNull(value)) return std::nullopt;
  if (auto* b = std::get_if<bool>(&value)) return *b ? 1 : 0;
  if (auto* i = std::get_if<int64_t>(&value)) return *i;
  if (auto* d = std::get_if<double>(&value)) {
    if (!std::isfinite(*d) || std::fabs(*d) >= 9.2e18) NotANumber(*ToText(value), "an integer");
    return static_cast<int64_t>(*d);
  }
  std::string text = *ToText(value);
  std::string_view trimmed = TrimBlanks(text);
  int64_t result = 0;
  auto [end, ec] = std::from_chars(trimmed.data(), trimmed.data() + trimmed.size(), result);
  if (ec == std::errc() && end == trimmed.data() + trimmed.size() && !trimmed.empty()) return result;
  // Decimal text such as "12.00" from a numeric column.
  std::optional<double> asDouble = ToDouble(value);
  return ToInt64(SqlValue(*asDouble));
}

std::optional<double> ToDouble(const SqlValue& value) {
  if (IsNull(value)) return std::nullopt;
  if (auto* b = std::get_if<bool>(&value)) return *b ? 1.0 : 0.0;
  if (auto* i = std::get_if<int64_t>(&value)) return static_cast<double>(*i);
  if (auto* d = std::get_if<double>(&value)) return *d;
  std::string text = *ToText(value);
  std::string trimmed(TrimBlanks(text));
  if (trimmed.empty()) NotANumber(text, "a number");
  errno = 0;
  char* end = nullptr;
  double result = std::strtod(trimmed.c_str(), &end);
  if (end != trimmed.c_str() + trimmed.size() || errno == ERANGE) NotANumber(text, "a number");
  return result;
}

}  // namespace tessel::db
