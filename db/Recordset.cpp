#include "db/Recordset.h"

#include <strings.h>

#include "core/Error.h"
#include "db/Connection.h"
#include "db/SqlVariant.h"

namespace tessel::db {

Recordset::~Recordset() = default;

void Recordset::CheckIndex(int index) const {
  if (index < 0 || index >= FieldCount()) {
    throw Error(kItemNotFound,
                "Item cannot be found in the collection corresponding to the requested name or ordinal. [" +
                    std::to_string(index) + "]",
                "tessel.db");
  }
}

const std::string& Recordset::FieldName(int index) const {
  CheckIndex(index);
  return DoFieldName(index);
}

FieldType Recordset::TypeOf(int index) const {
  CheckIndex(index);
  return DoTypeOf(index);
}

int Recordset::FieldIndex(std::string_view name) const {
  int count = FieldCount();
  for (int i = 0; i < count; ++i) {
    const std::string& field = DoFieldName(i);
    if (field.size() == name.size() && strncasecmp(field.data(), name.data(), name.size()) == 0) return i;
  }
  return -1;
}

SqlValue Recordset::Value(int index) const {
  CheckIndex(index);
  if (IsEOF()) {
    throw Error(kNoCurrentRow, "There is no current row: the recordset is at its end.", "tessel.db");
  }
  return DoValue(index);
}

SqlValue Recordset::Value(std::string_view name) const {
  int index = FieldIndex(name);
  if (index < 0) {
    throw Error(kItemNotFound,
                "Item cannot be found in the collection corresponding to the requested name or ordinal. [" +
                    std::string(name) + "]",
                "tessel.db");
  }
  return Value(index);
}

Variant Recordset::Field(int index) const { return SqlVariant::ToVariant(Value(index), TypeOf(index)); }

Variant Recordset::Field(std::string_view name) const {
  SqlValue value = Value(name);  // raises kItemNotFound for an unknown name
  return SqlVariant::ToVariant(value, DoTypeOf(FieldIndex(name)));
}

}  // namespace tessel::db
