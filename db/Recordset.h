// Recordset: forward-only cursor over the rows of one query.
//
// A recordset stands on its first row when it is opened, or at its end when
// the query gave no rows. Next() moves one row on; values are read from the
// current row by 0-based ordinal or by column name, names compared without
// regard to case. Column names are those the database reports (PostgreSQL
// folds unquoted names to lower case).
//
// Made by Connection::OpenRecordset. It owns its native statement or result
// and releases it in Close() or when destroyed; it may outlive its connection.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "core/Variant.h"
#include "db/SqlValue.h"

namespace tessel::db {

class Recordset {
 public:
  virtual ~Recordset();
  Recordset(const Recordset&) = delete;
  Recordset& operator=(const Recordset&) = delete;

  // True when there is no current row.
  virtual bool IsEOF() const = 0;
  // Moves to the next row; at the end it does nothing.
  virtual void Next() = 0;
  // Releases the statement; the recordset is then at its end.
  virtual void Close() = 0;

  virtual int FieldCount() const = 0;
  // Raise kItemNotFound for an ordinal outside 0..FieldCount()-1.
  const std::string& FieldName(int index) const;
  FieldType TypeOf(int index) const;

  // Ordinal of the column of that name (case ignored), or -1.
  int FieldIndex(std::string_view name) const;

  // Value of the current row. Raise kNoCurrentRow at the end, kItemNotFound
  // for an unknown ordinal or name.
  SqlValue Value(int index) const;
  SqlValue Value(std::string_view name) const;

  bool IsNull(int index) const { return db::IsNull(Value(index)); }
  std::optional<std::string> Text(int index) const { return ToText(Value(index)); }
  std::optional<std::string> Text(std::string_view name) const { return ToText(Value(name)); }
  std::optional<int64_t> Int64(int index) const { return ToInt64(Value(index)); }
  std::optional<int64_t> Int64(std::string_view name) const { return ToInt64(Value(name)); }
  std::optional<double> Double(int index) const { return ToDouble(Value(index)); }
  std::optional<double> Double(std::string_view name) const { return ToDouble(Value(name)); }

  // The value as a script Variant, typed by the column (see SqlVariant.h).
  Variant Field(int index) const;
  Variant Field(std::string_view name) const;

 protected:
  Recordset() = default;

  virtual const std::string& DoFieldName(int index) const = 0;
  virtual FieldType DoTypeOf(int index) const = 0;
  // Called only on a current row with a valid ordinal.
  virtual SqlValue DoValue(int index) const = 0;

 private:
  void CheckIndex(int index) const;
};

}  // namespace tessel::db
