// TransactionRenameAction: one step of a TransactionRenamer pass over the
// records of one record type: a field renamed, renamed by way of a temporary
// name (when two renames cross), or removed.
#pragma once

#include <string>

namespace tessel {

struct TransactionRenameAction {
  std::string FieldId;      // the field's name in the data as it stands
  std::string NewFieldId;   // the name it is to have
  std::string TempFieldId;  // the name on the way there, when NeedToSwap
  bool NeedToSwap = false;
  bool DeleteField = false;  // the field leaves the record instead
};

}  // namespace tessel
