// SqlValue: one value crossing the database boundary, as a parameter bound to
// a statement or as a field read from a row.
//
// The alternatives are the storage classes every backend can carry without
// loss: NULL, boolean, 64-bit integer, double, text (UTF-8) and bytes.
// Decimals, dates and times travel as text in their database form
// ("2024-02-29", "2024-02-29 13:05:00"); the field's FieldType says which
// meaning the text has. A SqlValue owns its data.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace tessel::db {

using Blob = std::vector<uint8_t>;

using SqlValue = std::variant<std::monostate, bool, int64_t, double, std::string, Blob>;

// Positional parameters, matched in order to the `?` marks of a statement.
using Params = std::vector<SqlValue>;

// The declared or reported type of a result column.
enum class FieldType {
  Unknown,
  Boolean,
  Integer,
  Real,
  Decimal,   // exact number, carried as text
  Text,
  Date,      // carried as text, yyyy-mm-dd
  Time,      // carried as text
  DateTime,  // carried as text
  Binary,
};

inline bool IsNull(const SqlValue& value) { return std::holds_alternative<std::monostate>(value); }

// Readable name of a field type, for messages and tests.
const char* FieldTypeName(FieldType type);

// Text form of a value: NULL gives nullopt; booleans give "1"/"0"; doubles the
// shortest text that reads back to the same double; bytes are taken as they are.
std::optional<std::string> ToText(const SqlValue& value);

// Integer form: NULL gives nullopt; text is parsed as a whole decimal number
// (surrounding blanks allowed); doubles are truncated. Text that is not a
// number raises tessel::Error 9608.
std::optional<int64_t> ToInt64(const SqlValue& value);

// Double form, by the same rules as ToInt64.
std::optional<double> ToDouble(const SqlValue& value);

}  // namespace tessel::db
